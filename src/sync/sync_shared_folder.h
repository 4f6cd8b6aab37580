// The default cloud on Linux: a folder that the user's own sync client
// (Nextcloud, Syncthing, a Dropbox or Drive client, a network share) keeps in
// step between machines. Lumeo writes and reads plain files there; the
// client carries them. Sync clients leave things behind and race each other,
// so this file system adds what a cloud container would do for us:
//
// - Identity: a hidden file ".lumeo-cloud-id" in the folder holds a random
//   identifier, made when a device first joins (performInitialPreparation).
//   The front end keeps the identifier it saw with the folder's path and
//   hands it back as `expectedIdentity`, so the token is known before any
//   file is read. The token changes when the folder turns out to be a
//   different one (another identifier), so the engine starts over instead of
//   mixing two clouds. A folder that has gone, or an empty one in its place
//   (the mount point of an unmounted drive), fails with 1001 and keeps the
//   identity: the real folder may come back.
// - Listings skip hidden names and what sync clients leave behind: conflict
//   copies, partial downloads, their temporary files, placeholders and
//   zero-length files. They are ignored, never removed: Lumeo's names are
//   unique by content, so a conflict copy holds nothing the original lacks.
// - Uploads go to a hidden temporary name in the target's folder, are
//   flushed to disk and renamed over the target, so neither the sync client
//   nor another device ever sees half a file, also after a power cut. The
//   folder is flushed once after a run of uploads into it (before any other
//   operation, and when the file system goes away): a power cut in a run
//   may lose its last names, which the next merge publishes again, since it
//   publishes whatever the folder's listing lacks.
// - Repair: when two devices made the same directory before their clients
//   met, a client may keep both, naming one "MainStore 2". Such duplicates
//   are merged back into the original and removed.
// - A call that hangs (a network share that stopped answering) ends with
//   code 106 after the operation timeout; work after it waits its turn.
//
// Operations run one at a time on a serial queue of their own, through
// FileSystem::current() (so fault injection reaches them), and call back on
// the main queue.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/dispatch_queue.h"
#include "sync/sync_cloud_file_system.h"

namespace lumeo {

inline constexpr char kSyncSharedFolderIdentityFileName[] = ".lumeo-cloud-id";

class SyncSharedFolderFileSystem : public SyncCloudFileSystem {
 public:
  struct Options {
    // Seconds an operation may take before it ends with code 106.
    double operationTimeout = 30;
  };

  // Without an expected identity the folder's identity file is read now, if
  // it is there.
  explicit SyncSharedFolderFileSystem(std::filesystem::path folder,
                                      std::optional<std::string> expectedIdentity = std::nullopt);
  SyncSharedFolderFileSystem(std::filesystem::path folder, std::optional<std::string> expectedIdentity,
                             Options options);
  ~SyncSharedFolderFileSystem() override;

  const std::filesystem::path& folder() const { return folder_; }

  // Fails with 1001 when the folder is not there or not a folder, and when
  // its identity file is missing although an identity is known: Lumeo never
  // makes the folder or a new identity here, since an empty folder in place
  // of an unmounted drive would pass for a new cloud.
  void connect(SyncCloudCompletion completion) override;
  // Makes the identity file when the folder has none (the folder must
  // exist), and connects.
  void performInitialPreparation(SyncCloudCompletion completion) override;
  LUMEO_SYNC_CLOUD_FILE_OPERATIONS_OVERRIDE
  // Merges "NAME 2" ... "NAME 9" and "NAME (1)" ... "NAME (9)" duplicates of
  // the ensemble directory (and of the folder itself, when such a sibling
  // holds the ensemble directory) back into the original.
  void repairEnsembleDirectory(const std::string& path, SyncCloudCompletion completion) override;

  bool isConnected() const override;
  SyncCloudIdentityToken identityToken() const override;

  // Whether a listing leaves out an entry of this name (and, for a file,
  // size): hidden names, conflict copies, partial and temporary files of
  // sync clients, and zero-length files.
  static bool isIgnoredEntry(const std::string& name, bool isDirectory, std::uint64_t size);

  // The identifier in a folder's identity file, nothing when it has none
  // or it is unreadable; the token of a folder with identifier `id`.
  static std::optional<std::string> readIdentity(const std::filesystem::path& folder);
  static std::string tokenForIdentity(const std::string& id) { return "shared-folder:" + id; }

 private:
  OptionalError checkFolder(bool createIdentity);
  OptionalError checkConnected();
  void setToken(SyncCloudIdentityToken token);
  // Flushes the folder the last uploads went into, if any (on the queue).
  void flushUploadedFolder();
  // Runs `work` on the queue; its result goes to `deliver` on the main queue,
  // or a 106 error does when the work takes longer than the timeout. Work
  // other than an upload first flushes the folder of earlier uploads.
  template <class Result>
  void perform(std::function<Result()> work, std::function<void(Result)> deliver,
               std::function<Result(Error)> failure, bool upload = false);
  void performSimple(std::function<OptionalError()> work, SyncCloudCompletion completion,
                     bool upload = false);

  std::filesystem::path folder_;
  Options options_;
  mutable std::mutex mutex_;
  bool connected_ = false;
  SyncCloudIdentityToken token_;
  // The folder of the last uploads, not yet flushed; used on the queue only.
  std::optional<std::filesystem::path> unflushedFolder_;
  std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace lumeo
