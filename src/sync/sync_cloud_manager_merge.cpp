// Leech and merge against a cloud file system.
#include "sync/sync_cloud_manager_merge.h"

#include "objectgraph/fetch_request.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "platform/log.h"
#include "sync/sync_baseline_consolidator.h"
#include "sync/sync_event_builder.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"
#include "sync/sync_rebaser.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

std::optional<Value::Data> identityData(const SyncCloudIdentityToken& token) {
  if (!token) return std::nullopt;
  return Value::Data(token->begin(), token->end());
}

}  // namespace

SyncCloudMerger::SyncCloudMerger(fs::path journalStoreURL, std::shared_ptr<SyncEventStore> eventStore,
                                 std::shared_ptr<SyncCloudFileSystem> cloudFileSystem,
                                 const SyncEnsembleHooks* hooks,
                                 std::shared_ptr<SyncEventIntegrator> integrator)
    : journalStoreURL_(std::move(journalStoreURL)),
      eventStore_(std::move(eventStore)),
      cloudFileSystem_(std::move(cloudFileSystem)),
      hooks_(hooks),
      integrator_(std::move(integrator)) {
  cloudManager_ = std::make_unique<SyncCloudManager>(eventStore_, cloudFileSystem_);
  if (hooks_) cloudManager_->setImageStore(hooks_->imageStore);
  if (!integrator_) {
    integrator_ = std::make_shared<SyncEventIntegrator>(
        journalStoreURL_, hooks_ ? hooks_->managedObjectModel : nullptr, eventStore_);
    integrator_->setEnsemble(hooks_);
  }
}

SyncCloudMerger::~SyncCloudMerger() = default;

bool SyncCloudMerger::isLeeched() const {
  return eventStore_->containsEventData();
}

OptionalError SyncCloudMerger::importJournalAsBaseline() {
  LUMEO_LOG_VERBOSE("Importing persistent store");
  if (!hooks_ || !hooks_->managedObjectModel)
    return syncError(kSyncErrorCodeUnknown, "No journal model to import the journal with");
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(hooks_->managedObjectModel);
  OptionalError error;
  // Opened as the application opens it, so the import leaves the file's
  // journal mode as the application's other connections expect it.
  coordinator->addPersistentStoreWithType(kSQLiteStoreType, journalStoreURL_,
                                          integrator_->persistentStoreOptions(), error);
  if (error) return error;
  ManagedObjectContext journal(ConcurrencyType::kConfinement);
  journal.setPersistentStoreCoordinator(coordinator);

  std::vector<ManagedObjectPtr> objects;
  objects.reserve(1000);
  for (const EntityDescription* entity : hooks_->managedObjectModel->entities()) {
    if (entity->isAbstract()) continue;
    FetchRequest request(entity->name());
    request.setIncludesSubentities(false);
    FetchResults found = journal.executeFetchRequest(request, error);
    if (error) return error;
    for (const auto& object : found) objects.push_back(object);
  }
  SyncEventBuilder builder(*eventStore_);
  builder.setEnsemble(hooks_);
  builder.makeNewEventOfType(kSyncEventTypeBaseline, std::nullopt);
  auto context = eventStore_->managedObjectContext();
  context->performBlockAndWait([&] {
    builder.event()->setGlobalCount(0);
    builder.event()->setTimestamp(Date::distantPast().timeIntervalSinceReferenceDate());
  });
  builder.addChangesForInsertedObjects(objects, true, journal);
  builder.finalizeNewEvent();
  context->performBlockAndWait([&] {
    if (OptionalError saveError = context->save()) {
      context->rollback();
      error = saveError;
    }
    context->reset();
  });
  return error;
}

OptionalError SyncCloudMerger::leech() {
  if (isLeeched()) return syncError(kSyncErrorCodeNotLeeched, "This device already syncs with the folder");
  OptionalError error =
      cloudManager_->awaitCloud([&](SyncCloudCompletion done) { cloudFileSystem_->connect(done); });
  if (!error) {
    error = cloudManager_->awaitCloud(
        [&](SyncCloudCompletion done) { cloudFileSystem_->performInitialPreparation(done); });
  }
  if (!error) error = cloudManager_->createRemoteDirectoryStructure();
  if (error) return error;

  if (OptionalError prepared = eventStore_->prepareNewEventStore()) return prepared;
  eventStore_->setCloudFileSystemIdentity(identityData(cloudFileSystem_->identityToken()));
  if (OptionalError imported = importJournalAsBaseline()) {
    eventStore_->removeEventStore();
    return imported;
  }
  eventStore_->setIdentifierOfBaselineUsedToConstructStore(eventStore_->currentBaselineIdentifier());
  LUMEO_DROP_ERROR(eventStore_->flush());

  Value::Dictionary registration{
      {"storeIdentifier", Value(eventStore_->persistentStoreIdentifier().value_or(""))},
      {"leechDate", Value(Date::now())}};
  if (OptionalError registered = cloudManager_->setRegistrationInfo(
          registration, eventStore_->persistentStoreIdentifier().value_or(""))) {
    LUMEO_LOG_WARNING("Could not register the store in the cloud: %@",
                      static_cast<const Error&>(*registered));
  }
  return std::nullopt;
}

SyncResult<SyncCloudMergeReport> SyncCloudMerger::merge() {
  if (!isLeeched())
    return syncError(kSyncErrorCodeNotLeeched, "Attempt to merge a store that is not leeched.");
  if (OptionalError setup = eventStore_->setupError()) return *setup;
  std::error_code ec;
  if (!fs::exists(journalStoreURL_, ec))
    return syncError(kSyncErrorCodeStoreFileMissing,
                     "The journal file " + journalStoreURL_.string() + " is missing");

  SyncCloudMergeReport report;
  SyncCloudManager& cloud = *cloudManager_;
  auto step = [&](OptionalError error) -> OptionalError {
    if (error) LUMEO_LOG_ERROR("Merge step failed: %@", static_cast<const Error&>(*error));
    return error;
  };

  if (!cloudFileSystem_->isConnected()) {
    if (auto e = step(cloud.awaitCloud([&](SyncCloudCompletion done) { cloudFileSystem_->connect(done); })))
      return *e;
  }
  if (auto e = step(cloud.awaitCloud([&](SyncCloudCompletion done) {
        cloudFileSystem_->repairEnsembleDirectory(cloud.remoteEnsembleDirectory(), done);
      })))
    return *e;
  if (eventStore_->cloudFileSystemIdentity() != identityData(cloudFileSystem_->identityToken())) {
    return syncError(kSyncErrorCodeCloudIdentityChanged,
                     "The sync folder belongs to someone else or is a different folder than the one this "
                     "device joined");
  }
  if (auto e = step(eventStore_->flush())) return *e;
  if (auto e = step(cloud.createRemoteDirectoryStructure())) return *e;
  if (auto e = step(cloud.snapshotRemoteFiles())) return *e;
  if (auto e = step(cloud.removeOutOfDateNewlyImportedFiles())) return *e;
  if (auto e = step(cloud.importNewBaselineEvents())) return *e;

  SyncBaselineConsolidator consolidator(eventStore_);
  consolidator.setEnsemble(hooks_);
  report.baselinesConsolidated = consolidator.baselineNeedsConsolidation();
  if (auto e = step(consolidator.consolidateBaseline())) return *e;
  if (auto e = step(cloud.importNewRemoteNonBaselineEvents())) return *e;

  SyncRebaser rebaser(eventStore_);
  rebaser.setEnsemble(hooks_);
  if (auto e = step(rebaser.deleteEventsPreceedingBaseline())) return *e;
  auto should = rebaser.shouldRebase();
  if (auto* error = std::get_if<Error>(&should)) return *error;
  if (std::get<bool>(should)) {
    if (auto e = step(rebaser.rebase())) return *e;
    report.rebased = true;
  }

  integrator_->startMonitoringSaves();
  SyncMergeResult merged = integrator_->mergeEvents();
  integrator_->stopMonitoringSaves();
  if (!merged.succeeded || merged.error) {
    if (merged.error) return *merged.error;
    return syncError(kSyncErrorCodeUnknown, "The merged changes could not be saved");
  }
  eventStore_->setIdentifierOfBaselineUsedToConstructStore(eventStore_->currentBaselineIdentifier());

  if (auto photos = integrator_->createPhotosAndThumbs()) cloud.setPhotoAndThumbDictrionary(*photos);
  if (auto e = step(cloud.importNewDataFiles())) return *e;
  cloud.checkPhotosAndThumbs();
  eventStore_->removeUnreferencedDataFiles();
  if (auto e = step(cloud.exportDataFiles())) return *e;
  if (auto e = step(cloud.exportNewLocalBaseline())) return *e;
  if (auto e = step(cloud.exportNewLocalNonBaselineEvents())) return *e;
  if (auto e = step(cloud.removeOutdatedRemoteFiles())) return *e;
  LUMEO_DROP_ERROR(eventStore_->flush());

  report.counts = cloud.counts();
  report.skippedFiles = cloud.skippedFiles();
  return report;
}

}  // namespace lumeo
