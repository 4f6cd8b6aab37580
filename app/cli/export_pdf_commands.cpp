// lumeo export pdf and lumeo export photos: the export screen on a terminal.
// Both run the screen's controller, so the range is clamped as the picker
// clamps it and a report of an unchanged range is reused. The finished
// report is offered the way a Linux desktop shares a file: saved where -o
// says, opened with the default application (--open, xdg-open) or put into
// a new e-mail as an attachment (--email, xdg-email). Ctrl-C cancels
// cleanly: no file is left under its final name.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "backup/mood_export_view_controller.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "platform/atomic_file.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/dispatch_queue.h"
#include "platform/user_date_parser.h"
#include "shell/mood_app_delegate.h"
#include "store/date_all.h"

extern char** environ;

namespace lumeo::cli {

namespace {

std::atomic<bool> interrupted{false};

extern "C" void onInterrupt(int) {
  interrupted.store(true);
}

// Ctrl-C sets a flag for the length of the export; the export looks at it
// before each record or photo.
class InterruptScope {
 public:
  InterruptScope() {
    interrupted.store(false);
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previous_);
  }
  ~InterruptScope() { sigaction(SIGINT, &previous_, nullptr); }

 private:
  struct sigaction previous_ {};
};

Date requireDay(const std::string& raw, const std::string& what) {
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
  return *date;
}

std::string dayText(Date date) {
  return DateFormatter::localizedStringFromDate(date, DateFormatter::Style::kMedium,
                                                DateFormatter::Style::kNone);
}

// The screen's indicator on a terminal: a progress line on standard error
// when it is a terminal, nothing otherwise.
class TerminalExportView : public MoodExportViewDelegate {
 public:
  TerminalExportView(CliApp& cli, MoodExportViewController& controller, std::string what)
      : controller_(controller), what_(std::move(what)), tty_(isatty(STDERR_FILENO) && !cli.json()) {}

  void showIndicator(const std::string&, bool) override {}
  void progress(double fraction) override {
    if (interrupted.load() && !controller_.isCanceled()) controller_.cancelClick();
    if (!tty_) return;
    const int percent = static_cast<int>(fraction * 100);
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    std::cerr << "\r" << what_ << " " << percent << "%" << std::flush;
    shown_ = true;
  }
  void hideIndicator(std::optional<bool>) override { clearLine(); }
  void share(const std::filesystem::path& url) override { shared_ = url; }
  void clearLine() {
    if (shown_) std::cerr << "\r\033[K" << std::flush;
    shown_ = false;
  }

  std::optional<std::filesystem::path> shared_;

 private:
  MoodExportViewController& controller_;
  std::string what_;
  bool tty_;
  int lastPercent_ = -1;
  bool shown_ = false;
};

// Alerts of the export ("No photos to export") as lines of output.
class ExportAlertPresenter : public Presenter {
 public:
  void presentAlert(Screen&, const AlertRequest& request, std::function<void(int)> handler) override {
    messages.push_back(request.title);
    if (handler) handler(request.actions.empty() ? 0 : request.actions.front().result);
  }
  void presentShareSheet(Screen&, const ShareSheetRequest&,
                         std::function<void(const std::string&)> done) override {
    if (done) done("");
  }
  std::vector<std::string> messages;
};

struct RangeOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
};

// The controller with the range set as the screen's pickers would: the
// defaults first, then From, then To. Returns a note when the range had to
// be clamped.
std::optional<std::string> applyRange(MoodExportViewController& controller, const RangeOptions& options,
                                      std::optional<Date> from, std::optional<Date> to) {
  controller.viewDidLoad();
  if (from) controller.setDateFrom(*from);
  if (to) {
    // A To before From is taken as the picker takes it: To moves up to
    // the end of From's day.
    controller.setDateTo(std::max(*to, from ? onlyDate(*from) : *to));
  }
  if (from && to && onlyDate(*to) < onlyDate(*from)) {
    return "the end date " + *options.to + " lies before the start date " + *options.from + ": exporting " +
           dayText(*controller.dateFrom()) + " only";
  }
  return std::nullopt;
}

void runUntilDone(MoodExportViewController& controller) {
  MainLoop::shared().runUntil([&] { return !controller.isBusy(); }, 24 * 3600);
}

// Runs a desktop helper (xdg-open, xdg-email) and waits for it.
void runHelper(const std::vector<std::string>& argv, const std::string& what) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) {
    throw CommandError("cannot " + what + ": " + argv[0] + " is not installed (it comes with xdg-utils)");
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw CommandError("cannot " + what + ": " + argv[0] + " failed");
  }
}

struct PdfOptions : RangeOptions {
  std::optional<std::string> output;
  bool open = false;
  bool email = false;
};

void exportPdf(CliApp& cli, const PdfOptions& options) {
  std::optional<Date> from =
      options.from ? std::optional(requireDay(*options.from, "start date")) : std::nullopt;
  std::optional<Date> to = options.to ? std::optional(requireDay(*options.to, "end date")) : std::nullopt;
  std::optional<std::filesystem::path> output;
  if (options.output) {
    if (options.output->empty()) throw CommandError("-o needs a file name", kUsageError);
    output = std::filesystem::path(*options.output);
    std::error_code ec;
    if (std::filesystem::is_directory(*output, ec)) {
      throw CommandError("cannot write the report to " + output->string() + ": it is a folder");
    }
    const auto parent = output->has_parent_path() ? output->parent_path() : std::filesystem::path(".");
    if (!std::filesystem::is_directory(parent, ec)) {
      throw CommandError("cannot write the report to " + output->string() + ": there is no folder " +
                         parent.string());
    }
  }

  MoodAppDelegate& app = journalSession(cli);
  auto controller = std::make_shared<MoodExportViewController>(app.store(), app.directories().documents);
  const auto note = applyRange(*controller, options, from, to);
  if (note && !cli.json()) cli.err() << "Note: " << *note << "\n";
  auto view = std::make_shared<TerminalExportView>(cli, *controller, "Making the report");
  controller->setDelegate(view);
  {
    InterruptScope scope;
    controller->doExportToPDF();
    runUntilDone(*controller);
    view->clearLine();
    if (interrupted.load()) throw CommandError("cancelled: no report was written", 130);
  }
  if (const auto& error = controller->lastError()) {
    throw CommandError("cannot write the report to " + controller->pdfURL().string() + ": " +
                       error->description);
  }
  if (!view->shared_) throw CommandError("the report could not be made");
  std::filesystem::path written = *view->shared_;
  if (output) {
    auto bytes = readFileBytes(written);
    if (auto* error = std::get_if<Error>(&bytes))
      throw CommandError("cannot read the report: " + error->description);
    if (auto error = writeFileAtomically(*output, std::get<std::vector<std::uint8_t>>(bytes),
                                         FileAccess::kUserDefault)) {
      throw CommandError("cannot write the report to " + output->string() + ": " + error->description +
                         " (nothing was written)");
    }
    written = *output;
  }
  if (cli.json()) {
    cli.printJson({{"path", std::filesystem::absolute(written).string()},
                   {"from", isoText(*controller->dateFrom())},
                   {"to", isoText(*controller->dateTo())}});
  } else {
    cli.out() << "Wrote " << written.string() << " (" << dayText(*controller->dateFrom()) << " to "
              << dayText(*controller->dateTo()) << ")\n";
  }
  if (options.open) runHelper({"xdg-open", written.string()}, "open the report");
  if (options.email) {
    runHelper(
        {"xdg-email", "--subject", "Mood report", "--attach", std::filesystem::absolute(written).string()},
        "start an e-mail with the report");
  }
}

struct PhotoOptions : RangeOptions {
  std::string folder;
};

void exportPhotos(CliApp& cli, const PhotoOptions& options) {
  std::optional<Date> from =
      options.from ? std::optional(requireDay(*options.from, "start date")) : std::nullopt;
  std::optional<Date> to = options.to ? std::optional(requireDay(*options.to, "end date")) : std::nullopt;
  if (options.folder.empty()) throw CommandError("the folder name is empty", kUsageError);
  const std::filesystem::path folder(options.folder);
  std::error_code ec;
  if (std::filesystem::exists(folder, ec) && !std::filesystem::is_directory(folder, ec)) {
    throw CommandError("cannot export photos to " + folder.string() + ": it is a file, not a folder");
  }

  MoodAppDelegate& app = journalSession(cli);
  auto presenter = std::make_shared<ExportAlertPresenter>();
  MoodViewController::setSharedPresenter(presenter);
  struct PresenterReset {
    ~PresenterReset() { MoodViewController::setSharedPresenter(nullptr); }
  } reset;
  auto controller = std::make_shared<MoodExportViewController>(app.store(), app.directories().documents);
  const auto note = applyRange(*controller, options, from, to);
  if (note && !cli.json()) cli.err() << "Note: " << *note << "\n";
  auto view = std::make_shared<TerminalExportView>(cli, *controller, "Copying photos");
  controller->setDelegate(view);
  PhotoExportResult result;
  {
    InterruptScope scope;
    controller->doExportPhotos(folder, [&](const PhotoExportResult& r) { result = r; });
    runUntilDone(*controller);
    view->clearLine();
  }
  if (cli.json()) {
    cli.printJson({{"folder", std::filesystem::absolute(folder).string()},
                   {"sent", result.sent},
                   {"replaced", result.replaced},
                   {"skipped", result.skipped},
                   {"cancelled", result.cancelled}});
  } else {
    for (const auto& name : result.sent) cli.out() << "Sent      " << name << "\n";
    for (const auto& name : result.replaced) cli.out() << "Replaced  " << name << " (its size had changed)\n";
    for (const auto& name : result.skipped) cli.out() << "Skipped   " << name << " (already there)\n";
    for (const auto& message : presenter->messages) cli.out() << message << "\n";
    if (!result.sent.empty() || !result.replaced.empty()) {
      cli.out() << result.sent.size() << " sent, " << result.replaced.size() << " replaced, "
                << result.skipped.size() << " already there\n";
    }
  }
  if (result.error) {
    throw CommandError("cannot export photos to " + folder.string() + ": " + result.error->description +
                       (result.sent.empty() && result.replaced.empty()
                            ? std::string(" (nothing was copied)")
                            : std::string(" (the files above were copied)")));
  }
  if (result.cancelled) throw CommandError("cancelled: the photos listed above were copied, no other", 130);
}

void registerCommands(CliApp& cli) {
  CLI::App& exportCmd = cli.noun("export", "Export the journal for other programs");

  auto pdf = std::make_shared<PdfOptions>();
  CLI::App* pdfCmd = exportCmd.add_subcommand(
      "pdf", "The PDF report of a period: title, records with photos, charts and top tags");
  pdfCmd->add_option("--from", pdf->from, "First day (default: the first record's)")->type_name("DATE");
  pdfCmd->add_option("--to", pdf->to, "Last day, counted whole (default: today)")->type_name("DATE");
  pdfCmd->add_option("-o,--output", pdf->output, "Save the report as FILE as well")->type_name("FILE");
  pdfCmd->add_flag("--open", pdf->open, "Open the report with the default application");
  pdfCmd->add_flag("--email", pdf->email, "Start an e-mail with the report attached");
  pdfCmd->callback([&cli, pdf] { exportPdf(cli, *pdf); });

  auto photos = std::make_shared<PhotoOptions>();
  CLI::App* photosCmd = exportCmd.add_subcommand(
      "photos", "Copy the photos of a period into a folder, only those new or changed there");
  photosCmd->add_option("DIR", photos->folder, "The folder (made if missing)")->required()->type_name("DIR");
  photosCmd->add_option("--from", photos->from, "First day (default: the first record's)")->type_name("DATE");
  photosCmd->add_option("--to", photos->to, "Last day, counted whole (default: today)")->type_name("DATE");
  photosCmd->callback([&cli, photos] { exportPhotos(cli, *photos); });
}

}  // namespace

const CommandRegistration kExportPdfCommands(61, registerCommands);

}  // namespace lumeo::cli
