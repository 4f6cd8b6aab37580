// Whether a store's path names one particular file. The engine's save
// watchers ask this for every save of every context in the process, and
// resolving a path (symbolic links, "..") touches the file system several
// times, so each path is resolved once and remembered.
//
// Thread: any; matches() may be called from several threads at once.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>
#include <unordered_map>

namespace lumeo {

// The path with symbolic links resolved as far as it exists, else only
// made lexically normal.
std::filesystem::path syncStandardisedPath(const std::filesystem::path& path);

class SyncStorePathMatch {
 public:
  explicit SyncStorePathMatch(const std::filesystem::path& path) : target_(syncStandardisedPath(path)) {}

  const std::filesystem::path& path() const { return target_; }
  // True when `path` resolves to the same file name as the target. A path
  // is resolved the first time it is asked about; the links under it are
  // assumed not to move while the engine runs.
  bool matches(const std::filesystem::path& path) const;

 private:
  std::filesystem::path target_;
  mutable std::mutex mutex_;
  mutable std::unordered_map<std::string, bool> known_;
};

}  // namespace lumeo
