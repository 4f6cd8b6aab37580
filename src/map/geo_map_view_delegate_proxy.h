// Lets several listeners share one map's delegate slot: the map's own
// delegate keeps receiving every call, and each cluster controller on the
// map sees them too. Main thread only.
#pragma once

#include <memory>
#include <vector>

#include "map/map_view.h"

namespace lumeo {

class GeoMapViewDelegateProxy : public MapViewDelegate {
 public:
  // `target` is the delegate the map had before; it answers first.
  explicit GeoMapViewDelegateProxy(std::weak_ptr<MapViewDelegate> target) : target_(std::move(target)) {}

  // Installs `delegate` on the map through its proxy, creating the proxy
  // when the map has none. The caller keeps the returned proxy alive (the
  // map holds it weakly).
  static std::shared_ptr<GeoMapViewDelegateProxy> attach(MapView& mapView,
                                                         const std::shared_ptr<MapViewDelegate>& delegate);

  void addDelegate(const std::shared_ptr<MapViewDelegate>& delegate);
  void removeDelegate(const MapViewDelegate* delegate);
  std::shared_ptr<MapViewDelegate> target() const { return target_.lock(); }

  void regionWillChange(MapView& mapView, bool animated) override;
  void regionDidChange(MapView& mapView, bool animated) override;
  AnnotationViewPtr viewForAnnotation(MapView& mapView, const MapAnnotationPtr& annotation) override;
  void didAddAnnotationViews(MapView& mapView, const std::vector<AnnotationViewPtr>& views) override;
  void didSelectAnnotationView(MapView& mapView, const AnnotationViewPtr& view) override;
  void didDeselectAnnotationView(MapView& mapView, const AnnotationViewPtr& view) override;

 private:
  // Target first, then the added delegates in order; expired ones dropped.
  std::vector<std::shared_ptr<MapViewDelegate>> listeners();

  std::weak_ptr<MapViewDelegate> target_;
  std::vector<std::weak_ptr<MapViewDelegate>> delegates_;
};

}  // namespace lumeo
