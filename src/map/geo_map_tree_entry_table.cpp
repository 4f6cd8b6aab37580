// Linear probing over a power-of-two index, at most three quarters full.
// Removal shifts the following slots back instead of leaving tombstones,
// so a table that sees many adds and removes (the visible pins) never
// slows down.
#include "map/geo_map_tree_entry_table.h"

#include <bit>
#include <new>
#include <stdexcept>

namespace lumeo {
namespace {

constexpr std::size_t kFirstSlots = 16;

}  // namespace

GeoMapTreeEntryTable::GeoMapTreeEntryTable()
    : slots_(kFirstSlots), shift_(64 - std::countr_zero(kFirstSlots)) {}

GeoMapTreeEntryTable::~GeoMapTreeEntryTable() {
  for (std::size_t position = 0; position < size_; ++position) entryAt(position).~Entry();
}

std::uint64_t GeoMapTreeEntryTable::hash(const MapAnnotation* annotation) {
  // Objects are 16-byte aligned; the multiply spreads the rest into the
  // top bits, which pick the slot.
  return (reinterpret_cast<std::uintptr_t>(annotation) >> 4) * 0x9E3779B97F4A7C15ULL;
}

std::size_t GeoMapTreeEntryTable::slotOf(const MapAnnotation* annotation) const {
  std::uint64_t h = hash(annotation);
  auto tag = static_cast<std::uint32_t>(h >> 32);
  std::size_t mask = slots_.size() - 1;
  for (std::size_t i = h >> shift_;; i = (i + 1) & mask) {
    const Slot& slot = slots_[i];
    if (slot.index == 0) return slots_.size();
    if (slot.tag == tag && at(slot.index - 1).annotation.get() == annotation) return i;
  }
}

const GeoMapTreeEntryTable::Entry* GeoMapTreeEntryTable::find(const MapAnnotation* annotation) const {
  std::size_t i = slotOf(annotation);
  return i == slots_.size() ? nullptr : &at(slots_[i].index - 1);
}

bool GeoMapTreeEntryTable::insert(MapAnnotationPtr annotation, double x, double y) {
  if (slotOf(annotation.get()) != slots_.size()) return false;
  insertAbsent(std::move(annotation), x, y);
  return true;
}

void GeoMapTreeEntryTable::insertAbsent(MapAnnotationPtr annotation, double x, double y) {
  if ((size_ + 1) * 4 > slots_.size() * 3) rebuildIndex(slots_.size() * 2);
  if (size_ >= UINT32_MAX) throw std::length_error("GeoMapTreeEntryTable: too many annotations");
  std::uint64_t h = hash(annotation.get());
  std::size_t mask = slots_.size() - 1;
  std::size_t i = h >> shift_;
  while (slots_[i].index != 0) i = (i + 1) & mask;
  if ((size_ >> kBlockShift) == blocks_.size())
    blocks_.emplace_back(static_cast<Entry*>(::operator new(sizeof(Entry) << kBlockShift)));
  new (&entryAt(size_)) Entry{std::move(annotation), x, y};
  ++size_;
  slots_[i] = {static_cast<std::uint32_t>(size_), static_cast<std::uint32_t>(h >> 32)};
}

bool GeoMapTreeEntryTable::erase(const MapAnnotation* annotation) {
  std::size_t hole = slotOf(annotation);
  if (hole == slots_.size()) return false;
  std::size_t removed = slots_[hole].index - 1;

  // Close the gap: a later slot of the same run moves back into the hole
  // unless its home lies after the hole, where a probe would miss it.
  std::size_t mask = slots_.size() - 1;
  for (std::size_t j = (hole + 1) & mask; slots_[j].index != 0; j = (j + 1) & mask) {
    std::size_t distanceFromHome = (j - home(slots_[j].tag)) & mask;
    std::size_t distanceFromHole = (j - hole) & mask;
    if (distanceFromHome >= distanceFromHole) {
      slots_[hole] = slots_[j];
      hole = j;
    }
  }
  slots_[hole] = {};

  // Keep the entries dense: the last one takes the removed one's place.
  std::size_t last = size_ - 1;
  if (removed != last) {
    std::size_t i = slotOf(entryAt(last).annotation.get());
    entryAt(removed) = std::move(entryAt(last));
    slots_[i].index = static_cast<std::uint32_t>(removed + 1);
  }
  entryAt(last).~Entry();
  --size_;
  // Keep one spare block, so that a table going up and down across a block
  // boundary does not allocate each time.
  while (blocks_.size() > (size_ >> kBlockShift) + 2) blocks_.pop_back();
  return true;
}

void GeoMapTreeEntryTable::reserve(std::size_t count) {
  blocks_.reserve((count >> kBlockShift) + 1);
  std::size_t slotCount = slots_.size();
  while (count * 4 > slotCount * 3) slotCount *= 2;
  if (slotCount != slots_.size()) rebuildIndex(slotCount);
}

void GeoMapTreeEntryTable::rebuildIndex(std::size_t slotCount) {
  slots_.assign(slotCount, Slot{});
  shift_ = 64 - std::countr_zero(slotCount);
  std::size_t mask = slotCount - 1;
  for (std::size_t e = 0; e < size_; ++e) {
    std::uint64_t h = hash(entryAt(e).annotation.get());
    std::size_t i = h >> shift_;
    while (slots_[i].index != 0) i = (i + 1) & mask;
    slots_[i] = {static_cast<std::uint32_t>(e + 1), static_cast<std::uint32_t>(h >> 32)};
  }
}

}  // namespace lumeo
