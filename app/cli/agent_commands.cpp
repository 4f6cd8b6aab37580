// lumeo agent, and lumeo reminders install-agent / uninstall-agent.
#include "cli_app.h"
#include "reminder_commands.h"

namespace lumeo::cli {

void registerAgentCommands(CliApp& cli, CLI::App& reminders) {
  (void)cli;
  (void)reminders;
}

}  // namespace lumeo::cli
