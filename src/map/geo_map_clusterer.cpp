// The two clusterers the map offers.
#include "map/geo_map_clusterer.h"

#include <limits>

namespace lumeo {

LocationCoordinate2D GeoCenterOfMassMapClusterer::coordinateForAnnotations(
    GeoMapClusterController* /*controller*/, const MapAnnotationList& annotations, MapRect /*inMapRect*/) {
  if (annotations.empty()) return {0, 0};
  double latitude = 0;
  double longitude = 0;
  for (const MapAnnotationPtr& annotation : annotations) {
    LocationCoordinate2D coordinate = annotation->coordinate();
    latitude += coordinate.latitude;
    longitude += coordinate.longitude;
  }
  double count = static_cast<double>(annotations.size());
  return {latitude / count, longitude / count};
}

LocationCoordinate2D GeoNearCenterMapClusterer::coordinateForAnnotations(
    GeoMapClusterController* /*controller*/, const MapAnnotationList& annotations, MapRect inMapRect) {
  MapPoint center{inMapRect.midX(), inMapRect.midY()};
  double nearest = std::numeric_limits<double>::max();
  LocationCoordinate2D result{0, 0};
  for (const MapAnnotationPtr& annotation : annotations) {
    LocationCoordinate2D coordinate = annotation->coordinate();
    double distance = MetersBetweenMapPoints(center, MapPointForCoordinate(coordinate));
    if (distance < nearest) {
      nearest = distance;
      result = coordinate;
    }
  }
  return result;
}

}  // namespace lumeo
