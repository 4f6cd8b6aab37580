// One pin standing for a group of annotations: the members, the pin's
// coordinate and its cached texts. Clustering swaps the member list in the
// background while the map reads it on the main thread, so the list is
// handed out as an immutable snapshot.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "map/map_annotation.h"

namespace lumeo {

class GeoMapClusterController;
class GeoMapClusterControllerDelegate;

class GeoMapClusterAnnotation : public MapAnnotation {
 public:
  GeoMapClusterAnnotation(std::weak_ptr<GeoMapClusterController> mapClusterController,
                          std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                          MapAnnotationList annotations, LocationCoordinate2D coordinate);

  LocationCoordinate2D coordinate() const override;
  void setCoordinate(LocationCoordinate2D coordinate);
  // Asked from the delegate on first read and kept until reset (main thread).
  std::string title() const override;
  std::string subtitle() const override;
  void resetTitleAndSubtitle();

  std::shared_ptr<const MapAnnotationList> annotations() const;
  void setAnnotations(MapAnnotationList annotations);
  std::size_t count() const { return annotations()->size(); }
  bool containsAnnotation(const MapAnnotation* annotation) const;

  // More than one member.
  bool isCluster() const { return count() > 1; }
  // All members share one location key.
  bool isUniqueLocation() const;
  bool isOneLocation() const { return isUniqueLocation(); }
  // The union of the members' points and the pin's own point.
  MapRect mapRect() const;

  std::shared_ptr<GeoMapClusterController> mapClusterController() const { return controller_.lock(); }
  std::shared_ptr<GeoMapClusterControllerDelegate> delegate() const { return delegate_.lock(); }
  // Whether this annotation was made by the given controller; compares
  // ownership without taking a reference, so it is safe on any thread.
  bool belongsTo(const std::weak_ptr<GeoMapClusterController>& controller) const;

 private:
  std::weak_ptr<GeoMapClusterController> controller_;
  std::weak_ptr<GeoMapClusterControllerDelegate> delegate_;
  mutable std::mutex mutex_;
  std::shared_ptr<const MapAnnotationList> annotations_;
  LocationCoordinate2D coordinate_;
  mutable std::optional<std::string> title_;
  mutable std::optional<std::string> subtitle_;
};

using GeoMapClusterAnnotationPtr = std::shared_ptr<GeoMapClusterAnnotation>;

}  // namespace lumeo
