// Saving a context (into the store in one transaction, or into the parent
// context), permanent IDs, refreshing objects, rollback and reset, and
// merging another context's did-save.
#include <algorithm>

#include "objectgraph/context_core.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/sqlite_store.h"
#include "platform/log.h"

namespace lumeo {

namespace {

bool columnsChanged(const ObjectState& s) {
  for (std::size_t i = 0; i < s.attributes.size(); ++i) {
    if (s.attributeWasChanged(i) && !(s.attributes[i] == s.committedAttribute(i))) return true;
  }
  for (std::size_t i = 0; i < s.toOne.size(); ++i) {
    if (s.toOneWasChanged(i) && s.toOne[i] != s.committedToOneAt(i)) return true;
  }
  return false;
}

bool hasRealChanges(const ObjectState& s) {
  if (columnsChanged(s)) return true;
  for (const auto& tm : s.toMany) {
    if (tm.changed()) return true;
  }
  return false;
}

// The kind of change an object takes into a save.
enum class SaveKind { kNone, kInsert, kUpdate, kDelete, kDropInserted, kCommitOnly };

SaveKind kindOf(const ObjectState& s) {
  if (s.inserted && s.deleted) return SaveKind::kDropInserted;
  if (s.inserted) return SaveKind::kInsert;
  if (s.deleted) return SaveKind::kDelete;
  if (s.updated) return hasRealChanges(s) ? SaveKind::kUpdate : SaveKind::kCommitOnly;
  return SaveKind::kNone;
}

}  // namespace

void ContextCore::runWillSave(std::vector<ManagedObjectPtr>& tracked) {
  // A hook that changes its object (or another) calls for another round for
  // the objects it touched, as the platform does; the bound stops a pair of
  // hooks that keep changing each other.
  for (auto& o : tracked) o->state_->touchedSinceWillSave = true;
  for (int round = 0; round < 100; ++round) {
    std::vector<ManagedObjectPtr> due;
    for (auto& o : trackedObjects()) {
      ObjectState& s = *o->state_;
      if (s.touchedSinceWillSave && s.hasChanges() && !(s.inserted && s.deleted)) due.push_back(o);
    }
    if (due.empty()) break;
    for (auto& o : due) o->state_->touchedSinceWillSave = false;
    for (auto& o : due) {
      if (o->state_->core == this) o->willSave();
    }
  }
  tracked = trackedObjects();
}

OptionalError ContextCore::save() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (pendingError_) return pendingError_;
  if (!hasChanges()) return std::nullopt;
  if (!parent_ && !rootCoordinator()) {
    return objectGraphError(kPersistentStoreSaveError, "the context has neither a coordinator nor a parent");
  }
  auto willInfo = std::make_shared<ContextSaveInfo>();
  willInfo->context = &owner_;
  willInfo->contextRef = owner_.weak_from_this();
  willInfo->coordinator = coordinator_;
  willInfo->isChildSave = parent_ != nullptr;
  NotificationCenter::defaultCenter().post(kManagedObjectContextWillSaveNotification, &owner_,
                                           std::shared_ptr<const ContextSaveInfo>(willInfo));

  std::vector<ManagedObjectPtr> tracked = trackedObjects();
  runWillSave(tracked);

  std::vector<ManagedObjectPtr> refreshAfter;
  OptionalError error = parent_ ? saveToParent(tracked) : saveToStore(tracked, refreshAfter);
  if (error) return error;

  auto info = std::make_shared<ContextSaveInfo>(*willInfo);
  for (auto& o : tracked) {
    ObjectState& s = *o->state_;
    const SaveKind kind = kindOf(s);
    switch (kind) {
      case SaveKind::kInsert:
        info->insertedObjects.push_back(o);
        info->insertedObjectIDs.push_back(s.id);
        break;
      case SaveKind::kUpdate:
        info->updatedObjects.push_back(o);
        info->updatedObjectIDs.push_back(s.id);
        break;
      case SaveKind::kDelete:
        info->deletedObjects.push_back(o);
        info->deletedObjectIDs.push_back(s.id);
        break;
      default:
        break;
    }
    s.tracked = false;
    s.touchedSinceWillSave = false;
    if (kind == SaveKind::kDelete || kind == SaveKind::kDropInserted) {
      if (kind == SaveKind::kDelete) o->didSave();
      s.deleted = false;
      s.inserted = false;
      detach(*o);
      continue;
    }
    if (kind == SaveKind::kNone) continue;
    if (kind == SaveKind::kInsert) s.version = std::max<std::int64_t>(s.version, 1);
    s.commit();
    s.inserted = false;
    s.updated = false;
    if (kind != SaveKind::kCommitOnly) o->didSave();
  }
  // Objects changed by didSave hooks stay tracked for the next save.
  std::vector<ManagedObjectPtr> still;
  for (auto& o : tracked_) {
    if (o->state_->tracked && o->state_->core == this) still.push_back(o);
  }
  tracked_.swap(still);
  for (auto& o : refreshAfter) refresh(*o, false);

  Notification didSave;
  didSave.name = kManagedObjectContextDidSaveNotification;
  didSave.sender = &owner_;
  didSave.object = std::shared_ptr<const ContextSaveInfo>(info);
  NotificationCenter::defaultCenter().post(didSave);
  return std::nullopt;
}

bool ContextCore::assignPermanentIDs(const std::vector<ManagedObject*>& objects,
                                     std::vector<std::pair<ManagedObject*, ManagedObjectID>>& assigned,
                                     OptionalError& error) {
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!store) {
    error = objectGraphError(kPersistentStoreSaveError, "no store to give permanent IDs");
    return false;
  }
  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
  std::unordered_map<const EntityDescription*, std::vector<ManagedObject*>> byRoot;
  for (ManagedObject* o : objects) {
    if (o->state_->id.isTemporaryID()) byRoot[&o->state_->entity->rootEntity()].push_back(o);
  }
  if (byRoot.empty()) return true;
  const bool ownTransaction = !store->inTransaction();
  if (ownTransaction && !store->begin(error)) return false;
  for (auto& [root, members] : byRoot) {
    std::int64_t first = 0;
    if (!store->allocatePrimaryKeys(*root, static_cast<std::int64_t>(members.size()), first, error)) {
      if (ownTransaction) store->rollback();
      return false;
    }
    for (ManagedObject* o : members) {
      assigned.emplace_back(o, o->state_->id);
      rekey(*o, ManagedObjectID::makePermanent(*o->state_->entity, store->internedIdentifier(), first++));
    }
  }
  if (ownTransaction && !store->commit(error)) {
    store->rollback();
    for (auto& [o, old] : assigned) rekey(*o, old);
    assigned.clear();
    return false;
  }
  return true;
}

void ContextCore::remapReferences(const IdTable<ManagedObjectID>& map, bool fromTemporary) {
  if (map.empty()) return;
  // A map goes one way (temporary to permanent, or back after a failed
  // save), so IDs of the other kind need no lookup.
  auto remap = [&](ManagedObjectID& id) {
    if (id.isTemporaryID() != fromTemporary || !id) return false;
    const ManagedObjectID* to = map.find(id);
    if (!to) return false;
    id = *to;
    return true;
  };
  for (auto& o : tracked_) {
    ObjectState& s = *o->state_;
    for (auto& id : s.toOne) remap(id);
    if (s.changes) {
      for (auto& id : s.changes->committedToOne) remap(id);
    }
    for (auto& tm : s.toMany) {
      tm.committed.remapIDs(remap, fromTemporary);
      tm.current.remapIDs(remap, fromTemporary);
      tm.added.remapIDs(remap, fromTemporary);
      tm.removed.remapIDs(remap, fromTemporary);
    }
  }
}

OptionalError ContextCore::saveToStore(std::vector<ManagedObjectPtr>& tracked,
                                       std::vector<ManagedObjectPtr>& refreshAfter) {
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  SQLiteStore* store = coordinator->sqliteStore();
  if (!store) return objectGraphError(kPersistentStoreSaveError, "the coordinator has no store");
  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());

  std::vector<ManagedObject*> inserted, updated, deleted;
  for (auto& o : tracked) {
    switch (kindOf(*o->state_)) {
      case SaveKind::kInsert:
        inserted.push_back(o.get());
        break;
      case SaveKind::kUpdate:
        updated.push_back(o.get());
        break;
      case SaveKind::kDelete:
        deleted.push_back(o.get());
        break;
      default:
        break;
    }
  }
  OptionalError error;
  if (!store->begin(error)) return error;
  std::vector<std::pair<ManagedObject*, ManagedObjectID>> assigned;
  std::vector<std::pair<ObjectState*, std::int64_t>> versions;
  auto fail = [&]() -> OptionalError {
    store->rollback();
    IdTable<ManagedObjectID> back;
    for (auto& [o, old] : assigned) {
      back.insert(o->state_->id, old);
      rekey(*o, old);
    }
    remapReferences(back, false);
    refreshAfter.clear();
    return error;
  };
  if (!assignPermanentIDs(inserted, assigned, error)) return fail();
  {
    IdTable<ManagedObjectID> forward;
    for (auto& [o, old] : assigned) forward.insert(old, o->state_->id);
    remapReferences(forward, true);
  }
  for (ManagedObject* o : inserted) {
    if (!store->insertRow(*o->state_, error)) return fail();
    for (const RelationshipDescription* r : o->state_->entity->toManyRelationships()) {
      if (o->state_->toManyAt(r->slot()).changed() && !store->writeToMany(*o->state_, *r, error))
        return fail();
    }
  }
  for (ManagedObject* o : updated) {
    ObjectState& s = *o->state_;
    if (s.fault) continue;
    if (columnsChanged(s)) {
      bool conflict = false;
      std::int64_t newVersion = s.version;
      if (!store->updateRow(s, mergePolicy_ != MergePolicy::kObjectTrump, conflict, newVersion, error))
        return fail();
      if (conflict) {
        if (mergePolicy_ == MergePolicy::kError) {
          error = objectGraphError(kManagedObjectMergeError,
                                   "the store changed " + s.id.URIRepresentation() + " since it was read");
          error->userInfo["objectURI"] = Value(s.id.URIRepresentation());
          return fail();
        }
        if (mergePolicy_ != MergePolicy::kObjectTrump) refreshAfter.push_back(o->shared_from_this());
        continue;
      }
      versions.emplace_back(&s, newVersion);
    }
    for (const RelationshipDescription* r : s.entity->toManyRelationships()) {
      if (!s.toManyAt(r->slot()).changed()) continue;
      if (r->isOrdered() && !ensureToManyLoaded(s, *r, error)) {
        if (!error) error = objectGraphError(kPersistentStoreSaveError, "cannot read " + r->name());
        return fail();
      }
      if (!store->writeToMany(s, *r, error)) return fail();
    }
  }
  for (ManagedObject* o : deleted) {
    if (!store->deleteRow(o->state_->id, error)) return fail();
  }
  if (!store->commit(error)) return fail();
  for (auto& [s, version] : versions) s->version = version;
  for (auto& [o, old] : assigned) remapped_.insert(old, o->state_->id);
  return std::nullopt;
}

OptionalError ContextCore::saveToParent(std::vector<ManagedObjectPtr>& tracked) {
  // New objects get their permanent IDs now, so that this context and its
  // parent name them alike after the parent's save.
  std::vector<ManagedObject*> inserted;
  for (auto& o : tracked) {
    if (kindOf(*o->state_) == SaveKind::kInsert) inserted.push_back(o.get());
  }
  OptionalError error;
  if (rootCoordinator() && rootCoordinator()->sqliteStore()) {
    std::vector<std::pair<ManagedObject*, ManagedObjectID>> assigned;
    if (!assignPermanentIDs(inserted, assigned, error)) return error;
    IdTable<ManagedObjectID> forward;
    for (auto& [o, old] : assigned) {
      forward.insert(old, o->state_->id);
      remapped_.insert(old, o->state_->id);
    }
    remapReferences(forward, true);
  }
  ContextCore& parent = parent_->core();
  std::lock_guard<std::recursive_mutex> lock(parent.mutex_);
  // Everything the hand-over reads, read before the parent changes at all, so
  // that a failed read leaves the parent as it was.
  for (auto& o : tracked) {
    ObjectState& s = *o->state_;
    const SaveKind kind = kindOf(s);
    if (kind == SaveKind::kInsert) {
      for (const RelationshipDescription* r : s.entity->toManyRelationships()) {
        if (!ensureToManyLoaded(s, *r, error)) return error;
      }
      continue;
    }
    if (kind != SaveKind::kUpdate && kind != SaveKind::kDelete) continue;
    ManagedObjectPtr target = parent.objectForID(s.id);
    if (!target) continue;
    if (!parent.fireFault(*target, error)) {
      if (error) return error;
      continue;
    }
    for (const RelationshipDescription* r : s.entity->toManyRelationships()) {
      const ToManyState& tm = s.toManyAt(r->slot());
      if ((tm.reordered || (tm.changed() && r->isOrdered())) &&
          !parent.ensureToManyLoaded(*target->state_, *r, error)) {
        return error;
      }
    }
  }
  for (auto& o : tracked) {
    ObjectState& s = *o->state_;
    const SaveKind kind = kindOf(s);
    if (kind == SaveKind::kInsert) {
      ManagedObjectPtr copy = s.entity->makeInstance();
      ObjectState& c = *copy->state_;
      c.entity = s.entity;
      c.id = s.id;
      c.core = &parent;
      c.context = &parent.owner_;
      c.fault = false;
      c.inserted = true;
      c.attributes = s.attributes;
      ObjectChanges& changes = c.changesForWrite();
      changes.committedAttributes.assign(s.attributes.size(), Value());
      changes.attributeChanged.assign(s.attributes.size(), 1);
      c.toOne = s.toOne;
      changes.committedToOne.assign(s.toOne.size(), ManagedObjectID());
      changes.toOneChanged.assign(s.toOne.size(), 1);
      c.toMany.resize(s.toMany.size());
      for (std::size_t i = 0; i < s.toMany.size(); ++i) {
        c.toManyAt(i).loaded = true;
        c.toManyAt(i).current = s.toManyAt(i).current;
        c.toManyAt(i).added = s.toManyAt(i).current;
      }
      c.touchedSinceWillSave = true;
      parent.registerObject(copy);
      parent.track(*copy);
      continue;
    }
    if (kind != SaveKind::kUpdate && kind != SaveKind::kDelete) continue;
    ManagedObjectPtr target = parent.objectForID(s.id);
    if (!target || !parent.fireFault(*target, error)) continue;  // gone in the parent meanwhile
    ObjectState& p = *target->state_;
    if (kind == SaveKind::kDelete) {
      p.deleted = true;
      p.touchedSinceWillSave = true;
      parent.track(*target);
      continue;
    }
    for (std::size_t i = 0; i < s.attributes.size(); ++i) {
      if (!s.attributeWasChanged(i)) continue;
      p.noteAttributeChange(i);
      p.attributes[i] = s.attributes[i];
    }
    for (std::size_t i = 0; i < s.toOne.size(); ++i) {
      if (!s.toOneWasChanged(i)) continue;
      p.noteToOneChange(i);
      p.toOne[i] = s.toOne[i];
    }
    for (const RelationshipDescription* r : s.entity->toManyRelationships()) {
      const ToManyState& tm = s.toManyAt(r->slot());
      if (!tm.changed()) continue;
      if (tm.reordered) {
        if (!parent.ensureToManyLoaded(p, *r, error)) return error;
        for (std::size_t i = 0; i < tm.current.size(); ++i) {
          parent.addToMany(*target, *r, tm.current.items()[i], false, i);
        }
      }
      for (const auto& id : tm.added.items()) parent.addToMany(*target, *r, id, false);
      for (const auto& id : tm.removed.items()) parent.removeToMany(*target, *r, id, false);
    }
    parent.markChanged(p);
  }
  return std::nullopt;
}

OptionalError ContextCore::obtainPermanentIDs(const std::vector<ManagedObjectPtr>& objects) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<ManagedObject*> mine;
  for (const auto& o : objects) {
    if (o && o->state_->core == this && o->state_->id.isTemporaryID()) mine.push_back(o.get());
  }
  if (mine.empty()) return std::nullopt;
  std::vector<std::pair<ManagedObject*, ManagedObjectID>> assigned;
  OptionalError error;
  if (!assignPermanentIDs(mine, assigned, error)) return error;
  IdTable<ManagedObjectID> forward;
  for (auto& [o, old] : assigned) {
    forward.insert(old, o->state_->id);
    remapped_.insert(old, o->state_->id);
  }
  remapReferences(forward, true);
  return std::nullopt;
}

void ContextCore::refresh(ManagedObject& object, bool mergeChanges) {
  ObjectState& s = *object.state_;
  if (s.core != this || s.inserted || s.fault) return;
  if (!mergeChanges || !s.hasChanges()) {
    if (!mergeChanges) {
      object.willTurnIntoFault();
      s.resetToFault();
      s.updated = false;
      s.deleted = false;
      s.tracked = false;
      object.didTurnIntoFault();
      return;
    }
  }
  RowSnapshot row;
  OptionalError error;
  if (!loadSnapshot(s.id, row, error)) {
    // An unreadable row keeps what the object has; a gone one turns it
    // into a fault unless it has changes to keep.
    if (error) {
      LUMEO_LOG_WARNING("cannot reload %@: %@", s.id.URIRepresentation(), error->toString());
    } else if (!s.hasChanges()) {
      s.resetToFault();
    }
    return;
  }
  std::vector<std::pair<std::size_t, Value>> attributes;
  for (std::size_t i = 0; i < s.attributes.size(); ++i) {
    if (s.attributeWasChanged(i)) attributes.emplace_back(i, s.attributes[i]);
  }
  std::vector<std::pair<std::size_t, ManagedObjectID>> toOnes;
  for (std::size_t i = 0; i < s.toOne.size(); ++i) {
    if (s.toOneWasChanged(i)) toOnes.emplace_back(i, s.toOne[i]);
  }
  std::vector<ToManyState> toManys = s.toMany;
  s.fillFromSnapshot(std::move(row));
  for (auto& [i, v] : attributes) {
    s.noteAttributeChange(i);
    s.attributes[i] = v;
  }
  for (auto& [i, id] : toOnes) {
    s.noteToOneChange(i);
    s.toOne[i] = id;
  }
  for (std::size_t i = 0; i < toManys.size() && i < s.toMany.size(); ++i) {
    if (!toManys[i].changed()) continue;
    s.toManyAt(i).added = toManys[i].added;
    s.toManyAt(i).removed = toManys[i].removed;
  }
}

void ContextCore::reset() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  pendingError_.reset();
  std::vector<ManagedObjectPtr> alive = allRegistered();
  for (auto& o : tracked_) alive.push_back(o);
  registered_.clear();
  for (auto& o : alive) {
    o->state_->core = nullptr;
    o->state_->context = nullptr;
    o->state_->tracked = false;
  }
  tracked_.clear();
  remapped_.clear();
  alive.clear();
}

void ContextCore::rollback() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  pendingError_.reset();
  std::vector<ManagedObjectPtr> tracked = std::move(tracked_);
  tracked_.clear();
  for (auto& o : tracked) {
    ObjectState& s = *o->state_;
    if (s.core != this) continue;
    s.tracked = false;
    if (s.inserted) {
      s.inserted = false;
      s.deleted = false;
      detach(*o);
      continue;
    }
    s.updated = false;
    s.deleted = false;
    if (s.fault) continue;
    if (s.changes) {
      if (!s.changes->committedAttributes.empty()) s.attributes = s.changes->committedAttributes;
      if (!s.changes->committedToOne.empty()) s.toOne = s.changes->committedToOne;
    }
    s.dropChanges();
    for (auto& tm : s.toMany) {
      if (tm.loaded) tm.current = tm.committed;
      tm.added.clear();
      tm.removed.clear();
      tm.reordered = false;
    }
  }
}

void ContextCore::mergeDidSave(const ContextSaveInfo& info) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  // A child's save changed only its parent, not the store; nothing to bring
  // in from it.
  if (info.context == &owner_ || info.isChildSave) return;
  Value::Array refreshed, removed;
  auto refreshID = [&](const ManagedObjectID& id) {
    ManagedObjectPtr o = registeredObject(id);
    if (!o || o->state_->fault) return;
    refresh(*o, true);
    refreshed.emplace_back(id.URIRepresentation());
  };
  for (const auto& id : info.updatedObjectIDs) refreshID(id);
  for (const auto& id : info.insertedObjectIDs) refreshID(id);
  for (const auto& id : info.deletedObjectIDs) {
    ManagedObjectPtr o = registeredObject(id);
    if (!o) continue;
    ObjectState& s = *o->state_;
    s.tracked = false;
    s.inserted = s.updated = s.deleted = false;
    detach(*o);
    removed.emplace_back(id.URIRepresentation());
  }
  std::vector<ManagedObjectPtr> still;
  for (auto& o : tracked_) {
    if (o->state_->tracked && o->state_->core == this) still.push_back(o);
  }
  tracked_.swap(still);
  NotificationCenter::defaultCenter().post(
      kManagedObjectContextObjectsDidChangeNotification, &owner_, {},
      Value::Dictionary{{"refreshed", Value(std::move(refreshed))},
                        {kDeletedObjectsKey, Value(std::move(removed))}});
}

}  // namespace lumeo
