// Replaying events into the journal: choosing them, applying them in order,
// repairing, committing and recording the merge event.
#include "sync/sync_event_integrator.h"

#include <algorithm>
#include <exception>
#include <limits>
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
#include "sync/sync_store_path.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

// Fetches with an IN list go in slices of this many, well under SQLite's
// limit on bound values.
constexpr std::size_t kInListSlice = 500;

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
  std::uint32_t event = 0;  // index in the merge's events
  std::uint32_t slot = 0;   // of its object, in ObjectSlots
  std::string entity;
  std::string globalIdentifier;
  ManagedObjectID row;  // of its global identifier
  std::optional<std::vector<SyncPropertyChangeValue>> values;
};

// An object the merge knows, by entity and global identifier: its global
// identifier row, the journal object, and whether the merge deleted it.
struct ObjectSlot {
  std::string entity;
  std::string globalIdentifier;
  bool hasRow = false;
  IdentifierRow row;
  ManagedObjectPtr object;
  bool deleted = false;          // `object` was deleted by this merge
  std::ptrdiff_t inserted = -1;  // `object`'s entry in MergeState::inserted
};

// The merge's objects, found by entity and global identifier. Each change
// is given its slot once, when it is read; replaying it then costs no
// look-up by text. Most changes find their slot through the row of their
// global identifier, which every change of the same object shares.
class ObjectSlots {
 public:
  void reserve(std::size_t count) {
    slots_.reserve(count);
    byKey_.reserve(count);
    rowLimit_ = 8 * count + 1024;
  }
  std::size_t size() const { return slots_.size(); }
  ObjectSlot& operator[](std::size_t index) { return slots_[index]; }
  const ObjectSlot& operator[](std::size_t index) const { return slots_[index]; }
  std::vector<ObjectSlot>::iterator begin() { return slots_.begin(); }
  std::vector<ObjectSlot>::iterator end() { return slots_.end(); }

  // The slot of (entity, identifier), made when there is none; the first
  // row given for it stays.
  std::uint32_t slotFor(const std::string& entity, const std::string& globalIdentifier,
                        const IdentifierRow* row) {
    auto [it, fresh] = byKey_.try_emplace(objectKey(entity, globalIdentifier), std::uint32_t(slots_.size()));
    if (fresh) {
      ObjectSlot slot;
      slot.entity = entity;
      slot.globalIdentifier = globalIdentifier;
      slots_.push_back(std::move(slot));
    }
    ObjectSlot& slot = slots_[it->second];
    if (row && !slot.hasRow) {
      slot.hasRow = true;
      slot.row = *row;
    }
    return it->second;
  }
  // The same for a change: its entity and its global identifier row.
  std::uint32_t slotForChange(const IntegratedChange& change, const IdentifierRow& row) {
    // Row numbers are dense in practice: a table indexed by them, not a map.
    const std::int64_t key = row.id.rawKey();
    const bool indexed = key > 0 && std::uint64_t(key) < rowLimit_;
    if (indexed && std::size_t(key) < byRow_.size() && byRow_[std::size_t(key)] != kNoSlot) {
      std::uint32_t known = byRow_[std::size_t(key)];
      if (slots_[known].entity == change.entity && slots_[known].globalIdentifier == change.globalIdentifier)
        return known;
      return slotFor(change.entity, change.globalIdentifier, &row);
    }
    std::uint32_t index = slotFor(change.entity, change.globalIdentifier, &row);
    if (indexed) {
      if (std::size_t(key) >= byRow_.size())
        byRow_.resize(std::max(std::size_t(key) + 1, byRow_.size() * 2), kNoSlot);
      byRow_[std::size_t(key)] = index;
    }
    return index;
  }
  const ObjectSlot* find(const std::string& entity, const std::string& globalIdentifier) const {
    auto it = byKey_.find(objectKey(entity, globalIdentifier));
    return it == byKey_.end() ? nullptr : &slots_[it->second];
  }

 private:
  static constexpr std::uint32_t kNoSlot = std::numeric_limits<std::uint32_t>::max();
  std::vector<ObjectSlot> slots_;
  std::unordered_map<std::string, std::uint32_t> byKey_;
  // Slot by the row number of a global identifier row, for row numbers
  // below rowLimit_; the first slot given to the row.
  std::vector<std::uint32_t> byRow_;
  std::uint64_t rowLimit_ = 1024;
};

// A journal object the merge made, and the row that will point at it.
struct InsertedObject {
  ManagedObjectPtr object;
  ManagedObjectID row;
  bool deleted = false;  // deleted again by a later change of the merge
};

struct SyncEventIntegrator::MergeState {
  bool full = false;
  std::vector<SyncEventPtr> events;
  // Every change of every event, grouped by event in the events' order.
  std::vector<IntegratedChange> changes;
  std::vector<std::size_t> firstChangeOfEvent;  // one more entry than events
  ObjectSlots objects;
  std::vector<InsertedObject> inserted;
  std::map<std::string, std::unordered_set<const ManagedObject*>> vouchedByEntity;
  SyncRevisionSet integrated;
};

SyncEventIntegrator::SyncEventIntegrator(fs::path storeURL,
                                         std::shared_ptr<ManagedObjectModel> managedObjectModel,
                                         std::shared_ptr<SyncEventStore> eventStore)
    : storeURL_(syncStandardisedPath(storeURL)),
      journalStore_(storeURL_),
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
    if (!store->URL().empty() && journalStore_.matches(store->URL())) {
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
  SyncEventFacts scratch;
  SyncRevisionSet baselineSet =
      baseline ? revisionManager.factsForEvent(baseline, scratch).revisionSet : SyncRevisionSet();
  std::map<std::string, std::int64_t> firstByStore;
  for (const auto& event : events) {
    const SyncEventFacts& facts = revisionManager.factsForEvent(event, scratch);
    int type = facts.type;
    if (type == kSyncEventTypeBaseline || type == kSyncEventTypeIncomplete) continue;
    if (!facts.ownRevision) continue;
    std::int64_t number = facts.ownRevision->revisionNumber();
    auto [it, fresh] = firstByStore.try_emplace(facts.persistentStoreIdentifier, number);
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
  Applier(ManagedObjectContext& context, SyncEventStore& eventStore, ObjectSlots& objects,
          std::vector<InsertedObject>& inserted)
      : context_(context), eventStore_(eventStore), objects_(objects), inserted_(inserted) {}

  // An object inserted by this merge and deleted again leaves the context
  // without looking deleted: the merge keeps track of it itself. During the
  // replay only the merge deletes journal objects, and always through their
  // slot (with every relationship cut first, so nothing cascades), so the
  // slot knows whether its object lives without asking the object.
  static bool isLive(const ObjectSlot& slot) { return slot.object && !slot.deleted; }
  static bool isLive(const InsertedObject& inserted) { return inserted.object && !inserted.deleted; }

  const ManagedObjectPtr* lookup(const ObjectSlot& slot) const {
    return isLive(slot) ? &slot.object : nullptr;
  }
  ManagedObjectPtr lookup(const std::string& entity, const std::string& identifier) const {
    const ObjectSlot* slot = objects_.find(entity, identifier);
    return slot && isLive(*slot) ? slot->object : nullptr;
  }

  void apply(const IntegratedChange& change) {
    if (!change.values) return;
    const ManagedObjectPtr* live = lookup(objects_[change.slot]);
    if (!live) return;
    ManagedObjectPtr object = *live;
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

  // Deletes the slot's object; the merge remembers that it did.
  OptionalError deleteObjectOfSlot(ObjectSlot& slot) {
    if (!isLive(slot)) return std::nullopt;
    ManagedObjectPtr object = slot.object;
    slot.deleted = true;
    if (slot.inserted >= 0) inserted_[std::size_t(slot.inserted)].deleted = true;
    return nullifyRelationshipsAndDeleteObject(object);
  }

  // Deletes an object the merge did not make: one fetched from the journal,
  // which looks deleted from then on.
  OptionalError nullifyRelationshipsAndDeleteObject(const ManagedObjectPtr& object) {
    if (!isAlive(object)) return std::nullopt;
    for (const RelationshipDescription* relationship : object->entity().relationships()) {
      if (relationship->isToMany()) {
        if (object->countForKey(relationship->name()) > 0)
          object->removeAllObjectsForKey(relationship->name());
      } else if (object->objectIDForKey(relationship->name())) {
        object->setObjectForKey(relationship->name(), nullptr);
      }
    }
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
    // Written only when it differs, so that replaying an event twice leaves
    // an object clean.
    object.setValueIfChanged(*attribute,
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
  ObjectSlots& objects_;
  std::vector<InsertedObject>& inserted_;
};

}  // namespace

namespace {

IdentifierRow identifierRowOf(const SyncGlobalIdentifier& row) {
  return IdentifierRow{row.objectID(), row.nameOfEntity(), row.globalIdentifier(), row.storeURI()};
}

using ChangeSink = std::function<void(std::size_t, IntegratedChange, IdentifierRow)>;

// The changes of the events with their global identifier rows, by plain
// queries on the event store's tables, in slices of events or, with
// `wholeTable`, in one pass over every change; each value as the entity
// accessors would give it, each event's changes in row order. False when
// the context is not a plain one on an SQLite store; throws SyncException
// when a read or a decoding fails.
bool readChangeRows(ManagedObjectContext& context, const std::vector<SyncEventPtr>& events, bool wholeTable,
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
  // Event row numbers are dense in practice: a table indexed by them finds
  // each change's event without hashing; a sparse store gets a map.
  std::int64_t largestKey = 0;
  std::vector<std::int64_t> keys(events.size());
  for (std::size_t i = 0; i < events.size(); ++i) {
    const ManagedObjectID id = events[i]->objectID();
    if (id.isTemporaryID()) return false;
    keys[i] = id.primaryKey();
    largestKey = std::max(largestKey, keys[i]);
  }
  constexpr std::size_t kNoEvent = std::numeric_limits<std::size_t>::max();
  std::vector<std::size_t> eventByKey;
  std::unordered_map<std::int64_t, std::size_t> eventByKeyMap;
  const bool dense = std::uint64_t(largestKey) <= 8 * std::uint64_t(events.size()) + 1024;
  if (dense) {
    eventByKey.assign(std::size_t(largestKey) + 1, kNoEvent);
    for (std::size_t i = events.size(); i-- > 0;) eventByKey[std::size_t(keys[i])] = i;
  } else {
    eventByKeyMap.reserve(events.size());
    for (std::size_t i = 0; i < events.size(); ++i) eventByKeyMap.emplace(keys[i], i);
  }
  auto eventOf = [&](std::int64_t key) {
    if (dense) return key >= 0 && key <= largestKey ? eventByKey[std::size_t(key)] : kNoEvent;
    auto it = eventByKeyMap.find(key);
    return it == eventByKeyMap.end() ? kNoEvent : it->second;
  };
  auto column = [&](const std::string& alias, const PropertyDescription& property) {
    return alias + "." + store->columnFor(property);
  };
  std::string filter = store->entityFilter(*changeEntity, true, "t0");
  std::string text = "SELECT " + column("t0", *ofEvent) + ", " + column("t0", *type) + ", " +
                     column("t0", *entity) + ", " + column("t0", *values) + ", g._pk, g._ent, " +
                     column("g", *identifier) + ", " + column("g", *rowEntity) + ", " +
                     column("g", *storeURI) + " FROM " + store->tableFor(*changeEntity) + " t0 LEFT JOIN " +
                     store->tableFor(*globalEntity) + " g ON g._pk = " + column("t0", *ofGlobal);
  if (wholeTable) {
    // Most of the store's events: one pass over the table in row order
    // costs less than finding each event's changes through the index and
    // sorting them.
    text += (filter.empty() ? "" : " WHERE " + filter) + " ORDER BY t0._pk";
  } else {
    text += " WHERE " + column("t0", *ofEvent) + " IN (SELECT value FROM json_each(?))" +
            (filter.empty() ? "" : " AND " + filter) + " ORDER BY t0._pk";
  }
  // Each row is decoded as it is read, under the coordinator's lock. What
  // decoding throws is held until the statement is done with, then thrown.
  auto readRow = [&](sqlite3_stmt* s) {
    std::size_t event = eventOf(sqlite3_column_int64(s, 0));
    if (event == kNoEvent) return;
    if (sqlite3_column_type(s, 4) == SQLITE_NULL) {
      LUMEO_LOG_WARNING("Object change without a global identifier. Skipping.");
      return;
    }
    IntegratedChange change;
    change.type = static_cast<std::int16_t>(store->readAttributeColumn(*type, s, 1).toInt());
    change.entity = store->readAttributeColumn(*entity, s, 2).toString();
    IdentifierRow row;
    row.id = store->makeID(*globalEntity, sqlite3_column_int(s, 5), sqlite3_column_int64(s, 4));
    row.globalIdentifier = store->readAttributeColumn(*identifier, s, 6).toString();
    row.entity = store->readAttributeColumn(*rowEntity, s, 7).toString();
    Value uri = store->readAttributeColumn(*storeURI, s, 8);
    if (const std::string* u = uri.asString()) row.storeURI = *u;
    change.globalIdentifier = row.globalIdentifier;
    change.row = row.id;
    if (!coded) {
      change.values = SyncPropertyChangeValue::unarchiveArray(store->readAttributeColumn(*values, s, 3));
    } else if (sqlite3_value* blob = sqlite3_column_value(s, 3); sqlite3_value_type(blob) != SQLITE_NULL) {
      const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_value_blob(blob));
      change.values = SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(
          bytes, std::size_t(sqlite3_value_bytes(blob)));
    }
    sink(event, std::move(change), std::move(row));
  };
  auto run = [&](const std::vector<Value>& bindings) {
    std::exception_ptr thrown;
    OptionalError error;
    bool ok = false;
    {
      std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
      ok = store->query(
          text, bindings,
          [&](sqlite3_stmt* s) {
            try {
              readRow(s);
              return true;
            } catch (...) {
              thrown = std::current_exception();
              return false;
            }
          },
          error);
    }
    if (thrown) std::rethrow_exception(thrown);
    if (!ok) throw SyncException("Could not fetch object changes: " + (error ? error->toString() : ""));
  };
  if (wholeTable) {
    run({});
    return true;
  }
  inSlices(keys, [&](const std::vector<std::int64_t>& slice) {
    std::string list = "[";
    for (std::int64_t key : slice) {
      if (list.size() > 1) list += ',';
      list += std::to_string(key);
    }
    list += ']';
    run({Value(list)});
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
  SyncEventFacts scratch;
  if (!state.full && std::all_of(events.begin(), events.end(), [&](const SyncEventPtr& e) {
        return revisionManager.factsForEvent(e, scratch).persistentStoreIdentifier == store;
      })) {
    return std::nullopt;
  }

  // Every change of every event, decoded once, with the slot of its object.
  std::set<std::string> relatedStrings;
  state.changes.reserve(events.size());
  state.objects.reserve(events.size());
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
    c.event = std::uint32_t(eventIndex);
    c.slot = state.objects.slotForChange(c, row);
    state.changes.push_back(std::move(c));
  };
  const std::size_t stored = revisionManager.snapshotEventCount();
  const bool mostEvents = stored > 0 && events.size() * 2 >= stored;
  if (eventContext->hasChanges() || !readChangeRows(*eventContext, events, mostEvents, addChange)) {
    readChangeObjects(*eventContext, events, addChange);
  }
  if (state.changes.empty()) return std::nullopt;
  // Grouped by event, in the order they were read within each (a stable
  // counting sort: the changes arrive in row order, not event order).
  {
    state.firstChangeOfEvent.assign(events.size() + 1, 0);
    for (const auto& c : state.changes) ++state.firstChangeOfEvent[c.event + 1];
    for (std::size_t i = 1; i < state.firstChangeOfEvent.size(); ++i)
      state.firstChangeOfEvent[i] += state.firstChangeOfEvent[i - 1];
    std::vector<std::size_t> next(state.firstChangeOfEvent.begin(), state.firstChangeOfEvent.end() - 1);
    std::vector<IntegratedChange> grouped(state.changes.size());
    for (auto& c : state.changes) grouped[next[c.event]++] = std::move(c);
    state.changes = std::move(grouped);
  }

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
      if (row) {
        IdentifierRow identifierRow = identifierRowOf(*row);
        state.objects.slotFor(identifierRow.entity, identifierRow.globalIdentifier, &identifierRow);
      }
    }
  });
  auto coordinator = mergeContext.persistentStoreCoordinator();
  std::map<std::string, std::vector<std::pair<ManagedObjectID, std::uint32_t>>> idsByEntity;
  for (std::size_t index = 0; index < state.objects.size(); ++index) {
    const ObjectSlot& slot = state.objects[index];
    const auto& uri = slot.row.storeURI;
    if (!slot.hasRow || !uri) continue;
    auto id = coordinator->managedObjectIDForURIRepresentation(*uri);
    if (!id || !model_->entityNamed(id->entityName())) continue;
    idsByEntity[id->entityName()].emplace_back(*id, std::uint32_t(index));
  }
  for (const auto& entry : idsByEntity) {
    // A named reference, not a structured binding: clang 14 cannot capture a binding in the lambda below.
    const auto& entity = entry.first;
    const auto& pairs = entry.second;
    std::unordered_map<ManagedObjectID, std::uint32_t> keyOf;
    std::vector<ManagedObjectID> ids;
    for (const auto& [id, slot] : pairs) {
      keyOf[id] = slot;
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
        if (it != keyOf.end()) state.objects[it->second].object = object;
      }
    });
  }

  // Replay, one event at a time: inserts, then updates, then deletes.
  Applier applier(mergeContext, *eventStore_, state.objects, state.inserted);
  for (std::size_t i = 0; i < events.size(); ++i) {
    auto first = state.changes.begin() + std::ptrdiff_t(state.firstChangeOfEvent[i]);
    auto last = state.changes.begin() + std::ptrdiff_t(state.firstChangeOfEvent[i + 1]);
    if (last - first > 1) {
      std::stable_sort(first, last,
                       [](const IntegratedChange& a, const IntegratedChange& b) { return a.type < b.type; });
    }
    for (auto change = first; change != last; ++change) {
      if (change->type != kSyncObjectChangeTypeInsert) continue;
      if (!model_->entityNamed(change->entity)) continue;
      ObjectSlot& slot = state.objects[change->slot];
      const ManagedObject* object = applier.lookup(slot) ? slot.object.get() : nullptr;
      if (!object) {
        slot.object = mergeContext.insertNewObjectForEntityForName(change->entity);
        slot.deleted = false;
        slot.inserted = std::ptrdiff_t(state.inserted.size());
        state.inserted.push_back(InsertedObject{slot.object, slot.hasRow ? slot.row.id : change->row});
        object = slot.object.get();
      }
      if (state.full) state.vouchedByEntity[change->entity].insert(object);
    }
    for (auto change = first; change != last; ++change) {
      if (change->type == kSyncObjectChangeTypeInsert || change->type == kSyncObjectChangeTypeUpdate) {
        applier.apply(*change);
      }
    }
    for (auto change = first; change != last; ++change) {
      if (change->type != kSyncObjectChangeTypeDelete) continue;
      if (OptionalError error = applier.deleteObjectOfSlot(state.objects[change->slot])) return error;
    }
    const SyncEventFacts& facts = revisionManager.factsForEvent(events[i], scratch);
    if (facts.type != kSyncEventTypeBaseline) {
      state.integrated.takeStoreWiseMaximumWithRevisionSet(facts.revisionSet);
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
        if (!vouched.count(object.get()) && isAlive(object)) {
          if (OptionalError deleteError = applier.nullifyRelationshipsAndDeleteObject(object))
            return deleteError;
        }
      }
    }
  }

  // New objects get their rows now; the rows point at them from here on.
  std::vector<ManagedObjectPtr> fresh;
  for (const auto& inserted : state.inserted) {
    if (Applier::isLive(inserted)) fresh.push_back(inserted.object);
  }
  if (!fresh.empty()) {
    if (OptionalError error = mergeContext.obtainPermanentIDsForObjects(fresh)) return error;
  }
  // The rows are read in bulk, not one fault at a time.
  std::vector<ManagedObjectID> rowIDs;
  for (const auto& inserted : state.inserted) {
    if (Applier::isLive(inserted) && inserted.row) rowIDs.push_back(inserted.row);
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
  for (const auto& inserted : state.inserted) {
    if (!Applier::isLive(inserted) || !inserted.row) continue;
    auto it = rows.find(inserted.row);
    if (it != rows.end()) it->second->setStoreURI(inserted.object->objectID().URIRepresentation());
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
