// Remembered store path comparisons (see the header).
#include "sync/sync_store_path.h"

#include <system_error>

namespace lumeo {

namespace {

// Enough for every store a process opens; a process that opens more starts
// over rather than growing without bound.
constexpr std::size_t kRememberedPaths = 64;

}  // namespace

std::filesystem::path syncStandardisedPath(const std::filesystem::path& path) {
  std::error_code ec;
  std::filesystem::path canonical = std::filesystem::weakly_canonical(path, ec);
  return ec ? path.lexically_normal() : canonical;
}

bool SyncStorePathMatch::matches(const std::filesystem::path& path) const {
  std::lock_guard lock(mutex_);
  auto it = known_.find(path.native());
  if (it != known_.end()) return it->second;
  if (known_.size() >= kRememberedPaths) known_.clear();
  const bool same = syncStandardisedPath(path) == target_;
  known_.emplace(path.native(), same);
  return same;
}

}  // namespace lumeo
