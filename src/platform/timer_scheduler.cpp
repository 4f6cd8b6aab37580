// Delayed calls of every queue, kept in due order on the process clock; a
// thread posts them in real time, the main loop in virtual time.
#include "platform/timer_scheduler.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/clock.h"
#include "platform/queue_runtime.h"

namespace lumeo {

// One delayed call, shared by its handles, the schedule and the block that
// runs it on its queue. The block lives here so that cancel() can release it
// wherever the call is.
struct DelayedCall::State {
  enum Phase { kWaiting, kStarted, kCancelled };

  std::mutex mutex;
  Phase phase = kWaiting;
  Block block;
  std::uint64_t id = 0;  // its place in the schedule; 0 when posted at once

  // Takes the block to run it, unless the call was cancelled.
  Block start() {
    std::lock_guard lock(mutex);
    if (phase != kWaiting) return nullptr;
    phase = kStarted;
    return std::move(block);
  }

  // Takes the block to drop it; empty when the call had started.
  bool stop(Block& dropped) {
    std::lock_guard lock(mutex);
    if (phase != kWaiting) return false;
    phase = kCancelled;
    dropped = std::move(block);
    return true;
  }
};

bool DelayedCall::cancel() {
  if (!state_) return false;
  Block dropped;
  if (!state_->stop(dropped)) return false;
  TimerScheduler::shared().remove(state_->id);
  return true;
}

bool DelayedCall::isPending() const {
  if (!state_) return false;
  std::lock_guard lock(state_->mutex);
  return state_->phase == State::kWaiting;
}

namespace {

using CallState = std::shared_ptr<DelayedCall::State>;

struct Entry {
  bool simulated = false;
  std::weak_ptr<Clock> clock;  // the simulated clock the call belongs to
  TimerScheduler::Poster post;
  CallState call;
  bool forMainQueue = false;
};

// What the queue runs: the call's block, if nobody cancelled it meanwhile.
Block runner(CallState call) {
  return [call = std::move(call)] {
    if (Block block = call->start()) block();
  };
}

// A call that can never fire (its clock is gone, or all were cancelled).
void abandon(const CallState& call) {
  Block dropped;
  call->stop(dropped);
}

// Ordered by due time, then by the order of scheduling.
using Key = std::pair<double, std::uint64_t>;

}  // namespace

struct TimerScheduler::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<Key, Entry> entries;
  std::uint64_t nextSequence = 1;  // 0: a call that never entered the schedule
  bool threadStarted = false;
  std::atomic<std::uint64_t> generation{0};

  // Whether `e` may fire on `clock`; false and `dead` for a call whose
  // simulated clock is gone.
  static bool active(const Entry& e, const std::shared_ptr<Clock>& clock, bool& dead) {
    dead = false;
    if (!e.simulated) return !clock->isSimulated();
    std::shared_ptr<Clock> own = e.clock.lock();
    if (!own) {
      dead = true;
      return false;
    }
    return own == clock;
  }

  // Takes a dead entry out; its call goes to `dropped`, to be released by
  // the caller after the lock, since releasing a block runs its captures'
  // destructors. Caller holds mutex.
  std::map<Key, Entry>::iterator bury(std::map<Key, Entry>::iterator it, std::vector<CallState>& dropped) {
    dropped.push_back(std::move(it->second.call));
    return entries.erase(it);
  }

  // Earliest active entry; buries dead ones on the way. Caller holds mutex.
  std::map<Key, Entry>::iterator firstActive(const std::shared_ptr<Clock>& clock, bool mainOnly,
                                             std::vector<CallState>& dropped) {
    for (auto it = entries.begin(); it != entries.end();) {
      bool dead;
      if (active(it->second, clock, dead)) {
        if (!mainOnly || it->second.forMainQueue) return it;
      } else if (dead) {
        it = bury(it, dropped);
        continue;
      }
      ++it;
    }
    return entries.end();
  }

  void startThread(std::shared_ptr<State> self) {
    if (threadStarted) return;
    threadStarted = true;
    std::thread([self] { self->threadLoop(); }).detach();
  }

  // Real-time delivery. On a simulated clock the thread only watches for the
  // process to go back to real time.
  void threadLoop() {
    using namespace std::chrono;
    constexpr auto kLongestNap = milliseconds(500);
    std::unique_lock lock(mutex);
    for (;;) {
      std::shared_ptr<Clock> clock = Clock::current();
      if (clock->isSimulated()) {
        changed.wait_for(lock, kLongestNap);
        continue;
      }
      std::vector<CallState> dropped;
      auto first = firstActive(clock, false, dropped);
      if (!dropped.empty()) {
        lock.unlock();
        for (const auto& call : dropped) abandon(call);
        dropped.clear();
        lock.lock();
        continue;
      }
      if (first == entries.end()) {
        changed.wait_for(lock, kLongestNap);
        continue;
      }
      double remaining = first->first.first - clock->now().timeIntervalSince1970();
      if (remaining > 0) {
        auto nap =
            std::min<nanoseconds>(duration_cast<nanoseconds>(duration<double>(remaining)), kLongestNap);
        changed.wait_for(lock, nap);
        continue;
      }
      lock.unlock();
      TimerScheduler::shared().fireDueTimers();
      lock.lock();
    }
  }
};

TimerScheduler::TimerScheduler() : state_(std::make_shared<State>()) {}
TimerScheduler::~TimerScheduler() = default;

TimerScheduler& TimerScheduler::shared() {
  // Never destroyed: its thread and late posts may outlive static destruction.
  static TimerScheduler& scheduler = *new TimerScheduler;
  return scheduler;
}

DelayedCall TimerScheduler::schedule(double seconds, Poster post, Block block, bool forMainQueue) {
  auto call = std::make_shared<DelayedCall::State>();
  call->block = std::move(block);
  if (!(seconds > 0)) {
    post(runner(call));
    return DelayedCall(call);
  }
  std::shared_ptr<Clock> clock = Clock::current();
  double due = clock->now().timeIntervalSince1970() + seconds;
  Entry e;
  e.simulated = clock->isSimulated();
  if (e.simulated) e.clock = clock;
  e.post = std::move(post);
  e.call = call;
  e.forMainQueue = forMainQueue;
  {
    std::lock_guard lock(state_->mutex);
    call->id = state_->nextSequence++;
    state_->generation.fetch_add(1, std::memory_order_acq_rel);
    state_->entries.emplace(Key{due, call->id}, std::move(e));
    if (!clock->isSimulated()) state_->startThread(state_);
  }
  state_->changed.notify_all();
  // A main loop sleeping until its next timer must look again.
  if (forMainQueue) runtime::notifyMainLoop();
  return DelayedCall(call);
}

int TimerScheduler::fireDueTimers() {
  std::shared_ptr<Clock> clock = Clock::current();
  double now = clock->now().timeIntervalSince1970();
  std::vector<Entry> due;
  std::vector<CallState> dropped;
  {
    std::lock_guard lock(state_->mutex);
    for (auto it = state_->entries.begin(); it != state_->entries.end() && it->first.first <= now;) {
      bool dead;
      if (State::active(it->second, clock, dead)) {
        due.push_back(std::move(it->second));
        it = state_->entries.erase(it);
      } else if (dead) {
        it = state_->bury(it, dropped);
      } else {
        ++it;
      }
    }
  }
  for (const auto& call : dropped) abandon(call);
  for (Entry& e : due) e.post(runner(std::move(e.call)));
  return static_cast<int>(due.size());
}

std::optional<Date> TimerScheduler::nextDueDate(bool mainQueueOnly) {
  std::shared_ptr<Clock> clock = Clock::current();
  std::vector<CallState> dropped;
  std::optional<Date> next;
  {
    std::lock_guard lock(state_->mutex);
    auto it = state_->firstActive(clock, mainQueueOnly, dropped);
    if (it != state_->entries.end()) next = Date::fromTimeIntervalSince1970(it->first.first);
  }
  for (const auto& call : dropped) abandon(call);
  return next;
}

int TimerScheduler::pendingCount() {
  std::shared_ptr<Clock> clock = Clock::current();
  std::vector<CallState> dropped;
  int n = 0;
  {
    std::lock_guard lock(state_->mutex);
    for (auto it = state_->entries.begin(); it != state_->entries.end();) {
      bool dead;
      if (State::active(it->second, clock, dead)) ++n;
      it = dead ? state_->bury(it, dropped) : std::next(it);
    }
  }
  for (const auto& call : dropped) abandon(call);
  return n;
}

void TimerScheduler::cancelAll() {
  std::map<Key, Entry> dropped;
  {
    std::lock_guard lock(state_->mutex);
    dropped.swap(state_->entries);
  }
  // The blocks are destroyed here, outside the lock: their captures may
  // schedule or cancel in their destructors.
  for (auto& [key, e] : dropped) abandon(e.call);
}

std::uint64_t TimerScheduler::generation() const {
  return state_->generation.load(std::memory_order_acquire);
}

bool TimerScheduler::remove(std::uint64_t id) {
  if (id == 0) return false;
  Entry removed;
  {
    std::lock_guard lock(state_->mutex);
    auto it = std::find_if(state_->entries.begin(), state_->entries.end(),
                           [id](const auto& kv) { return kv.first.second == id; });
    if (it == state_->entries.end()) return false;
    removed = std::move(it->second);
    state_->entries.erase(it);
    state_->generation.fetch_add(1, std::memory_order_acq_rel);
  }
  return true;
}

}  // namespace lumeo
