// What the reminder commands share with the agent command: where the
// pending requests and the sounds are, and a reminder scheduler whose
// passes a command can wait for before it exits.
#pragma once

#include <filesystem>
#include <vector>

#include "platform/notification_center_service.h"
#include "reminders/mood_reminder_scheduler.h"

namespace CLI {
class App;
}

namespace lumeo::cli {

class CliApp;

std::filesystem::path pendingRequestFile();
// LUMEO_SOUNDS_DIR, else the source tree's resources/sounds (a build run),
// else the installed folder.
std::filesystem::path reminderSoundsDirectory();

// Reminder passes into the pending-request file of the data directory.
class CliReminderScheduler : public ReminderScheduler {
 public:
  CliReminderScheduler();
  void rescheduleReminders(bool showProgress) override;
  // Runs the main loop until every pass asked for has finished.
  void waitForPasses();
  std::vector<NotificationRequest> pendingRequests();

 private:
  MoodReminderScheduler inner_;
  int outstanding_ = 0;
};

// install-agent and uninstall-agent under `lumeo reminders`, and `lumeo agent`.
void registerAgentCommands(CliApp& cli, CLI::App& reminders);

}  // namespace lumeo::cli
