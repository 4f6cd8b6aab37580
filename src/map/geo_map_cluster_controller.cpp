// The controller's main-thread side: bookkeeping of annotations, passes
// queued on the serial background queue, region changes and the selection
// that has to wait for a pass to finish.
#include "map/geo_map_cluster_controller.h"

#include <cmath>
#include <mutex>
#include <shared_mutex>

#include "map/geo_map_cluster_controller_debug_polygon.h"
#include "map/geo_map_cluster_utility.h"

namespace lumeo {
namespace {

bool nearlyEqual(LocationCoordinate2D a, LocationCoordinate2D b) {
  return std::fabs(a.latitude - b.latitude) < kGeoMapClusterEpsilon &&
         std::fabs(a.longitude - b.longitude) < kGeoMapClusterEpsilon;
}

// Whether a point of the world lies in a rectangle that may run past the
// 180th meridian.
bool visibleRectContains(MapRect rect, MapPoint point) {
  return rect.containsPoint(point) || rect.containsPoint({point.x + kMapWorldWidth, point.y}) ||
         rect.containsPoint({point.x - kMapWorldWidth, point.y});
}

}  // namespace

std::shared_ptr<GeoMapClusterController> GeoMapClusterController::initWithMapView(
    std::shared_ptr<MapView> mapView) {
  auto controller = std::make_shared<GeoMapClusterController>(std::move(mapView));
  controller->mapViewDelegateProxy_ = GeoMapViewDelegateProxy::attach(*controller->mapView_, controller);
  return controller;
}

GeoMapClusterController::GeoMapClusterController(std::shared_ptr<MapView> mapView)
    : mapView_(std::move(mapView)),
      defaultClusterer_(std::make_shared<GeoCenterOfMassMapClusterer>()),
      clusterer_(defaultClusterer_),
      defaultAnimator_(std::make_shared<GeoFadeInOutMapAnimator>()),
      animator_(defaultAnimator_),
      allAnnotationsMapTree_(std::make_shared<GeoMapTree>()),
      visibleAnnotationsMapTree_(std::make_shared<GeoMapTree>()),
      backgroundQueue_(std::make_unique<OperationQueue>(1, "GeoMapClusterController")) {}

GeoMapClusterController::~GeoMapClusterController() {
  // A running pass waits for the main queue, which is this thread: release
  // it before the queue's destructor waits for the pass.
  backgroundQueue_->cancelAllOperations();
  for (const auto& weak : clusterOperations_) {
    if (auto operation = weak.lock()) {
      operation->cancel();
      operation->abandon();
    }
  }
  if (mapViewDelegateProxy_) mapViewDelegateProxy_->removeDelegate(this);
  if (!debugPolygons_.empty()) mapView_->removeOverlays(debugPolygons_);
}

MapAnnotationList GeoMapClusterController::annotations() const {
  return MapAnnotationList(allAnnotations_.begin(), allAnnotations_.end());
}

double GeoMapClusterController::zoomLevel() const {
  return zoomLevelForRegion(mapView_->region(), mapView_->width());
}

std::shared_ptr<GeoMapClusterer> GeoMapClusterController::clusterer() const {
  return clusterer_.lock();
}

void GeoMapClusterController::setClusterer(const std::shared_ptr<GeoMapClusterer>& clusterer) {
  clusterer_ = clusterer;
  defaultClusterer_.reset();
}

std::shared_ptr<GeoMapAnimator> GeoMapClusterController::animator() const {
  return animator_.lock();
}

void GeoMapClusterController::setAnimator(const std::shared_ptr<GeoMapAnimator>& animator) {
  animator_ = animator;
  defaultAnimator_.reset();
}

void GeoMapClusterController::setDebuggingEnabled(bool enabled) {
  debuggingEnabled_ = enabled;
  if (!enabled && !debugPolygons_.empty()) {
    mapView_->removeOverlays(debugPolygons_);
    debugPolygons_.clear();
  }
}

void GeoMapClusterController::cancelClusterOperations() {
  for (const auto& weak : clusterOperations_) {
    if (auto operation = weak.lock()) operation->cancel();
  }
  std::erase_if(clusterOperations_, [](const auto& weak) { return weak.expired(); });
}

void GeoMapClusterController::queueTreeUpdate(std::function<void(GeoMapTree&)> change,
                                              CompletionHandler completionHandler) {
  // Tree updates are never cancelled: only passes are superseded, and a
  // lost update would lose pins for good.
  backgroundQueue_->addOperation([tree = allAnnotationsMapTree_, change = std::move(change),
                                  weak = weak_from_this(), completionHandler = std::move(completionHandler)] {
    {
      std::unique_lock lock(tree->mutex());  // pins may be listing their cells
      change(*tree);
    }
    DispatchQueue::main().async([weak, completionHandler] {
      auto self = weak.lock();
      if (!self || self->regionChanging_) {
        // The end of the region change reclusters anyway.
        if (completionHandler) completionHandler();
        return;
      }
      self->updateAnnotationsWithCompletionHandler(completionHandler);
    });
  });
}

void GeoMapClusterController::addAnnotations(const MapAnnotationList& annotations,
                                             CompletionHandler completionHandler) {
  cancelClusterOperations();
  MapAnnotationList added;
  for (const MapAnnotationPtr& annotation : annotations) {
    if (annotation && allAnnotations_.insert(annotation).second) added.push_back(annotation);
  }
  queueTreeUpdate([added = std::move(added)](GeoMapTree& tree) { tree.addAnnotations(added); },
                  std::move(completionHandler));
}

void GeoMapClusterController::removeAnnotations(const MapAnnotationList& annotations,
                                                CompletionHandler completionHandler) {
  cancelClusterOperations();
  MapAnnotationList removed;
  for (const MapAnnotationPtr& annotation : annotations) {
    if (annotation && allAnnotations_.erase(annotation)) removed.push_back(annotation);
  }
  if (annotationToSelect_ && !allAnnotations_.count(annotationToSelect_)) {
    annotationToSelect_.reset();
    mapClusterAnnotationToSelect_.reset();
  }
  queueTreeUpdate([removed = std::move(removed)](GeoMapTree& tree) { tree.removeAnnotations(removed); },
                  std::move(completionHandler));
}

void GeoMapClusterController::updateAnnotationsWithCompletionHandler(CompletionHandler completionHandler) {
  cancelClusterOperations();
  GeoMapClusterSnapshot snapshot;
  snapshot.visibleMapRect = mapView_->visibleMapRect();
  snapshot.region = mapView_->region();
  snapshot.width = mapView_->width();
  snapshot.cellMapSize = cellMapSizeForCellSize(settings_.cellSize, *mapView_);
  snapshot.settings = settings_;
  auto operation =
      std::make_shared<GeoMapClusterOperation>(snapshot, allAnnotationsMapTree_, visibleAnnotationsMapTree_,
                                               clusterer(), animator(), delegate_, weak_from_this(), this);
  operation->setCompletionBlock([completionHandler = std::move(completionHandler)] {
    if (completionHandler) DispatchQueue::main().async(completionHandler);
  });
  clusterOperations_.push_back(operation);
  backgroundQueue_->addOperation([operation] { operation->start(); });
  if (debuggingEnabled_) drawDebugPolygons();
}

void GeoMapClusterController::drawDebugPolygons() {
  double cellMapSize = cellMapSizeForCellSize(settings_.cellSize, *mapView_);
  MapRect grid = gridMapRectForMapRect(mapView_->visibleMapRect(), cellMapSize, settings_.marginFactor);
  std::vector<MapOverlayPtr> polygons;
  enumerateGridCells(grid, cellMapSize, [&](MapRect cell) {
    polygons.push_back(std::make_shared<GeoMapClusterControllerDebugPolygon>(cell, weak_from_this()));
  });
  if (!debugPolygons_.empty()) mapView_->removeOverlays(debugPolygons_);
  for (const MapOverlayPtr& polygon : polygons) mapView_->addOverlay(polygon);
  debugPolygons_ = std::move(polygons);
}

void GeoMapClusterController::regionWillChange(MapView& /*mapView*/, bool /*animated*/) {
  regionSpanBeforeChange_ = mapView_->region().span;
  regionChanging_ = true;
}

void GeoMapClusterController::regionDidChange(MapView& /*mapView*/, bool /*animated*/) {
  regionChanging_ = false;
  ++regionChangeCount_;
  double spanChange =
      std::fabs(mapView_->region().span.longitudeDelta - regionSpanBeforeChange_.longitudeDelta);
  if (spanChange >= kGeoMapClusterEpsilon) {
    // A zoom regroups the pins, so a selection would point at a stale group;
    // a pan keeps the groups and the selection.
    for (const MapAnnotationPtr& selected : mapView_->selectedAnnotations())
      mapView_->deselectAnnotation(selected, false);
  }
  updateAnnotationsWithCompletionHandler([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->selectPendingAnnotation();
  });
}

void GeoMapClusterController::didAddAnnotationViews(MapView& /*mapView*/,
                                                    const std::vector<AnnotationViewPtr>& views) {
  auto currentAnimator = animator();
  if (!currentAnimator) return;
  std::vector<AnnotationViewPtr> ours;
  for (const AnnotationViewPtr& view : views) {
    auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(view->annotation());
    if (cluster && cluster->belongsTo(weak_from_this())) ours.push_back(view);
  }
  if (!ours.empty()) currentAnimator->didAddAnnotationViews(*this, ours);
}

void GeoMapClusterController::selectAnnotation(const MapAnnotationPtr& annotation,
                                               double andZoomToRegionWithLatitudinalMeters,
                                               double longitudinalMeters) {
  if (!annotation || !allAnnotations_.count(annotation)) return;
  for (const MapAnnotationPtr& selected : mapView_->selectedAnnotations())
    mapView_->deselectAnnotation(selected, false);
  annotationToSelect_ = annotation;
  mapClusterAnnotationToSelect_.reset();
  CoordinateRegion region = CoordinateRegionMakeWithDistance(
      annotation->coordinate(), andZoomToRegionWithLatitudinalMeters, longitudinalMeters);
  LocationCoordinate2D centerBefore = mapView_->centerCoordinate();
  std::uint64_t changesBefore = regionChangeCount_;
  mapView_->setRegion(mapView_->regionThatFits(region), true);
  if (regionChangeCount_ == changesBefore && nearlyEqual(centerBefore, mapView_->centerCoordinate())) {
    // The map did not move, so no pass would follow: start one by hand.
    regionWillChange(*mapView_, false);
    regionDidChange(*mapView_, false);
  }
}

void GeoMapClusterController::selectPendingAnnotation() {
  if (!annotationToSelect_) return;
  MapRect visible = mapView_->visibleMapRect();
  GeoMapClusterAnnotationPtr holder;
  for (const MapAnnotationPtr& shown : mapView_->annotations()) {
    auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(shown);
    if (!cluster || !cluster->belongsTo(weak_from_this())) continue;
    if (!visibleRectContains(visible, MapPointForCoordinate(cluster->coordinate()))) continue;
    if (cluster->containsAnnotation(annotationToSelect_.get())) {
      holder = cluster;
      break;
    }
  }
  if (!holder) return;  // a later pass may still show it
  auto selectHolder = [this, holder] {
    mapView_->selectAnnotation(holder, true);
    annotationToSelect_.reset();
    mapClusterAnnotationToSelect_.reset();
  };
  // The second round selects whatever holds the annotation now, so that a
  // pin that moved while centring cannot keep the map chasing it.
  if (mapClusterAnnotationToSelect_ || nearlyEqual(holder->coordinate(), mapView_->centerCoordinate())) {
    selectHolder();
    return;
  }
  mapClusterAnnotationToSelect_ = holder;
  std::uint64_t changesBefore = regionChangeCount_;
  mapView_->setCenterCoordinate(holder->coordinate(), true);
  if (regionChangeCount_ == changesBefore && visible == mapView_->visibleMapRect()) selectHolder();
}

}  // namespace lumeo
