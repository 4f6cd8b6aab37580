#include "sync/sync_journal_capture.h"

#include <system_error>

#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/journal_store_options.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"
#include "sync/sync_save_monitor.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

// The event logs sit under the application's own folder, one per ensemble.
constexpr char kApplicationFolder[] = "org.lumeo.Lumeo";
constexpr char kEnsembleIdentifier[] = "MainStore";

}  // namespace

fs::path SyncJournalCapture::eventDataRoot(const fs::path& applicationSupport) {
  return applicationSupport / kApplicationFolder / kSyncEventDataDirectoryName;
}

bool SyncJournalCapture::deviceSyncs(const fs::path& applicationSupport) {
  std::error_code ec;
  return fs::exists(eventDataRoot(applicationSupport) / kEnsembleIdentifier / kSyncStoreInfoFileName, ec);
}

SyncJournalCapture::SyncJournalCapture(const fs::path& library, const fs::path& applicationSupport) {
  const fs::path journal = library / kJournalStoreFileName;
  hooks_.managedObjectModel = makeJournalModel();
  hooks_.globalIdentifiersForManagedObjects = journalGlobalIdentifiersForManagedObjects;
  hooks_.imageStore = std::make_shared<ImageStore>(library);
  eventStore_ = std::make_shared<SyncEventStore>(kEnsembleIdentifier, eventDataRoot(applicationSupport));
  integrator_ = std::make_shared<SyncEventIntegrator>(journal, hooks_.managedObjectModel, eventStore_);
  integrator_->setEnsemble(&hooks_);
  // The merge's own connection opens the journal as the application does.
  integrator_->setPersistentStoreOptions(journalStoreOptions());
  monitor_ = std::make_unique<SyncSaveMonitor>(journal, eventStore_);
  monitor_->setEnsemble(&hooks_);
  monitor_->setEventIntegrator(integrator_);
}

SyncJournalCapture::~SyncJournalCapture() {
  monitor_->stopMonitoring();
}

OptionalError SyncJournalCapture::close(const std::function<void()>& beforeWriting) {
  monitor_->stopMonitoring();
  if (closed_) return std::nullopt;
  closed_ = true;
  if (!eventStore_->containsEventData()) return std::nullopt;
  auto context = eventStore_->managedObjectContext();
  if (!context) return std::nullopt;
  // The monitor makes each event on the event store's queue; a wait on
  // that queue lets the queued ones finish.
  bool unsaved = false;
  context->performBlockAndWait([&] { unsaved = context->hasChanges(); });
  if (!unsaved) return std::nullopt;
  if (beforeWriting) beforeWriting();
  return eventStore_->flush();
}

}  // namespace lumeo
