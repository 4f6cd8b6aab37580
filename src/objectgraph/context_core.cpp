// The registry of a context's objects, faulting (from the parent context or
// the store), change tracking, and keeping both sides of a relationship in
// step when one side changes, including the delete rules.
#include "objectgraph/context_core.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#include "objectgraph/object_graph_error.h"
#include "objectgraph/sqlite_store.h"
#include "platform/log.h"

namespace lumeo {

ContextCore::~ContextCore() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<ManagedObjectPtr> alive = allRegistered();
  for (auto& o : tracked_) alive.push_back(o);
  for (auto& o : alive) {
    o->state_->core = nullptr;
    o->state_->context = nullptr;
  }
  registered_.clear();
  tracked_.clear();
  alive.clear();
}

PersistentStoreCoordinator* ContextCore::rootCoordinator() const {
  if (coordinator_) return coordinator_.get();
  if (parent_) return parent_->core().rootCoordinator();
  return nullptr;
}

const ManagedObjectModel* ContextCore::model() const {
  PersistentStoreCoordinator* c = rootCoordinator();
  return c ? &c->managedObjectModel() : nullptr;
}

ManagedObjectID ContextCore::resolveID(const ManagedObjectID& id) const {
  if (!id.isTemporaryID()) return id;
  if (const ManagedObjectID* permanent = remapped_.find(id)) return *permanent;
  if (parent_) {
    std::lock_guard<std::recursive_mutex> lock(parent_->core().mutex_);
    return parent_->core().resolveID(id);
  }
  return id;
}

ManagedObjectPtr ContextCore::registeredObject(const ManagedObjectID& id) const {
  ManagedObject* o = registered_.find(id);
  if (!o && id.isTemporaryID()) o = registered_.find(resolveID(id));
  // Null for an object whose last owner is letting go of it right now; it
  // takes itself out of the registry on its way.
  return o ? o->weak_from_this().lock() : nullptr;
}

std::vector<ManagedObjectPtr> ContextCore::allRegistered() const {
  std::vector<ManagedObjectPtr> out;
  out.reserve(registered_.size());
  registered_.forEach([&](const ManagedObjectID&, ManagedObject* object) {
    if (auto o = object->weak_from_this().lock()) out.push_back(std::move(o));
  });
  return out;
}

void ContextCore::registerObject(const ManagedObjectPtr& object) {
  registered_.insert(object->state_->id, object.get());
}

void ContextCore::forget(const ManagedObjectID& id, const ManagedObject* object) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  registered_.erase(id, object);
}

void ContextCore::rekey(ManagedObject& object, const ManagedObjectID& newID) {
  ObjectState& s = *object.state_;
  registered_.erase(s.id);
  s.id = newID;
  registered_.insert(newID, &object);
}

void ContextCore::detach(ManagedObject& object) {
  ObjectState& s = *object.state_;
  registered_.erase(s.id);
  s.core = nullptr;
  s.context = nullptr;
  s.tracked = false;
}

ManagedObjectPtr ContextCore::objectForID(const ManagedObjectID& rawID) {
  if (!rawID) return nullptr;
  const ManagedObjectID id = resolveID(rawID);
  if (auto o = registeredObject(id)) return o;
  ManagedObjectPtr o = id.entity().makeInstance();
  ObjectState& s = *o->state_;
  s.entity = &id.entity();
  s.id = id;
  s.core = this;
  s.context = &owner_;
  s.fault = true;
  registerObject(o);
  return o;
}

ManagedObjectPtr ContextCore::objectFromSnapshot(RowSnapshot&& row) {
  if (auto o = registeredObject(row.id)) {
    if (o->state_->fault) {
      o->state_->fillFromSnapshot(std::move(row));
      o->awakeFromFetch();
    }
    return o;
  }
  ManagedObjectPtr o = row.entity->makeInstance();
  ObjectState& s = *o->state_;
  s.entity = row.entity;
  s.id = row.id;
  s.core = this;
  s.context = &owner_;
  s.fillFromSnapshot(std::move(row));
  registerObject(o);
  o->awakeFromFetch();
  return o;
}

ManagedObjectPtr ContextCore::objectFromStatement(const SQLiteStore& store,
                                                  const EntityDescription& anyOfChain,
                                                  sqlite3_stmt* statement,
                                                  std::vector<ManagedObject*>& awaken) {
  const EntityDescription& entity = store.rowEntity(anyOfChain, statement);
  const ManagedObjectID id = store.rowID(entity, statement);
  ManagedObjectPtr o;
  if (ManagedObject* known = registered_.find(id)) {
    o = known->weak_from_this().lock();
    // A filled object keeps its state, unsaved changes included.
    if (o && !o->state_->fault) return o;
  }
  if (!o) {
    o = entity.makeInstance();
    ObjectState& s = *o->state_;
    s.entity = &entity;
    s.id = id;
    s.core = this;
    s.context = &owner_;
    registerObject(o);
  }
  ObjectState& s = *o->state_;
  if (entity.isKindOfEntity(*s.entity)) s.entity = &entity;
  store.readColumns(entity, statement, s.attributes, s.toOne);
  s.markFilled(store.rowVersion(statement));
  awaken.push_back(o.get());
  return o;
}

bool ContextCore::loadSnapshot(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error) const {
  if (parent_) return parent_->core().snapshotForChild(id, out, error);
  if (!coordinator_) return false;
  std::lock_guard<std::recursive_mutex> lock(coordinator_->mutex());
  SQLiteStore* store = coordinator_->sqliteStore();
  return store && store->readRow(id, out, error);
}

bool ContextCore::loadToMany(const ManagedObjectID& id, const RelationshipDescription& r,
                             std::vector<ManagedObjectID>& out, OptionalError& error) const {
  if (parent_) return parent_->core().toManyForChild(id, r, out, error);
  out.clear();
  if (!coordinator_) return true;
  std::lock_guard<std::recursive_mutex> lock(coordinator_->mutex());
  SQLiteStore* store = coordinator_->sqliteStore();
  return !store || store->readToMany(id, r, out, error);
}

bool ContextCore::snapshotForChild(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (auto o = registeredObject(id)) {
    ObjectState& s = *o->state_;
    if (s.deleted) return false;
    if (!s.fault) {
      out.entity = s.entity;
      out.id = s.id;
      out.attributes = s.attributes;
      out.toOne = s.toOne;
      for (auto& target : out.toOne) target = resolveID(target);
      out.version = s.version;
      return true;
    }
  }
  return loadSnapshot(resolveID(id), out, error);
}

bool ContextCore::toManyForChild(const ManagedObjectID& id, const RelationshipDescription& r,
                                 std::vector<ManagedObjectID>& out, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (auto o = registeredObject(id)) {
    ObjectState& s = *o->state_;
    if (!s.fault && (s.toManyAt(r.slot()).loaded || s.toManyAt(r.slot()).changed())) {
      if (!ensureToManyLoaded(s, r, error)) return false;
      out = s.toManyAt(r.slot()).current.items();
      for (auto& member : out) member = resolveID(member);
      return true;
    }
  }
  return loadToMany(resolveID(id), r, out, error);
}

bool ContextCore::fireFault(ManagedObject& object, OptionalError& error) const {
  ObjectState& s = *object.state_;
  if (!s.fault) return true;
  RowSnapshot row;
  if (!loadSnapshot(s.id, row, error)) return false;
  s.fillFromSnapshot(std::move(row));
  object.awakeFromFetch();
  return true;
}

bool ContextCore::fireFaultForRead(ManagedObject& object) const {
  OptionalError error;
  if (fireFault(object, error)) return true;
  if (error)
    LUMEO_LOG_WARNING("cannot read %@: %@", object.state_->id.URIRepresentation(), error->toString());
  return false;
}

bool ContextCore::fireFaultForChange(ManagedObject& object) {
  OptionalError error;
  if (fireFault(object, error)) return true;
  if (error) notePendingError(*error);
  return false;
}

void ContextCore::notePendingError(const Error& error) {
  LUMEO_LOG_WARNING("a change is incomplete, the next save fails: %@", error.toString());
  if (!pendingError_) pendingError_ = error;
}

bool ContextCore::ensureToManyLoaded(ObjectState& s, const RelationshipDescription& r,
                                     OptionalError& error) const {
  ToManyState& tm = s.toManyAt(r.slot());
  if (tm.loaded) return true;
  std::vector<ManagedObjectID> ids;
  if (!loadToMany(s.id, r, ids, error)) return false;
  tm.committed.assign(ids);
  // What the context changed while the set was not loaded goes on top.
  for (const auto& id : tm.removed.items()) ids.erase(std::remove(ids.begin(), ids.end(), id), ids.end());
  tm.current.assign(std::move(ids));
  for (const auto& id : tm.added.items()) tm.current.add(id);
  tm.loaded = true;
  return true;
}

void ContextCore::ensureToManyLoadedForRead(ObjectState& s, const RelationshipDescription& r) const {
  OptionalError error;
  if (ensureToManyLoaded(s, r, error)) return;
  LUMEO_LOG_WARNING("cannot read %@ of %@: %@", r.name(), s.id.URIRepresentation(),
                    error ? error->toString() : std::string("no store"));
}

void ContextCore::track(ManagedObject& object) {
  ObjectState& s = *object.state_;
  if (s.tracked) return;
  s.tracked = true;
  tracked_.push_back(object.shared_from_this());
}

void ContextCore::markChanged(ObjectState& s) {
  if (!s.inserted && !s.deleted) s.updated = true;
  s.touchedSinceWillSave = true;
  if (!s.tracked) {
    if (auto o = registeredObject(s.id)) track(*o);
  }
}

std::vector<ManagedObjectPtr> ContextCore::trackedObjects() const {
  // An object may sit in the list twice (untracked by a refresh, tracked
  // again); a mark on the object drops the second entry.
  std::vector<ManagedObjectPtr> out;
  out.reserve(tracked_.size());
  for (const auto& o : tracked_) {
    ObjectState& s = *o->state_;
    if (s.tracked && s.core == this && !s.listed) {
      s.listed = true;
      out.push_back(o);
    }
  }
  for (const auto& o : out) o->state_->listed = false;
  return out;
}

bool ContextCore::hasChanges() const {
  for (const auto& o : tracked_) {
    const ObjectState& s = *o->state_;
    if (s.core != this) continue;
    if (s.inserted != s.deleted || s.updated) return true;
  }
  return false;
}

ManagedObjectPtr ContextCore::insert(const EntityDescription& entity) {
  if (entity.isAbstract())
    throw std::invalid_argument("cannot insert an object of abstract entity " + entity.name());
  ManagedObjectPtr o = entity.makeInstance();
  ObjectState& s = *o->state_;
  s.prepareEmpty(entity);
  s.id = ManagedObjectID::makeTemporary(entity);
  s.core = this;
  s.context = &owner_;
  s.inserted = true;
  s.touchedSinceWillSave = true;
  registerObject(o);
  track(*o);
  o->awakeFromInsert();
  return o;
}

void ContextCore::setToOne(ManagedObject& object, const RelationshipDescription& r,
                           const ManagedObjectID& target, bool maintainInverse) {
  ObjectState& s = *object.state_;
  if (s.fault && !fireFaultForChange(object)) return;
  const ManagedObjectID old = resolveID(s.toOne[r.slot()]);
  s.noteToOneChange(r.slot());
  s.toOne[r.slot()] = target;
  markChanged(s);
  if (old == target || !maintainInverse) return;
  const RelationshipDescription* inv = r.inverseRelationship();
  if (!inv) return;
  if (old) {
    if (ManagedObjectPtr previous = objectForID(old); previous && fireFaultForChange(*previous)) {
      if (inv->isToMany()) {
        removeToMany(*previous, *inv, s.id, false);
      } else if (resolveID(previous->state_->toOne[inv->slot()]) == s.id) {
        setToOne(*previous, *inv, ManagedObjectID(), false);
      }
    }
  }
  if (target) {
    ManagedObjectPtr next = objectForID(target);
    if (!next || !fireFaultForChange(*next)) return;
    if (inv->isToMany()) {
      addToMany(*next, *inv, s.id, false);
    } else {
      // One-to-one: the target's former partner loses it.
      const ManagedObjectID stolen = resolveID(next->state_->toOne[inv->slot()]);
      if (stolen && stolen != s.id) {
        if (ManagedObjectPtr other = objectForID(stolen); other && fireFaultForChange(*other)) {
          setToOne(*other, r, ManagedObjectID(), false);
        }
      }
      setToOne(*next, *inv, s.id, false);
    }
  }
}

void ContextCore::addToMany(ManagedObject& object, const RelationshipDescription& r,
                            const ManagedObjectID& member, bool maintainInverse,
                            std::optional<std::size_t> index) {
  ObjectState& s = *object.state_;
  if (s.fault && !fireFaultForChange(object)) return;
  ToManyState& tm = s.toManyAt(r.slot());
  if (r.isOrdered()) {
    OptionalError error;
    if (!ensureToManyLoaded(s, r, error)) {
      if (error) notePendingError(*error);
      return;
    }
  }
  if (tm.loaded) {
    if (tm.current.contains(member)) {
      if (!index) return;
      tm.current.insertAt(member, *index);
      tm.reordered = true;
      markChanged(s);
      return;
    }
    if (index) {
      tm.current.insertAt(member, *index);
    } else {
      tm.current.add(member);
    }
    if (r.isOrdered()) tm.reordered = true;
  }
  // A removal cancels out only when the member is known to be in the file:
  // one removed from a set that was not loaded may never have been a member,
  // and then the addition must still reach the file.
  const bool wasRemoved = tm.removed.remove(member);
  if (wasRemoved ? !tm.loaded : !(tm.loaded && tm.committed.contains(member))) tm.added.add(member);
  markChanged(s);
  if (!maintainInverse) return;
  const RelationshipDescription* inv = r.inverseRelationship();
  if (!inv) return;
  ManagedObjectPtr target = objectForID(member);
  if (!target || !fireFaultForChange(*target)) return;
  if (inv->isToMany()) {
    addToMany(*target, *inv, s.id, false);
    return;
  }
  const ManagedObjectID previous = resolveID(target->state_->toOne[inv->slot()]);
  if (previous == s.id) return;
  if (previous) {
    if (ManagedObjectPtr owner = objectForID(previous); owner && fireFaultForChange(*owner)) {
      removeToMany(*owner, r, member, false);
    }
  }
  setToOne(*target, *inv, s.id, false);
}

void ContextCore::removeToMany(ManagedObject& object, const RelationshipDescription& r,
                               const ManagedObjectID& member, bool maintainInverse) {
  ObjectState& s = *object.state_;
  if (s.fault && !fireFaultForChange(object)) return;
  ToManyState& tm = s.toManyAt(r.slot());
  if (tm.loaded && !tm.current.remove(member)) return;
  // An addition cancels out only when the member is known not to be in the
  // file: one added to a set that was not loaded yet may have been a member
  // all along, and then the removal must still reach the file.
  const bool wasAdded = tm.added.remove(member);
  if (!wasAdded || !tm.loaded || tm.committed.contains(member)) tm.removed.add(member);
  markChanged(s);
  if (!maintainInverse) return;
  const RelationshipDescription* inv = r.inverseRelationship();
  if (!inv) return;
  ManagedObjectPtr target = objectForID(member);
  if (!target || !fireFaultForChange(*target)) return;
  if (inv->isToMany()) {
    removeToMany(*target, *inv, s.id, false);
  } else if (resolveID(target->state_->toOne[inv->slot()]) == s.id) {
    setToOne(*target, *inv, ManagedObjectID(), false);
  }
}

OptionalError ContextCore::deleteObject(ManagedObject& object) {
  ObjectState& s = *object.state_;
  if (s.core != this) throw std::invalid_argument("object belongs to another context");
  if (s.deleted) return std::nullopt;
  OptionalError error;
  std::unordered_set<const ManagedObject*> visited;
  const bool loaded = loadForDeletion(object, visited, error);
  if (error) return error;
  if (!loaded) return std::nullopt;  // the row is gone: nothing to delete
  deleteLoaded(object);
  return std::nullopt;
}

bool ContextCore::loadForDeletion(ManagedObject& object, std::unordered_set<const ManagedObject*>& visited,
                                  OptionalError& error) {
  ObjectState& s = *object.state_;
  if (s.deleted || !visited.insert(&object).second) return true;
  if (s.fault && !fireFault(object, error)) return false;
  for (const RelationshipDescription* r : s.entity->relationships()) {
    if (r->deleteRule() == DeleteRule::kNoAction) continue;
    std::vector<ManagedObjectID> targets;
    if (r->isToMany()) {
      if (!ensureToManyLoaded(s, *r, error)) return false;
      targets = s.toManyAt(r->slot()).current.items();
    } else if (s.toOne[r->slot()]) {
      targets.push_back(resolveID(s.toOne[r->slot()]));
    }
    for (const ManagedObjectID& id : targets) {
      ManagedObjectPtr target = objectForID(id);
      if (!target) continue;
      if (r->deleteRule() == DeleteRule::kCascade) {
        if (!loadForDeletion(*target, visited, error) && error) return false;
      } else if (target->state_->fault && !fireFault(*target, error) && error) {
        return false;
      }
    }
  }
  return true;
}

void ContextCore::deleteLoaded(ManagedObject& object) {
  ObjectState& s = *object.state_;
  if (s.deleted) return;
  if (s.fault && !fireFaultForChange(object)) return;
  object.prepareForDeletion();
  s.deleted = true;
  s.touchedSinceWillSave = true;
  track(object);
  ManagedObjectPtr keep = object.shared_from_this();
  for (const RelationshipDescription* r : s.entity->relationships()) {
    std::vector<ManagedObjectID> targets;
    if (r->isToMany()) {
      OptionalError error;
      if (!ensureToManyLoaded(s, *r, error)) {
        // Loaded before the walk began; only a hook can have unloaded it.
        if (error) notePendingError(*error);
        continue;
      }
      targets = s.toManyAt(r->slot()).current.items();
    } else if (s.toOne[r->slot()]) {
      targets.push_back(resolveID(s.toOne[r->slot()]));
    }
    if (targets.empty() || r->deleteRule() == DeleteRule::kNoAction) continue;
    const RelationshipDescription* inv = r->inverseRelationship();
    for (const ManagedObjectID& id : targets) {
      ManagedObjectPtr target = objectForID(id);
      if (!target || !fireFaultForChange(*target)) continue;
      if (r->deleteRule() == DeleteRule::kCascade) {
        // The target goes too; its hook still sees this object.
        deleteLoaded(*target);
        continue;
      }
      if (inv) {
        if (inv->isToMany()) {
          removeToMany(*target, *inv, s.id, false);
        } else if (resolveID(target->state_->toOne[inv->slot()]) == s.id) {
          setToOne(*target, *inv, ManagedObjectID(), false);
        }
      }
    }
  }
}

}  // namespace lumeo
