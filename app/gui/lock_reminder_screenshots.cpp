#include "lock_reminder_screenshots.h"

#include "gui_runtime.h"
#include "lock/mood_passcode_storage.h"
#include "reminder_list_adapter.h"
#include "shell/mood_settings_view_controller.h"
#include "shell_adapter.h"

namespace lumeo::gui {

bool isLockReminderScreenshot(const QString& screen) {
  return screen == QLatin1String("lock-settings") || screen == QLatin1String("reminders") ||
         screen == QLatin1String("reminder-editor");
}

bool openLockReminderScreenshot(GuiRuntime& runtime, const QString& screen) {
  auto* shell = qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
  if (!shell) return false;
  if (screen == QLatin1String("lock-settings")) {
    // The rows of a journal with a lock, which the user unlocked to get here.
    if (MoodPasscodeStorage::setPassCode("1234")) return false;
    MoodPasscodeStorage::setPassCodeUnlocked(true);
  }
  shell->showSettings();
  auto* menu = dynamic_cast<MoodSettingsViewController*>(
      shell->findScreen(QStringLiteral("MoodSettingsViewController")));
  if (!menu) return false;
  const std::string key = screen == QLatin1String("lock-settings") ? "kLockRow" : "kRemindersRow";
  const auto& rows = menu->rows();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].key == key) menu->didSelectRow(i);
  }
  shell->refresh();
  if (screen == QLatin1String("reminder-editor")) {
    auto* list = qobject_cast<ReminderListAdapter*>(runtime.singleton(QStringLiteral("Reminders")));
    if (!list) return false;
    list->appear();
    list->add();
  }
  return true;
}

}  // namespace lumeo::gui
