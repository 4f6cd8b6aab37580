// lumeo export csv, and the backup commands: create, restore and verify a
// backup archive. `export` is a group: other exports add their own verbs.
#include <unistd.h>

#include <iostream>

#include "backup/mood_csv_export.h"
#include "backup/mood_dropbox_helper.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "platform/atomic_file.h"
#include "platform/calendar.h"
#include "platform/linux/data_directories.h"
#include "platform/user_date_parser.h"
#include "reminder_commands.h"
#include "shell/mood_app_delegate.h"

namespace lumeo::cli {

namespace {

// A day given on the command line: its first moment, or with `endOfDay`
// its last.
Date requireExportDay(const std::string& raw, const std::string& what, bool endOfDay) {
  Calendar calendar = Calendar::current();
  std::optional<Date> date;
  if (raw == "today") date = Date::now();
  if (raw == "yesterday") date = calendar.dateByAddingUnit(CalendarUnit::kDay, -1, Date::now());
  if (!date) date = parseUserDate(raw, calendar);
  if (!date) {
    throw CommandError("cannot read the " + what + " \"" + raw +
                           "\": write it as 2026-11-22, \"today\", \"yesterday\" or as your locale writes it",
                       kUsageError);
  }
  Date start = calendar.startOfDay(*date);
  if (!endOfDay) return start;
  auto next = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, start);
  return next ? next->dateByAddingTimeInterval(-0.001) : *date;
}

struct CsvOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
  std::optional<std::string> output;
};

void exportCsv(CliApp& cli, const CsvOptions& options) {
  Date from = options.from ? requireExportDay(*options.from, "start date", false) : Date::distantPast();
  Date to = options.to ? requireExportDay(*options.to, "end date", true) : Date::distantFuture();
  if (to < from) throw CommandError("the end date lies before the start date", kUsageError);
  if (options.output && options.output->empty()) throw CommandError("-o needs a file name", kUsageError);
  MoodAppDelegate& app = journalSession(cli);
  auto text = MoodCSVExport::csvText(app.storeURL(), from, to);
  if (auto* error = std::get_if<Error>(&text)) throw CommandError(error->description);
  const std::string& csv = std::get<std::string>(text);
  if (!options.output || *options.output == "-") {
    std::cout.write(csv.data(), static_cast<std::streamsize>(csv.size()));
    std::cout.flush();
    if (!std::cout) throw CommandError("cannot write the CSV to standard output");
    return;
  }
  std::filesystem::path file = *options.output;
  std::error_code ec;
  if (std::filesystem::is_directory(file, ec)) {
    throw CommandError("cannot write the CSV to " + file.string() + ": it is a folder");
  }
  if (auto error = writeFileAtomically(file, csv, FileAccess::kUserDefault)) {
    throw CommandError("cannot write the CSV to " + file.string() + ": " + error->description +
                       " (nothing was written)");
  }
  if (cli.json()) {
    cli.printJson({{"path", std::filesystem::absolute(file).string()}, {"bytes", csv.size()}});
  } else {
    cli.out() << "Wrote " << file.string() << "\n";
  }
}

// --- backup ---------------------------------------------------------------

MoodDropboxHelper helperFor(MoodAppDelegate& app, CliReminderScheduler* scheduler) {
  BackupEnvironment environment = MoodDropboxHelper::sharedHelper().environment();
  environment.library = app.directories().library;
  environment.store = &app.store();
  environment.temporary = DataDirectories::current().temporary;
  if (scheduler) environment.reschedule = [scheduler] { scheduler->rescheduleReminders(false); };
  return MoodDropboxHelper(std::move(environment));
}

nlohmann::json contentsJson(const BackupContents& contents) {
  return {{"records", contents.records}, {"tags", contents.tags},       {"photos", contents.photos},
          {"images", contents.images},   {"members", contents.members}, {"oldFormat", contents.oldFormat},
          {"bytes", contents.bytes}};
}

std::string plural(std::size_t n, const std::string& word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::filesystem::path requireArchiveFile(const std::string& file) {
  std::filesystem::path path = file;
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) throw CommandError("no backup file " + file);
  if (std::filesystem::is_directory(path, ec)) throw CommandError(file + " is a folder, not a backup file");
  return std::filesystem::absolute(path, ec);
}

void backupCreate(CliApp& cli, const std::optional<std::string>& to) {
  std::filesystem::path folder;
  if (to) {
    folder = *to;
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec)) {
      throw CommandError("cannot make the backup in " + *to + ": no such folder", kUsageError);
    }
    folder = std::filesystem::absolute(folder, ec);
  }
  MoodAppDelegate& app = journalSession(cli);
  MoodDropboxHelper helper = helperFor(app, nullptr);
  if (!to) {
    // A backup is kept, unlike the phone's, which went to a cloud drive at
    // once: the documents folder, not the temporary one.
    folder = DataDirectories::current().documents;
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
  }
  auto made = helper.createBackupInFolder(folder, false);
  if (auto* error = std::get_if<Error>(&made)) throw CommandError(error->description);
  const auto& path = std::get<std::filesystem::path>(made);
  if (cli.json()) {
    cli.printJson({{"path", path.string()}});
  } else {
    cli.out() << path.string() << "\n";
  }
}

void backupVerify(CliApp& cli, const std::string& file) {
  const auto path = requireArchiveFile(file);
  auto checked = MoodDropboxHelper::verify(path);
  if (auto* error = std::get_if<Error>(&checked)) throw CommandError(error->description);
  const auto& contents = std::get<BackupContents>(checked);
  if (cli.json()) {
    auto json = contentsJson(contents);
    json["path"] = path.string();
    json["ok"] = true;
    cli.printJson(json);
    return;
  }
  cli.out() << path.filename().string() << " is a good backup: " << plural(contents.records, "record") << ", "
            << plural(contents.tags, "tag") << ", " << plural(contents.photos, "photo") << " ("
            << plural(contents.images, "picture file") << ")"
            << (contents.oldFormat ? ", in the old format" : "") << "\n";
}

void backupRestore(CliApp& cli, const std::string& file, bool yes) {
  const auto path = requireArchiveFile(file);
  // What the archive holds, checked whole before the question is asked.
  auto checked = MoodDropboxHelper::verify(path);
  if (auto* error = std::get_if<Error>(&checked))
    throw CommandError(error->description + "; nothing was changed");
  const auto& contents = std::get<BackupContents>(checked);
  MoodAppDelegate& app = journalSession(cli);
  if (!yes && cli.interactive()) {
    const std::size_t current = app.store().allRecords().size();
    cli.out() << "Restoring " << path.filename().string() << " replaces your journal ("
              << plural(current, "record") << ") with its " << plural(contents.records, "record") << " and "
              << plural(contents.images, "picture file")
              << ", and your reminders, gradient colours, level words and feeling words with its own.\n"
              << "Your current journal is kept in " << kBeforeRestoreArchiveName << ". Restore? [y/N] ";
    cli.out().flush();
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") {
      cli.out() << "Nothing was changed.\n";
      return;
    }
  }
  CliReminderScheduler scheduler;
  MoodDropboxHelper helper = helperFor(app, &scheduler);
  auto restored = helper.restore(path);
  if (auto* error = std::get_if<Error>(&restored)) throw CommandError(error->description);
  scheduler.waitForPasses();
  const auto& result = std::get<RestoreResult>(restored);
  if (cli.json()) {
    cli.printJson({{"records", result.records},
                   {"images", result.images},
                   {"oldFormat", result.oldFormat},
                   {"journalReplaced", result.journalReplaced},
                   {"beforeRestore", result.beforeRestoreArchive.string()}});
    return;
  }
  if (result.journalReplaced) {
    cli.out() << "Restored " << plural(result.records, "record") << " and "
              << plural(result.images, "picture file") << " from " << path.filename().string() << ".\n";
  } else {
    cli.out() << path.filename().string()
              << " holds no record: the journal stayed as it was; its settings were "
              << "restored.\n";
  }
  cli.out() << "The previous journal is kept in " << result.beforeRestoreArchive.string() << ".\n";
}

void registerCommands(CliApp& cli) {
  CLI::App& backup = cli.noun("backup", "Back the journal up to a zip archive, check one, restore from one");
  auto createTo = std::make_shared<std::optional<std::string>>();
  CLI::App* create = backup.add_subcommand("create", "Make a backup archive and print its path");
  create->add_option("--to", *createTo, "Make it in DIR (default: Lumeo's documents folder)")
      ->type_name("DIR");
  create->callback([&cli, createTo] { backupCreate(cli, *createTo); });
  auto restoreFile = std::make_shared<std::string>();
  auto restoreYes = std::make_shared<bool>(false);
  CLI::App* restore = backup.add_subcommand(
      "restore", "Replace the journal with a backup's (the current one is kept as before-restore.backup)");
  restore->add_option("FILE", *restoreFile, "The backup archive")->required();
  restore->add_flag("--yes", *restoreYes, "Do not ask first");
  restore->callback([&cli, restoreFile, restoreYes] { backupRestore(cli, *restoreFile, *restoreYes); });
  auto verifyFile = std::make_shared<std::string>();
  CLI::App* verify = backup.add_subcommand("verify", "Check a backup archive without touching the journal");
  verify->add_option("FILE", *verifyFile, "The backup archive")->required();
  verify->callback([&cli, verifyFile] { backupVerify(cli, *verifyFile); });

  CLI::App& exportCmd = cli.noun("export", "Export the journal for other programs");
  auto csv = std::make_shared<CsvOptions>();
  CLI::App* csvCmd = exportCmd.add_subcommand(
      "csv", "The records of a period as CSV, one column per tag (to standard output unless -o)");
  csvCmd->add_option("--from", csv->from, "First day (default: the first record)")->type_name("DATE");
  csvCmd->add_option("--to", csv->to, "Last day, counted whole (default: the last record)")
      ->type_name("DATE");
  csvCmd->add_option("-o,--output", csv->output, "Write the CSV to FILE instead")->type_name("FILE");
  csvCmd->callback([&cli, csv] { exportCsv(cli, *csv); });
}

}  // namespace

const CommandRegistration kBackupCommands(60, registerCommands);

const DemoStep kBackupDemo(60, "Backup: an archive of the journal, checked", [](CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  MoodDropboxHelper helper = helperFor(app, nullptr);
  std::error_code ec;
  std::filesystem::create_directories(helper.environment().temporary, ec);
  auto made = helper.createBackupInFolder(helper.environment().temporary, false);
  if (auto* error = std::get_if<Error>(&made)) throw CommandError(error->description);
  const auto& path = std::get<std::filesystem::path>(made);
  cli.out() << "$ lumeo backup create\n" << path.string() << "\n";
  cli.out() << "$ lumeo backup verify " << path.filename().string() << "\n";
  backupVerify(cli, path.string());
});

}  // namespace lumeo::cli
