// The quad tree's annotation set: which annotations the tree holds, the
// strong reference it keeps for each, and where each was filed. Entries sit
// densely in blocks and a small open-addressing index finds them, so
// filing a pin costs no allocation of its own and a million annotations
// take about 50 bytes each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "map/map_annotation.h"

namespace lumeo {

class GeoMapTreeEntryTable {
 public:
  struct Entry {
    MapAnnotationPtr annotation;
    double x;  // where it was filed, so removal finds it after a move
    double y;
  };

  GeoMapTreeEntryTable();
  ~GeoMapTreeEntryTable();
  GeoMapTreeEntryTable(const GeoMapTreeEntryTable&) = delete;
  GeoMapTreeEntryTable& operator=(const GeoMapTreeEntryTable&) = delete;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const Entry* find(const MapAnnotation* annotation) const;
  // Adds an entry for an annotation not yet in the table; false if it is.
  bool insert(MapAnnotationPtr annotation, double x, double y);
  // The same for an annotation known to be absent, skipping the check.
  void insertAbsent(MapAnnotationPtr annotation, double x, double y);
  // Takes the annotation's entry out; false if there was none. The last
  // entry moves into the hole, so removal reorders the entries.
  bool erase(const MapAnnotation* annotation);
  // Starts loading the index slot where `annotation` would be, ahead of a
  // find or insert: filing many annotations then waits on memory once per
  // several of them instead of once per annotation.
  void prefetch(const MapAnnotation* annotation) const {
    __builtin_prefetch(&slots_[hash(annotation) >> shift_]);
  }
  // Room for `count` entries in all.
  void reserve(std::size_t count);
  // The entries, in no particular order (0 to size() - 1); positions
  // change with any removal.
  const Entry& at(std::size_t position) const {
    return blocks_[position >> kBlockShift].get()[position & kBlockMask];
  }
  template <typename Visit>
  void forEach(Visit&& visit) const {
    for (std::size_t position = 0; position < size_; ++position) visit(at(position));
  }

 private:
  // An index slot: the entry's position plus one (0 marks a free slot) and
  // the top 32 bits of its hash, which both filter probes and tell the
  // slot an entry hashes to (its home) when a removal closes the gap.
  struct Slot {
    std::uint32_t index = 0;
    std::uint32_t tag = 0;
  };

  // Entries live in blocks of 64 KB rather than one array: a big array
  // comes straight from the system and goes back when freed, so every new
  // tree would fault its pages in afresh, while blocks are reused. A block
  // is raw memory; entries are made in it as they come, so a small tree
  // (the pins on screen) touches only what it uses.
  static constexpr std::size_t kBlockShift = 11;
  static constexpr std::size_t kBlockMask = (std::size_t{1} << kBlockShift) - 1;
  Entry& entryAt(std::size_t position) {
    return blocks_[position >> kBlockShift].get()[position & kBlockMask];
  }

  static std::uint64_t hash(const MapAnnotation* annotation);
  std::size_t home(std::uint32_t tag) const { return tag >> (shift_ - 32); }
  // The index slot of an annotation's entry, or the slot count if absent.
  std::size_t slotOf(const MapAnnotation* annotation) const;
  void rebuildIndex(std::size_t slotCount);

  struct BlockDelete {
    void operator()(Entry* block) const { ::operator delete(block); }
  };
  std::vector<std::unique_ptr<Entry, BlockDelete>> blocks_;
  std::size_t size_ = 0;
  std::vector<Slot> slots_;
  int shift_;  // 64 - log2(slot count)
};

}  // namespace lumeo
