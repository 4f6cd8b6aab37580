// Calendar: where the user's calendar comes from (TZ, LANG and friends, the
// first-weekday override, read afresh at every call), how loose fields are
// normalised, how additions clip, how differences split into fields, and the
// periods that hold a date.
#include "platform/calendar.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/date_formatter.h"
#include "platform/user_locale.h"
#include "testing/scoped_environment.h"

namespace lumeo {

void PrintTo(const DateComponents& c, std::ostream* os) {
  *os << c.description();
}

namespace {

using testing::ScopedEnvironment;

std::string show(Date d, const Calendar& calendar) {
  DateFormatter formatter("yyyy-MM-dd HH:mm:ss");
  formatter.setLocale("en_US_POSIX");
  formatter.setTimeZone(calendar.timeZone());
  return formatter.stringFromDate(d);
}

DateComponents ymd(std::int64_t y, std::int64_t m, std::int64_t d, std::int64_t h = 0, std::int64_t mi = 0) {
  DateComponents c;
  c.year = y;
  c.month = m;
  c.day = d;
  c.hour = h;
  c.minute = mi;
  return c;
}

Calendar calendarIn(const char* zone, const char* locale = "en_US") {
  return Calendar(locale, *TimeZone::named(zone));
}

TEST(UserLocaleTest, PosixNamesBecomeIcuNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"en_GB.UTF-8", "en_GB"},
      {"de_DE.UTF-8@euro", "de_DE"},
      {"de_DE@euro", "de_DE"},
      {"sr_RS.UTF-8@latin", "sr_Latn_RS"},
      {"C", "en_US_POSIX"},
      {"C.UTF-8", "en_US_POSIX"},
      {"POSIX", "en_US_POSIX"},
      {"ja_JP", "ja_JP"},
      {"en_US@calendar=hebrew", "en_US@calendar=hebrew"},
  };
  for (const auto& [posix, icu] : cases) EXPECT_EQ(icuLocaleFromPosix(posix), icu) << posix;
}

TEST(UserLocaleTest, LcAllWinsOverLcTimeWinsOverLang) {
  ScopedEnvironment env{{"LC_ALL", "de_DE.UTF-8"}, {"LC_TIME", "en_GB.UTF-8"}, {"LANG", "en_US.UTF-8"}};
  EXPECT_EQ(userLocaleIdentifier(), "de_DE");
  env.set("LC_ALL", "");  // empty counts as unset
  EXPECT_EQ(userLocaleIdentifier(), "en_GB");
  env.set("LC_TIME", std::nullopt);
  EXPECT_EQ(userLocaleIdentifier(), "en_US");
  env.set("LANG", std::nullopt);
  EXPECT_EQ(userLocaleIdentifier(), "en_US_POSIX");
}

TEST(CalendarCurrentTest, FollowsEnvironmentAtEveryCall) {
  ScopedEnvironment env{{"TZ", "UTC"},
                        {"LANG", "en_US.UTF-8"},
                        {"LC_ALL", std::nullopt},
                        {"LC_TIME", std::nullopt},
                        {"LUMEO_FIRST_WEEKDAY", std::nullopt}};
  EXPECT_EQ(Calendar::current().identifier(), "gregorian");
  EXPECT_EQ(Calendar::current().timeZone().identifier(), "UTC");
  EXPECT_EQ(Calendar::current().firstWeekday(), 1);

  env.set("LANG", "en_GB.UTF-8");
  EXPECT_EQ(Calendar::current().firstWeekday(), 2);
  EXPECT_EQ(Calendar::current().minimumDaysInFirstWeek(), 4);

  env.set("LUMEO_FIRST_WEEKDAY", "1");
  EXPECT_EQ(Calendar::current().firstWeekday(), 1);
  for (const char* ignored : {"0", "8", "two", "2x", ""}) {
    env.set("LUMEO_FIRST_WEEKDAY", ignored);
    EXPECT_EQ(Calendar::current().firstWeekday(), 2) << ignored;
  }

  // A calendar already made keeps its zone; a new one sees the new TZ.
  const Calendar before = Calendar::current();
  env.set("TZ", "Asia/Tokyo");
  EXPECT_EQ(before.timeZone().identifier(), "UTC");
  EXPECT_EQ(Calendar::current().timeZone().identifier(), "Asia/Tokyo");
  const Date instant = Date::fromTimeIntervalSince1970(1796068800.0);  // 2026-11-30 20:00 UTC
  EXPECT_EQ(before.component(CalendarUnit::kDay, instant), 30);
  EXPECT_EQ(Calendar::current().component(CalendarUnit::kDay, instant), 1);
  EXPECT_EQ(Calendar::gregorian().timeZone().identifier(), "Asia/Tokyo");

  // Thai dates are Gregorian as in the C library, unless asked otherwise.
  env.set("LANG", "th_TH.UTF-8");
  EXPECT_EQ(Calendar::current().identifier(), "gregorian");
  EXPECT_EQ(Calendar::current().component(CalendarUnit::kYear, instant), 2026);
  env.set("LANG", "th_TH.UTF-8@calendar=buddhist");
  EXPECT_EQ(Calendar::current().identifier(), "buddhist");
  EXPECT_EQ(Calendar::current().component(CalendarUnit::kYear, instant), 2569);
  EXPECT_EQ(Calendar::gregorian().identifier(), "gregorian");
  env.set("LANG", "fa_IR.UTF-8");
  EXPECT_EQ(Calendar::current().identifier(), "gregorian");
}

TEST(CalendarComponentsTest, ReadsEveryField) {
  const Calendar calendar = calendarIn("Asia/Kolkata");
  // 2026-11-25 14:05:09.25 in Kolkata (UTC+05:30) is 08:35:09.25 UTC.
  const Date d = Date::fromTimeIntervalSince1970(1795595709.25);
  const CalendarUnit all = CalendarUnit::kEra | kYearToSecond | CalendarUnit::kNanosecond |
                           CalendarUnit::kWeekday | CalendarUnit::kWeekdayOrdinal | CalendarUnit::kQuarter |
                           CalendarUnit::kWeekOfMonth | CalendarUnit::kWeekOfYear |
                           CalendarUnit::kYearForWeekOfYear | CalendarUnit::kTimeZone;
  const DateComponents c = calendar.components(all, d);
  EXPECT_EQ(c.era, 1);
  EXPECT_EQ(c.year, 2026);
  EXPECT_EQ(c.month, 11);
  EXPECT_EQ(c.day, 25);
  EXPECT_EQ(c.hour, 14);
  EXPECT_EQ(c.minute, 5);
  EXPECT_EQ(c.second, 9);
  EXPECT_EQ(c.nanosecond, 250000000);
  EXPECT_EQ(c.weekday, 4);
  EXPECT_EQ(c.weekdayOrdinal, 4);
  EXPECT_EQ(c.quarter, 4);
  EXPECT_EQ(c.weekOfMonth, 4);
  EXPECT_EQ(c.weekOfYear, 48);
  EXPECT_EQ(c.yearForWeekOfYear, 2026);
  EXPECT_EQ(c.timeZone, "Asia/Kolkata");

  const DateComponents some = calendar.components(CalendarUnit::kYear | CalendarUnit::kDay, d);
  EXPECT_TRUE(some.year && some.day);
  EXPECT_FALSE(some.month || some.hour || some.weekday || some.timeZone);
}

TEST(CalendarComponentsTest, DamagedInstantsStillGiveWholeFields) {
  const Calendar calendar = calendarIn("UTC");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(calendar.component(CalendarUnit::kYear, Date::fromTimeIntervalSince1970(nan)), 1970);
  EXPECT_GT(calendar.component(CalendarUnit::kYear, Date::fromTimeIntervalSince1970(inf)), 3000);
  EXPECT_EQ(calendar.component(CalendarUnit::kYear, Date::fromTimeIntervalSince1970(-inf)), 1);
  EXPECT_TRUE(calendar.rangeOfUnit(CalendarUnit::kDay, Date::fromTimeIntervalSince1970(nan)).has_value());
  const DateComponents huge = calendar.components(kYearMonthDay, Date::fromTimeIntervalSince1970(1e300));
  EXPECT_TRUE(huge.year && huge.month && huge.day);
}

TEST(CalendarFromComponentsTest, NormalisesOutOfRangeFields) {
  const Calendar calendar = calendarIn("UTC");
  struct Case {
    DateComponents in;
    const char* expected;
  };
  DateComponents timeOnly;
  timeOnly.hour = 7;
  DateComponents quarterOnly;
  quarterOnly.year = 2026;
  quarterOnly.quarter = 3;
  const Case cases[] = {
      {ymd(2026, 13, 1), "2027-01-01 00:00:00"},
      {ymd(2026, 13, 0), "2026-12-31 00:00:00"},
      {ymd(2026, 3, 0), "2026-02-28 00:00:00"},
      {ymd(2024, 3, 0), "2024-02-29 00:00:00"},
      {ymd(2026, 0, 15), "2025-12-15 00:00:00"},
      {ymd(2026, 1, 32), "2026-02-01 00:00:00"},
      {ymd(2026, 1, -1), "2025-12-30 00:00:00"},
      {ymd(2026, 5, 10, 24), "2026-05-11 00:00:00"},
      {ymd(2026, 5, 10, 0, -5), "2026-05-09 23:55:00"},
      {ymd(2026, 25, 1), "2028-01-01 00:00:00"},
      {timeOnly, "1970-01-01 07:00:00"},
      {quarterOnly, "2026-07-01 00:00:00"},
  };
  for (const auto& c : cases) {
    auto d = calendar.dateFromComponents(c.in);
    ASSERT_TRUE(d.has_value()) << c.expected;
    EXPECT_EQ(show(*d, calendar), c.expected);
  }
  DateComponents huge;
  huge.year = std::int64_t{1} << 40;
  EXPECT_FALSE(calendar.dateFromComponents(huge).has_value());
  DateComponents badZone = ymd(2026, 1, 1);
  badZone.timeZone = "Mars/Olympus_Mons";
  EXPECT_FALSE(calendar.dateFromComponents(badZone).has_value());
}

TEST(CalendarFromComponentsTest, WeekFieldsAndPrecedence) {
  Calendar sunday = calendarIn("UTC", "en_US");
  Calendar monday = calendarIn("UTC", "de_DE");
  // Week 48 of 2026 with the first weekday: 22 November (Sunday) in the
  // United States, 23 November (Monday) by ISO weeks.
  DateComponents week;
  week.year = 2026;
  week.weekOfYear = 48;
  week.weekday = 1;
  EXPECT_EQ(show(*sunday.dateFromComponents(week), sunday), "2026-11-22 00:00:00");
  week.weekday = 2;
  EXPECT_EQ(show(*monday.dateFromComponents(week), monday), "2026-11-23 00:00:00");
  // ISO week 1 of 2027 starts in 2026 when read with the week-based year.
  DateComponents iso;
  iso.yearForWeekOfYear = 2027;
  iso.weekOfYear = 1;
  iso.weekday = 2;
  EXPECT_EQ(show(*monday.dateFromComponents(iso), monday), "2027-01-04 00:00:00");
  // Second Tuesday of March.
  DateComponents ordinal;
  ordinal.year = 2026;
  ordinal.month = 3;
  ordinal.weekday = 3;
  ordinal.weekdayOrdinal = 2;
  EXPECT_EQ(show(*sunday.dateFromComponents(ordinal), sunday), "2026-03-10 00:00:00");
  // A day of the month wins over contradicting week fields.
  DateComponents both = ymd(2026, 11, 0);
  both.weekOfMonth = 2;
  both.weekday = 4;
  both.weekOfYear = 10;
  EXPECT_EQ(show(*sunday.dateFromComponents(both), sunday), "2026-10-31 00:00:00");
}

TEST(CalendarFromComponentsTest, ExplicitZoneInComponents) {
  const Calendar calendar = calendarIn("UTC");
  DateComponents c = ymd(2026, 11, 22, 9);
  c.timeZone = "Asia/Tokyo";
  EXPECT_EQ(show(*calendar.dateFromComponents(c), calendar), "2026-11-22 00:00:00");
}

TEST(CalendarDaylightSavingTest, SkippedAndRepeatedWallTimes) {
  const Calendar saoPaulo = calendarIn("America/Sao_Paulo");
  // 2018-11-04 00:00 to 00:59 did not exist there: 00:30 reads as 01:30.
  EXPECT_EQ(show(*saoPaulo.dateFromComponents(ymd(2018, 11, 4, 0, 30)), saoPaulo), "2018-11-04 01:30:00");
  // 2019-02-16 23:00 to 23:59 happened twice; the first one is taken.
  const Date first = *saoPaulo.dateFromComponents(ymd(2019, 2, 16, 23, 30));
  EXPECT_EQ(first.timeIntervalSince1970(), 1550367000.0);  // 01:30 UTC, still at UTC-2
  EXPECT_EQ(saoPaulo.startOfDay(first).timeIntervalSince1970(), 1550282400.0);

  const auto shortDay =
      saoPaulo.rangeOfUnit(CalendarUnit::kDay, *saoPaulo.dateFromComponents(ymd(2018, 11, 4, 12)));
  ASSERT_TRUE(shortDay);
  EXPECT_EQ(show(shortDay->start, saoPaulo), "2018-11-04 01:00:00");
  EXPECT_EQ(shortDay->duration, 23 * 3600.0);
  const auto longDay = saoPaulo.rangeOfUnit(CalendarUnit::kDay, first);
  ASSERT_TRUE(longDay);
  EXPECT_EQ(longDay->duration, 25 * 3600.0);
}

TEST(CalendarAddTest, ClipsMonthsAndKeepsWallTimeForDays) {
  const Calendar calendar = calendarIn("America/Sao_Paulo");
  struct Case {
    DateComponents start;
    CalendarUnit unit;
    std::int64_t amount;
    const char* expected;
  };
  const Case cases[] = {
      {ymd(2026, 1, 31, 8), CalendarUnit::kMonth, 1, "2026-02-28 08:00:00"},
      {ymd(2024, 1, 31, 8), CalendarUnit::kMonth, 1, "2024-02-29 08:00:00"},
      {ymd(2026, 3, 31, 8), CalendarUnit::kMonth, -1, "2026-02-28 08:00:00"},
      {ymd(2024, 2, 29, 8), CalendarUnit::kYear, 1, "2025-02-28 08:00:00"},
      {ymd(2026, 11, 15, 8), CalendarUnit::kQuarter, 1, "2027-02-15 08:00:00"},
      {ymd(2026, 12, 31, 8), CalendarUnit::kDay, 1, "2027-01-01 08:00:00"},
      {ymd(2026, 11, 25, 8), CalendarUnit::kWeekOfYear, 2, "2026-12-09 08:00:00"},
      // Across the 2018 jump: a day keeps 12:00, 24 hours do not.
      {ymd(2018, 11, 3, 12), CalendarUnit::kDay, 1, "2018-11-04 12:00:00"},
      {ymd(2018, 11, 3, 12), CalendarUnit::kHour, 24, "2018-11-04 13:00:00"},
  };
  for (const auto& c : cases) {
    const Date start = *calendar.dateFromComponents(c.start);
    auto d = calendar.dateByAddingUnit(c.unit, c.amount, start);
    ASSERT_TRUE(d.has_value()) << c.expected;
    EXPECT_EQ(show(*d, calendar), c.expected);
  }
  DateComponents monthAndDay;
  monthAndDay.month = 1;
  monthAndDay.day = 1;
  EXPECT_EQ(
      show(*calendar.dateByAddingComponents(monthAndDay, *calendar.dateFromComponents(ymd(2026, 1, 31))),
           calendar),
      "2026-03-01 00:00:00");
  DateComponents roll;
  roll.day = 5;
  EXPECT_EQ(show(*calendar.dateByAddingComponents(roll, *calendar.dateFromComponents(ymd(2026, 1, 30)), true),
                 calendar),
            "2026-01-04 00:00:00");
}

TEST(CalendarDifferenceTest, SplitsIntoFieldsLargestFirst) {
  const Calendar calendar = calendarIn("UTC");
  auto at = [&](DateComponents c) { return *calendar.dateFromComponents(c); };
  const CalendarUnit ymdhms = kYearToSecond;
  struct Case {
    DateComponents from, to;
    CalendarUnit units;
    DateComponents expected;
  };
  auto fields = [](std::int64_t y, std::int64_t mo, std::int64_t d, std::int64_t h, std::int64_t mi,
                   std::int64_t s) {
    DateComponents c;
    c.year = y;
    c.month = mo;
    c.day = d;
    c.hour = h;
    c.minute = mi;
    c.second = s;
    return c;
  };
  DateComponents weeksAndDays;
  weeksAndDays.weekOfYear = 2;
  weeksAndDays.day = 3;
  DateComponents almostAYear;  // one hour short of 365 days
  almostAYear.day = 364;
  DateComponents quarters;
  quarters.quarter = 2;
  quarters.month = 1;
  const Case cases[] = {
      {ymd(2026, 1, 1), ymd(2026, 2, 3, 5), ymdhms, fields(0, 1, 2, 5, 0, 0)},
      {ymd(2026, 2, 3, 5), ymd(2026, 1, 1), ymdhms, fields(0, -1, -2, -5, 0, 0)},
      // A year on from 29 February is 28 February.
      {ymd(2024, 2, 29), ymd(2025, 2, 28), ymdhms, fields(1, 0, 0, 0, 0, 0)},
      {ymd(2024, 2, 29), ymd(2025, 2, 27), ymdhms, fields(0, 11, 29, 0, 0, 0)},
      {ymd(2026, 1, 1), ymd(2026, 1, 18), CalendarUnit::kWeekOfYear | CalendarUnit::kDay, weeksAndDays},
      {ymd(2026, 1, 1, 10), ymd(2027, 1, 1, 9), CalendarUnit::kDay, almostAYear},
      {ymd(2026, 1, 15), ymd(2026, 8, 20), CalendarUnit::kQuarter | CalendarUnit::kMonth, quarters},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(calendar.componentsFromDate(c.units, at(c.from), at(c.to)), c.expected);
  }
  // Seconds over a century do not overflow.
  DateComponents seconds;
  seconds.second = 3155760000;
  EXPECT_EQ(calendar.componentsFromDate(CalendarUnit::kSecond, at(ymd(1970, 1, 1)), at(ymd(2070, 1, 1))),
            seconds);
}

TEST(CalendarRangeTest, PeriodsHoldingADate) {
  Calendar sunday = calendarIn("Pacific/Auckland", "en_US");
  Calendar monday = calendarIn("Pacific/Auckland", "en_GB");
  const Date wednesday = *sunday.dateFromComponents(ymd(2026, 11, 25, 14, 30));
  struct Case {
    const Calendar* calendar;
    CalendarUnit unit;
    const char* start;
    double days;
  };
  const Case cases[] = {
      {&sunday, CalendarUnit::kYear, "2026-01-01 00:00:00", 365},
      {&sunday, CalendarUnit::kQuarter, "2026-10-01 00:00:00", 92},
      {&sunday, CalendarUnit::kMonth, "2026-11-01 00:00:00", 30},
      {&sunday, CalendarUnit::kWeekOfYear, "2026-11-22 00:00:00", 7},
      {&monday, CalendarUnit::kWeekOfYear, "2026-11-23 00:00:00", 7},
      {&sunday, CalendarUnit::kDay, "2026-11-25 00:00:00", 1},
      {&sunday, CalendarUnit::kHour, "2026-11-25 14:00:00", 1.0 / 24},
  };
  for (const auto& c : cases) {
    const auto range = c.calendar->rangeOfUnit(c.unit, wednesday);
    ASSERT_TRUE(range.has_value()) << c.start;
    EXPECT_EQ(show(range->start, *c.calendar), c.start);
    EXPECT_NEAR(range->duration, c.days * 86400, 3600.5) << c.start;  // Auckland's summer time moves an hour
  }
  EXPECT_EQ(sunday.rangeOfUnit(CalendarUnit::kDay, CalendarUnit::kMonth,
                               *sunday.dateFromComponents(ymd(2024, 2, 10))),
            (UnitRange{1, 29}));
  EXPECT_EQ(sunday.rangeOfUnit(CalendarUnit::kDay, CalendarUnit::kYear, wednesday), (UnitRange{1, 365}));
  EXPECT_EQ(sunday.rangeOfUnit(CalendarUnit::kMonth, CalendarUnit::kYear, wednesday), (UnitRange{1, 12}));
  EXPECT_EQ(sunday.maximumRangeOfUnit(CalendarUnit::kWeekday), (UnitRange{1, 7}));
  EXPECT_EQ(sunday.maximumRangeOfUnit(CalendarUnit::kDay), (UnitRange{1, 31}));
  EXPECT_FALSE(sunday.rangeOfUnit(CalendarUnit::kNanosecond, wednesday).has_value());
  EXPECT_TRUE(sunday.isDateInSameDay(wednesday, *sunday.dateFromComponents(ymd(2026, 11, 25, 23, 59))));
  EXPECT_FALSE(sunday.isDateInSameDay(wednesday, *sunday.dateFromComponents(ymd(2026, 11, 26))));
}

TEST(CalendarSymbolsTest, NamesInTheCalendarsLocale) {
  const Calendar english = calendarIn("UTC", "en_US");
  const Calendar german = calendarIn("UTC", "de_DE");
  EXPECT_EQ(english.shortWeekdaySymbols(),
            (std::vector<std::string>{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"}));
  EXPECT_EQ(german.weekdaySymbols().front(), "Sonntag");
  EXPECT_EQ(english.veryShortWeekdaySymbols().size(), 7u);
  EXPECT_EQ(english.monthSymbols().at(2), "March");
  EXPECT_EQ(german.shortMonthSymbols().at(2), "März");
  EXPECT_EQ(english.monthSymbols().size(), 12u);
}

}  // namespace
}  // namespace lumeo
