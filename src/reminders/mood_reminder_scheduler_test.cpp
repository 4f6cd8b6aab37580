// The reminder pass: the moments it makes for each kind of reminder (the
// worked examples, their odd window arithmetic included), what it writes
// back and how often, and the order of its calls to the notification centre.
#include "reminders/mood_reminder_scheduler.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "reminders/mood_reminder.h"
#include "reminders/reminder_test_support.h"
#include "store/mood_user_defaults_operator.h"
#include "store/settings_keys.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::hourMinute;
using testing::ScopedEnvironment;
using testing::seededSource;
using testing::sequenceSource;
using testing::wallTime;

class ReminderPassTest : public ::testing::Test {
 protected:
  static Value periodic(Date from, Date to, std::int64_t count, bool random = false, bool on = true) {
    return Value(Value::Dictionary{{"on", on},
                                   {"isPeriodic", 1},
                                   {"isRandom", random ? 1 : 0},
                                   {"timeFrom", from},
                                   {"timeTo", to},
                                   {"reminderCount", count}});
  }
  static std::vector<std::string> times(const ReminderPass& pass) {
    std::vector<std::string> out;
    for (const auto& m : pass.moments) out.push_back(hourMinute(m.fireDate));
    return out;
  }
  static Date at(int hour, int minute) { return wallTime(2024, 5, 2, hour, minute); }

  ScopedEnvironment env_{{"TZ", "Europe/Berlin"}};
  // "Today" is 10 June 2024; the reminders were edited on 2 May.
  ScopedSimulatedClock clock_{Date::fromTimeIntervalSince1970(1718013600)};
};

TEST_F(ReminderPassTest, PeriodicWindows) {
  struct Case {
    Date from, to;
    std::int64_t count;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      // 00 < 30: the end counts as tomorrow, so 31.5 hours in steps of 7:52:30.
      {at(9, 30), at(17, 0), 4, {"09:30", "17:22", "01:15", "09:07"}},
      {at(9, 0), at(17, 30), 4, {"09:00", "11:07", "13:15", "15:22"}},
      {at(22, 0), at(6, 0), 2, {"22:00", "02:00"}},
      {at(8, 0), at(8, 0), 3, {}},
      {at(8, 15), at(8, 15), 0, {}},
      {at(8, 0), at(20, 0), 0, {"08:00"}},  // a count of 0 counts as 1
      {at(8, 0), at(20, 0), -5, {"08:00"}},
      {at(8, 0), at(8, 1), 2, {"08:00", "08:00"}},  // two moments in one minute
  };
  for (const Case& c : cases) {
    auto pass = planReminderPass({periodic(c.from, c.to, c.count)}, "How are you?");
    EXPECT_EQ(times(pass), c.expected) << hourMinute(c.from) << "-" << hourMinute(c.to) << " x" << c.count;
    EXPECT_FALSE(pass.changed);
  }

  auto hundred = planReminderPass({periodic(at(0, 0), at(23, 20), 100)}, "");
  EXPECT_EQ(hundred.moments.size(), 100u) << "nothing trims them";
  auto requests = std::set<std::string>();
  for (const auto& m : planReminderPass({periodic(at(8, 0), at(8, 1), 2)}, "").moments) {
    requests.insert(makeNotificationRequest(m).identifier);
  }
  EXPECT_EQ(requests.size(), 2u) << "distinct identifiers";
}

TEST_F(ReminderPassTest, FixedAndLegacyReminders) {
  Value::Array alarms = {
      Value(Value::Dictionary{{"date", at(20, 0)}, {"on", true}}),
      Value(Value::Dictionary{{"date", at(10, 0)}, {"on", false}}),
      Value(Value::Dictionary{{"on", true},
                              {"isPeriodic", 0},
                              {"timeFrom", at(7, 45)},
                              {"reminderText", "Morning check"},
                              {"templateText", "#morning "},
                              {"kSoundFilenameKey", "Gong small.mp3"}}),
      Value(Value::Dictionary{{"on", true}, {"isPeriodic", 0}}),  // no time: nothing
      Value("not a reminder"),
      Value(Value::Dictionary{{"on", true}, {"timeFrom", "07:00"}}),
  };
  auto pass = planReminderPass(alarms, "How are you feeling right now?");
  ASSERT_EQ(pass.moments.size(), 2u);
  EXPECT_EQ(hourMinute(pass.moments[0].fireDate), "20:00");
  EXPECT_EQ(pass.moments[0].text, "How are you feeling right now?");
  EXPECT_EQ(pass.moments[0].templateText, "");
  EXPECT_EQ(pass.moments[0].soundFilename, "Default.mp3") << "no sound named: the file";
  EXPECT_EQ(pass.moments[1].text, "Morning check");
  EXPECT_EQ(pass.moments[1].templateText, "#morning ");
  EXPECT_EQ(pass.moments[1].soundFilename, "Gong small.mp3");
  EXPECT_EQ(pass.moments[1].reminderIndex, 2u);
  EXPECT_FALSE(pass.changed);
  EXPECT_EQ(pass.alarms, alarms) << "a pass leaves what it cannot read as it is";

  Value::Dictionary named{{"on", true}, {"date", at(6, 0)}, {"kSoundFilenameKey", "Default.mp3"}};
  auto system = planReminderPass({Value(named)}, "");
  EXPECT_EQ(system.moments.at(0).soundFilename, kSystemDefaultSoundName);

  auto request = makeNotificationRequest(pass.moments[1]);
  EXPECT_EQ(request.content.badge, 1);
  EXPECT_EQ(request.content.body, "Morning check");
  EXPECT_EQ(request.content.userInfo.at("template"), Value("#morning "));
  EXPECT_EQ(request.trigger.hour, 7);
  EXPECT_EQ(request.trigger.minute, 45);
  EXPECT_EQ(request.trigger.timeZone, "Europe/Berlin");
  EXPECT_TRUE(request.trigger.repeats);
}

TEST_F(ReminderPassTest, RandomRemindersAreDrawnOnceAndReDrawnWhenDue) {
  Value::Array alarms = {periodic(at(9, 0), at(21, 0), 4, true),
                         periodic(at(9, 0), at(21, 0), 4, true, /*on=*/false)};
  auto first = planReminderPass(alarms, "", sequenceSource({0}));
  EXPECT_TRUE(first.changed);
  EXPECT_EQ(times(first), (std::vector<std::string>{"09:45", "12:22", "15:00", "17:37"}));
  ASSERT_TRUE(first.alarms[0].asDictionary()->count("randomReminder"));
  EXPECT_EQ(first.alarms[1], alarms[1]) << "a disabled reminder is left undrawn";

  // The same day: the stored draw stands.
  auto again = planReminderPass(first.alarms, "", seededSource(9));
  EXPECT_FALSE(again.changed);
  EXPECT_EQ(times(again), times(first));

  // The day after the window's end: a re-draw anywhere in the window.
  clock_.clock().set(wallTime(2024, 6, 11, 21, 30));
  auto later = planReminderPass(first.alarms, "", seededSource(9));
  EXPECT_TRUE(later.changed);
  EXPECT_EQ(later.moments.size(), 4u);
  EXPECT_NE(times(later), times(first));
  auto stored = MoodRandomReminder::initFromDictionary(
      *later.alarms[0].asDictionary()->at("randomReminder").asDictionary());
  EXPECT_EQ(stored.dateAfterWhichRandomizingPossible(), wallTime(2024, 6, 11, 21, 0))
      << "recomputed from today";
  EXPECT_EQ(stored.fromTime(), at(9, 0)) << "the window keeps its day";
}

class SchedulerTest : public ReminderPassTest {
 protected:
  void SetUp() override {
    storage_ = std::make_shared<InMemoryUserDefaultsStorage>();
    defaults_ = std::make_shared<UserDefaults>(storage_);
    center_ = std::make_shared<InMemoryNotificationCenterService>();
  }
  void runPass(MoodReminderScheduler& scheduler, bool progress) {
    bool done = false;
    scheduler.rescheduleReminders(progress, [&] { done = true; });
    ASSERT_TRUE(MainLoop::shared().runUntil([&] { return done; }, 5));
  }

  std::shared_ptr<InMemoryUserDefaultsStorage> storage_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<InMemoryNotificationCenterService> center_;
};

class CountingProgress : public ReminderProgressIndicator {
 public:
  void start(const std::string& label, double minimum) override {
    label_ = label;
    minimum_ = minimum;
    ++starts_;
  }
  void stop() override { ++stops_; }
  std::string label_;
  double minimum_ = 0;
  int starts_ = 0, stops_ = 0;
};

TEST_F(SchedulerTest, PassReplacesTheSetAndWritesBackOnce) {
  MoodUserDefaultsOperator settings(defaults_);
  ASSERT_FALSE(settings.setRemindersText(std::string("How are you feeling right now?")));
  ASSERT_FALSE(settings.setRemindersAlarms({periodic(at(9, 0), at(21, 0), 3, true),
                                            periodic(at(8, 0), at(20, 0), 2, true),
                                            Value(Value::Dictionary{{"date", at(20, 0)}, {"on", true}})}));
  center_->addNotificationRequest(NotificationRequest{});  // left from an earlier pass
  const int writesBefore = storage_->writeCount();

  auto progress = std::make_shared<CountingProgress>();
  MoodReminderScheduler scheduler(center_, defaults_, progress, seededSource(5));
  runPass(scheduler, true);

  EXPECT_EQ(storage_->writeCount() - writesBefore, 1) << "two reminders drawn, one write";
  auto pending = center_->pendingNotificationRequests();
  EXPECT_EQ(pending.size(), 3u + 2u + 1u);
  auto calls = center_->calls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[0], "add");  // the leftover
  EXPECT_EQ(calls[1], "remove");
  EXPECT_EQ(calls.back(), "finish");
  EXPECT_EQ(progress->starts_, 1);
  EXPECT_EQ(progress->stops_, 1);
  EXPECT_EQ(progress->label_, "Setting up reminders...");
  EXPECT_EQ(progress->minimum_, 1.5);

  // Nothing drawn: nothing written, the same moments again.
  runPass(scheduler, false);
  EXPECT_EQ(storage_->writeCount() - writesBefore, 1);
  EXPECT_EQ(center_->pendingNotificationRequests().size(), pending.size());
  EXPECT_EQ(progress->starts_, 1) << "no indicator when not asked for";
}

}  // namespace
}  // namespace lumeo
