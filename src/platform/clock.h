// Where "now" comes from. The process has one current clock: the system clock
// by default, a SimulatedClock in tests, so that delays and timeouts run in
// virtual time. Thread-safe: now() may be called from any thread.
#pragma once

#include <memory>
#include <mutex>

#include "platform/date.h"

namespace lumeo {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() const = 0;
  // True for a clock whose time moves only when told; the run loop then jumps
  // to the next due timer instead of sleeping.
  virtual bool isSimulated() const { return false; }

  static std::shared_ptr<Clock> current();
  // Installs a clock for the whole process; nullptr restores the system clock.
  static void setCurrent(std::shared_ptr<Clock> clock);
};

class SystemClock : public Clock {
 public:
  Date now() const override;
};

// Virtual time that starts at a fixed instant and moves only by advance() or
// set(). The run loop advances it to the next due timer when idle.
class SimulatedClock : public Clock {
 public:
  explicit SimulatedClock(Date start = Date::fromTimeIntervalSinceReferenceDate(0)) : now_(start) {}
  Date now() const override;
  bool isSimulated() const override { return true; }
  void advance(double seconds);
  void set(Date date);

 private:
  mutable std::mutex mutex_;
  Date now_;
};

// Installs a SimulatedClock for the lifetime of the guard (tests).
class ScopedSimulatedClock {
 public:
  explicit ScopedSimulatedClock(Date start = Date::fromTimeIntervalSinceReferenceDate(0));
  ~ScopedSimulatedClock();
  SimulatedClock& clock() { return *clock_; }

 private:
  std::shared_ptr<SimulatedClock> clock_;
  std::shared_ptr<Clock> previous_;
};

}  // namespace lumeo
