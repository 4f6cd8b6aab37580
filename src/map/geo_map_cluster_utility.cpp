// Grid arithmetic and location grouping for the cluster operation.
#include "map/geo_map_cluster_utility.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "map/geohash.h"

namespace lumeo {

double alignedCellMapSize(double distance) {
  if (!(distance > 0)) return 0;
  if (distance > kMapWorldWidth / 2) distance = kMapWorldWidth - distance;
  if (!(distance > 0)) return 0;
  double cells = std::max(1.0, std::floor(kMapWorldWidth / distance));
  return kMapWorldWidth / cells;
}

double cellMapSizeForCellSize(double cellSize, const MapView& mapView) {
  MapPoint a = MapPointForCoordinate(mapView.convertPointToCoordinate({0, 0}));
  MapPoint b = MapPointForCoordinate(mapView.convertPointToCoordinate({cellSize, 0}));
  return alignedCellMapSize(std::hypot(b.x - a.x, b.y - a.y));
}

MapRect gridMapRectForMapRect(MapRect mapRect, double cellMapSize, double marginFactor) {
  if (!(cellMapSize > 0) || mapRect.isNull()) return kMapRectNull;
  MapRect grown =
      MapRectInset(mapRect, -mapRect.size.width * marginFactor, -mapRect.size.height * marginFactor);
  double minX = std::floor(grown.minX() / cellMapSize) * cellMapSize;
  double minY = std::floor(grown.minY() / cellMapSize) * cellMapSize;
  double maxX = std::ceil(grown.maxX() / cellMapSize) * cellMapSize;
  double maxY = std::ceil(grown.maxY() / cellMapSize) * cellMapSize;
  return MapRectMake(minX, minY, maxX - minX, maxY - minY);
}

GeoMapGridLines gridLinesForMapRect(MapRect gridMapRect, double cellMapSize) {
  GeoMapGridLines lines;
  if (!(cellMapSize > 0) || gridMapRect.isEmpty()) return lines;
  // Count whole cells instead of stepping by the cell size: repeated
  // addition drifts, and a drifted step would visit a column past the edge.
  auto columnsInWorld = std::llround(kMapWorldWidth / cellMapSize);
  auto columns = std::min(std::llround(gridMapRect.size.width / cellMapSize), columnsInWorld);
  auto rows = std::llround(gridMapRect.size.height / cellMapSize);
  lines.columns.reserve(static_cast<std::size_t>(std::max(0LL, columns)));
  for (long long column = 0; column < columns; ++column) {
    double x = gridMapRect.minX() + static_cast<double>(column) * cellMapSize;
    double wrapped = std::fmod(x, kMapWorldWidth);
    if (wrapped < 0) wrapped += kMapWorldWidth;
    // Snap to the cell lattice so that wrapped cells share exact edges.
    wrapped = std::round(wrapped / cellMapSize) * cellMapSize;
    if (wrapped >= kMapWorldWidth) wrapped -= kMapWorldWidth;
    lines.columns.push_back(wrapped);
  }
  const long long firstRow = std::llround(gridMapRect.minY() / cellMapSize);
  for (long long row = 0; row < rows; ++row) {
    double y = static_cast<double>(firstRow + row) * cellMapSize;
    if (y + cellMapSize <= 0 || y >= kMapWorldWidth) continue;
    lines.rows.push_back(y);
  }
  return lines;
}

double gridLineLongitude(long long index, double cellMapSize) {
  const double x = static_cast<double>(index) * cellMapSize;
  if (index > 0 && index == std::llround(kMapWorldWidth / cellMapSize)) return 180.0;
  return GeoMapTreeLongitudeForMapX(x);
}

double gridLineLatitude(long long index, double cellMapSize) {
  return CoordinateForMapPoint({0, static_cast<double>(index) * cellMapSize}).latitude;
}

GeoMapTreeBoundingBox gridCellBox(double x, double y, double cellMapSize) {
  const long long column = std::llround(x / cellMapSize);
  const long long row = std::llround(y / cellMapSize);
  return {gridLineLatitude(row + 1, cellMapSize), gridLineLongitude(column, cellMapSize),
          gridLineLatitude(row, cellMapSize), gridLineLongitude(column + 1, cellMapSize)};
}

void enumerateGridCells(MapRect gridMapRect, double cellMapSize,
                        const std::function<void(MapRect cell)>& block) {
  GeoMapGridLines lines = gridLinesForMapRect(gridMapRect, cellMapSize);
  for (double y : lines.rows) {
    for (double x : lines.columns) block(MapRectMake(x, y, cellMapSize, cellMapSize));
  }
}

std::vector<std::pair<std::size_t, MapAnnotation*>> annotationsByGridCell(
    const GeoMapTree& tree, const std::vector<GeoMapTreeBoundingBox>& rows,
    const std::vector<GeoMapGridColumn>& columns) {
  std::vector<std::pair<std::size_t, MapAnnotation*>> found;
  if (rows.empty() || columns.empty()) return found;
  std::vector<std::size_t> byWest(columns.size());
  for (std::size_t j = 0; j < columns.size(); ++j) byWest[j] = j;
  std::sort(byWest.begin(), byWest.end(),
            [&](std::size_t a, std::size_t b) { return columns[a].west < columns[b].west; });
  found.reserve(tree.count());
  tree.forEachFiled([&](const MapAnnotationPtr& annotation, double latitude, double longitude) {
    // Rows run south, so their south edges fall: the first row whose south
    // edge lies below the point, and the next for a shared edge; likewise
    // the column whose west edge is the last not east of it.
    auto row = std::partition_point(rows.begin(), rows.end(),
                                    [&](const GeoMapTreeBoundingBox& box) { return box.x0 >= latitude; }) -
               rows.begin();
    auto west = std::partition_point(byWest.begin(), byWest.end(),
                                     [&](std::size_t j) { return columns[j].west <= longitude; }) -
                byWest.begin();
    for (auto i = std::max<std::ptrdiff_t>(row - 1, 0); i <= row + 1 && i < std::ssize(rows); ++i) {
      const GeoMapTreeBoundingBox& rowBox = rows[static_cast<std::size_t>(i)];
      for (auto k = std::max<std::ptrdiff_t>(west - 2, 0); k <= west && k < std::ssize(byWest); ++k) {
        std::size_t j = byWest[static_cast<std::size_t>(k)];
        GeoMapTreeBoundingBox box{rowBox.x0, columns[j].west, rowBox.xf, columns[j].east};
        if (GeoMapTreeBoxContains(box, latitude, longitude, true))
          found.emplace_back(static_cast<std::size_t>(i) * columns.size() + j, annotation.get());
      }
    }
  });
  std::sort(found.begin(), found.end());
  return found;
}

double zoomLevelForRegion(CoordinateRegion region, double mapWidth) {
  constexpr double kPointsPerDegree = 2982616.177777778;  // 2^30 pixels over 360 degrees
  constexpr double kOffset = 536870912.0;
  double center = region.center.longitude;
  double span = region.span.longitudeDelta;
  double pixels = (center * kPointsPerDegree + kOffset) - ((center - span / 2) * kPointsPerDegree + kOffset);
  return std::log(2 * pixels / mapWidth) / -0.6931471805599453 + 22.0;
}

bool groupAnnotationsByLocation(MapAnnotation* const* begin, MapAnnotation* const* end, std::size_t limit,
                                std::vector<std::vector<MapAnnotation*>>& groups) {
  groups.clear();
  if (limit == 0) return false;
  // Few keys are the common case (the limit is a handful unless clustering
  // is off), where a linear scan beats hashing.
  constexpr std::size_t kLinearKeys = 16;
  std::vector<std::uint64_t> keys;
  std::unordered_map<std::uint64_t, std::size_t> index;
  for (MapAnnotation* const* it = begin; it != end; ++it) {
    std::uint64_t key = geohashBitsForCoordinate((*it)->coordinate());
    std::size_t slot = keys.size();
    if (keys.size() <= kLinearKeys) {
      for (std::size_t i = 0; i < keys.size(); ++i) {
        if (keys[i] == key) {
          slot = i;
          break;
        }
      }
    } else if (auto found = index.find(key); found != index.end()) {
      slot = found->second;
    }
    if (slot == keys.size()) {
      if (keys.size() == limit) {
        groups.clear();
        return false;
      }
      keys.push_back(key);
      if (keys.size() > kLinearKeys) {
        if (index.empty()) {
          for (std::size_t i = 0; i < keys.size(); ++i) index.emplace(keys[i], i);
        } else {
          index.emplace(key, slot);
        }
      }
      groups.emplace_back();
    }
    groups[slot].push_back(*it);
  }
  return true;
}

std::optional<std::vector<MapAnnotationList>> groupAnnotationsByLocation(const MapAnnotationList& annotations,
                                                                         std::size_t limit) {
  std::vector<MapAnnotation*> raw;
  raw.reserve(annotations.size());
  for (const MapAnnotationPtr& annotation : annotations) raw.push_back(annotation.get());
  std::vector<std::vector<MapAnnotation*>> groups;
  if (!groupAnnotationsByLocation(raw.data(), raw.data() + raw.size(), limit, groups)) return std::nullopt;
  std::vector<MapAnnotationList> result;
  for (const auto& group : groups) {
    MapAnnotationList list;
    for (MapAnnotation* annotation : group) list.push_back(annotation->shared_from_this());
    result.push_back(std::move(list));
  }
  return result;
}

}  // namespace lumeo
