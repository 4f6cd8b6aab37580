// The date arithmetic behind periods, charts and month pages. Each function
// builds its result the way the journal has always built it (which fields are
// read, which are replaced, what the calendar then normalises), because the
// periods' odd edges, such as a month that ends at the first instant of its
// last day, are visible behaviour that must not drift.
#include "store/date_all.h"

#include <algorithm>

#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/time_zone.h"

namespace lumeo {
namespace {

constexpr CalendarUnit kYearMonth = CalendarUnit::kYear | CalendarUnit::kMonth;

// Builds a date from fields; if the fields lie beyond what the calendar can
// represent, the input date comes back rather than an arbitrary instant.
Date build(const Calendar& calendar, const DateComponents& c, Date fallback) {
  return calendar.dateFromComponents(c).value_or(fallback);
}

Date add(const DateComponents& c, Date d) {
  return Calendar::current().dateByAddingComponents(c, d).value_or(d);
}

// Formats and parses back with one formatter; the pattern has no seconds, so
// the round trip drops them.
Date roundTripToMinute(Date d, const TimeZone& zone) {
  DateFormatter formatter("yyyy-MM-dd'T'HH:mm");
  formatter.setTimeZone(zone);
  if (auto parsed = formatter.dateFromString(formatter.stringFromDate(d))) return *parsed;
  // Only a text the locale cannot read back gets here; cut the seconds by
  // the calendar instead.
  Calendar calendar = Calendar::current();
  calendar.setTimeZone(zone);
  DateComponents c = calendar.components(kYearToSecond, d);
  c.second = 0;
  return build(calendar, c, d);
}

}  // namespace

// --- Boundaries -------------------------------------------------------------

Date onlyDate(Date d) {
  const Calendar calendar = Calendar::current();
  return build(calendar, calendar.components(kYearMonthDay, d), d);
}

Date firstDay(Date d) {
  const Calendar calendar = Calendar::current();
  return build(calendar, calendar.components(kYearMonth, d), d);
}

Date lastDay(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents oneMonth;
  oneMonth.month = 1;
  const Date next = calendar.dateByAddingComponents(oneMonth, firstDay(d)).value_or(d);
  return build(calendar, calendar.components(kYearMonthDay, next), next).dateByAddingTimeInterval(-1.0);
}

Date theYearStart(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearToSecond, d);
  c.month = 1;
  c.day = 1;
  c.hour = c.minute = c.second = 0;
  return build(calendar, c, d);
}

Date theYearEnd(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearToSecond, d);
  c.month = 12;
  c.day = 31;
  c.hour = 23;
  c.minute = 59;
  c.second = 59;
  return build(calendar, c, d);
}

Date theQuarterStart(Date d) {
  const auto range = Calendar::current().rangeOfUnit(CalendarUnit::kQuarter, d);
  return range ? range->start : d;
}

Date theQuarterEnd(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearMonthDay, d);
  // Month 13 in the fourth quarter is January of the next year, and day 0 of
  // a month is the day before its first: the quarter's last day at 00:00.
  c.month = (*c.month - 1) / 3 * 3 + 4;
  c.day = 0;
  return build(calendar, c, d);
}

Date theMonthStart(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearToSecond, d);
  c.day = 1;
  c.hour = c.minute = c.second = 0;
  return build(calendar, c, d);
}

Date theMonthEnd(Date d) {
  // The journal has always read week of month and weekday here as well and
  // left them contradicting day 0; the result users know is the last day of
  // the month at 00:00, which the day alone gives.
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearMonth, d);
  c.month = *c.month + 1;
  c.day = 0;
  return build(calendar, c, d);
}

Date midnightTime(Date d) {
  const Calendar calendar = Calendar::current();
  DateComponents c = calendar.components(kYearMonthDay | CalendarUnit::kHour, d);
  c.hour = c.minute = c.second = 0;
  return build(calendar, c, d);
}

std::int64_t midnightUnixTime(Date d) {
  return static_cast<std::int64_t>(midnightTime(d).timeIntervalSince1970());
}

// --- Steps ------------------------------------------------------------------

Date addDays(Date d, std::int64_t days) {
  DateComponents c;
  c.day = days;
  return add(c, d);
}

Date dateWithDaysAhead(Date d, std::int64_t days) {
  return addDays(d, days);
}

Date addMonths(Date d, std::int64_t months) {
  DateComponents c;
  c.month = months;
  return add(c, d);
}

Date dateWithMonthsAhead(Date d, std::int64_t months) {
  return addMonths(d, months);
}

Date dateWithAddMonth(Date d, std::int64_t months) {
  // The components added are the date's own day with the month replaced, so
  // the day of the month is added as days after the month step. The graph's
  // range has always been computed this way.
  DateComponents c = Calendar::current().components(CalendarUnit::kDay, d);
  c.month = months;
  return add(c, d);
}

Date nextMonth(Date d) {
  return dateWithAddMonth(d, 1);
}
Date nextDay(Date d) {
  return dateWithDaysAhead(d, 1);
}
Date previousDay(Date d) {
  return dateWithDaysAhead(d, -1);
}

// Each step lands on the start of a period, so that the graph can walk from
// tick to tick; the steps are not additive. Field arithmetic with the double
// value truncates toward zero, as an integer field assignment does.
Date addUnit(Date d, CalendarUnit unit, double value) {
  const Calendar calendar = Calendar::current();
  DateComponents c =
      calendar.components(kYearMonthDay | CalendarUnit::kWeekday | CalendarUnit::kWeekOfYear, d);
  if (unit == CalendarUnit::kYear) {
    c.day = 1;
    c.month = 1;
    c.year = static_cast<std::int64_t>(static_cast<double>(*c.year) + value);
  } else if (unit == CalendarUnit::kMonth) {
    c.day = 1;
    c.month = static_cast<std::int64_t>(static_cast<double>(*c.month) + value);
  } else if (unit == CalendarUnit::kQuarter) {
    const std::int64_t quarterStart = (*c.month - 1) / 3 * 3 + 1;
    c.day = 1;
    if (value == 1.0) {
      // Only a step of exactly one goes on to the next quarter; any other
      // value stays at the start of the current one.
      if (quarterStart == 10) {
        c.month = 1;
        c.year = *c.year + 1;
      } else {
        c.month = quarterStart + 3;
      }
    } else {
      c.month = quarterStart;
    }
  } else if (unit == CalendarUnit::kWeekOfYear) {
    // Saturday ends a week that starts on Sunday, and Sunday one that starts
    // on Monday (or on any other day: the journal only ever told these two
    // apart).
    const std::int64_t lastWeekday = calendar.firstWeekday() == 1 ? 7 : 1;
    c.weekday = lastWeekday;
    c.day = static_cast<std::int64_t>(static_cast<double>(*c.day) + 7.0 * value);
    // The day field wins over the week fields; then the date moves forward
    // to that week's last day, which is what the weekday field asks for.
    DateComponents dayOnly;
    dayOnly.year = c.year;
    dayOnly.month = c.month;
    dayOnly.day = c.day;
    const Date base = build(calendar, dayOnly, d);
    const std::int64_t ahead = (lastWeekday - calendar.component(CalendarUnit::kWeekday, base) + 7) % 7;
    DateComponents step;
    step.day = ahead;
    return calendar.dateByAddingComponents(step, base).value_or(base);
  }
  // Any other unit changes no field: the same day, at 00:00:00 like every
  // other step.
  return build(calendar, c, d);
}

// --- Component reads ------------------------------------------------------

std::int64_t year(Date d) {
  return Calendar::current().component(CalendarUnit::kYear, d);
}
std::int64_t month(Date d) {
  return Calendar::current().component(CalendarUnit::kMonth, d);
}
std::int64_t day(Date d) {
  return Calendar::current().component(CalendarUnit::kDay, d);
}
std::int64_t dayNumber(Date d) {
  return day(d);
}
std::int64_t weekday(Date d) {
  return Calendar::current().component(CalendarUnit::kWeekday, d);
}

DateFields date(Date d) {
  const DateComponents c = Calendar::current().components(kYearToSecond, d);
  return DateFields{*c.year, *c.month, *c.day, *c.hour, *c.minute, *c.second};
}

std::int64_t weeksOfYear(Date d) {
  // The journal once set these fields to 31 December 23:59 meaning to count
  // the weeks of the year, but read the week back from the same fields, which
  // that doesn't change: the answer is the date's own week.
  return Calendar::current().component(CalendarUnit::kWeekOfYear, d);
}

// --- Month index ------------------------------------------------------------

std::int64_t monthFrom1970(Date d) {
  const DateComponents c = Calendar::current().components(kYearMonth, d);
  return *c.year * 12 + *c.month - 23641;
}

Date dateByMonthIndexFrom1970(std::int64_t index) {
  // Division truncates toward zero, so index -1 asks for month 0 of 1970,
  // which the calendar reads as December 1969.
  return dateByYear(1970 + index / 12, index % 12 + 1);
}

Date dateByYear(std::int64_t year, std::int64_t month) {
  return dateByYear(year, month, 1);
}

Date dateByYear(std::int64_t year, std::int64_t month, std::int64_t day) {
  DateComponents c;
  c.year = year;
  c.month = month;
  c.day = day;
  return Calendar::current().dateFromComponents(c).value_or(Date());
}

// --- Distances --------------------------------------------------------------

std::int64_t daysBetweenDateOne(Date dateOne, Date dateTwo) {
  return Calendar::current().componentsFromDate(CalendarUnit::kDay, dateOne, dateTwo).day.value_or(0);
}

std::int64_t daysBetweenUnixDateOne(double unixDateOne, double unixDateTwo) {
  return daysBetweenDateOne(Date::fromTimeIntervalSince1970(unixDateOne),
                            Date::fromTimeIntervalSince1970(unixDateTwo)) +
         1;
}

// --- Text and zones ---------------------------------------------------------

Date localDate(Date d) {
  return roundTripToMinute(d, TimeZone::current());
}
Date globalDate(Date d) {
  return roundTripToMinute(d, TimeZone::gmt());
}

Date dateByTimeZone(Date d) {
  return d.dateByAddingTimeInterval(TimeZone::current().secondsFromGMT(d));
}

std::string monthShortStringDescription(Date d) {
  return DateFormatter("MMM").stringFromDate(d);
}
std::string monthFullStringDescription(Date d) {
  return DateFormatter("MMMM").stringFromDate(d);
}

// --- Application-level helpers ----------------------------------------------

Date dateWithOutTime(std::optional<Date> d) {
  return onlyDate(d.value_or(Date::now()));
}

bool dateIsBetweenDate(std::optional<Date> d, std::optional<Date> a, std::optional<Date> b) {
  if (!d || !a || !b) return false;
  const Date low = std::min(*a, *b);
  const Date high = std::max(*a, *b);
  return low <= *d && *d <= high;
}

}  // namespace lumeo
