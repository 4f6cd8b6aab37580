// TimeZone: every form of TZ that the C library understands, the fallbacks
// when it names nothing, and offsets on both sides of daylight-saving changes.
#include "platform/time_zone.h"

#include <gtest/gtest.h>

#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

// 2026-01-15 12:00 UTC and 2026-07-15 12:00 UTC.
const Date kWinter = Date::fromTimeIntervalSince1970(1768478400.0);
const Date kSummer = Date::fromTimeIntervalSince1970(1784116800.0);

TEST(TimeZoneTest, TzValuesAndTheirOffsets) {
  struct Case {
    const char* tz;
    const char* identifier;
    int winter;
    int summer;
  };
  const Case cases[] = {
      {"UTC", "UTC", 0, 0},
      {"Europe/Berlin", "Europe/Berlin", 3600, 7200},
      {":Europe/Berlin", "Europe/Berlin", 3600, 7200},
      {"/usr/share/zoneinfo/America/New_York", "America/New_York", -18000, -14400},
      {":/usr/share/zoneinfo/posix/Asia/Tokyo", "Asia/Tokyo", 32400, 32400},
      {"Pacific/Auckland", "Pacific/Auckland", 46800, 43200},
      {"Asia/Kathmandu", "Asia/Kathmandu", 20700, 20700},
      // POSIX rules: west of GMT is positive.
      {"EST5", "EST5", -18000, -18000},
      {"<+0330>-3:30", "<+0330>-3:30", 12600, 12600},
      {"CET-1CEST,M3.5.0,M10.5.0/3", "CET-1CEST,M3.5.0,M10.5.0/3", 3600, 7200},
      {"NZST-12NZDT,M9.5.0,M4.1.0/3", "NZST-12NZDT,M9.5.0,M4.1.0/3", 46800, 43200},
      {"AAA3BBB,J60,J300", "AAA3BBB,J60,J300", -10800, -7200},
      // Names and rules that mean nothing are UTC, as for the C library.
      {"Nowhere/Special", "UTC", 0, 0},
      {"CET-1CEST,M13.5.0,M10.5.0", "UTC", 0, 0},
      {"X", "UTC", 0, 0},
  };
  for (const auto& c : cases) {
    ScopedEnvironment env{{"TZ", c.tz}};
    const TimeZone zone = TimeZone::current();
    EXPECT_EQ(zone.identifier(), c.identifier) << c.tz;
    EXPECT_EQ(zone.secondsFromGMT(kWinter), c.winter) << c.tz;
    EXPECT_EQ(zone.secondsFromGMT(kSummer), c.summer) << c.tz;
    EXPECT_EQ(zone.isDaylightSavingTime(kSummer), c.summer != c.winter && c.summer > c.winter) << c.tz;
  }
}

TEST(TimeZoneTest, PosixRuleChangesAtTheStatedHour) {
  ScopedEnvironment env{{"TZ", "CET-1CEST,M3.5.0,M10.5.0/3"}};
  const TimeZone zone = TimeZone::current();
  // 29 March 2026, 02:00 CET is 01:00 UTC.
  EXPECT_EQ(zone.secondsFromGMT(Date::fromTimeIntervalSince1970(1774745999.0)), 3600);
  EXPECT_EQ(zone.secondsFromGMT(Date::fromTimeIntervalSince1970(1774746000.0)), 7200);
  // 25 October 2026, 03:00 CEST is 01:00 UTC.
  EXPECT_EQ(zone.secondsFromGMT(Date::fromTimeIntervalSince1970(1792889999.0)), 7200);
  EXPECT_EQ(zone.secondsFromGMT(Date::fromTimeIntervalSince1970(1792890000.0)), 3600);
}

TEST(TimeZoneTest, UnsetTzIsTheSystemZone) {
  ScopedEnvironment env{{"TZ", std::nullopt}};
  EXPECT_EQ(TimeZone::current(), TimeZone::system());
  env.set("TZ", "");
  EXPECT_EQ(TimeZone::current(), TimeZone::system());
  EXPECT_FALSE(TimeZone::system().identifier().empty());
}

TEST(TimeZoneTest, NamedGmtAndFixedOffsets) {
  EXPECT_FALSE(TimeZone::named("Atlantis/Capital").has_value());
  EXPECT_FALSE(TimeZone::named("").has_value());
  ASSERT_TRUE(TimeZone::named("GMT+05:30").has_value());
  EXPECT_EQ(TimeZone::named("GMT+05:30")->secondsFromGMT(kWinter), 19800);
  EXPECT_EQ(TimeZone::gmt().secondsFromGMT(kSummer), 0);
  EXPECT_EQ(TimeZone::gmt().identifier(), "GMT");
  const TimeZone minus = TimeZone::withSecondsFromGMT(-9000);
  EXPECT_EQ(minus.identifier(), "GMT-02:30");
  EXPECT_EQ(minus.secondsFromGMT(kSummer), -9000);
  EXPECT_EQ(*TimeZone::named("Asia/Tokyo"), *TimeZone::named("Asia/Tokyo"));
  EXPECT_FALSE(*TimeZone::named("Asia/Tokyo") == *TimeZone::named("Asia/Seoul"));
}

}  // namespace
}  // namespace lumeo
