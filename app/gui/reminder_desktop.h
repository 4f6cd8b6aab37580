// The reminders' desktop side of lumeo-gui: the sound picker's preview
// (QtMultimedia), and the delivery agent, `lumeo agent`, which the GUI
// starts when none runs for its journal, since reminders are shown by the
// agent and not by the window.
#pragma once

#include <QString>
#include <filesystem>
#include <optional>

namespace lumeo::gui {

// True when an agent holds the journal's agent lock (library/agent.lock).
bool reminderAgentRunning(const std::filesystem::path& library);

// The `lumeo` program beside this one (installed side by side, or the
// build tree's app/cli), else on the PATH; empty when there is none.
QString lumeoProgram();

// Starts `lumeo agent` (with --home when given) detached, unless one runs
// already. False, with the reason logged, when none could be started.
bool ensureReminderAgentRunning(const std::filesystem::path& library,
                                const std::optional<std::filesystem::path>& home);

// Installs the QtMultimedia preview player for the sound picker.
void installReminderSoundPreview();

}  // namespace lumeo::gui
