// The quad tree against a brute-force scan, and its structural promises:
// capacity, bounds, parents keeping their points, removal after a move.
#include "map/geo_map_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace lumeo {
namespace {

class MovablePoint : public MapAnnotation {
 public:
  explicit MovablePoint(LocationCoordinate2D c) : coordinate_(c) {}
  LocationCoordinate2D coordinate() const override { return coordinate_; }
  void move(LocationCoordinate2D c) { coordinate_ = c; }

 private:
  LocationCoordinate2D coordinate_;
};

MapAnnotationPtr point(double latitude, double longitude) {
  return std::make_shared<PointAnnotation>(LocationCoordinate2D{latitude, longitude});
}

std::set<MapAnnotation*> inBox(const GeoMapTree& tree, GeoMapTreeBoundingBox box, bool cellEdges = false) {
  GeoMapTreeUnsafeMutableArray result(0);
  tree.annotationsInBox(box, result, cellEdges);
  std::set<MapAnnotation*> set(result.begin(), result.end());
  EXPECT_EQ(set.size(), result.numObjects()) << "a query returned an annotation twice";
  return set;
}

TEST(GeoMapTreeTest, NodesFillToCapacityThenSubdivideKeepingTheirPoints) {
  GeoMapTree tree;
  MapAnnotationList points;
  for (int i = 0; i < 11; ++i) points.push_back(point(10 + i * 0.1, 20));
  EXPECT_TRUE(tree.addAnnotations(MapAnnotationList(points.begin(), points.begin() + 10)));
  EXPECT_EQ(tree.root()->count, 10u);
  EXPECT_EQ(tree.root()->northWest, nullptr);
  EXPECT_TRUE(tree.addAnnotations({points[10]}));
  EXPECT_EQ(tree.root()->count, 10u);
  ASSERT_NE(tree.root()->northWest, nullptr);
  const GeoMapTreeNode* root = tree.root();
  std::size_t inChildren =
      root->northWest->count + root->northEast->count + root->southWest->count + root->southEast->count;
  EXPECT_EQ(inChildren, 1u);
  EXPECT_EQ(tree.count(), 11u);
}

TEST(GeoMapTreeTest, AddingSkipsDuplicatesAndPointsBeyondTheBounds) {
  GeoMapTree tree;
  MapAnnotationPtr a = point(0, 0);
  MapAnnotationPtr polar = point(86, 0);
  EXPECT_TRUE(tree.addAnnotations({a}));
  EXPECT_FALSE(tree.addAnnotations({a}));
  EXPECT_FALSE(tree.addAnnotations({polar}));
  EXPECT_FALSE(tree.containsAnnotation(polar.get()));
  EXPECT_TRUE(tree.addAnnotations({point(85, 180), point(-85, -180)}));  // the bounds are inclusive
  EXPECT_EQ(tree.count(), 3u);
  EXPECT_FALSE(tree.removeAnnotations({polar}));
  EXPECT_TRUE(tree.removeAnnotations({a, polar}));
  EXPECT_FALSE(tree.removeAnnotations({a}));
  EXPECT_EQ(tree.count(), 2u);
}

TEST(GeoMapTreeTest, RemovalFindsAnAnnotationWhoseCoordinateHasSinceChanged) {
  GeoMapTree tree;
  auto moving = std::make_shared<MovablePoint>(LocationCoordinate2D{10, 10});
  tree.addAnnotations({moving});
  for (int i = 0; i < 50; ++i) tree.addAnnotations({point(10 + i * 0.01, 10)});
  moving->move({-40, -100});
  EXPECT_TRUE(tree.removeAnnotations({moving}));
  EXPECT_TRUE(inBox(tree, {9, 9, 11, 11}).count(moving.get()) == 0);
  EXPECT_EQ(inBox(tree, {9, 9, 11, 11}).size(), 50u);
}

TEST(GeoMapTreeTest, ThousandsOfRecordsAtOnePlaceStayFindableAndRemovable) {
  // Identical points stack one node level per ten points.
  GeoMapTree tree;
  MapAnnotationList home;
  for (int i = 0; i < 20000; ++i) home.push_back(point(52.52, 13.405));
  tree.addAnnotations(home);
  EXPECT_EQ(inBox(tree, {52, 13, 53, 14}).size(), 20000u);
  tree.removeAnnotations(MapAnnotationList(home.begin(), home.begin() + 19990));
  EXPECT_EQ(inBox(tree, {52, 13, 53, 14}).size(), 10u);
}

TEST(GeoMapTreeTest, QueriesMatchABruteForceScanThroughAddsAndRemoves) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> latitude(-89, 89);
  std::uniform_real_distribution<double> longitude(-180, 180);
  std::uniform_real_distribution<double> unit(0, 1);
  GeoMapTree tree;
  std::vector<MapAnnotationPtr> present;
  for (int round = 0; round < 30; ++round) {
    MapAnnotationList batch;
    for (int i = 0; i < 300; ++i) {
      // A third land on a few shared spots, as records at home and work do.
      if (unit(random) < 0.33) {
        batch.push_back(
            point(std::round(latitude(random) / 30) * 30, std::round(longitude(random) / 60) * 60));
      } else {
        batch.push_back(point(latitude(random), longitude(random)));
      }
    }
    tree.addAnnotations(batch);
    for (const auto& a : batch) {
      if (std::abs(a->coordinate().latitude) <= 85) present.push_back(a);
    }
    std::shuffle(present.begin(), present.end(), random);
    MapAnnotationList gone(present.begin(), present.begin() + static_cast<long>(present.size() / 4));
    present.erase(present.begin(), present.begin() + static_cast<long>(present.size() / 4));
    tree.removeAnnotations(gone);
    ASSERT_EQ(tree.count(), present.size());

    for (int q = 0; q < 20; ++q) {
      double a = latitude(random), b = latitude(random), c = longitude(random), d = longitude(random);
      GeoMapTreeBoundingBox box{std::min(a, b), std::min(c, d), std::max(a, b), std::max(c, d)};
      if (q == 0) box = {-30, -60, 30, 60};  // edges through the shared spots
      std::set<MapAnnotation*> expected;
      std::set<MapAnnotation*> expectedCell;
      double sumLatitude = 0;
      for (const auto& p : present) {
        auto coordinate = p->coordinate();
        if (box.containsPoint(coordinate.latitude, coordinate.longitude)) expected.insert(p.get());
        if (coordinate.latitude > box.x0 && coordinate.latitude <= box.xf && coordinate.longitude >= box.y0 &&
            coordinate.longitude < box.yf) {
          expectedCell.insert(p.get());
          sumLatitude += coordinate.latitude;
        }
      }
      ASSERT_EQ(inBox(tree, box), expected);
      ASSERT_EQ(inBox(tree, box, true), expectedCell);
      // The subtree totals agree with the points, after removals too.
      GeoMapTreeAggregate totals = tree.aggregateInBox(box, true);
      ASSERT_EQ(totals.count, expectedCell.size());
      ASSERT_NEAR(totals.sumX, sumLatitude, 1e-6);
      ASSERT_EQ(tree.hasAnnotationInBox(box, true), !expectedCell.empty());
    }
  }
}

TEST(GeoMapTreeTest, AdjacentCellsNeverBothClaimAPointOnTheirEdge) {
  GeoMapTree tree;
  MapAnnotationPtr onEdge = point(10, 20);
  tree.addAnnotations({onEdge});
  int claims = 0;
  for (GeoMapTreeBoundingBox cell :
       {GeoMapTreeBoundingBox{0, 10, 10, 20}, GeoMapTreeBoundingBox{0, 20, 10, 30},
        GeoMapTreeBoundingBox{10, 10, 20, 20}, GeoMapTreeBoundingBox{10, 20, 20, 30}})
    claims += static_cast<int>(inBox(tree, cell, true).size());
  EXPECT_EQ(claims, 1);
  // The easternmost cell keeps the 180th meridian.
  MapAnnotationPtr dateLine = point(0, 180);
  tree.addAnnotations({dateLine});
  EXPECT_EQ(inBox(tree, {-5, 170, 5, 180}, true).count(dateLine.get()), 1u);
}

TEST(GeoMapTreeTest, MapRectQueriesWrapAroundTheDateLine) {
  GeoMapTree tree;
  MapAnnotationPtr east = point(0, 179.5);
  MapAnnotationPtr west = point(0, -179.5);
  MapAnnotationPtr far = point(0, 0);
  tree.addAnnotations({east, west, far});
  MapPoint eastPoint = MapPointForCoordinate({1, 179});
  MapPoint westPoint = MapPointForCoordinate({-1, -179});
  MapRect acrossDateLine = MapRectMake(eastPoint.x, eastPoint.y, westPoint.x + kMapWorldWidth - eastPoint.x,
                                       westPoint.y - eastPoint.y);
  MapAnnotationList found = tree.annotationsInMapRect(acrossDateLine);
  std::set<MapAnnotation*> set;
  for (const auto& a : found) set.insert(a.get());
  EXPECT_EQ(set, (std::set<MapAnnotation*>{east.get(), west.get()}));
  EXPECT_EQ(tree.annotationsInMapRect(kMapRectWorld).size(), 3u);
  EXPECT_TRUE(tree.annotationsInMapRect(kMapRectNull).empty());
}

TEST(GeoMapTreeTest, ResultArrayGrowsFromAnyCapacity) {
  GeoMapTreeUnsafeMutableArray array(0);
  EXPECT_EQ(array.capacity(), 1u);
  std::vector<MapAnnotationPtr> keep;
  for (int i = 0; i < 100; ++i) {
    keep.push_back(point(0, 0));
    array.addObject(keep.back().get());
  }
  EXPECT_EQ(array.numObjects(), 100u);
  EXPECT_EQ(array.capacity(), 128u);
  EXPECT_EQ(array[99], keep[99].get());
}

}  // namespace
}  // namespace lumeo
