// Calendar units and the broken-down form of a date. A DateComponents value is
// what Calendar reads out of an instant, builds an instant from, adds to one
// or measures between two; every field is optional so that "not set" and "0"
// stay apart, which matters because day 0 and month 13 are meaningful input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lumeo {

// One unit, or a set of units when combined with |. The values are bits so
// that a set fits in one word; their numbers are not stored anywhere.
enum class CalendarUnit : std::uint32_t {
  kNone = 0,
  kEra = 1u << 1,
  kYear = 1u << 2,
  kMonth = 1u << 3,
  kDay = 1u << 4,
  kHour = 1u << 5,
  kMinute = 1u << 6,
  kSecond = 1u << 7,
  kWeekday = 1u << 9,
  kWeekdayOrdinal = 1u << 10,
  kQuarter = 1u << 11,
  kWeekOfMonth = 1u << 12,
  kWeekOfYear = 1u << 13,
  kYearForWeekOfYear = 1u << 14,
  kNanosecond = 1u << 15,
  kTimeZone = 1u << 21,
};

constexpr CalendarUnit operator|(CalendarUnit a, CalendarUnit b) {
  return static_cast<CalendarUnit>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr CalendarUnit operator&(CalendarUnit a, CalendarUnit b) {
  return static_cast<CalendarUnit>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
// True if the set `units` holds `unit`.
constexpr bool contains(CalendarUnit units, CalendarUnit unit) {
  return (units & unit) != CalendarUnit::kNone;
}

// The common sets.
inline constexpr CalendarUnit kYearMonthDay = CalendarUnit::kYear | CalendarUnit::kMonth | CalendarUnit::kDay;
inline constexpr CalendarUnit kYearToSecond =
    kYearMonthDay | CalendarUnit::kHour | CalendarUnit::kMinute | CalendarUnit::kSecond;

// Numbers follow the calendar's own conventions: month 1 is January, weekday
// 1 is Sunday whatever the first weekday of the week is, day 1 is the first of
// the month. Out-of-range values are allowed on input and normalised by the
// calendar (month 13 is January of the next year, day 0 the last day of the
// previous month).
struct DateComponents {
  std::optional<std::int64_t> era;
  std::optional<std::int64_t> year;
  std::optional<std::int64_t> month;
  std::optional<std::int64_t> day;
  std::optional<std::int64_t> hour;
  std::optional<std::int64_t> minute;
  std::optional<std::int64_t> second;
  std::optional<std::int64_t> nanosecond;
  std::optional<std::int64_t> weekday;
  std::optional<std::int64_t> weekdayOrdinal;
  std::optional<std::int64_t> quarter;
  std::optional<std::int64_t> weekOfMonth;
  std::optional<std::int64_t> weekOfYear;
  std::optional<std::int64_t> yearForWeekOfYear;
  // An Olson identifier such as "Europe/Berlin". When set, building a date
  // from these components reads the wall-clock fields in that zone instead of
  // the calendar's.
  std::optional<std::string> timeZone;

  // Field access by unit, for code that walks a unit set. kTimeZone and sets
  // of several units are not fields: value() gives nullopt and setValue()
  // ignores them.
  std::optional<std::int64_t> value(CalendarUnit unit) const;
  void setValue(CalendarUnit unit, std::optional<std::int64_t> v);

  // "{year 2026, month 11, day 0}": the set fields, for logs and test output.
  std::string description() const;

  friend bool operator==(const DateComponents&, const DateComponents&) = default;
};

}  // namespace lumeo
