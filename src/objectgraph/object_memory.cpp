// Per-thread free lists of the blocks objects use, in 16-byte size classes,
// filled from one arena of address space backed by huge pages where the
// system offers them. A fetch of 100,000 objects touches about 45 MB; in
// 4 KB pages that is more than 10,000 page faults the first time, in 2 MB
// pages a few dozen. The arena is reserved once (64 MB of address space,
// committed only as blocks are carved) and its blocks are reused for the
// life of the process. Once it is used up, blocks are plain operator new
// allocations again, kept per thread up to a limit and otherwise given back.
#include "objectgraph/object_memory.h"

#include <pthread.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

namespace lumeo::objectmemory {

namespace {

// Under AddressSanitizer every block goes straight to operator new and back,
// so that a use after free is caught rather than hidden by reuse.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPassThrough = true;
#else
constexpr bool kPassThrough = false;
#endif

constexpr std::size_t kGranule = 16;
constexpr std::size_t kClasses = kLargestKeptBlock / kGranule;
constexpr std::size_t kArenaBytes = std::size_t{64} << 20;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Blocks carved from the arena at a time, so that threads rarely meet at its
// lock.
constexpr std::size_t kRefillBytes = std::size_t{16} << 10;

struct FreeBlock {
  FreeBlock* next;
};

std::size_t classOf(std::size_t bytes) {
  return (bytes - 1) / kGranule;
}
std::size_t sizeOfClass(std::size_t index) {
  return (index + 1) * kGranule;
}

// The arena: set once, then read without the lock by every deallocate.
std::atomic<char*> arenaBase{nullptr};
std::atomic<char*> arenaEnd{nullptr};

struct Arena {
  std::mutex mutex;
  bool reserved = false;
  char* next = nullptr;
  // Arena blocks of threads that ended, for other threads to reuse.
  FreeBlock* orphans[kClasses] = {};

  void reserve() {
    reserved = true;
    void* p = mmap(nullptr, kArenaBytes + kHugePage, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) return;  // blocks then come from operator new
    auto address = reinterpret_cast<std::uintptr_t>(p);
    char* base = reinterpret_cast<char*>((address + kHugePage - 1) & ~(kHugePage - 1));
    madvise(base, kArenaBytes, MADV_HUGEPAGE);  // a hint; without it pages are small
    next = base;
    arenaEnd.store(base + kArenaBytes, std::memory_order_release);
    arenaBase.store(base, std::memory_order_release);
  }

  // A list of free blocks of the class, or null when the arena is used up.
  FreeBlock* refill(std::size_t index) {
    std::lock_guard<std::mutex> lock(mutex);
    if (FreeBlock* list = orphans[index]) {
      orphans[index] = nullptr;
      return list;
    }
    if (!reserved) reserve();
    char* end = arenaEnd.load(std::memory_order_relaxed);
    if (!next) return nullptr;
    const std::size_t size = sizeOfClass(index);
    std::size_t count = kRefillBytes / size;
    if (static_cast<std::size_t>(end - next) / size < count)
      count = static_cast<std::size_t>(end - next) / size;
    FreeBlock* list = nullptr;
    for (std::size_t i = 0; i < count; ++i) {
      auto* block = reinterpret_cast<FreeBlock*>(next + (count - 1 - i) * size);
      block->next = list;
      list = block;
    }
    next += count * size;
    return list;
  }

  void adopt(std::size_t index, FreeBlock* block) {
    std::lock_guard<std::mutex> lock(mutex);
    block->next = orphans[index];
    orphans[index] = block;
  }
};

// Never destroyed: blocks may be freed by static destructors at exit. A fork
// waits until no thread is inside the arena, so that the child never finds
// its lock taken by a thread that does not exist there.
Arena& arena() {
  static Arena* instance = [] {
    auto* a = new Arena();
    pthread_atfork([] { arena().mutex.lock(); }, [] { arena().mutex.unlock(); },
                   [] { arena().mutex.unlock(); });
    return a;
  }();
  return *instance;
}

bool inArena(const void* block) {
  const char* base = arenaBase.load(std::memory_order_acquire);
  const char* p = static_cast<const char*>(block);
  return base && p >= base && p < arenaEnd.load(std::memory_order_relaxed);
}

struct Cache {
  FreeBlock* heads[kClasses] = {};
  std::size_t bytes = 0;  // of kept blocks that are not from the arena
  ~Cache();
};

// Whether this thread's cache may be used: 0 before it is made, 1 while it
// lives, 2 after its destructor ran (blocks freed by later thread-exit or
// static destructors then go straight back). A plain int, so reading it
// needs no thread-local guard.
thread_local int cacheState = 0;

Cache& cache() {
  thread_local Cache instance;
  cacheState = 1;
  return instance;
}

Cache::~Cache() {
  cacheState = 2;
  for (std::size_t index = 0; index < kClasses; ++index) {
    while (FreeBlock* block = heads[index]) {
      heads[index] = block->next;
      if (inArena(block)) {
        arena().adopt(index, block);
      } else {
        ::operator delete(block);
      }
    }
  }
  bytes = 0;
}

}  // namespace

void* allocate(std::size_t bytes) {
  if (bytes == 0) bytes = 1;
  if (kPassThrough || bytes > kLargestKeptBlock || cacheState == 2) return ::operator new(bytes);
  const std::size_t index = classOf(bytes);
  Cache& c = cache();
  FreeBlock* block = c.heads[index];
  if (!block) block = c.heads[index] = arena().refill(index);
  if (!block) return ::operator new(sizeOfClass(index));
  c.heads[index] = block->next;
  if (!inArena(block)) c.bytes -= sizeOfClass(index);
  return block;
}

void deallocate(void* block, std::size_t bytes) noexcept {
  if (!block) return;
  if (bytes == 0) bytes = 1;
  const bool fromArena = inArena(block);
  if (kPassThrough || bytes > kLargestKeptBlock) {
    ::operator delete(block);
    return;
  }
  const std::size_t index = classOf(bytes);
  if (cacheState == 2) {
    if (fromArena) {
      arena().adopt(index, static_cast<FreeBlock*>(block));
    } else {
      ::operator delete(block);
    }
    return;
  }
  Cache& c = cache();
  if (!fromArena) {
    if (c.bytes + sizeOfClass(index) > kKeptBytesPerThread) {
      ::operator delete(block);
      return;
    }
    c.bytes += sizeOfClass(index);
  }
  auto* free = static_cast<FreeBlock*>(block);
  free->next = c.heads[index];
  c.heads[index] = free;
}

std::size_t keptBytes() {
  return cacheState == 1 ? cache().bytes : 0;
}

bool isArenaBlock(const void* block) {
  return inArena(block);
}

}  // namespace lumeo::objectmemory
