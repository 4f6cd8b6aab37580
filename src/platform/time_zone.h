// Time zones: the user's current zone (read from TZ at every call, so a change
// of zone takes effect at once), GMT, and zones by name. A TimeZone is an
// immutable value, cheap to copy and safe to share between threads.
#pragma once

#include <unicode/uversion.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"

U_NAMESPACE_BEGIN
class TimeZone;
U_NAMESPACE_END

namespace lumeo {

class TimeZone {
 public:
  // The user's zone as it is now. TZ decides, as for the C library: an Olson
  // name ("Europe/Berlin", also with a leading ':' or as a path under
  // /usr/share/zoneinfo), or a POSIX rule ("CET-1CEST,M3.5.0,M10.5.0/3",
  // "EST5"). Unset or empty TZ gives the system zone (/etc/localtime); a TZ
  // that names nothing gives UTC, as the C library does. Never cached.
  static TimeZone current();
  // The system zone regardless of TZ.
  static TimeZone system();
  static TimeZone gmt();
  // A zone by Olson name or "GMT+02:00"-style offset; nullopt if unknown.
  static std::optional<TimeZone> named(const std::string& identifier);
  // A fixed offset east of GMT.
  static TimeZone withSecondsFromGMT(int seconds);

  const std::string& identifier() const { return identifier_; }
  // Offset of local time from GMT at that instant, daylight saving included.
  int secondsFromGMT(Date date) const;
  bool isDaylightSavingTime(Date date) const;

  // The ICU zone behind this one, for the calendar and formatter code.
  const icu::TimeZone& icuZone() const { return *zone_; }

  friend bool operator==(const TimeZone& a, const TimeZone& b);

 private:
  TimeZone(std::shared_ptr<const icu::TimeZone> zone, std::string identifier);
  static std::optional<TimeZone> fromTZValue(const std::string& value);

  std::shared_ptr<const icu::TimeZone> zone_;
  std::string identifier_;
};

}  // namespace lumeo
