// Queues of work: the main queue that the main loop drains, serial background
// queues, a concurrent global queue, delayed calls and operation queues with a
// maximum concurrency. Delays are measured on Clock::current(), so with a
// SimulatedClock they run in virtual time: MainLoop jumps the clock to the
// next due call when nothing else is ready.
//
// Virtual time: every delayed call of every queue goes through one
// TimerScheduler (timer_scheduler.h). On a simulated clock, runFor, runUntil
// and runUntilIdle first let every queue settle (the main queue empty and no
// block queued or running on a serial, global or operation queue), then move
// the clock to the earliest delayed call and post it to its queue. A test
// therefore sees a 30-second timeout or a 20-second delay on a background
// queue happen instantly and in the same order each run. A background block
// that blocks its thread until virtual time passes would keep the queues from
// settling; wait with a delayed call instead.
//
// Exceptions: one escaping an async block is logged as an error and the queue
// goes on; one escaping a sync block reaches the caller of sync().
//
// Threads: every call may be made from any thread, except that the main
// loop's run* calls belong to the main thread. The worker threads do not
// survive fork(); a child process must exec or use no queue.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace lumeo {

using Block = std::function<void()>;

// Handle of one delayed call, returned by after(). Copies share the call.
// Dropping the handle does not cancel: `after(20, block);` fires as asked.
class DelayedCall {
 public:
  DelayedCall() = default;  // no call: cancel() does nothing

  // Stops the call unless it has already started; true if this stopped it.
  // The block is released at once. Any thread.
  bool cancel();
  // True while the call waits to fire or waits on its queue to start.
  bool isPending() const;

  struct State;
  explicit DelayedCall(std::shared_ptr<State> state) : state_(std::move(state)) {}

 private:
  std::shared_ptr<State> state_;
};

class DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;

  // The queue that MainLoop runs on the main thread. sync() from another
  // thread waits until the loop runs the block.
  static DispatchQueue& main();
  // A concurrent queue of background priority. sync() runs the block on the
  // calling thread.
  static DispatchQueue& global();
  // A new serial queue with its own worker thread; blocks run one at a time
  // in the order they were added. Dropping the last reference waits for the
  // blocks already queued, so do not drop it on a thread that one of them
  // waits for; delayed calls not yet due are dropped with the queue.
  static std::shared_ptr<DispatchQueue> makeSerial(const std::string& label);

  virtual void async(Block block) = 0;
  // Runs the block on the queue and waits for it. Calling sync on the queue
  // one is running on runs the block at once instead of deadlocking.
  virtual void sync(Block block) = 0;
  // Runs the block on the queue `seconds` from now on Clock::current().
  // The returned handle may cancel the call (a timeout that is no longer
  // needed); callers that never cancel ignore it.
  virtual DelayedCall after(double seconds, Block block) = 0;
  // True when the calling thread is running a block of this queue, or a block
  // that such a block waits for through sync(). On the main queue, true on
  // the process's main thread.
  virtual bool isCurrent() const = 0;
  virtual const std::string& label() const = 0;
};

// Delayed call on the main queue: after(20, block).
DelayedCall after(double seconds, Block block);

// An operation queue: operations run on background threads, at most
// maxConcurrentOperationCount at a time (1 makes it serial, in order).
class OperationQueue {
 public:
  // A negative count means no limit; 0 starts nothing until it is raised.
  explicit OperationQueue(int maxConcurrentOperationCount = 1, std::string name = {});
  ~OperationQueue();  // waits for the running operations, drops the queued ones
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  void addOperation(Block block);
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;
  // Drops the operations that have not started; running ones finish.
  void cancelAllOperations();
  // Waits until nothing is queued or running. Called from inside one of the
  // queue's operations it does not wait for that operation itself.
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
  // Ends the innermost run(); does nothing when no run() is active. Any thread.
  void quit();
  // Posts the delayed calls that are due, runs every main-queue block that is
  // ready now and returns how many ran; never waits and never moves the clock.
  int runOnce();
  // Runs until no block is ready, no background queue has work, and no
  // delayed call is due within `maxWaitSeconds` of the start (on a simulated
  // clock, pending delayed calls are brought due by moving the clock forward,
  // up to that limit).
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
  // Called from any thread whenever the main queue gets a block or a delayed
  // call, so that a host loop (Qt) can schedule runOnce(). Empty: none.
  void setWakeUpHandler(std::function<void()> handler);
};

}  // namespace lumeo
