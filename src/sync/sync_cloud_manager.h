// Moves files between the event store and the cloud. It knows the cloud's
// layout:
//
//   /MainStore/            one directory per ensemble
//     stores/              a registration file per device's store
//     events/              save and merge events, one file each
//     baselines/           baseline files
//     data/                data files (photos, large values) by name
//
// takes a snapshot of what is there at the start of a merge, fetches what
// is missing here, publishes what is missing there, and removes what nobody
// needs any more. Photos that arrive as data files go straight into the
// image store, and their thumbnails are remade there.
//
// Files pass through a local transit cache, "transitcache/<ensemble>/upload"
// and ".../download" under the event data root; each operation empties the
// directory it uses first, so nothing from an earlier run is trusted. Files
// there are scratch copies: renamed into place but never flushed to disk,
// since a crash that leaves one stale, empty or missing costs only a fetch
// that the next merge makes anyway.
//
// Cloud folders are shared with other devices and with sync clients, so the
// manager is careful about what it removes: an event or baseline file goes
// only when this device's baseline covers it, never a file that failed to
// import here (a partial download that the sync client has not finished),
// and never a name that is not one of ours.
//
// Thread: the operations block until done and may be called from any
// thread; every call into the cloud file system is made on the main queue
// (from the main thread the main loop runs while waiting), and its
// completions arrive there. "SyncImageSaved" is posted on the main queue.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/value.h"
#include "sync/sync_cloud_file_system.h"
#include "sync/sync_event_file.h"
#include "sync/sync_revision.h"

namespace lumeo {

class SyncEventStore;
class ImageStore;

inline constexpr char kSyncTransitCacheDirectoryName[] = "transitcache";

class SyncCloudManager {
 public:
  SyncCloudManager(std::shared_ptr<SyncEventStore> eventStore,
                   std::shared_ptr<SyncCloudFileSystem> cloudFileSystem);

  // Makes the transit cache directories.
  void setup();

  // Where photos arriving as data files go; none: photos stay data files.
  void setImageStore(std::shared_ptr<ImageStore> imageStore) { imageStore_ = std::move(imageStore); }
  // How long one cloud operation may take before it fails with 106.
  void setOperationTimeout(double seconds) { operationTimeout_ = seconds; }

  std::string remoteEnsembleDirectory() const;
  std::string remoteStoresDirectory() const;
  std::string remoteEventsDirectory() const;
  std::string remoteBaselinesDirectory() const;
  std::string remoteDataDirectory() const;
  std::filesystem::path localEnsembleDirectory() const;
  std::filesystem::path localUploadDirectory() const;
  std::filesystem::path localDownloadDirectory() const;

  OptionalError createRemoteDirectoryStructure();

  // --- Snapshot of the cloud's file names, taken at the start of a merge.
  OptionalError snapshotRemoteFiles();
  void clearSnapshot();
  const std::optional<std::set<std::string>>& snapshotBaselineFilenames() const { return snapshotBaselines_; }
  const std::optional<std::set<std::string>>& snapshotEventFilenames() const { return snapshotEvents_; }
  const std::optional<std::set<std::string>>& snapshotDataFilenames() const { return snapshotData_; }

  // Drops data files received but never read whose file left the cloud.
  OptionalError removeOutOfDateNewlyImportedFiles();

  // --- Fetching. Files that fail to import (truncated, damaged, of a newer
  // format) are skipped, left in the cloud and listed in skippedFiles(); the
  // others still arrive.
  OptionalError importNewBaselineEvents();
  OptionalError importNewRemoteNonBaselineEvents();
  OptionalError importNewDataFiles();
  // Installs photos still waiting in "download"; no cloud calls, no error.
  void checkPhotosAndThumbs();
  // The dictionary of SyncEventIntegrator::createPhotosAndThumbs, keyed by
  // photo name ("photoName", "thumbName", "photoChecksum", "thumbChecksum").
  void setPhotoAndThumbDictrionary(Value::Dictionary photos) {
    photoAndThumbDictrionary_ = std::move(photos);
  }

  // --- Publishing (this store's own events and baselines only).
  OptionalError exportDataFiles();
  OptionalError exportNewLocalBaseline();
  OptionalError exportNewLocalNonBaselineEvents();

  // Removes cloud files that a baseline here has absorbed; 208 without a
  // snapshot.
  OptionalError removeOutdatedRemoteFiles();

  // --- Registration of a device's store in "stores".
  // Nothing and no error when the store has no registration file.
  SyncResult<std::optional<Value::Dictionary>> retrieveRegistrationInfoForStoreWithIdentifier(
      const std::string& identifier);
  OptionalError setRegistrationInfo(const Value::Dictionary& info, const std::string& identifier);

  // What this manager did since it was made (for reports).
  struct Counts {
    std::size_t eventsImported = 0;
    std::size_t baselinesImported = 0;
    std::size_t dataFilesImported = 0;
    std::size_t filesUploaded = 0;
    std::size_t filesRemoved = 0;
    std::size_t imagesSaved = 0;
    // Event files in the cloud that the baseline here covers already: not
    // fetched.
    std::size_t coveredFilesSkipped = 0;
  };
  const Counts& counts() const { return counts_; }
  // Names that failed to import, with the reason.
  const std::vector<std::pair<std::string, Error>>& skippedFiles() const { return skipped_; }

  // Lower-case hexadecimal MD5 of a file, nothing when it is missing.
  static std::optional<std::string> md5HashOfPath(const std::filesystem::path& path);

  // Runs an operation of the cloud file system on the main queue and waits
  // for its completion (up to the operation timeout: 106).
  OptionalError awaitCloud(const std::function<void(SyncCloudCompletion)>& start);

 private:
  OptionalError importNewEvents(const std::vector<int>& allowedTypes, const std::string& remoteDirectory,
                                const std::set<std::string>& snapshot, std::size_t& imported);
  std::set<std::string> aliasesOfLocalEvents(const std::vector<int>& allowedTypes);
  // The most recent baseline here: what it has absorbed of each store.
  struct LocalBaseline {
    SyncRevisionSet revisions;
    std::int64_t globalCount = -1;
    // Whether a save or merge event file's revision is folded into it.
    bool covers(const SyncEventFile& file) const;
    bool covers(const std::string& filename) const;
  };
  std::optional<LocalBaseline> localBaseline();
  std::vector<SyncEventFile> eventFilesForEventsWithAllowedTypes(const std::vector<int>& allowedTypes,
                                                                 const std::optional<std::string>& store);
  OptionalError exportEvents(const std::vector<int>& allowedTypes, const std::string& remoteDirectory,
                             const std::set<std::string>& snapshot);
  OptionalError transferRemoteFiles(const std::vector<std::string>& names,
                                    const std::string& remoteDirectory);
  OptionalError transferFilesInTransitCacheToRemoteDirectory(const std::string& remoteDirectory,
                                                             std::set<std::string>* snapshot);
  OptionalError removeFilesInDirectory(const std::filesystem::path& directory);
  SyncResult<std::vector<SyncCloudItem>> listRemoteDirectory(const std::string& path);
  void installPhotoAndThumb(const std::string& photoName, const std::filesystem::path& downloaded, bool move);
  void postImageSaved(const std::string& name);

  std::shared_ptr<SyncEventStore> eventStore_;
  std::shared_ptr<SyncCloudFileSystem> cloudFileSystem_;
  std::shared_ptr<ImageStore> imageStore_;
  double operationTimeout_ = 300;
  std::optional<std::set<std::string>> snapshotBaselines_;
  std::optional<std::set<std::string>> snapshotEvents_;
  std::optional<std::set<std::string>> snapshotData_;
  Value::Dictionary photoAndThumbDictrionary_;
  std::set<std::string> failedToImport_;
  std::vector<std::pair<std::string, Error>> skipped_;
  Counts counts_;
};

}  // namespace lumeo
