// The date arithmetic under three time zones (UTC, São Paulo with its
// midnight daylight-saving jumps, Auckland far east of GMT) and both
// first-weekday conventions. Wall times in the tables are read and shown in
// the zone under test, so one table checks all zones.
#include "store/date_all.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <string>

#include "platform/clock.h"
#include "platform/date_formatter.h"
#include "platform/time_zone.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

// "yyyy-MM-dd HH:mm:ss" in the current zone.
Date at(const std::string& wall) {
  DateFormatter formatter("yyyy-MM-dd HH:mm:ss");
  formatter.setLocale("en_US_POSIX");
  auto date = formatter.dateFromString(wall);
  EXPECT_TRUE(date.has_value()) << "bad test time " << wall;
  return date.value_or(Date());
}

std::string show(Date d) {
  DateFormatter formatter("yyyy-MM-dd HH:mm:ss");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(d);
}

struct Setting {
  const char* zone;
  const char* locale;
};

void PrintTo(const Setting& s, std::ostream* os) {
  *os << s.zone << " " << s.locale;
}

class DateAllTest : public ::testing::TestWithParam<Setting> {
 protected:
  ScopedEnvironment env_{{"TZ", GetParam().zone},
                         {"LANG", GetParam().locale},
                         {"LC_ALL", std::nullopt},
                         {"LC_TIME", std::nullopt},
                         {"LUMEO_FIRST_WEEKDAY", std::nullopt}};
  bool sundayFirst() const { return std::string(GetParam().locale).rfind("en_US", 0) == 0; }
};

INSTANTIATE_TEST_SUITE_P(ZonesAndWeeks, DateAllTest,
                         ::testing::Values(Setting{"UTC", "en_US.UTF-8"}, Setting{"UTC", "en_GB.UTF-8"},
                                           Setting{"America/Sao_Paulo", "en_US.UTF-8"},
                                           Setting{"America/Sao_Paulo", "de_DE.UTF-8"},
                                           Setting{"Pacific/Auckland", "en_US.UTF-8"},
                                           Setting{"Pacific/Auckland", "en_GB.UTF-8"}),
                         [](const auto& info) {
                           std::string name = std::string(info.param.zone) + "_" + info.param.locale;
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

struct BoundaryCase {
  const char* what;
  Date (*fn)(Date);
  const char* input;
  const char* expected;
};

TEST_P(DateAllTest, BoundariesOfDaysMonthsQuartersAndYears) {
  const BoundaryCase cases[] = {
      {"onlyDate", onlyDate, "2026-11-22 14:30:15", "2026-11-22 00:00:00"},
      {"onlyDate at midnight", onlyDate, "2026-11-22 00:00:00", "2026-11-22 00:00:00"},
      {"onlyDate last second", onlyDate, "2026-11-22 23:59:59", "2026-11-22 00:00:00"},
      {"midnightTime", midnightTime, "2026-07-04 09:15:00", "2026-07-04 00:00:00"},
      {"firstDay", firstDay, "2026-11-22 14:30:15", "2026-11-01 00:00:00"},
      {"lastDay", lastDay, "2026-11-22 14:30:15", "2026-11-30 23:59:59"},
      {"lastDay February", lastDay, "2026-02-10 08:00:00", "2026-02-28 23:59:59"},
      {"lastDay leap February", lastDay, "2024-02-01 00:00:00", "2024-02-29 23:59:59"},
      {"lastDay December", lastDay, "2026-12-31 23:00:00", "2026-12-31 23:59:59"},
      {"theYearStart", theYearStart, "2026-11-22 14:30:15", "2026-01-01 00:00:00"},
      {"theYearEnd", theYearEnd, "2026-01-01 00:00:00", "2026-12-31 23:59:59"},
      {"theQuarterStart Q1", theQuarterStart, "2026-03-31 23:00:00", "2026-01-01 00:00:00"},
      {"theQuarterStart Q4", theQuarterStart, "2026-11-22 14:30:15", "2026-10-01 00:00:00"},
      {"theQuarterEnd Q1", theQuarterEnd, "2026-01-01 00:00:00", "2026-03-31 00:00:00"},
      {"theQuarterEnd Q2", theQuarterEnd, "2026-05-20 12:00:00", "2026-06-30 00:00:00"},
      {"theQuarterEnd Q3", theQuarterEnd, "2026-09-30 23:59:59", "2026-09-30 00:00:00"},
      {"theQuarterEnd Q4 goes through month 13", theQuarterEnd, "2026-10-01 00:00:00", "2026-12-31 00:00:00"},
      {"theQuarterEnd Q4 from December", theQuarterEnd, "2026-12-31 22:00:00", "2026-12-31 00:00:00"},
      {"theMonthStart", theMonthStart, "2026-11-22 14:30:15", "2026-11-01 00:00:00"},
      {"theMonthEnd", theMonthEnd, "2026-11-22 14:30:15", "2026-11-30 00:00:00"},
      {"theMonthEnd December", theMonthEnd, "2026-12-05 10:00:00", "2026-12-31 00:00:00"},
      {"theMonthEnd leap February", theMonthEnd, "2024-02-29 23:00:00", "2024-02-29 00:00:00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(show(c.fn(at(c.input))), c.expected) << c.what << " of " << c.input;
  }
}

// "This year" covers all of 31 December; "This month" and "This quartal" end
// at the first instant of their last day, so a record made later on the last
// day is outside. The summary screen shows exactly this.
TEST_P(DateAllTest, PeriodEndsAreAsymmetric) {
  const Date lastEvening = at("2026-12-31 18:00:00");
  EXPECT_TRUE(dateIsBetweenDate(lastEvening, theYearStart(lastEvening), theYearEnd(lastEvening)));
  EXPECT_FALSE(dateIsBetweenDate(lastEvening, theQuarterStart(lastEvening), theQuarterEnd(lastEvening)));
  EXPECT_FALSE(dateIsBetweenDate(lastEvening, theMonthStart(lastEvening), theMonthEnd(lastEvening)));

  const Date lastMidnight = at("2026-11-30 00:00:00");
  EXPECT_TRUE(dateIsBetweenDate(lastMidnight, theMonthStart(lastMidnight), theMonthEnd(lastMidnight)));
  const Date lastMorning = at("2026-11-30 00:00:01");
  EXPECT_FALSE(dateIsBetweenDate(lastMorning, theMonthStart(lastMorning), theMonthEnd(lastMorning)));
}

struct StepCase {
  const char* what;
  Date (*fn)(Date, std::int64_t);
  const char* input;
  std::int64_t amount;
  const char* expected;
};

TEST_P(DateAllTest, StepsByDaysAndMonths) {
  const StepCase cases[] = {
      {"addDays", addDays, "2026-11-22 14:30:15", 1, "2026-11-23 14:30:15"},
      {"addDays back over a month", addDays, "2026-03-01 08:00:00", -1, "2026-02-28 08:00:00"},
      {"addDays 30", addDays, "2026-11-22 14:30:15", -30, "2026-10-23 14:30:15"},
      {"dateWithDaysAhead", dateWithDaysAhead, "2026-12-31 12:00:00", 1, "2027-01-01 12:00:00"},
      {"addMonths clips", addMonths, "2026-01-31 10:00:00", 1, "2026-02-28 10:00:00"},
      {"addMonths clips in leap year", addMonths, "2024-03-31 10:00:00", -1, "2024-02-29 10:00:00"},
      {"dateWithMonthsAhead over a year", dateWithMonthsAhead, "2026-11-15 10:00:00", 3,
       "2027-02-15 10:00:00"},
      {"dateWithAddMonth 15 March -12", dateWithAddMonth, "2026-03-15 10:00:00", -12, "2025-03-30 10:00:00"},
      {"dateWithAddMonth on the 31st", dateWithAddMonth, "2026-01-31 08:00:00", 1, "2026-03-31 08:00:00"},
      {"dateWithAddMonth on the 1st", dateWithAddMonth, "2026-05-01 00:00:00", 1, "2026-06-02 00:00:00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(show(c.fn(at(c.input), c.amount)), c.expected) << c.what << " of " << c.input;
  }
  // 31 October: 30 November, then 31 days more.
  EXPECT_EQ(show(nextMonth(at("2026-10-31 09:00:00"))), "2026-12-31 09:00:00");
  EXPECT_EQ(show(nextDay(at("2026-02-28 09:00:00"))), "2026-03-01 09:00:00");
  EXPECT_EQ(show(previousDay(at("2026-01-01 09:00:00"))), "2025-12-31 09:00:00");
}

TEST_P(DateAllTest, AddUnitLandsOnPeriodStarts) {
  struct Case {
    CalendarUnit unit;
    double value;
    const char* input;
    const char* expected;
  };
  const Case cases[] = {
      {CalendarUnit::kYear, 1, "2026-11-22 14:30:15", "2027-01-01 00:00:00"},
      {CalendarUnit::kYear, -2, "2026-01-01 00:00:00", "2024-01-01 00:00:00"},
      {CalendarUnit::kYear, 1.9, "2026-06-15 12:00:00", "2027-01-01 00:00:00"},
      {CalendarUnit::kMonth, 1, "2026-11-22 14:30:15", "2026-12-01 00:00:00"},
      {CalendarUnit::kMonth, 2, "2026-11-30 23:00:00", "2027-01-01 00:00:00"},
      {CalendarUnit::kMonth, -1, "2026-01-31 10:00:00", "2025-12-01 00:00:00"},
      {CalendarUnit::kQuarter, 1, "2026-02-14 10:00:00", "2026-04-01 00:00:00"},
      {CalendarUnit::kQuarter, 1, "2026-06-30 10:00:00", "2026-07-01 00:00:00"},
      {CalendarUnit::kQuarter, 1, "2026-11-22 14:30:15", "2027-01-01 00:00:00"},
      {CalendarUnit::kQuarter, 2, "2026-11-22 14:30:15", "2026-10-01 00:00:00"},
      {CalendarUnit::kQuarter, 2, "2026-05-05 05:00:00", "2026-04-01 00:00:00"},
      {CalendarUnit::kQuarter, 0, "2026-03-31 10:00:00", "2026-01-01 00:00:00"},
      {CalendarUnit::kDay, 5, "2026-11-22 14:30:15", "2026-11-22 00:00:00"},
      {CalendarUnit::kHour, 1, "2026-11-22 14:30:15", "2026-11-22 00:00:00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(show(addUnit(at(c.input), c.unit, c.value)), c.expected)
        << "unit " << static_cast<unsigned>(c.unit) << " value " << c.value << " from " << c.input;
  }
}

// The week step goes 7 × value days on and then to the last day of that week:
// Saturday where weeks start on Sunday, Sunday where they start on Monday.
TEST_P(DateAllTest, AddUnitWeekEndsTheWeekByConvention) {
  struct Case {
    double value;
    const char* input;  // 2026-11-25 is a Wednesday, 2026-11-22 a Sunday
    const char* sundayFirst;
    const char* mondayFirst;
  };
  const Case cases[] = {
      {1, "2026-11-25 14:00:00", "2026-12-05 00:00:00", "2026-12-06 00:00:00"},
      {0, "2026-11-25 14:00:00", "2026-11-28 00:00:00", "2026-11-29 00:00:00"},
      {-1, "2026-11-25 14:00:00", "2026-11-21 00:00:00", "2026-11-22 00:00:00"},
      {1, "2026-11-22 10:00:00", "2026-12-05 00:00:00", "2026-11-29 00:00:00"},
      {1.5, "2026-11-25 14:00:00", "2026-12-05 00:00:00", "2026-12-06 00:00:00"},
      {1, "2026-12-30 09:00:00", "2027-01-09 00:00:00", "2027-01-10 00:00:00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(show(addUnit(at(c.input), CalendarUnit::kWeekOfYear, c.value)),
              sundayFirst() ? c.sundayFirst : c.mondayFirst)
        << "value " << c.value << " from " << c.input;
  }
}

TEST_P(DateAllTest, ComponentReads) {
  const Date d = at("2026-11-25 14:05:09");
  EXPECT_EQ(year(d), 2026);
  EXPECT_EQ(month(d), 11);
  EXPECT_EQ(day(d), 25);
  EXPECT_EQ(dayNumber(d), 25);
  EXPECT_EQ(weekday(d), 4);  // Wednesday, counted from Sunday in every locale
  EXPECT_EQ(date(d), (DateFields{2026, 11, 25, 14, 5, 9}));
  EXPECT_EQ(midnightUnixTime(d),
            static_cast<std::int64_t>(at("2026-11-25 00:00:00").timeIntervalSince1970()));
  // 1 January 2027 is a Friday: the first week of 2027 in the United States,
  // but ISO week 53 of 2026 where a week needs four days in the new year.
  EXPECT_EQ(weeksOfYear(at("2027-01-01 12:00:00")), sundayFirst() ? 1 : 53);
  EXPECT_EQ(weeksOfYear(at("2026-11-25 12:00:00")), 48);
}

TEST_P(DateAllTest, MonthIndexFrom1970) {
  EXPECT_EQ(monthFrom1970(at("1970-01-01 00:00:00")), 0);
  EXPECT_EQ(monthFrom1970(at("1969-12-31 23:59:59")), -1);
  EXPECT_EQ(monthFrom1970(at("1969-12-01 00:00:00")), -1);
  EXPECT_EQ(monthFrom1970(at("2026-11-22 14:30:15")), 682);
  EXPECT_EQ(show(dateByMonthIndexFrom1970(0)), "1970-01-01 00:00:00");
  EXPECT_EQ(show(dateByMonthIndexFrom1970(11)), "1970-12-01 00:00:00");
  EXPECT_EQ(show(dateByMonthIndexFrom1970(12)), "1971-01-01 00:00:00");
  EXPECT_EQ(show(dateByMonthIndexFrom1970(682)), "2026-11-01 00:00:00");
  EXPECT_EQ(show(dateByMonthIndexFrom1970(-1)), "1969-12-01 00:00:00");
  // Every month page maps back to its own index, across years and zones.
  for (std::int64_t index = -30; index < 700; ++index) {
    ASSERT_EQ(monthFrom1970(dateByMonthIndexFrom1970(index)), index);
  }
  EXPECT_EQ(show(dateByYear(2026, 2)), "2026-02-01 00:00:00");
  EXPECT_EQ(show(dateByYear(2026, 13)), "2027-01-01 00:00:00");
  EXPECT_EQ(show(dateByYear(2026, 3, 0)), "2026-02-28 00:00:00");
  EXPECT_EQ(show(dateByYear(2024, 12, 31)), "2024-12-31 00:00:00");
}

TEST_P(DateAllTest, DaysBetweenCountsWholeCalendarDays) {
  struct Case {
    const char* one;
    const char* two;
    std::int64_t days;
  };
  const Case cases[] = {
      {"2026-11-22 08:00:00", "2026-11-22 20:00:00", 0},   {"2026-11-22 08:00:00", "2026-11-23 07:59:59", 0},
      {"2026-11-22 08:00:00", "2026-11-23 08:00:00", 1},   {"2026-11-23 08:00:00", "2026-11-22 08:00:00", -1},
      {"2026-11-23 08:00:00", "2026-11-22 08:00:01", 0},   {"2026-02-01 00:00:00", "2026-03-01 00:00:00", 28},
      {"2024-01-01 12:00:00", "2025-01-01 12:00:00", 366},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(daysBetweenDateOne(at(c.one), at(c.two)), c.days) << c.one << " to " << c.two;
    EXPECT_EQ(daysBetweenUnixDateOne(at(c.one).timeIntervalSince1970(), at(c.two).timeIntervalSince1970()),
              c.days + 1)
        << c.one << " to " << c.two;
  }
}

TEST_P(DateAllTest, LocalAndGlobalDateCutTheSeconds) {
  const Date d = at("2026-11-22 14:30:45").dateByAddingTimeInterval(0.25);
  EXPECT_EQ(show(localDate(d)), "2026-11-22 14:30:00");
  const double t = d.timeIntervalSince1970();
  EXPECT_EQ(globalDate(d).timeIntervalSince1970(), t - std::fmod(t, 60.0));
  EXPECT_EQ(dateByTimeZone(d).timeIntervalSince1970() - t, TimeZone::current().secondsFromGMT(d));
}

TEST_P(DateAllTest, MonthNamesFollowTheLocale) {
  const Date d = at("2026-11-22 14:30:45");
  const std::string locale = GetParam().locale;
  if (locale.rfind("de_DE", 0) == 0) {
    EXPECT_EQ(monthShortStringDescription(d), "Nov.");
    EXPECT_EQ(monthFullStringDescription(d), "November");
  } else {
    EXPECT_EQ(monthShortStringDescription(d), "Nov");
    EXPECT_EQ(monthFullStringDescription(d), "November");
  }
  EXPECT_EQ(monthFullStringDescription(at("2026-03-01 00:00:00")),
            locale.rfind("de_DE", 0) == 0 ? "März" : "March");
}

TEST_P(DateAllTest, DateWithOutTimeAndBetween) {
  ScopedSimulatedClock clock(at("2026-11-22 14:30:45"));
  EXPECT_EQ(show(dateWithOutTime(std::nullopt)), "2026-11-22 00:00:00");
  EXPECT_EQ(show(dateWithOutTime(at("2020-02-29 23:59:59"))), "2020-02-29 00:00:00");

  const Date a = at("2026-11-01 00:00:00");
  const Date b = at("2026-11-30 00:00:00");
  EXPECT_TRUE(dateIsBetweenDate(a, a, b));
  EXPECT_TRUE(dateIsBetweenDate(b, a, b));
  EXPECT_TRUE(dateIsBetweenDate(at("2026-11-15 00:00:00"), b, a));
  EXPECT_FALSE(dateIsBetweenDate(at("2026-12-01 00:00:00"), b, a));
  EXPECT_FALSE(dateIsBetweenDate(a.dateByAddingTimeInterval(-0.001), a, b));
  EXPECT_FALSE(dateIsBetweenDate(a, std::nullopt, b));
  EXPECT_FALSE(dateIsBetweenDate(a, a, std::nullopt));
  EXPECT_FALSE(dateIsBetweenDate(std::nullopt, a, b));
}

// --- Daylight saving and zone changes ------------------------------------------

struct MidnightJump {
  const char* zone;
  const char* day;  // a day whose 00:00 doesn't exist: clocks go to 01:00
};

void PrintTo(const MidnightJump& j, std::ostream* os) {
  *os << j.zone << " " << j.day;
}

class DaylightSavingTest : public ::testing::TestWithParam<MidnightJump> {
 protected:
  ScopedEnvironment env_{{"TZ", GetParam().zone}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}};
};

INSTANTIATE_TEST_SUITE_P(MidnightJumps, DaylightSavingTest,
                         ::testing::Values(MidnightJump{"America/Sao_Paulo", "2018-11-04"},
                                           MidnightJump{"Asia/Beirut", "2026-03-29"},
                                           MidnightJump{"America/Havana", "2026-03-08"}));

TEST_P(DaylightSavingTest, DayWithoutMidnightStartsAtOne) {
  const std::string day = GetParam().day;
  const Date noon = at(day + " 12:00:00");
  EXPECT_EQ(show(onlyDate(noon)), day + " 01:00:00");
  EXPECT_EQ(show(midnightTime(noon)), day + " 01:00:00");
  // The day is 23 hours long, but still one calendar day.
  const Date dayBefore = addDays(noon, -1);
  EXPECT_EQ(show(dayBefore).substr(11), "12:00:00");
  EXPECT_EQ(noon.timeIntervalSinceDate(dayBefore), 23 * 3600.0);
  EXPECT_EQ(daysBetweenDateOne(dayBefore, noon), 1);
  EXPECT_EQ(onlyDate(noon).timeIntervalSinceDate(onlyDate(dayBefore)), 24 * 3600.0);
  // The previous day's last second is one second before the jump.
  EXPECT_EQ(onlyDate(noon).timeIntervalSinceDate(onlyDate(dayBefore).dateByAddingTimeInterval(86399.0)), 1.0);
}

TEST(DateAllZoneChangeTest, ChangeOfZoneTakesEffectAtTheNextCall) {
  ScopedEnvironment env{{"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}};
  // 20:00 on 30 November in GMT is already 1 December in Tokyo.
  const Date instant = Date::fromTimeIntervalSince1970(1796068800.0);
  EXPECT_EQ(monthFrom1970(instant), 682);
  EXPECT_EQ(onlyDate(instant).timeIntervalSince1970(), 1796068800.0 - 20 * 3600);
  EXPECT_EQ(theQuarterEnd(instant).timeIntervalSince1970(), 1798675200.0);  // 31 December 00:00 GMT

  env.set("TZ", "Asia/Tokyo");
  EXPECT_EQ(monthFrom1970(instant), 683);
  EXPECT_EQ(day(instant), 1);
  EXPECT_EQ(onlyDate(instant).timeIntervalSince1970(), 1796068800.0 - 5 * 3600);
  EXPECT_EQ(theQuarterEnd(instant).timeIntervalSince1970(), 1798675200.0 - 9 * 3600);
  EXPECT_EQ(dateByTimeZone(instant).timeIntervalSince1970(), 1796068800.0 + 9 * 3600);

  env.set("TZ", "America/Sao_Paulo");
  EXPECT_EQ(day(instant), 30);
  EXPECT_EQ(date(instant).hour, 17);
}

}  // namespace
}  // namespace lumeo
