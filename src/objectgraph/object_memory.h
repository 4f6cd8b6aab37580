// Memory for managed objects and their value arrays. A large fetch makes and
// drops tens of thousands of objects at once; given back to malloc, that
// memory is returned to the system and every page of it faults in again on
// the next fetch. Blocks of the sizes objects use are kept per thread for
// reuse instead, up to a limit. Internal to the object-graph module.
#pragma once

#include <cstddef>

namespace lumeo {

namespace objectmemory {

// Freed blocks a thread keeps for reuse; beyond this they go back to malloc.
// A fetch of 100,000 journal records holds about 50 MB of objects.
inline constexpr std::size_t kKeptBytesPerThread = std::size_t{64} << 20;

// Blocks of up to this size are kept; larger ones come from operator new.
inline constexpr std::size_t kLargestKeptBlock = 1024;

// Any thread may free what another allocated.
void* allocate(std::size_t bytes);
void deallocate(void* block, std::size_t bytes) noexcept;
// Bytes this thread keeps for reuse right now.
std::size_t keptBytes();

}  // namespace objectmemory

// A stateless standard allocator on objectmemory, for std::allocate_shared and
// the value arrays of object states.
template <class T>
struct ObjectAllocator {
  using value_type = T;
  ObjectAllocator() = default;
  template <class U>
  ObjectAllocator(const ObjectAllocator<U>&) {}  // NOLINT: rebinding converts implicitly
  T* allocate(std::size_t n) { return static_cast<T*>(objectmemory::allocate(n * sizeof(T))); }
  void deallocate(T* block, std::size_t n) noexcept { objectmemory::deallocate(block, n * sizeof(T)); }
  template <class U>
  friend bool operator==(const ObjectAllocator&, const ObjectAllocator<U>&) {
    return true;
  }
};

}  // namespace lumeo
