// One pin standing for a group of annotations: the members, the pin's
// coordinate and its cached texts. Clustering swaps the members in the
// background while the map reads them on the main thread, so the list is
// handed out as an immutable snapshot. A pin for a whole grid cell keeps
// its members as "everything the tree holds in this cell" and lists them
// only when first asked, so that clustering a screen costs the number of
// cells and not the number of records behind them.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "map/geo_map_tree.h"
#include "map/map_annotation.h"

namespace lumeo {

class GeoMapClusterController;
class GeoMapClusterControllerDelegate;

class GeoMapClusterAnnotation : public MapAnnotation {
 public:
  GeoMapClusterAnnotation(std::weak_ptr<GeoMapClusterController> mapClusterController,
                          std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                          MapAnnotationList annotations, LocationCoordinate2D coordinate);
  // A pin for a whole cell (see setAnnotationsInCell), made in one step:
  // clustering makes one per occupied cell on screen.
  GeoMapClusterAnnotation(std::weak_ptr<GeoMapClusterController> mapClusterController,
                          std::weak_ptr<GeoMapClusterControllerDelegate> delegate,
                          std::shared_ptr<const GeoMapTree> tree, const GeoMapTreeBoundingBox& box,
                          std::size_t count, LocationCoordinate2D coordinate);

  LocationCoordinate2D coordinate() const override;
  void setCoordinate(LocationCoordinate2D coordinate);
  // Asked from the delegate on first read and kept until reset (main thread).
  std::string title() const override;
  std::string subtitle() const override;
  void resetTitleAndSubtitle();

  std::shared_ptr<const MapAnnotationList> annotations() const;
  void setAnnotations(MapAnnotationList annotations);
  // Members are the `count` annotations of `tree` in the cell `box` (cell
  // edge convention). The tree must outlive this annotation's use of it.
  void setAnnotationsInCell(std::shared_ptr<const GeoMapTree> tree, const GeoMapTreeBoundingBox& box,
                            std::size_t count);
  std::size_t count() const;
  bool containsAnnotation(const MapAnnotation* annotation) const;

  // The members as they are held, without listing a cell: either the list
  // or the cell. For the clustering pass.
  struct Members {
    std::shared_ptr<const MapAnnotationList> list;
    std::optional<GeoMapTreeBoundingBox> cell;
  };
  Members heldMembers() const;

  // More than one member.
  bool isCluster() const { return count() > 1; }
  // All members share one location key.
  bool isUniqueLocation() const;
  bool isOneLocation() const { return isUniqueLocation(); }
  // The union of the members' points and the pin's own point.
  MapRect mapRect() const;

  std::shared_ptr<GeoMapClusterController> mapClusterController() const { return controller_.lock(); }
  std::shared_ptr<GeoMapClusterControllerDelegate> delegate() const { return delegate_.lock(); }
  // Whether this annotation was made by the given controller; compares
  // ownership without taking a reference, so it is safe on any thread.
  bool belongsTo(const std::weak_ptr<GeoMapClusterController>& controller) const;

 private:
  // The cell's tree and box, and the list if one is held, taken together
  // under the lock so that readers see one consistent set of members.
  struct MemberSource {
    std::shared_ptr<const GeoMapTree> tree;
    GeoMapTreeBoundingBox cell;
    std::shared_ptr<const MapAnnotationList> list;
  };
  MemberSource memberSource() const;

  std::weak_ptr<GeoMapClusterController> controller_;
  std::weak_ptr<GeoMapClusterControllerDelegate> delegate_;
  mutable std::mutex mutex_;
  mutable std::shared_ptr<const MapAnnotationList> annotations_;  // null while a cell is not listed
  std::shared_ptr<const GeoMapTree> cellTree_;
  GeoMapTreeBoundingBox cell_;
  std::size_t count_ = 0;
  std::uint64_t generation_ = 0;  // bumped by every change of members
  LocationCoordinate2D coordinate_;
  mutable std::optional<std::string> title_;
  mutable std::optional<std::string> subtitle_;
};

using GeoMapClusterAnnotationPtr = std::shared_ptr<GeoMapClusterAnnotation>;

}  // namespace lumeo
