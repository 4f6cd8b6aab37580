// The headless map keeps its visible rectangle as the truth and derives the
// region from it, the way a real map does; the rectangle is never wider
// than the world and its left edge stays within the world.
#include "map/headless_map_view.h"

#include <algorithm>
#include <cmath>

namespace lumeo {

HeadlessMapView::HeadlessMapView(double width, double height)
    : width_(width > 0 ? width : 1), height_(height > 0 ? height : 1) {
  rect_ = fitted(kMapRectWorld);
}

MapRect HeadlessMapView::fitted(MapRect rect) const {
  double centerX = rect.midX();
  double centerY = rect.midY();
  double w = std::max(rect.size.width, 1e-9);
  double h = std::max(rect.size.height, 1e-9);
  double aspect = width_ / height_;
  if (w / h < aspect) {
    w = h * aspect;
  } else {
    h = w / aspect;
  }
  if (w > kMapWorldWidth) {
    w = kMapWorldWidth;
    h = w / aspect;
  }
  double x = std::fmod(centerX - w / 2, kMapWorldWidth);
  if (x < 0) x += kMapWorldWidth;
  return MapRectMake(x, centerY - h / 2, w, h);
}

void HeadlessMapView::setVisibleMapRect(MapRect rect, bool animated) {
  MapRect next = fitted(rect);
  if (next == rect_) return;
  auto delegate = delegate_.lock();
  if (delegate) delegate->regionWillChange(*this, animated);
  rect_ = next;
  if (delegate) delegate->regionDidChange(*this, animated);
}

CoordinateRegion HeadlessMapView::region() const {
  return CoordinateRegionForMapRect(rect_);
}

CoordinateRegion HeadlessMapView::regionThatFits(CoordinateRegion region) const {
  return CoordinateRegionForMapRect(fitted(MapRectForCoordinateRegion(region)));
}

void HeadlessMapView::setRegion(CoordinateRegion region, bool animated) {
  setVisibleMapRect(MapRectForCoordinateRegion(region), animated);
}

LocationCoordinate2D HeadlessMapView::centerCoordinate() const {
  return CoordinateForMapPoint({rect_.midX(), rect_.midY()});
}

void HeadlessMapView::setCenterCoordinate(LocationCoordinate2D center, bool animated) {
  MapPoint point = MapPointForCoordinate(center);
  setVisibleMapRect(MapRectMake(point.x - rect_.size.width / 2, point.y - rect_.size.height / 2,
                                rect_.size.width, rect_.size.height),
                    animated);
}

LocationCoordinate2D HeadlessMapView::convertPointToCoordinate(ViewPoint point) const {
  return CoordinateForMapPoint({rect_.minX() + point.x * rect_.size.width / width_,
                                rect_.minY() + point.y * rect_.size.height / height_});
}

ViewPoint HeadlessMapView::convertCoordinateToPoint(LocationCoordinate2D coordinate) const {
  MapPoint point = MapPointForCoordinate(coordinate);
  double dx = point.x - rect_.minX();
  // Take the copy of the world nearest the visible rectangle.
  if (dx < 0) dx += kMapWorldWidth;
  if (dx > rect_.size.width && dx - kMapWorldWidth > -rect_.size.width) dx -= kMapWorldWidth;
  return {dx * width_ / rect_.size.width, (point.y - rect_.minY()) * height_ / rect_.size.height};
}

void HeadlessMapView::addAnnotations(const MapAnnotationList& annotations) {
  std::vector<AnnotationViewPtr> added;
  auto delegate = delegate_.lock();
  for (const MapAnnotationPtr& annotation : annotations) {
    if (!annotation || views_.count(annotation.get())) continue;
    AnnotationViewPtr view = delegate ? delegate->viewForAnnotation(*this, annotation) : nullptr;
    if (!view) view = std::make_shared<AnnotationView>(annotation);
    view->setAnnotation(annotation);
    annotations_.push_back(annotation);
    views_.emplace(annotation.get(), view);
    added.push_back(view);
  }
  if (delegate && !added.empty()) delegate->didAddAnnotationViews(*this, added);
}

void HeadlessMapView::removeAnnotations(const MapAnnotationList& annotations) {
  for (const MapAnnotationPtr& annotation : annotations) {
    if (!annotation || !views_.count(annotation.get())) continue;
    deselectAnnotation(annotation, false);
    views_.erase(annotation.get());
    std::erase(annotations_, annotation);
  }
}

void HeadlessMapView::selectAnnotation(const MapAnnotationPtr& annotation, bool /*animated*/) {
  auto it = views_.find(annotation.get());
  if (it == views_.end()) return;
  if (std::find(selected_.begin(), selected_.end(), annotation) != selected_.end()) return;
  // Like a phone map: one selection at a time.
  for (const MapAnnotationPtr& other : MapAnnotationList(selected_)) deselectAnnotation(other, false);
  selected_.push_back(annotation);
  if (auto delegate = delegate_.lock()) delegate->didSelectAnnotationView(*this, it->second);
}

void HeadlessMapView::deselectAnnotation(const MapAnnotationPtr& annotation, bool /*animated*/) {
  auto found = std::find(selected_.begin(), selected_.end(), annotation);
  if (found == selected_.end()) return;
  selected_.erase(found);
  auto it = views_.find(annotation.get());
  if (it == views_.end()) return;
  if (auto delegate = delegate_.lock()) delegate->didDeselectAnnotationView(*this, it->second);
}

AnnotationViewPtr HeadlessMapView::viewForAnnotation(const MapAnnotationPtr& annotation) const {
  auto it = views_.find(annotation.get());
  return it == views_.end() ? nullptr : it->second;
}

void HeadlessMapView::addOverlay(const MapOverlayPtr& overlay) {
  if (overlay && std::find(overlays_.begin(), overlays_.end(), overlay) == overlays_.end())
    overlays_.push_back(overlay);
}

void HeadlessMapView::removeOverlays(const std::vector<MapOverlayPtr>& overlays) {
  for (const MapOverlayPtr& overlay : overlays) std::erase(overlays_, overlay);
}

void HeadlessMapView::animate(double /*duration*/, std::function<void()> animations,
                              std::function<void()> completion) {
  if (animations) animations();
  if (completion) completion();
}

}  // namespace lumeo
