// Per-thread free lists of the blocks objects use, in 16-byte size classes.
// Every block is a plain operator new allocation, so a block can always go
// back to the system on its own: when a thread's lists are full, when the
// thread ends, or when it is freed after the thread's lists are gone.
#include "objectgraph/object_memory.h"

#include <new>

namespace lumeo::objectmemory {

namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kClasses = kLargestKeptBlock / kGranule;

struct FreeBlock {
  FreeBlock* next;
};

struct Cache {
  FreeBlock* heads[kClasses] = {};
  std::size_t bytes = 0;
  ~Cache();
};

// Whether this thread's cache may be used: 0 before it is made, 1 while it
// lives, 2 after its destructor ran (objects freed by later thread-exit or
// static destructors then go straight back to the system). A plain int, so
// reading it needs no thread-local guard.
thread_local int cacheState = 0;

Cache& cache() {
  thread_local Cache instance;
  cacheState = 1;
  return instance;
}

Cache::~Cache() {
  cacheState = 2;
  for (FreeBlock*& head : heads) {
    while (head) {
      FreeBlock* next = head->next;
      ::operator delete(head);
      head = next;
    }
  }
  bytes = 0;
}

}  // namespace

void* allocate(std::size_t bytes) {
  if (bytes == 0) bytes = 1;
  if (bytes > kLargestKeptBlock || cacheState == 2) return ::operator new(bytes);
  const std::size_t index = (bytes - 1) / kGranule;
  Cache& c = cache();
  if (FreeBlock* block = c.heads[index]) {
    c.heads[index] = block->next;
    c.bytes -= (index + 1) * kGranule;
    return block;
  }
  return ::operator new((index + 1) * kGranule);
}

void deallocate(void* block, std::size_t bytes) noexcept {
  if (!block) return;
  if (bytes == 0) bytes = 1;
  if (bytes > kLargestKeptBlock || cacheState == 2) {
    ::operator delete(block);
    return;
  }
  const std::size_t index = (bytes - 1) / kGranule;
  const std::size_t size = (index + 1) * kGranule;
  Cache& c = cache();
  if (c.bytes + size > kKeptBytesPerThread) {
    ::operator delete(block);
    return;
  }
  auto* free = static_cast<FreeBlock*>(block);
  free->next = c.heads[index];
  c.heads[index] = free;
  c.bytes += size;
}

std::size_t keptBytes() { return cacheState == 1 ? cache().bytes : 0; }

}  // namespace lumeo::objectmemory
