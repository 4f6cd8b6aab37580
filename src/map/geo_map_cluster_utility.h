// The grid arithmetic of clustering: the size of a cell in map points, the
// grid rectangle around the visible one, the walk over its cells, the zoom
// level of a region and the grouping of a cell's annotations by location.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "map/geo_map_tree.h"
#include "map/map_annotation.h"
#include "map/map_geometry.h"
#include "map/map_view.h"

namespace lumeo {

// Coordinates closer than this (a float's epsilon) count as the same.
inline constexpr double kGeoMapClusterEpsilon = 1.1920928955078125e-07;

// The map-point size of a square cell `cellSize` view points wide, adjusted
// so that a whole number of cells goes around the world. 0 for a map whose
// points do not move (nothing to cluster).
double cellMapSizeForCellSize(double cellSize, const MapView& mapView);
// The same from the distance in map points between two view points.
double alignedCellMapSize(double distance);

// The visible rectangle grown by marginFactor of its size on every side and
// widened to whole cells; the null rectangle for a cell size of 0.
MapRect gridMapRectForMapRect(MapRect mapRect, double cellMapSize, double marginFactor);

// The walk over a grid as its columns and rows: the grid's cells are every
// column in every row, each `cellMapSize` square.
// Every line lies on the cell lattice: a whole number of cells from the
// map's origin, computed as that number times the cell size.
struct GeoMapGridLines {
  std::vector<double> columns;  // left edges, wrapped into the world, west to east
  std::vector<double> rows;     // top edges, north to south
};
GeoMapGridLines gridLinesForMapRect(MapRect gridMapRect, double cellMapSize);

// The degrees of the lattice line `index` cells from the map's origin: the
// longitude of a column's west edge (180 for the world's east end) or the
// latitude of a row's north edge. Each line is converted from its index
// alone, so two cells that share an edge test a point against the very same
// degrees, and with the tree's half-open cell test (a cell owns its west and
// north edges, as the cell tables do by map point) a point exactly on an
// edge is in one cell, never in two or none.
double gridLineLongitude(long long index, double cellMapSize);
double gridLineLatitude(long long index, double cellMapSize);
// The box of the lattice cell whose top-left corner is (x, y), from its
// four lattice lines.
GeoMapTreeBoundingBox gridCellBox(double x, double y, double cellMapSize);

// Calls `block` with each cell of the grid, row by row from the top. Cells
// beyond the 180th meridian wrap around; a grid wider than the world visits
// each column once, and rows wholly outside the world are skipped.
void enumerateGridCells(MapRect gridMapRect, double cellMapSize,
                        const std::function<void(MapRect cell)>& block);

// One column of a pass's grid: its left edge, its longitudes (the west
// and east of its cells' boxes), and its column in the cell table.
struct GeoMapGridColumn {
  double x;
  double west;
  double east;
  long long tableColumn;  // -1: the table cannot answer for this column
};

// The annotations of `tree` by the cells of a grid (its rows' boxes, north
// to south, and its columns) that hold where each is filed, as pairs of
// (row * columns + column, annotation) in cell order: for every cell, what
// a query of the cell with cell edges finds. An annotation that two cells
// both claim (their shared edge can differ in the last bit) is listed for
// each. Costs a pass over the tree's annotations instead of a query per cell.
std::vector<std::pair<std::size_t, MapAnnotation*>> annotationsByGridCell(
    const GeoMapTree& tree, const std::vector<GeoMapTreeBoundingBox>& rows,
    const std::vector<GeoMapGridColumn>& columns);

// The zoom level of a region shown `mapWidth` view points wide (about 0 for
// the whole world on a 256-point map, 20 for a street).
double zoomLevelForRegion(CoordinateRegion region, double mapWidth);

// Splits annotations into groups of one location key each, in the order the
// keys first appear. Nothing (nullopt) for a limit of 0 or as soon as there
// are more keys than the limit.
std::optional<std::vector<MapAnnotationList>> groupAnnotationsByLocation(const MapAnnotationList& annotations,
                                                                         std::size_t limit);
// The same over plain pointers, into `groups`; returns whether it grouped.
bool groupAnnotationsByLocation(MapAnnotation* const* begin, MapAnnotation* const* end, std::size_t limit,
                                std::vector<std::vector<MapAnnotation*>>& groups);

}  // namespace lumeo
