// Replaying events into the journal: choosing them, applying them in order,
// repairing, committing and recording the merge event.
#include "sync/sync_event_integrator.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <unordered_map>
#include <unordered_set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "objectgraph/sqlite_store.h"
#include "platform/log.h"
#include "store/mood_record.h"
#include "sync/sync_error.h"
#include "sync/sync_event_builder.h"
#include "sync/sync_event_store.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

// Fetches with an IN list go in slices of this many, well under SQLite's
// limit on bound values.
constexpr std::size_t kInListSlice = 500;

fs::path standardised(const fs::path& path) {
  std::error_code ec;
  fs::path canonical = fs::weakly_canonical(path, ec);
  return ec ? path.lexically_normal() : canonical;
}

std::string objectKey(const std::string& entity, const std::string& globalIdentifier) {
  std::string key;
  key.reserve(entity.size() + globalIdentifier.size() + 1);
  key += entity;
  key += '\x1f';
  key += globalIdentifier;
  return key;
}

template <class T, class F>
void inSlices(const std::vector<T>& items, F&& f) {
  for (std::size_t start = 0; start < items.size(); start += kInListSlice) {
    std::size_t end = std::min(items.size(), start + kInListSlice);
    f(std::vector<T>(items.begin() + std::ptrdiff_t(start), items.begin() + std::ptrdiff_t(end)));
  }
}

bool isAlive(const ManagedObjectPtr& object) {
  return object && object->managedObjectContext() && !object->isDeleted();
}

// Writes a value only when it differs, so that replaying an event twice
// leaves an object clean.
void setValueIfChanged(ManagedObject& object, const std::string& key, const Value& value) {
  if (object.valueForKey(key) == value) return;
  object.setValueForKey(key, value);
}

}  // namespace

// A global identifier row as the merge uses it.
struct IdentifierRow {
  ManagedObjectID id;
  std::string entity;  // its nameOfEntity
  std::string globalIdentifier;
  std::optional<std::string> storeURI;
};

// One change as the merge uses it, decoded once.
struct IntegratedChange {
  std::int16_t type = 0;
  std::string entity;
  std::string globalIdentifier;
  ManagedObjectID row;  // of its global identifier
  std::optional<std::vector<SyncPropertyChangeValue>> values;
};

struct SyncEventIntegrator::MergeState {
  bool full = false;
  std::vector<SyncEventPtr> events;
  std::vector<std::vector<IntegratedChange>> changesByEvent;
  // Every object the merge knows, by entity and global identifier.
  std::unordered_map<std::string, ManagedObjectPtr> objects;
  // New objects and the rows that will point at them.
  std::vector<std::pair<ManagedObjectPtr, ManagedObjectID>> inserted;
  std::map<std::string, std::unordered_set<const ManagedObject*>> vouchedByEntity;
  SyncRevisionSet integrated;
};

SyncEventIntegrator::SyncEventIntegrator(fs::path storeURL,
                                         std::shared_ptr<ManagedObjectModel> managedObjectModel,
                                         std::shared_ptr<SyncEventStore> eventStore)
    : storeURL_(standardised(storeURL)),
      model_(std::move(managedObjectModel)),
      eventStore_(std::move(eventStore)),
      queue_(DispatchQueue::makeSerial("com.quorvane.confluence.eventintegrator")) {}

SyncEventIntegrator::~SyncEventIntegrator() {
  stopMonitoringSaves();
}

std::shared_ptr<ManagedObjectContext> SyncEventIntegrator::managedObjectContext() const {
  std::lock_guard lock(mutex_);
  return context_;
}

// --- Saves during a merge ------------------------------------------------------------

void SyncEventIntegrator::startMonitoringSaves() {
  stopMonitoringSaves();
  monitoring_ = true;
  auto& center = NotificationCenter::defaultCenter();
  willSaveObserver_ = ScopedObserver(center, kManagedObjectContextWillSaveNotification, nullptr,
                                     [this](const Notification& n) { contextSaving(n); });
  didSaveObserver_ = ScopedObserver(center, kManagedObjectContextDidSaveNotification, nullptr,
                                    [this](const Notification& n) { contextSaving(n); });
}

void SyncEventIntegrator::stopMonitoringSaves() {
  willSaveObserver_.reset();
  didSaveObserver_.reset();
  monitoring_ = false;
  saveOccurredDuringMerge_ = false;
}

void SyncEventIntegrator::contextSaving(const Notification& notification) {
  auto info = ContextSaveInfo::fromNotification(notification);
  if (!info || !info->context) return;
  if (info->context == managedObjectContext().get()) return;
  if (info->isChildSave || info->context->parentContext()) return;
  auto coordinator = info->context->persistentStoreCoordinator();
  if (!coordinator) return;
  for (PersistentStore* store : coordinator->persistentStores()) {
    if (!store->URL().empty() && standardised(store->URL()) == storeURL_) {
      saveOccurredDuringMerge_ = true;
      return;
    }
  }
}

// --- A merge --------------------------------------------------------------------------

void SyncEventIntegrator::mergeEventsWithCompletion(std::function<void(OptionalError)> completion) {
  auto self = shared_from_this();
  queue_->async([self, completion = std::move(completion)] {
    SyncMergeResult result = self->runMerge();
    if (completion) DispatchQueue::main().async([completion, error = result.error] { completion(error); });
  });
}

SyncMergeResult SyncEventIntegrator::mergeEvents() {
  SyncMergeResult result;
  queue_->sync([&] { result = runMerge(); });
  return result;
}

SyncMergeResult SyncEventIntegrator::fail(OptionalError error, bool succeeded) {
  auto eventContext = eventStore_->managedObjectContext();
  std::optional<std::string> identifier;
  {
    std::lock_guard lock(mutex_);
    identifier = newEventUniqueId_;
  }
  if (eventContext) {
    eventContext->performBlockAndWait([&] {
      // Nothing of a failed merge may stay behind: not the partial merge
      // event, and not the rows that pointed at objects that were never saved.
      eventContext->rollback();
      if (!identifier) return;
      if (auto event = SyncStoreModificationEvent::fetchStoreModificationEventWithUniqueIdentifier(
              *identifier, *eventContext)) {
        LUMEO_DROP_ERROR(eventContext->deleteObject(event));
        if (OptionalError saveError = eventContext->save()) {
          LUMEO_LOG_ERROR(
              "Could not save after deleting partially merged event from a failed merge. Will reset context: "
              "%@",
              static_cast<const Error&>(*saveError));
          eventContext->reset();
        }
      }
    });
  }
  if (identifier) eventStore_->deregisterIncompleteEventIdentifier(*identifier);
  std::lock_guard lock(mutex_);
  newEventUniqueId_.reset();
  context_.reset();
  saveInfo_.reset();
  return SyncMergeResult{succeeded, std::move(error)};
}

SyncMergeResult SyncEventIntegrator::runMerge() {
  {
    std::lock_guard lock(mutex_);
    newEventUniqueId_.reset();
  }
  if (!eventStore_->containsEventData()) {
    return fail(eventStore_->setupError()
                    ? eventStore_->setupError()
                    : OptionalError(syncError(103, "Attempt to merge a store that is not leeched.")));
  }
  bool monitoring = monitoring_;
  if (!monitoring) startMonitoringSaves();
  struct StopMonitoring {
    SyncEventIntegrator* self;
    bool stop;
    ~StopMonitoring() {
      if (stop) self->stopMonitoringSaves();
    }
  } stopAfter{this, !monitoring};

  auto coordinator = std::make_shared<PersistentStoreCoordinator>(model_);
  OptionalError openError;
  if (!coordinator->addPersistentStoreWithType(kSQLiteStoreType, storeURL_, persistentStoreOptions_,
                                               openError)) {
    return fail(openError ? openError : OptionalError(syncError(209, "The store file could not be opened")));
  }
  // The merge context is used on the integrator's queue alone.
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  context->setPersistentStoreCoordinator(coordinator);
  context->setName("SyncEventIntegrator");
  {
    std::lock_guard lock(mutex_);
    context_ = context;
  }

  try {
    MergeState state;
    OptionalError integrateError;
    eventStore_->performBlockAndWait([&] { integrateError = integrate(state); });
    if (integrateError) return fail(integrateError);
    if (!context->hasChanges()) {
      std::lock_guard lock(mutex_);
      context_.reset();
      return SyncMergeResult{};
    }

    std::string identifier = globallyUniqueString();
    {
      std::lock_guard lock(mutex_);
      newEventUniqueId_ = identifier;
    }
    eventStore_->registerIncompleteEventIdentifier(identifier, false);
    SyncEventBuilder builder(*eventStore_);
    builder.setEnsemble(ensemble_);
    SyncRevision revision = builder.makeNewEventOfType(kSyncEventTypeMerge, identifier);
    // The merge event records what it merged, so the next merge starts
    // after it rather than replaying the same events again.
    builder.performBlockAndWait([&] {
      SyncRevisionSet others = builder.event()->revisionSetOfOtherStoresAtCreation();
      others = others.revisionSetByTakingStoreWiseMaximumWithRevisionSet(state.integrated);
      others.removeRevisionForPersistentStoreIdentifier(revision.persistentStoreIdentifier());
      builder.event()->setRevisionSetOfOtherStoresAtCreation(others);
    });

    if (OptionalError error = repairWithMergeEventBuilder(builder)) return fail(error);
    SyncMergeResult committed = commitWithMergeEventBuilder(builder);
    if (!committed.succeeded) return fail(committed.error);

    OptionalError finalizeError;
    auto eventContext = eventStore_->managedObjectContext();
    eventContext->performBlockAndWait([&] {
      FetchRequest request(kSyncStoreModificationEventEntity);
      request.setPredicate(Predicate::predicateWithFormat(
          "eventRevision.persistentStoreIdentifier = %@ && eventRevision.revisionNumber = %@ && type != %@",
          revision.persistentStoreIdentifier(), static_cast<long long>(revision.revisionNumber()),
          int(kSyncEventTypeBaseline)));
      OptionalError countError;
      std::size_t count = eventContext->countForFetchRequest(request, countError);
      if (countError)
        LUMEO_LOG_ERROR("Could not get count of revisions: %@", static_cast<const Error&>(*countError));
      if (!countError && count == 1) {
        builder.finalizeNewEvent();
        finalizeError = eventContext->save();
      } else {
        finalizeError =
            syncError(kSyncErrorCodeSaveOccurredDuringMerge, "A second event has the same revision");
      }
      eventContext->reset();
    });
    if (finalizeError) return fail(finalizeError);

    if (ensemble_ && ensemble_->didSaveBlock)
      context->performBlockAndWait([&] { ensemble_->didSaveBlock(*context); });
    eventStore_->deregisterIncompleteEventIdentifier(identifier);
    std::lock_guard lock(mutex_);
    newEventUniqueId_.reset();
    context_.reset();
    saveInfo_.reset();
    return SyncMergeResult{};
  } catch (const SyncException& e) {
    return fail(errorForSyncException(e.reason()));
  } catch (const std::exception& e) {
    return fail(errorForSyncException(e.what()));
  }
}

bool SyncEventIntegrator::needsFullIntegration(SyncRevisionManager& revisionManager) {
  std::optional<std::string> current = eventStore_->currentBaselineIdentifier();
  std::optional<std::string> used = eventStore_->identifierOfBaselineUsedToConstructStore();
  if (!current) return used.has_value();
  if (used != current) return true;
  bool abandoned = !revisionManager.checkThatLocalPersistentStoreHasNotBeenAbandoned();
  return abandoned;
}

OptionalError SyncEventIntegrator::checkPredecessorsOfStoreModificationEvents(
    SyncRevisionManager& revisionManager, const std::vector<SyncEventPtr>& events) {
  // A store's run of events must follow on from what is here: its first
  // event's predecessor is present, or folded into the baseline. Events that
  // arrive out of order wait until the gap is filled.
  auto context = eventStore_->managedObjectContext();
  auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
  SyncRevisionSet baselineSet =
      baseline ? revisionManager.factsForEvent(baseline).revisionSet : SyncRevisionSet();
  std::map<std::string, std::int64_t> firstByStore;
  for (const auto& event : events) {
    const SyncEventFacts facts = revisionManager.factsForEvent(event);
    int type = facts.type;
    if (type == kSyncEventTypeBaseline || type == kSyncEventTypeIncomplete) continue;
    if (!facts.ownRevision) continue;
    std::int64_t number = facts.ownRevision->revisionNumber();
    auto [it, fresh] = firstByStore.emplace(facts.persistentStoreIdentifier, number);
    if (!fresh) it->second = std::min(it->second, number);
  }
  for (const auto& [store, first] : firstByStore) {
    if (first <= 0) continue;
    const SyncRevision* b = baselineSet.revisionForPersistentStoreIdentifier(store);
    if (b && b->revisionNumber() >= first - 1) continue;
    if (revisionManager.hasNonBaselineEventForPersistentStoreIdentifier(store, first - 1)) continue;
    return syncError(kSyncErrorCodeDiscontinuousRevisions, "Events of store " + store + " before revision " +
                                                               std::to_string(first) + " are missing");
  }
  return std::nullopt;
}

// --- Choosing and applying events ---------------------------------------------------------

namespace {

class Applier {
 public:
  Applier(ManagedObjectContext& context, SyncEventStore& eventStore,
          std::unordered_map<std::string, ManagedObjectPtr>& objects)
      : context_(context), eventStore_(eventStore), objects_(objects) {}

  // An object inserted by this merge and deleted again leaves the context
  // without looking deleted: the merge keeps track of it itself.
  bool isLive(const ManagedObjectPtr& object) const {
    return isAlive(object) && !deleted_.count(object.get());
  }

  ManagedObjectPtr lookup(const std::string& entity, const std::string& identifier) const {
    auto it = objects_.find(objectKey(entity, identifier));
    if (it == objects_.end() || !isLive(it->second)) return nullptr;
    return it->second;
  }

  void apply(const IntegratedChange& change) {
    ManagedObjectPtr object = lookup(change.entity, change.globalIdentifier);
    if (!object || !change.values) return;
    const EntityDescription& entity = object->entity();
    // Attributes, then to-one, to-many and ordered to-many relationships.
    for (int type = 0; type <= 3; ++type) {
      for (const auto& value : *change.values) {
        if (value.type != type) continue;
        switch (type) {
          case kSyncPropertyChangeTypeAttribute:
            applyAttribute(*object, entity, value);
            break;
          case kSyncPropertyChangeTypeToOneRelationship:
            applyToOne(*object, entity, value);
            break;
          default:
            applyToMany(*object, entity, value, type == kSyncPropertyChangeTypeOrderedToManyRelationship);
            break;
        }
      }
    }
  }

  OptionalError nullifyRelationshipsAndDeleteObject(const ManagedObjectPtr& object) {
    if (!isLive(object)) return std::nullopt;
    for (const RelationshipDescription* relationship : object->entity().relationships()) {
      if (relationship->isToMany()) {
        if (object->countForKey(relationship->name()) > 0)
          object->removeAllObjectsForKey(relationship->name());
      } else if (object->objectIDForKey(relationship->name())) {
        object->setObjectForKey(relationship->name(), nullptr);
      }
    }
    deleted_.insert(object.get());
    return context_.deleteObject(object);
  }

 private:
  void applyAttribute(ManagedObject& object, const EntityDescription& entity,
                      const SyncPropertyChangeValue& value) {
    const AttributeDescription* attribute = entity.attributeNamed(value.propertyName);
    if (!attribute) {
      // "photoData" among them: photos reach the image store as files.
      LUMEO_LOG_VERBOSE("Attribute from change value not in model: %@", value.propertyName);
      return;
    }
    setValueIfChanged(object, value.propertyName,
                      value.attributeValueForAttributeDescription(*attribute, &eventStore_));
  }

  void applyToOne(ManagedObject& object, const EntityDescription& entity,
                  const SyncPropertyChangeValue& value) {
    const RelationshipDescription* relationship = entity.relationshipNamed(value.propertyName);
    if (!relationship || relationship->isToMany()) {
      LUMEO_LOG_WARNING(
          "Could not find relationship in entity, or found a to-many relationship for a to-one property "
          "change. "
          "Skipping: %@ %@",
          value.propertyName, entity.name());
      return;
    }
    std::optional<ManagedObjectID> present = object.objectIDForKey(value.propertyName);
    if (!value.relatedIdentifier) {
      if (present) object.setObjectForKey(value.propertyName, nullptr);
      return;
    }
    ManagedObjectPtr target = lookup(relationship->destinationEntityName(), *value.relatedIdentifier);
    if (!target) {
      LUMEO_LOG_WARNING(
          "Could not find object for identifier while setting to-one relationship. Skipping: %@",
          *value.relatedIdentifier);
      return;
    }
    if (present && *present == target->objectID()) return;
    object.setObjectForKey(value.propertyName, target);
  }

  void applyToMany(ManagedObject& object, const EntityDescription& entity,
                   const SyncPropertyChangeValue& value, bool ordered) {
    const RelationshipDescription* relationship = entity.relationshipNamed(value.propertyName);
    if (!relationship || !relationship->isToMany() || relationship->isOrdered() != ordered) {
      LUMEO_LOG_WARNING(
          "Could not find relationship in entity, or found a to-one relationship for a to-many property "
          "change. "
          "Skipping: %@ %@",
          value.propertyName, entity.name());
      return;
    }
    const std::string& destination = relationship->destinationEntityName();
    std::vector<ManagedObjectID> before = object.objectIDsForRelationshipNamed(value.propertyName);
    std::unordered_set<ManagedObjectID> members(before.begin(), before.end());
    // Ordered: every present member keeps its index unless an entry moves it.
    std::unordered_map<ManagedObjectID, std::int64_t> indexes;
    if (ordered) {
      for (std::size_t i = 0; i < before.size(); ++i) indexes[before[i]] = std::int64_t(i);
    }
    if (value.addedIdentifiers) {
      for (const auto& identifier : *value.addedIdentifiers) {
        ManagedObjectPtr target = lookup(destination, identifier);
        if (!target) {
          LUMEO_LOG_WARNING(
              "Could not find object with identifier while adding to relationship. Skipping: %@", identifier);
          continue;
        }
        if (members.insert(target->objectID()).second) {
          object.addObjectForKey(value.propertyName, target);
          if (ordered) indexes[target->objectID()] = std::int64_t(indexes.size());
        }
      }
    }
    if (value.removedIdentifiers) {
      for (const auto& identifier : *value.removedIdentifiers) {
        ManagedObjectPtr target = lookup(destination, identifier);
        if (target && members.erase(target->objectID())) {
          object.removeObjectForKey(value.propertyName, target);
          indexes.erase(target->objectID());
        }
      }
    }
    if (!ordered || !value.movedIdentifiersByIndex) return;
    std::unordered_map<ManagedObjectID, std::string> identifierOf;
    for (const auto& [index, identifier] : *value.movedIdentifiersByIndex) {
      if (ManagedObjectPtr target = lookup(destination, identifier)) {
        if (indexes.count(target->objectID())) indexes[target->objectID()] = index;
        identifierOf[target->objectID()] = identifier;
      }
    }
    std::vector<ManagedObjectPtr> list = object.objectsForKey(value.propertyName);
    std::stable_sort(list.begin(), list.end(), [&](const ManagedObjectPtr& a, const ManagedObjectPtr& b) {
      std::int64_t ia = indexes[a->objectID()];
      std::int64_t ib = indexes[b->objectID()];
      if (ia != ib) return ia < ib;
      return identifierOf[a->objectID()] < identifierOf[b->objectID()];
    });
    if (list != object.objectsForKey(value.propertyName)) object.setObjectsForKey(value.propertyName, list);
  }

  ManagedObjectContext& context_;
  SyncEventStore& eventStore_;
  std::unordered_map<std::string, ManagedObjectPtr>& objects_;
  std::unordered_set<const ManagedObject*> deleted_;
};

}  // namespace

namespace {

IdentifierRow identifierRowOf(const SyncGlobalIdentifier& row) {
  return IdentifierRow{row.objectID(), row.nameOfEntity(), row.globalIdentifier(), row.storeURI()};
}

using ChangeSink = std::function<void(std::size_t, IntegratedChange, IdentifierRow)>;

// The changes of the events with their global identifier rows, by plain
// queries on the event store's tables in slices of events, each value as
// the entity accessors would give it. False when the context is not a
// plain one on an SQLite store; throws SyncException when a read fails.
bool readChangeRows(ManagedObjectContext& context, const std::vector<SyncEventPtr>& events,
                    const ChangeSink& sink) {
  if (context.parentContext()) return false;
  auto coordinator = context.persistentStoreCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!store) return false;
  const ManagedObjectModel& model = store->model();
  const EntityDescription* changeEntity = model.entityNamed(kSyncObjectChangeEntity);
  const EntityDescription* globalEntity = model.entityNamed(kSyncGlobalIdentifierEntity);
  if (!changeEntity || !globalEntity) return false;
  const RelationshipDescription* ofEvent = changeEntity->relationshipNamed("storeModificationEvent");
  const RelationshipDescription* ofGlobal = changeEntity->relationshipNamed("globalIdentifier");
  const AttributeDescription* type = changeEntity->attributeNamed("type");
  const AttributeDescription* entity = changeEntity->attributeNamed("nameOfEntity");
  const AttributeDescription* values = changeEntity->attributeNamed("propertyChangeValues");
  const AttributeDescription* identifier = globalEntity->attributeNamed("globalIdentifier");
  const AttributeDescription* rowEntity = globalEntity->attributeNamed("nameOfEntity");
  const AttributeDescription* storeURI = globalEntity->attributeNamed("storeURI");
  if (!ofEvent || !ofGlobal || !type || !entity || !values || !identifier || !rowEntity || !storeURI)
    return false;
  // Archives in the store's own value coding are read straight from their
  // bytes; with a transformer, through the store's column reader.
  const bool coded =
      values->attributeType() == AttributeType::kTransformable && values->valueTransformerName().empty();
  std::unordered_map<std::int64_t, std::size_t> eventIndex;
  for (std::size_t i = 0; i < events.size(); ++i) {
    const ManagedObjectID& id = events[i]->objectID();
    if (id.isTemporaryID()) return false;
    eventIndex.emplace(id.primaryKey(), i);
  }
  auto column = [&](const std::string& alias, const PropertyDescription& property) {
    return alias + "." + store->columnFor(property);
  };
  std::string filter = store->entityFilter(*changeEntity, true, "t0");
  const std::string text =
      "SELECT " + column("t0", *ofEvent) + ", " + column("t0", *type) + ", " + column("t0", *entity) + ", " +
      column("t0", *values) + ", g._pk, g._ent, " + column("g", *identifier) + ", " +
      column("g", *rowEntity) + ", " + column("g", *storeURI) + " FROM " + store->tableFor(*changeEntity) +
      " t0 LEFT JOIN " + store->tableFor(*globalEntity) + " g ON g._pk = " + column("t0", *ofGlobal) +
      " WHERE " + column("t0", *ofEvent) + " IN (SELECT value FROM json_each(?))" +
      (filter.empty() ? "" : " AND " + filter) + " ORDER BY t0._pk";
  struct Row {
    std::size_t event = 0;
    IntegratedChange change;
    Value archive;
    bool hasArchive = false;
    std::vector<std::uint8_t> codedArchive;
    bool hasRow = false;
    IdentifierRow row;
  };
  inSlices(events, [&](const std::vector<SyncEventPtr>& slice) {
    std::string keys = "[";
    for (const auto& event : slice) {
      if (keys.size() > 1) keys += ',';
      keys += std::to_string(event->objectID().primaryKey());
    }
    keys += ']';
    // Rows are copied out under the coordinator's lock; decoding, which may
    // throw, happens after the statement is done with.
    std::vector<Row> rows;
    OptionalError error;
    {
      std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
      bool ok = store->query(
          text, {Value(keys)},
          [&](sqlite3_stmt* s) {
            auto at = eventIndex.find(sqlite3_column_int64(s, 0));
            if (at == eventIndex.end()) return true;
            Row r;
            r.event = at->second;
            r.change.type = static_cast<std::int16_t>(store->readAttributeColumn(*type, s, 1).toInt());
            r.change.entity = store->readAttributeColumn(*entity, s, 2).toString();
            if (coded) {
              sqlite3_value* blob = sqlite3_column_value(s, 3);
              r.hasArchive = sqlite3_value_type(blob) != SQLITE_NULL;
              if (r.hasArchive) {
                const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_value_blob(blob));
                r.codedArchive.assign(bytes, bytes + sqlite3_value_bytes(blob));
              }
            } else {
              r.archive = store->readAttributeColumn(*values, s, 3);
            }
            if (sqlite3_column_type(s, 4) != SQLITE_NULL) {
              r.hasRow = true;
              r.row.id = store->makeID(*globalEntity, sqlite3_column_int(s, 5), sqlite3_column_int64(s, 4));
              r.row.globalIdentifier = store->readAttributeColumn(*identifier, s, 6).toString();
              r.row.entity = store->readAttributeColumn(*rowEntity, s, 7).toString();
              Value uri = store->readAttributeColumn(*storeURI, s, 8);
              if (const std::string* u = uri.asString()) r.row.storeURI = *u;
            }
            rows.push_back(std::move(r));
            return true;
          },
          error);
      if (!ok) throw SyncException("Could not fetch object changes: " + (error ? error->toString() : ""));
    }
    for (auto& r : rows) {
      if (!r.hasRow) {
        LUMEO_LOG_WARNING("Object change without a global identifier. Skipping.");
        continue;
      }
      r.change.globalIdentifier = r.row.globalIdentifier;
      r.change.row = r.row.id;
      if (!coded) {
        r.change.values = SyncPropertyChangeValue::unarchiveArray(std::move(r.archive));
      } else if (r.hasArchive) {
        r.change.values = SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(r.codedArchive.data(),
                                                                                r.codedArchive.size());
      }
      sink(r.event, std::move(r.change), std::move(r.row));
    }
  });
  return true;
}

// The same through the object graph, which also sees unsaved changes of
// the event store's context.
void readChangeObjects(ManagedObjectContext& context, const std::vector<SyncEventPtr>& events,
                       const ChangeSink& sink) {
  std::unordered_map<ManagedObjectID, std::size_t> eventIndex;
  for (std::size_t i = 0; i < events.size(); ++i) eventIndex[events[i]->objectID()] = i;
  inSlices(events, [&](const std::vector<SyncEventPtr>& slice) {
    FetchRequest request(kSyncObjectChangeEntity);
    request.setPredicate(Predicate::predicateWithFormat("storeModificationEvent IN %@", slice));
    request.setRelationshipKeyPathsForPrefetching({"globalIdentifier"});
    OptionalError error;
    FetchResults results = context.executeFetchRequest(request, error);
    if (error) throw SyncException("Could not fetch object changes: " + error->toString());
    for (const auto& object : results) {
      auto change = std::dynamic_pointer_cast<SyncObjectChange>(object);
      if (!change) continue;
      auto eventID = change->objectIDForKey("storeModificationEvent");
      if (!eventID) continue;
      auto at = eventIndex.find(*eventID);
      if (at == eventIndex.end()) continue;
      IntegratedChange c;
      c.type = change->type();
      c.entity = change->nameOfEntity();
      auto row = change->globalIdentifier();
      if (!row) {
        LUMEO_LOG_WARNING("Object change without a global identifier. Skipping.");
        continue;
      }
      c.globalIdentifier = row->globalIdentifier();
      c.row = row->objectID();
      c.values = change->propertyChangeValues();
      sink(at->second, std::move(c), identifierRowOf(*row));
    }
  });
}

}  // namespace

OptionalError SyncEventIntegrator::integrate(MergeState& state) {
  LUMEO_LOG_VERBOSE("Integrating new events into main context");
  auto eventContext = eventStore_->managedObjectContext();
  ManagedObjectContext& mergeContext = *managedObjectContext();
  SyncRevisionManager revisionManager(*eventStore_, eventContext);
  if (ensemble_) revisionManager.setModelVersions(ensemble_->allModelVersions());
  state.full = needsFullIntegration(revisionManager);
  // Choosing, ordering and checking read every event's revisions many
  // times: read them once. The event store does not change until the
  // merge event is made, after this.
  revisionManager.takeEventSnapshot();

  std::vector<SyncEventPtr> events;
  if (state.full) {
    LUMEO_LOG_VERBOSE("Baseline has changed. Will carry out full integration of the persistent store.");
    events = SyncStoreModificationEvent::fetchNonBaselineEvents(*eventContext);
    if (auto baseline =
            SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*eventContext)) {
      events.insert(events.begin(), baseline);
    }
  } else {
    auto uncommitted = revisionManager.fetchUncommittedStoreModificationEvents();
    if (auto* error = std::get_if<Error>(&uncommitted)) return *error;
    events = std::get<std::vector<SyncEventPtr>>(std::move(uncommitted));
    if (events.empty()) return std::nullopt;
    auto concurrent = revisionManager.recursivelyFetchStoreModificationEventsConcurrentWithEvents(events);
    if (auto* error = std::get_if<Error>(&concurrent)) return *error;
    events = std::get<std::vector<SyncEventPtr>>(std::move(concurrent));
  }
  if (events.empty()) return std::nullopt;

  if (OptionalError error = revisionManager.checkIntegrationPrequisitesForEvents(events)) return error;
  if (OptionalError error = checkPredecessorsOfStoreModificationEvents(revisionManager, events)) return error;

  std::string store = eventStore_->persistentStoreIdentifier().value_or("");
  if (!state.full && std::all_of(events.begin(), events.end(), [&](const SyncEventPtr& e) {
        return revisionManager.factsForEvent(e).persistentStoreIdentifier == store;
      })) {
    return std::nullopt;
  }

  // Every change of every event, decoded once and grouped by event.
  state.changesByEvent.assign(events.size(), {});
  std::set<std::string> relatedStrings;
  std::unordered_map<std::string, IdentifierRow> rowsByKey;
  std::size_t changeCount = 0;
  auto addChange = [&](std::size_t eventIndex, IntegratedChange c, IdentifierRow row) {
    if (c.type != kSyncObjectChangeTypeDelete && !c.values) {
      throw SyncException("An object change of " + c.entity + " other than a delete has no property values");
    }
    if (c.values) {
      for (const auto& v : *c.values) {
        if (v.relatedIdentifier) relatedStrings.insert(*v.relatedIdentifier);
        if (v.addedIdentifiers) relatedStrings.insert(v.addedIdentifiers->begin(), v.addedIdentifiers->end());
        if (v.removedIdentifiers)
          relatedStrings.insert(v.removedIdentifiers->begin(), v.removedIdentifiers->end());
        if (v.movedIdentifiersByIndex) {
          for (const auto& [index, s] : *v.movedIdentifiersByIndex) relatedStrings.insert(s);
        }
      }
    }
    rowsByKey.emplace(objectKey(c.entity, c.globalIdentifier), std::move(row));
    state.changesByEvent[eventIndex].push_back(std::move(c));
    ++changeCount;
  };
  if (eventContext->hasChanges() || !readChangeRows(*eventContext, events, addChange)) {
    readChangeObjects(*eventContext, events, addChange);
  }
  if (changeCount == 0) return std::nullopt;

  // Rows of every object the events name, and the journal objects they point at.
  std::vector<std::string> strings(relatedStrings.begin(), relatedStrings.end());
  inSlices(strings, [&](const std::vector<std::string>& slice) {
    FetchRequest request(kSyncGlobalIdentifierEntity);
    request.setPredicate(Predicate::predicateWithFormat("globalIdentifier IN %@", slice));
    OptionalError error;
    FetchResults results = eventContext->executeFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Error fetching ids: %@", static_cast<const Error&>(*error));
      throw SyncException("Error fetching ids: " + error->toString());
    }
    for (const auto& object : results) {
      auto row = std::dynamic_pointer_cast<SyncGlobalIdentifier>(object);
      if (row)
        rowsByKey.emplace(objectKey(row->nameOfEntity(), row->globalIdentifier()), identifierRowOf(*row));
    }
  });
  auto coordinator = mergeContext.persistentStoreCoordinator();
  std::map<std::string, std::vector<std::pair<ManagedObjectID, std::string>>> idsByEntity;
  for (const auto& [key, row] : rowsByKey) {
    const auto& uri = row.storeURI;
    if (!uri) continue;
    auto id = coordinator->managedObjectIDForURIRepresentation(*uri);
    if (!id || !model_->entityNamed(id->entityName())) continue;
    idsByEntity[id->entityName()].emplace_back(*id, key);
  }
  for (const auto& entry : idsByEntity) {
    // A named reference, not a structured binding: clang 14 cannot capture a binding in the lambda below.
    const auto& entity = entry.first;
    const auto& pairs = entry.second;
    std::unordered_map<ManagedObjectID, std::string> keyOf;
    std::vector<ManagedObjectID> ids;
    for (const auto& [id, key] : pairs) {
      keyOf[id] = key;
      ids.push_back(id);
    }
    inSlices(ids, [&](const std::vector<ManagedObjectID>& slice) {
      FetchRequest request(entity);
      request.setPredicate(Predicate::predicateWithFormat("SELF IN %@", slice));
      request.setIncludesSubentities(false);
      OptionalError error;
      FetchResults results = mergeContext.executeFetchRequest(request, error);
      if (error) throw SyncException("Could not fetch journal objects: " + error->toString());
      for (const auto& object : results) {
        auto it = keyOf.find(object->objectID());
        if (it != keyOf.end()) state.objects[it->second] = object;
      }
    });
  }

  // Replay, one event at a time: inserts, then updates, then deletes.
  Applier applier(mergeContext, *eventStore_, state.objects);
  for (std::size_t i = 0; i < events.size(); ++i) {
    auto& changes = state.changesByEvent[i];
    std::stable_sort(changes.begin(), changes.end(),
                     [](const IntegratedChange& a, const IntegratedChange& b) { return a.type < b.type; });
    for (const auto& change : changes) {
      if (change.type != kSyncObjectChangeTypeInsert) continue;
      if (!model_->entityNamed(change.entity)) continue;
      std::string key = objectKey(change.entity, change.globalIdentifier);
      ManagedObjectPtr object = applier.lookup(change.entity, change.globalIdentifier);
      if (!object) {
        object = mergeContext.insertNewObjectForEntityForName(change.entity);
        state.objects[key] = object;
        auto known = rowsByKey.find(key);
        state.inserted.emplace_back(object, known != rowsByKey.end() ? known->second.id : change.row);
      }
      if (state.full) state.vouchedByEntity[change.entity].insert(object.get());
    }
    for (const auto& change : changes) {
      if (change.type == kSyncObjectChangeTypeInsert || change.type == kSyncObjectChangeTypeUpdate) {
        applier.apply(change);
      }
    }
    for (const auto& change : changes) {
      if (change.type != kSyncObjectChangeTypeDelete) continue;
      if (ManagedObjectPtr object = applier.lookup(change.entity, change.globalIdentifier)) {
        if (OptionalError error = applier.nullifyRelationshipsAndDeleteObject(object)) return error;
      }
    }
    SyncEventFacts facts = revisionManager.factsForEvent(events[i]);
    if (facts.type != kSyncEventTypeBaseline) {
      state.integrated =
          state.integrated.revisionSetByTakingStoreWiseMaximumWithRevisionSet(facts.revisionSet);
    }
  }

  if (state.full) {
    // Rebuilt from the baseline: what no insert change vouches for goes.
    for (const auto& [entity, vouched] : state.vouchedByEntity) {
      FetchRequest request(entity);
      request.setIncludesSubentities(false);
      OptionalError error;
      FetchResults results = mergeContext.executeFetchRequest(request, error);
      if (error) return error;
      for (const auto& object : results) {
        if (!vouched.count(object.get()) && applier.isLive(object)) {
          if (OptionalError deleteError = applier.nullifyRelationshipsAndDeleteObject(object))
            return deleteError;
        }
      }
    }
  }

  // New objects get their rows now; the rows point at them from here on.
  std::vector<ManagedObjectPtr> fresh;
  for (const auto& [object, row] : state.inserted) {
    if (applier.isLive(object)) fresh.push_back(object);
  }
  if (!fresh.empty()) {
    if (OptionalError error = mergeContext.obtainPermanentIDsForObjects(fresh)) return error;
  }
  // The rows are read in bulk, not one fault at a time.
  std::vector<ManagedObjectID> rowIDs;
  for (const auto& [object, row] : state.inserted) {
    if (applier.isLive(object) && row) rowIDs.push_back(row);
  }
  std::unordered_map<ManagedObjectID, std::shared_ptr<SyncGlobalIdentifier>> rows;
  std::vector<ManagedObjectPtr> keepRows;
  inSlices(rowIDs, [&](const std::vector<ManagedObjectID>& slice) {
    FetchRequest request(kSyncGlobalIdentifierEntity);
    request.setPredicate(Predicate::predicateWithFormat("SELF IN %@", slice));
    OptionalError error;
    FetchResults results = eventContext->executeFetchRequest(request, error);
    if (error) throw SyncException("Could not fetch global identifiers: " + error->toString());
    for (const auto& object : results) {
      if (auto row = std::dynamic_pointer_cast<SyncGlobalIdentifier>(object)) rows[row->objectID()] = row;
    }
  });
  for (const auto& [object, row] : state.inserted) {
    if (!applier.isLive(object) || !row) continue;
    auto it = rows.find(row);
    if (it != rows.end()) it->second->setStoreURI(object->objectID().URIRepresentation());
  }
  return std::nullopt;
}

// --- Repair and commit ---------------------------------------------------------------------

OptionalError SyncEventIntegrator::repairWithMergeEventBuilder(SyncEventBuilder& builder) {
  LUMEO_LOG_VERBOSE("Repairing context after integrating changes");
  auto context = managedObjectContext();
  if (!context->hasChanges() || !ensemble_ || !ensemble_->shouldSaveBlock) return std::nullopt;
  auto reparation = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  reparation->setParentContext(context);
  if (!ensemble_->shouldSaveBlock(*context, *reparation)) {
    return syncError(kSyncErrorCodeCancelled, "The delegate declined the merge");
  }
  if (reparation->hasChanges()) {
    if (OptionalError error = builder.addChangesForUnsavedManagedObjectContext(*reparation)) return error;
    if (OptionalError error = reparation->save()) {
      LUMEO_LOG_ERROR("Saving merge context after willSave changes failed: %@",
                      static_cast<const Error&>(*error));
    }
  }
  return std::nullopt;
}

OptionalError SyncEventIntegrator::saveContext() {
  if (saveOccurredDuringMerge_) {
    return syncError(kSyncErrorCodeSaveOccurredDuringMerge, "The journal was saved during the merge");
  }
  auto context = managedObjectContext();
  ScopedObserver observer(NotificationCenter::defaultCenter(), kManagedObjectContextDidSaveNotification,
                          context.get(), [this](const Notification& n) {
                            std::lock_guard lock(mutex_);
                            saveInfo_ = ContextSaveInfo::fromNotification(n);
                          });
  return context->save();
}

SyncMergeResult SyncEventIntegrator::commitWithMergeEventBuilder(SyncEventBuilder& builder) {
  LUMEO_LOG_VERBOSE("Committing merge changes to store");
  OptionalError error = saveContext();
  if (!error) return SyncMergeResult{};
  if (saveOccurredDuringMerge_) return SyncMergeResult{false, error};
  if (error->is(kObjectGraphErrorDomain, kManagedObjectMergeError) || !ensemble_ ||
      !ensemble_->failedSaveBlock) {
    return SyncMergeResult{false, error};
  }
  auto context = managedObjectContext();
  auto reparation = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  reparation->setParentContext(context);
  bool retry = ensemble_->failedSaveBlock(*context, *error, *reparation);
  if (!retry || !reparation->hasChanges()) {
    // The merge fails without a reason: the delegate has nothing to offer.
    return SyncMergeResult{false, std::nullopt};
  }
  if (OptionalError addError = builder.addChangesForUnsavedManagedObjectContext(*reparation)) {
    return SyncMergeResult{false, addError};
  }
  if (OptionalError childError = reparation->save()) return SyncMergeResult{false, childError};
  OptionalError again = saveContext();
  return SyncMergeResult{!again, again};
}

// --- Photos ------------------------------------------------------------------------------------

std::optional<Value::Dictionary> SyncEventIntegrator::createPhotosAndThumbs() {
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(model_);
  OptionalError error;
  if (!coordinator->addPersistentStoreWithType(kSQLiteStoreType, storeURL_, persistentStoreOptions_, error)) {
    return std::nullopt;
  }
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  context->setPersistentStoreCoordinator(coordinator);
  Value::Dictionary result;
  FetchRequest request("MoodDescription");
  OptionalError fetchError;
  FetchResults descriptions = context->executeFetchRequest(request, fetchError);
  if (fetchError) return std::nullopt;
  for (const auto& description : descriptions) {
    Value::Dictionary entry;
    Value photoName = description->valueForKey("photoName");
    Value thumbName = description->valueForKey("thumbName");
    Value photoChecksum = description->valueForKey("photoChecksum");
    Value thumbChecksum = description->valueForKey("thumbChecksum");
    auto nonEmpty = [](const Value& v) { return v.asString() && !v.asString()->empty(); };
    if (nonEmpty(photoName) && nonEmpty(thumbName)) {
      entry["photoName"] = photoName;
      entry["thumbName"] = thumbName;
    }
    if (nonEmpty(thumbChecksum) && nonEmpty(photoChecksum)) {
      entry["thumbChecksum"] = thumbChecksum;
      entry["photoChecksum"] = photoChecksum;
    }
    if (!entry.empty() && nonEmpty(photoName)) result[*photoName.asString()] = Value(std::move(entry));
  }
  return result;
}

}  // namespace lumeo
