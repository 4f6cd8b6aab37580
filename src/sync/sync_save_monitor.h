// Makes every save of the journal store into one save event, without the
// application doing anything: listens to the will-save and did-save
// notifications of every context, keeps the saves of root contexts on the
// monitored store file, and hands their inserted, updated and deleted
// objects to a SyncEventBuilder. The integrator's own merge saves are left
// out: a merge records its own event.
//
// Thread: the handlers run on the saving thread; the event's rows are
// written asynchronously on the event context's queue. flush() on the
// event store waits for them.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>

#include "objectgraph/managed_object_context.h"
#include "platform/notification_center.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_event_builder.h"
#include "sync/sync_store_path.h"

namespace lumeo {

class SyncEventStore;
class SyncEventIntegrator;

inline constexpr char kSyncMonitoredManagedObjectContextWillSaveNotification[] =
    "SyncMonitoredManagedObjectContextWillSaveNotification";
inline constexpr char kSyncMonitoredManagedObjectContextDidSaveNotification[] =
    "SyncMonitoredManagedObjectContextDidSaveNotification";

class SyncSaveMonitor {
 public:
  SyncSaveMonitor(std::filesystem::path storePath, std::shared_ptr<SyncEventStore> eventStore);
  ~SyncSaveMonitor();
  SyncSaveMonitor(const SyncSaveMonitor&) = delete;
  SyncSaveMonitor& operator=(const SyncSaveMonitor&) = delete;

  void setEnsemble(const SyncEnsembleHooks* ensemble) { ensemble_ = ensemble; }
  void setEventIntegrator(std::weak_ptr<SyncEventIntegrator> integrator) {
    integrator_ = std::move(integrator);
  }
  const std::filesystem::path& storePath() const { return storePath_; }

  void stopMonitoring();

  // Whether the context saves straight into the monitored store file.
  bool isMonitoredContext(const ManagedObjectContext& context) const;
  std::vector<ManagedObjectPtr> monitoredManagedObjectsInSet(
      const std::vector<ManagedObjectPtr>& objects) const;

  // The will-save step, for a monitor made while that very notification
  // was being delivered: it observes only the ones posted after it.
  void contextWillSave(const Notification& notification);

 private:
  void contextDidSave(const Notification& notification);

  std::filesystem::path storePath_;
  SyncStorePathMatch storeMatch_;  // resolves each store path once
  std::shared_ptr<SyncEventStore> eventStore_;
  const SyncEnsembleHooks* ensemble_ = nullptr;
  std::weak_ptr<SyncEventIntegrator> integrator_;
  std::mutex mutex_;
  struct PendingSave {
    std::string eventIdentifier;
    SyncPropertyChangeValuesByObjectID values;
  };
  std::map<const ManagedObjectContext*, PendingSave> changedValuesByContext_;
  ScopedObserver willSaveObserver_;
  ScopedObserver didSaveObserver_;
};

}  // namespace lumeo
