// The reminder screens' logic: what each stores and when it asks for a
// reminder pass, the editor's defaults and clamps, the list's two orders.
#include <gtest/gtest.h>

#include "platform/clock.h"
#include "platform/user_defaults.h"
#include "reminders/mood_reminder_sound_view_controller.h"
#include "reminders/mood_reminder_view_controller.h"
#include "reminders/mood_reminders_view_controller.h"
#include "reminders/reminder_test_support.h"
#include "shell/shell_services.h"
#include "store/mood_user_defaults_operator.h"
#include "store/settings_keys.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::hourMinute;
using testing::ScopedEnvironment;
using testing::sequenceSource;
using testing::wallTime;

class CountingScheduler : public ReminderScheduler {
 public:
  void rescheduleReminders(bool showProgress) override {
    ++passes;
    withProgress = showProgress;
  }
  int passes = 0;
  bool withProgress = false;
};

class RecordingPlayer : public ReminderSoundPlayer {
 public:
  void play(const std::filesystem::path& file) override { played.push_back(file.filename().string()); }
  void stop() override { ++stops; }
  std::vector<std::string> played;
  int stops = 0;
};

class ReminderScreensTest : public ::testing::Test {
 protected:
  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
    settings_ = std::make_unique<MoodUserDefaultsOperator>(defaults_);
  }
  static Value fixed(Date at, bool on = true) {
    return Value(Value::Dictionary{
        {"on", on}, {"isPeriodic", 0}, {"isRandom", 0}, {"timeFrom", at}, {"reminderCount", 1}});
  }
  static Value window(Date from, Date to, std::int64_t count) {
    return Value(Value::Dictionary{{"on", true},
                                   {"isPeriodic", 1},
                                   {"isRandom", 0},
                                   {"timeFrom", from},
                                   {"timeTo", to},
                                   {"reminderCount", count}});
  }
  Value::Array stored() { return settings_->remindersAlarms(); }

  ScopedEnvironment env_{{"TZ", "Europe/Berlin"}, {"LANG", "en_GB.UTF-8"}};
  ScopedSimulatedClock clock_{Date::fromTimeIntervalSince1970(1718013600 + 17 * 60 + 42)};  // 12:17:42
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<MoodUserDefaultsOperator> settings_;
  CountingScheduler scheduler_;
};

TEST_F(ReminderScreensTest, ListOrderAndCells) {
  Value late = window(wallTime(2024, 6, 1, 13, 0), wallTime(2024, 6, 1, 14, 0), 2);
  Value early = window(wallTime(2024, 6, 1, 8, 0), wallTime(2024, 6, 1, 9, 0), 2);
  Value evening = fixed(wallTime(2024, 6, 1, 20, 0), false);
  Value morning = fixed(wallTime(2024, 6, 1, 7, 0));
  ASSERT_FALSE(settings_->setRemindersAlarms({late, evening, early, morning}));
  MoodRemindersViewController list(*settings_, scheduler_);
  list.loadAlarms();
  EXPECT_EQ(list.alarmInfoArray(), (Value::Array{morning, evening, early, late}));
  EXPECT_EQ(list.numberOfRowsInSection(0), 2u);
  EXPECT_EQ(list.numberOfRowsInSection(1), 4u);
  EXPECT_EQ(stored(), (Value::Array{late, evening, early, morning})) << "loading stores nothing";

  auto cell = MoodRemindersCell::setAlarmInfo(evening);
  EXPECT_FALSE(cell.switchOn);
  EXPECT_EQ(cell.timeText, "20:00");
  EXPECT_EQ(cell.timeTextColor, MoodRemindersCell::kDisabledColor);
  auto span = MoodRemindersCell::setAlarmInfo(early);
  EXPECT_EQ(span.timeText, "08:00 - 09:00");
  EXPECT_EQ(span.timeTextColor, (RGBAColor{0, 0, 0, 1}));

  // Rows open the editor only in editing mode, after storing the shown order.
  EXPECT_EQ(list.didSelectRow(1, 2, false).kind, MoodRemindersViewController::Destination::Kind::kNone);
  EXPECT_EQ(list.didSelectRow(0, 0, false).kind, MoodRemindersViewController::Destination::Kind::kTextEditor);
  auto open = list.didSelectRow(1, 2, true);
  EXPECT_EQ(open.kind, MoodRemindersViewController::Destination::Kind::kReminderEditor);
  EXPECT_EQ(open.index, 2);
  EXPECT_EQ(stored(), list.alarmInfoArray());
  EXPECT_EQ(scheduler_.passes, 0);

  // Cancelling the editor changes nothing more.
  MoodReminderViewController editor(*settings_, scheduler_, open.reminder, open.index);
  editor.viewDidLoad();
  editor.cancelClick();
  EXPECT_TRUE(editor.left());
  EXPECT_EQ(stored(), (Value::Array{morning, evening, early, late}));
  EXPECT_EQ(scheduler_.passes, 0);
}

TEST_F(ReminderScreensTest, SwitchUpgradesLegacyDictionaryAndDeletingAllStoresAnEmptyList) {
  Value legacy(Value::Dictionary{{"date", wallTime(2024, 6, 1, 20, 0)}, {"on", false}});
  defaults_->registerDefaults({{kAlarm, Value(Value::Array{legacy})}});
  MoodRemindersViewController list(*settings_, scheduler_);
  list.loadAlarms();
  ASSERT_EQ(list.alarmInfoArray().size(), 1u);
  auto reminder = *MoodReminder::dictionaryToReminder(list.alarmInfoArray()[0]);
  reminder.isEnabled = true;
  list.settingsCellDidChangeAlarmInfo(reminder, 0);
  EXPECT_EQ(scheduler_.passes, 1);
  EXPECT_TRUE(scheduler_.withProgress);
  ASSERT_TRUE(settings_->remindersAlarmsExists());
  const Value upgraded = stored().at(0);
  EXPECT_EQ(upgraded["timeFrom"], legacy["date"]);
  EXPECT_TRUE(upgraded["date"].isNull());
  EXPECT_EQ(upgraded["on"], Value(true));

  EXPECT_TRUE(list.commitDeleteRow(0)) << "the empty label fades in";
  EXPECT_EQ(stored().size(), 1u) << "nothing stored before done";
  list.done();
  EXPECT_TRUE(settings_->remindersAlarmsExists());
  EXPECT_TRUE(stored().empty()) << "the factory reminders do not come back";
  EXPECT_EQ(scheduler_.passes, 2);
}

TEST_F(ReminderScreensTest, NewReminderDefaultsAndSave) {
  MoodRemindersViewController list(*settings_, scheduler_);
  list.loadAlarms();
  auto destination = list.add();
  EXPECT_EQ(destination.index, -1);
  MoodReminderViewController editor(*settings_, scheduler_, destination.reminder, destination.index);
  editor.viewDidLoad();
  EXPECT_EQ(hourMinute(*editor.reminder().timeFrom), "10:00");
  EXPECT_EQ(hourMinute(*editor.reminder().timeTo), "18:00");
  EXPECT_EQ(editor.reminder().soundFilename, "Default.mp3");
  EXPECT_EQ(editor.countLabel(), "1");
  EXPECT_EQ(editor.remindType(), MoodReminderViewController::kFixedTime);
  editor.setReminderText("Check in");
  editor.saveClick();
  ASSERT_EQ(stored().size(), 1u);
  EXPECT_EQ(stored()[0]["reminderText"], Value("Check in"));
  EXPECT_EQ(stored()[0]["reminderCount"].toInt(), 1);
  EXPECT_EQ(scheduler_.passes, 1);
  EXPECT_TRUE(editor.left());
}

TEST_F(ReminderScreensTest, EditorClampsAndSaveRules) {
  MoodRandomReminder drawn;
  Value::Dictionary big =
      *window(wallTime(2024, 6, 1, 9, 0), wallTime(2024, 6, 1, 21, 0), 250).asDictionary();
  big["on"] = false;
  big["isRandom"] = 1;
  ASSERT_FALSE(settings_->setRemindersAlarms({Value(big)}));
  MoodReminderViewController editor(*settings_, scheduler_, MoodReminder::dictionaryToReminder(Value(big)), 0,
                                    sequenceSource({0}));
  editor.viewDidLoad();
  EXPECT_EQ(editor.countLabel(), "100");
  EXPECT_EQ(editor.remindType(), MoodReminderViewController::kWindowStart);
  editor.stepperValueChanged(0);
  EXPECT_EQ(editor.countLabel(), "1");
  editor.stepperValueChanged(100);
  editor.saveClick();
  const Value saved = stored().at(0);
  EXPECT_EQ(saved["on"], Value(true)) << "saving turns a reminder on";
  EXPECT_EQ(saved["reminderCount"].toInt(), 100);
  ASSERT_TRUE(saved["randomReminder"].asDictionary()) << "every save of a random reminder draws afresh";
  EXPECT_EQ(saved["randomReminder"]["shotArray"].asArray()->size(), 24u);

  // Saved as fixed: no draw, count 1.
  MoodReminderViewController again(*settings_, scheduler_, MoodReminder::dictionaryToReminder(saved), 0);
  again.viewDidLoad();
  again.periodicValueChanged(false);
  EXPECT_TRUE(again.pickerVisible());
  again.timePickerValueChanged(wallTime(2024, 6, 1, 7, 30));
  again.saveClick();
  EXPECT_TRUE(stored().at(0)["randomReminder"].isNull());
  EXPECT_EQ(stored().at(0)["reminderCount"].toInt(), 1);
  EXPECT_EQ(stored().at(0)["isPeriodic"].toInt(), 0);
  EXPECT_EQ(hourMinute(*stored().at(0)["timeFrom"].asDate()), "07:30");

  // The picker edits the date its button chose.
  again.periodicValueChanged(true);
  again.toButtonClick();
  again.timePickerValueChanged(wallTime(2024, 6, 1, 22, 0));
  EXPECT_EQ(hourMinute(*again.reminder().timeTo), "22:00");
  EXPECT_EQ(hourMinute(*again.pickerDate()), "22:00");
  again.fromButtonClick();
  EXPECT_EQ(hourMinute(*again.pickerDate()), "07:30");
}

TEST_F(ReminderScreensTest, RoundDateKeepsSeconds) {
  Date d = wallTime(2024, 6, 1, 12, 17, 42);
  EXPECT_EQ(MoodReminderViewController::roundDate(d), wallTime(2024, 6, 1, 12, 15, 42));
  EXPECT_EQ(MoodReminderViewController::roundDate(wallTime(2024, 6, 1, 12, 15, 42)),
            wallTime(2024, 6, 1, 12, 15, 42));
  EXPECT_EQ(MoodReminderViewController::startTime(10), wallTime(2024, 6, 10, 10, 0));
}

TEST_F(ReminderScreensTest, SoundPickerAndTextEditor) {
  MoodReminder reminder;
  reminder.soundFilename = "Whistle.ogg";
  auto player = std::make_shared<RecordingPlayer>();
  MoodReminderSoundViewController picker(reminder, "/sounds", player);
  EXPECT_EQ(picker.numberOfRows(), 15u);
  EXPECT_EQ(picker.checkedRow(), 0u) << "not in the catalogue";
  EXPECT_EQ(picker.titleForRow(3), "Cordless phone");
  picker.didSelectRow(5);
  EXPECT_EQ(reminder.soundFilename, "Gong big.mp3");
  EXPECT_EQ(picker.checkedRow(), 5u);
  picker.didSelectRow(0);
  EXPECT_EQ(reminder.soundFilename, "Default.mp3");
  EXPECT_EQ(player->played, (std::vector<std::string>{"Gong big.mp3"})) << "row 0 has no preview";
  EXPECT_EQ(player->stops, 2);

  MoodNotificationTextEditViewController text(*settings_, scheduler_);
  text.textViewDidChange("Wie geht's?");
  EXPECT_EQ(settings_->remindersText(), "Wie geht's?") << "stored at once";
  text.backButtonClicked();
  EXPECT_EQ(scheduler_.passes, 0) << "back does not reschedule";
  text.returnPressed();
  EXPECT_EQ(scheduler_.passes, 1);
  EXPECT_TRUE(text.left());
}

}  // namespace
}  // namespace lumeo
