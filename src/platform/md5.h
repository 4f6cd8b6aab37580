// MD5 checksums of files and bytes, as 32 lowercase hexadecimal digits. The
// image store and the sync engine's file transfer compare files by them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace lumeo {

std::string md5Hash(const void* bytes, std::size_t size);
inline std::string md5Hash(std::string_view text) {
  return md5Hash(text.data(), text.size());
}
inline std::string md5Hash(const std::vector<std::uint8_t>& bytes) {
  return md5Hash(bytes.data(), bytes.size());
}

// The hash of the file's contents, read in pieces; "" when there is no
// readable file at the path (a missing image reads as an empty checksum).
std::string md5HashOfPath(const std::filesystem::path& path);

}  // namespace lumeo
