// Reading and writing an object's properties by name, with faulting, change
// tracking and the change views (changed and committed values). The
// relationship bookkeeping itself lives in the context (context_core.cpp).
#include "objectgraph/managed_object.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include "objectgraph/context_core.h"
#include "objectgraph/object_state.h"

namespace lumeo {

// --- IdList and ObjectState.

namespace {

// Shorter lists are scanned: cheaper than hashing, and no memory for an index.
constexpr std::size_t kIndexFrom = 64;

}  // namespace

void IdList::buildIndex() const {
  if (index_.size() == items_.size()) return;
  index_.clear();
  for (const auto& item : items_) index_.insert(item, true);
}

bool IdList::contains(const ManagedObjectID& id) const {
  if (items_.size() < kIndexFrom) {
    for (const auto& item : items_) {
      if (item == id) return true;
    }
    return false;
  }
  buildIndex();
  return index_.contains(id);
}

void IdList::noteAdded(const ManagedObjectID& id) {
  if (id.isTemporaryID()) ++temporaries_;
  if (!index_.empty()) index_.insert(id, true);
}

bool IdList::add(const ManagedObjectID& id) {
  if (contains(id)) return false;
  items_.push_back(id);
  noteAdded(id);
  return true;
}

bool IdList::remove(const ManagedObjectID& id) {
  if (!contains(id)) return false;
  for (auto it = items_.begin(); it != items_.end(); ++it) {
    if (*it == id) {
      if (it->isTemporaryID()) --temporaries_;
      items_.erase(it);
      break;
    }
  }
  index_.erase(id);
  return true;
}

void IdList::insertAt(const ManagedObjectID& id, std::size_t index) {
  remove(id);
  if (index > items_.size()) index = items_.size();
  items_.insert(items_.begin() + static_cast<long>(index), id);
  noteAdded(id);
}

void IdList::clear() {
  items_.clear();
  index_.release();
  temporaries_ = 0;
}

void IdList::assign(std::vector<ManagedObjectID> ids) {
  items_ = std::move(ids);
  index_.release();
  temporaries_ = 0;
  for (const auto& id : items_) temporaries_ += id.isTemporaryID() ? 1 : 0;
}

void IdList::becomeCopyOf(const IdList& other) {
  if (this == &other) return;
  const std::size_t n = items_.size();
  // IDs are plain values, so equal bytes mean equal IDs; unequal bytes only
  // send us down the full copy.
  const bool prefix = n <= other.items_.size() && (n == 0 || std::memcmp(items_.data(), other.items_.data(),
                                                                         n * sizeof(ManagedObjectID)) == 0);
  if (!prefix) {
    items_ = other.items_;
    index_ = other.index_;
    temporaries_ = other.temporaries_;
    return;
  }
  for (std::size_t i = n; i < other.items_.size(); ++i) {
    items_.push_back(other.items_[i]);
    noteAdded(other.items_[i]);
  }
}

void IdList::remapIDs(const std::function<bool(ManagedObjectID&)>& remap, bool onlyTemporary) {
  if (onlyTemporary && temporaries_ == 0) return;
  for (auto& item : items_) {
    if (onlyTemporary && !item.isTemporaryID()) continue;
    const ManagedObjectID old = item;
    if (!remap(item)) continue;
    temporaries_ += (item.isTemporaryID() ? 1 : 0);
    temporaries_ -= (old.isTemporaryID() ? 1 : 0);
    if (!index_.empty()) {
      index_.erase(old);
      index_.insert(item, true);
    }
  }
}

ObjectChanges& ObjectState::changesForWrite() {
  if (!changes) changes = std::make_unique<ObjectChanges>();
  return *changes;
}

void ObjectState::resetToFault() {
  fault = true;
  attributes.clear();
  toOne.clear();
  dropChanges();
  toMany.clear();
}

void ObjectState::fillFromSnapshot(RowSnapshot&& row) {
  if (row.entity && row.entity->isKindOfEntity(*entity)) entity = row.entity;
  attributes = std::move(row.attributes);
  toOne = std::move(row.toOne);
  markFilled(row.version);
}

void ObjectState::markFilled(std::int64_t rowVersion) {
  dropChanges();
  toMany.clear();
  version = rowVersion;
  fault = false;
}

void ObjectState::prepareEmpty(const EntityDescription& e) {
  entity = &e;
  const auto& attrs = e.attributes();
  attributes.resize(attrs.size());
  for (std::size_t i = 0; i < attrs.size(); ++i) attributes[i] = attrs[i]->coerce(attrs[i]->defaultValue());
  toOne.assign(e.toOneRelationships().size(), ManagedObjectID());
  // A new object's committed values are all null.
  dropChanges();
  ObjectChanges& c = changesForWrite();
  c.committedAttributes.assign(attrs.size(), Value());
  c.committedToOne = toOne;
  toMany.clear();
  toMany.resize(e.toManyRelationships().size());
  for (auto& tm : toMany) tm.loaded = true;
  fault = false;
}

void ObjectState::commit() {
  dropChanges();
  for (auto& tm : toMany) {
    if (tm.loaded) tm.committed.becomeCopyOf(tm.current);
    tm.added.clear();
    tm.removed.clear();
    tm.reordered = false;
  }
}

// --- ManagedObject.

namespace {

class Guard {
 public:
  explicit Guard(const ObjectState& s) : core_(s.core) {
    if (core_) core_->mutex_.lock();
  }
  ~Guard() {
    if (core_) core_->mutex_.unlock();
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  ContextCore* core_;
};

const AttributeDescription& attributeOrThrow(const EntityDescription& e, std::string_view key) {
  const AttributeDescription* a = e.attributeNamed(key);
  if (!a) throw std::invalid_argument("'" + std::string(key) + "' is no attribute of " + e.name());
  return *a;
}

const RelationshipDescription& relationshipOrThrow(const EntityDescription& e, std::string_view key,
                                                   bool toMany) {
  const RelationshipDescription* r = e.relationshipNamed(key);
  if (!r || r->isToMany() != toMany) {
    throw std::invalid_argument("'" + std::string(key) + "' is no " + (toMany ? "to-many" : "to-one") +
                                " relationship of " + e.name());
  }
  return *r;
}

std::string uriOf(const ManagedObjectID& id) {
  return id ? id.URIRepresentation() : std::string();
}

Value uriArray(const std::vector<ManagedObjectID>& ids) {
  Value::Array out;
  for (const auto& id : ids) out.emplace_back(id.URIRepresentation());
  return Value(std::move(out));
}

}  // namespace

ManagedObject::ManagedObject() = default;

ManagedObject::~ManagedObject() {
  if (state_->core) state_->core->forget(state_->id, this);
}

const EntityDescription& ManagedObject::entity() const {
  return *state_->entity;
}

ManagedObjectID ManagedObject::objectID() const {
  Guard g(*state_);
  return state_->id;
}

ManagedObjectContext* ManagedObject::managedObjectContext() const {
  return state_->context;
}

bool ManagedObject::isInserted() const {
  Guard g(*state_);
  return state_->inserted && !state_->deleted;
}
bool ManagedObject::isUpdated() const {
  Guard g(*state_);
  return state_->updated && !state_->deleted;
}
bool ManagedObject::isDeleted() const {
  Guard g(*state_);
  return state_->deleted && !state_->inserted;
}
bool ManagedObject::isFault() const {
  Guard g(*state_);
  return state_->fault;
}
bool ManagedObject::hasChanges() const {
  Guard g(*state_);
  return state_->hasChanges();
}

Value ManagedObject::valueForKey(std::string_view key) const {
  const AttributeDescription& a = attributeOrThrow(entity(), key);
  Guard g(*state_);
  if (state_->fault && (!state_->core || !state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this))))
    return {};
  return state_->attributes[a.slot()];
}

void ManagedObject::setValueForKey(std::string_view key, const Value& value) {
  const AttributeDescription& a = attributeOrThrow(entity(), key);
  Value coerced = a.coerce(value);
  Guard g(*state_);
  if (!state_->core) throw std::logic_error("cannot change an object that has no context");
  if (state_->fault && !state_->core->fireFaultForChange(*this)) return;  // the row is gone or unreadable
  state_->noteAttributeChange(a.slot());
  state_->attributes[a.slot()] = std::move(coerced);
  state_->core->markChanged(*state_);
}

bool ManagedObject::setValueIfChanged(const AttributeDescription& a, const Value& value) {
  const auto& attributes = entity().attributes();
  if (a.slot() >= attributes.size() || attributes[a.slot()] != &a)
    throw std::invalid_argument("'" + a.name() + "' is no attribute of " + entity().name());
  Guard g(*state_);
  const bool readable = !state_->fault || (state_->core && state_->core->fireFaultForRead(*this));
  if (readable ? state_->attributes[a.slot()] == value : value.isNull()) return false;
  Value coerced = a.coerce(value);
  if (!state_->core) throw std::logic_error("cannot change an object that has no context");
  if (state_->fault && !state_->core->fireFaultForChange(*this)) return false;
  state_->noteAttributeChange(a.slot());
  state_->attributes[a.slot()] = std::move(coerced);
  state_->core->markChanged(*state_);
  return true;
}

Value ManagedObject::valueForKeyPath(std::string_view keyPath) const {
  const auto dot = keyPath.find('.');
  const std::string_view head = keyPath.substr(0, dot);
  const std::string_view rest = dot == std::string_view::npos ? std::string_view() : keyPath.substr(dot + 1);
  const PropertyDescription* p = entity().propertyNamed(head);
  if (!p) throw std::invalid_argument("'" + std::string(head) + "' is no property of " + entity().name());
  if (p->isAttribute()) {
    if (!rest.empty())
      throw std::invalid_argument("key path continues after attribute '" + std::string(head) + "'");
    return valueForKey(head);
  }
  const auto* r = static_cast<const RelationshipDescription*>(p);
  if (!r->isToMany()) {
    ManagedObjectPtr target = objectForKey(head);
    if (rest.empty()) return target ? Value(target->objectID().URIRepresentation()) : Value();
    return target ? target->valueForKeyPath(rest) : Value();
  }
  if (rest == "@count") return Value(static_cast<long long>(countForKey(head)));
  Value::Array out;
  for (const auto& member : objectsForKey(head)) {
    out.push_back(rest.empty() ? Value(member->objectID().URIRepresentation())
                               : member->valueForKeyPath(rest));
  }
  return Value(std::move(out));
}

std::optional<ManagedObjectID> ManagedObject::objectIDForKey(std::string_view relationship) const {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, false);
  Guard g(*state_);
  if (state_->fault &&
      (!state_->core || !state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this)))) {
    return std::nullopt;
  }
  const ManagedObjectID& id = state_->toOne[r.slot()];
  if (!id) return std::nullopt;
  return state_->core ? state_->core->resolveID(id) : id;
}

ManagedObjectPtr ManagedObject::objectForKey(std::string_view relationship) const {
  auto id = objectIDForKey(relationship);
  if (!id) return nullptr;
  Guard g(*state_);
  return state_->core ? state_->core->objectForID(*id) : nullptr;
}

void ManagedObject::setObjectForKey(std::string_view relationship, const ManagedObjectPtr& object) {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, false);
  if (object && !object->entity().isKindOfEntity(r.destinationEntity())) {
    throw std::invalid_argument("object of " + object->entity().name() + " for relationship '" + r.name() +
                                "'");
  }
  Guard g(*state_);
  if (!state_->core) throw std::logic_error("cannot change an object that has no context");
  if (object && object->state_->core != state_->core) {
    throw std::invalid_argument("relationship '" + r.name() + "' across contexts");
  }
  state_->core->setToOne(*this, r, object ? object->state_->id : ManagedObjectID(), true);
}

std::vector<ManagedObjectID> ManagedObject::objectIDsForRelationshipNamed(
    std::string_view relationship) const {
  const RelationshipDescription* r = entity().relationshipNamed(relationship);
  if (!r)
    throw std::invalid_argument("'" + std::string(relationship) + "' is no relationship of " +
                                entity().name());
  if (!r->isToMany()) {
    auto id = objectIDForKey(relationship);
    return id ? std::vector<ManagedObjectID>{*id} : std::vector<ManagedObjectID>{};
  }
  Guard g(*state_);
  if (!state_->core) return {};
  if (state_->fault && !state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this))) return {};
  state_->core->ensureToManyLoadedForRead(*state_, *r);
  std::vector<ManagedObjectID> out = state_->toManyAt(r->slot()).current.items();
  for (auto& id : out) id = state_->core->resolveID(id);
  return out;
}

std::vector<ManagedObjectPtr> ManagedObject::objectsForKey(std::string_view relationship) const {
  relationshipOrThrow(entity(), relationship, true);
  std::vector<ManagedObjectID> ids = objectIDsForRelationshipNamed(relationship);
  Guard g(*state_);
  std::vector<ManagedObjectPtr> out;
  if (!state_->core) return out;
  out.reserve(ids.size());
  for (const auto& id : ids) {
    if (auto o = state_->core->objectForID(id)) out.push_back(std::move(o));
  }
  return out;
}

std::size_t ManagedObject::countForKey(std::string_view relationship) const {
  relationshipOrThrow(entity(), relationship, true);
  return objectIDsForRelationshipNamed(relationship).size();
}

void ManagedObject::addObjectForKey(std::string_view relationship, const ManagedObjectPtr& object) {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, true);
  if (!object) throw std::invalid_argument("null object for relationship '" + r.name() + "'");
  if (!object->entity().isKindOfEntity(r.destinationEntity())) {
    throw std::invalid_argument("object of " + object->entity().name() + " for relationship '" + r.name() +
                                "'");
  }
  Guard g(*state_);
  if (!state_->core || object->state_->core != state_->core) {
    throw std::logic_error("relationship '" + r.name() + "' needs both objects in one context");
  }
  state_->core->addToMany(*this, r, object->state_->id, true);
}

void ManagedObject::insertObjectForKey(std::string_view relationship, const ManagedObjectPtr& object,
                                       std::size_t index) {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, true);
  if (!r.isOrdered()) throw std::invalid_argument("relationship '" + r.name() + "' is not ordered");
  if (!object) throw std::invalid_argument("null object for relationship '" + r.name() + "'");
  Guard g(*state_);
  if (!state_->core || object->state_->core != state_->core) {
    throw std::logic_error("relationship '" + r.name() + "' needs both objects in one context");
  }
  state_->core->addToMany(*this, r, object->state_->id, true, index);
}

void ManagedObject::removeObjectForKey(std::string_view relationship, const ManagedObjectPtr& object) {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, true);
  if (!object) return;
  Guard g(*state_);
  if (!state_->core) throw std::logic_error("cannot change an object that has no context");
  state_->core->removeToMany(*this, r, object->state_->id, true);
}

void ManagedObject::setObjectsForKey(std::string_view relationship,
                                     const std::vector<ManagedObjectPtr>& objects) {
  removeAllObjectsForKey(relationship);
  for (const auto& o : objects) addObjectForKey(relationship, o);
}

void ManagedObject::removeAllObjectsForKey(std::string_view relationship) {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, true);
  Guard g(*state_);
  if (!state_->core) throw std::logic_error("cannot change an object that has no context");
  if (state_->fault && !state_->core->fireFaultForChange(*this)) return;
  // Emptying a set that cannot be read would leave its members in the file:
  // the failure fails the next save instead.
  OptionalError error;
  if (!state_->core->ensureToManyLoaded(*state_, r, error)) {
    if (error) state_->core->notePendingError(*error);
    return;
  }
  std::vector<ManagedObjectID> ids = state_->toManyAt(r.slot()).current.items();
  for (const auto& id : ids) state_->core->removeToMany(*this, r, state_->core->resolveID(id), true);
}

std::vector<std::string> ManagedObject::changedPropertyNames() const {
  Guard g(*state_);
  std::vector<std::string> names;
  const ObjectState& s = *state_;
  if (s.fault) return names;
  const auto& attrs = s.entity->attributes();
  for (std::size_t i = 0; i < attrs.size(); ++i) {
    if (s.attributeWasChanged(i) && !(s.attributes[i] == s.committedAttribute(i)))
      names.push_back(attrs[i]->name());
  }
  const auto& toOnes = s.entity->toOneRelationships();
  for (std::size_t i = 0; i < toOnes.size(); ++i) {
    if (s.toOneWasChanged(i) && s.toOne[i] != s.committedToOneAt(i)) names.push_back(toOnes[i]->name());
  }
  const auto& toManys = s.entity->toManyRelationships();
  for (std::size_t i = 0; i < toManys.size(); ++i) {
    if (i < s.toMany.size() && s.toMany[i].changed()) names.push_back(toManys[i]->name());
  }
  return names;
}

Value::Dictionary ManagedObject::changedValues() const {
  Value::Dictionary out;
  for (const std::string& name : changedPropertyNames()) {
    const PropertyDescription* p = entity().propertyNamed(name);
    if (p->isAttribute()) {
      out[name] = valueForKey(name);
    } else if (!static_cast<const RelationshipDescription*>(p)->isToMany()) {
      auto id = objectIDForKey(name);
      out[name] = id ? Value(uriOf(*id)) : Value();
    } else {
      out[name] = uriArray(objectIDsForRelationshipNamed(name));
    }
  }
  return out;
}

Value::Dictionary ManagedObject::committedValuesForKeys(const std::vector<std::string>& keys) const {
  std::vector<std::string> names = keys.empty() ? entity().propertyNames() : keys;
  Value::Dictionary out;
  for (const std::string& name : names) {
    const PropertyDescription* p = entity().propertyNamed(name);
    if (!p) continue;
    if (p->isAttribute()) {
      Guard g(*state_);
      if (state_->fault && state_->core)
        (void)state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this));
      if (!state_->fault) out[name] = state_->committedAttribute(p->slot());
    } else if (!static_cast<const RelationshipDescription*>(p)->isToMany()) {
      auto id = committedObjectIDForKey(name);
      out[name] = id ? Value(uriOf(*id)) : Value();
    } else {
      out[name] = uriArray(committedObjectIDsForKey(name));
    }
  }
  return out;
}

std::optional<ManagedObjectID> ManagedObject::committedObjectIDForKey(std::string_view relationship) const {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, false);
  Guard g(*state_);
  if (state_->fault &&
      (!state_->core || !state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this)))) {
    return std::nullopt;
  }
  const ManagedObjectID& id = state_->committedToOneAt(r.slot());
  if (!id) return std::nullopt;
  return state_->core ? state_->core->resolveID(id) : id;
}

std::vector<ManagedObjectID> ManagedObject::committedObjectIDsForKey(std::string_view relationship) const {
  const RelationshipDescription& r = relationshipOrThrow(entity(), relationship, true);
  Guard g(*state_);
  if (!state_->core) return {};
  if (state_->fault && !state_->core->fireFaultForRead(const_cast<ManagedObject&>(*this))) return {};
  state_->core->ensureToManyLoadedForRead(*state_, r);
  return state_->toManyAt(r.slot()).committed.items();
}

}  // namespace lumeo
