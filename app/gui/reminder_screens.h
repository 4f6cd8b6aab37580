// The reminder screens as the desktop makes them: the core's four
// controllers (list, editor, sound picker, notification text), each holding
// the settings and the reminder scheduler it works on, so that a screen can
// live in the navigation model on its own. The scheduler is the
// application object's, the one the launch reschedules with, so the GUI's
// changes reach the pending-request file exactly as the command line's do.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "reminders/mood_reminder_sound_view_controller.h"
#include "reminders/mood_reminder_view_controller.h"
#include "reminders/mood_reminders_view_controller.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo::gui {

// What every reminder screen works on.
struct ReminderScreenServices {
  std::shared_ptr<MoodUserDefaultsOperator> settings;
  std::shared_ptr<ReminderScheduler> scheduler;

  // The standard settings and the shared application object's scheduler.
  static ReminderScreenServices current();
};

// Plays the previews of the sound picker. Tests install a recording one.
std::shared_ptr<ReminderSoundPlayer> reminderSoundPlayer();
void setReminderSoundPlayer(std::shared_ptr<ReminderSoundPlayer> player);
// Where the catalogue's sound files are: $LUMEO_SOUNDS_DIR, else the
// resources' "sounds" folder (installed or the source tree's).
std::filesystem::path reminderSoundsDirectory();

class RemindersScreen : private ReminderScreenServices, public MoodRemindersViewController {
 public:
  explicit RemindersScreen(ReminderScreenServices services = ReminderScreenServices::current());
  MoodUserDefaultsOperator& settings() { return *ReminderScreenServices::settings; }
  ReminderScheduler& scheduler() { return *ReminderScreenServices::scheduler; }
};

class ReminderEditorScreen : private ReminderScreenServices, public MoodReminderViewController {
 public:
  ReminderEditorScreen(std::optional<MoodReminder> reminder, std::int64_t index,
                       ReminderScreenServices services = ReminderScreenServices::current());
};

// The sound picker works on the editor's reminder, so it keeps the editor.
class ReminderSoundScreen : public MoodReminderSoundViewController {
 public:
  explicit ReminderSoundScreen(std::shared_ptr<ReminderEditorScreen> editor);
  const std::shared_ptr<ReminderEditorScreen>& editor() const { return editor_; }

 private:
  std::shared_ptr<ReminderEditorScreen> editor_;
};

class NotificationTextScreen : private ReminderScreenServices, public MoodNotificationTextEditViewController {
 public:
  explicit NotificationTextScreen(ReminderScreenServices services = ReminderScreenServices::current());
};

}  // namespace lumeo::gui
