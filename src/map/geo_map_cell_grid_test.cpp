// The per-cell tables must agree with the tree walk cell for cell, through
// adds and removes, and a pass that reads them must show the same pins as
// one that walks the tree.
#include "map/geo_map_cell_grid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "map/geo_map_cluster_operation.h"
#include "map/geo_map_cluster_utility.h"
#include "map/geo_map_tree.h"

namespace lumeo {
namespace {

// Random points, a share of them on lattice lines (the equator, the prime
// and 180th meridians, whole degrees) where cell edges fall.
MapAnnotationList randomPoints(std::mt19937_64& random, std::size_t count) {
  std::uniform_real_distribution<double> latitude(-84.0, 84.0);
  std::uniform_real_distribution<double> longitude(-180.0, 180.0);
  std::uniform_real_distribution<double> unit(0, 1);
  MapAnnotationList points;
  for (std::size_t i = 0; i < count; ++i) {
    double lat = latitude(random), lon = longitude(random);
    double pick = unit(random);
    if (pick < 0.05)
      lat = 0;
    else if (pick < 0.10)
      lon = 0;
    else if (pick < 0.12)
      lon = unit(random) < 0.5 ? 180.0 : -180.0;
    else if (pick < 0.20)
      lon = std::round(lon), lat = std::round(lat);
    else if (pick < 0.40)
      lat = 48.85 + (lat / 84.0) * 0.01, lon = 2.35 + (lon / 180.0) * 0.01;  // a dense town
    points.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{lat, lon}));
  }
  return points;
}

// Every cell of the world at `cellMapSize` (or a window of it when fine):
// where the table answers, it matches the tree, and it answers for most
// occupied cells.
void expectTableMatchesTree(const GeoMapTree& tree, const GeoMapCellGrid& grid, MapRect area) {
  double size = grid.cellMapSize();
  std::size_t answered = 0, occupied = 0;
  enumerateGridCells(gridMapRectForMapRect(area, size, 0), size, [&](MapRect cell) {
    GeoMapTreeBoundingBox box = GeoMapTreeBoundingBoxForMapRect(cell);
    GeoMapTreeAggregate walked = tree.aggregateInBox(box, true);
    if (walked.count) ++occupied;
    auto read = grid.aggregateForCell(cell);
    if (!read) return;
    if (walked.count) ++answered;
    ASSERT_EQ(read->count, walked.count) << "cell at " << cell.minX() << ", " << cell.minY();
    if (walked.count == 0) return;
    EXPECT_NEAR(read->sumX / double(read->count), walked.sumX / double(walked.count), 1e-9);
    EXPECT_NEAR(read->sumY / double(read->count), walked.sumY / double(walked.count), 1e-9);
  });
  EXPECT_GT(occupied, 0u);
  // Cells on the lattice lines of the test data need the tree; the rest not.
  if (occupied >= 100) {
    EXPECT_GE(answered * 2, occupied) << "the table should answer for most cells";
  }
}

TEST(GeoMapCellGridTest, TablesAgreeWithTheTreeThroughAddsAndRemoves) {
  std::mt19937_64 random(7);
  GeoMapTree tree;
  MapAnnotationList points = randomPoints(random, 20000);
  tree.addAnnotations(points);
  // Sizes the controller makes: whole-level zooms and odd ones in between,
  // and one with so many rows that the table converts each point.
  std::vector<double> sizes;
  for (double distance : {kMapWorldWidth / 34.1, kMapWorldWidth / 546.3, kMapWorldWidth / 17476.2,
                          kMapWorldWidth / 2000.0, kMapWorldWidth / 139810.3, kMapWorldWidth / 3.0})
    sizes.push_back(alignedCellMapSize(distance));
  MapPoint paris = MapPointForCoordinate({48.85, 2.35});
  MapRect aroundParis = MapRectMake(paris.x - kMapWorldWidth / 200, paris.y - kMapWorldWidth / 200,
                                    kMapWorldWidth / 100, kMapWorldWidth / 100);
  for (double size : sizes) {
    ASSERT_EQ(tree.cellGridForCellMapSize(size), nullptr) << "the first pass at a size walks the tree";
    const GeoMapCellGrid* grid = tree.cellGridForCellMapSize(size);
    if (size == sizes.back()) {
      EXPECT_EQ(tree.cellGridCount(), 2u) << "only the most recent tables stay";
    }
    ASSERT_NE(grid, nullptr);
    MapRect area = kMapWorldWidth / size > 1000 ? aroundParis : kMapRectWorld;
    expectTableMatchesTree(tree, *grid, area);
  }

  // The kept tables follow removals and new points, including points
  // filed somewhere other than their coordinate.
  std::shuffle(points.begin(), points.end(), random);
  tree.removeAnnotations(MapAnnotationList(points.begin(), points.begin() + 8000));
  MapAnnotationList more = randomPoints(random, 3000);
  tree.addAnnotations(more);
  tree.moveAnnotation(more.front(), {10.0, 0.0});
  for (std::size_t i = sizes.size() - 2; i < sizes.size(); ++i) {
    const GeoMapCellGrid* grid = tree.cellGridForCellMapSize(sizes[i]);
    ASSERT_NE(grid, nullptr);
    expectTableMatchesTree(tree, *grid, kMapWorldWidth / sizes[i] > 1000 ? aroundParis : kMapRectWorld);
  }
}

TEST(GeoMapCellGridTest, UnalignedSizesAndSmallTreesGetNoTable) {
  EXPECT_FALSE(GeoMapCellGrid::servesCellMapSize(0));
  EXPECT_FALSE(GeoMapCellGrid::servesCellMapSize(kMapWorldWidth / 10.5));
  EXPECT_FALSE(GeoMapCellGrid::servesCellMapSize(kMapWorldWidth / double(GeoMapCellGrid::kMaxColumns * 2)));
  EXPECT_TRUE(GeoMapCellGrid::servesCellMapSize(kMapWorldWidth / 10));
  GeoMapTree small;
  std::mt19937_64 random(3);
  small.addAnnotations(randomPoints(random, 100));
  EXPECT_EQ(small.cellGridForCellMapSize(kMapWorldWidth / 10), nullptr);
  EXPECT_EQ(small.cellGridForCellMapSize(kMapWorldWidth / 10), nullptr);
}

struct Pin {
  double latitude;
  double longitude;
  std::size_t count;
};

std::vector<Pin> pinsOfPass(const std::shared_ptr<GeoMapTree>& tree, MapRect visible, double cellMapSize,
                            std::size_t minUniqueLocations = 0) {
  GeoMapClusterSnapshot snapshot;
  snapshot.settings.minUniqueLocationsForClustering = minUniqueLocations;
  snapshot.visibleMapRect = visible;
  snapshot.region = CoordinateRegionForMapRect(visible);
  snapshot.width = 1280;
  snapshot.cellMapSize = cellMapSize;
  GeoMapClusterOperation operation(snapshot, tree, std::make_shared<GeoMapTree>(),
                                   std::make_shared<GeoCenterOfMassMapClusterer>(), nullptr, {}, {});
  std::vector<Pin> pins;
  for (const auto& cluster : operation.clusterAnnotations().clusters)
    pins.push_back({cluster->coordinate().latitude, cluster->coordinate().longitude, cluster->count()});
  return pins;
}

TEST(GeoMapCellGridTest, PassesFromTablesShowTheSamePinsAsTreeWalks) {
  std::mt19937_64 random(11);
  auto tree = std::make_shared<GeoMapTree>();
  tree->addAnnotations(randomPoints(random, 30000));
  MapPoint paris = MapPointForCoordinate({48.85, 2.35});
  // The map tab asks for three locations before it clusters a cell; the
  // table then only tells empty cells and the totals of clustered ones.
  for (auto [columns, minUniqueLocations] :
       std::vector<std::pair<double, std::size_t>>{{34, 0}, {546, 0}, {17476, 0}, {35, 3}, {17470, 3}}) {
    double size = kMapWorldWidth / columns;
    MapRect visible = columns < 100
                          ? MapRectMake(0, kMapWorldWidth / 8, kMapWorldWidth * 0.9, kMapWorldWidth * 0.6)
                          : MapRectMake(paris.x - 10 * size, paris.y - 6 * size, 21 * size, 13 * size);
    std::vector<Pin> walked = pinsOfPass(tree, visible, size, minUniqueLocations);  // no table yet
    std::vector<Pin> read = pinsOfPass(tree, visible, size, minUniqueLocations);    // builds and reads it
    ASSERT_NE(tree->cellGridForCellMapSize(size), nullptr);
    ASSERT_EQ(read.size(), walked.size());
    ASSERT_FALSE(walked.empty());
    for (std::size_t i = 0; i < walked.size(); ++i) {
      EXPECT_EQ(read[i].count, walked[i].count) << "pin " << i;
      EXPECT_NEAR(read[i].latitude, walked[i].latitude, 1e-9);
      EXPECT_NEAR(read[i].longitude, walked[i].longitude, 1e-9);
    }
  }
}

// Records exactly on projected cell edges: the longitude of a column edge
// and the latitude of a row edge, as the map converts them. Each is in one
// pin, the same one on the first pass (which walks the tree) and on later
// ones (which read the cell table), however the edge's degrees round.
TEST(GeoMapCellGridTest, ARecordOnACellEdgeIsInOnePinOnEveryPass) {
  for (long long columns : {9LL, 11LL, 12LL, 17LL, 18LL, 546LL}) {
    const double size = kMapWorldWidth / static_cast<double>(columns);
    auto tree = std::make_shared<GeoMapTree>();
    // Enough records elsewhere for the pass to build a table.
    std::mt19937_64 random(static_cast<unsigned>(columns));
    std::uniform_real_distribution<double> offset(0.2, 0.8);
    MapAnnotationList records;
    for (int i = 0; i < 5000; ++i) {
      MapPoint at{(2 + offset(random)) * size, (1.5 + offset(random)) * size};
      records.push_back(std::make_shared<PointAnnotation>(CoordinateForMapPoint(at)));
    }
    std::size_t onEdges = 0;
    for (long long k = 1; k < std::min(columns, 40LL); ++k) {
      const double edgeX = static_cast<double>(k) * size;
      const double edgeY = static_cast<double>(k) * size;
      const double latitude = CoordinateForMapPoint({0, edgeY}).latitude;
      if (std::fabs(latitude) >= 85.0) continue;
      const double longitude = GeoMapTreeLongitudeForMapX(edgeX);
      // On a column edge, on a row edge, and on both.
      records.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{10.0, longitude}));
      records.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{latitude, 10.0}));
      records.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{latitude, longitude}));
      onEdges += 3;
    }
    tree->addAnnotations(records);
    const MapRect world = MapRectMake(0, 0, kMapWorldWidth, kMapWorldWidth);
    for (int pass = 0; pass < 3; ++pass) {
      std::size_t shown = 0;
      for (const Pin& pin : pinsOfPass(tree, world, size)) shown += pin.count;
      EXPECT_EQ(shown, records.size())
          << columns << " columns, pass " << pass << " (" << onEdges << " records on edges)";
    }
    EXPECT_NE(tree->cellGridForCellMapSize(size), nullptr);
  }
}

}  // namespace
}  // namespace lumeo
