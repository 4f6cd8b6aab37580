// The data of one managed object inside its context: values as last read
// (committed) and as changed, relationship targets as IDs, and the change
// flags. Internal to the object-graph module.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "objectgraph/id_table.h"
#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"
#include "platform/value.h"

namespace lumeo {

class ContextCore;
class ManagedObjectContext;

// An insertion-ordered set of IDs with quick membership tests once it grows.
class IdList {
 public:
  const std::vector<ManagedObjectID>& items() const { return items_; }
  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  bool contains(const ManagedObjectID& id) const;
  bool add(const ManagedObjectID& id);  // false when present
  bool remove(const ManagedObjectID& id);
  void insertAt(const ManagedObjectID& id, std::size_t index);  // moves a present member
  void clear();
  void assign(std::vector<ManagedObjectID> ids);
  // Makes this list equal to `other`. When this one is a prefix of it (the
  // usual case when a save commits a set that only grew) only the new tail
  // is appended, so a large set's commit does not copy it whole.
  void becomeCopyOf(const IdList& other);
  // Rewrites IDs in place; `remap` returns true when it changed one. With
  // `onlyTemporary`, permanent IDs are not offered to it, and a list without
  // temporary IDs is skipped at once.
  void remapIDs(const std::function<bool(ManagedObjectID&)>& remap, bool onlyTemporary);

 private:
  void noteAdded(const ManagedObjectID& id);
  void buildIndex() const;
  std::vector<ManagedObjectID> items_;
  // Index of items_ once the list is long enough for scans to hurt; empty
  // until a lookup needs it, then kept in step.
  mutable IdTable<bool> index_;
  std::size_t temporaries_ = 0;  // temporary IDs among items_
};

struct ToManyState {
  bool loaded = false;
  IdList committed;  // valid when loaded
  IdList current;    // valid when loaded
  // Changes since the last commit, kept also while not loaded, so that
  // adding one member to a large unloaded set costs nothing.
  IdList added;
  IdList removed;
  // An ordered relationship whose order changed without membership change.
  bool reordered = false;
  bool changed() const { return !added.empty() || !removed.empty() || reordered; }
};

// An object's values by attribute slot and to-one targets by to-one slot.
using ValueSlots = std::vector<Value>;
using IdSlots = std::vector<ManagedObjectID>;

// A row as a context or the store sees it.
struct RowSnapshot {
  const EntityDescription* entity = nullptr;
  ManagedObjectID id;
  ValueSlots attributes;  // by attribute slot
  IdSlots toOne;          // by to-one slot; null ID for none
  std::int64_t version = 0;
};

// What an object keeps only once it changes: its committed values and which
// slots changed. Most objects of a large fetch are only read and go without,
// which keeps each of them about a hundred bytes smaller.
struct ObjectChanges {
  ValueSlots committedAttributes;  // empty: as attributes
  std::vector<std::uint8_t> attributeChanged;
  IdSlots committedToOne;  // empty: as toOne
  std::vector<std::uint8_t> toOneChanged;
};

struct ObjectState {
  const EntityDescription* entity = nullptr;
  ManagedObjectContext* context = nullptr;  // null when detached
  ContextCore* core = nullptr;
  ManagedObjectID id;

  bool fault = true;
  bool inserted = false;
  bool updated = false;
  bool deleted = false;
  bool tracked = false;  // in the context's list of changed objects
  bool touchedSinceWillSave = false;
  bool awake = false;   // awakeFromInsert/Fetch ran
  bool listed = false;  // scratch mark of trackedObjects()

  ValueSlots attributes;
  IdSlots toOne;
  std::unique_ptr<ObjectChanges> changes;  // null: nothing changed
  std::vector<ToManyState> toMany;
  std::int64_t version = 0;

  bool hasChanges() const { return inserted || updated || deleted; }

  ObjectChanges& changesForWrite();
  // Forgets the committed values and change flags: the current values are
  // the committed ones.
  void dropChanges() { changes.reset(); }

  // Committed values and change flags are kept only once something changes:
  // an object that is only read never copies its row.
  const Value& committedAttribute(std::size_t i) const {
    return !changes || changes->committedAttributes.empty() ? attributes[i] : changes->committedAttributes[i];
  }
  bool attributeWasChanged(std::size_t i) const {
    return changes && !changes->attributeChanged.empty() && changes->attributeChanged[i];
  }
  // Call before writing attributes[i].
  void noteAttributeChange(std::size_t i) {
    ObjectChanges& c = changesForWrite();
    if (c.committedAttributes.empty()) c.committedAttributes = attributes;
    if (c.attributeChanged.empty()) c.attributeChanged.assign(attributes.size(), 0);
    c.attributeChanged[i] = 1;
  }
  const ManagedObjectID& committedToOneAt(std::size_t i) const {
    return !changes || changes->committedToOne.empty() ? toOne[i] : changes->committedToOne[i];
  }
  bool toOneWasChanged(std::size_t i) const {
    return changes && !changes->toOneChanged.empty() && changes->toOneChanged[i];
  }
  void noteToOneChange(std::size_t i) {
    ObjectChanges& c = changesForWrite();
    if (c.committedToOne.empty()) c.committedToOne = toOne;
    if (c.toOneChanged.empty()) c.toOneChanged.assign(toOne.size(), 0);
    c.toOneChanged[i] = 1;
  }
  // The state of a to-many relationship, made on first use: a fetched
  // object that never touches its to-many relationships allocates nothing
  // for them.
  ToManyState& toManyAt(std::size_t slot) {
    if (toMany.size() <= slot) toMany.resize(entity->toManyRelationships().size());
    return toMany[slot];
  }
  void resetToFault();
  void fillFromSnapshot(RowSnapshot&& row);
  // After attributes and toOne were written from a row of that version: the
  // object is no fault and has no changes.
  void markFilled(std::int64_t rowVersion);
  void prepareEmpty(const EntityDescription& e);
  // Current values become the committed ones.
  void commit();
};

}  // namespace lumeo
