// Delayed calls of every queue, kept in due order on the process clock; a
// thread posts them in real time, the main loop in virtual time.
#include "platform/timer_scheduler.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/clock.h"
#include "platform/queue_runtime.h"

namespace lumeo {

namespace {

struct Entry {
  bool simulated = false;
  std::weak_ptr<Clock> clock;  // the simulated clock the call belongs to
  TimerScheduler::Poster post;
  Block block;
  bool forMainQueue = false;
};

// Ordered by due time, then by the order of scheduling.
using Key = std::pair<double, std::uint64_t>;

}  // namespace

struct TimerScheduler::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<Key, Entry> entries;
  std::uint64_t nextSequence = 0;
  bool threadStarted = false;

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

  // Earliest active entry; drops dead ones on the way. Caller holds mutex.
  std::map<Key, Entry>::iterator firstActive(const std::shared_ptr<Clock>& clock, bool mainOnly) {
    for (auto it = entries.begin(); it != entries.end();) {
      bool dead;
      if (active(it->second, clock, dead)) {
        if (!mainOnly || it->second.forMainQueue) return it;
      } else if (dead) {
        it = entries.erase(it);
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
      auto first = firstActive(clock, false);
      if (first == entries.end()) {
        changed.wait_for(lock, kLongestNap);
        continue;
      }
      double remaining = first->first.first - clock->now().timeIntervalSince1970();
      if (remaining > 0) {
        auto nap = std::min<nanoseconds>(duration_cast<nanoseconds>(duration<double>(remaining)), kLongestNap);
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

void TimerScheduler::schedule(double seconds, Poster post, Block block, bool forMainQueue) {
  if (!(seconds > 0)) {
    post(std::move(block));
    return;
  }
  std::shared_ptr<Clock> clock = Clock::current();
  double due = clock->now().timeIntervalSince1970() + seconds;
  Entry e;
  e.simulated = clock->isSimulated();
  if (e.simulated) e.clock = clock;
  e.post = std::move(post);
  e.block = std::move(block);
  e.forMainQueue = forMainQueue;
  {
    std::lock_guard lock(state_->mutex);
    state_->entries.emplace(Key{due, state_->nextSequence++}, std::move(e));
    if (!clock->isSimulated()) state_->startThread(state_);
  }
  state_->changed.notify_all();
  // A main loop sleeping until its next timer must look again.
  if (forMainQueue) runtime::notifyMainLoop();
}

int TimerScheduler::fireDueTimers() {
  std::shared_ptr<Clock> clock = Clock::current();
  double now = clock->now().timeIntervalSince1970();
  std::vector<Entry> due;
  {
    std::lock_guard lock(state_->mutex);
    for (auto it = state_->entries.begin(); it != state_->entries.end() && it->first.first <= now;) {
      bool dead;
      if (State::active(it->second, clock, dead)) {
        due.push_back(std::move(it->second));
        it = state_->entries.erase(it);
      } else if (dead) {
        it = state_->entries.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (Entry& e : due) e.post(std::move(e.block));
  return static_cast<int>(due.size());
}

std::optional<Date> TimerScheduler::nextDueDate(bool mainQueueOnly) {
  std::shared_ptr<Clock> clock = Clock::current();
  std::lock_guard lock(state_->mutex);
  auto it = state_->firstActive(clock, mainQueueOnly);
  if (it == state_->entries.end()) return std::nullopt;
  return Date::fromTimeIntervalSince1970(it->first.first);
}

int TimerScheduler::pendingCount() {
  std::shared_ptr<Clock> clock = Clock::current();
  std::lock_guard lock(state_->mutex);
  int n = 0;
  for (auto it = state_->entries.begin(); it != state_->entries.end();) {
    bool dead;
    if (State::active(it->second, clock, dead)) ++n;
    it = dead ? state_->entries.erase(it) : std::next(it);
  }
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
}

}  // namespace lumeo
