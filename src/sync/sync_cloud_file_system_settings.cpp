// The sync destination in the settings file.
#include "sync/sync_cloud_file_system_settings.h"

#include "sync/sync_shared_folder.h"
#include "sync/sync_webdav.h"

namespace lumeo {

std::optional<SyncCloudDestination> syncCloudDestination(const UserDefaults& defaults) {
  auto service = defaults.stringForKey(kIDMCloudServiceUserDefaultKey);
  if (!service) return std::nullopt;
  SyncCloudDestination destination;
  destination.service = *service;
  if (*service == kSyncServiceSharedFolder) {
    auto folder = defaults.stringForKey(kLumeoSyncFolderPathKey);
    if (!folder || folder->empty()) return std::nullopt;
    destination.folder = *folder;
    destination.folderIdentity = defaults.stringForKey(kLumeoSyncFolderIdentityKey);
    return destination;
  }
  if (*service == kSyncServiceWebDAV) {
    auto url = defaults.stringForKey(kLumeoSyncWebDAVURLKey);
    if (!url || url->empty()) return std::nullopt;
    destination.url = *url;
    destination.user = defaults.stringForKey(kLumeoSyncWebDAVUserKey).value_or("");
    destination.caFile = defaults.stringForKey(kLumeoSyncWebDAVCAFileKey).value_or("");
    return destination;
  }
  return std::nullopt;
}

OptionalError setSyncCloudDestination(UserDefaults& defaults, const SyncCloudDestination& destination) {
  auto set = [&](const char* key, const std::string& value) {
    return value.empty() ? defaults.removeObjectForKey(key) : defaults.setString(key, value);
  };
  bool folder = destination.service == kSyncServiceSharedFolder;
  for (auto error : {
           set(kLumeoSyncFolderPathKey, folder ? destination.folder : ""),
           set(kLumeoSyncFolderIdentityKey, folder ? destination.folderIdentity.value_or("") : ""),
           set(kLumeoSyncWebDAVURLKey, folder ? "" : destination.url),
           set(kLumeoSyncWebDAVUserKey, folder ? "" : destination.user),
           set(kLumeoSyncWebDAVCAFileKey, folder ? "" : destination.caFile),
           // Last, so that a reader never finds the service without its keys.
           set(kIDMCloudServiceUserDefaultKey, destination.service),
       }) {
    if (error) return error;
  }
  return std::nullopt;
}

OptionalError clearSyncCloudDestination(UserDefaults& defaults) {
  for (const char* key :
       {kIDMCloudServiceUserDefaultKey, kLumeoSyncFolderPathKey, kLumeoSyncFolderIdentityKey,
        kLumeoSyncWebDAVURLKey, kLumeoSyncWebDAVUserKey, kLumeoSyncWebDAVCAFileKey}) {
    if (auto error = defaults.removeObjectForKey(key)) return error;
  }
  return std::nullopt;
}

std::unique_ptr<SyncCloudFileSystem> makeSyncCloudFileSystem(const SyncCloudDestination& destination,
                                                             std::shared_ptr<SecretStore> secrets) {
  if (destination.service == kSyncServiceSharedFolder)
    return std::make_unique<SyncSharedFolderFileSystem>(destination.folder, destination.folderIdentity);
  SyncWebDavFileSystem::Options options;
  options.caFile = destination.caFile;
  return std::make_unique<SyncWebDavFileSystem>(destination.url, destination.user, options,
                                                std::move(secrets));
}

}  // namespace lumeo
