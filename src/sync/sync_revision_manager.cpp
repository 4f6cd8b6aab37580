// Event order, uncommitted and concurrent events, integrity checks.
#include "sync/sync_revision_manager.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "objectgraph/sqlite_store.h"
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

// --- Event facts and the snapshot ------------------------------------------------------

SyncEventFacts SyncEventFacts::ofEvent(const SyncStoreModificationEvent& event) {
  SyncEventFacts facts;
  facts.globalCount = event.globalCount();
  facts.timestamp = event.timestamp();
  facts.type = event.type();
  facts.revisionSetOfOtherStores = event.revisionSetOfOtherStoresAtCreation();
  facts.revisionSet = facts.revisionSetOfOtherStores;
  if (auto own = event.eventRevision()) {
    facts.ownRevision = own->revision();
    facts.persistentStoreIdentifier = facts.ownRevision->persistentStoreIdentifier();
    facts.revisionSet.addRevision(*facts.ownRevision);
  }
  return facts;
}

namespace {

// The order of syncEventPrecedes, on facts read once.
bool factsPrecede(const SyncEventFacts& a, const SyncEventFacts& b) {
  if (a.globalCount != b.globalCount) return a.globalCount < b.globalCount;
  if (a.timestamp != b.timestamp) return a.timestamp < b.timestamp;
  return a.persistentStoreIdentifier < b.persistentStoreIdentifier;
}

bool isNonBaselineType(std::int16_t type) {
  return type != kSyncEventTypeBaseline && type != kSyncEventTypeIncomplete;
}

}  // namespace

namespace {

// Index of a snapshot's events by address: the merge asks it about ten
// times per event, so it is one open-addressed table of pointers and
// indexes (one cache line per look-up) rather than a node-based map.
class EventIndex {
 public:
  void reserve(std::size_t count) {
    std::size_t size = 16;
    while (size < count * 2) size *= 2;
    slots_.assign(size, Slot{});
    mask_ = size - 1;
  }
  void insert(const void* key, std::size_t index) {
    for (std::size_t at = start(key);; at = (at + 1) & mask_) {
      if (slots_[at].key == key) return;  // the first stays, as with a map
      if (!slots_[at].key) {
        slots_[at] = Slot{key, index};
        return;
      }
    }
  }
  const std::size_t* find(const void* key) const {
    if (slots_.empty()) return nullptr;
    for (std::size_t at = start(key);; at = (at + 1) & mask_) {
      if (slots_[at].key == key) return &slots_[at].index;
      if (!slots_[at].key) return nullptr;
    }
  }

 private:
  struct Slot {
    const void* key = nullptr;
    std::size_t index = 0;
  };
  std::size_t start(const void* key) const {
    // Fibonacci hashing: object addresses differ mostly in their middle bits.
    return std::size_t((reinterpret_cast<std::uintptr_t>(key) * 0x9E3779B97F4A7C15ull) >> 20) & mask_;
  }
  std::vector<Slot> slots_;
  std::size_t mask_ = 0;
};

}  // namespace

struct SyncRevisionManager::EventSnapshot {
  // Every stored event in row order, and its facts.
  std::vector<SyncEventPtr> events;
  std::vector<SyncEventFacts> facts;
  EventIndex indexOf;
  // Events that are neither baselines nor incomplete, by store, in row order.
  std::map<std::string, std::vector<std::size_t>> nonBaselineByStore;
  // Revision numbers of every save and merge event, by store, sorted.
  std::map<std::string, std::vector<std::int64_t>> saveAndMergeRevisions;
  SyncEventPtr mostRecentBaseline;
  std::set<std::string> storeIdentifiers;

  static constexpr std::size_t kNotFound = std::numeric_limits<std::size_t>::max();
  // The event's index, or kNotFound. Callers mostly walk events in row
  // order, so the event after the last one found is tried before the table.
  std::size_t find(const SyncStoreModificationEvent* event) const {
    if (cursor < events.size() && events[cursor].get() == event) return cursor++;
    const std::size_t* index = indexOf.find(event);
    if (!index) return kNotFound;
    cursor = *index + 1;
    return *index;
  }
  const SyncEventFacts* factsOf(const SyncStoreModificationEvent* event) const {
    std::size_t index = find(event);
    return index == kNotFound ? nullptr : &facts[index];
  }
  mutable std::size_t cursor = 0;
};

// A set of events met so far: a flag per snapshot event, a hash set for the
// rest.
class SyncRevisionManager::EventSeen {
 public:
  explicit EventSeen(const EventSnapshot* snapshot) : snapshot_(snapshot) {
    if (snapshot_) flags_.assign(snapshot_->events.size(), 0);
  }
  // True the first time.
  bool insert(const SyncStoreModificationEvent* event) {
    if (snapshot_) {
      std::size_t index = snapshot_->find(event);
      if (index != EventSnapshot::kNotFound) {
        if (flags_[index]) return false;
        flags_[index] = 1;
        return true;
      }
    }
    return others_.insert(event).second;
  }

 private:
  const EventSnapshot* snapshot_;
  std::vector<char> flags_;
  std::unordered_set<const void*> others_;
};

namespace {

// One row of the snapshot query, before the event object is looked up.
struct EventRow {
  ManagedObjectID id;
  std::int64_t pk = 0;
  SyncEventFacts facts;
};

// Reads every event with its own revision, the revisions of other stores
// and the store identifiers with three queries on the event store's tables,
// giving each value as the entity accessors would (the same column reader,
// the same defaults). False with no error when the context is not a plain
// one on an SQLite store.
bool readEventRows(ManagedObjectContext& context, std::vector<EventRow>& events,
                   std::set<std::string>& storeIdentifiers, OptionalError& error) {
  if (context.parentContext()) return false;
  auto coordinator = context.persistentStoreCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!store) return false;
  const ManagedObjectModel& model = store->model();
  const EntityDescription* eventEntity = model.entityNamed(kSyncStoreModificationEventEntity);
  const EntityDescription* revisionEntity = model.entityNamed(kSyncEventRevisionEntity);
  if (!eventEntity || !revisionEntity) return false;
  const AttributeDescription* globalCount = eventEntity->attributeNamed("globalCount");
  const AttributeDescription* timestamp = eventEntity->attributeNamed("timestamp");
  const AttributeDescription* type = eventEntity->attributeNamed("type");
  const RelationshipDescription* ownRevision = eventEntity->relationshipNamed("eventRevision");
  const AttributeDescription* storeIdentifier = revisionEntity->attributeNamed("persistentStoreIdentifier");
  const AttributeDescription* revisionNumber = revisionEntity->attributeNamed("revisionNumber");
  const RelationshipDescription* ofEvent = revisionEntity->relationshipNamed("storeModificationEvent");
  const RelationshipDescription* ofOtherEvent =
      revisionEntity->relationshipNamed("storeModificationEventForOtherStores");
  if (!globalCount || !timestamp || !type || !ownRevision || !storeIdentifier || !revisionNumber ||
      !ofEvent || !ofOtherEvent) {
    return false;
  }
  const std::string events_ = store->tableFor(*eventEntity);
  const std::string revisions = store->tableFor(*revisionEntity);
  auto column = [&](const std::string& alias, const PropertyDescription& property) {
    return alias + "." + store->columnFor(property);
  };
  // A revision's global count is that of the event it hangs on: its own
  // event, else the event that holds it for another store, else -1.
  const std::string revisionColumns = column("r", *storeIdentifier) + ", " + column("r", *revisionNumber) +
                                      ", a._pk, " + column("a", *globalCount) + ", b._pk, " +
                                      column("b", *globalCount);
  const std::string revisionJoins = " LEFT JOIN " + events_ + " a ON a._pk = " + column("r", *ofEvent) +
                                    " LEFT JOIN " + events_ + " b ON b._pk = " + column("r", *ofOtherEvent);
  auto revisionAt = [&](sqlite3_stmt* s, int at) {
    std::int64_t count = -1;
    if (sqlite3_column_type(s, at + 2) != SQLITE_NULL) {
      count = store->readAttributeColumn(*globalCount, s, at + 3).toInt();
    } else if (sqlite3_column_type(s, at + 4) != SQLITE_NULL) {
      count = store->readAttributeColumn(*globalCount, s, at + 5).toInt();
    }
    return SyncRevision(store->readAttributeColumn(*storeIdentifier, s, at).toString(),
                        store->readAttributeColumn(*revisionNumber, s, at + 1).toInt(-1), count);
  };

  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
  std::string eventFilter = store->entityFilter(*eventEntity, true, "t0");
  std::string text = "SELECT t0._pk, t0._ent, " + column("t0", *globalCount) + ", " +
                     column("t0", *timestamp) + ", " + column("t0", *type) + ", r._pk, " + revisionColumns +
                     " FROM " + events_ + " t0 LEFT JOIN " + revisions +
                     " r ON r._pk = " + column("t0", *ownRevision) + revisionJoins +
                     (eventFilter.empty() ? "" : " WHERE " + eventFilter) + " ORDER BY t0._pk";
  std::unordered_map<std::int64_t, std::size_t> indexOfPk;
  if (!store->query(
          text, {},
          [&](sqlite3_stmt* s) {
            EventRow row;
            row.pk = sqlite3_column_int64(s, 0);
            row.id = store->makeID(*eventEntity, sqlite3_column_int(s, 1), row.pk);
            row.facts.globalCount = store->readAttributeColumn(*globalCount, s, 2).toInt();
            row.facts.timestamp = store->readAttributeColumn(*timestamp, s, 3).toDouble();
            row.facts.type = static_cast<std::int16_t>(store->readAttributeColumn(*type, s, 4).toInt());
            if (sqlite3_column_type(s, 5) != SQLITE_NULL) {
              row.facts.ownRevision = revisionAt(s, 6);
              row.facts.persistentStoreIdentifier = row.facts.ownRevision->persistentStoreIdentifier();
            }
            indexOfPk.emplace(row.pk, events.size());
            events.push_back(std::move(row));
            return true;
          },
          error)) {
    return false;
  }
  // The revisions an event holds for other stores, in the order a to-many
  // read gives them; its own revision goes last, as in revisionSet().
  std::string revisionFilter = store->entityFilter(*revisionEntity, true, "r");
  text = "SELECT " + column("r", *ofOtherEvent) + ", " + revisionColumns + " FROM " + revisions + " r" +
         revisionJoins + " WHERE " + column("r", *ofOtherEvent) + " IS NOT NULL" +
         (revisionFilter.empty() ? "" : " AND " + revisionFilter) + " ORDER BY r._pk";
  if (!store->query(
          text, {},
          [&](sqlite3_stmt* s) {
            auto it = indexOfPk.find(sqlite3_column_int64(s, 0));
            if (it != indexOfPk.end())
              events[it->second].facts.revisionSetOfOtherStores.addRevision(revisionAt(s, 1));
            return true;
          },
          error)) {
    return false;
  }
  for (auto& row : events) {
    row.facts.revisionSet = row.facts.revisionSetOfOtherStores;
    if (row.facts.ownRevision) row.facts.revisionSet.addRevision(*row.facts.ownRevision);
  }
  text = "SELECT DISTINCT " + column("r", *storeIdentifier) + " FROM " + revisions + " r" +
         (revisionFilter.empty() ? "" : " WHERE " + revisionFilter);
  return store->query(
      text, {},
      [&](sqlite3_stmt* s) {
        Value identifier = store->readAttributeColumn(*storeIdentifier, s, 0);
        if (const std::string* string = identifier.asString()) storeIdentifiers.insert(*string);
        return true;
      },
      error);
}

}  // namespace

void SyncRevisionManager::takeEventSnapshot() {
  snapshot_.reset();
  perform([&] {
    if (context_->hasChanges()) return;
    std::vector<EventRow> rows;
    auto snapshot = std::make_shared<EventSnapshot>();
    OptionalError error;
    if (!readEventRows(*context_, rows, snapshot->storeIdentifiers, error)) {
      // Without a snapshot every call reads for itself and reports the error.
      if (error)
        LUMEO_LOG_WARNING("Could not read the events at once: %@", static_cast<const Error&>(*error));
      return;
    }
    snapshot->events.reserve(rows.size());
    snapshot->facts.reserve(rows.size());
    snapshot->indexOf.reserve(rows.size());
    std::vector<std::size_t> baselines;
    std::string store;
    std::vector<std::size_t>* nonBaseline = nullptr;
    std::vector<std::int64_t>* saveAndMerge = nullptr;
    for (auto& row : rows) {
      // A fault: the row is not read again, the facts are all the merge needs.
      auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(context_->objectWithID(row.id));
      if (!event) return;
      std::size_t index = snapshot->events.size();
      SyncEventFacts& facts = row.facts;
      snapshot->indexOf.insert(event.get(), index);
      if (facts.type == kSyncEventTypeBaseline) baselines.push_back(index);
      // Events come in runs of one store: its lists are looked up once a run.
      if (facts.ownRevision && (!nonBaseline || store != facts.persistentStoreIdentifier)) {
        store = facts.persistentStoreIdentifier;
        nonBaseline = &snapshot->nonBaselineByStore[store];
        saveAndMerge = &snapshot->saveAndMergeRevisions[store];
      }
      if (facts.ownRevision && isNonBaselineType(facts.type)) nonBaseline->push_back(index);
      if (facts.ownRevision && (facts.type == kSyncEventTypeSave || facts.type == kSyncEventTypeMerge)) {
        saveAndMerge->push_back(facts.ownRevision->revisionNumber());
      }
      snapshot->events.push_back(std::move(event));
      snapshot->facts.push_back(std::move(facts));
    }
    for (auto it = snapshot->nonBaselineByStore.begin(); it != snapshot->nonBaselineByStore.end();) {
      it = it->second.empty() ? snapshot->nonBaselineByStore.erase(it) : std::next(it);
    }
    for (auto& [name, numbers] : snapshot->saveAndMergeRevisions) std::sort(numbers.begin(), numbers.end());
    std::stable_sort(baselines.begin(), baselines.end(), [&](std::size_t a, std::size_t b) {
      return factsPrecede(snapshot->facts[a], snapshot->facts[b]);
    });
    if (!baselines.empty()) snapshot->mostRecentBaseline = snapshot->events[baselines.back()];
    snapshot_ = std::move(snapshot);
  });
}

std::size_t SyncRevisionManager::snapshotEventCount() const {
  return snapshot_ ? snapshot_->events.size() : 0;
}

void SyncRevisionManager::dropEventSnapshot() {
  snapshot_.reset();
}

const SyncEventFacts& SyncRevisionManager::factsForEvent(const SyncEventPtr& event, SyncEventFacts& scratch) {
  if (snapshot_) {
    if (const SyncEventFacts* facts = snapshot_->factsOf(event.get())) return *facts;
  }
  perform([&] { scratch = SyncEventFacts::ofEvent(*event); });
  return scratch;
}

bool SyncRevisionManager::hasNonBaselineEventForPersistentStoreIdentifier(
    const std::string& persistentStoreIdentifier, std::int64_t revisionNumber) {
  if (revisionNumber < 0) return false;
  if (snapshot_) {
    auto it = snapshot_->saveAndMergeRevisions.find(persistentStoreIdentifier);
    return it != snapshot_->saveAndMergeRevisions.end() &&
           std::binary_search(it->second.begin(), it->second.end(), revisionNumber);
  }
  bool found = false;
  perform([&] {
    found = SyncStoreModificationEvent::fetchNonBaselineEventForPersistentStoreIdentifier(
                persistentStoreIdentifier, revisionNumber, *context_) != nullptr;
  });
  return found;
}

SyncEventPtr SyncRevisionManager::mostRecentBaseline() {
  if (snapshot_) return snapshot_->mostRecentBaseline;
  return SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context_);
}

std::set<std::string> SyncRevisionManager::persistentStoreIdentifiersOfRevisions() {
  if (snapshot_) return snapshot_->storeIdentifiers;
  return SyncEventRevision::fetchPersistentStoreIdentifiers(*context_);
}

std::vector<SyncEventPtr> SyncRevisionManager::nonBaselineEventsAfterRevision(
    const std::string& persistentStoreIdentifier, std::int64_t revisionNumber) {
  if (!snapshot_) {
    return SyncStoreModificationEvent::fetchNonBaselineEventsForPersistentStoreIdentifier(
        persistentStoreIdentifier, revisionNumber, *context_);
  }
  std::vector<SyncEventPtr> out;
  auto it = snapshot_->nonBaselineByStore.find(persistentStoreIdentifier);
  if (it == snapshot_->nonBaselineByStore.end()) return out;
  for (std::size_t index : it->second) {
    if (snapshot_->facts[index].ownRevision->revisionNumber() > revisionNumber)
      out.push_back(snapshot_->events[index]);
  }
  return out;
}

// --- Order -------------------------------------------------------------------------------

std::vector<SyncEventPtr> SyncRevisionManager::sortStoreModificationEvents(std::vector<SyncEventPtr> events) {
  std::stable_sort(events.begin(), events.end(),
                   [](const SyncEventPtr& a, const SyncEventPtr& b) { return syncEventPrecedes(*a, *b); });
  return events;
}

std::vector<SyncEventPtr> SyncRevisionManager::sortedStoreModificationEvents(
    std::vector<SyncEventPtr> events) {
  if (!snapshot_) return sortStoreModificationEvents(std::move(events));
  // Each event's facts looked up once, not once per comparison.
  std::vector<SyncEventFacts> extra;
  std::vector<const SyncEventFacts*> keys(events.size(), nullptr);
  std::vector<std::size_t> missing;
  for (std::size_t i = 0; i < events.size(); ++i) {
    keys[i] = snapshot_->factsOf(events[i].get());
    if (!keys[i]) missing.push_back(i);
  }
  extra.resize(missing.size());
  for (std::size_t k = 0; k < missing.size(); ++k)
    keys[missing[k]] = &factsForEvent(events[missing[k]], extra[k]);
  std::vector<std::size_t> order(events.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return factsPrecede(*keys[a], *keys[b]); });
  std::vector<SyncEventPtr> sorted;
  sorted.reserve(events.size());
  for (std::size_t i : order) sorted.push_back(std::move(events[i]));
  return sorted;
}

std::vector<SyncEventPtr> SyncRevisionManager::eventsAfterRevisionSet(const SyncRevisionSet& reference,
                                                                      const SyncEventPtr& baseline) {
  std::vector<SyncEventPtr> out;
  EventSeen seen(snapshot_.get());
  auto add = [&](std::vector<SyncEventPtr> events) {
    for (auto& e : events) {
      if (seen.insert(e.get())) out.push_back(std::move(e));
    }
  };
  for (const auto& revision : reference) {
    add(nonBaselineEventsAfterRevision(revision.persistentStoreIdentifier(), revision.revisionNumber()));
  }
  SyncEventFacts scratch;
  SyncRevisionSet baselineSet = baseline ? factsForEvent(baseline, scratch).revisionSet : SyncRevisionSet();
  for (const auto& store : persistentStoreIdentifiersOfRevisions()) {
    if (reference.hasRevisionForPersistentStoreIdentifier(store)) continue;
    const SyncRevision* b = baselineSet.revisionForPersistentStoreIdentifier(store);
    add(nonBaselineEventsAfterRevision(store, b ? b->revisionNumber() : -1));
  }
  return out;
}

SyncResult<std::vector<SyncEventPtr>> SyncRevisionManager::fetchUncommittedStoreModificationEvents() {
  std::vector<SyncEventPtr> result;
  perform([&] {
    SyncEventPtr baseline = mostRecentBaseline();
    SyncRevisionSet reference = revisionSetForLastMergeOrBaseline();
    result = sortedStoreModificationEvents(eventsAfterRevisionSet(reference, baseline));
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
    SyncEventPtr baseline = mostRecentBaseline();
    SyncEventFacts scratch;
    SyncRevisionSet baselineSet = baseline ? factsForEvent(baseline, scratch).revisionSet : SyncRevisionSet();
    std::set<std::string> stores = persistentStoreIdentifiersOfRevisions();
    // Per store, the lowest number any event names, and how many events
    // name it at all: an event silent about a store counts as `unknown`.
    std::map<std::string, std::pair<std::int64_t, std::size_t>> lowestNamed;
    for (const auto& e : events) {
      for (const auto& revision : factsForEvent(e, scratch).revisionSet) {
        auto [it, fresh] = lowestNamed.try_emplace(revision.persistentStoreIdentifier(),
                                                   revision.revisionNumber(), std::size_t{0});
        if (!fresh) it->second.first = std::min(it->second.first, revision.revisionNumber());
        ++it->second.second;
      }
    }
    for (const auto& [store, named] : lowestNamed) stores.insert(store);
    SyncRevisionSet minimum;
    for (const auto& store : stores) {
      const SyncRevision* b = baselineSet.revisionForPersistentStoreIdentifier(store);
      std::int64_t unknown = b ? b->revisionNumber() : -1;
      std::int64_t lowest = std::numeric_limits<std::int64_t>::max();
      auto named = lowestNamed.find(store);
      if (named != lowestNamed.end()) lowest = named->second.first;
      if (named == lowestNamed.end() || named->second.second < events.size())
        lowest = std::min(lowest, unknown);
      minimum.addRevision(SyncRevision(store, lowest));
    }
    std::vector<SyncEventPtr> all = events;
    EventSeen seen(snapshot_.get());
    for (const auto& e : events) seen.insert(e.get());
    for (auto& e : eventsAfterRevisionSet(minimum, baseline)) {
      if (seen.insert(e.get())) all.push_back(std::move(e));
    }
    result = sortedStoreModificationEvents(std::move(all));
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
    SyncEventPtr baseline = mostRecentBaseline();
    SyncEventFacts scratch;
    SyncRevisionSet baselineSet = baseline ? factsForEvent(baseline, scratch).revisionSet : SyncRevisionSet();
    for (const auto& event : events) {
      if (event == baseline) continue;
      for (const auto& other : factsForEvent(event, scratch).revisionSetOfOtherStores) {
        const SyncRevision* b =
            baselineSet.revisionForPersistentStoreIdentifier(other.persistentStoreIdentifier());
        if (b && b->revisionNumber() >= other.revisionNumber()) continue;
        if (other.revisionNumber() < 0) continue;
        if (!hasNonBaselineEventForPersistentStoreIdentifier(other.persistentStoreIdentifier(),
                                                             other.revisionNumber())) {
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
    std::vector<std::int64_t>* numbers = nullptr;
    std::string numbersStore;
    SyncEventFacts scratch;
    for (const auto& event : events) {
      const SyncEventFacts& facts = factsForEvent(event, scratch);
      // Numbers outside this range come from a damaged or forged event.
      if (facts.globalCount > kSyncMaximumRevisionNumber || facts.globalCount < -1) ok = false;
      for (const auto& r : facts.revisionSet) {
        if (r.revisionNumber() > kSyncMaximumRevisionNumber || r.revisionNumber() < -1) ok = false;
      }
      if (!isNonBaselineType(facts.type) || !facts.ownRevision) continue;
      // Runs of one store's events are the rule: look its list up once per run.
      if (!numbers || numbersStore != facts.persistentStoreIdentifier) {
        numbersStore = facts.persistentStoreIdentifier;
        numbers = &numbersByStore[numbersStore];
      }
      numbers->push_back(facts.ownRevision->revisionNumber());
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
