// MobileUsable's date helpers: the field-wise difference that the backup
// reminder reads its day count from, and the "more than this much time" test.
#include "store/mobile_usable.h"

#include <gtest/gtest.h>

#include "platform/calendar.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

Date wall(std::int64_t y, std::int64_t mo, std::int64_t d, std::int64_t h = 0, std::int64_t mi = 0,
          std::int64_t s = 0) {
  DateComponents c;
  c.year = y;
  c.month = mo;
  c.day = d;
  c.hour = h;
  c.minute = mi;
  c.second = s;
  return *Calendar::current().dateFromComponents(c);
}

class MobileUsableTest : public ::testing::TestWithParam<const char*> {
 protected:
  ScopedEnvironment env_{{"TZ", GetParam()}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}};
};

INSTANTIATE_TEST_SUITE_P(Zones, MobileUsableTest,
                         ::testing::Values("UTC", "America/Sao_Paulo", "Pacific/Auckland"));

TEST_P(MobileUsableTest, DifferenceKeepsOnlyTheRemainderInEachField) {
  struct Case {
    Date start, end;
    std::int64_t year, month, day, hour, minute, second;
  };
  const Case cases[] = {
      // 1 month and 2 days counts as 2 days for the backup reminder.
      {wall(2026, 1, 1), wall(2026, 2, 3, 5), 0, 1, 2, 5, 0, 0},
      {wall(2026, 1, 1, 10), wall(2026, 1, 6, 9, 59, 59), 0, 0, 4, 23, 59, 59},
      {wall(2024, 2, 29), wall(2026, 3, 1, 0, 0, 1), 2, 0, 1, 0, 0, 1},
      {wall(2026, 3, 5), wall(2026, 1, 1), 0, -2, -4, 0, 0, 0},
      {wall(2026, 1, 31), wall(2026, 3, 1), 0, 1, 1, 0, 0, 0},
  };
  for (const auto& c : cases) {
    const DateComponents d = MobileUsable::differenceBetweenStartDate(c.start, c.end);
    EXPECT_EQ(d.era, 0);
    EXPECT_EQ(d.year, c.year);
    EXPECT_EQ(d.month, c.month);
    EXPECT_EQ(d.day, c.day);
    EXPECT_EQ(d.hour, c.hour);
    EXPECT_EQ(d.minute, c.minute);
    EXPECT_EQ(d.second, c.second);
    EXPECT_FALSE(d.weekday.has_value());
  }
}

TEST_P(MobileUsableTest, OrderAdditionAndElapsedTime) {
  const Date a = wall(2026, 5, 1, 12);
  const Date b = a.dateByAddingTimeInterval(1);
  EXPECT_TRUE(MobileUsable::countingFromZeroBiggerThanDate(b, a));
  EXPECT_FALSE(MobileUsable::countingFromZeroBiggerThanDate(a, a));
  EXPECT_TRUE(MobileUsable::countingFromZeroLesserThanDate(a, b));
  EXPECT_FALSE(MobileUsable::countingFromZeroLesserThanDate(b, b));

  DateComponents oneMonth;
  oneMonth.month = 1;
  EXPECT_EQ(MobileUsable::date(wall(2026, 1, 31, 8), oneMonth), wall(2026, 2, 28, 8));

  DateComponents fiveDays;
  fiveDays.day = 5;
  const Date older = wall(2026, 1, 1, 9);
  EXPECT_FALSE(MobileUsable::amountTimeFromNewerDate(wall(2026, 1, 6, 9), older, fiveDays));
  EXPECT_TRUE(MobileUsable::amountTimeFromNewerDate(wall(2026, 1, 6, 9, 0, 1), older, fiveDays));
  EXPECT_FALSE(MobileUsable::amountTimeFromNewerDate(wall(2030, 1, 1), std::nullopt, fiveDays));
}

// Whatever calendar system the user reads dates in, the elapsed-time test
// counts Gregorian months.
TEST(MobileUsableCalendarTest, ElapsedTimeIsGregorianUnderAnotherCalendar) {
  ScopedEnvironment env{{"TZ", "UTC"}, {"LANG", "en_US@calendar=hebrew"}, {"LC_ALL", std::nullopt}};
  ASSERT_EQ(Calendar::current().identifier(), "hebrew");
  DateComponents oneMonth;
  oneMonth.month = 1;
  // 31 January + 1 Gregorian month is 28 February; a Hebrew month would end
  // elsewhere.
  const Date older = Date::fromTimeIntervalSince1970(1769817600.0);  // 2026-01-31 00:00 UTC
  const Date feb28 = Date::fromTimeIntervalSince1970(1772236800.0);  // 2026-02-28 00:00 UTC
  EXPECT_FALSE(MobileUsable::amountTimeFromNewerDate(feb28, older, oneMonth));
  EXPECT_TRUE(MobileUsable::amountTimeFromNewerDate(feb28.dateByAddingTimeInterval(1), older, oneMonth));
}

}  // namespace
}  // namespace lumeo
