// The main loop: drains the main queue on the main thread, fires due delayed
// calls, and on a simulated clock moves virtual time to the next delayed call
// once every queue of the process is quiet.
#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "platform/clock.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/queue_runtime.h"
#include "platform/timer_scheduler.h"

namespace lumeo {

namespace {

using runtime::MainQueueState;

// Longest real-time sleep between looks at the clock: the process clock may
// be swapped (a test installs a simulated one) while the loop sleeps.
constexpr std::chrono::milliseconds kLongestNap(250);
// Real time after which a loop on virtual time that waits for background
// work says so in the log.
constexpr std::chrono::seconds kStallHint(10);

// What ends a run.
struct RunGoal {
  const std::function<bool()>* condition = nullptr;  // ends when true
  std::optional<Date> deadline;                      // clock time to stop at
  bool endWhenIdle = false;  // ends when nothing is ready and no call is due before the deadline
  bool endOnQuit = false;
};

bool mainQueueEmpty(MainQueueState& s) {
  return s.blocks.empty();
}

// Runs the blocks that were on the main queue when it was called.
int runReadyBlocks() {
  MainQueueState& s = runtime::mainQueueState();
  std::size_t ready;
  {
    std::lock_guard lock(s.mutex);
    ready = s.blocks.size();
  }
  int ran = 0;
  for (std::size_t i = 0; i < ready; ++i) {
    Block block;
    {
      std::lock_guard lock(s.mutex);
      if (s.blocks.empty()) break;
      block = std::move(s.blocks.front());
      s.blocks.pop_front();
    }
    runtime::QueueContext::Scope scope({runtime::mainQueueId()});
    runtime::runBlockLoggingExceptions(block, "main");
    ++ran;
  }
  return ran;
}

bool takeQuit() {
  MainQueueState& s = runtime::mainQueueState();
  std::lock_guard lock(s.mutex);
  return std::exchange(s.quitRequested, false);
}

std::chrono::nanoseconds napUntil(std::optional<Date> wake, Date now) {
  using namespace std::chrono;
  if (!wake) return kLongestNap;
  double seconds = std::max(0.0, wake->timeIntervalSinceDate(now));
  return std::min<nanoseconds>(duration_cast<nanoseconds>(duration<double>(seconds)), kLongestNap);
}

// The one loop behind run, runFor, runUntil and runUntilIdle. Returns whether
// the condition (or quit) ended it.
bool drive(const RunGoal& goal) {
  MainQueueState& s = runtime::mainQueueState();
  TimerScheduler& timers = TimerScheduler::shared();
  for (;;) {
    int ran = MainLoop::shared().runOnce();
    if (goal.condition && (*goal.condition)()) return true;
    if (goal.endOnQuit && takeQuit()) return true;
    if (ran > 0) continue;

    std::shared_ptr<Clock> clock = Clock::current();
    Date now = clock->now();
    bool simulated = clock->isSimulated();
    bool pastDeadline = goal.deadline && now >= *goal.deadline;
    // In real time the deadline is the deadline. In virtual time the run
    // first lets every queue settle, so the result does not depend on how
    // fast the threads happened to be.
    if (pastDeadline && !simulated && !goal.endWhenIdle) return false;

    // Asked before taking the main queue's lock: looking at the schedule may
    // release blocks of abandoned calls, whose captures may post to main.
    std::uint64_t scheduleSeen = timers.generation();
    std::optional<Date> next = timers.nextDueDate();
    std::unique_lock lock(s.mutex);
    if (!mainQueueEmpty(s) || (goal.endOnQuit && s.quitRequested)) continue;
    auto somethingHappened = [&] {
      return !mainQueueEmpty(s) || runtime::backgroundWorkCount() == 0 || (goal.endOnQuit && s.quitRequested);
    };
    if (runtime::backgroundWorkCount() > 0) {
      // Background blocks may still post here or schedule delayed calls.
      if (simulated) {
        // Virtual time must not move while a background block runs, however
        // long it takes; a hint helps when a block waits for virtual time.
        if (!s.changed.wait_for(lock, kStallHint, somethingHappened)) {
          LUMEO_LOG_WARNING("Virtual time is held: %d background blocks have not finished for %d seconds",
                            runtime::backgroundWorkCount(), static_cast<int>(kStallHint.count()));
          s.changed.wait(lock, somethingHappened);
        }
      } else {
        s.changed.wait_for(lock, napUntil(next, now), somethingHappened);
      }
      continue;
    }

    // Every queue is quiet. A block that finished just now may have asked
    // for a call earlier than `next`: look again before moving time.
    if (timers.generation() != scheduleSeen) continue;
    if (pastDeadline) return goal.condition ? (*goal.condition)() : false;
    if (next && *next <= now) continue;  // due: the next pass fires it
    bool nextWithinDeadline = next && (!goal.deadline || *next <= *goal.deadline);
    if (goal.endWhenIdle && !nextWithinDeadline) return false;

    auto* simulatedClock = simulated ? dynamic_cast<SimulatedClock*>(clock.get()) : nullptr;
    if (simulatedClock && (nextWithinDeadline || goal.deadline)) {
      lock.unlock();
      simulatedClock->set(nextWithinDeadline ? *next : *goal.deadline);
      continue;
    }
    // Real time, or virtual time with nothing to move to: sleep until the
    // next call falls due, the deadline passes, or something arrives.
    std::optional<Date> wake = next;
    if (goal.deadline && (!wake || *goal.deadline < *wake)) wake = goal.deadline;
    if (simulated) wake.reset();  // virtual time does not pass by sleeping
    s.changed.wait_for(lock, napUntil(wake, now),
                       [&] { return !mainQueueEmpty(s) || (goal.endOnQuit && s.quitRequested); });
  }
}

// Counts nested run() calls so that quit() outside any run is ignored.
struct RunDepthGuard {
  RunDepthGuard() {
    MainQueueState& s = runtime::mainQueueState();
    std::lock_guard lock(s.mutex);
    ++s.runDepth;
  }
  ~RunDepthGuard() {
    MainQueueState& s = runtime::mainQueueState();
    std::lock_guard lock(s.mutex);
    --s.runDepth;
    if (s.runDepth == 0) s.quitRequested = false;
  }
};

}  // namespace

MainLoop& MainLoop::shared() {
  static MainLoop loop;
  return loop;
}

void MainLoop::run() {
  RunDepthGuard depth;
  RunGoal goal;
  goal.endOnQuit = true;
  drive(goal);
}

void MainLoop::quit() {
  MainQueueState& s = runtime::mainQueueState();
  {
    std::lock_guard lock(s.mutex);
    if (s.runDepth == 0) return;
    s.quitRequested = true;
  }
  s.changed.notify_all();
}

int MainLoop::runOnce() {
  TimerScheduler::shared().fireDueTimers();
  return runReadyBlocks();
}

void MainLoop::runUntilIdle(double maxWaitSeconds) {
  RunGoal goal;
  goal.endWhenIdle = true;
  goal.deadline = Date::now().dateByAddingTimeInterval(std::max(0.0, maxWaitSeconds));
  drive(goal);
}

void MainLoop::runFor(double seconds) {
  RunGoal goal;
  goal.deadline = Date::now().dateByAddingTimeInterval(std::max(0.0, seconds));
  drive(goal);
}

bool MainLoop::runUntil(const std::function<bool()>& condition, double timeoutSeconds) {
  RunGoal goal;
  goal.condition = &condition;
  goal.deadline = Date::now().dateByAddingTimeInterval(std::max(0.0, timeoutSeconds));
  return drive(goal);
}

double MainLoop::secondsUntilNextTimer() const {
  std::optional<Date> next = TimerScheduler::shared().nextDueDate(true);
  if (!next) return -1;
  return std::max(0.0, next->timeIntervalSinceDate(Date::now()));
}

bool MainLoop::isMainThread() const {
  return runtime::isProcessMainThread();
}

void MainLoop::setWakeUpHandler(std::function<void()> handler) {
  MainQueueState& s = runtime::mainQueueState();
  std::lock_guard lock(s.mutex);
  s.wakeUpHandler = std::move(handler);
}

}  // namespace lumeo
