// A map view without a screen: it keeps a visible rectangle of a given size
// in points, projects between view points and coordinates like a real map,
// keeps annotations, views, selection and overlays, and completes
// animations at once. The engine's tests and the command-line tools use it.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "map/map_view.h"

namespace lumeo {

class HeadlessMapView : public MapView {
 public:
  // A map of the given size in points showing the whole world's width.
  HeadlessMapView(double width, double height);

  // Shows exactly this rectangle (scaled to the map's aspect around its
  // centre), telling the delegate when it changes.
  void setVisibleMapRect(MapRect rect, bool animated = false);

  MapRect visibleMapRect() const override { return rect_; }
  CoordinateRegion region() const override;
  void setRegion(CoordinateRegion region, bool animated) override;
  CoordinateRegion regionThatFits(CoordinateRegion region) const override;
  LocationCoordinate2D centerCoordinate() const override;
  void setCenterCoordinate(LocationCoordinate2D center, bool animated) override;
  double width() const override { return width_; }
  double height() const override { return height_; }
  LocationCoordinate2D convertPointToCoordinate(ViewPoint point) const override;
  ViewPoint convertCoordinateToPoint(LocationCoordinate2D coordinate) const override;

  MapAnnotationList annotations() const override { return annotations_; }
  void addAnnotations(const MapAnnotationList& annotations) override;
  void removeAnnotations(const MapAnnotationList& annotations) override;
  MapAnnotationList selectedAnnotations() const override { return selected_; }
  void selectAnnotation(const MapAnnotationPtr& annotation, bool animated) override;
  void deselectAnnotation(const MapAnnotationPtr& annotation, bool animated) override;
  AnnotationViewPtr viewForAnnotation(const MapAnnotationPtr& annotation) const override;

  std::vector<MapOverlayPtr> overlays() const override { return overlays_; }
  void addOverlay(const MapOverlayPtr& overlay) override;
  void removeOverlays(const std::vector<MapOverlayPtr>& overlays) override;

  std::shared_ptr<MapViewDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<MapViewDelegate>& delegate) override { delegate_ = delegate; }

  void animate(double duration, std::function<void()> animations, std::function<void()> completion) override;

 private:
  MapRect fitted(MapRect rect) const;

  double width_;
  double height_;
  MapRect rect_;
  MapAnnotationList annotations_;
  std::unordered_map<MapAnnotation*, AnnotationViewPtr> views_;
  MapAnnotationList selected_;
  std::vector<MapOverlayPtr> overlays_;
  std::weak_ptr<MapViewDelegate> delegate_;
};

}  // namespace lumeo
