// Transfer of event files, baselines and data files through the cloud.
#include "sync/sync_cloud_manager.h"

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <system_error>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/atomic_file.h"
#include "platform/dispatch_queue.h"
#include "platform/file_system.h"
#include "platform/image.h"
#include "platform/log.h"
#include "platform/md5.h"
#include "platform/notification_center.h"
#include "platform/property_list.h"
#include "store/image_store.h"
#include "store/notification_names.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_migrator.h"
#include "sync/sync_event_store.h"
#include "sync/sync_local_cloud_file_system.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

std::string joined(const std::vector<std::string>& names) {
  std::string text = "(";
  for (std::size_t i = 0; i < names.size(); ++i) text += (i ? ", " : "") + names[i];
  return text + ")";
}
std::string joined(const std::set<std::string>& names) {
  return joined(std::vector<std::string>(names.begin(), names.end()));
}

bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace

SyncCloudManager::SyncCloudManager(std::shared_ptr<SyncEventStore> eventStore,
                                   std::shared_ptr<SyncCloudFileSystem> cloudFileSystem)
    : eventStore_(std::move(eventStore)), cloudFileSystem_(std::move(cloudFileSystem)) {
  setup();
}

void SyncCloudManager::setup() {
  std::error_code ec;
  fs::create_directories(localUploadDirectory(), ec);
  fs::create_directories(localDownloadDirectory(), ec);
}

std::string SyncCloudManager::remoteEnsembleDirectory() const {
  return "/" + eventStore_->ensembleIdentifier();
}
std::string SyncCloudManager::remoteStoresDirectory() const {
  return remoteEnsembleDirectory() + "/stores";
}
std::string SyncCloudManager::remoteEventsDirectory() const {
  return remoteEnsembleDirectory() + "/events";
}
std::string SyncCloudManager::remoteBaselinesDirectory() const {
  return remoteEnsembleDirectory() + "/baselines";
}
std::string SyncCloudManager::remoteDataDirectory() const {
  return remoteEnsembleDirectory() + "/data";
}
fs::path SyncCloudManager::localEnsembleDirectory() const {
  return eventStore_->pathToEventDataRootDirectory() / kSyncTransitCacheDirectoryName /
         eventStore_->ensembleIdentifier();
}
fs::path SyncCloudManager::localUploadDirectory() const {
  return localEnsembleDirectory() / "upload";
}
fs::path SyncCloudManager::localDownloadDirectory() const {
  return localEnsembleDirectory() / "download";
}

std::optional<std::string> SyncCloudManager::md5HashOfPath(const fs::path& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  std::string hash = ::lumeo::md5HashOfPath(path);
  if (hash.empty()) return std::nullopt;
  return hash;
}

// --- Calls into the cloud ----------------------------------------------------------

OptionalError SyncCloudManager::awaitCloud(const std::function<void(SyncCloudCompletion)>& start) {
  struct State {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    OptionalError error;
  };
  auto state = std::make_shared<State>();
  SyncCloudCompletion completion = [state](OptionalError error) {
    {
      std::lock_guard lock(state->mutex);
      state->error = std::move(error);
      state->done = true;
    }
    state->finished.notify_all();
  };
  bool done = false;
  if (MainLoop::shared().isMainThread()) {
    start(completion);
    done = MainLoop::shared().runUntil(
        [&] {
          std::lock_guard lock(state->mutex);
          return state->done;
        },
        operationTimeout_);
  } else {
    DispatchQueue::main().async([start, completion] { start(completion); });
    std::unique_lock lock(state->mutex);
    done = state->finished.wait_for(lock, std::chrono::duration<double>(operationTimeout_),
                                    [&] { return state->done; });
  }
  std::lock_guard lock(state->mutex);
  if (!done && !state->done) {
    return syncError(kSyncErrorCodeFileCoordinatorTimedOut,
                     "The cloud did not answer within " +
                         std::to_string(static_cast<int>(operationTimeout_)) + " seconds");
  }
  return state->error;
}

SyncResult<std::vector<SyncCloudItem>> SyncCloudManager::listRemoteDirectory(const std::string& path) {
  auto items = std::make_shared<std::vector<SyncCloudItem>>();
  OptionalError error = awaitCloud([&, items](SyncCloudCompletion done) {
    cloudFileSystem_->contentsOfDirectoryAtPath(
        path, [items, done](std::vector<SyncCloudItem> contents, OptionalError failure) {
          *items = std::move(contents);
          done(std::move(failure));
        });
  });
  if (error) return *error;
  return *items;
}

OptionalError SyncCloudManager::removeFilesInDirectory(const fs::path& directory) {
  std::error_code ec;
  fs::create_directories(directory, ec);
  fs::directory_iterator it(directory, ec);
  if (ec)
    return syncError(kSyncErrorCodeFileAccessFailed,
                     "Could not empty " + directory.string() + ": " + ec.message());
  // Everything goes, hidden names too: the transit cache is the engine's own,
  // and a crash may leave a temporary file of an unfinished download here.
  for (const auto& entry : it) {
    std::error_code removeError;
    fs::remove_all(entry.path(), removeError);
    if (removeError && removeError != std::errc::no_such_file_or_directory) {
      return syncError(kSyncErrorCodeFileAccessFailed,
                       "Could not remove " + entry.path().string() + ": " + removeError.message());
    }
  }
  return std::nullopt;
}

// --- Layout and snapshot -----------------------------------------------------------

OptionalError SyncCloudManager::createRemoteDirectoryStructure() {
  LUMEO_LOG_VERBOSE("Creating remote directories");
  for (const std::string& path : {remoteEnsembleDirectory(), remoteStoresDirectory(), remoteEventsDirectory(),
                                  remoteBaselinesDirectory(), remoteDataDirectory()}) {
    auto exists = std::make_shared<bool>(false);
    OptionalError error = awaitCloud([&, exists](SyncCloudCompletion done) {
      cloudFileSystem_->fileExistsAtPath(path, [exists, done](bool there, bool, OptionalError failure) {
        *exists = there;
        done(std::move(failure));
      });
    });
    if (error) return error;
    if (*exists) continue;
    error =
        awaitCloud([&](SyncCloudCompletion done) { cloudFileSystem_->createDirectoryAtPath(path, done); });
    if (error) return error;
  }
  return std::nullopt;
}

OptionalError SyncCloudManager::snapshotRemoteFiles() {
  clearSnapshot();
  std::set<std::string> sets[3];
  const std::string directories[3] = {remoteBaselinesDirectory(), remoteEventsDirectory(),
                                      remoteDataDirectory()};
  for (int i = 0; i < 3; ++i) {
    auto listing = listRemoteDirectory(directories[i]);
    if (auto* error = std::get_if<Error>(&listing)) {
      clearSnapshot();
      return *error;
    }
    for (const auto& item : std::get<std::vector<SyncCloudItem>>(listing)) {
      if (!item.isDirectory()) sets[i].insert(item.name());
    }
  }
  snapshotBaselines_ = std::move(sets[0]);
  snapshotEvents_ = std::move(sets[1]);
  snapshotData_ = std::move(sets[2]);
  return std::nullopt;
}

void SyncCloudManager::clearSnapshot() {
  snapshotBaselines_.reset();
  snapshotEvents_.reset();
  snapshotData_.reset();
}

OptionalError SyncCloudManager::removeOutOfDateNewlyImportedFiles() {
  if (!snapshotData_) return std::nullopt;
  for (const auto& name : eventStore_->newlyImportedDataFilenames()) {
    if (snapshotData_->count(name)) continue;
    if (!eventStore_->removeNewlyImportedDataFile(name))
      return syncError(kSyncErrorCodeFileAccessFailed, "Could not remove data file: " + name);
  }
  return std::nullopt;
}

// --- Local events and their names --------------------------------------------------

std::vector<SyncEventFile> SyncCloudManager::eventFilesForEventsWithAllowedTypes(
    const std::vector<int>& allowedTypes, const std::optional<std::string>& store) {
  std::vector<SyncEventFile> files;
  auto context = eventStore_->managedObjectContext();
  if (!context) return files;
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setPredicate(SyncStoreModificationEvent::predicateForAllowedTypes(allowedTypes, store));
    request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
    OptionalError error;
    FetchResults events = context->executeFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Could not fetch events: %@", static_cast<const Error&>(*error));
      return;
    }
    for (const auto& object : events) {
      if (auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object))
        files.emplace_back(*event);
    }
  });
  return files;
}

std::set<std::string> SyncCloudManager::aliasesOfLocalEvents(const std::vector<int>& allowedTypes) {
  std::set<std::string> aliases;
  for (const auto& file : eventFilesForEventsWithAllowedTypes(allowedTypes, std::nullopt)) {
    for (auto& alias : file.aliases()) aliases.insert(std::move(alias));
  }
  return aliases;
}

std::optional<SyncCloudManager::LocalBaseline> SyncCloudManager::localBaseline() {
  std::optional<LocalBaseline> found;
  auto context = eventStore_->managedObjectContext();
  if (!context) return found;
  context->performBlockAndWait([&] {
    try {
      if (auto baseline =
              SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context)) {
        found = LocalBaseline{baseline->revisionSet(), baseline->globalCount()};
      }
    } catch (const SyncException&) {
      found.reset();
    }
  });
  return found;
}

bool SyncCloudManager::LocalBaseline::covers(const SyncEventFile& file) const {
  if (file.isBaseline()) return false;
  const SyncRevision* revision =
      revisions.revisionForPersistentStoreIdentifier(file.persistentStoreIdentifier().value_or(""));
  return revision && file.revisionNumber() <= revision->revisionNumber();
}

bool SyncCloudManager::LocalBaseline::covers(const std::string& filename) const {
  auto file = SyncEventFile::fromFilename(filename);
  return file && covers(*file);
}

// --- Fetching ------------------------------------------------------------------------

OptionalError SyncCloudManager::transferRemoteFiles(const std::vector<std::string>& names,
                                                    const std::string& remoteDirectory) {
  if (OptionalError error = removeFilesInDirectory(localDownloadDirectory())) return error;
  for (const auto& name : names) {
    if (!isPlainName(name)) continue;
    fs::path local = localDownloadDirectory() / name;
    std::string remote = remoteDirectory + "/" + name;
    OptionalError error = awaitCloud(
        [&](SyncCloudCompletion done) { cloudFileSystem_->downloadFromPath(remote, local.string(), done); });
    if (error) {
      LUMEO_LOG_ERROR("Download failed for with error: %@", static_cast<const Error&>(*error));
      return error;
    }
    std::error_code ec;
    if (photoAndThumbDictrionary_.count(name) && fs::exists(local, ec))
      installPhotoAndThumb(name, local, false);
  }
  return std::nullopt;
}

OptionalError SyncCloudManager::importNewEvents(const std::vector<int>& allowedTypes,
                                                const std::string& remoteDirectory,
                                                const std::set<std::string>& snapshot,
                                                std::size_t& imported) {
  bool baselineDirectory =
      std::find(allowedTypes.begin(), allowedTypes.end(), int(kSyncEventTypeBaseline)) != allowedTypes.end();
  std::set<std::string> present = aliasesOfLocalEvents(allowedTypes);
  // Events the baseline here has absorbed may stay in the cloud for a while
  // (until the device that rebased removes them, or a sync client passes
  // the removal on); fetching them would only import them to delete them
  // again, at every merge.
  std::optional<LocalBaseline> baseline;
  if (!baselineDirectory) baseline = localBaseline();
  std::vector<std::string> wanted;
  for (const auto& name : snapshot) {
    if (present.count(name)) continue;
    if (baseline && baseline->covers(name)) {
      ++counts_.coveredFilesSkipped;
      continue;
    }
    wanted.push_back(name);
  }
  syncSortFilenamesByGlobalCount(wanted);
  if (OptionalError error = transferRemoteFiles(wanted, remoteDirectory)) return error;

  // Each file is read and checked on its own (a bad one is skipped); the
  // good ones go into the event store together, a few thousand events to a
  // save.
  SyncEventMigrator migrator(eventStore_);
  std::vector<SyncEventFileContents> batch;
  std::size_t batchEvents = 0;
  auto flush = [&]() -> OptionalError {
    if (batch.empty()) return std::nullopt;
    std::vector<const SyncEventFileContents*> files;
    for (const auto& contents : batch) files.push_back(&contents);
    if (OptionalError error = migrator.importContents(files)) {
      LUMEO_LOG_ERROR("Failed to migrate modification events: %@", static_cast<const Error&>(*error));
      return error;
    }
    imported += batch.size();
    batch.clear();
    batchEvents = 0;
    return std::nullopt;
  };
  std::set<std::string> taken;
  for (const auto& name : wanted) {
    fs::path local = localDownloadDirectory() / name;
    auto file = SyncEventFile::fromFilename(name);
    if (!file) continue;  // not ours: left in "download" until the next emptying
    // A name of the wrong kind for its directory is another device's
    // mistake or debris; it is not imported here.
    if (file->isBaseline() != baselineDirectory) continue;
    // The events the store has are not wanted (their names are among
    // `present`, which the store answered in one fetch); what is left to
    // catch is a second name of an event this fetch takes already.
    std::string event =
        file->isBaseline() ? std::to_string(file->globalCount()) + "_" + file->uniqueIdentifier().value_or("")
                           : file->preferredFilename();
    std::error_code ec;
    if (file->eventShouldBeUnique() && taken.count(event)) {
      fs::remove(local, ec);
      continue;
    }
    auto read = SyncEventMigrator::readEventFile(local);
    fs::remove(local, ec);
    if (auto* error = std::get_if<Error>(&read)) {
      LUMEO_LOG_WARNING("Skipping event file %@: %@", name, *error);
      failedToImport_.insert(name);
      skipped_.emplace_back(name, *error);
      continue;
    }
    batch.push_back(std::get<SyncEventFileContents>(std::move(read)));
    batchEvents += batch.back().events.size();
    taken.insert(event);
    if (batchEvents >= 2000) {
      if (OptionalError error = flush()) return error;
    }
  }
  return flush();
}

OptionalError SyncCloudManager::importNewBaselineEvents() {
  LUMEO_LOG_VERBOSE("Transferring new baselines from cloud to event store");
  if (!snapshotBaselines_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  return importNewEvents({kSyncEventTypeBaseline}, remoteBaselinesDirectory(), *snapshotBaselines_,
                         counts_.baselinesImported);
}

OptionalError SyncCloudManager::importNewRemoteNonBaselineEvents() {
  LUMEO_LOG_VERBOSE("Transferring new events from cloud to event store");
  if (!snapshotEvents_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  return importNewEvents({kSyncEventTypeSave, kSyncEventTypeMerge}, remoteEventsDirectory(), *snapshotEvents_,
                         counts_.eventsImported);
}

OptionalError SyncCloudManager::importNewDataFiles() {
  LUMEO_LOG_VERBOSE("Transferring new data files from cloud to event store");
  if (!snapshotData_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  std::set<std::string> present = eventStore_->allDataFilenames();
  std::vector<std::string> wanted;
  for (const auto& name : *snapshotData_) {
    if (!present.count(name) && isPlainName(name)) wanted.push_back(name);
  }
  if (OptionalError error = transferRemoteFiles(wanted, remoteDataDirectory())) return error;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(localDownloadDirectory(), ec)) {
    std::string name = entry.path().filename().string();
    if (name.empty() || name[0] == '.') continue;
    if (!eventStore_->importDataFile(entry.path()))
      return syncError(kSyncErrorCodeFileAccessFailed,
                       "Could not move the data file " + name + " into the event store");
    ++counts_.dataFilesImported;
  }
  return std::nullopt;
}

void SyncCloudManager::checkPhotosAndThumbs() {
  LUMEO_LOG_VERBOSE("Check new data files from cloud to event store");
  for (const auto& [name, entry] : photoAndThumbDictrionary_) {
    fs::path local = localDownloadDirectory() / name;
    std::error_code ec;
    if (isPlainName(name) && fs::exists(local, ec)) installPhotoAndThumb(name, local, true);
  }
}

void SyncCloudManager::postImageSaved(const std::string& name) {
  ++counts_.imagesSaved;
  DispatchQueue::main().async(
      [name] { NotificationCenter::defaultCenter().post(SyncImageSaved, nullptr, std::any(name)); });
}

void SyncCloudManager::installPhotoAndThumb(const std::string& photoName, const fs::path& downloaded,
                                            bool move) {
  if (!imageStore_) return;
  const Value& entry = photoAndThumbDictrionary_[photoName];
  auto target = imageStore_->imageURLForName(photoName);
  if (!target) return;
  std::error_code ec;
  std::optional<std::string> photoChecksum;
  if (const std::string* sum = entry["photoChecksum"].asString()) photoChecksum = *sum;
  bool place = true;
  if (fs::exists(*target, ec)) {
    if (photoChecksum && md5HashOfPath(*target) == photoChecksum) {
      place = false;
    }
  }
  if (place) {
    // The new bytes replace the old ones in one rename: a viewer never sees
    // half a photo.
    auto bytes = readFileBytes(downloaded);
    if (auto* data = std::get_if<std::vector<std::uint8_t>>(&bytes)) {
      if (!writeFileAtomically(*target, *data)) {
        postImageSaved(photoName);
        if (move) fs::remove(downloaded, ec);
      }
    }
  }

  const std::string* thumbName = entry["thumbName"].asString();
  if (!thumbName || thumbName->empty()) return;
  auto thumbTarget = imageStore_->imageURLForName(*thumbName);
  if (!thumbTarget) return;
  if (fs::exists(*thumbTarget, ec)) {
    const std::string* thumbChecksum = entry["thumbChecksum"].asString();
    if (thumbChecksum && md5HashOfPath(*thumbTarget) == *thumbChecksum) return;
    fs::remove(*thumbTarget, ec);
  }
  auto photo = Image::readFile(*target);
  auto* image = std::get_if<Image>(&photo);
  if (!image || image->empty()) return;
  auto jpeg = imageByScalingToSize(*image, kThumbnailSize, kThumbnailSize).jpegData(kImageStoreJPEGQuality);
  auto* bytes = std::get_if<std::vector<std::uint8_t>>(&jpeg);
  if (!bytes || writeFileAtomically(*thumbTarget, *bytes)) return;
  postImageSaved(*thumbName);
}

// --- Publishing ----------------------------------------------------------------------

OptionalError SyncCloudManager::transferFilesInTransitCacheToRemoteDirectory(
    const std::string& remoteDirectory, std::set<std::string>* snapshot) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(localUploadDirectory(), ec)) {
    std::string name = entry.path().filename().string();
    if (!name.empty() && name[0] != '.') names.push_back(name);
  }
  // In order of global count: a store's run of events never shows a gap
  // because a later event arrived first, unless the upload stops.
  syncSortFilenamesByGlobalCount(names);
  for (const auto& name : names) {
    fs::path local = localUploadDirectory() / name;
    std::string remote = remoteDirectory + "/" + name;
    LUMEO_LOG_VERBOSE("Uploading file to remote path: %@", remote);
    OptionalError error = awaitCloud(
        [&](SyncCloudCompletion done) { cloudFileSystem_->uploadLocalFile(local.string(), remote, done); });
    fs::remove(local, ec);
    if (error) {
      LUMEO_LOG_ERROR("Failed file upload with error: %@", static_cast<const Error&>(*error));
      return error;
    }
    ++counts_.filesUploaded;
    if (snapshot) snapshot->insert(name);
  }
  return std::nullopt;
}

OptionalError SyncCloudManager::exportEvents(const std::vector<int>& allowedTypes,
                                             const std::string& remoteDirectory,
                                             const std::set<std::string>& snapshot) {
  auto store = eventStore_->persistentStoreIdentifier();
  if (!store) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  std::vector<std::string> names;
  for (const auto& file : eventFilesForEventsWithAllowedTypes(allowedTypes, store)) {
    auto aliases = file.aliases();
    if (std::none_of(aliases.begin(), aliases.end(),
                     [&](const std::string& a) { return snapshot.count(a) != 0; }))
      names.push_back(file.preferredFilename());
  }
  syncSortFilenamesByGlobalCount(names);
  if (OptionalError error = removeFilesInDirectory(localUploadDirectory())) return error;
  // The events to send are read in one fetch and each written to its file
  // in the transit cache (scratch space: no flush to disk there; the cloud
  // file system makes the upload durable).
  std::set<std::string> wanted(names.begin(), names.end());
  auto context = eventStore_->managedObjectContext();
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setPredicate(SyncStoreModificationEvent::predicateForAllowedTypes(allowedTypes, store));
    request.setRelationshipKeyPathsForPrefetching({"eventRevision", "eventRevisionsOfOtherStores",
                                                   "objectChanges", "objectChanges.globalIdentifier",
                                                   "objectChanges.dataFiles"});
    OptionalError error;
    FetchResults events = context->executeFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Error migrating out events: %@", static_cast<const Error&>(*error));
      return;
    }
    for (const auto& object : events) {
      auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object);
      if (!event) continue;
      std::string name = SyncEventFile(*event).preferredFilename();
      if (!wanted.count(name)) continue;
      try {
        std::vector<std::uint8_t> bytes =
            syncEncodeEventFile(SyncEventMigrator::contentsForStoreModificationEvents({event}, false));
        std::ofstream out(localUploadDirectory() / name, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) throw SyncException("Could not write " + name + " into the transit cache");
      } catch (const SyncException& e) {
        std::error_code ec;
        fs::remove(localUploadDirectory() / name, ec);
        LUMEO_LOG_ERROR("Error migrating out events: %@", e.reason());
      }
    }
    context->reset();
  });
  std::set<std::string>* target =
      remoteDirectory == remoteBaselinesDirectory() ? &*snapshotBaselines_ : &*snapshotEvents_;
  return transferFilesInTransitCacheToRemoteDirectory(remoteDirectory, target);
}

OptionalError SyncCloudManager::exportNewLocalBaseline() {
  LUMEO_LOG_VERBOSE("Transferring baseline from event store to cloud");
  if (!snapshotBaselines_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  return exportEvents({kSyncEventTypeBaseline}, remoteBaselinesDirectory(), *snapshotBaselines_);
}

OptionalError SyncCloudManager::exportNewLocalNonBaselineEvents() {
  LUMEO_LOG_VERBOSE("Transferring events from event store to cloud");
  if (!snapshotEvents_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  return exportEvents({kSyncEventTypeSave, kSyncEventTypeMerge}, remoteEventsDirectory(), *snapshotEvents_);
}

OptionalError SyncCloudManager::exportDataFiles() {
  LUMEO_LOG_VERBOSE("Transferring data files from event store to cloud");
  if (!snapshotData_) return syncError(kSyncErrorCodeNoSnapshot, "No snapshot of the cloud's files");
  if (OptionalError error = removeFilesInDirectory(localUploadDirectory())) return error;
  for (const auto& name : eventStore_->previouslyReferencedDataFilenames()) {
    if (snapshotData_->count(name) || !isPlainName(name)) continue;
    if (!eventStore_->exportDataFile(name, localUploadDirectory()))
      return syncError(kSyncErrorCodeFileAccessFailed,
                       "Could not copy the data file " + name + " for upload");
  }
  return transferFilesInTransitCacheToRemoteDirectory(remoteDataDirectory(), &*snapshotData_);
}

// --- Clean-up ------------------------------------------------------------------------

OptionalError SyncCloudManager::removeOutdatedRemoteFiles() {
  LUMEO_LOG_VERBOSE("Removing outdated files");
  if (!snapshotBaselines_ || !snapshotEvents_ || !snapshotData_) {
    return syncError(kSyncErrorCodeNoSnapshot,
                     "No snapshot of the cloud's files was taken; nothing is removed from the cloud");
  }
  if (!eventStore_->managedObjectContext())
    return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  // Only what the baseline here has absorbed goes.
  std::optional<LocalBaseline> baseline = localBaseline();
  if (!baseline) return std::nullopt;

  std::set<std::string> baselineAliases = aliasesOfLocalEvents({kSyncEventTypeBaseline});
  std::vector<std::string> baselinesToRemove;
  for (const auto& name : *snapshotBaselines_) {
    auto file = SyncEventFile::fromFilename(name);
    if (!file || !file->isBaseline() || baselineAliases.count(name) || failedToImport_.count(name)) continue;
    if (file->globalCount() > baseline->globalCount) continue;
    baselinesToRemove.push_back(name);
  }
  LUMEO_LOG_DEBUG("Baseline files in cloud: %@", joined(*snapshotBaselines_));
  LUMEO_LOG_DEBUG("Aliases for baseline files in store: %@", joined(baselineAliases));
  LUMEO_LOG_DEBUG("Baseline files to remove: %@", joined(baselinesToRemove));

  std::set<std::string> eventAliases = aliasesOfLocalEvents({kSyncEventTypeSave, kSyncEventTypeMerge});
  std::vector<std::string> eventsToRemove;
  for (const auto& name : *snapshotEvents_) {
    auto file = SyncEventFile::fromFilename(name);
    if (!file || eventAliases.count(name) || failedToImport_.count(name) || !baseline->covers(*file))
      continue;
    eventsToRemove.push_back(name);
  }
  LUMEO_LOG_DEBUG("Event files in cloud: %@", joined(*snapshotEvents_));
  LUMEO_LOG_DEBUG("Aliases for event files in store: %@", joined(eventAliases));
  LUMEO_LOG_DEBUG("Event files to remove: %@", joined(eventsToRemove));

  std::vector<std::string> dataToRemove;
  if (failedToImport_.empty()) {
    std::set<std::string> local = eventStore_->allDataFilenames();
    for (const auto& name : *snapshotData_) {
      if (!local.count(name) && isPlainName(name)) dataToRemove.push_back(name);
    }
  }
  LUMEO_LOG_DEBUG("Data files in cloud: %@", joined(*snapshotData_));
  LUMEO_LOG_DEBUG("Data files to remove: %@", joined(dataToRemove));

  std::vector<std::string> paths;
  for (const auto& name : baselinesToRemove) paths.push_back(remoteBaselinesDirectory() + "/" + name);
  for (const auto& name : eventsToRemove) paths.push_back(remoteEventsDirectory() + "/" + name);
  for (const auto& name : dataToRemove) paths.push_back(remoteDataDirectory() + "/" + name);
  LUMEO_LOG_DEBUG("Removing cloud files: %@", joined(paths));
  std::vector<Error> errors;
  for (const auto& path : paths) {
    OptionalError error =
        awaitCloud([&](SyncCloudCompletion done) { cloudFileSystem_->removeItemAtPath(path, done); });
    if (error && syncCloudErrno(*error) != ENOENT) {
      errors.push_back(*error);
    } else if (!error) {
      ++counts_.filesRemoved;
    }
  }
  if (errors.empty()) return std::nullopt;
  if (errors.size() == 1) return errors.front();
  Error combined =
      syncError(kSyncErrorCodeMultipleErrors,
                std::to_string(errors.size()) +
                    " cloud files could not be removed; the first: " + errors.front().description);
  return combined;
}

// --- Registration --------------------------------------------------------------------

SyncResult<std::optional<Value::Dictionary>> SyncCloudManager::retrieveRegistrationInfoForStoreWithIdentifier(
    const std::string& identifier) {
  LUMEO_LOG_VERBOSE("Retrieving registration info");
  if (!isPlainName(identifier)) return syncError(kSyncErrorCodeUnknown, "Bad store identifier " + identifier);
  if (OptionalError error = removeFilesInDirectory(localDownloadDirectory())) return *error;
  std::string remote = remoteStoresDirectory() + "/" + identifier;
  auto exists = std::make_shared<bool>(false);
  OptionalError error = awaitCloud([&, exists](SyncCloudCompletion done) {
    cloudFileSystem_->fileExistsAtPath(remote, [exists, done](bool there, bool, OptionalError failure) {
      *exists = there;
      done(std::move(failure));
    });
  });
  if (error) return *error;
  if (!*exists) return std::optional<Value::Dictionary>();
  LUMEO_LOG_VERBOSE("Downloading file at remote path: %@", remote);
  fs::path local = localDownloadDirectory() / identifier;
  error = awaitCloud(
      [&](SyncCloudCompletion done) { cloudFileSystem_->downloadFromPath(remote, local.string(), done); });
  if (error) {
    LUMEO_LOG_ERROR("Download failed for with error: %@", static_cast<const Error&>(*error));
    return *error;
  }
  auto read = readPropertyListFile(local);
  std::error_code ec;
  fs::remove(local, ec);
  if (auto* failure = std::get_if<Error>(&read)) {
    return syncError(kSyncErrorCodeFileAccessFailed, "The registration file of store " + identifier +
                                                         " cannot be read: " + failure->description);
  }
  const Value::Dictionary* dictionary = std::get<Value>(read).asDictionary();
  if (!dictionary) {
    return syncError(kSyncErrorCodeFileAccessFailed,
                     "The registration file of store " + identifier + " is not a dictionary");
  }
  return std::optional<Value::Dictionary>(*dictionary);
}

OptionalError SyncCloudManager::setRegistrationInfo(const Value::Dictionary& info,
                                                    const std::string& identifier) {
  if (!isPlainName(identifier)) return syncError(kSyncErrorCodeUnknown, "Bad store identifier " + identifier);
  if (OptionalError error = removeFilesInDirectory(localUploadDirectory())) return error;
  fs::path local = localUploadDirectory() / identifier;
  auto xml = xmlPropertyList(Value(info));
  OptionalError written = std::holds_alternative<Error>(xml)
                              ? OptionalError(std::get<Error>(xml))
                              : sync_directory::writeReplacing(
                                    *FileSystem::current(), local, std::get<std::string>(xml).data(),
                                    std::get<std::string>(xml).size(), sync_directory::Durability::kScratch);
  if (written) {
    return syncError(kSyncErrorCodeFileWriteFailed,
                     "Could not write the registration file: " + written->description);
  }
  std::string remote = remoteStoresDirectory() + "/" + identifier;
  if (!cloudFileSystem_->replacesOnUpload()) {
    OptionalError removed =
        awaitCloud([&](SyncCloudCompletion done) { cloudFileSystem_->removeItemAtPath(remote, done); });
    if (removed && syncCloudErrno(*removed) != ENOENT) return removed;
  }
  OptionalError error = awaitCloud(
      [&](SyncCloudCompletion done) { cloudFileSystem_->uploadLocalFile(local.string(), remote, done); });
  std::error_code ec;
  fs::remove(local, ec);
  return error;
}

}  // namespace lumeo
