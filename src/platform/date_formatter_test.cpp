// DateFormatter: patterns and styles in a given locale and zone, and strict
// parsing that takes the whole text or nothing.
#include "platform/date_formatter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

const Date kEvening = Date::fromTimeIntervalSince1970(1795887005.0);  // 2026-11-28 17:30:05 UTC

DateFormatter formatter(const char* pattern, const char* locale, const char* zone) {
  DateFormatter f(pattern);
  f.setLocale(locale);
  f.setTimeZone(*TimeZone::named(zone));
  return f;
}

TEST(DateFormatterTest, PatternsInLocaleAndZone) {
  struct Case {
    const char* pattern;
    const char* locale;
    const char* zone;
    const char* text;
  };
  const Case cases[] = {
      {"yyyy-MM-dd'T'HH:mm", "en_US", "UTC", "2026-11-28T17:30"},
      {"yyyy-MM-dd'T'HH:mm", "en_US", "Asia/Tokyo", "2026-11-29T02:30"},
      {"yyyy-MM-dd hh:mm:ss a", "en_US", "UTC", "2026-11-28 05:30:05 PM"},
      {"ddMMyyyy_HHmm", "de_DE", "Europe/Berlin", "28112026_1830"},
      {"MMM", "en_US", "UTC", "Nov"},
      {"MMMM", "de_DE.UTF-8", "UTC", "November"},
      {"EE", "de_DE", "UTC", "Sa."},
      {"HH", "en_US", "America/Sao_Paulo", "14"},
      {"yyyy-MM-dd HH:mm:ss", "en_US", "GMT", "2026-11-28 17:30:05"},
      {"yyyy", "th_TH", "UTC", "2026"},
      {"yyyy", "th_TH@calendar=buddhist", "UTC", "2569"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(formatter(c.pattern, c.locale, c.zone).stringFromDate(kEvening), c.text) << c.pattern;
  }
}

// The POSIX locale's numeric patterns are written without ICU; they must
// read exactly as ICU writes them (here in en_US, which has the same digits):
// across daylight-saving changes, half-hour and +14 h zones, local mean time
// before standard zones, whole and fractional seconds before 1970, and at
// the ends of the years where the shortcut applies.
TEST(DateFormatterTest, NumericPatternsInThePosixLocaleReadAsIcuWritesThem) {
  const std::vector<std::string> patterns = {"yyyy-MM-dd HH:mm", "yyyy-MM-dd'T'HH:mm:ss", "dd.MM.yyyy",
                                             "HH:mm 'o''clock' yyyy", "yyyyMMdd-HHmmss"};
  const std::vector<std::string> zones = {"UTC",
                                          "Europe/Berlin",
                                          "America/St_Johns",
                                          "Pacific/Kiritimati",
                                          "Australia/Lord_Howe",
                                          "Europe/Amsterdam",
                                          "America/Los_Angeles"};
  std::vector<double> seconds = {
      0,           -0.5,        -1,           -86400.25,    59.999,
      1679792399,  1679792400,  1698541199.5, 1698541200,   951782400,
      -2208988800, -2524521600, -12212553600, 253402214400, 253402300799 - 86400 * 2,
      1e9,         -1e9,        4102444800,   -11676096000, 1719792000.999};
  // A spread of instants over four centuries, with odd fractions.
  for (int i = 0; i < 400; ++i) seconds.push_back(-11000000000.0 + i * 34567890.123);
  for (const auto& zoneName : zones) {
    auto zone = TimeZone::named(zoneName);
    ASSERT_TRUE(zone) << zoneName;
    for (const auto& pattern : patterns) {
      DateFormatter posix(pattern), icu(pattern);
      posix.setLocale("en_US_POSIX");
      icu.setLocale("en_US");
      posix.setTimeZone(*zone);
      icu.setTimeZone(*zone);
      for (double s : seconds) {
        const Date date = Date::fromTimeIntervalSince1970(s);
        ASSERT_EQ(posix.stringFromDate(date), icu.stringFromDate(date))
            << pattern << " in " << zoneName << " at " << s;
      }
    }
  }
  // Outside the shortcut's years (the Julian calendar before 1583, five-digit
  // years) and fields, ICU still writes them.
  for (double s : {-30610224000.0, -12219379200.0, -12219292800.0, 253402300800.0, 316224000000.5}) {
    DateFormatter posix("yyyy-MM-dd HH:mm:ss"), icu("yyyy-MM-dd HH:mm:ss");
    posix.setLocale("en_US_POSIX");
    icu.setLocale("en_US");
    posix.setTimeZone(TimeZone::gmt());
    icu.setTimeZone(TimeZone::gmt());
    EXPECT_EQ(posix.stringFromDate(Date::fromTimeIntervalSince1970(s)),
              icu.stringFromDate(Date::fromTimeIntervalSince1970(s)))
        << s;
  }
  DateFormatter named("d MMM yyyy");
  named.setLocale("en_US_POSIX");
  named.setTimeZone(TimeZone::gmt());
  EXPECT_EQ(named.stringFromDate(Date::fromTimeIntervalSince1970(0)), "1 Jan 1970");
}

TEST(DateFormatterTest, StrictParsing) {
  const DateFormatter minutes = formatter("yyyy-MM-dd'T'HH:mm", "en_US", "UTC");
  EXPECT_EQ(minutes.dateFromString("2026-11-28T17:30"), Date::fromTimeIntervalSince1970(1795887000.0));
  const char* rejected[] = {
      "",
      "2026-11-28T17:30x",
      "2026-11-28T17:30:05",
      "2026-11-28",
      " 2026-11-28T17:30",
      "2026-02-30T10:00",
      "2026-13-01T10:00",
      "2026-11-28T25:00",
      "2026-11-28 17:30",
      "yesterday",
  };
  for (const char* text : rejected) EXPECT_FALSE(minutes.dateFromString(text).has_value()) << text;

  const DateFormatter tokyo = formatter("yyyy-MM-dd'T'HH:mm", "en_US", "Asia/Tokyo");
  EXPECT_EQ(tokyo.dateFromString("2026-11-29T02:30"), Date::fromTimeIntervalSince1970(1795887000.0));

  const DateFormatter names = formatter("d MMMM yyyy", "de_DE", "UTC");
  EXPECT_EQ(names.dateFromString("28 November 2026"), Date::fromTimeIntervalSince1970(1795824000.0));
  EXPECT_FALSE(names.dateFromString("28 Novembre 2026").has_value());
}

TEST(DateFormatterTest, StylesAndRelativeNames) {
  ScopedEnvironment env{{"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}};
  DateFormatter medium;
  medium.setDateStyle(DateFormatter::Style::kMedium);
  EXPECT_EQ(medium.stringFromDate(kEvening), "Nov 28, 2026");
  medium.setLocale("de_DE");
  EXPECT_EQ(medium.stringFromDate(kEvening), "28.11.2026");
  medium.setLocale("en_GB");
  EXPECT_EQ(medium.stringFromDate(kEvening), "28 Nov 2026");

  DateFormatter relative;
  relative.setDateStyle(DateFormatter::Style::kLong);
  relative.setDoesRelativeDateFormatting(true);
  EXPECT_EQ(relative.stringFromDate(Date::now()), "today");
  EXPECT_EQ(relative.stringFromDate(Date::fromTimeIntervalSince1970(0)), "January 1, 1970");

  EXPECT_EQ(
      DateFormatter::patternForStyles(DateFormatter::Style::kShort, DateFormatter::Style::kNone, "en_US"),
      "M/d/yy");
  EXPECT_EQ(DateFormatter::dateFormatFromTemplate("yMMMd", "de_DE"), "d. MMM y");
  EXPECT_EQ(DateFormatter().stringFromDate(kEvening), "");
  EXPECT_FALSE(DateFormatter().dateFromString("Nov 28, 2026").has_value());
}

TEST(DateFormatterTest, TakesZoneAndLocaleWhenMade) {
  ScopedEnvironment env{{"TZ", "Asia/Tokyo"}, {"LANG", "de_DE.UTF-8"}, {"LC_ALL", std::nullopt}};
  DateFormatter f("HH:mm MMMM");
  env.set("TZ", "UTC");
  env.set("LANG", "en_US.UTF-8");
  EXPECT_EQ(f.stringFromDate(kEvening), "02:30 November");
  EXPECT_EQ(DateFormatter("HH:mm MMMM").stringFromDate(kEvening), "17:30 November");
  EXPECT_EQ(f.localeIdentifier(), "de_DE");
}

// ICU formatters are shared per thread by everything that shapes them:
// a change of zone, locale or pattern must switch to the formatter of the
// new settings, also in formatters made before the change, and a formatter
// must survive its thread's cache being emptied.
TEST(DateFormatterTest, SharedFormattersFollowEveryChangeOfSettings) {
  DateFormatter a = formatter("yyyy-MM-dd HH:mm", "en_US", "UTC");
  DateFormatter b = formatter("yyyy-MM-dd HH:mm", "en_US", "UTC");
  EXPECT_EQ(a.stringFromDate(kEvening), "2026-11-28 17:30");
  EXPECT_EQ(b.stringFromDate(kEvening), "2026-11-28 17:30");
  b.setTimeZone(*TimeZone::named("Asia/Tokyo"));
  EXPECT_EQ(b.stringFromDate(kEvening), "2026-11-29 02:30");
  EXPECT_EQ(a.stringFromDate(kEvening), "2026-11-28 17:30") << "the other formatter keeps its zone";
  b.setDateFormat("MMMM");
  b.setLocale("de_DE");
  EXPECT_EQ(b.stringFromDate(kEvening), "November");
  b.setLocale("fr_FR");
  EXPECT_EQ(b.stringFromDate(kEvening), "novembre");
  DateFormatter c = b;
  c.setDateStyle(DateFormatter::Style::kShort);
  EXPECT_EQ(c.stringFromDate(kEvening), "29/11/2026");
  EXPECT_EQ(b.stringFromDate(kEvening), "novembre");

  // Many different patterns empty the cache; formatters made before keep
  // working with formatters of their own settings.
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(
        formatter(("'" + std::to_string(i) + "' yyyy").c_str(), "en_US", "UTC").stringFromDate(kEvening),
        std::to_string(i) + " 2026");
  }
  EXPECT_EQ(a.stringFromDate(kEvening), "2026-11-28 17:30");
  EXPECT_EQ(a.dateFromString("2026-11-28 17:30"), Date::fromTimeIntervalSince1970(1795887000.0));
  EXPECT_EQ(b.stringFromDate(kEvening), "novembre");
}

// A formatter handed to another thread uses that thread's ICU formatter,
// never the one its first thread is using at the same time.
TEST(DateFormatterTest, FormattersMayMoveBetweenThreads) {
  DateFormatter here = formatter("yyyy-MM-dd HH:mm:ss", "en_US", "UTC");
  EXPECT_EQ(here.stringFromDate(kEvening), "2026-11-28 17:30:05");
  DateFormatter moved = here;
  (void)moved.stringFromDate(kEvening);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      DateFormatter& f = t == 0 ? moved : here;
      for (int i = 0; i < 2000; ++i) {
        const Date date = kEvening.dateByAddingTimeInterval(i);
        if (f.dateFromString(f.stringFromDate(date)) != date) ++wrong;
      }
    });
    threads.back().join();  // one at a time: each formatter is one thread's
  }
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace lumeo
