// Applies events to the journal store. Opens its own connection to the
// store, replays the chosen events in the one total order on a private
// context, lets the delegate repair the outcome, commits everything with one
// save and records a merge event. The journal file is touched only by that
// one save, so a failure at any earlier point leaves it as it was.
//
// Thread: mergeEvents() runs the merge on the integrator's serial queue and
// waits for it; mergeEventsWithCompletion() calls back on the main queue.
// Lock order: event context outer, merge context inner.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/dispatch_queue.h"
#include "platform/error.h"
#include "platform/notification_center.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_revision_manager.h"
#include "sync/sync_store_path.h"

namespace lumeo {

class SyncEventStore;
class SyncEventBuilder;

// How a merge ended. A failed save that the delegate's failedSaveBlock did
// not repair fails with no error at all: `succeeded` tells it apart.
struct SyncMergeResult {
  bool succeeded = true;
  OptionalError error;
};

class SyncEventIntegrator : public std::enable_shared_from_this<SyncEventIntegrator> {
 public:
  SyncEventIntegrator(std::filesystem::path storeURL, std::shared_ptr<ManagedObjectModel> managedObjectModel,
                      std::shared_ptr<SyncEventStore> eventStore);
  ~SyncEventIntegrator();

  void setEnsemble(const SyncEnsembleHooks* ensemble) { ensemble_ = ensemble; }
  void setPersistentStoreOptions(Value::Dictionary options) { persistentStoreOptions_ = std::move(options); }
  // How the engine's own connections open the journal (as the application does).
  const Value::Dictionary& persistentStoreOptions() const { return persistentStoreOptions_; }
  const std::filesystem::path& storeURL() const { return storeURL_; }

  // Watches saves of other contexts on the store: one during a merge fails
  // that merge with 207 at its commit.
  void startMonitoringSaves();
  void stopMonitoringSaves();

  SyncMergeResult mergeEvents();
  void mergeEventsWithCompletion(std::function<void(OptionalError)> completion);

  // The merge context; exists only during a merge.
  std::shared_ptr<ManagedObjectContext> managedObjectContext() const;

  // For each description with a photo, keyed by its photo name: "photoName",
  // "thumbName", "photoChecksum", "thumbChecksum" where set. Nothing when the
  // store cannot be opened.
  std::optional<Value::Dictionary> createPhotosAndThumbs();

 private:
  struct MergeState;
  SyncMergeResult runMerge();
  OptionalError integrate(MergeState& state);
  OptionalError repairWithMergeEventBuilder(SyncEventBuilder& builder);
  SyncMergeResult commitWithMergeEventBuilder(SyncEventBuilder& builder);
  OptionalError saveContext();
  SyncMergeResult fail(OptionalError error, bool succeeded = false);
  bool needsFullIntegration(SyncRevisionManager& revisionManager);
  OptionalError checkPredecessorsOfStoreModificationEvents(SyncRevisionManager& revisionManager,
                                                           const std::vector<SyncEventPtr>& events);
  void contextSaving(const Notification& notification);

  std::filesystem::path storeURL_;
  SyncStorePathMatch journalStore_;  // the journal among the stores that save
  std::shared_ptr<ManagedObjectModel> model_;
  std::shared_ptr<SyncEventStore> eventStore_;
  Value::Dictionary persistentStoreOptions_;
  const SyncEnsembleHooks* ensemble_ = nullptr;
  std::shared_ptr<DispatchQueue> queue_;

  mutable std::mutex mutex_;
  std::shared_ptr<ManagedObjectContext> context_;
  std::optional<std::string> newEventUniqueId_;
  std::shared_ptr<const ContextSaveInfo> saveInfo_;
  Notification saveNotification_;
  std::atomic<bool> saveOccurredDuringMerge_{false};
  bool monitoring_ = false;
  ScopedObserver willSaveObserver_;
  ScopedObserver didSaveObserver_;
};

}  // namespace lumeo
