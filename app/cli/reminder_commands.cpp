// lumeo reminders (list, add, edit, enable, disable, delete, text, sound,
// pending, install-agent, uninstall-agent). The commands drive the reminder
// screens' controllers, so the command line stores and sorts reminders
// exactly as the screens do, and each change ends with a reminder pass that
// rewrites the pending-request file that `lumeo agent` delivers from.
//
// Reminders are named by their position in `lumeo reminders list` (from 1),
// which is the list screen's order.
#include "reminder_commands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "cli_app.h"
#include "journal_commands.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/pending_request_file.h"
#include "platform/localization.h"
#include "reminders/mood_reminder.h"
#include "reminders/mood_reminder_scheduler.h"
#include "reminders/mood_reminder_sound_view_controller.h"
#include "reminders/mood_reminder_view_controller.h"
#include "reminders/mood_reminders_view_controller.h"
#include "shell/mood_app_delegate.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo::cli {

std::filesystem::path pendingRequestFile() {
  return DataDirectories::current().library / kPendingRequestFileName;
}

std::filesystem::path reminderSoundsDirectory() {
  if (const char* dir = std::getenv("LUMEO_SOUNDS_DIR"); dir && *dir) return dir;
  std::error_code ec;
#ifdef LUMEO_SOURCE_SOUNDS_DIR
  if (std::filesystem::exists(std::filesystem::path(LUMEO_SOURCE_SOUNDS_DIR) / "Default.mp3", ec)) {
    return LUMEO_SOURCE_SOUNDS_DIR;
  }
#endif
#ifdef LUMEO_INSTALL_SOUNDS_DIR
  return LUMEO_INSTALL_SOUNDS_DIR;
#else
  return {};
#endif
}

CliReminderScheduler::CliReminderScheduler()
    : inner_(std::make_shared<FileNotificationCenterService>(pendingRequestFile())) {}

void CliReminderScheduler::rescheduleReminders(bool showProgress) {
  ++outstanding_;
  inner_.rescheduleReminders(showProgress, [this] { --outstanding_; });
}

void CliReminderScheduler::waitForPasses() {
  if (!MainLoop::shared().runUntil([this] { return outstanding_ == 0; }, 60)) {
    throw CommandError("the reminder pass did not finish; the pending reminders may be out of date");
  }
}

std::vector<NotificationRequest> CliReminderScheduler::pendingRequests() {
  return inner_.center().pendingNotificationRequests();
}

namespace {

// --- Input ------------------------------------------------------------------

// "HH:MM" or "H:MM" today, seconds zero.
Date parseTimeOfDay(const std::string& text, const std::string& option) {
  static const std::regex pattern(R"(^([01]?[0-9]|2[0-3]):([0-5][0-9])$)");
  std::smatch m;
  if (!std::regex_match(text, m, pattern)) {
    throw CommandError(option + " takes a time of day as HH:MM from 00:00 to 23:59, not \"" + text + "\"", 2);
  }
  Calendar calendar = Calendar::current();
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  today.hour = std::stoi(m[1].str());
  today.minute = std::stoi(m[2].str());
  today.second = 0;
  auto date = calendar.dateFromComponents(today);
  if (!date) throw CommandError("cannot place " + text + " on today's date", 2);
  return *date;
}

std::string hourMinute(const std::optional<Date>& date) {
  if (!date) return "--:--";
  DateFormatter formatter("HH:mm");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(*date);
}

std::string isoText(Date date) {
  DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ssXXX");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

// A catalogue sound by file name, display name or position, any case.
std::string requireSound(const std::string& text) {
  auto lower = [](std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
  };
  const auto& names = MoodReminderUtil::reminderSoundFilenames();
  for (const auto& name : names) {
    std::string stem = name.substr(0, name.rfind('.'));
    if (lower(text) == lower(name) || lower(text) == lower(stem)) return name;
  }
  std::string list;
  for (const auto& name : names) list += (list.empty() ? "" : ", ") + name.substr(0, name.rfind('.'));
  throw CommandError("no reminder sound \"" + text + "\"; the sounds are: " + list, 2);
}

struct ReminderOptions {
  std::optional<std::string> at, from, to, count, text, templateText, sound;
  bool random = false, fixedTimes = false, onlyIfNothingRecorded = false, always = false;
};

// Applies the options to the editor as a user would through its controls.
void applyOptions(CliApp& cli, MoodReminderViewController& editor, const ReminderOptions& o, bool isNew) {
  if (o.at && (o.from || o.to)) throw CommandError("give either --at or --from and --to, not both", 2);
  if (isNew && (o.from.has_value() != o.to.has_value())) {
    throw CommandError("a window needs both --from and --to", 2);
  }
  if (isNew && !o.at && !(o.from && o.to)) {
    throw CommandError("a reminder needs --at HH:MM, or --from HH:MM --to HH:MM with --count N", 2);
  }
  if (o.random && o.fixedTimes) throw CommandError("--random and --evenly exclude each other", 2);
  if (o.onlyIfNothingRecorded && o.always) {
    throw CommandError("--only-if-nothing-recorded and --always exclude each other", 2);
  }
  std::optional<std::int64_t> count;
  if (o.count) {
    try {
      count = parseInteger(*o.count, "--count");
    } catch (const CommandError&) {
      throw CommandError("--count takes a whole number of moments a day, not \"" + *o.count + "\"", 2);
    }
  }
  // Validate every value before touching the reminder.
  std::optional<Date> at = o.at ? std::optional(parseTimeOfDay(*o.at, "--at")) : std::nullopt;
  std::optional<Date> from = o.from ? std::optional(parseTimeOfDay(*o.from, "--from")) : std::nullopt;
  std::optional<Date> to = o.to ? std::optional(parseTimeOfDay(*o.to, "--to")) : std::nullopt;
  std::optional<std::string> sound = o.sound ? std::optional(requireSound(*o.sound)) : std::nullopt;

  const bool periodic = at                                                  ? false
                        : (from || to || o.random || o.fixedTimes || count) ? true
                                                                            : editor.reminder().isPeriodic;
  if (!periodic && (count || o.random)) {
    throw CommandError("--count and --random need a window (--from and --to)", 2);
  }
  editor.periodicValueChanged(periodic);
  if (at) {
    editor.timePickerValueChanged(*at);
  }
  if (from) {
    editor.fromButtonClick();
    editor.timePickerValueChanged(*from);
  }
  if (to) {
    editor.toButtonClick();
    editor.timePickerValueChanged(*to);
  }
  if (o.random) editor.randomSwitchValueChanged(true);
  if (o.fixedTimes) editor.randomSwitchValueChanged(false);
  if (count) {
    editor.stepperValueChanged(*count);
    if (editor.reminder().reminderCount != *count) {
      cli.err() << "note: the count is " << editor.reminder().reminderCount << " (it runs from "
                << MoodReminderViewController::kMinimumCount << " to "
                << MoodReminderViewController::kMaximumCount << "), not " << *count << "\n";
    }
  }
  if (o.text) editor.setReminderText(*o.text);
  if (o.templateText) editor.setTemplateText(*o.templateText);
  if (sound) {
    MoodReminderSoundViewController picker(editor.reminder(), reminderSoundsDirectory());
    picker.didSelectRow(static_cast<std::size_t>(MoodReminderUtil::indexOfSoundFilename(*sound)));
  }
  if (o.onlyIfNothingRecorded) editor.reminder().onlyIfNothingRecorded = true;
  if (o.always) editor.reminder().onlyIfNothingRecorded = false;
}

// --- Output -----------------------------------------------------------------

std::string kindOf(const MoodReminder& r) {
  if (!r.isPeriodic) return "fixed";
  return r.isRandom ? "random" : "periodic";
}

nlohmann::json reminderJson(std::size_t id, const Value& alarm, const std::string& globalText) {
  nlohmann::json j;
  j["id"] = id;
  auto r = MoodReminder::dictionaryToReminder(alarm);
  if (!r) {
    j["unreadable"] = true;
    return j;
  }
  j["enabled"] = r->isEnabled;
  j["kind"] = kindOf(*r);
  if (r->isPeriodic) {
    j["from"] = hourMinute(r->timeFrom);
    j["to"] = hourMinute(r->timeTo);
    j["count"] = r->reminderCount;
  } else {
    j["at"] = hourMinute(r->timeFrom);
  }
  j["sound"] = r->soundFilename.value_or(kDefaultReminderSound);
  bool ownText = r->reminderText && !r->reminderText->empty();
  j["text"] = ownText ? *r->reminderText : globalText;
  j["ownText"] = ownText;
  j["template"] = r->templateText.value_or("");
  j["onlyIfNothingRecorded"] = r->onlyIfNothingRecorded;
  if (r->randomReminder) {
    nlohmann::json shots = nlohmann::json::array();
    for (const auto& shot : r->randomReminder->randomReminderShots())
      shots.push_back(hourMinute(shot.fireDate()));
    j["moments"] = shots;
  }
  return j;
}

// The command's session: the journal launched (factory reminders and the
// default text in place), the settings, and a scheduler whose passes the
// command waits for.
struct Session {
  MoodAppDelegate& app;
  MoodUserDefaultsOperator settings;
  CliReminderScheduler scheduler;
  explicit Session(CliApp& cli) : app(journalSession(cli)), settings(nullptr) {}
};

std::size_t requireId(const std::string& text, std::size_t count) {
  long id = 0;
  try {
    id = parseInteger(text, "ID");
  } catch (const CommandError&) {
    throw CommandError("a reminder ID is the number that `lumeo reminders list` shows, not \"" + text + "\"",
                       2);
  }
  if (id < 1 || static_cast<std::size_t>(id) > count) {
    throw CommandError("no reminder " + text + " (see `lumeo reminders list`)");
  }
  return static_cast<std::size_t>(id - 1);
}

void printList(CliApp& cli, Session& s) {
  MoodRemindersViewController list(s.settings, s.scheduler);
  list.loadAlarms();
  std::string globalText = list.notificationMessage();
  if (cli.json()) {
    nlohmann::json out = {{"text", globalText}, {"reminders", nlohmann::json::array()}};
    for (std::size_t i = 0; i < list.alarmInfoArray().size(); ++i) {
      out["reminders"].push_back(reminderJson(i + 1, list.alarmInfoArray()[i], globalText));
    }
    cli.printJson(out);
    return;
  }
  cli.out() << "Notification message: " << globalText << "\n";
  if (list.noAlarmsLabelVisible()) {
    cli.out() << "No reminders.\n";
    return;
  }
  cli.out() << "ID  ON   WHEN                KIND      SOUND            TEXT\n";
  for (std::size_t i = 0; i < list.alarmInfoArray().size(); ++i) {
    nlohmann::json j = reminderJson(i + 1, list.alarmInfoArray()[i], globalText);
    if (j.contains("unreadable")) {
      char id[24];
      std::snprintf(id, sizeof id, "%2zu", i + 1);
      cli.out() << id << "  (not a reminder; skipped)\n";
      continue;
    }
    std::string when = j["kind"] == "fixed"
                           ? j["at"].get<std::string>()
                           : j["from"].get<std::string>() + "-" + j["to"].get<std::string>() + " x" +
                                 std::to_string(j["count"].get<long>());
    std::string sound = j["sound"].get<std::string>();
    sound = sound.substr(0, sound.rfind('.'));
    char line[160];
    std::snprintf(line, sizeof line, "%2zu  %-4s %-19s %-9s %-16s ", i + 1, j["enabled"] ? "on" : "off",
                  when.c_str(), j["kind"].get<std::string>().c_str(), sound.c_str());
    cli.out() << line << (j["ownText"] ? j["text"].get<std::string>() : "(message)");
    if (!j["template"].get<std::string>().empty())
      cli.out() << "  [template: " << j["template"].get<std::string>() << "]";
    if (j["onlyIfNothingRecorded"]) cli.out() << "  [only if nothing recorded]";
    cli.out() << "\n";
  }
}

void printPending(CliApp& cli, const std::vector<NotificationRequest>& requests) {
  struct Row {
    Date next;
    const NotificationRequest* request;
  };
  std::vector<Row> rows;
  Date now = Date::now();
  for (const auto& r : requests) rows.push_back({nextFireDate(r.trigger, now), &r});
  std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.next < b.next; });
  if (cli.json()) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& row : rows) {
      const auto& r = *row.request;
      out.push_back(
          {{"identifier", r.identifier},
           {"hour", r.trigger.hour},
           {"minute", r.trigger.minute},
           {"timeZone", r.trigger.timeZone},
           {"next", isoText(row.next)},
           {"body", r.content.body},
           {"sound", r.content.sound},
           {"template",
            r.content.userInfo.count("template") ? r.content.userInfo.at("template").toString() : ""},
           {"reminder", r.content.threadIdentifier},
           {"onlyIfNothingRecorded", r.onlyIfNothingRecorded}});
    }
    cli.printJson(out);
    return;
  }
  if (rows.empty()) {
    cli.out() << "No pending reminders.\n";
    return;
  }
  cli.out() << "NEXT                       DAILY  TEXT\n";
  for (const auto& row : rows) {
    char daily[8];
    std::snprintf(daily, sizeof daily, "%02d:%02d", row.request->trigger.hour, row.request->trigger.minute);
    cli.out() << isoText(row.next) << "  " << daily << "  " << row.request->content.body << "\n";
  }
}

// --- Commands -----------------------------------------------------------------

void runAddOrEdit(CliApp& cli, const std::optional<std::string>& id, const ReminderOptions& options) {
  Session s(cli);
  MoodRemindersViewController list(s.settings, s.scheduler);
  list.loadAlarms();
  MoodRemindersViewController::Destination d;
  if (id) {
    std::size_t index = requireId(*id, list.alarmInfoArray().size());
    if (!MoodReminder::dictionaryToReminder(list.alarmInfoArray()[index])) {
      throw CommandError("reminder " + *id + " is not readable; delete it with `lumeo reminders delete " +
                         *id + "`");
    }
    d = list.didSelectRow(1, index, /*editing=*/true);
  } else {
    d = list.add();
  }
  MoodReminderViewController editor(s.settings, s.scheduler, d.reminder, d.index);
  editor.viewDidLoad();
  applyOptions(cli, editor, options, !id);
  editor.saveClick();
  s.scheduler.waitForPasses();
  if (cli.json()) {
    cli.printJson(reminderJson(id ? std::stoul(*id) : 0, Value(editor.reminder().reminderToDictionary()),
                               s.settings.remindersText().value_or("")));
  } else {
    cli.out() << (id ? "Saved reminder " + *id : std::string("Added a reminder")) << " ("
              << kindOf(editor.reminder()) << ", on).\n";
  }
}

void runSwitch(CliApp& cli, const std::string& id, bool on) {
  Session s(cli);
  MoodRemindersViewController list(s.settings, s.scheduler);
  list.loadAlarms();
  std::size_t index = requireId(id, list.alarmInfoArray().size());
  auto reminder = MoodReminder::dictionaryToReminder(list.alarmInfoArray()[index]);
  if (!reminder) throw CommandError("reminder " + id + " is not readable; delete it");
  reminder->isEnabled = on;
  list.settingsCellDidChangeAlarmInfo(*reminder, index);
  s.scheduler.waitForPasses();
  if (cli.json()) {
    cli.printJson({{"id", index + 1}, {"enabled", on}});
  } else {
    cli.out() << "Reminder " << id << " is " << (on ? "on" : "off") << ".\n";
  }
}

void runDelete(CliApp& cli, const std::string& id) {
  Session s(cli);
  MoodRemindersViewController list(s.settings, s.scheduler);
  list.loadAlarms();
  std::size_t index = requireId(id, list.alarmInfoArray().size());
  list.commitDeleteRow(index);
  list.done();
  s.scheduler.waitForPasses();
  if (cli.json()) {
    cli.printJson({{"deleted", index + 1}, {"remaining", list.alarmInfoArray().size()}});
  } else {
    cli.out() << "Deleted reminder " << id << "; " << list.alarmInfoArray().size() << " left.\n";
  }
}

void runText(CliApp& cli, const std::optional<std::string>& text) {
  Session s(cli);
  MoodNotificationTextEditViewController editor(s.settings, s.scheduler);
  if (text) {
    if (text->empty()) throw CommandError("the notification message cannot be empty", 2);
    editor.textViewDidChange(*text);
    editor.returnPressed();
    s.scheduler.waitForPasses();
  }
  if (cli.json()) {
    cli.printJson({{"text", editor.text()}});
  } else {
    cli.out() << editor.text() << "\n";
  }
}

void runPending(CliApp& cli) {
  Session s(cli);
  // A pass first, as a launch would make one: the set shown is the one the
  // agent delivers from now on.
  s.scheduler.rescheduleReminders(false);
  s.scheduler.waitForPasses();
  printPending(cli, s.scheduler.pendingRequests());
}

void runSounds(CliApp& cli) {
  std::filesystem::path dir = reminderSoundsDirectory();
  const auto& names = MoodReminderUtil::reminderSoundFilenames();
  if (cli.json()) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& name : names) {
      out.push_back({{"file", name},
                     {"name", MoodReminderUtil::displayNameOfSoundFilename(name)},
                     {"path", (dir / name).string()}});
    }
    cli.printJson(out);
    return;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    cli.out() << (i < 10 ? " " : "") << i << "  " << MoodReminderUtil::displayNameOfSoundFilename(names[i])
              << (i == 0 ? "  (the desktop's own sound)" : "") << "\n";
  }
}

void addReminderOptions(CLI::App* cmd, const std::shared_ptr<ReminderOptions>& o) {
  cmd->add_option("--at", o->at, "A fixed time of day")->type_name("HH:MM");
  cmd->add_option("--from", o->from, "Start of a window of moments")->type_name("HH:MM");
  cmd->add_option("--to", o->to, "End of the window")->type_name("HH:MM");
  cmd->add_option("--count", o->count, "Moments a day in the window, 1 to 100")->type_name("N");
  cmd->add_flag("--random", o->random, "Draw the moments at random within the window");
  cmd->add_flag("--evenly", o->fixedTimes, "Spread the moments evenly (not random)");
  cmd->add_option("--text", o->text, "This reminder's own message (empty: the notification message)")
      ->type_name("TEXT");
  cmd->add_option("--template", o->templateText, "Text the new record starts with")->type_name("TEXT");
  cmd->add_option("--sound", o->sound, "A sound of `lumeo reminders sounds`")->type_name("NAME");
  cmd->add_flag("--only-if-nothing-recorded", o->onlyIfNothingRecorded,
                "Remind only if nothing was recorded since this reminder's previous moment");
  cmd->add_flag("--always", o->always, "Remind whatever was recorded (the default)");
}

void registerCommands(CliApp& cli) {
  CLI::App& reminders =
      cli.noun("reminders", "Reminders to record your mood, and their desktop notifications");
  reminders.require_subcommand(1);

  reminders.add_subcommand("list", "List the reminders and the notification message")->callback([&cli] {
    Session s(cli);
    printList(cli, s);
  });

  auto addOptions = std::make_shared<ReminderOptions>();
  CLI::App* add = reminders.add_subcommand(
      "add", "Add a reminder: --at HH:MM, or --from HH:MM --to HH:MM --count N [--random]");
  addReminderOptions(add, addOptions);
  add->callback([&cli, addOptions] { runAddOrEdit(cli, std::nullopt, *addOptions); });

  auto editId = std::make_shared<std::string>();
  auto editOptions = std::make_shared<ReminderOptions>();
  CLI::App* edit =
      reminders.add_subcommand("edit", "Change a reminder (saving turns it on, as the editor does)");
  edit->add_option("ID", *editId, "Reminder number as `lumeo reminders list` shows it")->required();
  addReminderOptions(edit, editOptions);
  edit->callback([&cli, editId, editOptions] { runAddOrEdit(cli, *editId, *editOptions); });

  for (bool on : {true, false}) {
    auto id = std::make_shared<std::string>();
    CLI::App* sw = reminders.add_subcommand(on ? "enable" : "disable",
                                            on ? "Turn a reminder on" : "Turn a reminder off");
    sw->add_option("ID", *id, "Reminder number")->required();
    sw->callback([&cli, id, on] { runSwitch(cli, *id, on); });
  }

  auto deleteId = std::make_shared<std::string>();
  CLI::App* del = reminders.add_subcommand("delete", "Delete a reminder");
  del->add_option("ID", *deleteId, "Reminder number")->required();
  del->callback([&cli, deleteId] { runDelete(cli, *deleteId); });

  auto text = std::make_shared<std::optional<std::string>>();
  CLI::App* textCmd = reminders.add_subcommand("text",
                                               "Show or set the notification message of every reminder "
                                               "without a message of its own");
  textCmd->add_option("TEXT", *text, "The new message");
  textCmd->callback([&cli, text] { runText(cli, *text); });

  auto soundId = std::make_shared<std::string>();
  auto soundName = std::make_shared<std::string>();
  CLI::App* sound = reminders.add_subcommand("sound", "Set a reminder's sound (saving turns it on)");
  sound->add_option("ID", *soundId, "Reminder number")->required();
  sound->add_option("NAME", *soundName, "A sound of `lumeo reminders sounds`")->required();
  sound->callback([&cli, soundId, soundName] {
    ReminderOptions o;
    o.sound = *soundName;
    runAddOrEdit(cli, *soundId, o);
  });

  reminders.add_subcommand("sounds", "List the reminder sounds")->callback([&cli] { runSounds(cli); });
  reminders.add_subcommand("pending", "Rebuild and show the pending notifications with their next time")
      ->callback([&cli] { runPending(cli); });
  registerAgentCommands(cli, reminders);
}

const CommandRegistration kReminderCommands(40, registerCommands);

const DemoStep kReminderDemo(40, "Reminders: daily notifications", [](CliApp& cli) {
  ReminderOptions o;
  o.from = "09:00";
  o.to = "21:00";
  o.count = "3";
  o.random = true;
  o.templateText = "#checkin ";
  bool json = cli.json();
  runAddOrEdit(cli, std::nullopt, o);
  if (!json) cli.out() << "The reminders, with three random moments between 09:00 and 21:00 added:\n";
  Session s(cli);
  printList(cli, s);
  if (!json) cli.out() << "What `lumeo agent` will show next:\n";
  runPending(cli);
});

}  // namespace

}  // namespace lumeo::cli
