// The lock settings and reminder screens for `lumeo-gui --screenshot
// --screen NAME`: lock-settings, reminders, reminder-editor, each opened
// through the settings menu as a user would.
#pragma once

#include <QString>

namespace lumeo::gui {

class GuiRuntime;

bool isLockReminderScreenshot(const QString& screen);
// Opens the screen over the tabs; false when it could not be opened.
bool openLockReminderScreenshot(GuiRuntime& runtime, const QString& screen);

}  // namespace lumeo::gui
