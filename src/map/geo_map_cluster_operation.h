// One clustering pass over the visible region. Created on the main thread
// with a snapshot of the map and the settings, it runs on the controller's
// serial background queue: it lays the grid, groups each cell, reuses the
// cluster pins already shown where their members continue, and diffs the
// result against the pins on the map. The map changes themselves go back
// to the main queue, and the pass counts as finished only when the
// animator has taken the old pins away, so passes never overlap on screen.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "map/geo_map_animator.h"
#include "map/geo_map_cluster_annotation.h"
#include "map/geo_map_cluster_controller_delegate.h"
#include "map/geo_map_clusterer.h"
#include "map/geo_map_tree.h"
#include "map/map_geometry.h"

namespace lumeo {

class GeoMapClusterController;

struct GeoMapClusterSettings {
  double marginFactor = 0.5;
  double cellSize = 60.0;
  double maxZoomLevelForClustering = std::numeric_limits<double>::max();
  std::size_t minUniqueLocationsForClustering = 0;
  bool reuseExistingClusterAnnotations = true;
};

// What the map showed when the pass was made.
struct GeoMapClusterSnapshot {
  MapRect visibleMapRect = kMapRectNull;
  CoordinateRegion region;
  double width = 0;
  double cellMapSize = 0;  // measured on the map, which only the main thread may touch
  GeoMapClusterSettings settings;
};

class GeoMapClusterOperation : public std::enable_shared_from_this<GeoMapClusterOperation> {
 public:
  // The changes one pass decides: every pin of the new picture, and which of
  // them are new to the map and which old pins leave it.
  struct Result {
    std::vector<GeoMapClusterAnnotationPtr> clusters;
    MapAnnotationList annotationsToAdd;
    MapAnnotationList annotationsToRemove;
  };

  // `controller` may be expired in tools and benchmarks; the pass then
  // computes but touches no map.
  GeoMapClusterOperation(GeoMapClusterSnapshot snapshot, std::shared_ptr<GeoMapTree> allAnnotationsMapTree,
                         std::shared_ptr<GeoMapTree> visibleAnnotationsMapTree,
                         std::shared_ptr<GeoMapClusterer> clusterer, std::shared_ptr<GeoMapAnimator> animator,
                         std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                         std::weak_ptr<GeoMapClusterController> controller,
                         GeoMapClusterController* controllerForClusterer = nullptr);

  // Runs on the background queue; returns once the pass is finished, which
  // needs the main queue to run. A cancelled pass that has not started
  // finishes at once, changing nothing.
  void start();
  // Steps one to five without the map: grid, groups, reuse and diff, with
  // the visible tree updated. Background queue only. Reuse notices go to the
  // main queue when a controller is there to hear them.
  Result clusterAnnotations();

  void cancel();
  bool isCancelled() const;
  bool isExecuting() const;
  bool isFinished() const;
  // Runs once, after the pass finished, on whichever thread finished it.
  void setCompletionBlock(std::function<void()> block);
  // Ends a pass whose main-queue half will never run (the controller is
  // going away); the completion block is dropped.
  void abandon();

 private:
  void applyOnMainQueue(Result result);
  void finish(bool runCompletion);
  void waitUntilFinished();

  GeoMapClusterSnapshot snapshot_;
  std::shared_ptr<GeoMapTree> allTree_;
  std::shared_ptr<GeoMapTree> visibleTree_;
  std::shared_ptr<GeoMapClusterer> clusterer_;
  std::shared_ptr<GeoMapAnimator> animator_;
  std::weak_ptr<GeoMapClusterControllerDelegate> delegate_;
  std::weak_ptr<GeoMapClusterController> controller_;
  GeoMapClusterController* controllerForClusterer_;

  mutable std::mutex mutex_;
  std::condition_variable finishedChanged_;
  bool cancelled_ = false;
  bool executing_ = false;
  bool finished_ = false;
  std::function<void()> completionBlock_;
};

}  // namespace lumeo
