// A growable array of plain annotation pointers for gathering tree query
// results. It neither owns nor retains what it holds: the tree's annotation
// set keeps them alive for as long as the query's caller may use them.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "map/map_annotation.h"

namespace lumeo {

class GeoMapTreeUnsafeMutableArray {
 public:
  // A capacity of 0 is made 1; the array doubles whenever it is full.
  explicit GeoMapTreeUnsafeMutableArray(std::size_t capacity = 10)
      : capacity_(capacity == 0 ? 1 : capacity), objects_(new MapAnnotation*[capacity_]) {}

  void addObject(MapAnnotation* object) {
    if (numObjects_ == capacity_) grow();
    objects_[numObjects_++] = object;
  }
  void removeAllObjects() { numObjects_ = 0; }

  MapAnnotation* const* objects() const { return objects_.get(); }
  MapAnnotation* operator[](std::size_t index) const { return objects_[index]; }
  std::size_t numObjects() const { return numObjects_; }
  std::size_t capacity() const { return capacity_; }
  bool empty() const { return numObjects_ == 0; }
  MapAnnotation* const* begin() const { return objects_.get(); }
  MapAnnotation* const* end() const { return objects_.get() + numObjects_; }

 private:
  void grow() {
    std::unique_ptr<MapAnnotation*[]> larger(new MapAnnotation*[capacity_ * 2]);
    std::memcpy(larger.get(), objects_.get(), numObjects_ * sizeof(MapAnnotation*));
    objects_ = std::move(larger);
    capacity_ *= 2;
  }

  std::size_t capacity_;
  std::size_t numObjects_ = 0;
  std::unique_ptr<MapAnnotation*[]> objects_;
};

}  // namespace lumeo
