// The cell table: a directory of rows, each a vector of its occupied cells
// in column order. A pass reads a screen's row west to east, which walks a
// few neighbouring entries instead of probing a hash table all over
// memory; and the first filling, which visits the tree in quadrant order,
// appends to a few rows at a time and sorts each row once at the end.
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

}  // namespace

bool GeoMapCellGrid::servesCellMapSize(double cellMapSize) {
  if (!(cellMapSize > 0) || cellMapSize > kMapWorldWidth) return false;
  double columns = kMapWorldWidth / cellMapSize;
  long long whole = std::llround(columns);
  return whole >= 1 && whole <= kMaxColumns && std::fabs(columns - static_cast<double>(whole)) < 1e-6;
}

GeoMapCellGrid::GeoMapCellGrid(double cellMapSize)
    : cellMapSize_(cellMapSize), columns_(std::llround(kMapWorldWidth / cellMapSize)) {}

GeoMapCellGrid::Row& GeoMapCellGrid::rowAt(long long row) {
  auto index = static_cast<std::size_t>(row);
  if (index >= rowIndex_.size()) rowIndex_.resize(index + 1, 0);
  if (rowIndex_[index] == 0) {
    rows_.emplace_back();
    rowIndex_[index] = static_cast<std::uint32_t>(rows_.size());
  }
  return rows_[rowIndex_[index] - 1];
}

const GeoMapCellGrid::Row* GeoMapCellGrid::findRow(long long row) const {
  auto index = static_cast<std::size_t>(row);
  if (row < 0 || index >= rowIndex_.size() || rowIndex_[index] == 0) return nullptr;
  return &rows_[rowIndex_[index] - 1];
}

void GeoMapCellGrid::add(long long row, long long column, long long count, long long edgePoints, double sumX,
                         double sumY) {
  Row& cells = rowAt(row);
  auto column32 = static_cast<std::uint32_t>(column);
  if (filling_) {
    // Unordered until finishFilling(); runs of one cell merge as they come.
    if (!cells.empty() && cells.back().column == column32) {
      Cell& cell = cells.back();
      cell.count = static_cast<std::uint32_t>(cell.count + count);
      cell.edgePoints = static_cast<std::uint32_t>(cell.edgePoints + edgePoints);
      cell.sumX += sumX;
      cell.sumY += sumY;
    } else {
      cells.push_back({column32, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(edgePoints), sumX,
                       sumY});
    }
    return;
  }
  auto at = std::lower_bound(cells.begin(), cells.end(), column32,
                             [](const Cell& cell, std::uint32_t value) { return cell.column < value; });
  if (at == cells.end() || at->column != column32) {
    cells.insert(at, {column32, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(edgePoints), sumX,
                      sumY});
    return;
  }
  at->count = static_cast<std::uint32_t>(at->count + count);
  at->edgePoints = static_cast<std::uint32_t>(at->edgePoints + edgePoints);
  at->sumX += sumX;
  at->sumY += sumY;
  // An emptied cell leaves, and with it the rounding left in its sums.
  if (at->count == 0 && at->edgePoints == 0) cells.erase(at);
}

void GeoMapCellGrid::finishFilling() {
  if (!filling_) return;
  filling_ = false;
  for (Row& cells : rows_) {
    std::sort(cells.begin(), cells.end(), [](const Cell& a, const Cell& b) { return a.column < b.column; });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (kept > 0 && cells[kept - 1].column == cells[i].column) {
        Cell& cell = cells[kept - 1];
        cell.count += cells[i].count;
        cell.edgePoints += cells[i].edgePoints;
        cell.sumX += cells[i].sumX;
        cell.sumY += cells[i].sumY;
      } else {
        cells[kept++] = cells[i];
      }
    }
    cells.resize(kept);
    if (cells.capacity() > kept + kept / 4) cells.shrink_to_fit();
  }
}

std::size_t GeoMapCellGrid::occupiedCells() const {
  std::size_t total = 0;
  for (const Row& cells : rows_) total += cells.size();
  return total;
}

std::size_t GeoMapCellGrid::memoryBytes() const {
  std::size_t total = rowIndex_.capacity() * sizeof(std::uint32_t) + rows_.capacity() * sizeof(Row);
  for (const Row& cells : rows_) total += cells.capacity() * sizeof(Cell);
  return total;
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

  auto wrapColumn = [&](long long c) {
    c %= columns_;
    return c < 0 ? c + columns_ : c;
  };
  if (row >= 0 && row < columns_) add(row, wrapColumn(column), sign, 0, sign * latitude, sign * longitude);
  if (!nearEdge) return;
  for (long long r = firstRow; r <= lastRow; ++r) {
    if (r < 0 || r >= columns_) continue;
    for (long long c = firstColumn; c <= lastColumn; ++c) add(r, wrapColumn(c), 0, sign, 0, 0);
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
  add(row, column, static_cast<long long>(count), 0, sumX, sumY);
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

std::optional<GeoMapTreeAggregate> GeoMapCellGrid::aggregateForCell(long long row, long long column) const {
  if (column < 0) return std::nullopt;
  return rowReader(row).aggregateForColumn(column);
}

GeoMapCellGrid::RowReader GeoMapCellGrid::rowReader(long long row) const {
  const Row* cells = findRow(row);
  if (!cells || cells->empty()) return RowReader(nullptr, nullptr);
  return RowReader(cells->data(), cells->data() + cells->size());
}

std::optional<GeoMapTreeAggregate> GeoMapCellGrid::aggregateForCell(MapRect cell) const {
  const double size = cellMapSize_;
  if (std::fabs(cell.size.width - size) > kEdgeMargin || std::fabs(cell.size.height - size) > kEdgeMargin)
    return std::nullopt;
  return aggregateForCell(latticeIndexForEdge(cell.minY()), latticeIndexForEdge(cell.minX()));
}

}  // namespace lumeo
