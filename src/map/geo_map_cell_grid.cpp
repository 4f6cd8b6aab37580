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
    : cellMapSize_(cellMapSize), columns_(std::llround(kMapWorldWidth / cellMapSize)) {
  prepareRowEdges();
}

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
      cells.push_back(
          {column32, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(edgePoints), sumX, sumY});
    }
    return;
  }
  auto at = std::lower_bound(cells.begin(), cells.end(), column32,
                             [](const Cell& cell, std::uint32_t value) { return cell.column < value; });
  if (at == cells.end() || at->column != column32) {
    cells.insert(at, {column32, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(edgePoints),
                      sumX, sumY});
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
  std::size_t total = rowIndex_.capacity() * sizeof(std::uint32_t) + rows_.capacity() * sizeof(Row) +
                      rowEdges_.capacity() * sizeof(RowEdge) + binRows_.capacity() * sizeof(std::uint32_t);
  for (const Row& cells : rows_) total += cells.capacity() * sizeof(Cell);
  return total;
}

namespace {

double mapXForLongitude(double longitude) {
  return (longitude + 180.0) / 360.0 * kMapWorldWidth;
}

}  // namespace

void GeoMapCellGrid::prepareRowEdges() {
  // Above this many rows the edge table would cost more to make and hold
  // than the conversions it saves.
  constexpr long long kMaxRowsWithEdgeTable = 1LL << 16;
  if (columns_ > kMaxRowsWithEdgeTable) return;
  const double cell = cellMapSize_;
  auto latitudeAt = [](double y) { return CoordinateForMapPoint({0, y}).latitude; };
  rowEdges_.resize(static_cast<std::size_t>(columns_) + 1);
  for (long long e = 0; e <= columns_; ++e) {
    double y = static_cast<double>(e) * cell;
    rowEdges_[static_cast<std::size_t>(e)] = {latitudeAt(y), latitudeAt(y + kEdgeMargin),
                                              latitudeAt(y - kEdgeMargin)};
  }
  // Equal bins of latitude, each knowing the row at its north end, so that
  // placing a point takes a step or two instead of a search.
  std::size_t bins = static_cast<std::size_t>(std::min<long long>(4 * columns_, kMaxRowsWithEdgeTable));
  double low = rowEdges_.back().latitude;
  double high = rowEdges_.front().latitude;
  binLow_ = low;
  binScale_ = static_cast<double>(bins) / (high - low);
  binRows_.resize(bins);
  long long row = 0;
  for (std::size_t bin = bins; bin-- > 0;) {
    double top = low + static_cast<double>(bin + 1) / binScale_;
    while (row + 1 < columns_ && top <= rowEdges_[static_cast<std::size_t>(row + 1)].latitude) ++row;
    binRows_[bin] = static_cast<std::uint32_t>(row);
  }
}

GeoMapCellGrid::RowPlace GeoMapCellGrid::placeRow(double latitude) const {
  if (!rowEdges_.empty() && latitude <= rowEdges_.front().latitude && latitude > rowEdges_.back().latitude) {
    auto bin = static_cast<std::size_t>((latitude - binLow_) * binScale_);
    long long row = binRows_[std::min(bin, binRows_.size() - 1)];
    // Rows run north to south, so latitudes fall as the row grows. The bin
    // is only a start: step to the row whose edges hold the latitude.
    while (row > 0 && latitude > rowEdges_[static_cast<std::size_t>(row)].latitude) --row;
    while (latitude <= rowEdges_[static_cast<std::size_t>(row + 1)].latitude) ++row;
    const RowEdge& north = rowEdges_[static_cast<std::size_t>(row)];
    const RowEdge& south = rowEdges_[static_cast<std::size_t>(row + 1)];
    return {row, latitude >= north.bandSouth, latitude <= south.bandNorth};
  }
  double y = MapPointForCoordinate({latitude, 0}).y;
  const double cell = cellMapSize_;
  auto row = static_cast<long long>(std::floor(y / cell));
  return {row, y - static_cast<double>(row) * cell <= kEdgeMargin,
          static_cast<double>(row + 1) * cell - y <= kEdgeMargin};
}

void GeoMapCellGrid::addPoint(double latitude, double longitude, int sign) {
  const double cell = cellMapSize_;
  double x = mapXForLongitude(longitude);
  long long column = static_cast<long long>(std::floor(x / cell));
  RowPlace place = placeRow(latitude);
  long long row = place.row;
  // The neighbours whose edge the point nearly touches: the exact edge test
  // decides for those cells, so each of them is marked.
  long long firstColumn = column, lastColumn = column;
  long long firstRow = place.nearNorth ? row - 1 : row;
  long long lastRow = place.nearSouth ? row + 1 : row;
  if (x - static_cast<double>(column) * cell <= kEdgeMargin) firstColumn = column - 1;
  if (static_cast<double>(column + 1) * cell - x <= kEdgeMargin) lastColumn = column + 1;
  bool nearEdge = firstColumn != lastColumn || firstRow != lastRow;

  // Longitudes run from -180 to 180, so a column is at most one world off.
  auto wrapColumn = [&](long long c) {
    if (c >= 0 && c < columns_) return c;
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
  const double cell = cellMapSize_;
  double westX = mapXForLongitude(west);
  double eastX = mapXForLongitude(east);
  long long column = static_cast<long long>(std::floor(westX / cell));
  if (column < 0 || column >= columns_ || westX - static_cast<double>(column) * cell <= kEdgeMargin ||
      static_cast<double>(column + 1) * cell - eastX <= kEdgeMargin) {
    return false;
  }
  // The box's north is clear of its row's edges, and its south clear of
  // the same row's south edge: then every point inside is placed in this
  // row, away from both edges, as addPoint would place it.
  RowPlace top = placeRow(north);
  if (top.row < 0 || top.row >= columns_ || top.nearNorth || top.nearSouth) return false;
  RowPlace bottom = placeRow(south);
  if (bottom.row != top.row || bottom.nearSouth || bottom.nearNorth) return false;
  add(top.row, column, static_cast<long long>(count), 0, sumX, sumY);
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
