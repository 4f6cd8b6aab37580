// Per-cell totals (count and position sums) for one aligned cell size, so
// that a clustering pass reads one entry per cell on screen instead of
// walking the tree along every cell edge. The tree keeps its grids up to
// date on every add and remove; a cell with a point on or next to its edge
// answers nothing, and the pass asks the tree, which decides edges exactly.
#pragma once

#include <algorithm>
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
  struct Cell;

 public:
  // Grids finer than this many columns around the world are not kept: the
  // tree walk is short at such zooms, and the table would near one entry per
  // point.
  static constexpr long long kMaxColumns = 1LL << 20;

  // Whether `cellMapSize` is an aligned size (a whole number of cells
  // around the world) that a grid can serve.
  static bool servesCellMapSize(double cellMapSize);

  // A new grid starts filling: points and boxes go in unordered, cheaply,
  // and finishFilling() puts them in order before the first read.
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
  // Ends the first filling; the grid answers from now on.
  void finishFilling();

  // The totals of the cell whose map rectangle is `cell` (its origin on
  // the lattice of this grid), or nothing when a point lies so close to the
  // cell's edge that only the exact test can place it.
  std::optional<GeoMapTreeAggregate> aggregateForCell(MapRect cell) const;
  // The same by lattice row and column, each from latticeIndexForEdge.
  std::optional<GeoMapTreeAggregate> aggregateForCell(long long row, long long column) const;
  // The row or column whose top or left edge lies at map coordinate `edge`,
  // or -1 when `edge` is off this grid's lattice or outside the world.
  long long latticeIndexForEdge(double edge) const;

  // Reads the cells of one row, cheapest when the columns asked for mostly
  // go east (a pass asks for a screen's row west to east). Valid until the
  // grid changes.
  class RowReader {
   public:
    std::optional<GeoMapTreeAggregate> aggregateForColumn(long long column);

   private:
    friend class GeoMapCellGrid;
    RowReader(const Cell* begin, const Cell* end) : begin_(begin), end_(end), at_(begin) {}
    const Cell* begin_;
    const Cell* end_;
    const Cell* at_;  // the first cell not west of the last column asked for
  };
  // A reader of `row` (from latticeIndexForEdge, -1 reads nothing).
  RowReader rowReader(long long row) const;

  std::size_t occupiedCells() const;
  std::size_t memoryBytes() const;

 private:
  // One occupied cell of a row. A cell holds points or marks for points
  // near its edge; it leaves the row when it has neither.
  struct Cell {
    std::uint32_t column;
    std::uint32_t count;
    std::uint32_t edgePoints;  // points near an edge of this cell
    double sumX;
    double sumY;
  };
  using Row = std::vector<Cell>;

  // Placing a point in a row goes by latitude: the latitudes of the row
  // edges, and of the bands kEdgeMargin map points either side of each, are
  // worked out once per grid, which saves two transcendental functions
  // per point filed. Grids with very many rows convert each point instead.
  struct RowEdge {
    double latitude;
    double bandSouth;  // the south end of the edge's band
    double bandNorth;  // its north end
  };
  struct RowPlace {
    long long row;
    bool nearNorth;  // within the band of the row's north edge
    bool nearSouth;  // within the band of its south edge
  };
  void prepareRowEdges();
  RowPlace placeRow(double latitude) const;

  // The row's cells, made on demand.
  Row& rowAt(long long row);
  const Row* findRow(long long row) const;
  void add(long long row, long long column, long long count, long long edgePoints, double sumX, double sumY);
  static std::optional<GeoMapTreeAggregate> answer(const Cell& cell) {
    if (cell.edgePoints != 0) return std::nullopt;
    return GeoMapTreeAggregate{cell.count, cell.sumX, cell.sumY};
  }

  double cellMapSize_;
  long long columns_;
  // Rows by number: the position plus one of each occupied row in rows_,
  // 0 for none. Rows hold their cells in column order once filled.
  std::vector<std::uint32_t> rowIndex_;
  std::vector<Row> rows_;
  bool filling_ = true;
  std::vector<RowEdge> rowEdges_;       // north to south; empty when points are converted
  std::vector<std::uint32_t> binRows_;  // by bin of latitude, south to north
  double binLow_ = 0;
  double binScale_ = 0;
};

inline std::optional<GeoMapTreeAggregate> GeoMapCellGrid::RowReader::aggregateForColumn(long long column) {
  auto west = [column](const Cell& cell, long long) { return static_cast<long long>(cell.column) < column; };
  // A step or two east of the last column is the common case; anything
  // else searches the row.
  if (at_ != begin_ && static_cast<long long>(at_[-1].column) >= column) at_ = begin_;
  for (int step = 0; step < 4 && at_ != end_ && static_cast<long long>(at_->column) < column; ++step) ++at_;
  if (at_ != end_ && static_cast<long long>(at_->column) < column)
    at_ = std::lower_bound(at_, end_, column, west);
  if (at_ == end_ || static_cast<long long>(at_->column) != column) return GeoMapTreeAggregate{};
  return answer(*at_);
}

}  // namespace lumeo
