// SHA-256 of bytes in memory, for the object store's model version hashes.
// Kept here rather than taken from libcrypto: the first libcrypto digest of
// a process loads its configuration and providers, which cost a short
// command like `lumeo list` a fifth of its instructions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace lumeo {

std::array<std::uint8_t, 32> sha256(const void* bytes, std::size_t size);
inline std::array<std::uint8_t, 32> sha256(std::string_view text) {
  return sha256(text.data(), text.size());
}

}  // namespace lumeo
