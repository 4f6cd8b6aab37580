// What a map pin stands for: an object with a coordinate and optional texts.
// The clustering engine takes any annotation; the map tab gives them meaning.
// Annotations are shared (std::shared_ptr) between the map, the engine and
// the screen that made them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "map/map_geometry.h"

namespace lumeo {

class MapAnnotation : public std::enable_shared_from_this<MapAnnotation> {
 public:
  virtual ~MapAnnotation() = default;

  // Read from the main thread and from clustering on the background queue;
  // an annotation whose coordinate may change must make this thread-safe.
  virtual LocationCoordinate2D coordinate() const = 0;
  // Empty means no text.
  virtual std::string title() const { return {}; }
  virtual std::string subtitle() const { return {}; }

  // Scratch mark for the clustering engine's set intersections; its values
  // are unique per use, so one annotation may sit in several engines.
  std::atomic<std::uint64_t>& clusterMark() const { return clusterMark_; }

 private:
  mutable std::atomic<std::uint64_t> clusterMark_{0};
};

using MapAnnotationPtr = std::shared_ptr<MapAnnotation>;
// A set of distinct annotations in a stable order.
using MapAnnotationList = std::vector<MapAnnotationPtr>;

// A plain annotation with fixed values, for places, tests and tools.
class PointAnnotation : public MapAnnotation {
 public:
  explicit PointAnnotation(LocationCoordinate2D coordinate, std::string title = {}, std::string subtitle = {})
      : coordinate_(coordinate), title_(std::move(title)), subtitle_(std::move(subtitle)) {}
  LocationCoordinate2D coordinate() const override { return coordinate_; }
  std::string title() const override { return title_; }
  std::string subtitle() const override { return subtitle_; }

 private:
  LocationCoordinate2D coordinate_;
  std::string title_;
  std::string subtitle_;
};

}  // namespace lumeo
