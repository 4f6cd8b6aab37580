// POSIX implementation of the atomic write: mkstemp beside the target,
// write, fsync, rename.
#include "platform/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace lumeo {

namespace {

Error fileError(long code, const std::string& what, const std::filesystem::path& path, int err) {
  return Error(kFileErrorDomain, code, what + " " + path.string() + ": " + std::strerror(err),
               Value::Dictionary{{"path", path.string()}});
}

}  // namespace

OptionalError writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size) {
  const std::filesystem::path folder =
      path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  std::string temp = (folder / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
  const int fd = ::mkstemp(temp.data());
  if (fd < 0) return fileError(kFileWriteFailed, "Cannot write", path, errno);
  auto fail = [&](int err) {
    ::close(fd);
    ::unlink(temp.c_str());
    return fileError(kFileWriteFailed, "Cannot write", path, err);
  };
  const auto* p = static_cast<const char*>(bytes);
  std::size_t left = size;
  while (left > 0) {
    const ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(errno);
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  // Files are readable like any other the user makes (mkstemp gives 0600).
  const mode_t mask = ::umask(0);
  ::umask(mask);
  (void)::fchmod(fd, 0666 & ~mask);
  if (::fsync(fd) != 0) return fail(errno);
  if (::close(fd) != 0) {
    const int err = errno;
    ::unlink(temp.c_str());
    return fileError(kFileWriteFailed, "Cannot write", path, err);
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    const int err = errno;
    ::unlink(temp.c_str());
    return fileError(kFileWriteFailed, "Cannot write", path, err);
  }
  return std::nullopt;
}

std::variant<std::vector<std::uint8_t>, Error> readFileBytes(const std::filesystem::path& path) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) return fileError(kFileNotFound, "No file at", path, ENOENT);
  if (std::filesystem::is_directory(path, ec)) return fileError(kFileReadFailed, "Not a file:", path, EISDIR);
  std::ifstream in(path, std::ios::binary);
  if (!in) return fileError(kFileReadFailed, "Cannot read", path, errno ? errno : EACCES);
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return fileError(kFileReadFailed, "Cannot read", path, EIO);
  return bytes;
}

}  // namespace lumeo
