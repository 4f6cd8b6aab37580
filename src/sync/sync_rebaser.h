// Folds old events into the baseline so that the event store (and the cloud
// folder) does not grow without end. The rebased baseline keeps its
// identifier, so this device and every other that took part carry on
// without rebuilding their journals; only events that every device with news
// has reached are folded in, since a device may still deliver events
// concurrent with newer ones.
//
// When: always without a baseline, when the baseline does not know every
// store, or with more than 50 events; otherwise only when at least 500
// object changes exist and folding would remove more than half of them.
//
// Thread: all work runs inside the event context's blocking perform; any
// thread may call.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/error.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_revision_manager.h"

namespace lumeo {

class SyncEventStore;

inline constexpr std::size_t kSyncRebaseEventCountThreshold = 50;          // more than this: rebase
inline constexpr std::size_t kSyncRebaseObjectChangeCountThreshold = 499;  // more than this and
inline constexpr float kSyncRebaseCompactionThreshold = 0.5f;              // more than this: rebase

class SyncRebaser {
 public:
  explicit SyncRebaser(std::shared_ptr<SyncEventStore> eventStore);

  void setEnsemble(const SyncEnsembleHooks* ensemble) { ensemble_ = ensemble; }
  bool forceRebase = false;

  // Deletes the save and merge events the most recent baseline covers.
  OptionalError deleteEventsPreceedingBaseline();
  // The share of object changes a rebase would remove, 0 to 1.
  SyncResult<float> estimateEventStoreCompactionFollowingRebase();
  SyncResult<bool> shouldRebase();
  OptionalError rebase();

  // The newest global count that every store with news has reached.
  std::int64_t globalCountForNewBaseline();

  // The compaction for b baseline changes and i, u, d inserts, updates and
  // deletes of other events.
  static float compaction(std::size_t baselineChanges, std::size_t inserts, std::size_t updates,
                          std::size_t deletes);

 private:
  void mergeOrderedEventsIntoBaseline(const std::vector<SyncEventPtr>& events, const SyncEventPtr& baseline);

  std::shared_ptr<SyncEventStore> eventStore_;
  const SyncEnsembleHooks* ensemble_ = nullptr;
};

}  // namespace lumeo
