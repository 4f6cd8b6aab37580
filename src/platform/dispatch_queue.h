// Queues of work: the main queue that the main loop drains, serial background
// queues, a concurrent global queue, delayed calls and operation queues with a
// maximum concurrency. Delays are measured on Clock::current(), so with a
// SimulatedClock they run in virtual time: MainLoop jumps the clock to the
// next due call when nothing else is ready.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace lumeo {

using Block = std::function<void()>;

class DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;

  // The queue that MainLoop runs on the main thread.
  static DispatchQueue& main();
  // A concurrent queue of background priority.
  static DispatchQueue& global();
  // A new serial queue with its own worker thread; blocks run one at a time
  // in the order they were added.
  static std::shared_ptr<DispatchQueue> makeSerial(const std::string& label);

  virtual void async(Block block) = 0;
  // Runs the block on the queue and waits for it. Calling sync on the queue
  // one is running on runs the block at once instead of deadlocking.
  virtual void sync(Block block) = 0;
  // Runs the block on the queue `seconds` from now on Clock::current().
  virtual void after(double seconds, Block block) = 0;
  // True when the calling thread is running a block of this queue.
  virtual bool isCurrent() const = 0;
  virtual const std::string& label() const = 0;
};

// Delayed call on the main queue: after(20, block).
void after(double seconds, Block block);

// An operation queue: operations run on background threads, at most
// maxConcurrentOperationCount at a time (1 makes it serial, in order).
class OperationQueue {
 public:
  explicit OperationQueue(int maxConcurrentOperationCount = 1, std::string name = {});
  ~OperationQueue();  // waits for the running operations, drops the queued ones
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  void addOperation(Block block);
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;
  // Drops the operations that have not started; running ones finish.
  void cancelAllOperations();
  void waitUntilAllOperationsAreFinished();
  int operationCount() const;  // queued plus running
  void setSuspended(bool suspended);
  bool isSuspended() const;
  // True when called from inside an operation of this queue.
  bool isCurrent() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The main loop: drains the main queue and fires due delayed calls on the
// main thread (the thread that calls run*). The GUI drives it from Qt's event
// loop through runOnce(); the CLI and the tests run it themselves.
class MainLoop {
 public:
  static MainLoop& shared();

  // Runs until quit() is called.
  void run();
  void quit();
  // Runs every block that is ready now and returns how many ran; never waits.
  int runOnce();
  // Runs until no block is ready and no delayed call is due within
  // `maxWaitSeconds` (on a simulated clock, pending delayed calls are brought
  // due by moving the clock forward, up to that limit).
  void runUntilIdle(double maxWaitSeconds = 0);
  // Runs for `seconds` of clock time, firing delayed calls as they fall due;
  // on a simulated clock this returns at once with the clock moved on.
  void runFor(double seconds);
  // Runs until `condition` is true or `timeoutSeconds` of clock time pass;
  // returns the condition's last value.
  bool runUntil(const std::function<bool()>& condition, double timeoutSeconds);
  // Seconds until the next delayed main-queue call, or a negative value.
  double secondsUntilNextTimer() const;
  bool isMainThread() const;
};

}  // namespace lumeo
