// Clusters a map's annotations into one pin per occupied grid cell and keeps
// the pins current as the map moves. Annotations live in a quad tree; every
// region change queues a clustering pass on the controller's serial
// background queue, which reuses the pins already shown wherever their
// members continue, so that pins keep their identity while zooming and
// panning. Everything public belongs to the main thread.
#pragma once

#include <functional>
#include <memory>
#include <unordered_set>
#include <vector>

#include "map/geo_map_animator.h"
#include "map/geo_map_cluster_annotation.h"
#include "map/geo_map_cluster_controller_delegate.h"
#include "map/geo_map_cluster_operation.h"
#include "map/geo_map_clusterer.h"
#include "map/geo_map_tree.h"
#include "map/geo_map_view_delegate_proxy.h"
#include "map/map_view.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

class GeoMapClusterController : public MapViewDelegate,
                                public std::enable_shared_from_this<GeoMapClusterController> {
 public:
  using CompletionHandler = std::function<void()>;

  // Makes a controller for the map and hooks it into the map's delegate
  // calls. The controller must live in a shared_ptr, so this is the way in.
  static std::shared_ptr<GeoMapClusterController> initWithMapView(std::shared_ptr<MapView> mapView);
  ~GeoMapClusterController() override;

  // Adds or removes annotations and reclusters; the handler runs on the main
  // queue once the map shows the result (or, while the map is moving, once
  // the trees know, since the end of the move reclusters anyway).
  void addAnnotations(const MapAnnotationList& annotations, CompletionHandler completionHandler = nullptr);
  void removeAnnotations(const MapAnnotationList& annotations, CompletionHandler completionHandler = nullptr);
  // Reclusters the visible region now.
  void updateAnnotationsWithCompletionHandler(CompletionHandler completionHandler);
  // Shows the given annotation: zooms to a region of the given size around
  // it and selects the pin that holds it. Ignored for an annotation that the
  // controller does not hold.
  void selectAnnotation(const MapAnnotationPtr& annotation, double andZoomToRegionWithLatitudinalMeters,
                        double longitudinalMeters);

  // Every annotation added and not removed, beyond the map's edges too.
  MapAnnotationList annotations() const;
  std::size_t annotationCount() const { return allAnnotations_.size(); }
  double zoomLevel() const;
  MapView& mapView() const { return *mapView_; }

  double marginFactor() const { return settings_.marginFactor; }
  void setMarginFactor(double marginFactor) { settings_.marginFactor = marginFactor; }
  double cellSize() const { return settings_.cellSize; }
  void setCellSize(double cellSize) { settings_.cellSize = cellSize; }
  double maxZoomLevelForClustering() const { return settings_.maxZoomLevelForClustering; }
  void setMaxZoomLevelForClustering(double level) { settings_.maxZoomLevelForClustering = level; }
  std::size_t minUniqueLocationsForClustering() const { return settings_.minUniqueLocationsForClustering; }
  void setMinUniqueLocationsForClustering(std::size_t count) {
    settings_.minUniqueLocationsForClustering = count;
  }
  bool reuseExistingClusterAnnotations() const { return settings_.reuseExistingClusterAnnotations; }
  void setReuseExistingClusterAnnotations(bool reuse) { settings_.reuseExistingClusterAnnotations = reuse; }
  bool debuggingEnabled() const { return debuggingEnabled_; }
  void setDebuggingEnabled(bool enabled);

  // Held weakly: the owner keeps them alive. Setting one drops the default.
  std::shared_ptr<GeoMapClusterer> clusterer() const;
  void setClusterer(const std::shared_ptr<GeoMapClusterer>& clusterer);
  std::shared_ptr<GeoMapAnimator> animator() const;
  void setAnimator(const std::shared_ptr<GeoMapAnimator>& animator);
  std::shared_ptr<GeoMapClusterControllerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<GeoMapClusterControllerDelegate>& delegate) { delegate_ = delegate; }

  // Queued and running background work (tests wait for it to drain).
  int pendingOperationCount() const { return backgroundQueue_->operationCount(); }

  // Map delegate calls, reaching the controller through the proxy.
  void regionWillChange(MapView& mapView, bool animated) override;
  void regionDidChange(MapView& mapView, bool animated) override;
  void didAddAnnotationViews(MapView& mapView, const std::vector<AnnotationViewPtr>& views) override;

  explicit GeoMapClusterController(std::shared_ptr<MapView> mapView);  // use initWithMapView

 private:
  void cancelClusterOperations();
  void queueTreeUpdate(std::function<void(GeoMapTree&)> change, CompletionHandler completionHandler);
  void selectPendingAnnotation();
  void drawDebugPolygons();

  std::shared_ptr<MapView> mapView_;
  GeoMapClusterSettings settings_;
  bool debuggingEnabled_ = false;
  std::shared_ptr<GeoMapClusterer> defaultClusterer_;
  std::weak_ptr<GeoMapClusterer> clusterer_;
  std::shared_ptr<GeoMapAnimator> defaultAnimator_;
  std::weak_ptr<GeoMapAnimator> animator_;
  std::weak_ptr<GeoMapClusterControllerDelegate> delegate_;

  std::unordered_set<MapAnnotationPtr> allAnnotations_;
  std::shared_ptr<GeoMapTree> allAnnotationsMapTree_;
  std::shared_ptr<GeoMapTree> visibleAnnotationsMapTree_;
  std::shared_ptr<GeoMapViewDelegateProxy> mapViewDelegateProxy_;
  std::vector<std::weak_ptr<GeoMapClusterOperation>> clusterOperations_;
  std::vector<MapOverlayPtr> debugPolygons_;

  MapAnnotationPtr annotationToSelect_;
  GeoMapClusterAnnotationPtr mapClusterAnnotationToSelect_;
  CoordinateSpan regionSpanBeforeChange_;
  bool regionChanging_ = false;
  std::uint64_t regionChangeCount_ = 0;  // tells whether setting a region moved the map

  // Last, so that it is destroyed first: its destructor waits for the
  // running pass, which may still read the members above.
  std::unique_ptr<OperationQueue> backgroundQueue_;
};

}  // namespace lumeo
