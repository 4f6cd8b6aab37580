// Whole-file reads and all-or-nothing writes. A write goes to a temporary
// file in the same folder, is flushed to disk and renamed over the target,
// so a crash or a full disk leaves the old file or the new one, never half.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/error.h"

namespace lumeo {

inline constexpr char kFileErrorDomain[] = "LumeoFileErrorDomain";
enum FileErrorCode : long {
  kFileNotFound = 1,     // no file at the path
  kFileReadFailed = 2,   // the file exists but cannot be read
  kFileWriteFailed = 3,  // the target is unchanged
};

// Writes `bytes` to `path` atomically. The folder must exist. On failure the
// old contents stand and no temporary file is left behind.
OptionalError writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size);
inline OptionalError writeFileAtomically(const std::filesystem::path& path,
                                         const std::vector<std::uint8_t>& bytes) {
  return writeFileAtomically(path, bytes.data(), bytes.size());
}
inline OptionalError writeFileAtomically(const std::filesystem::path& path, std::string_view text) {
  return writeFileAtomically(path, text.data(), text.size());
}

// The whole file, or an error of kFileNotFound or kFileReadFailed.
std::variant<std::vector<std::uint8_t>, Error> readFileBytes(const std::filesystem::path& path);

}  // namespace lumeo
