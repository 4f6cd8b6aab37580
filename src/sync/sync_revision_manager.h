// Which events to replay and whether they may be replayed: the one total
// order of events, the events this store has not merged yet, the events
// concurrent with them, what the store knows of every other store, and the
// integrity checks that must hold before events touch the journal.
//
// Thread: every method does its store access inside the event context's
// blocking perform; made anew each time it is needed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/value.h"
#include "sync/sync_error.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_revision.h"

namespace lumeo {

class SyncEventStore;
class ManagedObjectContext;
class ManagedObjectModel;

using SyncEventPtr = std::shared_ptr<SyncStoreModificationEvent>;
using SyncEntityHashes = std::map<std::string, Value::Data>;

// The largest revision number or global count an event may carry: far
// beyond any real device's count, and room to add one without overflow.
inline constexpr std::int64_t kSyncMaximumRevisionNumber = std::int64_t{1} << 62;

// The model's entity version hashes by name, as an XML property list.
std::string sync_entityHashesPropertyList(const ManagedObjectModel& model);
std::optional<SyncEntityHashes> sync_entityHashesByNameFromPropertyList(const std::string& text);
std::string sync_modelHash(const ManagedObjectModel& model);

// What ordering and checking need of one event, read from its row and its
// revisions: the accessors of SyncStoreModificationEvent give the same.
struct SyncEventFacts {
  std::int64_t globalCount = 0;
  double timestamp = 0;
  std::int16_t type = 0;
  std::optional<SyncRevision> ownRevision;  // eventRevision
  SyncRevisionSet revisionSetOfOtherStores;
  SyncRevisionSet revisionSet;            // the others plus the event's own
  std::string persistentStoreIdentifier;  // of the own revision; "" when none

  static SyncEventFacts ofEvent(const SyncStoreModificationEvent& event);
};

class SyncRevisionManager {
 public:
  explicit SyncRevisionManager(SyncEventStore& eventStore,
                               std::shared_ptr<ManagedObjectContext> context = nullptr);

  // The journal model's versions this build knows (the newest is the
  // current model), standing for the model file. With none, the model
  // check passes.
  void setModelVersions(std::vector<std::shared_ptr<const ManagedObjectModel>> models) {
    models_ = std::move(models);
  }

  static std::vector<SyncEventPtr> sortStoreModificationEvents(std::vector<SyncEventPtr> events);

  // Reads every stored event and its revisions in one go, and answers the
  // calls below from that reading instead of reading events one at a time
  // (a merge of 100,000 events reads each event's revisions many times
  // over). Valid only while the event store does not change: the
  // integrator takes one for the span of a merge's choosing and checking.
  // Does nothing when the event context has unsaved changes. Call it on
  // the event context's queue or outside any perform.
  void takeEventSnapshot();
  void dropEventSnapshot();
  bool hasEventSnapshot() const { return snapshot_ != nullptr; }
  // How many events the snapshot holds; 0 without one.
  std::size_t snapshotEventCount() const;

  // The facts of an event: the snapshot's when it holds the event (no copy),
  // else read into `scratch`. The reference lives as long as the snapshot
  // or the scratch, whichever it refers to.
  const SyncEventFacts& factsForEvent(const SyncEventPtr& event, SyncEventFacts& scratch);
  // In the total order; the same result as sortStoreModificationEvents.
  std::vector<SyncEventPtr> sortedStoreModificationEvents(std::vector<SyncEventPtr> events);
  // Whether a save or merge event of the store with that revision is here.
  bool hasNonBaselineEventForPersistentStoreIdentifier(const std::string& persistentStoreIdentifier,
                                                       std::int64_t revisionNumber);

  SyncResult<std::vector<SyncEventPtr>> fetchUncommittedStoreModificationEvents();
  SyncResult<std::vector<SyncEventPtr>> fetchStoreModificationEventsConcurrentWithEvents(
      const std::vector<SyncEventPtr>& events);
  SyncResult<std::vector<SyncEventPtr>> recursivelyFetchStoreModificationEventsConcurrentWithEvents(
      const std::vector<SyncEventPtr>& events);

  // Data files (210), dependencies (201), continuity (200), model (204), in
  // this order; the first failure is returned.
  OptionalError checkIntegrationPrequisitesForEvents(const std::vector<SyncEventPtr>& events);
  OptionalError checkRebasingPrerequisitesForEvents(const std::vector<SyncEventPtr>& events);
  bool checkAllDataFilesExistForStoreModificationEvents(const std::vector<SyncEventPtr>& events);
  bool checkAllDependenciesExistForStoreModificationEvents(const std::vector<SyncEventPtr>& events);
  // Also fails for a revision number or global count beyond
  // kSyncMaximumRevisionNumber or below -1.
  bool checkContinuityOfStoreModificationEvents(const std::vector<SyncEventPtr>& events);
  // Also fails for an event whose changes name an entity the model lacks:
  // such an event comes from a model this build cannot apply.
  bool checkModelVersionsOfStoreModificationEvents(const std::vector<SyncEventPtr>& events);
  bool checkThatLocalPersistentStoreHasNotBeenAbandoned();

  std::int64_t maximumGlobalCount();
  SyncRevisionSet revisionSetOfMostRecentEvents();
  SyncRevisionSet revisionSetForLastMergeOrBaseline();
  std::set<std::string> allPersistentStoreIdentifiers();

 private:
  struct EventSnapshot;
  class EventSeen;

  void perform(const std::function<void()>& block);
  std::vector<SyncEventPtr> eventsAfterRevisionSet(const SyncRevisionSet& reference,
                                                   const SyncEventPtr& baseline);
  std::vector<SyncEventPtr> nonBaselineEventsAfterRevision(const std::string& persistentStoreIdentifier,
                                                           std::int64_t revisionNumber);
  std::set<std::string> persistentStoreIdentifiersOfRevisions();
  SyncEventPtr mostRecentBaseline();

  SyncEventStore& eventStore_;
  std::shared_ptr<ManagedObjectContext> context_;
  std::vector<std::shared_ptr<const ManagedObjectModel>> models_;
  std::shared_ptr<EventSnapshot> snapshot_;
};

}  // namespace lumeo
