// The clustering pass. The work follows the screen, not the data: only the
// cells of the grid rectangle are visited, and a cell costs a tree query
// plus one pass over its members.
#include "map/geo_map_cluster_operation.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <unordered_set>

#include "map/geo_map_cluster_controller.h"
#include "map/geo_map_cluster_utility.h"
#include "map/geohash.h"
#include "platform/dispatch_queue.h"

namespace lumeo {
namespace {

// Marks for member intersection, unique in the process.
std::uint64_t nextMark() {
  static std::atomic<std::uint64_t> counter{0};
  return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool nearlyEqual(LocationCoordinate2D a, LocationCoordinate2D b) {
  return std::fabs(a.latitude - b.latitude) < kGeoMapClusterEpsilon &&
         std::fabs(a.longitude - b.longitude) < kGeoMapClusterEpsilon;
}

MapAnnotationList retainAll(MapAnnotation* const* begin, MapAnnotation* const* end) {
  MapAnnotationList list;
  list.reserve(static_cast<std::size_t>(end - begin));
  for (MapAnnotation* const* it = begin; it != end; ++it) list.push_back((*it)->shared_from_this());
  return list;
}

}  // namespace

GeoMapClusterOperation::GeoMapClusterOperation(
    GeoMapClusterSnapshot snapshot, std::shared_ptr<GeoMapTree> allAnnotationsMapTree,
    std::shared_ptr<GeoMapTree> visibleAnnotationsMapTree, std::shared_ptr<GeoMapClusterer> clusterer,
    std::shared_ptr<GeoMapAnimator> animator, std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
    std::weak_ptr<GeoMapClusterController> controller, GeoMapClusterController* controllerForClusterer)
    : snapshot_(std::move(snapshot)),
      allTree_(std::move(allAnnotationsMapTree)),
      visibleTree_(std::move(visibleAnnotationsMapTree)),
      clusterer_(clusterer ? std::move(clusterer) : std::make_shared<GeoCenterOfMassMapClusterer>()),
      animator_(std::move(animator)),
      delegate_(std::move(delegate)),
      controller_(std::move(controller)),
      controllerForClusterer_(controllerForClusterer) {}

GeoMapClusterOperation::Result GeoMapClusterOperation::clusterAnnotations() {
  const GeoMapClusterSettings& settings = snapshot_.settings;
  // Past the maximum zoom every location shows on its own.
  bool disable = zoomLevelForRegion(snapshot_.region, snapshot_.width) > settings.maxZoomLevelForClustering;
  std::size_t limit =
      disable
          ? std::numeric_limits<std::size_t>::max()
          : (settings.minUniqueLocationsForClustering > 1 ? settings.minUniqueLocationsForClustering - 1 : 0);
  bool notifyMainQueue = !controller_.expired();

  // The grid, as columns and rows. The cells of a column share their
  // longitudes and those of a row their latitudes, so each is converted once
  // (the conversion costs more than the rest of a cell read from a table).
  const double cellMapSize = snapshot_.cellMapSize;
  MapRect grid = gridMapRectForMapRect(snapshot_.visibleMapRect, cellMapSize, settings.marginFactor);
  GeoMapGridLines lines = gridLinesForMapRect(grid, cellMapSize);
  Result result;
  // The new picture and the pins on the map are told apart by marks on
  // the pins, which saves a hash set per pass.
  const std::uint64_t inPicture = nextMark();
  result.clusters.reserve(std::min<std::size_t>(lines.columns.size() * lines.rows.size(), 65536));
  // Where each pin of the picture is to be shown, for filing it.
  std::vector<LocationCoordinate2D> shownAt;
  shownAt.reserve(result.clusters.capacity());
  std::vector<std::pair<GeoMapClusterAnnotationPtr, LocationCoordinate2D>> moved;
  GeoMapTreeUnsafeMutableArray members(64);
  GeoMapTreeUnsafeMutableArray visibleInCell(8);
  std::vector<std::vector<MapAnnotation*>> groups;
  std::vector<GeoMapClusterAnnotation*> candidates;

  bool meanFromTotals = clusterer_->placesAtMeanOfMembers();
  std::vector<std::uint64_t> keys;
  // The cell table answers for whole cells, and tells the empty ones; with
  // a minimum of locations a cell is still walked for its first ones, and
  // only past the maximum zoom, where every location is walked, it is of
  // no use.
  const GeoMapCellGrid* cellGrid =
      !disable && meanFromTotals ? allTree_->cellGridForCellMapSize(cellMapSize) : nullptr;
  std::vector<GeoMapGridColumn> columns;
  columns.reserve(lines.columns.size());
  // Edges come from their lattice lines (gridCellBox), so neighbouring cells
  // share them exactly and a point on one is in one cell.
  for (double x : lines.columns) {
    const GeoMapTreeBoundingBox box = gridCellBox(x, 0, cellMapSize);
    columns.push_back({x, box.y0, box.yf, cellGrid ? cellGrid->latticeIndexForEdge(x) : -1});
  }

  std::vector<GeoMapTreeBoundingBox> rowBoxes;
  rowBoxes.reserve(lines.rows.size());
  for (double y : lines.rows) rowBoxes.push_back(gridCellBox(0, y, cellMapSize));

  // The pins on screen by the cells of this grid that hold where they are
  // filed, found once per pass instead of by a query of the visible tree
  // per cell. A cell with one pin takes it as its only candidate; a cell
  // with more asks the tree, whose order decides which pin is reused.
  const bool reuse = settings.reuseExistingClusterAnnotations && visibleTree_->count() != 0;
  std::vector<std::pair<std::size_t, MapAnnotation*>> pinsByCell;
  if (reuse) pinsByCell = annotationsByGridCell(*visibleTree_, rowBoxes, columns);
  auto pinsOfCell = pinsByCell.begin();

  // Each cell of the grid becomes pins: one per location while a cell holds
  // few enough of them, else one cluster pin for the whole cell.
  auto clusterCell = [&](MapRect cell, const GeoMapTreeBoundingBox& box,
                         const GeoMapTreeAggregate* tableTotals, std::size_t cellIndex) {
    // Groups by location while there are at most `limit` of them; one more
    // location ends the walk, and the cell becomes one group.
    bool uniqueLocationMode = false;
    if (limit > 0) {
      groups.clear();
      keys.clear();
      bool complete = allTree_->visitAnnotationsInBox(box, true, [&](MapAnnotation* member) {
        std::uint64_t key = geohashBitsForCoordinate(member->coordinate());
        auto found = std::find(keys.begin(), keys.end(), key);
        if (found == keys.end()) {
          if (keys.size() == limit) return false;
          keys.push_back(key);
          groups.emplace_back();
          found = keys.end() - 1;
        }
        groups[static_cast<std::size_t>(found - keys.begin())].push_back(member);
        return true;
      });
      if (complete && groups.empty()) return;  // an empty cell
      uniqueLocationMode = complete;
    }

    // The whole cell as one group: from the tree's totals when the pin goes
    // to the mean, listed otherwise.
    GeoMapTreeAggregate totals;
    if (!uniqueLocationMode) {
      if (meanFromTotals) {
        totals = tableTotals ? *tableTotals : allTree_->aggregateInBox(box, true);
        if (totals.count == 0) return;
      } else {
        members.removeAllObjects();
        allTree_->annotationsInBox(box, members, true);
        if (members.empty()) return;
      }
    }
    bool cellGroup = !uniqueLocationMode && meanFromTotals;

    candidates.clear();
    if (reuse) {
      while (pinsOfCell != pinsByCell.end() && pinsOfCell->first < cellIndex) ++pinsOfCell;
      auto last = pinsOfCell;
      while (last != pinsByCell.end() && last->first == cellIndex) ++last;
      if (last - pinsOfCell == 1) {
        candidates.push_back(static_cast<GeoMapClusterAnnotation*>(pinsOfCell->second));
      } else if (last - pinsOfCell > 1) {
        visibleInCell.removeAllObjects();
        visibleTree_->annotationsInBox(box, visibleInCell, true);
        for (MapAnnotation* visible : visibleInCell)
          candidates.push_back(static_cast<GeoMapClusterAnnotation*>(visible));
      }
    }

    std::size_t groupCount = uniqueLocationMode ? groups.size() : 1;
    for (std::size_t g = 0; g < groupCount; ++g) {
      MapAnnotation* const* begin = nullptr;
      MapAnnotation* const* end = nullptr;
      MapAnnotationList group;
      LocationCoordinate2D coordinate;
      if (cellGroup) {
        coordinate = {totals.sumX / static_cast<double>(totals.count),
                      totals.sumY / static_cast<double>(totals.count)};
      } else {
        begin = uniqueLocationMode ? groups[g].data() : members.begin();
        end = uniqueLocationMode ? groups[g].data() + groups[g].size() : members.end();
        group = retainAll(begin, end);
        coordinate = uniqueLocationMode
                         ? group.front()->coordinate()
                         : clusterer_->coordinateForAnnotations(controllerForClusterer_, group, cell);
      }

      // Whether a pin on screen holds any member of this group.
      std::uint64_t mark = 0;
      auto holdsMemberOfGroup = [&](const GeoMapClusterAnnotation& candidate) {
        GeoMapClusterAnnotation::Members held = candidate.heldMembers();
        if (cellGroup) {
          if (held.cell) {
            // The same cell as last pass (a pan): it holds this cell's members.
            const GeoMapTreeBoundingBox& was = *held.cell;
            if (was.x0 == box.x0 && was.y0 == box.y0 && was.xf == box.xf && was.yf == box.yf) return true;
            auto overlap = GeoMapTreeBoxIntersection(*held.cell, box);
            return overlap && allTree_->hasAnnotationInBox(*overlap, true);
          }
          for (const MapAnnotationPtr& member : *held.list) {
            auto position = allTree_->positionOf(member.get());
            if (position && GeoMapTreeBoxContains(box, position->latitude, position->longitude, true))
              return true;
          }
          return false;
        }
        if (held.cell) {
          for (MapAnnotation* const* it = begin; it != end; ++it) {
            auto position = allTree_->positionOf(*it);
            if (position && GeoMapTreeBoxContains(*held.cell, position->latitude, position->longitude, true))
              return true;
          }
          return false;
        }
        if (mark == 0) {
          mark = nextMark();
          for (MapAnnotation* const* it = begin; it != end; ++it)
            (*it)->clusterMark().store(mark, std::memory_order_relaxed);
        }
        for (const MapAnnotationPtr& member : *held.list) {
          if (member->clusterMark().load(std::memory_order_relaxed) == mark) return true;
        }
        return false;
      };

      // Reuse the first pin on screen that holds any member of the group.
      GeoMapClusterAnnotation* reused = nullptr;
      for (auto candidate = candidates.begin(); candidate != candidates.end(); ++candidate) {
        if (!holdsMemberOfGroup(**candidate)) continue;
        // A pin for one location stays only where it stands.
        auto shownAt = visibleTree_->positionOf(*candidate);
        if (!uniqueLocationMode || (shownAt && nearlyEqual(*shownAt, coordinate))) {
          reused = *candidate;
          candidates.erase(candidate);
        }
        break;
      }

      GeoMapClusterAnnotationPtr annotation;
      if (reused) {
        annotation = std::static_pointer_cast<GeoMapClusterAnnotation>(reused->shared_from_this());
        if (cellGroup) {
          annotation->setAnnotationsInCell(allTree_, box, totals.count);
        } else {
          annotation->setAnnotations(std::move(group));
        }
      } else if (cellGroup) {
        annotation = std::make_shared<GeoMapClusterAnnotation>(controller_, delegate_, allTree_, box,
                                                               totals.count, coordinate);
      } else {
        annotation =
            std::make_shared<GeoMapClusterAnnotation>(controller_, delegate_, std::move(group), coordinate);
      }
      if (reused) {
        if (!uniqueLocationMode) moved.emplace_back(annotation, coordinate);
        if (notifyMainQueue) {
          DispatchQueue::main().async(
              [annotation, coordinate, uniqueLocationMode, controller = controller_, delegate = delegate_] {
                if (!uniqueLocationMode) annotation->setCoordinate(coordinate);
                annotation->resetTitleAndSubtitle();
                auto owner = controller.lock();
                auto listener = delegate.lock();
                if (owner && listener) listener->willReuseMapClusterAnnotation(*owner, *annotation);
              });
        } else if (!uniqueLocationMode) {
          annotation->setCoordinate(coordinate);
        }
      }
      annotation->clusterMark().store(inPicture, std::memory_order_relaxed);
      result.clusters.push_back(std::move(annotation));
      shownAt.push_back(coordinate);
    }
  };

  for (std::size_t i = 0; i < lines.rows.size(); ++i) {
    const double y = lines.rows[i];
    const GeoMapTreeBoundingBox& rowBox = rowBoxes[i];
    long long tableRow = cellGrid ? cellGrid->latticeIndexForEdge(y) : -1;
    std::optional<GeoMapCellGrid::RowReader> tableCells;
    if (tableRow >= 0) tableCells = cellGrid->rowReader(tableRow);
    for (std::size_t j = 0; j < columns.size(); ++j) {
      const GeoMapGridColumn& column = columns[j];
      GeoMapTreeBoundingBox box{rowBox.x0, column.west, rowBox.xf, column.east};
      MapRect cell = MapRectMake(column.x, y, cellMapSize, cellMapSize);
      std::size_t cellIndex = i * columns.size() + j;
      if (tableCells && column.tableColumn >= 0) {
        // Most cells on screen are empty or wholly answered by the table.
        std::optional<GeoMapTreeAggregate> totals = tableCells->aggregateForColumn(column.tableColumn);
        if (totals && totals->count == 0) continue;
        clusterCell(cell, box, totals ? &*totals : nullptr, cellIndex);
      } else {
        clusterCell(cell, box, nullptr, cellIndex);
      }
    }
  }

  // The diff against the pins this controller has on the map.
  const std::uint64_t onMap = nextMark();
  visibleTree_->forEachAnnotation([&](const MapAnnotationPtr& annotation) {
    if (annotation->clusterMark().load(std::memory_order_relaxed) != inPicture)
      result.annotationsToRemove.push_back(annotation);
    annotation->clusterMark().store(onMap, std::memory_order_relaxed);
  });
  std::vector<std::size_t> added;
  added.reserve(result.clusters.size());
  for (std::size_t i = 0; i < result.clusters.size(); ++i) {
    if (result.clusters[i]->clusterMark().load(std::memory_order_relaxed) != onMap) added.push_back(i);
  }
  result.annotationsToAdd.reserve(added.size());
  for (std::size_t i : added) result.annotationsToAdd.push_back(result.clusters[i]);

  // The visible tree follows: removals first, then the pins that moved
  // and the new ones, each filed where it will be shown.
  visibleTree_->removeAnnotations(result.annotationsToRemove);
  for (const auto& [annotation, coordinate] : moved) visibleTree_->moveAnnotation(annotation, coordinate);
  visibleTree_->reserve(visibleTree_->count() + added.size());
  for (std::size_t i : added) visibleTree_->addAnnotation(result.clusters[i], shownAt[i]);
  return result;
}

void GeoMapClusterOperation::start() {
  {
    std::lock_guard lock(mutex_);
    if (finished_) return;
    if (cancelled_) {
      // Superseded before it began: a newer pass follows with a newer
      // snapshot, so this one changes nothing.
      finished_ = true;
    } else {
      executing_ = true;
    }
  }
  if (isFinished()) {
    finish(true);
    return;
  }
  Result result = clusterAnnotations();
  auto self = shared_from_this();
  DispatchQueue::main().async(
      [self, result = std::move(result)]() mutable { self->applyOnMainQueue(std::move(result)); });
  waitUntilFinished();
}

void GeoMapClusterOperation::applyOnMainQueue(Result result) {
  auto controller = controller_.lock();
  if (!controller || isFinished()) {
    finish(true);
    return;
  }
  // New pins appear, then the animator takes the old ones away.
  controller->mapView().addAnnotations(result.annotationsToAdd);
  auto self = shared_from_this();
  auto removal = [self, weakController = controller_, toRemove = result.annotationsToRemove] {
    if (auto owner = weakController.lock()) owner->mapView().removeAnnotations(toRemove);
    self->finish(true);
  };
  if (result.annotationsToRemove.empty() || !animator_) {
    removal();
  } else {
    animator_->willRemoveAnnotations(*controller, result.annotationsToRemove, removal);
  }
}

void GeoMapClusterOperation::finish(bool runCompletion) {
  std::function<void()> completion;
  {
    std::lock_guard lock(mutex_);
    if (!finished_ || executing_) {
      executing_ = false;
      finished_ = true;
    }
    if (runCompletion) completion = std::move(completionBlock_);
    completionBlock_ = nullptr;
  }
  finishedChanged_.notify_all();
  if (completion) completion();
}

void GeoMapClusterOperation::waitUntilFinished() {
  std::unique_lock lock(mutex_);
  finishedChanged_.wait(lock, [this] { return finished_; });
}

void GeoMapClusterOperation::abandon() {
  finish(false);
}

void GeoMapClusterOperation::cancel() {
  std::lock_guard lock(mutex_);
  cancelled_ = true;
}

bool GeoMapClusterOperation::isCancelled() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

bool GeoMapClusterOperation::isExecuting() const {
  std::lock_guard lock(mutex_);
  return executing_;
}

bool GeoMapClusterOperation::isFinished() const {
  std::lock_guard lock(mutex_);
  return finished_;
}

void GeoMapClusterOperation::setCompletionBlock(std::function<void()> block) {
  std::lock_guard lock(mutex_);
  completionBlock_ = std::move(block);
}

}  // namespace lumeo
