// lumeo export csv, and the backup commands: create, restore and verify a
// backup archive. `export` is a group: other exports add their own verbs.
#include <unistd.h>

#include <iostream>

#include "backup/mood_csv_export.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "platform/atomic_file.h"
#include "platform/calendar.h"
#include "platform/user_date_parser.h"
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

void registerCommands(CliApp& cli) {
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

}  // namespace lumeo::cli
