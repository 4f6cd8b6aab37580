// The reminder editor's logic.
#include "reminders/mood_reminder_view_controller.h"

#include <algorithm>

#include "platform/calendar.h"
#include "shell/shell_services.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

MoodReminderViewController::MoodReminderViewController(MoodUserDefaultsOperator& settings,
                                                       ReminderScheduler& scheduler,
                                                       std::optional<MoodReminder> reminder,
                                                       std::int64_t index, RandomSource random)
    : MoodViewController("MoodReminderViewController"),
      settings_(settings),
      scheduler_(scheduler),
      reminder_(reminder.value_or(MoodReminder{})),
      hadReminder_(reminder.has_value()),
      index_(index),
      random_(std::move(random)) {}

Date MoodReminderViewController::roundDate(Date date) {
  Calendar calendar = Calendar::current();
  std::int64_t minute = calendar.component(CalendarUnit::kMinute, date);
  return date.dateByAddingTimeInterval(-60.0 * static_cast<double>(minute % 5));
}

Date MoodReminderViewController::startTime(int hour) {
  Calendar calendar = Calendar::current();
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  today.hour = hour;
  today.minute = 0;
  today.second = 0;
  return roundDate(calendar.dateFromComponents(today).value_or(Date::now()));
}

void MoodReminderViewController::viewDidLoad() {
  if (!hadReminder_) {
    reminder_ = MoodReminder{};
    reminder_.soundFilename = kDefaultReminderSound;
    remindType_ = kFixedTime;
    reminder_.timeFrom = startTime(10);
    reminder_.timeTo = startTime(18);
  } else if (reminder_.isPeriodic) {
    remindType_ = kWindowStart;
  } else {
    remindType_ = kFixedTime;
    reminder_.timeTo = startTime(18);
    if (!reminder_.timeFrom) reminder_.timeFrom = startTime(10);
  }
  pickerVisible_ = !reminder_.isPeriodic;
  reminderText_ = reminder_.reminderText.value_or("");
  templateText_ = reminder_.templateText.value_or("");
  updateControlsValues();
}

void MoodReminderViewController::updateControlsValues() {
  reminder_.reminderCount = std::clamp(reminder_.reminderCount, kMinimumCount, kMaximumCount);
}

std::string MoodReminderViewController::countLabel() const {
  return std::to_string(reminder_.reminderCount);
}

void MoodReminderViewController::periodicValueChanged(bool periodic) {
  reminder_.isPeriodic = periodic;
  if (periodic) {
    remindType_ = kWindowStart;
    pickerVisible_ = false;
  } else {
    remindType_ = kFixedTime;
    pickerVisible_ = true;
  }
}

void MoodReminderViewController::randomSwitchValueChanged(bool random) {
  reminder_.isRandom = random;
}

void MoodReminderViewController::fromButtonClick() {
  remindType_ = kWindowStart;
  pickerVisible_ = true;
}

void MoodReminderViewController::toButtonClick() {
  remindType_ = kWindowEnd;
  pickerVisible_ = true;
}

std::optional<Date> MoodReminderViewController::pickerDate() const {
  return remindType_ == kWindowEnd ? reminder_.timeTo : reminder_.timeFrom;
}

void MoodReminderViewController::timePickerValueChanged(Date date) {
  if (remindType_ == kWindowEnd) {
    reminder_.timeTo = date;
  } else {
    reminder_.timeFrom = date;
  }
}

void MoodReminderViewController::stepperValueChanged(std::int64_t count) {
  reminder_.reminderCount = count;
  updateControlsValues();
}

bool MoodReminderViewController::saveOrder(const Value& a, const Value& b) {
  return reminderDictionaryPrecedes(a, b, "date");
}

void MoodReminderViewController::saveClick() {
  reminder_.isEnabled = true;  // saving always turns a reminder on
  if (!reminder_.isPeriodic) reminder_.reminderCount = 1;
  reminder_.reminderText = reminderText_;
  reminder_.templateText = templateText_;
  if (reminder_.isPeriodic && reminder_.isRandom) {
    MoodRandomReminder drawn(random_);
    drawn.setFromTime(reminder_.timeFrom, reminder_.timeTo);
    drawn.setRepeatCount(static_cast<std::uint64_t>(std::max<std::int64_t>(0, reminder_.reminderCount)));
    drawn.recreateRandomShots();
    reminder_.randomReminder = std::move(drawn);
  } else {
    reminder_.randomReminder.reset();
  }
  Value::Array alarms = settings_.remindersAlarms();
  std::stable_sort(alarms.begin(), alarms.end(), saveOrder);
  Value dictionary(reminder_.reminderToDictionary());
  if (index_ >= 0 && index_ < static_cast<std::int64_t>(alarms.size())) {
    alarms[static_cast<std::size_t>(index_)] = dictionary;
  } else {
    alarms.push_back(dictionary);
  }
  (void)settings_.setRemindersAlarms(alarms);
  scheduler_.rescheduleReminders(true);
  leave();
}

void MoodReminderViewController::cancelClick() {
  leave();
}

void MoodReminderViewController::leave() {
  left_ = true;
  if (onLeave_) onLeave_();
}

}  // namespace lumeo
