// Projection and rectangle algebra that the clustering grid rests on.
#include "map/map_geometry.h"

#include <gtest/gtest.h>

namespace lumeo {
namespace {

TEST(MapGeometryTest, ProjectionPutsTheWorldInItsSquareAndComesBack) {
  MapPoint origin = MapPointForCoordinate({0, 0});
  EXPECT_DOUBLE_EQ(origin.x, kMapWorldWidth / 2);
  EXPECT_NEAR(origin.y, kMapWorldWidth / 2, 1e-6);
  EXPECT_DOUBLE_EQ(MapPointForCoordinate({0, -180}).x, 0);
  // The top edge of the square is the Mercator limit.
  EXPECT_NEAR(MapPointForCoordinate({85.0511287798, 0}).y, 0, 1.0);
  EXPECT_NEAR(MapPointForCoordinate({-85.0511287798, 0}).y, kMapWorldWidth, 1.0);

  for (LocationCoordinate2D c : {LocationCoordinate2D{48.8566, 2.3522}, LocationCoordinate2D{-33.86, 151.21},
                                 LocationCoordinate2D{84.9, -179.99}, LocationCoordinate2D{-70, 0.0001}}) {
    LocationCoordinate2D back = CoordinateForMapPoint(MapPointForCoordinate(c));
    EXPECT_NEAR(back.latitude, c.latitude, 1e-9);
    EXPECT_NEAR(back.longitude, c.longitude, 1e-9);
  }
  // x beyond the world wraps to the same meridian.
  EXPECT_NEAR(CoordinateForMapPoint({kMapWorldWidth * 1.25, kMapWorldWidth / 2}).longitude, -90, 1e-9);
  EXPECT_NEAR(CoordinateForMapPoint({-kMapWorldWidth * 0.25, kMapWorldWidth / 2}).longitude, 90, 1e-9);
}

TEST(MapGeometryTest, DistancesAreGroundMetres) {
  // One degree of longitude on the equator.
  double degree = MetersBetweenMapPoints(MapPointForCoordinate({0, 0}), MapPointForCoordinate({0, 1}));
  EXPECT_NEAR(degree, 111319.49, 0.5);
  // Paris to London, about 344 km; the map's plane distance would be far off.
  double parisLondon = MetersBetweenMapPoints(MapPointForCoordinate({48.8566, 2.3522}),
                                              MapPointForCoordinate({51.5074, -0.1278}));
  EXPECT_NEAR(parisLondon, 344000, 3000);
  // Across the 180th meridian the short way round.
  double across =
      MetersBetweenMapPoints(MapPointForCoordinate({0, 179.5}), MapPointForCoordinate({0, -179.5}));
  EXPECT_NEAR(across, 111319.49, 0.5);
  EXPECT_EQ(MetersBetweenMapPoints(MapPointForCoordinate({10, 10}), MapPointForCoordinate({10, 10})), 0);
}

TEST(MapGeometryTest, RectangleAlgebraTreatsNullAsNothing) {
  MapRect a = MapRectMake(10, 20, 30, 40);
  EXPECT_EQ(MapRectUnion(kMapRectNull, a), a);
  EXPECT_EQ(MapRectUnion(a, kMapRectNull), a);
  EXPECT_TRUE(MapRectUnion(kMapRectNull, kMapRectNull).isNull());
  EXPECT_EQ(MapRectUnion(a, MapRectMake(100, 0, 0, 0)), MapRectMake(10, 0, 90, 60));
  EXPECT_EQ(MapRectInset(a, -5, -10), MapRectMake(5, 10, 40, 60));
  EXPECT_EQ(MapRectInset(a, 5, 10), MapRectMake(15, 30, 20, 20));
  EXPECT_TRUE(MapRectInset(kMapRectNull, 1, 1).isNull());
  EXPECT_TRUE(MapRectIntersectsRect(a, MapRectMake(39, 59, 5, 5)));
  EXPECT_FALSE(MapRectIntersectsRect(a, MapRectMake(40, 0, 5, 100)));  // touching is not overlapping
  EXPECT_FALSE(MapRectIntersectsRect(a, kMapRectNull));
}

TEST(MapGeometryTest, RegionsAndRectanglesConvertThroughTheirCorners) {
  CoordinateRegion region{{45, 10}, {2, 4}};
  CoordinateRegion back = CoordinateRegionForMapRect(MapRectForCoordinateRegion(region));
  EXPECT_NEAR(back.span.latitudeDelta, 2, 1e-9);
  EXPECT_NEAR(back.span.longitudeDelta, 4, 1e-9);
  EXPECT_NEAR(back.center.longitude, 10, 1e-9);
  // Mercator stretches the north half: the centre in map points sits north
  // of the centre in degrees.
  EXPECT_GT(back.center.latitude, 45 - 0.02);

  CoordinateRegion tenKm = CoordinateRegionMakeWithDistance({60, 25}, 10000, 10000);
  MapRect rect = MapRectForCoordinateRegion(tenKm);
  double pointsPerMeter = MapPointsPerMeterAtLatitude(60);
  EXPECT_NEAR(rect.size.width / pointsPerMeter, 10000, 10);
  EXPECT_NEAR(rect.size.height / pointsPerMeter, 10000, 10);
}

}  // namespace
}  // namespace lumeo
