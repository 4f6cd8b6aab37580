// The registry of a context's objects by ID, which makes sure a context hands
// out one object per ID. Internal to the object-graph module.
#pragma once

#include "objectgraph/id_table.h"

namespace lumeo {

class ManagedObject;

// Holds plain pointers, not owners: an object takes itself out (through its
// context's forget) while it is being destroyed, and a context empties the
// registry before it lets go of its objects, so no entry outlives its object.
// Not thread-safe; the context's lock guards it.
class ObjectRegistry {
 public:
  ManagedObject* find(const ManagedObjectID& id) const {
    ManagedObject* const* found = table_.find(id);
    return found ? *found : nullptr;
  }
  // Registers the object of `id`, replacing an earlier one.
  void insert(const ManagedObjectID& id, ManagedObject* object) { table_.insert(id, object); }
  // Removes the entry of `id`; with `only`, just when it is that object.
  bool erase(const ManagedObjectID& id, const ManagedObject* only = nullptr) {
    return table_.eraseIf(id, [&](ManagedObject* o) { return !only || o == only; });
  }
  void clear() { table_.release(); }
  std::size_t size() const { return table_.size(); }
  template <class Visit>
  void forEach(Visit&& visit) const {
    table_.forEach(visit);
  }

 private:
  IdTable<ManagedObject*> table_;
};

}  // namespace lumeo
