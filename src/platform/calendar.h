// The calendar that turns instants into calendar facts (year, month, day,
// weekday, week) and back, in a locale and a time zone. Calendar::current()
// is the user's calendar as it is at the moment of the call; all the journal's
// periods, charts and month pages are computed on it.
#pragma once

#include <unicode/uversion.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/date_components.h"
#include "platform/time_zone.h"

U_NAMESPACE_BEGIN
class Calendar;
U_NAMESPACE_END

namespace lumeo {

// A stretch of time: its start and its length in seconds.
struct DateInterval {
  Date start;
  double duration = 0;
  Date end() const { return start.dateByAddingTimeInterval(duration); }
  friend bool operator==(const DateInterval&, const DateInterval&) = default;
};

// A range of field values: `location` is the first, `length` the count
// (days in a month: location 1, length 28 to 31).
struct UnitRange {
  std::int64_t location = 0;
  std::int64_t length = 0;
  friend bool operator==(const UnitRange&, const UnitRange&) = default;
};

// Not thread-safe: one Calendar object must not be used by two threads at
// once (the ICU calendar inside is a scratch pad). Copies are independent, and
// current() makes a new one at each call, which is the usual way to get one.
class Calendar {
 public:
  // Name of the environment variable that overrides the locale's first
  // weekday (1 Sunday .. 7 Saturday). Meant for tests and for users whose
  // locale gets it wrong; values outside 1..7 are ignored.
  static constexpr const char* kFirstWeekdayVariable = "LUMEO_FIRST_WEEKDAY";

  // The user's calendar now: Gregorian unless the locale asks for another
  // with a keyword ("th_TH@calendar=buddhist"), in the locale from
  // userLocaleIdentifier(), the zone
  // TimeZone::current(), and the locale's first weekday unless
  // LUMEO_FIRST_WEEKDAY says otherwise. Nothing is cached: a change of TZ,
  // LANG or LUMEO_FIRST_WEEKDAY shows in the next call.
  static Calendar current();
  // The Gregorian calendar with the user's locale, zone and first weekday.
  static Calendar gregorian();
  // A calendar for a given ICU locale (its first weekday, and its calendar
  // keyword if it has one) and zone. LUMEO_FIRST_WEEKDAY does not apply.
  Calendar(const std::string& localeIdentifier, const TimeZone& timeZone);

  Calendar(const Calendar& other);
  Calendar& operator=(const Calendar& other);
  Calendar(Calendar&&) noexcept;
  Calendar& operator=(Calendar&&) noexcept;
  ~Calendar();

  // "gregorian", "buddhist", "japanese", ... as ICU names them.
  std::string identifier() const;
  const std::string& localeIdentifier() const { return locale_; }
  const TimeZone& timeZone() const { return zone_; }
  void setTimeZone(const TimeZone& zone);
  // 1 is Sunday, 2 Monday, ... 7 Saturday.
  int firstWeekday() const;
  void setFirstWeekday(int weekday);
  // Days that the first week of a year must have in that year (1 in the
  // United States, 4 for ISO weeks as in most of Europe).
  int minimumDaysInFirstWeek() const;
  void setMinimumDaysInFirstWeek(int days);

  // The fields of `units` at that instant; fields outside the set stay unset.
  // Year is the year within the era; quarter is 1..4 by month.
  DateComponents components(CalendarUnit units, Date date) const;
  std::int64_t component(CalendarUnit unit, Date date) const;

  // The instant that the components name, read leniently: out-of-range
  // fields carry over (month 13, day 0, minute -5), unset fields take their
  // smallest value (1 January 1970, 00:00:00 when nothing is set). A day of
  // the month wins over week fields; without a day, weekday with
  // weekOfMonth or weekdayOrdinal picks a day of the month, and weekday with
  // weekOfYear (and yearForWeekOfYear or year) a day of the year. A wall time
  // that a daylight-saving change skips is read with the offset before the
  // change, so 00:30 on a day that jumps from 00:00 to 01:00 is 01:30.
  // nullopt only for fields far outside the calendar's range.
  std::optional<Date> dateFromComponents(const DateComponents& components) const;

  // Adds each set field, largest unit first. Adding months or years keeps
  // the day of the month where it can and clips it to the last day of a
  // shorter month (31 January + 1 month = 28 or 29 February). Days keep the
  // wall time across a daylight-saving change; hours and smaller add elapsed
  // time. With `wrappingComponents` a field rolls within its unit without
  // carrying into larger ones.
  std::optional<Date> dateByAddingComponents(const DateComponents& components, Date date,
                                             bool wrappingComponents = false) const;
  std::optional<Date> dateByAddingUnit(CalendarUnit unit, std::int64_t value, Date date) const;

  // The difference from `from` to `to` broken into the fields of `units`,
  // largest first: each field is the whole number of its unit that fits
  // after the larger ones, so 1 month and 2 days gives month 1, day 2.
  // Negative when `to` is earlier. Weekday and weekday ordinal count weeks,
  // as week of month and week of year do.
  DateComponents componentsFromDate(CalendarUnit units, Date from, Date to) const;

  // The period of `unit` that holds the date: its first instant and length.
  // Supported: era, year, quarter, month, week of year or month (from the
  // first weekday), day, weekday, hour, minute, second. nullopt otherwise.
  std::optional<DateInterval> rangeOfUnit(CalendarUnit unit, Date date) const;
  // First instant of the day (00:00, or the first wall time after a
  // daylight-saving jump at midnight).
  Date startOfDay(Date date) const;
  bool isDateInSameDay(Date a, Date b) const;

  // The values that `smaller` takes within the `larger` period holding the
  // date: day in month, day in year, month in year, week of month in month,
  // week of year in year, hour in day. nullopt for other pairs.
  std::optional<UnitRange> rangeOfUnit(CalendarUnit smaller, CalendarUnit larger, Date date) const;
  // The widest range a field can take in this calendar: weekday 1..7 (7),
  // day 1..31 (31), month 1..12, hour 0..23.
  std::optional<UnitRange> maximumRangeOfUnit(CalendarUnit unit) const;

  // Names in the calendar's locale, Sunday first for weekdays, January
  // first for months.
  std::vector<std::string> weekdaySymbols() const;
  std::vector<std::string> shortWeekdaySymbols() const;
  std::vector<std::string> veryShortWeekdaySymbols() const;
  std::vector<std::string> monthSymbols() const;
  std::vector<std::string> shortMonthSymbols() const;

  // The ICU calendar behind this one, for the formatter.
  const icu::Calendar& icuCalendar() const { return *calendar_; }

 private:
  Calendar(std::unique_ptr<icu::Calendar> calendar, std::string locale, TimeZone zone);
  static Calendar makeCurrent(bool gregorian);

  mutable std::unique_ptr<icu::Calendar> calendar_;
  std::string locale_;
  TimeZone zone_;
};

}  // namespace lumeo
