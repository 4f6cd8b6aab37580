// The process-wide clock and its simulated twin.
#include "platform/clock.h"

#include <chrono>

namespace lumeo {

namespace {
// Never destroyed: the queues' worker threads read the clock until the
// process is gone, also while static objects are being torn down.
std::mutex& clockMutex() {
  static std::mutex& m = *new std::mutex;
  return m;
}
std::shared_ptr<Clock>& clockSlot() {
  static std::shared_ptr<Clock>& slot = *new std::shared_ptr<Clock>(std::make_shared<SystemClock>());
  return slot;
}
}  // namespace

Date Date::now() {
  return Clock::current()->now();
}

std::shared_ptr<Clock> Clock::current() {
  std::lock_guard lock(clockMutex());
  return clockSlot();
}

void Clock::setCurrent(std::shared_ptr<Clock> clock) {
  std::lock_guard lock(clockMutex());
  clockSlot() = clock ? std::move(clock) : std::make_shared<SystemClock>();
}

Date SystemClock::now() const {
  using namespace std::chrono;
  double s = duration_cast<duration<double>>(system_clock::now().time_since_epoch()).count();
  return Date::fromTimeIntervalSince1970(s);
}

Date SimulatedClock::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

void SimulatedClock::advance(double seconds) {
  std::lock_guard lock(mutex_);
  now_ = now_.dateByAddingTimeInterval(seconds);
}

void SimulatedClock::set(Date date) {
  std::lock_guard lock(mutex_);
  now_ = date;
}

ScopedSimulatedClock::ScopedSimulatedClock(Date start)
    : clock_(std::make_shared<SimulatedClock>(start)), previous_(Clock::current()) {
  Clock::setCurrent(clock_);
}

ScopedSimulatedClock::~ScopedSimulatedClock() {
  Clock::setCurrent(previous_);
}

}  // namespace lumeo
