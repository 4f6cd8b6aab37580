// The fade animator, through the map's own animation call so that the GUI
// animates and a headless map completes at once.
#include "map/geo_map_animator.h"

#include "map/geo_map_cluster_controller.h"

namespace lumeo {

void GeoFadeInOutMapAnimator::didAddAnnotationViews(GeoMapClusterController& controller,
                                                    const std::vector<AnnotationViewPtr>& annotationViews) {
  if (annotationViews.empty()) return;
  for (const AnnotationViewPtr& view : annotationViews) view->setAlpha(0.0);
  controller.mapView().animate(
      duration_,
      [annotationViews] {
        for (const AnnotationViewPtr& view : annotationViews) view->setAlpha(1.0);
      },
      nullptr);
}

void GeoFadeInOutMapAnimator::willRemoveAnnotations(GeoMapClusterController& controller,
                                                    const MapAnnotationList& annotations,
                                                    std::function<void()> completionHandler) {
  std::vector<AnnotationViewPtr> views;
  for (const MapAnnotationPtr& annotation : annotations) {
    if (auto view = controller.mapView().viewForAnnotation(annotation)) views.push_back(view);
  }
  controller.mapView().animate(
      duration_,
      [views] {
        for (const AnnotationViewPtr& view : views) view->setAlpha(0.0);
      },
      [completionHandler = std::move(completionHandler)] {
        if (completionHandler) completionHandler();
      });
}

}  // namespace lumeo
