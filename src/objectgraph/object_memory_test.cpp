// The block cache behind objects: blocks come back for reuse, the arena is
// used up before operator new takes over, frees from another thread are kept
// by that thread, large blocks and blocks beyond the limit go back to the
// system, and a child forked mid-allocation can still allocate.
#include "objectgraph/object_memory.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

namespace lumeo {
namespace {

// Sanitizer builds hand every block to operator new (see object_memory.cpp).
#if defined(__SANITIZE_ADDRESS__)
#define SKIP_WITHOUT_CACHE() GTEST_SKIP() << "no block cache under AddressSanitizer"
#else
#define SKIP_WITHOUT_CACHE() (void)0
#endif

TEST(ObjectMemoryTest, FreedBlocksAreReusedAndOnlyBlocksBeyondTheArenaAreLimited) {
  SKIP_WITHOUT_CACHE();
  void* first = objectmemory::allocate(100);
  objectmemory::deallocate(first, 100);
  // The same size class (97..112 bytes) hands the block out again.
  void* again = objectmemory::allocate(105);
  EXPECT_EQ(again, first);
  objectmemory::deallocate(again, 105);

  void* large = objectmemory::allocate(objectmemory::kLargestKeptBlock + 1);
  EXPECT_FALSE(objectmemory::isArenaBlock(large));
  const std::size_t before = objectmemory::keptBytes();
  objectmemory::deallocate(large, objectmemory::kLargestKeptBlock + 1);
  EXPECT_EQ(objectmemory::keptBytes(), before) << "large blocks are not kept";

  // Use the arena up; blocks then come from operator new.
  constexpr std::size_t kBlock = objectmemory::kLargestKeptBlock;
  std::vector<void*> blocks;
  std::size_t fromArena = 0;
  for (;;) {
    void* b = objectmemory::allocate(kBlock);
    blocks.push_back(b);
    if (!objectmemory::isArenaBlock(b)) break;
    ++fromArena;
    ASSERT_LT(fromArena, std::size_t{1} << 20) << "the arena never ran out";
  }
  EXPECT_GT(fromArena * kBlock, std::size_t{32} << 20) << "most of the arena serves one class if need be";
  for (void* b : blocks) objectmemory::deallocate(b, kBlock);
  EXPECT_EQ(objectmemory::keptBytes(), before + kBlock) << "arena blocks do not count towards the limit";

  // Beyond the limit, freed operator new blocks go back. Take the kept ones
  // (arena blocks first, as they were freed last) and make more.
  blocks.clear();
  const std::size_t n = fromArena + objectmemory::kKeptBytesPerThread / kBlock + 100;
  for (std::size_t i = 0; i < n; ++i) blocks.push_back(objectmemory::allocate(kBlock));
  for (void* b : blocks) objectmemory::deallocate(b, kBlock);
  EXPECT_LE(objectmemory::keptBytes(), objectmemory::kKeptBytesPerThread);
  EXPECT_GT(objectmemory::keptBytes(), objectmemory::kKeptBytesPerThread - kBlock);
  // Hand the kept ones out again so that later tests start from a small cache.
  blocks.clear();
  for (std::size_t i = 0; i < n; ++i) blocks.push_back(objectmemory::allocate(kBlock));
  for (void* b : blocks) {
    if (objectmemory::isArenaBlock(b)) {
      objectmemory::deallocate(b, kBlock);
    } else {
      ::operator delete(b);
    }
  }
}

TEST(ObjectMemoryTest, BlocksMayBeFreedOnAnotherThreadAndOutliveTheirThread) {
  SKIP_WITHOUT_CACHE();
  std::vector<int*> made;
  std::thread maker([&] {
    for (int i = 0; i < 1000; ++i) {
      int* p = ObjectAllocator<int>().allocate(4);
      p[0] = i;
      made.push_back(p);
    }
    // Blocks this thread freed itself go back (or to the arena) when it ends.
    for (int i = 0; i < 10; ++i) objectmemory::deallocate(objectmemory::allocate(64), 64);
  });
  maker.join();
  const std::size_t before = objectmemory::keptBytes();
  std::size_t plain = 0;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(made[i][0], i);
    plain += objectmemory::isArenaBlock(made[i]) ? 0 : 1;
    ObjectAllocator<int>().deallocate(made[i], 4);
  }
  EXPECT_EQ(objectmemory::keptBytes(), before + plain * 16);
  std::vector<int*> reused;
  for (int i = 0; i < 1000; ++i) reused.push_back(ObjectAllocator<int>().allocate(4));
  EXPECT_EQ(objectmemory::keptBytes(), before);
  for (int* p : reused) ObjectAllocator<int>().deallocate(p, 4);
}

TEST(ObjectMemoryTest, AChildForkedWhileAnotherThreadAllocatesCanAllocate) {
  // Only the arena's lock is ours to hand over; the sanitizer's allocator
  // makes no such promise.
  SKIP_WITHOUT_CACHE();
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    std::vector<void*> blocks;
    while (!stop) {
      for (std::size_t size = 16; size <= objectmemory::kLargestKeptBlock; size += 48) {
        blocks.push_back(objectmemory::allocate(size));
      }
      for (std::size_t i = 0; i < blocks.size(); ++i) objectmemory::deallocate(blocks[i], 16 + 48 * (i % 22));
      blocks.clear();
    }
  });
  for (int round = 0; round < 20; ++round) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      alarm(10);  // a child stuck on a lock dies instead of hanging the test
      for (std::size_t size = 16; size <= objectmemory::kLargestKeptBlock; size += 16) {
        for (int i = 0; i < 200; ++i) objectmemory::allocate(size);
      }
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round;
  }
  stop = true;
  churn.join();
}

}  // namespace
}  // namespace lumeo
