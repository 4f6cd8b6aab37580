// The per-thread block cache behind objects: blocks come back for reuse,
// frees from another thread are kept by that thread, large blocks and blocks
// beyond the limit go back to the system.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "objectgraph/object_memory.h"

namespace lumeo {
namespace {

TEST(ObjectMemoryTest, FreedBlocksAreReusedUpToTheLimit) {
  void* first = objectmemory::allocate(100);
  const std::size_t kept = objectmemory::keptBytes();
  objectmemory::deallocate(first, 100);
  EXPECT_EQ(objectmemory::keptBytes(), kept + 112) << "rounded up to its size class";
  // The same class (97..112 bytes) hands the block out again.
  void* again = objectmemory::allocate(105);
  EXPECT_EQ(again, first);
  EXPECT_EQ(objectmemory::keptBytes(), kept);
  objectmemory::deallocate(again, 105);

  void* large = objectmemory::allocate(objectmemory::kLargestKeptBlock + 1);
  const std::size_t before = objectmemory::keptBytes();
  objectmemory::deallocate(large, objectmemory::kLargestKeptBlock + 1);
  EXPECT_EQ(objectmemory::keptBytes(), before) << "large blocks are not kept";

  std::vector<void*> blocks;
  const std::size_t n = objectmemory::kKeptBytesPerThread / objectmemory::kLargestKeptBlock + 100;
  for (std::size_t i = 0; i < n; ++i) blocks.push_back(objectmemory::allocate(objectmemory::kLargestKeptBlock));
  for (void* b : blocks) objectmemory::deallocate(b, objectmemory::kLargestKeptBlock);
  EXPECT_LE(objectmemory::keptBytes(), objectmemory::kKeptBytesPerThread);
  EXPECT_GT(objectmemory::keptBytes(), objectmemory::kKeptBytesPerThread - objectmemory::kLargestKeptBlock);
  // Hand them out again so that later tests start from a small cache.
  blocks.clear();
  for (std::size_t i = 0; i < n; ++i) blocks.push_back(objectmemory::allocate(objectmemory::kLargestKeptBlock));
  for (void* b : blocks) ::operator delete(b);
}

TEST(ObjectMemoryTest, BlocksMayBeFreedOnAnotherThreadAndOutliveTheirThread) {
  std::vector<int*> made;
  std::thread maker([&] {
    for (int i = 0; i < 1000; ++i) {
      int* p = ObjectAllocator<int>().allocate(4);
      p[0] = i;
      made.push_back(p);
    }
    // Blocks this thread freed itself go back when it ends.
    for (int i = 0; i < 10; ++i) objectmemory::deallocate(objectmemory::allocate(64), 64);
  });
  maker.join();
  const std::size_t before = objectmemory::keptBytes();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(made[i][0], i);
    ObjectAllocator<int>().deallocate(made[i], 4);
  }
  EXPECT_EQ(objectmemory::keptBytes(), before + 1000 * 16);
  std::vector<int*> reused;
  for (int i = 0; i < 1000; ++i) reused.push_back(ObjectAllocator<int>().allocate(4));
  EXPECT_EQ(objectmemory::keptBytes(), before);
  for (int* p : reused) ObjectAllocator<int>().deallocate(p, 4);
}

}  // namespace
}  // namespace lumeo
