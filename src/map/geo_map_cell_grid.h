// Per-cell totals (count and position sums) for one aligned cell size, so
// that a clustering pass reads one entry per cell on screen instead of
// walking the tree along every cell edge. The tree keeps its grids up to
// date on every add and remove; a cell with a point on or next to its edge
// answers nothing, and the pass asks the tree, which decides edges exactly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "map/map_geometry.h"

namespace lumeo {

// How many annotations lie in a range, and the sums of their positions.
struct GeoMapTreeAggregate {
  std::size_t count = 0;
  double sumX = 0;
  double sumY = 0;
};

class GeoMapCellGrid {
 public:
  // Grids finer than this many columns around the world are not kept: the
  // tree walk is short at such zooms, and the table would near one entry per
  // point.
  static constexpr long long kMaxColumns = 1LL << 20;

  // Whether `cellMapSize` is an aligned size (a whole number of cells
  // around the world) that a grid can serve.
  static bool servesCellMapSize(double cellMapSize);

  explicit GeoMapCellGrid(double cellMapSize);

  double cellMapSize() const { return cellMapSize_; }
  // Files a point (latitude, longitude) with `sign` +1, or takes it out
  // with -1, at the position it was filed under.
  void addPoint(double latitude, double longitude, int sign);
  // Files the totals of a whole box of points (x latitude, y longitude) at
  // once if the box lies inside one cell, clear of its edges; returns
  // whether it did. Filing them one by one gives the same table.
  bool addTotalsInBox(double south, double west, double north, double east, std::size_t count, double sumX,
                      double sumY);
  // The totals of the cell whose map rectangle is `cell` (its origin on
  // the lattice of this grid), or nothing when a point lies so close to the
  // cell's edge that only the exact test can place it.
  std::optional<GeoMapTreeAggregate> aggregateForCell(MapRect cell) const;
  // The same by lattice row and column, each from latticeIndexForEdge: a
  // pass works out the rows and columns of its grid once, then reads each
  // cell with one probe.
  std::optional<GeoMapTreeAggregate> aggregateForCell(long long row, long long column) const;
  // The row or column whose top or left edge lies at map coordinate `edge`,
  // or -1 when `edge` is off this grid's lattice or outside the world.
  long long latticeIndexForEdge(double edge) const;
  std::size_t occupiedCells() const { return used_; }
  std::size_t memoryBytes() const { return slots_.size() * sizeof(Slot); }

 private:
  struct Slot {
    std::uint64_t key = 0;  // row * columns + column + 1; 0 marks a free slot
    std::uint32_t count = 0;
    std::uint32_t edgePoints = 0;  // points near an edge of this cell
    double sumX = 0;
    double sumY = 0;
  };

  Slot& slotFor(std::uint64_t key);
  const Slot* findSlot(std::uint64_t key) const {
    std::size_t mask = slots_.size() - 1;
    for (std::size_t i = (key * 0x9E3779B97F4A7C15ULL) >> shift_;; i = (i + 1) & mask) {
      const Slot& slot = slots_[i];
      if (slot.key == key) return &slot;
      if (slot.key == 0) return nullptr;
    }
  }
  void grow();

  double cellMapSize_;
  long long columns_;
  std::vector<Slot> slots_;
  std::size_t used_ = 0;
  int shift_ = 0;
};

inline std::optional<GeoMapTreeAggregate> GeoMapCellGrid::aggregateForCell(long long row, long long column) const {
  if (row < 0 || column < 0) return std::nullopt;
  const Slot* slot = findSlot(static_cast<std::uint64_t>(row * columns_ + column) + 1);
  if (!slot) return GeoMapTreeAggregate{};
  if (slot->edgePoints != 0) return std::nullopt;
  return GeoMapTreeAggregate{slot->count, slot->sumX, slot->sumY};
}

}  // namespace lumeo
