// lumeo agent, the reminder delivery agent, and lumeo reminders
// install-agent / uninstall-agent, which make the desktop start it at login
// (an XDG autostart entry and a systemd user unit; the agent's own lock keeps
// a second copy from running).
//
// The agent never holds the journal: it takes the journal's lock only for
// the moments it reads or writes (a reminder pass, a record check, the
// template handed over), so `lumeo add` and the GUI go on working.
#include <fcntl.h>
#include <gio/gio.h>
#include <glib-unix.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "cli_app.h"
#include "platform/atomic_file.h"
#include "platform/clock.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/linux/reminder_delivery_agent.h"
#include "platform/log.h"
#include "reminder_commands.h"
#include "reminders/mood_reminder.h"
#include "store/journal_lock.h"
#include "store/journal_store.h"
#include "store/mood_user_defaults_operator.h"
#include "store/settings_keys.h"

namespace lumeo::cli {

namespace {

// --- Test hook: a clock read from a file --------------------------------------

// The time in seconds since 1970 that a file holds; the last good value while
// the file is being rewritten. For tests of the agent as a whole program.
class FileClock : public Clock {
 public:
  explicit FileClock(std::filesystem::path file) : file_(std::move(file)) {}
  Date now() const override {
    std::ifstream in(file_);
    double seconds = 0;
    std::lock_guard lock(mutex_);
    if (in >> seconds && std::isfinite(seconds)) last_ = Date::fromTimeIntervalSince1970(seconds);
    return last_;
  }

 private:
  std::filesystem::path file_;
  mutable std::mutex mutex_;
  mutable Date last_ = Date::fromTimeIntervalSince1970(0);
};

// --- The journal, briefly ------------------------------------------------------

template <typename F>
auto withJournalLock(const DataDirectories& dirs, F&& body) -> decltype(body()) {
  auto lock = JournalLock::acquire(dirs.library, 10);
  if (auto* error = std::get_if<Error>(&lock)) {
    LUMEO_LOG_ERROR("The journal stays busy: %@", error->description);
    return decltype(body())();
  }
  auto result = body();
  return result;
}

// A read: no writer lock, so that the agent's look never holds up a save.
bool recordedBetween(const DataDirectories& dirs, Date since, Date until) {
  if (!std::filesystem::exists(dirs.library / kJournalStoreFileName)) return false;
  JournalStore store({dirs.library, dirs.documents}, UserDefaults::standard());
  return !store.newestRecordsFrom(since.dateByAddingTimeInterval(0.001), until, 1).empty();
}

bool runPass(const DataDirectories& dirs) {
  return withJournalLock(dirs, [&] {
    UserDefaults::standard()->synchronize();
    prepareReminderSettings(*UserDefaults::standard());
    CliReminderScheduler scheduler;
    scheduler.rescheduleReminders(false);
    scheduler.waitForPasses();
    return true;
  });
}

// The user chose "CAPTURE_ACTION_BUTTON_TITLE": the template waits in the
// settings for the next record, and the GUI opens on the capture tab.
void openCapture(const DataDirectories& dirs, const Value::Dictionary& userInfo) {
  auto it = userInfo.find("template");
  std::string templateText = it != userInfo.end() ? it->second.toString() : std::string();
  withJournalLock(dirs, [&] {
    (void)MoodUserDefaultsOperator(nullptr).setReminderTemplateText(templateText);
    return true;
  });
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  std::filesystem::path gui = self.parent_path() / "lumeo-gui";
  if (!std::filesystem::exists(gui, ec)) {
    char* found = g_find_program_in_path("lumeo-gui");
    gui = found ? std::filesystem::path(found) : std::filesystem::path();
    g_free(found);
  }
  if (gui.empty()) {
    LUMEO_LOG_VERBOSE("No lumeo-gui to open; the next record starts from the reminder's template");
    return;
  }
  std::string path = gui.string();
  char* argv[] = {path.data(), const_cast<char*>("--capture"), nullptr};
  if (!g_spawn_async(nullptr, argv, nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, nullptr, nullptr)) {
    LUMEO_LOG_ERROR("Could not open %@", path);
  }
}

// Notices changes of the reminder settings that came without a pass: the
// file's stamp first (cheap), then the two values a pass depends on.
class ReminderSettingsWatch {
 public:
  explicit ReminderSettingsWatch(std::filesystem::path file) : file_(std::move(file)) {}
  // Takes what the settings hold now as seen (after a pass).
  void rebaseline() {
    stamp_ = stamp();
    seen_ = read();
  }
  bool changed() {
    std::string now = stamp();
    if (now == stamp_) return false;
    stamp_ = now;
    return read() != seen_;
  }

 private:
  std::string stamp() const {
    struct ::stat st {};
    if (::stat(file_.c_str(), &st) != 0) return "";
    return std::to_string(st.st_ino) + ":" + std::to_string(st.st_size) + ":" +
           std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
  }
  Value read() const {
    Value::Dictionary stored = PlistUserDefaultsStorage(file_).load();
    return Value(Value::Array{stored.count(kAlarm) ? stored.at(kAlarm) : Value(),
                              stored.count(kRemindersTextKey) ? stored.at(kRemindersTextKey) : Value()});
  }

  std::filesystem::path file_;
  std::string stamp_;
  Value seen_;
};

// One agent per journal.
int takeAgentLock(const DataDirectories& dirs) {
  std::string file = (dirs.library / "agent.lock").string();
  int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) throw CommandError("cannot make the agent's lock file " + file);
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    throw CommandError("another lumeo agent is already delivering the reminders of this journal");
  }
  return fd;
}

struct AgentOptions {
  bool once = false;
  std::optional<std::string> testClock;
};

void runAgent(CliApp& cli, const AgentOptions& options) {
  DataDirectories dirs = DataDirectories::current();
  if (!dirs.create())
    throw CommandError("cannot make Lumeo's folders under " + dirs.library.parent_path().string());
  if (options.testClock) Clock::setCurrent(std::make_shared<FileClock>(*options.testClock));
  int lockFd = takeAgentLock(dirs);
  PlistUserDefaults::installStandard();

  ReminderAgentOptions o;
  o.requestFile = pendingRequestFile();
  o.stateFile = dirs.library / "agent-state";
  o.soundsDirectory = reminderSoundsDirectory();
  auto watch = std::make_shared<ReminderSettingsWatch>(dirs.defaultsFile);
  o.reschedule = [dirs, watch] {
    runPass(dirs);
    watch->rebaseline();
  };
  o.remindersChanged = [watch] { return watch->changed(); };
  o.recordedBetween = [dirs](Date since, Date until) { return recordedBetween(dirs, since, until); };
  o.actionInvoked = [dirs](const Value::Dictionary& info) { openCapture(dirs, info); };
  if (options.testClock) {
    // Scripts wait for this line to know that a time they wrote was seen.
    o.onTick = [&cli](Date checked) {
      char line[64];
      std::snprintf(line, sizeof line, "checked %.0f\n", checked.timeIntervalSince1970());
      cli.out() << line << std::flush;
    };
  }
  ReminderDeliveryAgent agent(o);
  if (!options.once) {
    cli.err() << "lumeo agent: delivering reminders from " << o.requestFile.string() << "\n";
    auto quit = +[](gpointer agentPtr) -> gboolean {
      static_cast<ReminderDeliveryAgent*>(agentPtr)->quit();
      return G_SOURCE_REMOVE;
    };
    g_unix_signal_add(SIGTERM, quit, &agent);
    g_unix_signal_add(SIGINT, quit, &agent);
  }
  agent.run(options.once, options.testClock ? 0.02 : 0);
  if (cli.json()) cli.printJson({{"delivered", agent.delivered()}});
  ::close(lockFd);
}

// --- Autostart -------------------------------------------------------------

std::filesystem::path configHome() {
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return xdg;
  const char* home = std::getenv("HOME");
  if (!home || !*home) throw CommandError("neither XDG_CONFIG_HOME nor HOME is set");
  return std::filesystem::path(home) / ".config";
}

std::filesystem::path autostartFile() {
  return configHome() / "autostart" / "lumeo-agent.desktop";
}
std::filesystem::path unitFile() {
  return configHome() / "systemd" / "user" / "lumeo-agent.service";
}

// One argument quoted for a desktop entry's Exec key and for systemd alike.
std::string quoted(const std::string& arg) {
  if (arg.find_first_of(" \t\"'\\$`%;") == std::string::npos) return arg;
  std::string out = "\"";
  for (char c : arg) {
    if (c == '"' || c == '\\' || c == '$' || c == '`') out += '\\';
    if (c == '%') out += '%';
    out += c;
  }
  return out + "\"";
}

std::string agentCommandLine(CliApp& cli) {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) throw CommandError("cannot tell where this lumeo program is");
  std::string line = quoted(self.string());
  std::optional<std::filesystem::path> home = cli.home();
  if (!home) {
    if (const char* env = std::getenv("LUMEO_HOME"); env && *env) home = env;
  }
  if (home) line += " --home " + quoted(std::filesystem::absolute(*home).string());
  return line + " agent";
}

void writeOrFail(const std::filesystem::path& file, const std::string& text) {
  std::error_code ec;
  std::filesystem::create_directories(file.parent_path(), ec);
  if (auto error = writeFileAtomically(file, text)) {
    throw CommandError("cannot write " + file.string() + ": " + error->description);
  }
}

void installAgent(CliApp& cli) {
  std::string command = agentCommandLine(cli);
  std::string desktop =
      "[Desktop Entry]\n"
      "Type=Application\n"
      "Name=Lumeo reminders\n"
      "Comment=Shows Lumeo's reminders to record your mood\n"
      "Exec=" +
      command +
      "\n"
      "Icon=lumeo\n"
      "NoDisplay=true\n"
      "X-GNOME-Autostart-enabled=true\n"
      "X-GNOME-HiddenUnderSystemd=true\n";
  std::string unit =
      "[Unit]\n"
      "Description=Lumeo reminder delivery agent\n"
      "PartOf=graphical-session.target\n"
      "After=graphical-session.target\n\n"
      "[Service]\n"
      "ExecStart=" +
      command +
      "\n"
      "Restart=on-failure\n"
      "RestartSec=10\n\n"
      "[Install]\n"
      "WantedBy=graphical-session.target\n";
  writeOrFail(autostartFile(), desktop);
  writeOrFail(unitFile(), unit);
  if (cli.json()) {
    cli.printJson(
        {{"autostart", autostartFile().string()}, {"unit", unitFile().string()}, {"command", command}});
    return;
  }
  cli.out() << "Wrote " << autostartFile().string() << "\n"
            << "Wrote " << unitFile().string() << "\n"
            << "The agent starts at your next login. To start it now with systemd:\n"
            << "  systemctl --user daemon-reload && systemctl --user enable --now lumeo-agent.service\n";
}

void uninstallAgent(CliApp& cli) {
  nlohmann::json removed = nlohmann::json::array();
  for (const auto& file : {autostartFile(), unitFile()}) {
    std::error_code ec;
    if (std::filesystem::remove(file, ec)) {
      removed.push_back(file.string());
    } else if (ec) {
      throw CommandError("cannot remove " + file.string() + ": " + ec.message());
    }
  }
  if (cli.json()) {
    cli.printJson({{"removed", removed}});
    return;
  }
  if (removed.empty()) cli.out() << "The agent was not installed; nothing to remove.\n";
  for (const auto& file : removed) cli.out() << "Removed " << file.get<std::string>() << "\n";
  if (!removed.empty()) cli.out() << "A running agent goes on until it is stopped or you log out.\n";
}

}  // namespace

void registerAgentCommands(CliApp& cli, CLI::App& reminders) {
  reminders
      .add_subcommand("install-agent",
                      "Start the reminder agent at every login (XDG autostart and a "
                      "systemd user unit)")
      ->callback([&cli] { installAgent(cli); });
  reminders.add_subcommand("uninstall-agent", "Stop starting the reminder agent at login")->callback([&cli] {
    uninstallAgent(cli);
  });

  auto options = std::make_shared<AgentOptions>();
  CLI::App* agent = cli.root().add_subcommand("agent",
                                              "Show the reminders as desktop notifications (runs until "
                                              "stopped; `lumeo reminders install-agent` starts it at login)");
  agent->add_flag("--once", options->once, "Deliver what is due now and exit");
  agent->add_option("--test-clock", options->testClock, "")->group("");  // tests only: the time from a file
  agent->callback([&cli, options] { runAgent(cli, *options); });
}

}  // namespace lumeo::cli
