// Bookkeeping shared by the queue implementations (not for use outside the
// runtime files): which queues the calling thread is working for, the main
// queue's storage, and the count of outstanding background work that lets a
// main loop on a simulated clock move time only when every queue is quiet.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/dispatch_queue.h"

namespace lumeo::runtime {

// Identity of a queue (DispatchQueue or OperationQueue) in a context stack.
using QueueId = const void*;

// The queues on whose behalf the calling thread runs: the queue of the block
// it runs and, when that block was entered through sync(), the queues whose
// threads are blocked waiting for it. The process's main thread always
// counts as working for the main queue.
class QueueContext {
 public:
  static std::vector<QueueId> current();
  static bool contains(QueueId id);

  // Replaces the calling thread's stack for the lifetime of the scope.
  class Scope {
   public:
    explicit Scope(std::vector<QueueId> stack);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    std::vector<QueueId> saved_;
  };
};

// The process's main thread (on Linux the thread whose id is the process id).
bool isProcessMainThread();

// Runs one block of `queueLabel`; an exception that escapes an asynchronous
// block is logged as an error and does not take the worker down.
void runBlockLoggingExceptions(const Block& block, const std::string& queueLabel);

// Background work: a block queued or running on any queue but the main one.
void beginBackgroundWork();
void endBackgroundWork();
int backgroundWorkCount();

// The main queue's blocks and the state of the loop that drains them.
struct MainQueueState {
  std::mutex mutex;
  std::condition_variable changed;  // a block arrived, quit, or background went quiet
  std::deque<Block> blocks;
  std::function<void()> wakeUpHandler;
  int runDepth = 0;
  bool quitRequested = false;
};
MainQueueState& mainQueueState();

// Wakes a main loop that waits for blocks, quiet or quit. `wakeHost` also
// calls the host loop's wake-up handler: for new main-queue work only, not
// for background work going quiet, which a host loop has no use for.
void notifyMainLoop(bool wakeHost = true);

// The main queue's identity in context stacks.
QueueId mainQueueId();

}  // namespace lumeo::runtime
