// The quad tree's annotation set: which annotations the tree holds, the
// strong reference it keeps for each, and where each was filed. Entries sit
// densely in one array and a small open-addressing index finds them, so
// filing a pin costs no allocation of its own and a million annotations
// take about 50 bytes each.
#pragma once

#include <cstddef>
#include <cstdint>
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

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const Entry* find(const MapAnnotation* annotation) const;
  // Adds an entry for an annotation not yet in the table; false if it is.
  bool insert(MapAnnotationPtr annotation, double x, double y);
  // The same for an annotation known to be absent, skipping the check.
  void insertAbsent(MapAnnotationPtr annotation, double x, double y);
  // Takes the annotation's entry out; false if there was none. The last
  // entry moves into the hole, so removal reorders the entries.
  bool erase(const MapAnnotation* annotation);
  // Room for `count` entries in all.
  void reserve(std::size_t count);
  // Every entry, in no particular order; invalidated by any change.
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  // An index slot: the entry's position plus one (0 marks a free slot) and
  // the top 32 bits of its hash, which both filter probes and tell the
  // slot an entry hashes to (its home) when a removal closes the gap.
  struct Slot {
    std::uint32_t index = 0;
    std::uint32_t tag = 0;
  };

  static std::uint64_t hash(const MapAnnotation* annotation);
  std::size_t home(std::uint32_t tag) const { return tag >> (shift_ - 32); }
  // The index slot of an annotation's entry, or the slot count if absent.
  std::size_t slotOf(const MapAnnotation* annotation) const;
  void rebuildIndex(std::size_t slotCount);

  std::vector<Entry> entries_;
  std::vector<Slot> slots_;
  int shift_;  // 64 - log2(slot count)
};

}  // namespace lumeo
