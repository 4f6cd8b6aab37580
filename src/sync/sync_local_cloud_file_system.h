// The simplest cloud: a plain directory on this machine. Tests and tools use
// it as a stand-in for a real cloud, and the shared folder builds on its file
// helpers. Every operation goes through FileSystem::current(), so a fault
// injected there reaches it.
#pragma once

#include <filesystem>
#include <string>

#include "platform/file_system.h"
#include "sync/sync_cloud_file_system.h"

namespace lumeo {

// Operations run on the calling thread and call back on the main queue. It
// is always connected; its identity is the user's login name. Unlike the
// other systems, an upload onto an existing path fails with EEXIST: the
// target is not removed first.
class SyncLocalCloudFileSystem : public SyncCloudFileSystem {
 public:
  explicit SyncLocalCloudFileSystem(std::filesystem::path rootDirectory);

  const std::filesystem::path& rootDirectory() const { return rootDirectory_; }

  void connect(SyncCloudCompletion completion) override;
  LUMEO_SYNC_CLOUD_FILE_OPERATIONS_OVERRIDE

  bool isConnected() const override { return true; }
  SyncCloudIdentityToken identityToken() const override;
  bool replacesOnUpload() const override { return false; }

 private:
  std::filesystem::path rootDirectory_;
};

// The file work of the directory-backed systems, on one FileSystem. Each
// returns an error of code 107 with the errno; paths are local paths.
namespace sync_directory {

// Joins a cloud path to a root; nothing for a path that is not absolute or
// leaves the root.
std::optional<std::filesystem::path> localPathFor(const std::filesystem::path& root,
                                                  const std::string& cloudPath);

struct ExistsResult {
  bool exists = false;
  bool isDirectory = false;
};
std::variant<ExistsResult, Error> exists(FileSystem& fs, const std::filesystem::path& path);

// Makes one directory: ENOENT when the parent is missing, EEXIST when
// something is there already.
OptionalError createDirectory(FileSystem& fs, const std::filesystem::path& path);

// Removes a file, or a directory and all it holds, depth first. ENOENT when
// nothing is there.
OptionalError removeItem(FileSystem& fs, const std::filesystem::path& path);

// Copies `from` to a new file `to` that must not exist (EEXIST). A failure
// removes what was written.
OptionalError copyToNewFile(FileSystem& fs, const std::filesystem::path& from,
                            const std::filesystem::path& to);

// What a replacing write must survive. Every kind is renamed into place, so
// no reader ever sees half a file; they differ in what a power cut may undo.
enum class Durability {
  // The file is flushed before the rename, so the name never stands for
  // half a file, and the folder after it, so the name stays.
  kDurable,
  // The file is flushed before the rename; flushing the folder is left to
  // the caller, who may flush it once after a run of writes. A power cut
  // before that may lose the name, never the content behind a name.
  kContent,
  // Nothing is flushed. For the engine's own scratch copies (downloads into
  // the transit cache), which a crash may leave stale, empty or missing and
  // which the next run fetches again.
  kScratch,
};

// Copies `from` over `to` atomically: to a hidden temporary file beside the
// target, renamed over it, flushed as `durability` asks. A failure leaves
// the target as it was and no temporary file.
OptionalError copyReplacing(FileSystem& fs, const std::filesystem::path& from,
                            const std::filesystem::path& to, Durability durability);
// The same with bytes in memory.
OptionalError writeReplacing(FileSystem& fs, const std::filesystem::path& to, const void* bytes,
                             std::size_t size, Durability durability);

// The name of a temporary file for `target` in the same folder: hidden, so
// that listings skip it, and recognisable as Lumeo's own.
std::string temporaryNameFor(const std::string& target);
inline constexpr char kTemporaryPrefix[] = ".lumeo-partial-";

// The error for a failed call of the file system, code 107 with its errno.
Error fileError(const Error& posix, const std::string& what);

}  // namespace sync_directory

}  // namespace lumeo
