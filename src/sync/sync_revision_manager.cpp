// Event order, uncommitted and concurrent events, integrity checks.
#include "sync/sync_revision_manager.h"

#include <algorithm>
#include <limits>
#include <unordered_set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/predicate.h"
#include "platform/log.h"
#include "platform/property_list.h"
#include "sync/sync_error.h"
#include "sync/sync_event_store.h"

namespace lumeo {

std::string sync_entityHashesPropertyList(const ManagedObjectModel& model) {
  Value::Dictionary hashes;
  for (const auto& [name, hash] : model.entityVersionHashesByName()) hashes[name] = Value(hash);
  auto text = xmlPropertyList(Value(std::move(hashes)));
  if (auto* error = std::get_if<Error>(&text)) {
    LUMEO_LOG_ERROR("Error generating property list: %@", *error);
    return {};
  }
  return std::get<std::string>(std::move(text));
}

std::optional<SyncEntityHashes> sync_entityHashesByNameFromPropertyList(const std::string& text) {
  auto parsed = parsePropertyList(text);
  if (auto* error = std::get_if<Error>(&parsed)) {
    LUMEO_LOG_ERROR("Error reading property list: %@", *error);
    return std::nullopt;
  }
  const Value::Dictionary* d = std::get<Value>(parsed).asDictionary();
  if (!d) return std::nullopt;
  SyncEntityHashes out;
  for (const auto& [name, hash] : *d) {
    if (const Value::Data* data = hash.asData()) out[name] = *data;
  }
  return out;
}

std::string sync_modelHash(const ManagedObjectModel& model) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (const auto& [name, hash] : model.entityVersionHashesByName()) {
    if (!out.empty()) out += "__";
    out += name + "_";
    for (auto byte : hash) {
      out += digits[byte >> 4];
      out += digits[byte & 15];
    }
  }
  return out;
}

SyncRevisionManager::SyncRevisionManager(SyncEventStore& eventStore,
                                         std::shared_ptr<ManagedObjectContext> context)
    : eventStore_(eventStore), context_(context ? std::move(context) : eventStore.managedObjectContext()) {}

void SyncRevisionManager::perform(const std::function<void()>& block) {
  if (!context_) throw SyncException("The event store holds no event data");
  context_->performBlockAndWait(block);
}

std::vector<SyncEventPtr> SyncRevisionManager::sortStoreModificationEvents(std::vector<SyncEventPtr> events) {
  std::stable_sort(events.begin(), events.end(),
                   [](const SyncEventPtr& a, const SyncEventPtr& b) { return syncEventPrecedes(*a, *b); });
  return events;
}

std::vector<SyncEventPtr> SyncRevisionManager::eventsAfterRevisionSet(const SyncRevisionSet& reference,
                                                                      const SyncEventPtr& baseline) {
  std::vector<SyncEventPtr> out;
  std::unordered_set<const void*> seen;
  auto add = [&](std::vector<SyncEventPtr> events) {
    for (auto& e : events) {
      if (seen.insert(e.get()).second) out.push_back(std::move(e));
    }
  };
  for (const auto& revision : reference.revisions()) {
    add(SyncStoreModificationEvent::fetchNonBaselineEventsForPersistentStoreIdentifier(
        revision.persistentStoreIdentifier(), revision.revisionNumber(), *context_));
  }
  SyncRevisionSet baselineSet = baseline ? baseline->revisionSet() : SyncRevisionSet();
  for (const auto& store : SyncEventRevision::fetchPersistentStoreIdentifiers(*context_)) {
    if (reference.hasRevisionForPersistentStoreIdentifier(store)) continue;
    const SyncRevision* b = baselineSet.revisionForPersistentStoreIdentifier(store);
    add(SyncStoreModificationEvent::fetchNonBaselineEventsForPersistentStoreIdentifier(
        store, b ? b->revisionNumber() : -1, *context_));
  }
  return out;
}

SyncResult<std::vector<SyncEventPtr>> SyncRevisionManager::fetchUncommittedStoreModificationEvents() {
  std::vector<SyncEventPtr> result;
  perform([&] {
    SyncEventPtr baseline =
        SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_);
    SyncRevisionSet reference = revisionSetForLastMergeOrBaseline();
    result = sortStoreModificationEvents(eventsAfterRevisionSet(reference, baseline));
  });
  return result;
}

SyncResult<std::vector<SyncEventPtr>> SyncRevisionManager::fetchStoreModificationEventsConcurrentWithEvents(
    const std::vector<SyncEventPtr>& events) {
  if (events.empty()) return std::vector<SyncEventPtr>{};
  std::vector<SyncEventPtr> result;
  perform([&] {
    // What all the events knew, store by store. A store an event does not
    // name was unknown to it beyond the baseline: it counts as the
    // baseline's number (or -1), not as "no opinion", or events of that
    // store that the event never saw would be left out of the replay.
    SyncEventPtr baseline =
        SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_);
    SyncRevisionSet baselineSet = baseline ? baseline->revisionSet() : SyncRevisionSet();
    std::set<std::string> stores = SyncEventRevision::fetchPersistentStoreIdentifiers(*context_);
    std::vector<SyncRevisionSet> sets;
    for (const auto& e : events) {
      sets.push_back(e->revisionSet());
      for (const auto& id : sets.back().persistentStoreIdentifiers()) stores.insert(id);
    }
    SyncRevisionSet minimum;
    for (const auto& store : stores) {
      const SyncRevision* b = baselineSet.revisionForPersistentStoreIdentifier(store);
      std::int64_t unknown = b ? b->revisionNumber() : -1;
      std::int64_t lowest = std::numeric_limits<std::int64_t>::max();
      for (const auto& set : sets) {
        const SyncRevision* r = set.revisionForPersistentStoreIdentifier(store);
        lowest = std::min(lowest, r ? r->revisionNumber() : unknown);
      }
      minimum.addRevision(SyncRevision(store, lowest));
    }
    std::vector<SyncEventPtr> all = events;
    std::unordered_set<const void*> seen;
    for (const auto& e : events) seen.insert(e.get());
    for (auto& e : eventsAfterRevisionSet(minimum, baseline)) {
      if (seen.insert(e.get()).second) all.push_back(std::move(e));
    }
    result = sortStoreModificationEvents(std::move(all));
  });
  return result;
}

SyncResult<std::vector<SyncEventPtr>>
SyncRevisionManager::recursivelyFetchStoreModificationEventsConcurrentWithEvents(
    const std::vector<SyncEventPtr>& events) {
  if (events.empty()) return events;
  std::vector<SyncEventPtr> current = events;
  while (true) {
    auto next = fetchStoreModificationEventsConcurrentWithEvents(current);
    if (auto* error = std::get_if<Error>(&next)) return *error;
    auto& list = std::get<std::vector<SyncEventPtr>>(next);
    if (list.size() <= current.size()) return list;
    current = std::move(list);
  }
}

OptionalError SyncRevisionManager::checkIntegrationPrequisitesForEvents(
    const std::vector<SyncEventPtr>& events) {
  OptionalError result;
  perform([&] {
    if (!checkAllDataFilesExistForStoreModificationEvents(events)) {
      result = syncError(kSyncErrorCodeMissingDataFiles, "Data files are missing for some events");
    } else if (!checkAllDependenciesExistForStoreModificationEvents(events)) {
      result = syncError(kSyncErrorCodeMissingDependencies, "Events depend on events that are not here yet");
    } else if (!checkContinuityOfStoreModificationEvents(events)) {
      result =
          syncError(kSyncErrorCodeDiscontinuousRevisions, "The revisions of a store's events have a gap");
    } else if (!checkModelVersionsOfStoreModificationEvents(events)) {
      result =
          syncError(kSyncErrorCodeUnknownModelVersion, "Events come from a model version not known here");
    }
  });
  return result;
}

OptionalError SyncRevisionManager::checkRebasingPrerequisitesForEvents(
    const std::vector<SyncEventPtr>& events) {
  OptionalError result;
  perform([&] {
    std::vector<SyncEventPtr> withBaseline = events;
    if (auto baseline =
            SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_)) {
      withBaseline.insert(withBaseline.begin(), baseline);
    }
    if (!checkAllDataFilesExistForStoreModificationEvents(withBaseline)) {
      result = syncError(kSyncErrorCodeMissingDataFiles, "Data files are missing for some events");
    } else if (!checkAllDependenciesExistForStoreModificationEvents(events)) {
      result = syncError(kSyncErrorCodeMissingDependencies, "Events depend on events that are not here yet");
    } else if (!checkContinuityOfStoreModificationEvents(withBaseline)) {
      result =
          syncError(kSyncErrorCodeDiscontinuousRevisions, "The revisions of a store's events have a gap");
    } else if (!checkModelVersionsOfStoreModificationEvents(withBaseline)) {
      result =
          syncError(kSyncErrorCodeUnknownModelVersion, "Events come from a model version not known here");
    }
  });
  return result;
}

bool SyncRevisionManager::checkAllDataFilesExistForStoreModificationEvents(const std::vector<SyncEventPtr>&) {
  // Data files arrive after the events that name them; nothing to check yet.
  return true;
}

bool SyncRevisionManager::checkAllDependenciesExistForStoreModificationEvents(
    const std::vector<SyncEventPtr>& events) {
  bool ok = true;
  perform([&] {
    SyncEventPtr baseline =
        SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_);
    SyncRevisionSet baselineSet = baseline ? baseline->revisionSet() : SyncRevisionSet();
    for (const auto& event : events) {
      if (event == baseline) continue;
      for (const auto& other : event->revisionSetOfOtherStoresAtCreation().revisions()) {
        const SyncRevision* b =
            baselineSet.revisionForPersistentStoreIdentifier(other.persistentStoreIdentifier());
        if (b && b->revisionNumber() >= other.revisionNumber()) continue;
        if (other.revisionNumber() < 0) continue;
        if (!SyncStoreModificationEvent::fetchNonBaselineEventForPersistentStoreIdentifier(
                other.persistentStoreIdentifier(), other.revisionNumber(), *context_)) {
          ok = false;
          return;
        }
      }
    }
  });
  return ok;
}

bool SyncRevisionManager::checkContinuityOfStoreModificationEvents(const std::vector<SyncEventPtr>& events) {
  bool ok = true;
  perform([&] {
    std::map<std::string, std::vector<std::int64_t>> numbersByStore;
    for (const auto& event : events) {
      // Numbers outside this range come from a damaged or forged event.
      if (event->globalCount() > kSyncMaximumRevisionNumber || event->globalCount() < -1) ok = false;
      for (const auto& r : event->revisionSet().revisions()) {
        if (r.revisionNumber() > kSyncMaximumRevisionNumber || r.revisionNumber() < -1) ok = false;
      }
      int type = event->type();
      if (type == kSyncEventTypeBaseline || type == kSyncEventTypeIncomplete) continue;
      auto own = event->eventRevision();
      if (!own) continue;
      numbersByStore[own->persistentStoreIdentifier()].push_back(own->revisionNumber());
    }
    for (auto& [store, numbers] : numbersByStore) {
      std::sort(numbers.begin(), numbers.end());
      for (std::size_t i = 1; i < numbers.size(); ++i) {
        if (numbers[i] - numbers[i - 1] > 1) ok = false;
      }
    }
  });
  return ok;
}

bool SyncRevisionManager::checkModelVersionsOfStoreModificationEvents(
    const std::vector<SyncEventPtr>& events) {
  if (models_.empty()) return true;
  std::vector<SyncEntityHashes> known;
  for (const auto& model : models_) known.push_back(model->entityVersionHashesByName());
  const ManagedObjectModel& current = *models_.back();
  bool ok = true;
  perform([&] {
    for (const auto& event : events) {
      if (auto text = event->modelVersion()) {
        if (auto hashes = sync_entityHashesByNameFromPropertyList(*text)) {
          if (std::find(known.begin(), known.end(), *hashes) == known.end()) {
            ok = false;
            return;
          }
        }
      }
      for (const auto& change : event->objectChanges()) {
        if (!current.entityNamed(change->nameOfEntity())) {
          LUMEO_LOG_ERROR("Event names an entity the model lacks: %@", change->nameOfEntity());
          ok = false;
          return;
        }
      }
    }
  });
  return ok;
}

bool SyncRevisionManager::checkThatLocalPersistentStoreHasNotBeenAbandoned() {
  auto store = eventStore_.persistentStoreIdentifier();
  if (!store) return false;
  bool notAbandoned = false;
  perform([&] {
    auto merges = SyncStoreModificationEvent::fetchStoreModificationEventsWithTypes({kSyncEventTypeMerge},
                                                                                    *store, *context_);
    auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_);
    SyncRevisionSet baselineSet = baseline ? baseline->revisionSet() : SyncRevisionSet();
    for (const auto& merge : merges) {
      if (merge->revisionSet().compare(baselineSet) == 1) {
        notAbandoned = true;
        return;
      }
    }
  });
  return notAbandoned;
}

std::int64_t SyncRevisionManager::maximumGlobalCount() {
  std::int64_t result = -1;
  perform([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setResultType(FetchRequestResultType::kDictionary);
    request.setExpressionsToFetch({{"max", "max:", "globalCount", AttributeType::kInteger64}});
    OptionalError error;
    FetchResults rows = context_->executeFetchRequest(request, error);
    if (error) throw SyncException("Failed to get global count");
    if (!rows.dictionaries().empty()) {
      auto it = rows.dictionaries().front().find("max");
      if (it != rows.dictionaries().front().end() && !it->second.isNull()) result = it->second.toInt(-1);
    }
    // Unsaved events of this context count too: two events made before a
    // save must not share a count.
    for (const auto& object : context_->insertedObjects()) {
      if (auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object)) {
        result = std::max(result, event->globalCount());
      }
    }
  });
  return result;
}

SyncRevisionSet SyncRevisionManager::revisionSetOfMostRecentEvents() {
  SyncRevisionSet result;
  perform([&] {
    FetchRequest request(kSyncEventRevisionEntity);
    request.setPredicate(Predicate::predicateWithFormat(
        "storeModificationEvent != NIL OR storeModificationEventForOtherStores.type = %@",
        int(kSyncEventTypeBaseline)));
    OptionalError error;
    FetchResults rows = context_->executeFetchRequest(request, error);
    if (error) throw SyncException("Fetch of revisions failed");
    std::map<std::string, SyncRevision> best;
    for (const auto& object : rows) {
      auto row = std::dynamic_pointer_cast<SyncEventRevision>(object);
      if (!row) continue;
      SyncRevision r = row->revision();
      auto it = best.find(r.persistentStoreIdentifier());
      if (it == best.end() || it->second.revisionNumber() < r.revisionNumber())
        best[r.persistentStoreIdentifier()] = r;
    }
    for (const auto& [store, r] : best) result.addRevision(r);
  });
  return result;
}

SyncRevisionSet SyncRevisionManager::revisionSetForLastMergeOrBaseline() {
  SyncRevisionSet result;
  auto store = eventStore_.persistentStoreIdentifier();
  perform([&] {
    if (store) {
      std::int64_t lastMerge = eventStore_.lastMergeRevisionSaved();
      if (auto merge = SyncStoreModificationEvent::fetchNonBaselineEventForPersistentStoreIdentifier(
              *store, lastMerge, *context_)) {
        result = merge->revisionSet();
        return;
      }
    }
    if (auto baseline =
            SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_)) {
      result = baseline->revisionSet();
    }
  });
  return result;
}

std::set<std::string> SyncRevisionManager::allPersistentStoreIdentifiers() {
  return revisionSetOfMostRecentEvents().persistentStoreIdentifiers();
}

}  // namespace lumeo
