// Grid arithmetic: cell sizes that tile the world, the grid around the
// screen, the wrapping walk and the zoom level.
#include "map/geo_map_cluster_utility.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "map/geo_map_clusterer.h"
#include "map/headless_map_view.h"

namespace lumeo {
namespace {

TEST(GeoMapClusterUtilityTest, CellSizesFitAWholeNumberOfTimesAroundTheWorld) {
  EXPECT_EQ(alignedCellMapSize(0), 0);
  EXPECT_DOUBLE_EQ(alignedCellMapSize(kMapWorldWidth / 10), kMapWorldWidth / 10);
  EXPECT_DOUBLE_EQ(alignedCellMapSize(kMapWorldWidth / 10.5), kMapWorldWidth / 10);
  // A measured distance over half the world came the long way round.
  EXPECT_DOUBLE_EQ(alignedCellMapSize(kMapWorldWidth * 0.9), kMapWorldWidth / 10);

  HeadlessMapView map(600, 400);  // the whole world's width on 600 points
  EXPECT_DOUBLE_EQ(cellMapSizeForCellSize(60, map), kMapWorldWidth / 10);
  map.setRegion({{0, 179}, {1, 4}}, false);  // straddles the 180th meridian
  double cell = cellMapSizeForCellSize(60, map);
  EXPECT_GT(cell, 0);
  EXPECT_NEAR(cell, map.visibleMapRect().size.width / 10, map.visibleMapRect().size.width / 100);
}

TEST(GeoMapClusterUtilityTest, GridGrowsByTheMarginAndSnapsToCells) {
  MapRect visible = MapRectMake(1050, 2030, 400, 300);
  MapRect grid = gridMapRectForMapRect(visible, 100, 0.5);
  // Half a screen each side: 850..1650 by 1880..2480, widened to hundreds.
  EXPECT_EQ(grid, MapRectMake(800, 1800, 900, 700));
  EXPECT_EQ(gridMapRectForMapRect(visible, 100, 0), MapRectMake(1000, 2000, 500, 400));
  EXPECT_TRUE(gridMapRectForMapRect(visible, 0, 0.5).isNull());
}

TEST(GeoMapClusterUtilityTest, GridWalkWrapsAndVisitsEachColumnOnce) {
  double cell = kMapWorldWidth / 8;
  std::vector<MapRect> cells;
  // Two columns east of the 180th meridian and one row.
  enumerateGridCells(MapRectMake(7 * cell, 0, 3 * cell, cell), cell, [&](MapRect c) { cells.push_back(c); });
  ASSERT_EQ(cells.size(), 3u);
  EXPECT_DOUBLE_EQ(cells[0].minX(), 7 * cell);
  EXPECT_DOUBLE_EQ(cells[1].minX(), 0);
  EXPECT_DOUBLE_EQ(cells[2].minX(), cell);

  // A grid wider than the world and taller than it.
  std::set<std::pair<double, double>> seen;
  int visits = 0;
  enumerateGridCells(MapRectMake(-3 * cell, -2 * cell, 14 * cell, 12 * cell), cell, [&](MapRect c) {
    ++visits;
    EXPECT_GE(c.minX(), 0);
    EXPECT_LT(c.minX(), kMapWorldWidth);
    seen.insert({c.minX(), c.minY()});
  });
  EXPECT_EQ(visits, 64);
  EXPECT_EQ(seen.size(), 64u);
}

// Pins found by one pass over the visible tree must be, cell for cell, what
// a query of each cell finds: a pin missed is a pin not reused, a pin
// found in the wrong cell is reused in the wrong place. Pins sit on cell
// edges, at the 180th meridian and outside the grid.
TEST(GeoMapClusterUtilityTest, AnnotationsByGridCellMatchAQueryOfEachCell) {
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int round = 0; round < 40; ++round) {
    double columnsInWorld = std::vector<double>{8, 34, 546, 17476}[round % 4];
    double size = kMapWorldWidth / columnsInWorld;
    // Some grids cross the 180th meridian, some are wider than the world.
    double width = size * (round % 5 == 0 ? columnsInWorld + 3 : 2 + std::floor(unit(random) * 20));
    double height = size * (2 + std::floor(unit(random) * 12));
    MapRect grid = MapRectMake(std::floor(unit(random) * columnsInWorld) * size,
                               std::floor(unit(random) * (columnsInWorld - 1)) * size, width, height);
    GeoMapGridLines lines = gridLinesForMapRect(grid, size);
    std::vector<GeoMapTreeBoundingBox> rows;
    for (double y : lines.rows)
      rows.push_back(GeoMapTreeBoundingBoxForMapRect(MapRectMake(0, y, size, size)));
    std::vector<GeoMapGridColumn> columns;
    for (double x : lines.columns)
      columns.push_back({x, GeoMapTreeLongitudeForMapX(x), GeoMapTreeLongitudeForMapX(x + size), -1});

    GeoMapTree tree;
    MapAnnotationList pins;
    for (int i = 0; i < 300; ++i) {
      // Mostly inside the grid, on its cells' edges and corners half the time.
      MapPoint point{grid.minX() + unit(random) * grid.size.width * 1.2 - grid.size.width * 0.1,
                     grid.minY() + unit(random) * grid.size.height * 1.2 - grid.size.height * 0.1};
      point.x = std::fmod(point.x, kMapWorldWidth);
      point.y = std::clamp(point.y, 0.0, kMapWorldWidth);
      LocationCoordinate2D at = CoordinateForMapPoint(point);
      if (unit(random) < 0.5) {
        at.latitude = CoordinateForMapPoint({0, std::round(point.y / size) * size}).latitude;
      }
      if (unit(random) < 0.5) {
        at.longitude = GeoMapTreeLongitudeForMapX(std::round(point.x / size) * size);
      }
      pins.push_back(std::make_shared<PointAnnotation>(at));
      tree.addAnnotation(pins.back(), at);
    }

    std::map<std::size_t, std::set<MapAnnotation*>> found;
    for (const auto& [cell, pin] : annotationsByGridCell(tree, rows, columns)) {
      ASSERT_LT(cell, rows.size() * columns.size());
      EXPECT_TRUE(found[cell].insert(pin).second) << "listed twice in one cell";
    }
    std::size_t listed = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (std::size_t j = 0; j < columns.size(); ++j) {
        GeoMapTreeBoundingBox box{rows[i].x0, columns[j].west, rows[i].xf, columns[j].east};
        GeoMapTreeUnsafeMutableArray queried;
        tree.annotationsInBox(box, queried, true);
        std::set<MapAnnotation*> expected(queried.begin(), queried.end());
        std::size_t cell = i * columns.size() + j;
        EXPECT_EQ(found.count(cell) ? found[cell] : std::set<MapAnnotation*>{}, expected)
            << "round " << round << ", row " << i << ", column " << j;
        listed += expected.size();
      }
    }
    EXPECT_GT(listed, 0u);
  }
}

TEST(GeoMapClusterUtilityTest, ZoomLevelDoublesWithWidthAndHalvesWithSpan) {
  EXPECT_NEAR(zoomLevelForRegion({{0, 0}, {170, 360}}, 256), 0, 1e-9);
  EXPECT_NEAR(zoomLevelForRegion({{0, 0}, {170, 360}}, 512), 1, 1e-9);
  EXPECT_NEAR(zoomLevelForRegion({{40, -70}, {1, 360.0 / 1024}}, 256), 10, 1e-9);
}

TEST(GeoMapClusterUtilityTest, ClusterersPlaceThePin) {
  auto a = std::make_shared<PointAnnotation>(LocationCoordinate2D{10, 20});
  auto b = std::make_shared<PointAnnotation>(LocationCoordinate2D{12, 26});
  auto c = std::make_shared<PointAnnotation>(LocationCoordinate2D{11, 23.0001});
  GeoCenterOfMassMapClusterer centerOfMass;
  LocationCoordinate2D mean = centerOfMass.coordinateForAnnotations(nullptr, {a, b}, kMapRectWorld);
  EXPECT_DOUBLE_EQ(mean.latitude, 11);
  EXPECT_DOUBLE_EQ(mean.longitude, 23);
  LocationCoordinate2D none = centerOfMass.coordinateForAnnotations(nullptr, {}, kMapRectWorld);
  EXPECT_EQ(none.latitude, 0);
  EXPECT_EQ(none.longitude, 0);

  MapPoint p1 = MapPointForCoordinate({13, 18});
  MapPoint p2 = MapPointForCoordinate({9, 28});
  MapRect cell = MapRectMake(p1.x, p1.y, p2.x - p1.x, p2.y - p1.y);
  GeoNearCenterMapClusterer nearCenter;
  LocationCoordinate2D nearest = nearCenter.coordinateForAnnotations(nullptr, {a, b, c}, cell);
  EXPECT_DOUBLE_EQ(nearest.longitude, 23.0001);
  // Of two equally near members the first wins.
  double middle = CoordinateForMapPoint({cell.midX(), cell.midY()}).longitude;
  auto west = std::make_shared<PointAnnotation>(LocationCoordinate2D{11, middle - 1});
  auto east = std::make_shared<PointAnnotation>(LocationCoordinate2D{11, middle + 1});
  EXPECT_EQ(nearCenter.coordinateForAnnotations(nullptr, {west, east}, cell).longitude, middle - 1);
  EXPECT_EQ(nearCenter.coordinateForAnnotations(nullptr, {east, west}, cell).longitude, middle + 1);
}

}  // namespace
}  // namespace lumeo
