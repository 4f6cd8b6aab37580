// An instant in time, held as seconds since 1 January 1970 UTC. Calendar
// facts (day, month, time zone) come from Calendar; "now" comes from the
// injected Clock so that tests run on virtual time.
#pragma once

#include <compare>

namespace lumeo {

class Date {
 public:
  // Seconds between 1970-01-01 and 2001-01-01, the platform's reference date.
  static constexpr double kReferenceDateOffset = 978307200.0;

  constexpr Date() = default;
  static constexpr Date fromTimeIntervalSince1970(double seconds) { return Date(seconds); }
  static constexpr Date fromTimeIntervalSinceReferenceDate(double seconds) {
    return Date(seconds + kReferenceDateOffset);
  }
  static Date now();  // Clock::current().now()
  static constexpr Date distantPast() { return Date(-62135769600.0); }
  static constexpr Date distantFuture() { return Date(64092211200.0); }

  constexpr double timeIntervalSince1970() const { return seconds_; }
  constexpr double timeIntervalSinceReferenceDate() const { return seconds_ - kReferenceDateOffset; }
  constexpr double timeIntervalSinceDate(Date other) const { return seconds_ - other.seconds_; }
  constexpr Date dateByAddingTimeInterval(double seconds) const { return Date(seconds_ + seconds); }

  friend constexpr auto operator<=>(const Date&, const Date&) = default;
  friend constexpr bool operator==(const Date&, const Date&) = default;

 private:
  constexpr explicit Date(double seconds) : seconds_(seconds) {}
  double seconds_ = 0;
};

}  // namespace lumeo
