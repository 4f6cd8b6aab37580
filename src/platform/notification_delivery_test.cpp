// Which moments a delivery agent delivers as its clock moves: minute by
// minute through the daylight-saving days of Europe/Berlin, across a
// six-hour suspend, with the clock set back, and with the requests replaced
// while it waits.
#include "platform/notification_delivery.h"

#include <gtest/gtest.h>

#include <ctime>

#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

Date utc(int y, int mo, int d, int h, int mi) {
  std::tm t{};
  t.tm_year = y - 1900;
  t.tm_mon = mo - 1;
  t.tm_mday = d;
  t.tm_hour = h;
  t.tm_min = mi;
  return Date::fromTimeIntervalSince1970(static_cast<double>(timegm(&t)));
}

NotificationRequest at(int hour, int minute, const std::string& thread) {
  NotificationRequest r;
  r.identifier = thread + "@" + std::to_string(hour) + ":" + std::to_string(minute);
  r.trigger = CalendarTrigger{hour, minute, "Europe/Berlin", true};
  r.content.threadIdentifier = thread;
  return r;
}

// Walks the clock from `from` to `to` in `step` seconds and returns
// "id@UTC-hh:mm" for every delivery, "+" marking catch-ups.
std::vector<std::string> walk(NotificationDeliveryPlanner& planner, Date from, Date to, double step) {
  std::vector<std::string> out;
  for (Date now = from; now <= to; now = now.dateByAddingTimeInterval(step)) {
    for (const auto& due : planner.collectDue(now)) {
      auto seconds = static_cast<long>(due.fireDate.timeIntervalSince1970());
      char when[16];
      std::snprintf(when, sizeof when, "%02ld:%02ld", (seconds / 3600) % 24, (seconds / 60) % 60);
      out.push_back((due.catchUp ? "+" : "") + due.request.identifier + "=" + when);
    }
  }
  return out;
}

TEST(NotificationDeliveryTest, SpringForwardDayDeliversEachMomentOnce) {
  NotificationDeliveryPlanner planner(utc(2024, 3, 30, 22, 0));  // 23:00 CET
  planner.setRequests({at(1, 30, "a"), at(2, 0, "b"), at(2, 30, "c"), at(3, 0, "d"), at(3, 30, "e")});
  auto got = walk(planner, utc(2024, 3, 30, 22, 0), utc(2024, 3, 31, 3, 0), 30);
  // 02:00 and 02:30 do not exist: they come at 03:00 and 03:30 summer time,
  // together with the moments that name those times.
  EXPECT_EQ(got, (std::vector<std::string>{"a@1:30=00:30", "b@2:0=01:00", "d@3:0=01:00", "c@2:30=01:30",
                                           "e@3:30=01:30"}));
}

TEST(NotificationDeliveryTest, FallBackDayDeliversTheRepeatedHourOnce) {
  NotificationDeliveryPlanner planner(utc(2024, 10, 26, 22, 0));
  planner.setRequests({at(1, 30, "a"), at(2, 30, "b"), at(3, 30, "c")});
  auto got = walk(planner, utc(2024, 10, 26, 22, 0), utc(2024, 10, 27, 4, 0), 60);
  EXPECT_EQ(got, (std::vector<std::string>{"a@1:30=23:30", "b@2:30=00:30", "c@3:30=02:30"}));
}

TEST(NotificationDeliveryTest, SuspendGivesOneCatchUpPerReminder) {
  // A window reminder (thread w) with moments every two hours and a fixed
  // one (thread f). The machine sleeps from 08:00 to 14:00 Berlin time.
  NotificationDeliveryPlanner planner(utc(2024, 6, 10, 4, 0));
  planner.setRequests(
      {at(9, 0, "w"), at(11, 0, "w"), at(13, 0, "w"), at(15, 0, "w"), at(10, 15, "f"), at(14, 0, "f2")});
  auto before = walk(planner, utc(2024, 6, 10, 4, 0), utc(2024, 6, 10, 6, 0), 60);
  EXPECT_TRUE(before.empty());
  auto wake = planner.collectDue(utc(2024, 6, 10, 12, 0) /* 14:00 Berlin */);
  std::vector<std::string> got;
  for (const auto& d : wake) got.push_back((d.catchUp ? "+" : "") + d.request.identifier);
  // w: only its latest missed moment; f: one; f2 is due on the minute.
  EXPECT_EQ(got, (std::vector<std::string>{"+f@10:15", "+w@13:0", "f2@14:0"}));
  // Nothing twice afterwards, and the day goes on.
  auto after = walk(planner, utc(2024, 6, 10, 12, 0), utc(2024, 6, 10, 14, 0), 60);
  EXPECT_EQ(after, (std::vector<std::string>{"w@15:0=13:00"}));
}

TEST(NotificationDeliveryTest, MissedWhileTheSameReminderIsDueOnTimeGivesNoCatchUp) {
  NotificationDeliveryPlanner planner(utc(2024, 6, 10, 6, 0));
  planner.setRequests({at(9, 0, "w"), at(11, 0, "w")});
  auto due = planner.collectDue(utc(2024, 6, 10, 9, 0));
  ASSERT_EQ(due.size(), 1u);
  EXPECT_EQ(due[0].request.identifier, "w@11:0");
  EXPECT_FALSE(due[0].catchUp);
}

TEST(NotificationDeliveryTest, ClockSetBackRepeatsNothing) {
  NotificationDeliveryPlanner planner(utc(2024, 6, 10, 6, 0));
  planner.setRequests({at(9, 0, "a")});
  EXPECT_EQ(planner.collectDue(utc(2024, 6, 10, 7, 0)).size(), 1u);
  EXPECT_TRUE(planner.collectDue(utc(2024, 6, 10, 6, 30)).empty()) << "set back an hour";
  EXPECT_TRUE(planner.collectDue(utc(2024, 6, 10, 7, 0)).empty()) << "passing 09:00 again";
  EXPECT_EQ(planner.collectDue(utc(2024, 6, 11, 7, 0)).size(), 1u) << "the next day";
}

TEST(NotificationDeliveryTest, ReplacedRequestsKeepWhatWasChecked) {
  NotificationDeliveryPlanner planner(utc(2024, 6, 10, 6, 0));
  planner.setRequests({at(9, 0, "a")});
  EXPECT_EQ(planner.collectDue(utc(2024, 6, 10, 7, 0)).size(), 1u);
  // A pass made new identifiers for the same moment.
  auto again = at(9, 0, "a");
  again.identifier = "new";
  planner.setRequests({again, at(9, 30, "b")});
  EXPECT_EQ(planner.nextFireDate(utc(2024, 6, 10, 7, 0)), utc(2024, 6, 10, 7, 30));
  auto due = planner.collectDue(utc(2024, 6, 10, 7, 30));
  ASSERT_EQ(due.size(), 1u);
  EXPECT_EQ(due[0].request.identifier, "b@9:30");
}

TEST(NotificationDeliveryTest, PreviousMomentOfAReminder) {
  NotificationDeliveryPlanner planner(utc(2024, 6, 10, 6, 0));
  planner.setRequests({at(9, 0, "w"), at(13, 0, "w"), at(17, 0, "w"), at(20, 0, "f")});
  EXPECT_EQ(planner.previousMomentOfReminder(at(13, 0, "w"), utc(2024, 6, 10, 11, 0)),
            utc(2024, 6, 10, 7, 0));
  EXPECT_EQ(planner.previousMomentOfReminder(at(9, 0, "w"), utc(2024, 6, 10, 7, 0)), utc(2024, 6, 9, 15, 0));
  EXPECT_EQ(planner.previousMomentOfReminder(at(20, 0, "f"), utc(2024, 6, 10, 18, 0)),
            utc(2024, 6, 9, 18, 0));
}

}  // namespace
}  // namespace lumeo
