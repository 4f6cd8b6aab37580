// The cell table: open addressing with linear probing over a power-of-two
// array. Cells never leave the table (an emptied cell keeps its slot with a
// zero count), so probing needs no tombstones.
#include "map/geo_map_cell_grid.h"

#include <cmath>

#include "map/geo_map_tree.h"

namespace lumeo {
namespace {

// How near (in map points, about 1.5 mm) a point may come to a cell edge
// before the grid stops answering for the cells on both sides. The tree
// tests a point against an edge in degrees, converted from map points; this
// margin is far above the rounding of that conversion, so a point outside
// it is on the same side for both.
constexpr double kEdgeMargin = 1e-2;

constexpr std::size_t kFirstSlots = 1024;

}  // namespace

bool GeoMapCellGrid::servesCellMapSize(double cellMapSize) {
  if (!(cellMapSize > 0) || cellMapSize > kMapWorldWidth) return false;
  double columns = kMapWorldWidth / cellMapSize;
  long long whole = std::llround(columns);
  return whole >= 1 && whole <= kMaxColumns && std::fabs(columns - static_cast<double>(whole)) < 1e-6;
}

GeoMapCellGrid::GeoMapCellGrid(double cellMapSize)
    : cellMapSize_(cellMapSize), columns_(std::llround(kMapWorldWidth / cellMapSize)), slots_(kFirstSlots) {
  shift_ = 64 - 10;  // log2(kFirstSlots)
}

GeoMapCellGrid::Slot& GeoMapCellGrid::slotFor(std::uint64_t key) {
  if ((used_ + 1) * 2 > slots_.size()) grow();
  std::size_t mask = slots_.size() - 1;
  for (std::size_t i = (key * 0x9E3779B97F4A7C15ULL) >> shift_;; i = (i + 1) & mask) {
    Slot& slot = slots_[i];
    if (slot.key == key) return slot;
    if (slot.key == 0) {
      slot.key = key;
      ++used_;
      return slot;
    }
  }
}

void GeoMapCellGrid::grow() {
  std::vector<Slot> old(slots_.size() * 2);
  old.swap(slots_);
  --shift_;
  std::size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.key == 0) continue;
    std::size_t i = (slot.key * 0x9E3779B97F4A7C15ULL) >> shift_;
    while (slots_[i].key != 0) i = (i + 1) & mask;
    slots_[i] = slot;
  }
}

void GeoMapCellGrid::addPoint(double latitude, double longitude, int sign) {
  MapPoint point = MapPointForCoordinate({latitude, longitude});
  const double cell = cellMapSize_;
  long long column = static_cast<long long>(std::floor(point.x / cell));
  long long row = static_cast<long long>(std::floor(point.y / cell));
  // The neighbours whose edge the point nearly touches: the exact edge test
  // decides for those cells, so each of them is marked.
  long long firstColumn = column, lastColumn = column, firstRow = row, lastRow = row;
  if (point.x - static_cast<double>(column) * cell <= kEdgeMargin) firstColumn = column - 1;
  if (static_cast<double>(column + 1) * cell - point.x <= kEdgeMargin) lastColumn = column + 1;
  if (point.y - static_cast<double>(row) * cell <= kEdgeMargin) firstRow = row - 1;
  if (static_cast<double>(row + 1) * cell - point.y <= kEdgeMargin) lastRow = row + 1;
  bool nearEdge = firstColumn != lastColumn || firstRow != lastRow;

  auto keyOf = [&](long long r, long long c) -> std::uint64_t {
    c %= columns_;
    if (c < 0) c += columns_;
    return static_cast<std::uint64_t>(r * columns_ + c) + 1;
  };
  if (row >= 0 && row < columns_) {
    Slot& slot = slotFor(keyOf(row, column));
    slot.count = static_cast<std::uint32_t>(static_cast<long long>(slot.count) + sign);
    slot.sumX += sign * latitude;
    slot.sumY += sign * longitude;
  }
  if (!nearEdge) return;
  for (long long r = firstRow; r <= lastRow; ++r) {
    if (r < 0 || r >= columns_) continue;
    for (long long c = firstColumn; c <= lastColumn; ++c) {
      Slot& slot = slotFor(keyOf(r, c));
      slot.edgePoints = static_cast<std::uint32_t>(static_cast<long long>(slot.edgePoints) + sign);
    }
  }
}

bool GeoMapCellGrid::addTotalsInBox(double south, double west, double north, double east, std::size_t count,
                                    double sumX, double sumY) {
  MapPoint northWest = MapPointForCoordinate({north, west});
  MapPoint southEast = MapPointForCoordinate({south, east});
  const double cell = cellMapSize_;
  long long column = static_cast<long long>(std::floor(northWest.x / cell));
  long long row = static_cast<long long>(std::floor(northWest.y / cell));
  if (row < 0 || row >= columns_ || column < 0 || column >= columns_) return false;
  if (northWest.x - static_cast<double>(column) * cell <= kEdgeMargin ||
      static_cast<double>(column + 1) * cell - southEast.x <= kEdgeMargin ||
      northWest.y - static_cast<double>(row) * cell <= kEdgeMargin ||
      static_cast<double>(row + 1) * cell - southEast.y <= kEdgeMargin) {
    return false;
  }
  Slot& slot = slotFor(static_cast<std::uint64_t>(row * columns_ + column) + 1);
  slot.count += static_cast<std::uint32_t>(count);
  slot.sumX += sumX;
  slot.sumY += sumY;
  return true;
}

long long GeoMapCellGrid::latticeIndexForEdge(double edge) const {
  long long index = std::llround(edge / cellMapSize_);
  if (std::fabs(edge - static_cast<double>(index) * cellMapSize_) > kEdgeMargin / 4 || index < 0 ||
      index >= columns_) {
    return -1;
  }
  return index;
}

std::optional<GeoMapTreeAggregate> GeoMapCellGrid::aggregateForCell(MapRect cell) const {
  const double size = cellMapSize_;
  if (std::fabs(cell.size.width - size) > kEdgeMargin || std::fabs(cell.size.height - size) > kEdgeMargin)
    return std::nullopt;
  return aggregateForCell(latticeIndexForEdge(cell.minY()), latticeIndexForEdge(cell.minX()));
}

}  // namespace lumeo
