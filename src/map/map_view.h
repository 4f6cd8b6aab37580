// The seam between the clustering engine and a map on screen: what the
// engine reads (visible rectangle, region, width, annotations), what it
// changes (annotations, selection, region, overlays) and the delegate calls
// it listens to. The GUI's map implements it; HeadlessMapView serves tests
// and tools. Every call belongs to the main thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "map/map_annotation.h"
#include "map/map_geometry.h"

namespace lumeo {

class MapView;

// The on-screen view of one annotation. The map owns it; the engine's
// animator changes its alpha.
class AnnotationView {
 public:
  explicit AnnotationView(MapAnnotationPtr annotation, std::string reuseIdentifier = {})
      : annotation_(std::move(annotation)), reuseIdentifier_(std::move(reuseIdentifier)) {}
  virtual ~AnnotationView() = default;

  const MapAnnotationPtr& annotation() const { return annotation_; }
  void setAnnotation(MapAnnotationPtr annotation) { annotation_ = std::move(annotation); }
  const std::string& reuseIdentifier() const { return reuseIdentifier_; }
  double alpha() const { return alpha_; }
  virtual void setAlpha(double alpha) { alpha_ = alpha; }
  bool canShowCallout() const { return canShowCallout_; }
  void setCanShowCallout(bool canShowCallout) { canShowCallout_ = canShowCallout; }

 private:
  MapAnnotationPtr annotation_;
  std::string reuseIdentifier_;
  double alpha_ = 1.0;
  bool canShowCallout_ = true;
};

using AnnotationViewPtr = std::shared_ptr<AnnotationView>;

// Something drawn over the map, such as the clustering grid when debugging.
class MapOverlay {
 public:
  virtual ~MapOverlay() = default;
  virtual MapRect boundingMapRect() const = 0;
};

using MapOverlayPtr = std::shared_ptr<MapOverlay>;

// Calls a map makes to its delegate, on the main thread. Every call has a
// default that does nothing, so a delegate overrides only what it needs.
class MapViewDelegate {
 public:
  virtual ~MapViewDelegate() = default;
  virtual void regionWillChange(MapView& /*mapView*/, bool /*animated*/) {}
  virtual void regionDidChange(MapView& /*mapView*/, bool /*animated*/) {}
  // The view to show for an annotation; null lets the map use its default.
  virtual AnnotationViewPtr viewForAnnotation(MapView& /*mapView*/, const MapAnnotationPtr& /*annotation*/) {
    return nullptr;
  }
  virtual void didAddAnnotationViews(MapView& /*mapView*/, const std::vector<AnnotationViewPtr>& /*views*/) {}
  virtual void didSelectAnnotationView(MapView& /*mapView*/, const AnnotationViewPtr& /*view*/) {}
  virtual void didDeselectAnnotationView(MapView& /*mapView*/, const AnnotationViewPtr& /*view*/) {}
};

class MapView {
 public:
  virtual ~MapView() = default;

  virtual MapRect visibleMapRect() const = 0;
  virtual CoordinateRegion region() const = 0;
  // Changing the region tells the delegate regionWillChange and
  // regionDidChange; setting the region already shown tells nothing.
  virtual void setRegion(CoordinateRegion region, bool animated) = 0;
  // The region the map would show for the given one, widened to its aspect.
  virtual CoordinateRegion regionThatFits(CoordinateRegion region) const = 0;
  virtual LocationCoordinate2D centerCoordinate() const = 0;
  virtual void setCenterCoordinate(LocationCoordinate2D center, bool animated) = 0;
  // The map's size in view points.
  virtual double width() const = 0;
  virtual double height() const = 0;
  virtual LocationCoordinate2D convertPointToCoordinate(ViewPoint point) const = 0;
  virtual ViewPoint convertCoordinateToPoint(LocationCoordinate2D coordinate) const = 0;

  virtual MapAnnotationList annotations() const = 0;
  // Adding an annotation already on the map and removing one that is not
  // there do nothing.
  virtual void addAnnotations(const MapAnnotationList& annotations) = 0;
  virtual void removeAnnotations(const MapAnnotationList& annotations) = 0;
  virtual MapAnnotationList selectedAnnotations() const = 0;
  virtual void selectAnnotation(const MapAnnotationPtr& annotation, bool animated) = 0;
  virtual void deselectAnnotation(const MapAnnotationPtr& annotation, bool animated) = 0;
  // The view showing an annotation, or null when it has none (yet).
  virtual AnnotationViewPtr viewForAnnotation(const MapAnnotationPtr& annotation) const = 0;

  virtual std::vector<MapOverlayPtr> overlays() const = 0;
  virtual void addOverlay(const MapOverlayPtr& overlay) = 0;
  virtual void removeOverlays(const std::vector<MapOverlayPtr>& overlays) = 0;

  // The map keeps its delegate weakly.
  virtual std::shared_ptr<MapViewDelegate> delegate() const = 0;
  virtual void setDelegate(const std::shared_ptr<MapViewDelegate>& delegate) = 0;

  // Applies the changes made by `animations` over `duration` seconds, then
  // calls `completion` on the main thread. A map without animation applies
  // them and completes at once.
  virtual void animate(double duration, std::function<void()> animations,
                       std::function<void()> completion) = 0;
};

}  // namespace lumeo
