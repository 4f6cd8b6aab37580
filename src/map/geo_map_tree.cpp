// Quad tree insertion, removal and range queries, all iterative: many
// records at one place stack nodes deep, ten to a level, and recursion
// would run out of stack long before the heap runs out.
#include "map/geo_map_tree.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <unordered_set>

namespace lumeo {
namespace {

// Blocks grow from small (a tree of a few pins stays small) to this size.
constexpr std::size_t kFirstBlockSlots = 16;
constexpr std::size_t kMaxBlockSlots = 4096;

double longitudeForMapX(double x) {
  return GeoMapTreeLongitudeForMapX(x);
}

// Whether (x, y) lies in the range, with the cell edge convention when asked.
struct RangeTest {
  RangeTest(const GeoMapTreeBoundingBox& range, bool cellEdges)
      : box(range), cellEdges(cellEdges), eastInclusive(!cellEdges || range.yf >= 180.0) {}

  GeoMapTreeBoundingBox box;
  bool cellEdges;
  bool eastInclusive;

  bool contains(double x, double y) const {
    bool south = cellEdges ? x > box.x0 : x >= box.x0;
    bool east = eastInclusive ? y <= box.yf : y < box.yf;
    return south && x <= box.xf && y >= box.y0 && east;
  }
  bool containsBox(const GeoMapTreeBoundingBox& other) const {
    return contains(other.x0, other.y0) && contains(other.xf, other.yf);
  }
};

// The walk's to-do list: on the stack for ordinary depths, on the heap
// only for the deep stacks of many records at one place.
class NodeStack {
 public:
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  void push_back(const GeoMapTreeNode* node) {
    if (size_ < kInline) {
      inline_[size_] = node;
    } else {
      overflow_.resize(size_ - kInline + 1);
      overflow_[size_ - kInline] = node;
    }
    ++size_;
  }
  const GeoMapTreeNode* back() const {
    return size_ <= kInline ? inline_[size_ - 1] : overflow_[size_ - 1 - kInline];
  }
  void pop_back() { --size_; }

 private:
  static constexpr std::size_t kInline = 128;
  const GeoMapTreeNode* inline_[kInline];
  std::size_t size_ = 0;
  std::vector<const GeoMapTreeNode*> overflow_;
};

void addSubtree(const GeoMapTreeNode* node, GeoMapTreeUnsafeMutableArray& result, NodeStack& stack) {
  std::size_t base = stack.size();
  stack.push_back(node);
  while (stack.size() > base) {
    const GeoMapTreeNode* current = stack.back();
    stack.pop_back();
    for (std::size_t i = 0; i < current->count; ++i) result.addObject(current->points[i].data);
    if (current->northWest) {
      stack.push_back(current->southEast);
      stack.push_back(current->southWest);
      stack.push_back(current->northEast);
      stack.push_back(current->northWest);
    }
  }
}

}  // namespace

std::optional<GeoMapTreeBoundingBox> GeoMapTreeBoxIntersection(const GeoMapTreeBoundingBox& a,
                                                               const GeoMapTreeBoundingBox& b) {
  GeoMapTreeBoundingBox overlap{std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.xf, b.xf),
                                std::min(a.yf, b.yf)};
  if (!(overlap.x0 <= overlap.xf) || !(overlap.y0 <= overlap.yf)) return std::nullopt;
  return overlap;
}

GeoMapTreeBoundingBox GeoMapTreeBoundingBoxForMapRect(MapRect rect) {
  LocationCoordinate2D topLeft = CoordinateForMapPoint(rect.origin);
  LocationCoordinate2D bottomRight = CoordinateForMapPoint({rect.maxX(), rect.maxY()});
  return {bottomRight.latitude, longitudeForMapX(rect.minX()), topLeft.latitude,
          longitudeForMapX(rect.maxX())};
}

GeoMapTree::GeoMapTree(GeoMapTreeBoundingBox bounds, std::size_t nodeCapacity)
    : nodeCapacity_(nodeCapacity == 0 ? 1 : nodeCapacity),
      slotSize_((sizeof(GeoMapTreeNode) + nodeCapacity_ * sizeof(GeoMapTreeNodeData) + 63) / 64 * 64),
      root_(makeNodes(1)) {
  root_->boundingBox = bounds;
}

GeoMapTreeNode* GeoMapTree::makeNodes(std::size_t count) {
  if (slotsLeftInBlock_ < count) {
    // 64-byte slots from a 64-byte aligned block keep nodes on line starts.
    blockSlots_ = blocks_.empty() ? kFirstBlockSlots : std::min(blockSlots_ * 2, kMaxBlockSlots);
    blocks_.emplace_back(
        static_cast<std::byte*>(::operator new[](blockSlots_* slotSize_, std::align_val_t{64})));
    slotsLeftInBlock_ = blockSlots_;
  }
  std::byte* first = blocks_.back().get() + (blockSlots_ - slotsLeftInBlock_) * slotSize_;
  slotsLeftInBlock_ -= count;
  GeoMapTreeNode* firstNode = nullptr;
  for (std::size_t i = 0; i < count; ++i) {
    std::byte* slot = first + i * slotSize_;
    auto* node = new (slot) GeoMapTreeNode();
    node->points = reinterpret_cast<GeoMapTreeNodeData*>(slot + sizeof(GeoMapTreeNode));
    if (i == 0) firstNode = node;
  }
  return firstNode;
}

void GeoMapTree::subdivide(GeoMapTreeNode* node) {
  const GeoMapTreeBoundingBox box = node->boundingBox;
  double xMid = (box.x0 + box.xf) / 2;
  double yMid = (box.y0 + box.yf) / 2;
  GeoMapTreeNode* first = makeNodes(4);
  auto nodeAt = [&](std::size_t i) {
    return reinterpret_cast<GeoMapTreeNode*>(reinterpret_cast<std::byte*>(first) + i * slotSize_);
  };
  node->northWest = nodeAt(0);
  node->northEast = nodeAt(1);
  node->southWest = nodeAt(2);
  node->southEast = nodeAt(3);
  node->northWest->boundingBox = {box.x0, box.y0, xMid, yMid};
  node->northEast->boundingBox = {xMid, box.y0, box.xf, yMid};
  node->southWest->boundingBox = {box.x0, yMid, xMid, box.yf};
  node->southEast->boundingBox = {xMid, yMid, box.xf, box.yf};
}

bool GeoMapTree::insert(const GeoMapTreeNodeData& data) {
  GeoMapTreeNode* node = root_;
  if (!node->boundingBox.containsPoint(data.x, data.y)) return false;
  for (;;) {
    ++node->subtreeCount;
    node->subtreeSumX += data.x;
    node->subtreeSumY += data.y;
    if (node->count < nodeCapacity_) {
      node->points[node->count++] = data;
      return true;
    }
    if (!node->northWest) subdivide(node);
    // The children tile the parent with shared, inclusive edges; on an edge
    // the first in order (north-west, north-east, south-west, south-east)
    // takes the point. Deciding from the parent's middle saves reading the
    // children's boxes.
    const GeoMapTreeBoundingBox& box = node->boundingBox;
    bool low = data.x <= (box.x0 + box.xf) / 2;
    if (data.y <= (box.y0 + box.yf) / 2) {
      node = low ? node->northWest : node->northEast;
    } else {
      node = low ? node->southWest : node->southEast;
    }
  }
}

bool GeoMapTree::remove(double x, double y, MapAnnotation* annotation) {
  // Depth-first, remembering the path so that the totals above the node
  // that held the point can be taken down.
  // The scratch lists are kept between calls, so removing many pins
  // allocates nothing.
  auto& stack = removalStack_;
  auto& path = removalPath_;
  stack.assign(1, {root_, 0});
  path.clear();
  while (!stack.empty()) {
    auto [node, depth] = stack.back();
    stack.pop_back();
    if (!node->boundingBox.containsPoint(x, y)) continue;
    path.resize(depth);
    path.push_back(node);
    for (std::size_t i = 0; i < node->count; ++i) {
      if (node->points[i].data == annotation) {
        const GeoMapTreeNodeData removed = node->points[i];
        node->points[i] = node->points[node->count - 1];
        --node->count;
        for (GeoMapTreeNode* above : path) {
          --above->subtreeCount;
          above->subtreeSumX -= removed.x;
          above->subtreeSumY -= removed.y;
        }
        return true;
      }
    }
    if (node->northWest) {
      stack.emplace_back(node->southEast, depth + 1);
      stack.emplace_back(node->southWest, depth + 1);
      stack.emplace_back(node->northEast, depth + 1);
      stack.emplace_back(node->northWest, depth + 1);
    }
  }
  return false;
}

bool GeoMapTree::addAnnotation(const MapAnnotationPtr& annotation, LocationCoordinate2D position) {
  if (!annotation || entries_.find(annotation.get())) return false;
  if (!insert({position.latitude, position.longitude, annotation.get()})) return false;
  entries_.insertAbsent(annotation, position.latitude, position.longitude);
  for (const auto& grid : grids_) grid->addPoint(position.latitude, position.longitude, 1);
  return true;
}

bool GeoMapTree::addAnnotations(const MapAnnotationList& annotations) {
  bool changed = false;
  entries_.reserve(entries_.size() + annotations.size());
  constexpr std::size_t kAhead = 8;
  for (std::size_t i = 0; i < annotations.size(); ++i) {
    if (i + kAhead < annotations.size() && annotations[i + kAhead])
      entries_.prefetch(annotations[i + kAhead].get());
    const MapAnnotationPtr& annotation = annotations[i];
    if (annotation && addAnnotation(annotation, annotation->coordinate())) changed = true;
  }
  return changed;
}

bool GeoMapTree::removeAnnotation(MapAnnotation* annotation) {
  const GeoMapTreeEntryTable::Entry* entry = entries_.find(annotation);
  if (!entry) return false;
  double x = entry->x, y = entry->y;
  if (remove(x, y, annotation)) {
    for (const auto& grid : grids_) grid->addPoint(x, y, -1);
  }
  entries_.erase(annotation);
  return true;
}

bool GeoMapTree::removeAnnotations(const MapAnnotationList& annotations) {
  bool changed = false;
  for (const MapAnnotationPtr& annotation : annotations) {
    if (removeAnnotation(annotation.get())) changed = true;
  }
  return changed;
}

void GeoMapTree::moveAnnotation(const MapAnnotationPtr& annotation, LocationCoordinate2D position) {
  const GeoMapTreeEntryTable::Entry* entry = entries_.find(annotation.get());
  if (entry && entry->x == position.latitude && entry->y == position.longitude) return;
  removeAnnotation(annotation.get());
  addAnnotation(annotation, position);
}

std::optional<LocationCoordinate2D> GeoMapTree::positionOf(const MapAnnotation* annotation) const {
  const GeoMapTreeEntryTable::Entry* entry = entries_.find(annotation);
  if (!entry) return std::nullopt;
  return LocationCoordinate2D{entry->x, entry->y};
}

MapAnnotationPtr GeoMapTree::retained(MapAnnotation* annotation) const {
  const GeoMapTreeEntryTable::Entry* entry = entries_.find(annotation);
  return entry ? entry->annotation : nullptr;
}

MapAnnotationList GeoMapTree::allAnnotations() const {
  MapAnnotationList result;
  result.reserve(entries_.size());
  entries_.forEach([&](const GeoMapTreeEntryTable::Entry& entry) { result.push_back(entry.annotation); });
  return result;
}

void GeoMapTree::annotationsInBox(const GeoMapTreeBoundingBox& box, GeoMapTreeUnsafeMutableArray& result,
                                  bool cellEdges) const {
  RangeTest range{box, cellEdges};
  NodeStack stack;
  stack.push_back(root_);
  while (!stack.empty()) {
    const GeoMapTreeNode* node = stack.back();
    stack.pop_back();
    for (;;) {
      if (node->subtreeCount == 0 || !node->boundingBox.intersects(box)) break;
      if (range.containsBox(node->boundingBox)) {
        addSubtree(node, result, stack);
        break;
      }
      for (std::size_t i = 0; i < node->count; ++i) {
        const GeoMapTreeNodeData& point = node->points[i];
        if (range.contains(point.x, point.y)) result.addObject(point.data);
      }
      if (!node->northWest) break;
      stack.push_back(node->southWest);
      stack.push_back(node->northEast);
      stack.push_back(node->northWest);
      node = node->southEast;  // the last child by looping, not by the stack
    }
  }
}

namespace {

// Pushes the children of `node` whose quadrant meets the range, working the
// quadrants out from the parent's box so that the others are never read.
void pushChildrenMeeting(const GeoMapTreeNode* node, const GeoMapTreeBoundingBox& range, NodeStack& stack) {
  const GeoMapTreeBoundingBox& box = node->boundingBox;
  double xMid = (box.x0 + box.xf) / 2;
  double yMid = (box.y0 + box.yf) / 2;
  bool low = range.x0 <= xMid;
  bool high = range.xf >= xMid;
  bool west = range.y0 <= yMid;
  bool east = range.yf >= yMid;
  // Reverse order, so that the north-west child comes off the stack first.
  if (high && east) stack.push_back(node->southEast);
  if (low && east) stack.push_back(node->southWest);
  if (high && west) stack.push_back(node->northEast);
  if (low && west) stack.push_back(node->northWest);
}

}  // namespace

bool GeoMapTree::visitAnnotationsInBox(const GeoMapTreeBoundingBox& box, bool cellEdges,
                                       const std::function<bool(MapAnnotation*)>& visit) const {
  RangeTest range{box, cellEdges};
  if (!root_->boundingBox.intersects(box)) return true;
  NodeStack stack;
  stack.push_back(root_);
  while (!stack.empty()) {
    const GeoMapTreeNode* node = stack.back();
    stack.pop_back();
    if (node->subtreeCount == 0) continue;
    for (std::size_t i = 0; i < node->count; ++i) {
      const GeoMapTreeNodeData& point = node->points[i];
      if (range.contains(point.x, point.y) && !visit(point.data)) return false;
    }
    if (node->northWest) pushChildrenMeeting(node, box, stack);
  }
  return true;
}

GeoMapTreeAggregate GeoMapTree::aggregateInBox(const GeoMapTreeBoundingBox& box, bool cellEdges) const {
  RangeTest range{box, cellEdges};
  GeoMapTreeAggregate total;
  if (!root_->boundingBox.intersects(box)) return total;
  NodeStack stack;
  stack.push_back(root_);
  while (!stack.empty()) {
    const GeoMapTreeNode* node = stack.back();
    stack.pop_back();
    if (node->subtreeCount == 0) continue;
    if (range.containsBox(node->boundingBox)) {
      total.count += node->subtreeCount;
      total.sumX += node->subtreeSumX;
      total.sumY += node->subtreeSumY;
      continue;
    }
    for (std::size_t i = 0; i < node->count; ++i) {
      const GeoMapTreeNodeData& point = node->points[i];
      if (range.contains(point.x, point.y)) {
        ++total.count;
        total.sumX += point.x;
        total.sumY += point.y;
      }
    }
    if (node->northWest) pushChildrenMeeting(node, box, stack);
  }
  return total;
}

bool GeoMapTree::hasAnnotationInBox(const GeoMapTreeBoundingBox& box, bool cellEdges) const {
  return !visitAnnotationsInBox(box, cellEdges, [](MapAnnotation*) { return false; });
}

const GeoMapCellGrid* GeoMapTree::cellGridForCellMapSize(double cellMapSize) const {
  // Below this many points a pass walks few nodes anyway.
  constexpr std::size_t kMinPointsForGrid = 4096;
  constexpr std::size_t kMaxGrids = 2;  // up to 64 MB each at a million points
  constexpr std::size_t kRememberedSizes = 8;
  if (entries_.size() < kMinPointsForGrid || !GeoMapCellGrid::servesCellMapSize(cellMapSize)) return nullptr;
  for (std::size_t i = 0; i < grids_.size(); ++i) {
    if (grids_[i]->cellMapSize() == cellMapSize) {
      std::rotate(grids_.begin() + static_cast<std::ptrdiff_t>(i),
                  grids_.begin() + static_cast<std::ptrdiff_t>(i) + 1, grids_.end());
      return grids_.back().get();
    }
  }
  auto asked = std::find(askedCellMapSizes_.begin(), askedCellMapSizes_.end(), cellMapSize);
  if (asked == askedCellMapSizes_.end()) {
    if (askedCellMapSizes_.size() == kRememberedSizes) askedCellMapSizes_.erase(askedCellMapSizes_.begin());
    askedCellMapSizes_.push_back(cellMapSize);
    return nullptr;
  }
  askedCellMapSizes_.erase(asked);
  if (grids_.size() == kMaxGrids) grids_.erase(grids_.begin());
  auto grid = std::make_unique<GeoMapCellGrid>(cellMapSize);
  // Filed positions straight from the nodes, which lie close in memory.
  std::vector<const GeoMapTreeNode*> stack{root_};
  while (!stack.empty()) {
    const GeoMapTreeNode* node = stack.back();
    stack.pop_back();
    if (node->subtreeCount == 0) continue;
    // A subtree inside one cell goes in by its totals: where the tree is
    // dense, most points are filed a node at a time.
    const GeoMapTreeBoundingBox& box = node->boundingBox;
    if (grid->addTotalsInBox(box.x0, box.y0, box.xf, box.yf, node->subtreeCount, node->subtreeSumX,
                             node->subtreeSumY))
      continue;
    for (std::size_t i = 0; i < node->count; ++i) grid->addPoint(node->points[i].x, node->points[i].y, 1);
    if (node->northWest) {
      stack.push_back(node->southEast);
      stack.push_back(node->southWest);
      stack.push_back(node->northEast);
      stack.push_back(node->northWest);
    }
  }
  grid->finishFilling();
  grids_.push_back(std::move(grid));
  return grids_.back().get();
}

MapAnnotationList GeoMapTree::annotationsInMapRect(MapRect rect) const {
  GeoMapTreeUnsafeMutableArray found(10);
  if (rect.isEmpty()) return {};
  // A rectangle that runs over the 180th meridian is queried in two parts.
  double shift = std::floor(rect.minX() / kMapWorldWidth) * kMapWorldWidth;
  MapRect local = MapRectMake(rect.minX() - shift, rect.minY(), rect.size.width, rect.size.height);
  double east = std::min(local.maxX(), kMapWorldWidth);
  annotationsInBox(GeoMapTreeBoundingBoxForMapRect(
                       MapRectMake(local.minX(), local.minY(), east - local.minX(), local.size.height)),
                   found);
  if (local.maxX() > kMapWorldWidth) {
    double rest = std::min(local.maxX() - kMapWorldWidth, local.minX());
    annotationsInBox(GeoMapTreeBoundingBoxForMapRect(MapRectMake(0, local.minY(), rest, local.size.height)),
                     found);
  }
  std::unordered_set<MapAnnotation*> seen;
  MapAnnotationList result;
  result.reserve(found.numObjects());
  for (MapAnnotation* annotation : found) {
    if (seen.insert(annotation).second) result.push_back(retained(annotation));
  }
  return result;
}

}  // namespace lumeo
