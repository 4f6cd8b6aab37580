// Whole-file reads and all-or-nothing writes. A write goes to a temporary
// file in the same folder, is flushed to disk and renamed over the target,
// so a crash or a full disk leaves the old file or the new one, never half.
// All file operations go through FileSystem::current().
#pragma once

#include <sys/types.h>

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

// Who may read a written file.
enum class FileAccess {
  kPrivate,      // the user alone (0600), whatever the umask: the journal's own files
  kUserDefault,  // like any file the user makes (0666 less the umask): exports
};

// Writes `bytes` to `path` atomically. The folder must exist. On failure the
// old contents stand and no temporary file is left behind; the error's
// userInfo "errno" holds the system's reason.
OptionalError writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size,
                                  FileAccess access = FileAccess::kPrivate);
inline OptionalError writeFileAtomically(const std::filesystem::path& path,
                                         const std::vector<std::uint8_t>& bytes,
                                         FileAccess access = FileAccess::kPrivate) {
  return writeFileAtomically(path, bytes.data(), bytes.size(), access);
}
inline OptionalError writeFileAtomically(const std::filesystem::path& path, std::string_view text,
                                         FileAccess access = FileAccess::kPrivate) {
  return writeFileAtomically(path, text.data(), text.size(), access);
}

// The whole file, or an error of kFileNotFound or kFileReadFailed.
std::variant<std::vector<std::uint8_t>, Error> readFileBytes(const std::filesystem::path& path);

// The process's umask, read without changing it (setting it to read it would
// race every thread that makes a file). Where the system does not tell, 077:
// files then come out private rather than readable by all.
mode_t currentUmask();

}  // namespace lumeo
