// Dropping and merging baselines.
#include "sync/sync_baseline_consolidator.h"

#include <algorithm>
#include <map>
#include <set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "store/mood_record.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_store.h"
#include "sync/sync_property_change_value.h"

namespace lumeo {

namespace {

std::string identifiersText(const std::vector<SyncEventPtr>& events) {
  std::string text = "(";
  for (std::size_t i = 0; i < events.size(); ++i) text += (i ? ", " : "") + events[i]->uniqueIdentifier();
  return text + ")";
}

// a more recent than b.
bool moreRecent(const SyncEventPtr& a, const SyncEventPtr& b) {
  if (a->globalCount() != b->globalCount()) return a->globalCount() > b->globalCount();
  if (a->timestamp() != b->timestamp()) return a->timestamp() > b->timestamp();
  return a->persistentStoreIdentifier() > b->persistentStoreIdentifier();
}

using ChangeKey = std::pair<std::string, std::string>;

ChangeKey keyOfChange(const SyncObjectChange& change) {
  auto global = change.globalIdentifier();
  return {global ? global->globalIdentifier() : std::string(), change.nameOfEntity()};
}

// In a baseline only members exist: the later change's additions, with
// the earlier one's that it did not remove, and nothing removed. An ordered
// relationship keeps the earlier order where the later change says none.
void mergeBaselineToMany(SyncPropertyChangeValue& mine, const SyncPropertyChangeValue& theirs) {
  std::set<std::string> removed = mine.removedIdentifiers.value_or(std::set<std::string>{});
  std::set<std::string> added = mine.addedIdentifiers.value_or(std::set<std::string>{});
  for (const auto& id : theirs.addedIdentifiers.value_or(std::set<std::string>{})) {
    if (!removed.count(id)) added.insert(id);
  }
  mine.addedIdentifiers = added;
  mine.removedIdentifiers = std::set<std::string>{};
  if (theirs.type != kSyncPropertyChangeTypeOrderedToManyRelationship) return;
  std::map<std::string, std::int64_t> indexes;
  for (const auto& [index, id] :
       theirs.movedIdentifiersByIndex.value_or(std::map<std::int64_t, std::string>{}))
    indexes[id] = index;
  for (const auto& [index, id] : mine.movedIdentifiersByIndex.value_or(std::map<std::int64_t, std::string>{}))
    indexes[id] = index;
  std::vector<std::string> ordered(added.begin(), added.end());
  std::stable_sort(ordered.begin(), ordered.end(), [&](const std::string& a, const std::string& b) {
    auto x = indexes.find(a);
    auto y = indexes.find(b);
    if (x != indexes.end() && y != indexes.end() && x->second != y->second) return x->second < y->second;
    return a < b;
  });
  std::map<std::int64_t, std::string> moved;
  for (std::size_t i = 0; i < ordered.size(); ++i) moved[static_cast<std::int64_t>(i)] = ordered[i];
  mine.movedIdentifiersByIndex = std::move(moved);
}

bool isToMany(int type) {
  return type == kSyncPropertyChangeTypeToManyRelationship ||
         type == kSyncPropertyChangeTypeOrderedToManyRelationship;
}

}  // namespace

// Folds an earlier change of the same object into `change`, which wins for
// attributes and to-one relationships and takes over what it lacks.
void syncFoldIntoBaselineChange(SyncObjectChange& change, const SyncObjectChange* subordinate) {
  auto mine = change.propertyChangeValues().value_or(std::vector<SyncPropertyChangeValue>{});
  bool changed = false;
  if (subordinate) {
    std::map<std::string, std::size_t> byName;
    for (std::size_t i = 0; i < mine.size(); ++i) byName[mine[i].propertyName] = i;
    for (const auto& value :
         subordinate->propertyChangeValues().value_or(std::vector<SyncPropertyChangeValue>{})) {
      auto it = byName.find(value.propertyName);
      if (it == byName.end()) {
        byName[value.propertyName] = mine.size();
        mine.push_back(value);
      } else if (isToMany(value.type) && isToMany(mine[it->second].type)) {
        mergeBaselineToMany(mine[it->second], value);
      }
      changed = true;
    }
  }
  for (auto& value : mine) {
    if (isToMany(value.type) && value.removedIdentifiers && !value.removedIdentifiers->empty()) {
      mergeBaselineToMany(value, SyncPropertyChangeValue(value.type, value.propertyName));
      changed = true;
    }
  }
  if (!changed) return;
  std::vector<std::string> files;
  for (const auto& file : change.objectsForKey("dataFiles"))
    files.push_back(file->valueForKey("filename").toString());
  change.setPropertyChangeValues(mine, files);
}

SyncBaselineConsolidator::SyncBaselineConsolidator(std::shared_ptr<SyncEventStore> eventStore)
    : eventStore_(std::move(eventStore)) {}

std::vector<SyncEventPtr> SyncBaselineConsolidator::baselinesByDecreasingRecency(
    ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat("type = %@", int(kSyncEventTypeBaseline)));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision", "eventRevisionsOfOtherStores"});
  OptionalError error;
  FetchResults results = context.executeFetchRequest(request, error);
  if (error) throw SyncException("Could not fetch baselines: " + error->toString());
  std::vector<SyncEventPtr> baselines;
  for (const auto& object : results) {
    if (auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object))
      baselines.push_back(event);
  }
  std::stable_sort(baselines.begin(), baselines.end(), moreRecent);
  return baselines;
}

std::vector<SyncEventPtr> SyncBaselineConsolidator::redundantBaselinesInBaselines(
    const std::vector<SyncEventPtr>& baselines) {
  std::vector<SyncRevisionSet> sets;
  sets.reserve(baselines.size());
  for (const auto& baseline : baselines) sets.push_back(baseline->revisionSet());
  std::set<std::size_t> redundant;
  for (std::size_t i = 0; i < baselines.size(); ++i) {
    for (std::size_t j = i + 1; j < baselines.size(); ++j) {
      int order = sets[i].compare(sets[j]);
      if (order < 0) {
        redundant.insert(i);
      } else if (order > 0) {
        redundant.insert(j);
      } else if (sets[i].isEqualToRevisionSet(sets[j])) {
        redundant.insert(j);  // the older of the two in recency order
      }
    }
  }
  std::vector<SyncEventPtr> out;
  for (std::size_t index : redundant) out.push_back(baselines[index]);
  return out;
}

bool SyncBaselineConsolidator::baselineNeedsConsolidation() {
  auto context = eventStore_->managedObjectContext();
  if (!context) return false;
  std::size_t count = 0;
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setPredicate(Predicate::predicateWithFormat("type = %@", int(kSyncEventTypeBaseline)));
    OptionalError error;
    count = context->countForFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Failed to get baseline count: %@", static_cast<const Error&>(*error));
      count = 0;
    }
  });
  return count > 1;
}

SyncEventPtr SyncBaselineConsolidator::mergedBaselineFromOrderedBaselineEvents(
    const std::vector<SyncEventPtr>& baselines) {
  if (baselines.empty()) return nullptr;
  if (baselines.size() == 1) return baselines.front();
  LUMEO_LOG_VERBOSE("Merging baselines with unique ids: %@", identifiersText(baselines));
  ManagedObjectContext& context = *baselines.front()->managedObjectContext();
  SyncStoreModificationEvent::prefetchRelatedObjectsForStoreModificationEvents(baselines, context);

  const SyncEventPtr& first = baselines.front();
  first->setUniqueIdentifier(globallyUniqueString());
  first->setTimestamp(Date::now().timeIntervalSinceReferenceDate());
  if (ensemble_ && ensemble_->managedObjectModel)
    first->setModelVersion(sync_entityHashesPropertyList(*ensemble_->managedObjectModel));

  std::vector<SyncRevisionSet> sets;
  for (const auto& baseline : baselines) sets.push_back(baseline->revisionSet());
  SyncRevisionSet merged = SyncRevisionSet::revisionSetByTakingStoreWiseMaximumOfRevisionSets(sets);
  std::string store = eventStore_->persistentStoreIdentifier().value_or("");
  if (!merged.hasRevisionForPersistentStoreIdentifier(store)) merged.addRevision(SyncRevision(store, -1));
  first->setRevisionSet(merged, store);
  if (auto own = first->eventRevision(); own && own->revisionNumber() == -1) own->setRevisionNumber(0);

  std::map<ChangeKey, std::shared_ptr<SyncObjectChange>> changes;
  for (const auto& change : first->objectChanges()) changes[keyOfChange(*change)] = change;
  for (std::size_t i = 1; i < baselines.size(); ++i) {
    sync_enumerateObjectsDrainingEveryIterations(
        baselines[i]->objectChanges(), 100,
        [&](const std::shared_ptr<SyncObjectChange>& change, std::size_t, bool&) {
          ChangeKey key = keyOfChange(*change);
          auto it = changes.find(key);
          if (it != changes.end()) {
            syncFoldIntoBaselineChange(*it->second, change.get());
          } else {
            change->setStoreModificationEvent(first);
            changes.emplace(std::move(key), change);
          }
        });
  }
  return first;
}

OptionalError SyncBaselineConsolidator::consolidateBaseline() {
  LUMEO_LOG_VERBOSE("Consolidating baselines");
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  OptionalError result;
  context->performBlockAndWait([&] {
    try {
      std::vector<SyncEventPtr> baselines = baselinesByDecreasingRecency(*context);
      LUMEO_LOG_VERBOSE("Found baselines with unique ids: %@", identifiersText(baselines));
      if (baselines.empty()) return;

      SyncRevisionManager revisionManager(*eventStore_, context);
      if (ensemble_) revisionManager.setModelVersions(ensemble_->allModelVersions());
      if (!revisionManager.checkModelVersionsOfStoreModificationEvents(baselines)) {
        result = syncError(kSyncErrorCodeUnknownModelVersion,
                           "A baseline comes from a model version not known here");
        return;
      }

      std::vector<SyncEventPtr> redundant = redundantBaselinesInBaselines(baselines);
      for (const auto& baseline : redundant) {
        LUMEO_LOG_VERBOSE("Deleting redundant baseline with unique id: %@", baseline->uniqueIdentifier());
        LUMEO_DROP_ERROR(context->deleteObject(baseline));
      }
      if (!redundant.empty()) {
        if (OptionalError error = context->save()) {
          context->rollback();
          result = error;
          return;
        }
      }
      std::vector<SyncEventPtr> remaining;
      for (const auto& baseline : baselines) {
        if (std::find(redundant.begin(), redundant.end(), baseline) == redundant.end())
          remaining.push_back(baseline);
      }
      LUMEO_LOG_VERBOSE("Baselines remaining that need merging: %@", identifiersText(remaining));
      SyncEventPtr merged = mergedBaselineFromOrderedBaselineEvents(remaining);
      for (const auto& baseline : remaining) {
        if (baseline == merged) continue;
        LUMEO_LOG_VERBOSE("Deleting baseline with unique id: %@", baseline->uniqueIdentifier());
        LUMEO_DROP_ERROR(context->deleteObject(baseline));
      }
      if (context->hasChanges()) {
        if (OptionalError error = context->save()) {
          context->rollback();
          result = error;
          return;
        }
      }
      LUMEO_LOG_VERBOSE("Finishing baseline consolidation");
    } catch (const SyncException& e) {
      context->rollback();
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

void SyncBaselineConsolidator::consolidateBaselineWithCompletion(
    std::function<void(OptionalError)> completion) {
  DispatchQueue::global().async([this, completion = std::move(completion)] {
    OptionalError error = consolidateBaseline();
    DispatchQueue::main().async([completion, error] {
      if (completion) completion(error);
    });
  });
}

}  // namespace lumeo
