// A hash table keyed by object ID with open addressing and linear probing in
// one array: adding, finding and removing allocate nothing and touch one or
// two cache lines, and a copy is one array copy. The object registry of a
// context and the membership index of large to-many sets stand on it, where
// node-based containers paid an allocation per entry and a pointer chase per
// lookup. Internal to the object-graph module.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"

namespace lumeo {

// Maps IDs to values of T; the null ID cannot be a key (it marks free slots).
// Not thread-safe.
template <class T>
class IdTable {
 public:
  std::size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }

  T* find(const ManagedObjectID& id) {
    if (count_ == 0 || !id) return nullptr;
    Slot& slot = slots_[probe(id)];
    return slot.id ? &slot.value : nullptr;
  }
  const T* find(const ManagedObjectID& id) const { return const_cast<IdTable*>(this)->find(id); }
  bool contains(const ManagedObjectID& id) const { return find(id) != nullptr; }

  // Adds or replaces; false when the ID was there already.
  bool insert(const ManagedObjectID& id, T value) {
    if (!id) return false;
    // At most 70% full, so that runs stay short.
    if ((count_ + 1) * 10 > slots_.size() * 7) resize(slots_.empty() ? kMinimumCapacity : slots_.size() * 2);
    Slot& slot = slots_[probe(id)];
    const bool added = !slot.id;
    if (added) ++count_;
    slot.id = id;
    slot.value = std::move(value);
    return added;
  }

  // Removes the entry of `id` when `accept(value)` agrees; false when
  // nothing was removed.
  template <class Accept>
  bool eraseIf(const ManagedObjectID& id, Accept&& accept) {
    if (count_ == 0 || !id) return false;
    const std::size_t mask = slots_.size() - 1;
    std::size_t hole = probe(id);
    if (!slots_[hole].id || !accept(slots_[hole].value)) return false;
    // Move back every later entry of the run whose home does not lie between
    // the hole and its own place, so that probes keep finding it; no
    // tombstones pile up.
    for (std::size_t next = (hole + 1) & mask; slots_[next].id; next = (next + 1) & mask) {
      const std::size_t want = home(slots_[next].id);
      const bool reachable = hole <= next ? (hole < want && want <= next) : (hole < want || want <= next);
      if (reachable) continue;
      slots_[hole] = std::move(slots_[next]);
      hole = next;
    }
    slots_[hole] = Slot{};
    --count_;
    return true;
  }
  bool erase(const ManagedObjectID& id) {
    return eraseIf(id, [](const T&) { return true; });
  }

  // Keeps the capacity: a context or set that held many IDs once tends to
  // again, and fresh memory costs a page fault per 4 KB on first touch.
  void clear() {
    if (count_ == 0) return;
    for (Slot& slot : slots_) slot = Slot{};
    count_ = 0;
  }
  // Gives the memory back.
  void release() {
    slots_ = std::vector<Slot>();
    count_ = 0;
    shift_ = 64;
  }

  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const Slot& slot : slots_) {
      if (slot.id) visit(slot.id, slot.value);
    }
  }

 private:
  struct Slot {
    ManagedObjectID id;  // null: free
    T value{};
  };
  static constexpr std::size_t kMinimumCapacity = 16;
  // Row numbers that differ only in their low kRunBits share a run of slots.
  static constexpr int kRunBits = 3;
  static constexpr std::size_t kRunMask = (std::size_t{1} << kRunBits) - 1;

  std::size_t home(const ManagedObjectID& id) const {
    // Objects tend to come and go in row order (a sorted fetch, a save of
    // new objects), so runs of eight row numbers share a spot and lie side by
    // side: consecutive lookups then stay within a cache line or two, where
    // fully scattered slots cost a cache miss each on a large fetch. The runs
    // are spread by a multiplicative hash of the rest of the row number, the
    // store and the chain (whose name hash keeps equal row numbers of two
    // tables apart; equal IDs always have equal chain names).
    const std::uint64_t key = static_cast<std::uint64_t>(id.rawKey());
    std::uint64_t h = key >> kRunBits;
    h ^= static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(id.storeKey()) >> 4) *
         0xC2B2AE3D27D4EB4Full;
    h ^= id.entity().chainHash();
    h *= 0x9E3779B97F4A7C15ull;
    const std::size_t run = static_cast<std::size_t>(h >> shift_) & ~kRunMask;
    return run | static_cast<std::size_t>(key & kRunMask);
  }

  // Index of the slot holding `id`, or of the free slot that ends its run.
  std::size_t probe(const ManagedObjectID& id) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = home(id);
    while (slots_[i].id && !(slots_[i].id == id)) i = (i + 1) & mask;
    return i;
  }

  void resize(std::size_t capacity) {
    std::vector<Slot> old = std::move(slots_);
    slots_ = std::vector<Slot>(capacity);
    int bits = 0;
    while ((std::size_t{1} << bits) < capacity) ++bits;
    shift_ = 64 - bits;
    const std::size_t mask = capacity - 1;
    for (Slot& slot : old) {
      if (!slot.id) continue;
      std::size_t i = home(slot.id);
      while (slots_[i].id) i = (i + 1) & mask;
      slots_[i] = std::move(slot);
    }
  }

  std::vector<Slot> slots_;
  std::size_t count_ = 0;
  int shift_ = 64;  // 64 - log2(capacity)
};

}  // namespace lumeo
