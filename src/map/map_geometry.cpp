// Spherical Mercator projection of the map plane, in the scale where the
// world is 2^28 points wide, and the small rectangle algebra on top of it.
#include "map/map_geometry.h"

#include <algorithm>

namespace lumeo {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegrees = 180.0 / kPi;
constexpr double kRadians = kPi / 180.0;

double wrapLongitude(double longitude) {
  double wrapped = std::fmod(longitude + 180.0, 360.0);
  if (wrapped < 0) wrapped += 360.0;
  return wrapped - 180.0;
}

}  // namespace

bool operator==(const MapRect& a, const MapRect& b) {
  if (a.isNull() || b.isNull()) return a.isNull() && b.isNull();
  return a.origin.x == b.origin.x && a.origin.y == b.origin.y && a.size.width == b.size.width &&
         a.size.height == b.size.height;
}

MapPoint MapPointForCoordinate(LocationCoordinate2D coordinate) {
  double x = (coordinate.longitude + 180.0) / 360.0 * kMapWorldWidth;
  double s = std::sin(coordinate.latitude * kRadians);
  double y = (0.5 - std::log((1 + s) / (1 - s)) / (4 * kPi)) * kMapWorldWidth;
  return {x, y};
}

LocationCoordinate2D CoordinateForMapPoint(MapPoint point) {
  double longitude = wrapLongitude(point.x / kMapWorldWidth * 360.0 - 180.0);
  double latitude =
      (kPi / 2 - 2 * std::atan(std::exp((point.y / kMapWorldWidth - 0.5) * 2 * kPi))) * kDegrees;
  return {latitude, longitude};
}

MapRect MapRectInset(MapRect rect, double dx, double dy) {
  if (rect.isNull()) return rect;
  return MapRectMake(rect.origin.x + dx, rect.origin.y + dy, rect.size.width - 2 * dx,
                     rect.size.height - 2 * dy);
}

MapRect MapRectUnion(MapRect a, MapRect b) {
  if (a.isNull()) return b;
  if (b.isNull()) return a;
  double minX = std::min(a.minX(), b.minX());
  double minY = std::min(a.minY(), b.minY());
  double maxX = std::max(a.maxX(), b.maxX());
  double maxY = std::max(a.maxY(), b.maxY());
  return MapRectMake(minX, minY, maxX - minX, maxY - minY);
}

bool MapRectIntersectsRect(MapRect a, MapRect b) {
  if (a.isNull() || b.isNull()) return false;
  return a.minX() < b.maxX() && b.minX() < a.maxX() && a.minY() < b.maxY() && b.minY() < a.maxY();
}

double MetersBetweenMapPoints(MapPoint a, MapPoint b) {
  LocationCoordinate2D ca = CoordinateForMapPoint(a);
  LocationCoordinate2D cb = CoordinateForMapPoint(b);
  double lat1 = ca.latitude * kRadians;
  double lat2 = cb.latitude * kRadians;
  double dLat = lat2 - lat1;
  double dLon = (cb.longitude - ca.longitude) * kRadians;
  // Haversine: stable for the short distances between neighbouring pins.
  double h = std::sin(dLat / 2) * std::sin(dLat / 2) +
             std::cos(lat1) * std::cos(lat2) * std::sin(dLon / 2) * std::sin(dLon / 2);
  return 2 * kEarthRadiusMeters * std::asin(std::min(1.0, std::sqrt(h)));
}

double MapPointsPerMeterAtLatitude(double latitude) {
  return kMapWorldWidth / (2 * kPi * kEarthRadiusMeters * std::cos(latitude * kRadians));
}

CoordinateRegion CoordinateRegionForMapRect(MapRect rect) {
  LocationCoordinate2D topLeft = CoordinateForMapPoint(rect.origin);
  LocationCoordinate2D bottomRight = CoordinateForMapPoint({rect.maxX(), rect.maxY()});
  CoordinateRegion region;
  region.center = CoordinateForMapPoint({rect.midX(), rect.midY()});
  region.span.latitudeDelta = topLeft.latitude - bottomRight.latitude;
  region.span.longitudeDelta = rect.size.width / kMapWorldWidth * 360.0;
  return region;
}

MapRect MapRectForCoordinateRegion(CoordinateRegion region) {
  // The poles are infinitely far on the plane: stop at its edge.
  constexpr double kMaxLatitude = 85.0511287798066;
  MapPoint topLeft =
      MapPointForCoordinate({std::min(region.center.latitude + region.span.latitudeDelta / 2, kMaxLatitude),
                             region.center.longitude - region.span.longitudeDelta / 2});
  MapPoint bottomRight =
      MapPointForCoordinate({std::max(region.center.latitude - region.span.latitudeDelta / 2, -kMaxLatitude),
                             region.center.longitude + region.span.longitudeDelta / 2});
  return MapRectMake(topLeft.x, topLeft.y, bottomRight.x - topLeft.x, bottomRight.y - topLeft.y);
}

CoordinateRegion CoordinateRegionMakeWithDistance(LocationCoordinate2D center, double latitudinalMeters,
                                                  double longitudinalMeters) {
  double metersPerDegree = kEarthRadiusMeters * kRadians;
  double cosLatitude = std::max(std::cos(center.latitude * kRadians), 1e-9);
  return {center,
          {latitudinalMeters / metersPerDegree, longitudinalMeters / (metersPerDegree * cosLatitude)}};
}

}  // namespace lumeo
