// Map-point geometry of the spherical Mercator plane that the map and the
// clustering grid share: coordinates, map points and rectangles, the world
// size, projection both ways, inset, union and ground distance.
#pragma once

#include <cmath>
#include <limits>

namespace lumeo {

// Degrees of latitude and longitude.
struct LocationCoordinate2D {
  double latitude = 0;
  double longitude = 0;
};

struct CoordinateSpan {
  double latitudeDelta = 0;
  double longitudeDelta = 0;
};

struct CoordinateRegion {
  LocationCoordinate2D center;
  CoordinateSpan span;
};

// A point of the projected plane. x grows eastwards from the 180th meridian,
// y southwards from the top of the world (about 85.05 degrees north).
struct MapPoint {
  double x = 0;
  double y = 0;
};

struct MapSize {
  double width = 0;
  double height = 0;
};

struct MapRect {
  MapPoint origin;
  MapSize size;

  double minX() const { return origin.x; }
  double minY() const { return origin.y; }
  double maxX() const { return origin.x + size.width; }
  double maxY() const { return origin.y + size.height; }
  double midX() const { return origin.x + size.width / 2; }
  double midY() const { return origin.y + size.height / 2; }
  // The null rectangle stands for "no rectangle" (empty unions, a zero cell).
  bool isNull() const { return std::isinf(origin.x) || std::isinf(origin.y); }
  bool isEmpty() const { return isNull() || size.width <= 0 || size.height <= 0; }
  bool containsPoint(MapPoint p) const {
    return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
  }
};

bool operator==(const MapRect& a, const MapRect& b);

// Points of a view (the map's on-screen coordinate system).
struct ViewPoint {
  double x = 0;
  double y = 0;
};

// The whole world is a square of 2^28 map points on each side.
inline constexpr double kMapWorldWidth = 268435456.0;
inline constexpr MapSize kMapSizeWorld{kMapWorldWidth, kMapWorldWidth};
inline constexpr MapRect kMapRectWorld{{0, 0}, kMapSizeWorld};
inline constexpr MapRect kMapRectNull{
    {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()}, {0, 0}};
// Mean equatorial radius used for ground distances.
inline constexpr double kEarthRadiusMeters = 6378137.0;

inline MapRect MapRectMake(double x, double y, double width, double height) {
  return MapRect{{x, y}, {width, height}};
}

// Latitudes beyond the Mercator limit (about 85.0511) land outside the world
// square; callers that need a point on the map clamp first.
MapPoint MapPointForCoordinate(LocationCoordinate2D coordinate);
// Longitudes come back in [-180, 180) whatever the number of turns in x.
LocationCoordinate2D CoordinateForMapPoint(MapPoint point);

// Grows (negative dx, dy) or shrinks the rectangle on every side.
MapRect MapRectInset(MapRect rect, double dx, double dy);
// The smallest rectangle holding both; the null rectangle is the identity.
MapRect MapRectUnion(MapRect a, MapRect b);
bool MapRectIntersectsRect(MapRect a, MapRect b);
// Great-circle distance between the coordinates of the two points.
double MetersBetweenMapPoints(MapPoint a, MapPoint b);
// Map points per metre at a latitude (the scale grows towards the poles).
double MapPointsPerMeterAtLatitude(double latitude);

// The region of a rectangle and back, through its corners.
CoordinateRegion CoordinateRegionForMapRect(MapRect rect);
MapRect MapRectForCoordinateRegion(CoordinateRegion region);
// A region centred on a coordinate that spans the given distances.
CoordinateRegion CoordinateRegionMakeWithDistance(LocationCoordinate2D center, double latitudinalMeters,
                                                  double longitudinalMeters);

}  // namespace lumeo
