// A map view without a screen: it keeps a visible rectangle of a given size
// in points, projects between view points and coordinates like a real map,
// keeps annotations, views, selection and overlays, and completes
// animations at once. The engine's tests and the command-line tools use it
// as it is; the desktop's map (app/gui/map_viewport.*) is one with a size
// that follows its window and a closest zoom, drawn by QML.
//
// The visible rectangle, in the Web-Mercator map points of the clustering
// engine (2^28 on each side of the world), is the truth, and the region
// follows from it. The zoom of the tiles follows from its scale: at zoom z
// a 256-point tile covers 2^(28 - z) map points, so zoom = 20 - log2(map
// points per view point).
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <unordered_map>
#include <vector>

#include "map/map_view.h"

namespace lumeo {

class HeadlessMapView : public MapView {
 public:
  // A map of the given size in points showing the whole world's width,
  // never closer than `maxZoom` (no limit by default).
  HeadlessMapView(double width, double height, double maxZoom = std::numeric_limits<double>::infinity());

  // The tile zoom of a scale in map points per view point, and back.
  static double zoomForScale(double scale);
  static double scaleForZoom(double zoom);

  // A new size in points; the centre and the scale stay.
  virtual void setSize(double width, double height);
  // Shows this rectangle (scaled to the map's aspect around its centre, no
  // wider than the world, no closer than the closest zoom, its centre on
  // the world), telling the delegate when it changes; `notify` false does
  // not (a gesture in progress tells it itself, once).
  virtual void setVisibleMapRect(MapRect rect, bool animated = false, bool notify = true);
  // Map points per view point, and the tile zoom that shows them.
  double scale() const { return rect_.size.width / width_; }
  double zoom() const { return zoomForScale(scale()); }
  double maxZoom() const { return maxZoom_; }
  // The x in view points of a map x, taking the copy of the world nearest
  // the visible rectangle (the map wraps around at the 180th meridian).
  double viewXForMapX(double mapX) const;

  // Told after every change of the rectangle, and of each annotation added
  // or removed (a screen that draws the map follows with these).
  std::function<void()> onRegionChanged;
  std::function<void(const MapAnnotationPtr&)> onAnnotationAdded;
  std::function<void(const MapAnnotationPtr&)> onAnnotationRemoved;

  MapRect visibleMapRect() const override { return rect_; }
  CoordinateRegion region() const override;
  // A region's centre stays its centre: on Mercator's plane the middle of
  // its corners lies a little off it, which would move a chosen place.
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

 protected:
  MapRect fitted(MapRect rect) const;
  // Takes a new size without moving the map; false when it is no change or
  // no size.
  bool takeSize(double width, double height);

 private:
  double width_;
  double height_;
  double maxZoom_;
  MapRect rect_;
  MapAnnotationList annotations_;
  std::unordered_map<MapAnnotation*, AnnotationViewPtr> views_;
  MapAnnotationList selected_;
  std::vector<MapOverlayPtr> overlays_;
  std::weak_ptr<MapViewDelegate> delegate_;
};

}  // namespace lumeo
