#include "reminder_screens.h"

#include <cstdlib>

#include "shell/mood_app_delegate.h"
#include "shell/resources_location.h"

namespace lumeo::gui {

namespace {
std::shared_ptr<ReminderSoundPlayer>& soundPlayerSlot() {
  static std::shared_ptr<ReminderSoundPlayer> player;
  return player;
}
}  // namespace

ReminderScreenServices ReminderScreenServices::current() {
  ReminderScreenServices services;
  services.settings = std::make_shared<MoodUserDefaultsOperator>();
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  services.scheduler = app ? app->services().reminders : nullptr;
  if (!services.scheduler) services.scheduler = std::make_shared<ReminderScheduler>();
  return services;
}

std::shared_ptr<ReminderSoundPlayer> reminderSoundPlayer() {
  auto& player = soundPlayerSlot();
  if (!player) player = std::make_shared<ReminderSoundPlayer>();
  return player;
}

void setReminderSoundPlayer(std::shared_ptr<ReminderSoundPlayer> player) {
  soundPlayerSlot() = std::move(player);
}

std::filesystem::path reminderSoundsDirectory() {
  if (const char* dir = std::getenv("LUMEO_SOUNDS_DIR"); dir && *dir) return dir;
  return resourcesDirectory() / "sounds";
}

RemindersScreen::RemindersScreen(ReminderScreenServices services)
    : ReminderScreenServices(std::move(services)),
      MoodRemindersViewController(*ReminderScreenServices::settings, *ReminderScreenServices::scheduler) {}

ReminderEditorScreen::ReminderEditorScreen(std::optional<MoodReminder> reminder, std::int64_t index,
                                           ReminderScreenServices services)
    : ReminderScreenServices(std::move(services)),
      MoodReminderViewController(*ReminderScreenServices::settings, *ReminderScreenServices::scheduler,
                                 std::move(reminder), index) {}

ReminderSoundScreen::ReminderSoundScreen(std::shared_ptr<ReminderEditorScreen> editor)
    : MoodReminderSoundViewController(editor->reminder(), reminderSoundsDirectory(), reminderSoundPlayer()),
      editor_(std::move(editor)) {}

NotificationTextScreen::NotificationTextScreen(ReminderScreenServices services)
    : ReminderScreenServices(std::move(services)),
      MoodNotificationTextEditViewController(*ReminderScreenServices::settings,
                                             *ReminderScreenServices::scheduler) {}

}  // namespace lumeo::gui
