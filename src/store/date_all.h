// Calendar arithmetic on dates: the boundaries of days, months, quarters and
// years, steps by days and months, month indexes since 1970 and the like. The
// summary periods, the charts, the calendar pages and the history filter are
// all computed with these, so their edge behaviour is what those screens show.
//
// Every function asks for Calendar::current() when it runs: the user's
// calendar, time zone and first weekday as they are now, never cached. Dates
// far outside the calendar's range (millions of years) come back unchanged
// from the operations that build a new date.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/date_components.h"

namespace lumeo {

// --- Boundaries -------------------------------------------------------------

// Start of the date's day, 00:00:00; on a day that a daylight-saving change
// starts at midnight, the first instant of the day (01:00).
Date onlyDate(Date d);
// First day of the month, 00:00:00.
Date firstDay(Date d);
// Last second of the month, 23:59:59.
Date lastDay(Date d);
// 1 January, 00:00:00.
Date theYearStart(Date d);
// 31 December, 23:59:59.
Date theYearEnd(Date d);
// First day of the calendar quarter, 00:00:00.
Date theQuarterStart(Date d);
// Last day of the quarter at 00:00:00, not 23:59:59. Together with
// theMonthEnd this keeps the quarter and month periods short of their last
// day, while the year period covers all of 31 December; the summary screen's
// periods depend on exactly this.
Date theQuarterEnd(Date d);
// First day of the month, 00:00:00.
Date theMonthStart(Date d);
// Last day of the month at 00:00:00, not 23:59:59.
Date theMonthEnd(Date d);
// Start of the day, like onlyDate.
Date midnightTime(Date d);
// midnightTime as whole seconds since 1970.
std::int64_t midnightUnixTime(Date d);

// --- Steps ------------------------------------------------------------------

// That many calendar days on (wall time kept across daylight-saving changes).
Date addDays(Date d, std::int64_t days);
Date dateWithDaysAhead(Date d, std::int64_t days);
// That many months on, clipped to the last day of a shorter month.
Date addMonths(Date d, std::int64_t months);
Date dateWithMonthsAhead(Date d, std::int64_t months);
// Adds `months` months and, on top, as many days as the date's own day of the
// month: 15 March with -12 gives 30 March of the year before. The graph's
// range is built on this, as it is.
Date dateWithAddMonth(Date d, std::int64_t months);
// dateWithAddMonth(d, 1).
Date nextMonth(Date d);
Date nextDay(Date d);
Date previousDay(Date d);
// The graph's tick step: the start of the year, month or quarter `value`
// periods on, or the last day of the week `value` weeks on, always at
// 00:00:00; see date_all.cpp for the rules. Other units give the date back.
Date addUnit(Date d, CalendarUnit unit, double value);

// --- Component reads ------------------------------------------------------

std::int64_t year(Date d);
std::int64_t month(Date d);
std::int64_t day(Date d);
std::int64_t dayNumber(Date d);
// 1 is Sunday, whatever the first weekday of the week.
std::int64_t weekday(Date d);

struct DateFields {
  std::int64_t year = 0;
  std::int64_t month = 0;
  std::int64_t day = 0;
  std::int64_t hour = 0;
  std::int64_t minute = 0;
  std::int64_t second = 0;
  friend bool operator==(const DateFields&, const DateFields&) = default;
};
DateFields date(Date d);
// The date's own week of the year, not the number of weeks in the year.
std::int64_t weeksOfYear(Date d);

// --- Month index ------------------------------------------------------------

// year × 12 + month − 23641: January 1970 is 0, December 1969 is −1. The key
// of the month pages in history and calendar.
std::int64_t monthFrom1970(Date d);
// First day of that month, 00:00:00. Negative indexes count back from
// January 1970.
Date dateByMonthIndexFrom1970(std::int64_t index);
// First day of that month, 00:00:00; out-of-range months and days carry over.
Date dateByYear(std::int64_t year, std::int64_t month);
// That day, 00:00:00. A year beyond the calendar's range (millions of
// years) gives 1 January 1970 rather than an arbitrary instant.
Date dateByYear(std::int64_t year, std::int64_t month, std::int64_t day);

// --- Distances --------------------------------------------------------------

// Whole calendar days from `dateOne` to `dateTwo`, signed; a partial day
// counts 0.
std::int64_t daysBetweenDateOne(Date dateOne, Date dateTwo);
// The same on seconds since 1970, plus 1: the same day gives 1.
std::int64_t daysBetweenUnixDateOne(double unixDateOne, double unixDateTwo);

// --- Text and zones ---------------------------------------------------------

// The same instant with the seconds cut off, by a round trip through the text
// "yyyy-MM-dd'T'HH:mm" in the local zone.
Date localDate(Date d);
// The same round trip in GMT.
Date globalDate(Date d);
// The instant moved forward by the local zone's offset from GMT at that date.
Date dateByTimeZone(Date d);
// "Nov", "November" in the user's locale.
std::string monthShortStringDescription(Date d);
std::string monthFullStringDescription(Date d);

// --- Application-level helpers (the application delegate forwards to these) -

// onlyDate of the date, or of now when there is none.
Date dateWithOutTime(std::optional<Date> d);
// True if `d` lies between the two bounds, ends included, in either order;
// false if any of the three is missing.
bool dateIsBetweenDate(std::optional<Date> d, std::optional<Date> a, std::optional<Date> b);

}  // namespace lumeo
