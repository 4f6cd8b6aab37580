// Fan-out of map delegate calls to the map's own delegate and the engines.
#include "map/geo_map_view_delegate_proxy.h"

#include <algorithm>

namespace lumeo {

std::shared_ptr<GeoMapViewDelegateProxy> GeoMapViewDelegateProxy::attach(
    MapView& mapView, const std::shared_ptr<MapViewDelegate>& delegate) {
  auto proxy = std::dynamic_pointer_cast<GeoMapViewDelegateProxy>(mapView.delegate());
  if (!proxy) {
    proxy = std::make_shared<GeoMapViewDelegateProxy>(mapView.delegate());
    mapView.setDelegate(proxy);
  }
  proxy->addDelegate(delegate);
  return proxy;
}

void GeoMapViewDelegateProxy::addDelegate(const std::shared_ptr<MapViewDelegate>& delegate) {
  for (const auto& existing : delegates_) {
    if (existing.lock() == delegate) return;
  }
  delegates_.push_back(delegate);
}

void GeoMapViewDelegateProxy::removeDelegate(const MapViewDelegate* delegate) {
  std::erase_if(delegates_, [delegate](const std::weak_ptr<MapViewDelegate>& entry) {
    auto locked = entry.lock();
    return !locked || locked.get() == delegate;
  });
}

std::vector<std::shared_ptr<MapViewDelegate>> GeoMapViewDelegateProxy::listeners() {
  std::vector<std::shared_ptr<MapViewDelegate>> result;
  if (auto target = target_.lock()) result.push_back(std::move(target));
  std::erase_if(delegates_, [](const std::weak_ptr<MapViewDelegate>& entry) { return entry.expired(); });
  for (const auto& entry : delegates_) {
    if (auto delegate = entry.lock()) result.push_back(std::move(delegate));
  }
  return result;
}

void GeoMapViewDelegateProxy::regionWillChange(MapView& mapView, bool animated) {
  for (const auto& listener : listeners()) listener->regionWillChange(mapView, animated);
}

void GeoMapViewDelegateProxy::regionDidChange(MapView& mapView, bool animated) {
  for (const auto& listener : listeners()) listener->regionDidChange(mapView, animated);
}

AnnotationViewPtr GeoMapViewDelegateProxy::viewForAnnotation(MapView& mapView,
                                                             const MapAnnotationPtr& annotation) {
  for (const auto& listener : listeners()) {
    if (auto view = listener->viewForAnnotation(mapView, annotation)) return view;
  }
  return nullptr;
}

void GeoMapViewDelegateProxy::didAddAnnotationViews(MapView& mapView,
                                                    const std::vector<AnnotationViewPtr>& views) {
  for (const auto& listener : listeners()) listener->didAddAnnotationViews(mapView, views);
}

void GeoMapViewDelegateProxy::didSelectAnnotationView(MapView& mapView, const AnnotationViewPtr& view) {
  for (const auto& listener : listeners()) listener->didSelectAnnotationView(mapView, view);
}

void GeoMapViewDelegateProxy::didDeselectAnnotationView(MapView& mapView, const AnnotationViewPtr& view) {
  for (const auto& listener : listeners()) listener->didDeselectAnnotationView(mapView, view);
}

}  // namespace lumeo
