// The file operations of Lumeo's own data, behind one narrow interface: the
// atomic writes, the image store, the settings, and later backup and sync go
// through FileSystem::current() instead of calling the system directly. Tests
// install a FaultInjectingFileSystem to fail the Nth operation and check that
// a failure anywhere leaves the old state or the new one, never a mixture.
// docs/file-system.md lists the users and the fault sweeps.
//
// Every operation reports failure as an Error of kPOSIXErrorDomain whose code
// is the errno value, with the path in the description and in userInfo
// "path". Implementations are thread-safe: any method may be called from any
// thread, and a file object may be used by one thread at a time.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/error.h"

namespace lumeo {

// errno values, as the system's own error domain.
inline constexpr char kPOSIXErrorDomain[] = "NSPOSIXErrorDomain";

// The mode of Lumeo's own files and folders: only the user may read them,
// whatever the umask. The journal is private.
inline constexpr mode_t kPrivateFileMode = 0600;
inline constexpr mode_t kPrivateFolderMode = 0700;

// A new file open for writing. Dropping it closes the file, ignoring errors;
// call close() to learn whether the last bytes arrived.
class WritableFile {
 public:
  virtual ~WritableFile() = default;
  // Writes all of `bytes`, retrying short writes. On failure some prefix of
  // them may be in the file.
  virtual OptionalError append(const void* bytes, std::size_t size) = 0;
  // Flushes the file's data and size to the disk (fsync).
  virtual OptionalError sync() = 0;
  // Closes the file; later calls do nothing and succeed.
  virtual OptionalError close() = 0;
};

struct FolderEntry {
  std::string name;  // the bare name, never "." or ".."
  bool isFolder = false;
  friend bool operator==(const FolderEntry&, const FolderEntry&) = default;
};

struct FileStatus {
  bool isFolder = false;
  mode_t permissions = 0;  // the permission bits only (07777)
  std::uintmax_t size = 0;
  double modified = 0;  // last change of the contents, seconds since 1970 (system clock)
};

template <class T>
using FileResult = std::variant<T, Error>;

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // Makes a file that must not exist yet (EEXIST if it does) with exactly
  // `mode`, whatever the umask. Nothing is left behind on failure.
  virtual FileResult<std::unique_ptr<WritableFile>> createFile(const std::filesystem::path& path,
                                                               mode_t mode) = 0;
  // The whole file (ENOENT when there is none, EISDIR for a folder).
  virtual FileResult<std::vector<std::uint8_t>> readFile(const std::filesystem::path& path) = 0;
  // Replaces `to` by `from` in one step (rename(2)); both in one file system.
  virtual OptionalError rename(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // Removes a file (ENOENT when there is none; folders are not removed).
  virtual OptionalError removeFile(const std::filesystem::path& path) = 0;
  // Removes an empty folder (ENOTEMPTY when it holds anything, ENOTDIR for
  // a file).
  virtual OptionalError removeFolder(const std::filesystem::path& path) = 0;
  // The entries of a folder in no particular order.
  virtual FileResult<std::vector<FolderEntry>> listFolder(const std::filesystem::path& path) = 0;
  // Makes one folder (not its parents) with exactly `mode`, whatever the
  // umask. A folder that is already there is left as it is and counts as
  // success; a file in its place is EEXIST.
  virtual OptionalError makeFolder(const std::filesystem::path& path, mode_t mode) = 0;
  // Flushes a folder's entries, so that a rename in it survives a crash.
  virtual OptionalError syncFolder(const std::filesystem::path& path) = 0;
  // Changes the permission bits of a file or folder (chmod(2)).
  virtual OptionalError setPermissions(const std::filesystem::path& path, mode_t mode) = 0;
  // What is at `path`, following symbolic links (ENOENT when nothing).
  virtual FileResult<FileStatus> status(const std::filesystem::path& path) = 0;

  // Makes the folder and any missing parents, each new one with `mode`.
  // Folders that exist keep their mode.
  OptionalError makeFolders(const std::filesystem::path& path, mode_t mode);
  bool exists(const std::filesystem::path& path) { return std::holds_alternative<FileStatus>(status(path)); }
  // Takes every access away from other users: a folder becomes 0700 and a
  // file 0600, unless it is that private already. ENOENT when nothing is
  // at `path`.
  OptionalError makePrivate(const std::filesystem::path& path);
  // makePrivate for each entry directly in `folder` (not deeper) and for the
  // folder itself.
  OptionalError makeContentsPrivate(const std::filesystem::path& folder);

  // The file system of the process: the system's own unless a test installed
  // another. Thread-safe.
  static std::shared_ptr<FileSystem> current();
  // Installs `fileSystem` for the whole process; nullptr restores the
  // system's own.
  static void setCurrent(std::shared_ptr<FileSystem> fileSystem);
};

// The system's files, through POSIX calls.
class PosixFileSystem : public FileSystem {
 public:
  FileResult<std::unique_ptr<WritableFile>> createFile(const std::filesystem::path& path,
                                                       mode_t mode) override;
  FileResult<std::vector<std::uint8_t>> readFile(const std::filesystem::path& path) override;
  OptionalError rename(const std::filesystem::path& from, const std::filesystem::path& to) override;
  OptionalError removeFile(const std::filesystem::path& path) override;
  OptionalError removeFolder(const std::filesystem::path& path) override;
  FileResult<std::vector<FolderEntry>> listFolder(const std::filesystem::path& path) override;
  OptionalError makeFolder(const std::filesystem::path& path, mode_t mode) override;
  OptionalError syncFolder(const std::filesystem::path& path) override;
  OptionalError setPermissions(const std::filesystem::path& path, mode_t mode) override;
  FileResult<FileStatus> status(const std::filesystem::path& path) override;
};

// Forwards every operation to another file system; a test double overrides
// only the calls it cares about.
class FileSystemWrapper : public FileSystem {
 public:
  explicit FileSystemWrapper(std::shared_ptr<FileSystem> target) : target_(std::move(target)) {}
  FileSystem& target() { return *target_; }

  FileResult<std::unique_ptr<WritableFile>> createFile(const std::filesystem::path& path,
                                                       mode_t mode) override {
    return target_->createFile(path, mode);
  }
  FileResult<std::vector<std::uint8_t>> readFile(const std::filesystem::path& path) override {
    return target_->readFile(path);
  }
  OptionalError rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return target_->rename(from, to);
  }
  OptionalError removeFile(const std::filesystem::path& path) override { return target_->removeFile(path); }
  OptionalError removeFolder(const std::filesystem::path& path) override {
    return target_->removeFolder(path);
  }
  FileResult<std::vector<FolderEntry>> listFolder(const std::filesystem::path& path) override {
    return target_->listFolder(path);
  }
  OptionalError makeFolder(const std::filesystem::path& path, mode_t mode) override {
    return target_->makeFolder(path, mode);
  }
  OptionalError syncFolder(const std::filesystem::path& path) override { return target_->syncFolder(path); }
  OptionalError setPermissions(const std::filesystem::path& path, mode_t mode) override {
    return target_->setPermissions(path, mode);
  }
  FileResult<FileStatus> status(const std::filesystem::path& path) override { return target_->status(path); }

 private:
  std::shared_ptr<FileSystem> target_;
};

// Fails one chosen operation. Every call counts as one operation: each
// FileSystem method and each append, sync and close of a file it created.
// After failAt(n, err) the nth operation from then on fails with `err`
// without reaching the target, except a failing append, which first writes
// half of its bytes, as a full disk does. Later operations succeed again.
// Used by the fault sweeps: for n = 1, 2, ... run an action until it
// succeeds, and check after each failure that nothing was lost or torn.
class FaultInjectingFileSystem : public FileSystemWrapper {
 public:
  explicit FaultInjectingFileSystem(std::shared_ptr<FileSystem> target = std::make_shared<PosixFileSystem>())
      : FileSystemWrapper(std::move(target)) {}

  // Arms the fault and restarts the count.
  void failAt(int n, int err);
  // Counts without failing.
  void disarm() { failAt(0, 0); }
  // Operations since the last failAt/disarm, and whether the fault fired.
  int operationCount() const;
  bool faultFired() const;
  // The operations since the last failAt/disarm, as "rename a -> b" lines.
  std::vector<std::string> operations() const;

  FileResult<std::unique_ptr<WritableFile>> createFile(const std::filesystem::path& path,
                                                       mode_t mode) override;
  FileResult<std::vector<std::uint8_t>> readFile(const std::filesystem::path& path) override;
  OptionalError rename(const std::filesystem::path& from, const std::filesystem::path& to) override;
  OptionalError removeFile(const std::filesystem::path& path) override;
  OptionalError removeFolder(const std::filesystem::path& path) override;
  FileResult<std::vector<FolderEntry>> listFolder(const std::filesystem::path& path) override;
  OptionalError makeFolder(const std::filesystem::path& path, mode_t mode) override;
  OptionalError syncFolder(const std::filesystem::path& path) override;
  OptionalError setPermissions(const std::filesystem::path& path, mode_t mode) override;
  FileResult<FileStatus> status(const std::filesystem::path& path) override;

  // The error for this operation, or nothing to let it through. Public for
  // the file objects this system hands out.
  std::optional<int> countOperation(const std::string& description);

 private:
  mutable std::mutex mutex_;
  int failAt_ = 0;
  int error_ = 0;
  int count_ = 0;
  bool fired_ = false;
  std::vector<std::string> operations_;
};

// Installs a file system for the lifetime of the guard (tests).
class ScopedFileSystem {
 public:
  explicit ScopedFileSystem(std::shared_ptr<FileSystem> fileSystem);
  ~ScopedFileSystem();
  ScopedFileSystem(const ScopedFileSystem&) = delete;
  ScopedFileSystem& operator=(const ScopedFileSystem&) = delete;

 private:
  std::shared_ptr<FileSystem> previous_;
};

// The error of a failed call, in kPOSIXErrorDomain.
Error posixError(int err, const std::string& what, const std::filesystem::path& path);

}  // namespace lumeo
