// Baselines: a baseline is a snapshot event (type 100) with one insert
// change per living object, carrying all its values. Devices may make
// baselines on their own, so several can meet in one event store; the
// consolidator reduces them to one. A baseline that another one covers is
// dropped; baselines made concurrently are merged into the most recent one,
// which takes a new identifier, so that every device rebuilds its journal
// from it (a full integration), since concurrent baselines cannot be
// reconciled event by event.
//
// Thread: all work runs inside the event context's blocking perform; any
// thread may call. consolidateBaselineWithCompletion calls back on the main
// queue.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/error.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_revision_manager.h"

namespace lumeo {

class SyncEventStore;
class SyncObjectChange;

// Folds an earlier change of the same object (or none) into a change that
// belongs to a baseline: the change wins for attributes and to-one
// relationships and takes over what it lacks; a to-many relationship keeps
// the members of both that the later change did not remove, and nothing is
// left removed, since a baseline holds only members.
void syncFoldIntoBaselineChange(SyncObjectChange& change, const SyncObjectChange* subordinate);

class SyncBaselineConsolidator {
 public:
  explicit SyncBaselineConsolidator(std::shared_ptr<SyncEventStore> eventStore);

  void setEnsemble(const SyncEnsembleHooks* ensemble) { ensemble_ = ensemble; }

  // True when more than one baseline exists.
  bool baselineNeedsConsolidation();
  // Drops redundant baselines and merges concurrent ones; 204 when a
  // baseline comes from a model this build does not read.
  OptionalError consolidateBaseline();
  void consolidateBaselineWithCompletion(std::function<void(OptionalError)> completion);

  // Baselines by decreasing recency: global count, timestamp, store
  // identifier, all descending (on the event context's queue).
  static std::vector<SyncEventPtr> baselinesByDecreasingRecency(ManagedObjectContext& context);
  // Of the baselines in that order, those another one makes unnecessary: a
  // baseline whose revisions another's cover, and of two equal ones the
  // older.
  static std::vector<SyncEventPtr> redundantBaselinesInBaselines(const std::vector<SyncEventPtr>& baselines);

 private:
  SyncEventPtr mergedBaselineFromOrderedBaselineEvents(const std::vector<SyncEventPtr>& baselines);

  std::shared_ptr<SyncEventStore> eventStore_;
  const SyncEnsembleHooks* ensemble_ = nullptr;
};

}  // namespace lumeo
