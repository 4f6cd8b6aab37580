// The atomic write on the file-system seam: a new temporary file beside the
// target, write, fsync, close, rename, and a flush of the folder.
#include "platform/atomic_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "platform/file_system.h"

namespace lumeo {

namespace {

// The error of the file domain for `path`, whatever step of the write or
// read failed (the temporary file's name would only confuse a reader).
Error fileError(long code, const std::filesystem::path& path, const Error& cause) {
  const char* what = code == kFileNotFound     ? "No file at "
                     : code == kFileReadFailed ? "Cannot read "
                                               : "Cannot write ";
  return Error(
      kFileErrorDomain, code, what + path.string() + ": " + std::strerror(static_cast<int>(cause.code)),
      Value::Dictionary{{"path", path.string()}, {"errno", Value(static_cast<long long>(cause.code))}});
}

std::string randomSuffix() {
  static thread_local std::mt19937 generator(std::random_device{}());
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::string suffix(8, 'a');
  for (char& c : suffix) c = kLetters[generator() % (sizeof kLetters - 1)];
  return suffix;
}

}  // namespace

mode_t currentUmask() {
  // Linux 4.7 and later report it as "Umask:\t0022".
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) != 0) continue;
    try {
      return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8) & 0777);
    } catch (...) {
      break;
    }
  }
  return 077;
}

OptionalError writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size,
                                  FileAccess access) {
  const std::shared_ptr<FileSystem> fs = FileSystem::current();
  const std::filesystem::path folder =
      path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  const mode_t mode = access == FileAccess::kPrivate ? kPrivateFileMode : (0666 & ~currentUmask());

  // A hidden name that the folder's readers skip: ".<name>.tmp-<random>".
  std::filesystem::path temp;
  std::unique_ptr<WritableFile> file;
  for (int attempt = 0;; ++attempt) {
    std::string name(".");
    name += path.filename().string();
    name += ".tmp-";
    name += randomSuffix();
    temp = folder / name;
    auto created = fs->createFile(temp, mode);
    if (auto* f = std::get_if<std::unique_ptr<WritableFile>>(&created)) {
      file = std::move(*f);
      break;
    }
    const Error& error = std::get<Error>(created);
    if (error.code != EEXIST || attempt == 100) return fileError(kFileWriteFailed, path, error);
  }

  OptionalError error = file->append(bytes, size);
  if (!error) error = file->sync();
  // Closing is attempted after a failure too, so the descriptor never leaks.
  OptionalError closeError = file->close();
  if (!error) error = closeError;
  if (!error) error = fs->rename(temp, path);
  if (error) {
    (void)fs->removeFile(temp);
    return fileError(kFileWriteFailed, path, *error);
  }
  // The new name is in place; flushing the folder makes it survive a power
  // cut. A folder that cannot be flushed is no reason to call the write
  // failed: the data itself is on the disk.
  (void)fs->syncFolder(folder);
  return std::nullopt;
}

std::variant<std::vector<std::uint8_t>, Error> readFileBytes(const std::filesystem::path& path) {
  auto bytes = FileSystem::current()->readFile(path);
  if (auto* error = std::get_if<Error>(&bytes)) {
    return fileError(error->code == ENOENT ? kFileNotFound : kFileReadFailed, path, *error);
  }
  return std::move(std::get<std::vector<std::uint8_t>>(bytes));
}

}  // namespace lumeo
