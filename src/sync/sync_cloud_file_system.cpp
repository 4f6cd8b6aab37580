// The parts of the cloud file system that every implementation shares: the
// identity observers, the main-queue completions, paths and errors.
#include "sync/sync_cloud_file_system.h"

#include <cerrno>
#include <cstring>

#include "platform/dispatch_queue.h"
#include "sync/sync_error.h"

namespace lumeo {

const std::string& SyncCloudItem::name() const {
  return isDirectory() ? directory()->name : file()->name;
}

const std::string& SyncCloudItem::path() const {
  return isDirectory() ? directory()->path : file()->path;
}

void SyncCloudFileSystem::performInitialPreparation(SyncCloudCompletion completion) {
  completeOnMainQueue(completion, std::nullopt);
}

void SyncCloudFileSystem::repairEnsembleDirectory(const std::string&, SyncCloudCompletion completion) {
  completeOnMainQueue(completion, std::nullopt);
}

int SyncCloudFileSystem::addIdentityTokenObserver(std::function<void()> observer) {
  std::lock_guard lock(observersMutex_);
  int id = nextObserver_++;
  observers_[id] = std::move(observer);
  return id;
}

void SyncCloudFileSystem::removeIdentityTokenObserver(int id) {
  std::lock_guard lock(observersMutex_);
  observers_.erase(id);
}

void SyncCloudFileSystem::identityTokenDidChange() {
  std::vector<std::function<void()>> observers;
  {
    std::lock_guard lock(observersMutex_);
    for (const auto& [id, observer] : observers_) observers.push_back(observer);
  }
  for (auto& observer : observers) DispatchQueue::main().async(observer);
}

void SyncCloudFileSystem::completeOnMainQueue(const SyncCloudCompletion& completion, OptionalError error) {
  if (!completion) return;
  DispatchQueue::main().async([completion, error = std::move(error)] { completion(error); });
}

std::optional<std::string> syncNormalizedCloudPath(const std::string& path) {
  if (path.empty() || path[0] != '/') return std::nullopt;
  std::vector<std::string> segments;
  std::size_t start = 1;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string segment = path.substr(start, end - start);
    if (segment == "..") {
      if (segments.empty()) return std::nullopt;
      segments.pop_back();
    } else if (!segment.empty() && segment != ".") {
      if (segment.find('\0') != std::string::npos) return std::nullopt;
      segments.push_back(std::move(segment));
    }
    start = end + 1;
  }
  if (segments.empty()) return std::string("/");
  std::string out;
  for (const auto& segment : segments) out += "/" + segment;
  return out;
}

std::string syncCloudPathName(const std::string& normalizedPath) {
  return normalizedPath.substr(normalizedPath.rfind('/') + 1);
}

std::string syncCloudPathParent(const std::string& normalizedPath) {
  std::size_t slash = normalizedPath.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : normalizedPath.substr(0, slash);
}

std::string syncCloudPathAppending(const std::string& parent, const std::string& name) {
  return parent == "/" ? "/" + name : parent + "/" + name;
}

Error syncCloudNotConnectedError() {
  return syncError(kSyncErrorCodeCloudNotConnected, "Attempted to access the cloud when not connected.");
}

Error syncCloudInvalidPathError(const std::string& path) {
  return syncCloudFileError(EINVAL, "Not an absolute path inside the cloud: \"" + path + "\"");
}

Error syncCloudFileError(int err, const std::string& description) {
  Error error = syncError(kSyncErrorCodeFileAccessFailed, description);
  if (err != 0) error.userInfo["errno"] = Value(err);
  return error;
}

int syncCloudErrno(const Error& error) {
  if (!error.is(kSyncErrorDomain, kSyncErrorCodeFileAccessFailed)) return 0;
  auto it = error.userInfo.find("errno");
  return it == error.userInfo.end() ? 0 : static_cast<int>(it->second.toInt());
}

}  // namespace lumeo
