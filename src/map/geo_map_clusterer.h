// Where a cluster pin goes: the clusterer chooses the coordinate of a group
// of annotations that share a grid cell. Called on the controller's
// background queue; an implementation must not touch the map. The
// controller is null when a tool clusters without one.
#pragma once

#include "map/map_annotation.h"
#include "map/map_geometry.h"

namespace lumeo {

class GeoMapClusterController;

class GeoMapClusterer {
 public:
  virtual ~GeoMapClusterer() = default;
  virtual LocationCoordinate2D coordinateForAnnotations(GeoMapClusterController* controller,
                                                        const MapAnnotationList& annotations,
                                                        MapRect inMapRect) = 0;
  // True when the answer is always the members' mean position, which the
  // engine can then take from the tree's totals without listing members.
  virtual bool placesAtMeanOfMembers() const { return false; }
};

// The mean latitude and mean longitude of the members; zeros for none.
class GeoCenterOfMassMapClusterer : public GeoMapClusterer {
 public:
  LocationCoordinate2D coordinateForAnnotations(GeoMapClusterController* controller,
                                                const MapAnnotationList& annotations,
                                                MapRect inMapRect) override;
  bool placesAtMeanOfMembers() const override { return true; }
};

// The member nearest to the cell's centre in metres, so that a pin always
// sits on a real place; the first of equally near members wins.
class GeoNearCenterMapClusterer : public GeoMapClusterer {
 public:
  LocationCoordinate2D coordinateForAnnotations(GeoMapClusterController* controller,
                                                const MapAnnotationList& annotations,
                                                MapRect inMapRect) override;
};

}  // namespace lumeo
