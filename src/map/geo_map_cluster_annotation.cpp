// Cluster annotation state; the delegate is asked outside the lock, since it
// usually reads the members back.
#include "map/geo_map_cluster_annotation.h"

#include "map/geo_map_cluster_controller.h"
#include "map/geo_map_cluster_controller_delegate.h"
#include "map/geohash.h"

namespace lumeo {

GeoMapClusterAnnotation::GeoMapClusterAnnotation(std::weak_ptr<GeoMapClusterController> mapClusterController,
                                                 std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                                                 MapAnnotationList annotations,
                                                 LocationCoordinate2D coordinate)
    : controller_(std::move(mapClusterController)),
      delegate_(std::move(delegate)),
      annotations_(std::make_shared<const MapAnnotationList>(std::move(annotations))),
      coordinate_(coordinate) {
  count_ = annotations_->size();
}

GeoMapClusterAnnotation::GeoMapClusterAnnotation(std::weak_ptr<GeoMapClusterController> mapClusterController,
                                                 std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                                                 std::shared_ptr<const GeoMapTree> tree,
                                                 const GeoMapTreeBoundingBox& box, std::size_t count,
                                                 LocationCoordinate2D coordinate)
    : controller_(std::move(mapClusterController)),
      delegate_(std::move(delegate)),
      cellTree_(std::move(tree)),
      cell_(box),
      count_(count),
      coordinate_(coordinate) {}

LocationCoordinate2D GeoMapClusterAnnotation::coordinate() const {
  std::lock_guard lock(mutex_);
  return coordinate_;
}

void GeoMapClusterAnnotation::setCoordinate(LocationCoordinate2D coordinate) {
  std::lock_guard lock(mutex_);
  coordinate_ = coordinate;
}

std::string GeoMapClusterAnnotation::title() const {
  {
    std::lock_guard lock(mutex_);
    if (title_) return *title_;
  }
  std::optional<std::string> answer;
  auto controller = controller_.lock();
  auto delegate = delegate_.lock();
  if (controller && delegate) answer = delegate->titleForMapClusterAnnotation(*controller, *this);
  std::lock_guard lock(mutex_);
  title_ = answer.value_or(std::string());
  return *title_;
}

std::string GeoMapClusterAnnotation::subtitle() const {
  {
    std::lock_guard lock(mutex_);
    if (subtitle_) return *subtitle_;
  }
  std::optional<std::string> answer;
  auto controller = controller_.lock();
  auto delegate = delegate_.lock();
  if (controller && delegate) answer = delegate->subtitleForMapClusterAnnotation(*controller, *this);
  std::lock_guard lock(mutex_);
  subtitle_ = answer.value_or(std::string());
  return *subtitle_;
}

void GeoMapClusterAnnotation::resetTitleAndSubtitle() {
  std::lock_guard lock(mutex_);
  title_.reset();
  subtitle_.reset();
}

std::shared_ptr<const MapAnnotationList> GeoMapClusterAnnotation::annotations() const {
  std::shared_ptr<const GeoMapTree> tree;
  GeoMapTreeBoundingBox cell;
  std::uint64_t generation;
  {
    std::lock_guard lock(mutex_);
    if (annotations_) return annotations_;
    tree = cellTree_;
    cell = cell_;
    generation = generation_;
  }
  auto listed = std::make_shared<MapAnnotationList>();
  {
    std::shared_lock treeLock(tree->mutex());
    listed->reserve(count());
    tree->visitAnnotationsInBox(cell, true, [&](MapAnnotation* member) {
      listed->push_back(member->shared_from_this());
      return true;
    });
  }
  std::shared_ptr<const MapAnnotationList> result = std::move(listed);
  std::lock_guard lock(mutex_);
  // Keep the list unless the members changed meanwhile.
  if (generation == generation_) annotations_ = result;
  return result;
}

void GeoMapClusterAnnotation::setAnnotations(MapAnnotationList annotations) {
  auto list = std::make_shared<const MapAnnotationList>(std::move(annotations));
  std::shared_ptr<const GeoMapTree> oldTree;
  std::lock_guard lock(mutex_);
  count_ = list->size();
  annotations_.swap(list);
  oldTree.swap(cellTree_);
  ++generation_;
  // The old list is released after the lock, outside the critical section.
}

void GeoMapClusterAnnotation::setAnnotationsInCell(std::shared_ptr<const GeoMapTree> tree,
                                                   const GeoMapTreeBoundingBox& box, std::size_t count) {
  std::shared_ptr<const MapAnnotationList> oldList;
  std::lock_guard lock(mutex_);
  oldList.swap(annotations_);
  cellTree_ = std::move(tree);
  cell_ = box;
  count_ = count;
  ++generation_;
}

std::size_t GeoMapClusterAnnotation::count() const {
  std::lock_guard lock(mutex_);
  return count_;
}

GeoMapClusterAnnotation::Members GeoMapClusterAnnotation::heldMembers() const {
  std::lock_guard lock(mutex_);
  if (cellTree_) return {annotations_, cell_};
  return {annotations_, std::nullopt};
}

GeoMapClusterAnnotation::MemberSource GeoMapClusterAnnotation::memberSource() const {
  std::lock_guard lock(mutex_);
  return {cellTree_, cell_, annotations_};
}

bool GeoMapClusterAnnotation::containsAnnotation(const MapAnnotation* annotation) const {
  const auto [tree, cell, list] = memberSource();
  if (tree) {
    std::shared_lock treeLock(tree->mutex());
    auto position = tree->positionOf(annotation);
    return position && GeoMapTreeBoxContains(cell, position->latitude, position->longitude, true);
  }
  for (const MapAnnotationPtr& member : *list) {
    if (member.get() == annotation) return true;
  }
  return false;
}

bool GeoMapClusterAnnotation::isUniqueLocation() const {
  const auto [tree, cell, list] = memberSource();
  // The map asks this for every pin it draws: stop at the second location
  // instead of listing a big cell.
  bool first = true;
  std::uint64_t key = 0;
  auto sameLocation = [&](const MapAnnotation* member) {
    std::uint64_t memberKey = geohashBitsForCoordinate(member->coordinate());
    if (first) {
      first = false;
      key = memberKey;
      return true;
    }
    return memberKey == key;
  };
  if (!list && tree) {
    std::shared_lock treeLock(tree->mutex());
    return tree->visitAnnotationsInBox(cell, true,
                                       [&](MapAnnotation* member) { return sameLocation(member); });
  }
  for (const MapAnnotationPtr& member : *list) {
    if (!sameLocation(member.get())) return false;
  }
  return true;
}

MapRect GeoMapClusterAnnotation::mapRect() const {
  MapPoint own = MapPointForCoordinate(coordinate());
  MapRect rect = MapRectMake(own.x, own.y, 0, 0);
  auto list = annotations();
  for (const MapAnnotationPtr& member : *list) {
    MapPoint point = MapPointForCoordinate(member->coordinate());
    rect = MapRectUnion(rect, MapRectMake(point.x, point.y, 0, 0));
  }
  return rect;
}

bool GeoMapClusterAnnotation::belongsTo(const std::weak_ptr<GeoMapClusterController>& controller) const {
  return !controller_.owner_before(controller) && !controller.owner_before(controller_);
}

}  // namespace lumeo
