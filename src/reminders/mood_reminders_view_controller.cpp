// The reminder list's logic.
#include "reminders/mood_reminders_view_controller.h"

#include <algorithm>

#include "platform/date_formatter.h"
#include "platform/localization.h"
#include "shell/shell_services.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

std::string shortTime(const Date* date) {
  if (!date) return "";
  return DateFormatter::localizedStringFromDate(*date, DateFormatter::Style::kNone,
                                                DateFormatter::Style::kShort);
}

}  // namespace

MoodRemindersCell MoodRemindersCell::setAlarmInfo(const Value& alarm) {
  MoodRemindersCell cell;
  auto reminder = MoodReminder::dictionaryToReminder(alarm);
  if (!reminder) return cell;
  cell.switchOn = reminder->isEnabled;
  const Date* from = reminder->timeFrom ? &*reminder->timeFrom : nullptr;
  const Date* to = reminder->timeTo ? &*reminder->timeTo : nullptr;
  cell.timeText = reminder->isPeriodic ? shortTime(from) + " - " + shortTime(to) : shortTime(from);
  cell.timeTextColor = reminder->isEnabled ? RGBAColor{0, 0, 0, 1} : kDisabledColor;
  return cell;
}

MoodRemindersViewController::MoodRemindersViewController(MoodUserDefaultsOperator& settings,
                                                         ReminderScheduler& scheduler)
    : MoodViewController("MoodRemindersViewController"), settings_(settings), scheduler_(scheduler) {}

bool MoodRemindersViewController::listOrder(const Value& a, const Value& b) {
  return reminderDictionaryPrecedes(a, b, "timeFrom");
}

void MoodRemindersViewController::loadAlarms() {
  alarmInfoArray_ = settings_.remindersAlarms();
  std::stable_sort(alarmInfoArray_.begin(), alarmInfoArray_.end(), listOrder);
}

std::size_t MoodRemindersViewController::numberOfRowsInSection(int section) const {
  return section == 0 ? 2 : alarmInfoArray_.size();
}

std::string MoodRemindersViewController::notificationMessage() const {
  return settings_.remindersText().value_or("");
}

MoodRemindersViewController::Destination MoodRemindersViewController::didSelectRow(int section,
                                                                                   std::size_t row,
                                                                                   bool editing) {
  Destination d;
  if (section == 0) {
    if (row == 0) d.kind = Destination::Kind::kTextEditor;
    return d;
  }
  if (!editing || row >= alarmInfoArray_.size()) return d;
  storeAlarms();
  alarmForTimeEditing_ = static_cast<std::int64_t>(row);
  d.kind = Destination::Kind::kReminderEditor;
  d.reminder = MoodReminder::dictionaryToReminder(alarmInfoArray_[row]);
  d.index = static_cast<std::int64_t>(row);
  return d;
}

MoodRemindersViewController::Destination MoodRemindersViewController::add() {
  storeAlarms();
  alarmForTimeEditing_ = -1;
  Destination d;
  d.kind = Destination::Kind::kReminderEditor;
  return d;
}

void MoodRemindersViewController::settingsCellDidChangeAlarmInfo(const MoodReminder& reminder,
                                                                 std::size_t index) {
  if (index >= alarmInfoArray_.size()) return;
  alarmInfoArray_[index] = Value(reminder.reminderToDictionary());
  saveAlarms();
}

bool MoodRemindersViewController::commitDeleteRow(std::size_t index) {
  if (index >= alarmInfoArray_.size()) return false;
  alarmInfoArray_.erase(alarmInfoArray_.begin() + static_cast<std::ptrdiff_t>(index));
  return alarmInfoArray_.empty();
}

void MoodRemindersViewController::storeAlarms() {
  (void)settings_.setRemindersAlarms(alarmInfoArray_);
}

void MoodRemindersViewController::saveAlarms() {
  storeAlarms();
  scheduler_.rescheduleReminders(true);
}

void MoodRemindersViewController::done() {
  saveAlarms();
}

}  // namespace lumeo
