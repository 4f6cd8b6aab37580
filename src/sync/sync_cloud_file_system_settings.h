// Where this device syncs to, as the settings file records it, and the
// cloud file system made from that. `lumeo sync folder|webdav` writes the
// keys; the sync manager and `lumeo sync status` read them. Passwords are
// never among them: they stay in the Secret Service.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "sync/sync_cloud_file_system.h"

namespace lumeo {

// The chosen service; its presence means sync is set up.
inline constexpr char kIDMCloudServiceUserDefaultKey[] = "IDMCloudServiceUserDefaultKey";
inline constexpr char kSyncServiceSharedFolder[] = "SharedFolder";
inline constexpr char kSyncServiceWebDAV[] = "WebDAV";

inline constexpr char kLumeoSyncFolderPathKey[] = "LumeoSyncFolderPath";
inline constexpr char kLumeoSyncFolderIdentityKey[] = "LumeoSyncFolderIdentity";
inline constexpr char kLumeoSyncWebDAVURLKey[] = "LumeoSyncWebDAVURL";
inline constexpr char kLumeoSyncWebDAVUserKey[] = "LumeoSyncWebDAVUser";
inline constexpr char kLumeoSyncWebDAVCAFileKey[] = "LumeoSyncWebDAVCAFile";

struct SyncCloudDestination {
  std::string service;  // kSyncServiceSharedFolder or kSyncServiceWebDAV
  // The shared folder and the identity it had when it was chosen.
  std::string folder;
  std::optional<std::string> folderIdentity;
  // The WebDAV folder's URL, the account, and an extra CA bundle.
  std::string url;
  std::string user;
  std::string caFile;
};

// The destination in the settings, or nothing when none is set up (or the
// keys are incomplete).
std::optional<SyncCloudDestination> syncCloudDestination(const UserDefaults& defaults);
// Writes a destination, replacing the other kind's keys.
OptionalError setSyncCloudDestination(UserDefaults& defaults, const SyncCloudDestination& destination);
// Removes every key of the destination.
OptionalError clearSyncCloudDestination(UserDefaults& defaults);

// The file system for a destination; WebDAV reads its password from
// `secrets` when it connects.
std::unique_ptr<SyncCloudFileSystem> makeSyncCloudFileSystem(const SyncCloudDestination& destination,
                                                             std::shared_ptr<SecretStore> secrets);

}  // namespace lumeo
