// The outline of one grid cell, drawn over the map while debugging so that
// one can see which cell each pin stands for.
#pragma once

#include <array>
#include <memory>

#include "map/map_view.h"

namespace lumeo {

class GeoMapClusterController;

class GeoMapClusterControllerDebugPolygon : public MapOverlay {
 public:
  GeoMapClusterControllerDebugPolygon(MapRect cell, std::weak_ptr<GeoMapClusterController> controller)
      : cell_(cell), controller_(std::move(controller)) {}

  MapRect boundingMapRect() const override { return cell_; }
  // Corners clockwise from the top left, in map points.
  std::array<MapPoint, 4> points() const {
    return {MapPoint{cell_.minX(), cell_.minY()}, MapPoint{cell_.maxX(), cell_.minY()},
            MapPoint{cell_.maxX(), cell_.maxY()}, MapPoint{cell_.minX(), cell_.maxY()}};
  }
  std::shared_ptr<GeoMapClusterController> mapClusterController() const { return controller_.lock(); }

 private:
  MapRect cell_;
  std::weak_ptr<GeoMapClusterController> controller_;
};

}  // namespace lumeo
