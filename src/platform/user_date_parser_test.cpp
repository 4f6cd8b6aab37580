// The command line's date reader: ISO 8601 and the locale's short and medium
// forms are taken whole; anything else, including a date with trailing
// words, is refused.
#include "platform/user_date_parser.h"

#include <gtest/gtest.h>

#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

double utc(const char* text) {
  const Calendar gmt("en_US", TimeZone::gmt());
  const auto d = parseIsoUserDate(text, gmt);
  EXPECT_TRUE(d.has_value()) << text;
  return d ? d->timeIntervalSince1970() : 0;
}

TEST(UserDateParserTest, IsoForms) {
  const Calendar berlin("en_US", *TimeZone::named("Europe/Berlin"));
  struct Case {
    const char* text;
    const char* asUtc;
  };
  const Case cases[] = {
      {"2026-11-22", "2026-11-21T23:00:00Z"},
      {"  2026-11-22\n", "2026-11-21T23:00:00Z"},
      {"2026-11-22T14:30", "2026-11-22T13:30:00Z"},
      {"2026-11-22 14:30", "2026-11-22T13:30:00Z"},
      {"2026-11-22T14:30:15", "2026-11-22T13:30:15Z"},
      {"2026-07-22T14:30:15", "2026-07-22T12:30:15Z"},
      {"2026-11-22T14:30Z", "2026-11-22T14:30:00Z"},
      {"2026-11-22T14:30:15+05:30", "2026-11-22T09:00:15Z"},
      {"2026-11-22T14:30:15-0300", "2026-11-22T17:30:15Z"},
      {"2026-11-22T14:30+01", "2026-11-22T13:30:00Z"},
      {"2024-02-29T00:00", "2024-02-28T23:00:00Z"},
  };
  for (const auto& c : cases) {
    const auto d = parseUserDate(c.text, berlin);
    ASSERT_TRUE(d.has_value()) << c.text;
    EXPECT_EQ(d->timeIntervalSince1970(), utc(c.asUtc)) << c.text;
  }
  const auto fraction = parseUserDate("2026-11-22T14:30:15.250Z", berlin);
  ASSERT_TRUE(fraction);
  EXPECT_DOUBLE_EQ(fraction->timeIntervalSince1970(), utc("2026-11-22T14:30:15Z") + 0.25);
}

TEST(UserDateParserTest, LocaleForms) {
  struct Case {
    const char* locale;
    const char* text;
    const char* asUtc;  // the zone is UTC
  };
  const Case cases[] = {
      {"en_US", "11/22/26", "2026-11-22T00:00:00Z"},
      {"en_US", "11/22/2026", "2026-11-22T00:00:00Z"},
      {"en_US", "Nov 22, 2026", "2026-11-22T00:00:00Z"},
      {"en_US", "11/22/26, 2:30 PM", "2026-11-22T14:30:00Z"},
      {"en_US", "Nov 22, 2026, 2:30:15 PM", "2026-11-22T14:30:15Z"},
      {"en_US", "November 22, 2026", "2026-11-22T00:00:00Z"},
      {"en_GB", "22/11/2026", "2026-11-22T00:00:00Z"},
      {"en_GB", "22 Nov 2026", "2026-11-22T00:00:00Z"},
      {"en_GB", "22/11/2026, 14:30", "2026-11-22T14:30:00Z"},
      {"de_DE", "22.11.26", "2026-11-22T00:00:00Z"},
      {"de_DE", "22.11.2026, 14:30", "2026-11-22T14:30:00Z"},
  };
  for (const auto& c : cases) {
    const Calendar calendar(c.locale, TimeZone::gmt());
    const auto d = parseUserDate(c.text, calendar);
    ASSERT_TRUE(d.has_value()) << c.locale << " " << c.text;
    EXPECT_EQ(d->timeIntervalSince1970(), utc(c.asUtc)) << c.locale << " " << c.text;
  }
}

TEST(UserDateParserTest, RefusesAnythingElse) {
  const Calendar us("en_US", TimeZone::gmt());
  const Calendar gb("en_GB", TimeZone::gmt());
  const char* rejected[] = {
      "",
      "   ",
      "tomorrow",
      "2026",
      "2026-11",
      "2026-11-22T",
      "2026-11-22T14",
      "2026-11-22T14:30:15Zed",
      "2026-11-22 and more",
      "2026-02-29",
      "2026-11-31",
      "2026-00-10",
      "2026-11-22T24:00",
      "2026-11-22T14:60",
      "2026-11-22T14:30:61",
      "2026-11-22T14:30+25:00",
      "2026-11-22Z",
      "26-11-22",
      "2026/11/22",
      "11/22/26 junk",
      "13/22/26",
      "Nov 31, 2026",
      "2026-11-22T14:30:15.",
  };
  for (const char* text : rejected) {
    EXPECT_FALSE(parseUserDate(text, us).has_value()) << "en_US: " << text;
    EXPECT_FALSE(parseUserDate(text, gb).has_value()) << "en_GB: " << text;
  }
  // Day and month order follow the locale.
  EXPECT_FALSE(parseUserDate("22/11/2026", us).has_value());
  EXPECT_FALSE(parseUserDate("11/22/2026", gb).has_value());
}

TEST(UserDateParserTest, DayWithoutMidnightAndCurrentCalendar) {
  const Calendar saoPaulo("en_US", *TimeZone::named("America/Sao_Paulo"));
  // Clocks jumped from 00:00 to 01:00 on 4 November 2018.
  EXPECT_EQ(parseUserDate("2018-11-04", saoPaulo)->timeIntervalSince1970(), utc("2018-11-04T03:00:00Z"));
  EXPECT_EQ(parseUserDate("11/4/18", saoPaulo)->timeIntervalSince1970(), utc("2018-11-04T03:00:00Z"));

  ScopedEnvironment env{{"TZ", "Asia/Tokyo"}, {"LANG", "en_GB.UTF-8"}, {"LC_ALL", std::nullopt}};
  EXPECT_EQ(parseUserDate("22/11/2026")->timeIntervalSince1970(), utc("2026-11-21T15:00:00Z"));
  EXPECT_EQ(parseUserDate("2026-11-22T09:00")->timeIntervalSince1970(), utc("2026-11-22T00:00:00Z"));
}

}  // namespace
}  // namespace lumeo
