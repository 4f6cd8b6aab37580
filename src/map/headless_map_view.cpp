// The headless map keeps its visible rectangle as the truth and derives the
// region from it, the way a real map does; the rectangle is never wider
// than the world, its left edge stays within the world and its centre on it.
#include "map/headless_map_view.h"

#include <algorithm>
#include <cmath>

namespace lumeo {

namespace {

MapRect centredOn(MapRect rect, LocationCoordinate2D center) {
  const MapPoint point = MapPointForCoordinate(center);
  return MapRectMake(point.x - rect.size.width / 2, point.y - rect.size.height / 2, rect.size.width,
                     rect.size.height);
}

}  // namespace

HeadlessMapView::HeadlessMapView(double width, double height, double maxZoom)
    : width_(width > 0 ? width : 1), height_(height > 0 ? height : 1), maxZoom_(maxZoom) {
  rect_ = fitted(kMapRectWorld);
}

double HeadlessMapView::zoomForScale(double scale) {
  return 20.0 - std::log2(std::max(scale, 1e-12));
}

double HeadlessMapView::scaleForZoom(double zoom) {
  return std::pow(2.0, 20.0 - zoom);
}

MapRect HeadlessMapView::fitted(MapRect rect) const {
  const double centerX = rect.midX();
  const double centerY = std::clamp(rect.midY(), 0.0, kMapWorldWidth);
  double w = std::max(rect.size.width, 1e-9);
  double h = std::max(rect.size.height, 1e-9);
  const double aspect = width_ / height_;
  if (w / h < aspect) {
    w = h * aspect;
  } else {
    h = w / aspect;
  }
  // No closer than the closest zoom (2^-inf is 0: no limit), no wider than
  // the world.
  const double minWidth = width_ * scaleForZoom(maxZoom_);
  if (w < minWidth) {
    w = minWidth;
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

bool HeadlessMapView::takeSize(double width, double height) {
  if (!(width > 0) || !(height > 0) || (width == width_ && height == height_)) return false;
  width_ = width;
  height_ = height;
  return true;
}

void HeadlessMapView::setSize(double width, double height) {
  const double s = scale();
  const double cx = rect_.midX(), cy = rect_.midY();
  if (!takeSize(width, height)) return;
  setVisibleMapRect(MapRectMake(cx - width * s / 2, cy - height * s / 2, width * s, height * s), false);
}

void HeadlessMapView::setVisibleMapRect(MapRect rect, bool animated, bool notify) {
  const MapRect next = fitted(rect);
  if (next == rect_) return;
  auto delegate = notify ? delegate_.lock() : nullptr;
  if (delegate) delegate->regionWillChange(*this, animated);
  rect_ = next;
  if (onRegionChanged) onRegionChanged();
  if (delegate) delegate->regionDidChange(*this, animated);
}

CoordinateRegion HeadlessMapView::region() const {
  return CoordinateRegionForMapRect(rect_);
}

CoordinateRegion HeadlessMapView::regionThatFits(CoordinateRegion region) const {
  CoordinateRegion fits = CoordinateRegionForMapRect(fitted(MapRectForCoordinateRegion(region)));
  fits.center = region.center;
  return fits;
}

void HeadlessMapView::setRegion(CoordinateRegion region, bool animated) {
  if (!std::isfinite(region.center.latitude) || !std::isfinite(region.center.longitude)) return;
  setVisibleMapRect(centredOn(MapRectForCoordinateRegion(region), region.center), animated);
}

LocationCoordinate2D HeadlessMapView::centerCoordinate() const {
  return CoordinateForMapPoint({rect_.midX(), rect_.midY()});
}

void HeadlessMapView::setCenterCoordinate(LocationCoordinate2D center, bool animated) {
  setVisibleMapRect(centredOn(rect_, center), animated);
}

LocationCoordinate2D HeadlessMapView::convertPointToCoordinate(ViewPoint point) const {
  return CoordinateForMapPoint({rect_.minX() + point.x * rect_.size.width / width_,
                                rect_.minY() + point.y * rect_.size.height / height_});
}

double HeadlessMapView::viewXForMapX(double mapX) const {
  double dx = mapX - rect_.minX();
  if (dx < 0) dx += kMapWorldWidth;
  if (dx > rect_.size.width && dx - kMapWorldWidth > -rect_.size.width) dx -= kMapWorldWidth;
  return dx * width_ / rect_.size.width;
}

ViewPoint HeadlessMapView::convertCoordinateToPoint(LocationCoordinate2D coordinate) const {
  const MapPoint point = MapPointForCoordinate(coordinate);
  return {viewXForMapX(point.x), (point.y - rect_.minY()) * height_ / rect_.size.height};
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
    if (onAnnotationAdded) onAnnotationAdded(annotation);
  }
  if (delegate && !added.empty()) delegate->didAddAnnotationViews(*this, added);
}

void HeadlessMapView::removeAnnotations(const MapAnnotationList& annotations) {
  for (const MapAnnotationPtr& annotation : annotations) {
    if (!annotation || !views_.count(annotation.get())) continue;
    deselectAnnotation(annotation, false);
    if (onAnnotationRemoved) onAnnotationRemoved(annotation);
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
