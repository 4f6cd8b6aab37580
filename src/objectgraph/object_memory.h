// Memory for managed objects and their value arrays. A large fetch makes and
// drops tens of thousands of objects at once; given back to malloc, that
// memory is returned to the system and every page of it faults in again on
// the next fetch, and the first fetch pays a fault per 4 KB. Blocks of the
// sizes objects use come from an arena in huge pages and are kept per thread
// for reuse instead. Internal to the object-graph module.
#pragma once

#include <cstddef>

namespace lumeo {

namespace objectmemory {

// Blocks from the arena (64 MB of address space, committed as used) are
// always kept for reuse. Once it is used up blocks come from operator new, and
// a thread keeps at most this many bytes of those; beyond, they go back.
inline constexpr std::size_t kKeptBytesPerThread = std::size_t{64} << 20;

// Blocks of up to this size are kept; larger ones come from operator new.
inline constexpr std::size_t kLargestKeptBlock = 1024;

// Any thread may free what another allocated. Under AddressSanitizer both
// are plain operator new and delete.
void* allocate(std::size_t bytes);
void deallocate(void* block, std::size_t bytes) noexcept;
// Bytes of operator new blocks this thread keeps for reuse right now.
std::size_t keptBytes();
// Whether the block was carved from the arena.
bool isArenaBlock(const void* block);

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
