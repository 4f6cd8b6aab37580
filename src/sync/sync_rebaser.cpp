// Folding events into the baseline.
#include "sync/sync_rebaser.h"

#include <algorithm>
#include <map>
#include <set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/log.h"
#include "sync/sync_baseline_consolidator.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_store.h"
#include "sync/sync_property_change_value.h"

namespace lumeo {

namespace {

using ChangeKey = std::pair<std::string, std::string>;
using ChangePtr = std::shared_ptr<SyncObjectChange>;

ChangeKey keyOfChange(const SyncObjectChange& change) {
  auto global = change.globalIdentifier();
  return {global ? global->globalIdentifier() : std::string(), change.nameOfEntity()};
}

std::size_t countOf(ManagedObjectContext& context, const char* entity, const Predicate* predicate,
                    const char* failure) {
  FetchRequest request(entity);
  if (predicate) request.setPredicate(*predicate);
  OptionalError error;
  std::size_t count = context.countForFetchRequest(request, error);
  if (error) {
    LUMEO_LOG_ERROR(failure, static_cast<const Error&>(*error));
    throw SyncException(std::string("Count failed: ") + error->toString());
  }
  return count;
}

}  // namespace

SyncRebaser::SyncRebaser(std::shared_ptr<SyncEventStore> eventStore) : eventStore_(std::move(eventStore)) {}

OptionalError SyncRebaser::deleteEventsPreceedingBaseline() {
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  OptionalError result;
  context->performBlockAndWait([&] {
    try {
      auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
      if (!baseline) return;
      for (const auto& revision : baseline->revisionSet().revisions()) {
        FetchRequest request(kSyncStoreModificationEventEntity);
        request.setPredicate(Predicate::predicateWithFormat(
            "(type = %@ OR type = %@) AND eventRevision.persistentStoreIdentifier = %@ AND "
            "eventRevision.revisionNumber <= %@",
            int(kSyncEventTypeMerge), int(kSyncEventTypeSave), revision.persistentStoreIdentifier(),
            static_cast<long long>(revision.revisionNumber())));
        OptionalError error;
        FetchResults covered = context->executeFetchRequest(request, error);
        if (error) throw SyncException("Could not fetch events: " + error->toString());
        for (const auto& event : covered) LUMEO_DROP_ERROR(context->deleteObject(event));
      }
      if (context->hasChanges()) {
        if (OptionalError error = context->save()) {
          context->rollback();
          result = error;
        }
      }
    } catch (const SyncException& e) {
      context->rollback();
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

float SyncRebaser::compaction(std::size_t baselineChanges, std::size_t inserts, std::size_t updates,
                              std::size_t deletes) {
  // Single precision, as every device computes it, but the denominator's
  // sum in double.
  float b = static_cast<float>(baselineChanges);
  float i = static_cast<float>(inserts);
  float u = static_cast<float>(updates);
  float d = static_cast<float>(deletes);
  double denominator =
      std::max(static_cast<double>(b) + static_cast<double>(i) + 0.2 * static_cast<double>(u), 1.0);
  float value = 1.0f - (b - d + i) / static_cast<float>(denominator);
  return std::clamp(value, 0.0f, 1.0f);
}

SyncResult<float> SyncRebaser::estimateEventStoreCompactionFollowingRebase() {
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  SyncResult<float> result = 0.0f;
  context->performBlockAndWait([&] {
    try {
      Predicate inBaselines =
          Predicate::predicateWithFormat("storeModificationEvent.type = %@", int(kSyncEventTypeBaseline));
      std::size_t b =
          countOf(*context, kSyncObjectChangeEntity, &inBaselines, "Couldn't fetch count of baseline: %@");
      auto ofType = [&](int type) {
        Predicate p = Predicate::predicateWithFormat(
            "storeModificationEvent.type != %@ && storeModificationEvent.type != %@ && type = %@",
            int(kSyncEventTypeBaseline), int(kSyncEventTypeIncomplete), type);
        return countOf(*context, kSyncObjectChangeEntity, &p,
                       "Couldn't fetch count of non-baseline objects: %@");
      };
      std::size_t i = ofType(kSyncObjectChangeTypeInsert);
      std::size_t u = ofType(kSyncObjectChangeTypeUpdate);
      std::size_t d = ofType(kSyncObjectChangeTypeDelete);
      result = compaction(b, i, u, d);
    } catch (const SyncException& e) {
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

SyncResult<bool> SyncRebaser::shouldRebase() {
  if (forceRebase) return true;
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  SyncResult<bool> result = false;
  bool decided = false;
  context->performBlockAndWait([&] {
    try {
      auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
      if (!baseline) {
        result = true;
        decided = true;
        return;
      }
      SyncRevisionManager revisionManager(*eventStore_, context);
      if (baseline->revisionSet().persistentStoreIdentifiers() !=
          revisionManager.allPersistentStoreIdentifiers()) {
        result = true;
        decided = true;
        return;
      }
      if (countOf(*context, kSyncStoreModificationEventEntity, nullptr,
                  "Couldn't fetch count of events: %@") > kSyncRebaseEventCountThreshold) {
        result = true;
        decided = true;
      }
    } catch (const SyncException& e) {
      result = errorForSyncException(e.reason());
      decided = true;
    }
  });
  if (decided) return result;

  auto estimate = estimateEventStoreCompactionFollowingRebase();
  if (auto* error = std::get_if<Error>(&estimate)) return *error;
  if (std::get<float>(estimate) <= kSyncRebaseCompactionThreshold) return false;
  context->performBlockAndWait([&] {
    try {
      result = countOf(*context, kSyncObjectChangeEntity, nullptr,
                       "Couldn't fetch count of object changes: %@") > kSyncRebaseObjectChangeCountThreshold;
    } catch (const SyncException& e) {
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

std::int64_t SyncRebaser::globalCountForNewBaseline() {
  auto context = eventStore_->managedObjectContext();
  if (!context) return 0;
  std::optional<std::int64_t> smallest;
  context->performBlockAndWait([&] {
    SyncRevisionManager revisionManager(*eventStore_, context);
    SyncRevisionSet recent = revisionManager.revisionSetOfMostRecentEvents();
    auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
    SyncRevisionSet covered = baseline ? baseline->revisionSet() : SyncRevisionSet();
    for (const auto& revision : recent.revisions()) {
      const SyncRevision* done =
          covered.revisionForPersistentStoreIdentifier(revision.persistentStoreIdentifier());
      if (done && done->revisionNumber() >= revision.revisionNumber()) continue;
      smallest = std::min(smallest.value_or(revision.globalCount()), revision.globalCount());
    }
  });
  return smallest.value_or(0);
}

void SyncRebaser::mergeOrderedEventsIntoBaseline(const std::vector<SyncEventPtr>& events,
                                                 const SyncEventPtr& baseline) {
  ManagedObjectContext& context = *baseline->managedObjectContext();
  std::map<ChangeKey, ChangePtr> inBaseline;
  for (const auto& change : baseline->objectChanges()) inBaseline[keyOfChange(*change)] = change;
  for (const auto& event : events) {
    sync_enumerateObjectsDrainingEveryIterations(
        event->objectChanges(), 100, [&](const ChangePtr& change, std::size_t, bool&) {
          ChangeKey key = keyOfChange(*change);
          auto it = inBaseline.find(key);
          ChangePtr subordinate = it == inBaseline.end() ? nullptr : it->second;
          switch (change->type()) {
            case kSyncObjectChangeTypeDelete:
              if (subordinate) {
                inBaseline.erase(it);
                LUMEO_DROP_ERROR(context.deleteObject(subordinate));
              }
              break;
            case kSyncObjectChangeTypeUpdate:
              if (!subordinate) break;  // an object the baseline does not hold any more
              syncFoldIntoBaselineChange(*change, subordinate.get());
              LUMEO_DROP_ERROR(context.deleteObject(subordinate));
              change->setType(kSyncObjectChangeTypeInsert);
              change->setStoreModificationEvent(baseline);
              inBaseline[key] = change;
              break;
            case kSyncObjectChangeTypeInsert:
              syncFoldIntoBaselineChange(*change, subordinate.get());
              if (subordinate) LUMEO_DROP_ERROR(context.deleteObject(subordinate));
              change->setStoreModificationEvent(baseline);
              inBaseline[key] = change;
              break;
            default:
              throw SyncException("Invalid object change type");
          }
        });
  }
}

OptionalError SyncRebaser::rebase() {
  LUMEO_LOG_VERBOSE("Starting rebase");
  auto context = eventStore_->managedObjectContext();
  auto store = eventStore_->persistentStoreIdentifier();
  if (!context || !store) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  std::int64_t newCount = globalCountForNewBaseline();
  LUMEO_LOG_VERBOSE("New baseline global count: %@", static_cast<long long>(newCount));
  OptionalError result;
  context->performBlockAndWait([&] {
    try {
      auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
      auto events = SyncStoreModificationEvent::fetchNonBaselineEventsUpToGlobalCount(newCount, *context);
      if (baseline && events.empty()) return;

      SyncRevisionManager revisionManager(*eventStore_, context);
      if (ensemble_) revisionManager.setModelVersions(ensemble_->allModelVersions());
      if (OptionalError error = revisionManager.checkRebasingPrerequisitesForEvents(events)) {
        LUMEO_LOG_ERROR("Failed rebasing prerequisite checks. Aborting rebase");
        result = error;
        return;
      }

      std::vector<SyncRevisionSet> sets;
      if (baseline) sets.push_back(baseline->revisionSet());
      for (const auto& event : events) sets.push_back(event->revisionSet());

      if (!baseline) {
        baseline = context->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
        baseline->setType(kSyncEventTypeBaseline);
      }
      SyncStoreModificationEvent::prefetchRelatedObjectsForStoreModificationEvents(events, *context);
      mergeOrderedEventsIntoBaseline(events, baseline);

      baseline->setGlobalCount(newCount);
      baseline->setTimestamp(Date::now().timeIntervalSinceReferenceDate());
      if (ensemble_ && ensemble_->managedObjectModel)
        baseline->setModelVersion(sync_entityHashesPropertyList(*ensemble_->managedObjectModel));

      SyncRevisionSet merged = SyncRevisionSet::revisionSetByTakingStoreWiseMaximumOfRevisionSets(sets);
      if (!merged.hasRevisionForPersistentStoreIdentifier(*store))
        merged.addRevision(SyncRevision(*store, -1));
      baseline->setRevisionSet(merged, *store);
      if (auto own = baseline->eventRevision(); own && own->revisionNumber() == -1) own->setRevisionNumber(0);

      for (const auto& event : events) LUMEO_DROP_ERROR(context->deleteObject(event));
      if (OptionalError error = context->save()) {
        LUMEO_LOG_ERROR("Failed to save rebase: %@", static_cast<const Error&>(*error));
        context->rollback();
        result = error;
        return;
      }
      LUMEO_LOG_VERBOSE("Finishing rebase");
    } catch (const SyncException& e) {
      context->rollback();
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

}  // namespace lumeo
