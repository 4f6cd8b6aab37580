// The quad tree that holds annotations by latitude and longitude, so that
// clustering visits only the annotations in the cells on screen. Points live
// inline in fixed-size node arrays: no allocation per point, and a parent
// keeps its points when it subdivides. Not thread-safe: the cluster
// controller touches its trees only from its serial background queue.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <shared_mutex>
#include <vector>

#include "map/geo_map_cell_grid.h"
#include "map/geo_map_tree_entry_table.h"
#include "map/geo_map_tree_unsafe_mutable_array.h"
#include "map/map_annotation.h"
#include "map/map_geometry.h"

namespace lumeo {

// x is latitude, y is longitude; every side is inclusive.
struct GeoMapTreeBoundingBox {
  double x0 = 0;
  double y0 = 0;
  double xf = 0;
  double yf = 0;

  bool containsPoint(double x, double y) const { return x >= x0 && x <= xf && y >= y0 && y <= yf; }
  bool intersects(const GeoMapTreeBoundingBox& other) const {
    return x0 <= other.xf && xf >= other.x0 && y0 <= other.yf && yf >= other.y0;
  }
};

// The latitude and longitude box of a map rectangle, from its corners.
GeoMapTreeBoundingBox GeoMapTreeBoundingBoxForMapRect(MapRect rect);
// Longitude of a map x without wrapping, so that the east edge of the world
// reads 180 and not -180.
inline double GeoMapTreeLongitudeForMapX(double x) {
  return x / kMapWorldWidth * 360.0 - 180.0;
}

struct GeoMapTreeNodeData {
  double x = 0;
  double y = 0;
  MapAnnotation* data = nullptr;  // unretained: the tree's set owns it
};

struct GeoMapTreeNode {
  GeoMapTreeBoundingBox boundingBox;
  GeoMapTreeNode* northWest = nullptr;
  GeoMapTreeNode* northEast = nullptr;
  GeoMapTreeNode* southWest = nullptr;
  GeoMapTreeNode* southEast = nullptr;
  GeoMapTreeNodeData* points = nullptr;  // nodeCapacity entries, allocated with the node
  std::size_t count = 0;
  // Totals of this node and everything below it, so that a query can take
  // a whole subtree inside its range without visiting its points.
  std::size_t subtreeCount = 0;
  double subtreeSumX = 0;
  double subtreeSumY = 0;
};

// The range test of queries. With cell edges, the south and east sides are
// exclusive (east stays inclusive at the 180th meridian), so that grid
// cells that share an edge never both claim a point on it.
inline bool GeoMapTreeBoxContains(const GeoMapTreeBoundingBox& box, double x, double y, bool cellEdges) {
  if (!cellEdges) return box.containsPoint(x, y);
  return x > box.x0 && x <= box.xf && y >= box.y0 && (y < box.yf || (box.yf >= 180.0 && y <= box.yf));
}
// The overlap of two ranges, or nothing when they do not overlap.
std::optional<GeoMapTreeBoundingBox> GeoMapTreeBoxIntersection(const GeoMapTreeBoundingBox& a,
                                                               const GeoMapTreeBoundingBox& b);

class GeoMapTree {
 public:
  static constexpr GeoMapTreeBoundingBox kWorldBounds{-85.0, -180.0, 85.0, 180.0};
  static constexpr std::size_t kDefaultNodeCapacity = 10;

  explicit GeoMapTree(GeoMapTreeBoundingBox bounds = kWorldBounds,
                      std::size_t nodeCapacity = kDefaultNodeCapacity);
  GeoMapTree(const GeoMapTree&) = delete;
  GeoMapTree& operator=(const GeoMapTree&) = delete;

  // Each returns whether the tree changed. Adding skips annotations already
  // in the tree and those that fall outside its bounds (beyond 85 degrees of
  // latitude with the default bounds); removing skips those not in it.
  bool addAnnotations(const MapAnnotationList& annotations);
  bool removeAnnotations(const MapAnnotationList& annotations);
  // One annotation at a given position, which may differ from its current
  // coordinate (the engine files a cluster where it will be shown).
  bool addAnnotation(const MapAnnotationPtr& annotation, LocationCoordinate2D position);
  bool removeAnnotation(MapAnnotation* annotation);
  // Moves an annotation already in the tree to a new position.
  void moveAnnotation(const MapAnnotationPtr& annotation, LocationCoordinate2D position);

  // The distinct annotations whose position lies in the rectangle, all
  // sides inclusive.
  MapAnnotationList annotationsInMapRect(MapRect rect) const;
  // The raw query (see GeoMapTreeBoxContains for `cellEdges`).
  void annotationsInBox(const GeoMapTreeBoundingBox& box, GeoMapTreeUnsafeMutableArray& result,
                        bool cellEdges = false) const;
  // Calls `visit` with each annotation in the range until it returns false;
  // returns whether the walk went through.
  bool visitAnnotationsInBox(const GeoMapTreeBoundingBox& box, bool cellEdges,
                             const std::function<bool(MapAnnotation*)>& visit) const;
  // Count and position sums in the range, from the subtree totals: the cost
  // follows the range's edge, not the number of annotations inside.
  GeoMapTreeAggregate aggregateInBox(const GeoMapTreeBoundingBox& box, bool cellEdges) const;
  bool hasAnnotationInBox(const GeoMapTreeBoundingBox& box, bool cellEdges) const;

  // The table of per-cell totals for an aligned cell size, or null. A size
  // gets a table the second time a pass asks for it (the first pass at a
  // zoom walks the tree, and zooming through sizes builds nothing), and
  // only for trees big enough for the walk to cost more than the table.
  // The two most recent tables are kept and follow every add and remove.
  // Called only by the tree's one writer (the background queue).
  const GeoMapCellGrid* cellGridForCellMapSize(double cellMapSize) const;
  std::size_t cellGridCount() const { return grids_.size(); }

  bool containsAnnotation(const MapAnnotation* annotation) const {
    return entries_.find(annotation) != nullptr;
  }
  // Where the annotation is filed, if it is in the tree.
  std::optional<LocationCoordinate2D> positionOf(const MapAnnotation* annotation) const;
  // The strong reference the tree holds for a raw pointer it returned.
  MapAnnotationPtr retained(MapAnnotation* annotation) const;
  std::size_t count() const { return entries_.size(); }
  // Room for `count` annotations in all, ahead of adding many one by one.
  void reserve(std::size_t count) { entries_.reserve(count); }
  MapAnnotationList allAnnotations() const;
  // Calls `visit` with each annotation, in no particular order, without
  // taking references; the tree must not change meanwhile.
  template <typename Visit>
  void forEachAnnotation(Visit&& visit) const {
    entries_.forEach([&](const GeoMapTreeEntryTable::Entry& entry) { visit(entry.annotation); });
  }
  // The same with where each is filed: visit(annotation, latitude, longitude).
  template <typename Visit>
  void forEachFiled(Visit&& visit) const {
    entries_.forEach(
        [&](const GeoMapTreeEntryTable::Entry& entry) { visit(entry.annotation, entry.x, entry.y); });
  }
  const GeoMapTreeNode* root() const { return root_; }
  // The tree has one writer, the controller's background queue, which takes
  // this exclusively; other threads that read it hold it shared.
  std::shared_mutex& mutex() const { return mutex_; }
  std::size_t nodeCapacity() const { return nodeCapacity_; }

 private:
  // Nodes come four at a time (a node's children), each followed by its
  // points in the same block, so that a walk touches few cache lines.
  GeoMapTreeNode* makeNodes(std::size_t count);
  void subdivide(GeoMapTreeNode* node);
  bool insert(const GeoMapTreeNodeData& data);
  bool remove(double x, double y, MapAnnotation* annotation);

  std::size_t nodeCapacity_;
  std::size_t slotSize_;  // bytes of one node and its points
  struct AlignedBlockDelete {
    void operator()(std::byte* block) const { ::operator delete[](block, std::align_val_t{64}); }
  };
  std::vector<std::unique_ptr<std::byte[], AlignedBlockDelete>> blocks_;
  std::size_t blockSlots_ = 0;
  std::size_t slotsLeftInBlock_ = 0;
  GeoMapTreeNode* root_;
  GeoMapTreeEntryTable entries_;  // the tree's annotation set
  // Per-cell tables, most recently used last, and the cell sizes asked for
  // lately (each asked once so far).
  mutable std::vector<std::unique_ptr<GeoMapCellGrid>> grids_;
  mutable std::vector<double> askedCellMapSizes_;
  mutable std::shared_mutex mutex_;
  std::vector<std::pair<GeoMapTreeNode*, std::size_t>> removalStack_;
  std::vector<GeoMapTreeNode*> removalPath_;
};

}  // namespace lumeo
