// The map view the engine's tests, the command line and the desktop's map
// share: where a region lands, the closest zoom, the world's edges, and the
// hooks a screen follows.
#include "map/headless_map_view.h"

#include <gtest/gtest.h>

#include <cmath>

namespace lumeo {
namespace {

struct Place : MapAnnotation {
  explicit Place(LocationCoordinate2D at) : at(at) {}
  LocationCoordinate2D coordinate() const override { return at; }
  LocationCoordinate2D at;
};

TEST(HeadlessMapViewTest, AChosenRegionKeepsItsCentreFarFromTheEquator) {
  HeadlessMapView map(600, 400);
  const CoordinateRegion north{{69.65, 18.96}, {8, 8}};  // Tromsø: Mercator stretches the north
  map.setRegion(north, false);
  EXPECT_NEAR(map.centerCoordinate().latitude, 69.65, 1e-9);
  EXPECT_NEAR(map.centerCoordinate().longitude, 18.96, 1e-9);
  const CoordinateRegion fits = map.regionThatFits(north);
  EXPECT_DOUBLE_EQ(fits.center.latitude, 69.65);
  // Fitted to the map's aspect: at least what was asked for.
  EXPECT_GE(fits.span.longitudeDelta, 8 - 1e-9);
  // A region without a centre moves nothing.
  const MapRect before = map.visibleMapRect();
  map.setRegion({{std::nan(""), 0}, {1, 1}}, false);
  EXPECT_EQ(map.visibleMapRect(), before);
}

TEST(HeadlessMapViewTest, ZoomStopsAtTheClosestZoomAndTheWorldsEdges) {
  HeadlessMapView free(512, 512);
  HeadlessMapView tiles(512, 512, 19);
  EXPECT_DOUBLE_EQ(free.zoom(), 1);  // the whole world on two 256-point tiles
  const MapPoint graz = MapPointForCoordinate({47.07, 15.44});
  for (HeadlessMapView* map : {&free, &tiles}) map->setVisibleMapRect(MapRectMake(graz.x, graz.y, 4, 4));
  EXPECT_NEAR(free.zoom(), 20 - std::log2(4.0 / 512), 1e-9);
  EXPECT_NEAR(tiles.zoom(), 19, 1e-9);
  EXPECT_NEAR(tiles.visibleMapRect().midX(), graz.x + 2, 1e-6);
  EXPECT_NEAR(HeadlessMapView::scaleForZoom(HeadlessMapView::zoomForScale(3.5)), 3.5, 1e-12);

  // Never wider than the world, and the centre stays on it.
  tiles.setVisibleMapRect(
      MapRectMake(-kMapWorldWidth, -3 * kMapWorldWidth, 4 * kMapWorldWidth, kMapWorldWidth));
  EXPECT_DOUBLE_EQ(tiles.visibleMapRect().size.width, kMapWorldWidth);
  EXPECT_DOUBLE_EQ(tiles.visibleMapRect().midY(), 0);
  EXPECT_GE(tiles.visibleMapRect().minX(), 0);
  EXPECT_LT(tiles.visibleMapRect().minX(), kMapWorldWidth);
}

TEST(HeadlessMapViewTest, PointsAcrossTheDateLineLandOnTheNearestCopyOfTheWorld) {
  HeadlessMapView map(400, 400);
  map.setRegion({{0, 179}, {0, 4}}, false);  // 177°E to 181°E
  const ViewPoint east = map.convertCoordinateToPoint({0, 178});
  const ViewPoint west = map.convertCoordinateToPoint({0, -179.5});  // 180.5°E
  EXPECT_GT(east.x, 0);
  EXPECT_GT(west.x, east.x);
  EXPECT_LT(west.x, 400);
  const LocationCoordinate2D back = map.convertPointToCoordinate(east);
  EXPECT_NEAR(back.longitude, 178, 1e-6);
}

TEST(HeadlessMapViewTest, ANewSizeKeepsCentreAndScaleAndTheHooksHearEachChange) {
  HeadlessMapView map(400, 300);
  int regionChanges = 0;
  std::vector<std::string> heard;
  map.onRegionChanged = [&] { ++regionChanges; };
  map.onAnnotationAdded = [&](const MapAnnotationPtr&) { heard.push_back("added"); };
  map.onAnnotationRemoved = [&](const MapAnnotationPtr&) { heard.push_back("removed"); };

  map.setRegion({{48.2, 16.37}, {2, 2}}, false);  // Vienna, not the whole world
  const double scale = map.scale();
  const LocationCoordinate2D centre = map.centerCoordinate();
  regionChanges = 0;
  map.setSize(800, 600);
  EXPECT_EQ(regionChanges, 1);
  EXPECT_DOUBLE_EQ(map.scale(), scale);
  EXPECT_NEAR(map.centerCoordinate().latitude, centre.latitude, 1e-9);
  map.setSize(800, 600);  // no change
  map.setSize(0, 600);    // no size
  EXPECT_EQ(regionChanges, 1);
  EXPECT_DOUBLE_EQ(map.width(), 800);

  auto vienna = std::make_shared<Place>(LocationCoordinate2D{48.2, 16.37});
  auto graz = std::make_shared<Place>(LocationCoordinate2D{47.07, 15.44});
  map.addAnnotations({vienna, graz, vienna});
  map.selectAnnotation(graz, false);
  map.removeAnnotations({graz, graz});
  EXPECT_EQ(heard, (std::vector<std::string>{"added", "added", "removed"}));
  EXPECT_TRUE(map.selectedAnnotations().empty());
  EXPECT_EQ(map.annotations(), MapAnnotationList{vienna});
}

}  // namespace
}  // namespace lumeo
