// One object of the graph: a row of an entity as seen by one context, with
// its attributes, its relationships and its unsaved changes. Typed classes
// (MoodRecord, the sync engine's events) derive from it and override the
// lifecycle hooks; the entity's instance factory makes them.
//
// Ownership: objects are held by std::shared_ptr. A context keeps its changed
// objects (inserted, updated, deleted) alive and the others only weakly, so
// an unchanged object lives as long as the caller holds it. Relationships are
// kept as object IDs and resolved through the context on each read, so two
// objects that point at each other never keep each other alive.
//
// Thread: an object belongs to its context; use it on that context's thread
// or inside its performBlock. Accessors take the context's lock, so a stray
// call from another thread is serialised rather than corrupting state.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/object_state.h"
#include "platform/value.h"

namespace lumeo {

class ManagedObjectContext;
class ContextCore;

class ManagedObject;
using ManagedObjectPtr = std::shared_ptr<ManagedObject>;

class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
 public:
  ManagedObject();
  virtual ~ManagedObject();
  ManagedObject(const ManagedObject&) = delete;
  ManagedObject& operator=(const ManagedObject&) = delete;

  const EntityDescription& entity() const;
  ManagedObjectID objectID() const;
  // Null once the object was removed from its context (a saved delete, a
  // reset, or the context is gone).
  ManagedObjectContext* managedObjectContext() const;

  bool isInserted() const;
  bool isUpdated() const;
  bool isDeleted() const;
  bool isFault() const;
  bool hasChanges() const;

  // --- Attributes. Throws std::invalid_argument for a name that is no
  // attribute of the entity. Reading fires a fault.
  Value valueForKey(std::string_view key) const;
  // Marks the object updated even when the value is equal to the present one
  // (as the platform does); changedValues() leaves equal values out.
  void setValueForKey(std::string_view key, const Value& value);
  // What `if (valueForKey(a.name()) != value) setValueForKey(a.name(), value)`
  // does, with the attribute already looked up, one lock and no copy of the
  // present value: an object written only when the value differs stays
  // clean. `attribute` must be one of entity()'s. True when it wrote.
  bool setValueIfChanged(const AttributeDescription& attribute, const Value& value);
  // Follows to-one relationships: "moodDescription.photoName". A to-many
  // step gives an array of the values of its members; @count gives a count.
  Value valueForKeyPath(std::string_view keyPath) const;

  // --- To-one relationships.
  ManagedObjectPtr objectForKey(std::string_view relationship) const;
  std::optional<ManagedObjectID> objectIDForKey(std::string_view relationship) const;
  // Keeps the inverse side in step.
  void setObjectForKey(std::string_view relationship, const ManagedObjectPtr& object);

  // --- To-many relationships (set or ordered set; an ordered one returns its
  // members in order). The inverse side is kept in step.
  std::vector<ManagedObjectPtr> objectsForKey(std::string_view relationship) const;
  std::vector<ManagedObjectID> objectIDsForRelationshipNamed(std::string_view relationship) const;
  std::size_t countForKey(std::string_view relationship) const;
  void addObjectForKey(std::string_view relationship, const ManagedObjectPtr& object);
  void removeObjectForKey(std::string_view relationship, const ManagedObjectPtr& object);
  // Ordered to-many only: inserts at `index` (moves a present member there).
  void insertObjectForKey(std::string_view relationship, const ManagedObjectPtr& object, std::size_t index);
  void setObjectsForKey(std::string_view relationship, const std::vector<ManagedObjectPtr>& objects);
  void removeAllObjectsForKey(std::string_view relationship);

  template <class T>
  std::shared_ptr<T> objectForKeyAs(std::string_view relationship) const {
    return std::dynamic_pointer_cast<T>(objectForKey(relationship));
  }

  // --- Change tracking.
  // Names of properties changed since the last save or refresh, whose value
  // differs from the committed one (attributes) or whose membership or
  // target changed (relationships).
  std::vector<std::string> changedPropertyNames() const;
  // Attribute values as Values; a to-one as the target's URI string (null
  // when cleared), a to-many as an array of URI strings.
  Value::Dictionary changedValues() const;
  // Values as of the last save or fetch, in the same forms; empty `keys` means
  // every property.
  Value::Dictionary committedValuesForKeys(const std::vector<std::string>& keys = {}) const;
  std::optional<ManagedObjectID> committedObjectIDForKey(std::string_view relationship) const;
  std::vector<ManagedObjectID> committedObjectIDsForKey(std::string_view relationship) const;

 protected:
  // Hooks. Overrides call the base version first.
  // Once, right after the object is inserted into a context.
  virtual void awakeFromInsert() {}
  // When a fault is filled from the store.
  virtual void awakeFromFetch() {}
  // For every changed object at the start of a save; changes made here are
  // part of the same save and call willSave again for that object.
  virtual void willSave() {}
  virtual void didSave() {}
  // When the object is deleted, before its relationships are nullified or
  // cascaded, while they can still be read.
  virtual void prepareForDeletion() {}
  virtual void willTurnIntoFault() {}
  virtual void didTurnIntoFault() {}

 private:
  friend class ContextCore;
  friend class ManagedObjectContext;
  // Kept inside the object (not behind a pointer): one allocation less per
  // fetched row. Mutable because faulting fills it from const accessors.
  mutable ObjectState stateStorage_;
  ObjectState* const state_ = &stateStorage_;
};

// Filters objects in memory by a predicate (see predicate.h).
class Predicate;
std::vector<ManagedObjectPtr> filteredArrayUsingPredicate(const std::vector<ManagedObjectPtr>& objects,
                                                          const Predicate& predicate);

}  // namespace lumeo
