// The sound picker's and the notification text editor's logic.
#include "reminders/mood_reminder_sound_view_controller.h"

#include "shell/shell_services.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

MoodReminderSoundViewController::MoodReminderSoundViewController(MoodReminder& reminder,
                                                                 std::filesystem::path soundsDirectory,
                                                                 std::shared_ptr<ReminderSoundPlayer> player)
    : MoodViewController("MoodReminderSoundViewController"),
      reminder_(reminder),
      soundsDirectory_(std::move(soundsDirectory)),
      player_(player ? std::move(player) : std::make_shared<ReminderSoundPlayer>()) {}

std::size_t MoodReminderSoundViewController::numberOfRows() const {
  return MoodReminderUtil::reminderSoundFilenames().size();
}

std::string MoodReminderSoundViewController::titleForRow(std::size_t row) const {
  auto name = MoodReminderUtil::soundFilenameAtIndex(static_cast<std::int64_t>(row));
  return name ? MoodReminderUtil::displayNameOfSoundFilename(*name) : std::string();
}

std::size_t MoodReminderSoundViewController::checkedRow() const {
  std::int64_t index = MoodReminderUtil::indexOfSoundFilename(reminder_.soundFilename.value_or(""));
  return index < 0 ? 0 : static_cast<std::size_t>(index);
}

void MoodReminderSoundViewController::didSelectRow(std::size_t row) {
  auto name = MoodReminderUtil::soundFilenameAtIndex(static_cast<std::int64_t>(row));
  if (!name) return;
  player_->stop();
  reminder_.soundFilename = *name;
  if (row != 0) player_->play(soundsDirectory_ / *name);
}

MoodNotificationTextEditViewController::MoodNotificationTextEditViewController(
    MoodUserDefaultsOperator& settings, ReminderScheduler& scheduler)
    : MoodViewController("MoodNotificationTextEditViewController"),
      settings_(settings),
      scheduler_(scheduler) {}

std::string MoodNotificationTextEditViewController::text() const {
  return settings_.remindersText().value_or("");
}

void MoodNotificationTextEditViewController::textViewDidChange(const std::string& text) {
  (void)settings_.setRemindersText(text);
}

void MoodNotificationTextEditViewController::returnPressed() {
  scheduler_.rescheduleReminders(true);
  left_ = true;
}

}  // namespace lumeo
