// The POSIX file system, the process-wide slot and the fault injector.
#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumeo {

Error posixError(int err, const std::string& what, const std::filesystem::path& path) {
  return Error(kPOSIXErrorDomain, err, what + " " + path.string() + ": " + std::strerror(err),
               Value::Dictionary{{"path", path.string()}});
}

namespace {

std::mutex& currentMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<FileSystem>& currentSlot() {
  static std::shared_ptr<FileSystem> fileSystem = std::make_shared<PosixFileSystem>();
  return fileSystem;
}

class PosixWritableFile : public WritableFile {
 public:
  PosixWritableFile(int fd, std::filesystem::path path) : fd_(fd), path_(std::move(path)) {}
  ~PosixWritableFile() override {
    if (fd_ >= 0) ::close(fd_);
  }

  OptionalError append(const void* bytes, std::size_t size) override {
    const auto* p = static_cast<const char*>(bytes);
    while (size > 0) {
      const ssize_t n = ::write(fd_, p, size);
      if (n < 0) {
        if (errno == EINTR) continue;
        return posixError(errno, "Cannot write", path_);
      }
      p += n;
      size -= static_cast<std::size_t>(n);
    }
    return std::nullopt;
  }

  OptionalError sync() override {
    if (::fsync(fd_) != 0) return posixError(errno, "Cannot flush", path_);
    return std::nullopt;
  }

  OptionalError close() override {
    if (fd_ < 0) return std::nullopt;
    const int fd = fd_;
    fd_ = -1;
    // Linux releases the descriptor even when close reports an error, so it
    // is never retried.
    if (::close(fd) != 0) return posixError(errno, "Cannot close", path_);
    return std::nullopt;
  }

 private:
  int fd_;
  std::filesystem::path path_;
};

}  // namespace

std::shared_ptr<FileSystem> FileSystem::current() {
  std::lock_guard lock(currentMutex());
  return currentSlot();
}

void FileSystem::setCurrent(std::shared_ptr<FileSystem> fileSystem) {
  std::lock_guard lock(currentMutex());
  currentSlot() = fileSystem ? std::move(fileSystem) : std::make_shared<PosixFileSystem>();
}

OptionalError FileSystem::makeFolders(const std::filesystem::path& path, mode_t mode) {
  if (path.empty()) return std::nullopt;
  auto existing = status(path);
  if (const auto* s = std::get_if<FileStatus>(&existing)) {
    if (s->isFolder) return std::nullopt;
    return posixError(ENOTDIR, "Cannot make the folder", path);
  }
  const Error& error = std::get<Error>(existing);
  if (error.code != ENOENT) return error;
  if (path.has_parent_path() && path.parent_path() != path) {
    if (auto parentError = makeFolders(path.parent_path(), mode)) return parentError;
  }
  return makeFolder(path, mode);
}

OptionalError FileSystem::makePrivate(const std::filesystem::path& path) {
  auto current = status(path);
  if (auto* error = std::get_if<Error>(&current)) return *error;
  const FileStatus& s = std::get<FileStatus>(current);
  const mode_t wanted = s.isFolder ? kPrivateFolderMode : kPrivateFileMode;
  if ((s.permissions & 07777) == wanted) return std::nullopt;
  return setPermissions(path, wanted);
}

OptionalError FileSystem::makeContentsPrivate(const std::filesystem::path& folder) {
  OptionalError firstError = makePrivate(folder);
  auto entries = listFolder(folder);
  if (auto* error = std::get_if<Error>(&entries)) return firstError ? firstError : *error;
  for (const FolderEntry& entry : std::get<std::vector<FolderEntry>>(entries)) {
    OptionalError error = makePrivate(folder / entry.name);
    // An entry removed since the listing is no failure.
    if (error && error->code != ENOENT && !firstError) firstError = error;
  }
  return firstError;
}

// ---------------------------------------------------------------------------
// PosixFileSystem

FileResult<std::unique_ptr<WritableFile>> PosixFileSystem::createFile(const std::filesystem::path& path,
                                                                      mode_t mode) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (fd < 0) return posixError(errno, "Cannot create", path);
  // open() applied the umask; the mode asked for is the mode wanted.
  if (::fchmod(fd, mode) != 0) {
    const int err = errno;
    ::close(fd);
    ::unlink(path.c_str());
    return posixError(err, "Cannot set the mode of", path);
  }
  return std::unique_ptr<WritableFile>(std::make_unique<PosixWritableFile>(fd, path));
}

FileResult<std::vector<std::uint8_t>> PosixFileSystem::readFile(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return posixError(errno, "Cannot read", path);
  struct stat st {};
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    const int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    return posixError(err, "Cannot read", path);
  }
  std::vector<std::uint8_t> bytes;
  if (st.st_size > 0) bytes.reserve(static_cast<std::size_t>(st.st_size));
  std::uint8_t buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      return posixError(err, "Cannot read", path);
    }
    if (n == 0) break;
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  ::close(fd);
  return bytes;
}

OptionalError PosixFileSystem::rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (::rename(from.c_str(), to.c_str()) != 0)
    return posixError(errno, "Cannot rename " + from.string() + " to", to);
  return std::nullopt;
}

OptionalError PosixFileSystem::removeFile(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) != 0) return posixError(errno, "Cannot remove", path);
  return std::nullopt;
}

OptionalError PosixFileSystem::removeFolder(const std::filesystem::path& path) {
  if (::rmdir(path.c_str()) != 0) return posixError(errno, "Cannot remove the folder", path);
  return std::nullopt;
}

FileResult<std::vector<FolderEntry>> PosixFileSystem::listFolder(const std::filesystem::path& path) {
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return posixError(errno, "Cannot list", path);
  std::vector<FolderEntry> entries;
  errno = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..") continue;
    bool isFolder = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK) {
      struct stat st {};
      isFolder = ::fstatat(::dirfd(dir), entry->d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
    }
    entries.push_back({std::string(name), isFolder});
  }
  const int err = errno;
  ::closedir(dir);
  if (err != 0) return posixError(err, "Cannot list", path);
  return entries;
}

OptionalError PosixFileSystem::makeFolder(const std::filesystem::path& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) != 0) {
    const int err = errno;
    struct stat st {};
    if (err == EEXIST && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return std::nullopt;
    return posixError(err, "Cannot make the folder", path);
  }
  // mkdir() applied the umask.
  if (::chmod(path.c_str(), mode) != 0) return posixError(errno, "Cannot set the mode of", path);
  return std::nullopt;
}

OptionalError PosixFileSystem::syncFolder(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return posixError(errno, "Cannot open the folder", path);
  const int result = ::fsync(fd);
  const int err = errno;
  ::close(fd);
  if (result != 0) return posixError(err, "Cannot flush the folder", path);
  return std::nullopt;
}

OptionalError PosixFileSystem::setPermissions(const std::filesystem::path& path, mode_t mode) {
  if (::chmod(path.c_str(), mode) != 0) return posixError(errno, "Cannot set the mode of", path);
  return std::nullopt;
}

FileResult<FileStatus> PosixFileSystem::status(const std::filesystem::path& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return posixError(errno, "No file at", path);
  FileStatus status;
  status.isFolder = S_ISDIR(st.st_mode);
  status.permissions = st.st_mode & 07777;
  status.size = static_cast<std::uintmax_t>(st.st_size);
  status.modified = static_cast<double>(st.st_mtim.tv_sec) + static_cast<double>(st.st_mtim.tv_nsec) / 1e9;
  return status;
}

// ---------------------------------------------------------------------------
// FaultInjectingFileSystem

namespace {

class FaultInjectingWritableFile : public WritableFile {
 public:
  FaultInjectingWritableFile(FaultInjectingFileSystem& owner, std::unique_ptr<WritableFile> target,
                             std::filesystem::path path)
      : owner_(owner), target_(std::move(target)), path_(std::move(path)) {}

  OptionalError append(const void* bytes, std::size_t size) override {
    if (auto err = owner_.countOperation("write " + path_.string())) {
      // A full disk takes part of the data before it refuses the rest.
      (void)target_->append(bytes, size / 2);
      return posixError(*err, "Cannot write", path_);
    }
    return target_->append(bytes, size);
  }
  OptionalError sync() override {
    if (auto err = owner_.countOperation("fsync " + path_.string()))
      return posixError(*err, "Cannot flush", path_);
    return target_->sync();
  }
  OptionalError close() override {
    if (closed_) return std::nullopt;
    closed_ = true;
    if (auto err = owner_.countOperation("close " + path_.string())) {
      (void)target_->close();
      return posixError(*err, "Cannot close", path_);
    }
    return target_->close();
  }

 private:
  FaultInjectingFileSystem& owner_;
  std::unique_ptr<WritableFile> target_;
  std::filesystem::path path_;
  bool closed_ = false;
};

}  // namespace

void FaultInjectingFileSystem::failAt(int n, int err) {
  std::lock_guard lock(mutex_);
  failAt_ = n;
  error_ = err;
  count_ = 0;
  fired_ = false;
  operations_.clear();
}

int FaultInjectingFileSystem::operationCount() const {
  std::lock_guard lock(mutex_);
  return count_;
}

bool FaultInjectingFileSystem::faultFired() const {
  std::lock_guard lock(mutex_);
  return fired_;
}

std::vector<std::string> FaultInjectingFileSystem::operations() const {
  std::lock_guard lock(mutex_);
  return operations_;
}

std::optional<int> FaultInjectingFileSystem::countOperation(const std::string& description) {
  std::lock_guard lock(mutex_);
  ++count_;
  operations_.push_back(description);
  if (failAt_ > 0 && count_ == failAt_) {
    fired_ = true;
    operations_.back() += " (fails)";
    return error_;
  }
  return std::nullopt;
}

FileResult<std::unique_ptr<WritableFile>> FaultInjectingFileSystem::createFile(
    const std::filesystem::path& path, mode_t mode) {
  if (auto err = countOperation("create " + path.string())) return posixError(*err, "Cannot create", path);
  auto file = FileSystemWrapper::createFile(path, mode);
  if (auto* error = std::get_if<Error>(&file)) return *error;
  return std::unique_ptr<WritableFile>(std::make_unique<FaultInjectingWritableFile>(
      *this, std::move(std::get<std::unique_ptr<WritableFile>>(file)), path));
}

FileResult<std::vector<std::uint8_t>> FaultInjectingFileSystem::readFile(const std::filesystem::path& path) {
  if (auto err = countOperation("read " + path.string())) return posixError(*err, "Cannot read", path);
  return FileSystemWrapper::readFile(path);
}

OptionalError FaultInjectingFileSystem::rename(const std::filesystem::path& from,
                                               const std::filesystem::path& to) {
  if (auto err = countOperation("rename " + from.string() + " -> " + to.string()))
    return posixError(*err, "Cannot rename " + from.string() + " to", to);
  return FileSystemWrapper::rename(from, to);
}

OptionalError FaultInjectingFileSystem::removeFile(const std::filesystem::path& path) {
  if (auto err = countOperation("remove " + path.string())) return posixError(*err, "Cannot remove", path);
  return FileSystemWrapper::removeFile(path);
}

OptionalError FaultInjectingFileSystem::removeFolder(const std::filesystem::path& path) {
  if (auto err = countOperation("rmdir " + path.string()))
    return posixError(*err, "Cannot remove the folder", path);
  return FileSystemWrapper::removeFolder(path);
}

FileResult<std::vector<FolderEntry>> FaultInjectingFileSystem::listFolder(const std::filesystem::path& path) {
  if (auto err = countOperation("list " + path.string())) return posixError(*err, "Cannot list", path);
  return FileSystemWrapper::listFolder(path);
}

OptionalError FaultInjectingFileSystem::makeFolder(const std::filesystem::path& path, mode_t mode) {
  if (auto err = countOperation("mkdir " + path.string()))
    return posixError(*err, "Cannot make the folder", path);
  return FileSystemWrapper::makeFolder(path, mode);
}

OptionalError FaultInjectingFileSystem::syncFolder(const std::filesystem::path& path) {
  if (auto err = countOperation("fsync folder " + path.string()))
    return posixError(*err, "Cannot flush the folder", path);
  return FileSystemWrapper::syncFolder(path);
}

OptionalError FaultInjectingFileSystem::setPermissions(const std::filesystem::path& path, mode_t mode) {
  if (auto err = countOperation("chmod " + path.string()))
    return posixError(*err, "Cannot set the mode of", path);
  return FileSystemWrapper::setPermissions(path, mode);
}

FileResult<FileStatus> FaultInjectingFileSystem::status(const std::filesystem::path& path) {
  if (auto err = countOperation("stat " + path.string())) return posixError(*err, "No file at", path);
  return FileSystemWrapper::status(path);
}

// ---------------------------------------------------------------------------

ScopedFileSystem::ScopedFileSystem(std::shared_ptr<FileSystem> fileSystem)
    : previous_(FileSystem::current()) {
  FileSystem::setCurrent(std::move(fileSystem));
}

ScopedFileSystem::~ScopedFileSystem() {
  FileSystem::setCurrent(std::move(previous_));
}

}  // namespace lumeo
