// The one scheduler behind every delayed call of the process (DispatchQueue::after
// and the free after()). A delayed call holds a due date on Clock::current()
// and the queue it goes to; when it falls due it is posted to that queue.
//
// Contract:
// - On the system clock a scheduler thread posts calls as they fall due, so
//   delays on serial and global queues fire without a running main loop;
//   the main loop also fires due calls on each pass.
// - On a simulated clock nothing fires by itself: due calls are posted by
//   fireDueTimers(), which every MainLoop pass calls. When every queue is
//   quiet, MainLoop::runFor/runUntil/runUntilIdle move the simulated clock to
//   the next due call, on whichever queue it is, so virtual time runs
//   instantly and in the same order every time.
// - A call scheduled on a simulated clock belongs to that clock: it never
//   fires on another clock and is dropped once that clock is gone, so a test's
//   leftover delays cannot leak into the next test or into real time.
// - Calls due at the same instant are posted in the order they were scheduled.
// - A cancelled call leaves the schedule at once, so virtual time never moves
//   to it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/date.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

class Clock;

class TimerScheduler {
 public:
  // Posts a block to the queue that the call is for; may drop it when that
  // queue no longer exists.
  using Poster = std::function<void(Block)>;

  static TimerScheduler& shared();

  // Posts `block` through `post` once `seconds` have passed on Clock::current().
  // A delay of zero or less posts at once. `forMainQueue` marks calls that
  // secondsUntilNextTimer() of the main loop reports.
  DelayedCall schedule(double seconds, Poster post, Block block, bool forMainQueue);

  // Posts every call that is due on the current clock; returns how many.
  int fireDueTimers();
  // Due date of the earliest call that can fire on the current clock
  // (only main-queue calls when `mainQueueOnly`).
  std::optional<Date> nextDueDate(bool mainQueueOnly = false);
  // Calls waiting on the current clock.
  int pendingCount();
  // Grows with every schedule() and remove(): a loop that read nextDueDate() can tell
  // whether a call arrived since.
  std::uint64_t generation() const;
  // Drops every waiting call (a test that wants a clean slate).
  void cancelAll();
  // Removes one waiting call; false if it was no longer waiting here.
  bool remove(std::uint64_t id);

  TimerScheduler(const TimerScheduler&) = delete;
  TimerScheduler& operator=(const TimerScheduler&) = delete;

 private:
  TimerScheduler();
  ~TimerScheduler();
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lumeo
