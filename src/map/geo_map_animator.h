// How cluster pins appear and disappear. The controller hands new views to
// the animator and asks it to take old annotations away; the animator calls
// the completion handler once they may leave the map. Main thread.
#pragma once

#include <functional>
#include <vector>

#include "map/map_annotation.h"
#include "map/map_view.h"

namespace lumeo {

class GeoMapClusterController;

class GeoMapAnimator {
 public:
  virtual ~GeoMapAnimator() = default;
  virtual void didAddAnnotationViews(GeoMapClusterController& controller,
                                     const std::vector<AnnotationViewPtr>& annotationViews) = 0;
  // Must call completionHandler exactly once.
  virtual void willRemoveAnnotations(GeoMapClusterController& controller,
                                     const MapAnnotationList& annotations,
                                     std::function<void()> completionHandler) = 0;
};

// New pins fade in from transparent, leaving pins fade out, over `duration`.
class GeoFadeInOutMapAnimator : public GeoMapAnimator {
 public:
  static constexpr double kDefaultDuration = 0.2;

  double duration() const { return duration_; }
  void setDuration(double duration) { duration_ = duration; }

  void didAddAnnotationViews(GeoMapClusterController& controller,
                             const std::vector<AnnotationViewPtr>& annotationViews) override;
  void willRemoveAnnotations(GeoMapClusterController& controller, const MapAnnotationList& annotations,
                             std::function<void()> completionHandler) override;

 private:
  double duration_ = kDefaultDuration;
};

}  // namespace lumeo
