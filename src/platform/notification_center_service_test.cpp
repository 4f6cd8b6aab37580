// When a daily trigger fires: ordinary days, the two daylight-saving days
// of Europe/Berlin in 2024, a zone given by name against the current one.
#include "platform/notification_center_service.h"

#include <gtest/gtest.h>

#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;

Date utc(int y, int mo, int d, int h, int mi) {
  std::tm t{};
  t.tm_year = y - 1900;
  t.tm_mon = mo - 1;
  t.tm_mday = d;
  t.tm_hour = h;
  t.tm_min = mi;
  return Date::fromTimeIntervalSince1970(static_cast<double>(timegm(&t)));
}

CalendarTrigger berlin(int hour, int minute) {
  return CalendarTrigger{hour, minute, "Europe/Berlin", true};
}

TEST(CalendarTriggerTest, DaylightSavingDays) {
  struct Case {
    CalendarTrigger trigger;
    int month, day;
    Date expected;
  };
  const Case cases[] = {
      {berlin(9, 0), 6, 10, utc(2024, 6, 10, 7, 0)},
      {berlin(9, 0), 1, 10, utc(2024, 1, 10, 8, 0)},
      // Spring: 02:00 jumps to 03:00. What the jump skips comes as much later.
      {berlin(1, 59), 3, 31, utc(2024, 3, 31, 0, 59)},
      {berlin(2, 0), 3, 31, utc(2024, 3, 31, 1, 0)},    // = 03:00 CEST
      {berlin(2, 30), 3, 31, utc(2024, 3, 31, 1, 30)},  // = 03:30 CEST
      {berlin(3, 0), 3, 31, utc(2024, 3, 31, 1, 0)},
      {berlin(3, 30), 3, 31, utc(2024, 3, 31, 1, 30)},
      // Autumn: 03:00 falls back to 02:00. The first 02:30 counts.
      {berlin(2, 30), 10, 27, utc(2024, 10, 27, 0, 30)},
      {berlin(1, 30), 10, 27, utc(2024, 10, 26, 23, 30)},
      {berlin(3, 0), 10, 27, utc(2024, 10, 27, 2, 0)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(fireDateOnDay(c.trigger, 2024, c.month, c.day), c.expected)
        << c.trigger.hour << ":" << c.trigger.minute << " on " << c.month << "-" << c.day;
  }
}

TEST(CalendarTriggerTest, NextAndPreviousFireNeverRepeatAMinute) {
  // Walking 02:30 across the autumn night gives one fire per day.
  CalendarTrigger t = berlin(2, 30);
  Date at = utc(2024, 10, 25, 12, 0);
  std::vector<Date> fires;
  for (int i = 0; i < 4; ++i) {
    at = nextFireDate(t, at);
    fires.push_back(at);
  }
  EXPECT_EQ(fires, (std::vector<Date>{utc(2024, 10, 26, 0, 30), utc(2024, 10, 27, 0, 30),
                                      utc(2024, 10, 28, 1, 30), utc(2024, 10, 29, 1, 30)}));
  EXPECT_EQ(nextFireDate(t, utc(2024, 10, 27, 0, 30)), utc(2024, 10, 28, 1, 30)) << "strictly after";
  EXPECT_EQ(previousFireDate(t, utc(2024, 10, 27, 0, 30)), utc(2024, 10, 27, 0, 30)) << "at or before";
  EXPECT_EQ(previousFireDate(t, utc(2024, 10, 27, 0, 29)), utc(2024, 10, 26, 0, 30));
  EXPECT_EQ(nextFireDate(berlin(2, 30), utc(2024, 3, 30, 12, 0)), utc(2024, 3, 31, 1, 30));
}

TEST(CalendarTriggerTest, ZoneByNameOrTheCurrentOne) {
  ScopedEnvironment env{{"TZ", "Asia/Tokyo"}};
  EXPECT_EQ(fireDateOnDay(berlin(9, 0), 2024, 6, 10), utc(2024, 6, 10, 7, 0));
  EXPECT_EQ(fireDateOnDay(CalendarTrigger{9, 0, "", true}, 2024, 6, 10), utc(2024, 6, 10, 0, 0));
  EXPECT_EQ(fireDateOnDay(CalendarTrigger{9, 0, "Nowhere/Atlantis", true}, 2024, 6, 10),
            utc(2024, 6, 10, 0, 0));
}

TEST(InMemoryNotificationCenterTest, KeepsTheSetAndTheCalls) {
  InMemoryNotificationCenterService center;
  NotificationRequest r;
  r.identifier = "a";
  center.addNotificationRequest(r);
  center.removeAllPendingNotificationRequests();
  r.identifier = "b";
  center.addNotificationRequest(r);
  center.didFinishUpdatingPendingRequests();
  ASSERT_EQ(center.pendingNotificationRequests().size(), 1u);
  EXPECT_EQ(center.pendingNotificationRequests()[0].identifier, "b");
  EXPECT_EQ(center.calls(), (std::vector<std::string>{"add", "remove", "add", "finish"}));
}

}  // namespace
}  // namespace lumeo
