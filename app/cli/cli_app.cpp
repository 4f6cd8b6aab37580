// Global options, command registry and error handling of the lumeo command.
#include "cli_app.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "platform/linux/data_directories.h"

namespace lumeo::cli {

namespace {

struct Registered {
  int order;
  std::function<void(CliApp&)> fn;
};
std::vector<Registered>& registrations() {
  static std::vector<Registered> r;
  return r;
}

struct RegisteredDemo {
  int order;
  std::string title;
  std::function<void(CliApp&)> fn;
};
std::vector<RegisteredDemo>& demoSteps() {
  static std::vector<RegisteredDemo> d;
  return d;
}

void runDemo(CliApp& app) {
  std::string pattern = (std::filesystem::temp_directory_path() / "lumeo-demo-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw CommandError("cannot make a folder for the demo journal");
  std::filesystem::path home = pattern;
  DataDirectories::setHomeOverride(home);
  DataDirectories::current().create();
  app.out() << "Lumeo demo\n"
            << "A throwaway journal lives in " << home.string() << "\n"
            << "Look around in it with: lumeo --home " << home.string() << " COMMAND\n\n";
  app.runStartHooks();
  auto steps = demoSteps();
  std::stable_sort(steps.begin(), steps.end(), [](auto& a, auto& b) { return a.order < b.order; });
  if (steps.empty()) {
    app.out() << "Nothing to show yet: the journal commands come next.\n";
  }
  for (const auto& step : steps) {
    app.out() << "== " << step.title << "\n";
    step.fn(app);
    app.out() << "\n";
  }
}

}  // namespace

CommandRegistration::CommandRegistration(int order, std::function<void(CliApp&)> registrar) {
  registrations().push_back({order, std::move(registrar)});
}

DemoStep::DemoStep(int order, std::string title, std::function<void(CliApp&)> step) {
  demoSteps().push_back({order, std::move(title), std::move(step)});
}

long parseInteger(const std::string& text, const std::string& what) {
  try {
    std::size_t used = 0;
    long v = std::stol(text, &used);
    if (used == text.size()) return v;
  } catch (const std::exception&) {
  }
  throw CommandError(what + " must be a whole number, not \"" + text + "\"", 2);
}

CliApp::CliApp() : app_("Lumeo, a personal mood journal.", "lumeo") {
  app_.set_version_flag("--version", std::string("lumeo ") + LUMEO_VERSION);
  app_.add_option_function<std::string>(
          "--home", [this](const std::string& dir) { home_ = std::filesystem::path(dir); },
          "Keep all of Lumeo's files under DIR (also: LUMEO_HOME)")
      ->type_name("DIR");
  app_.add_flag("--json", json_, "Machine-readable output");
  app_.require_subcommand(1);
  // Global options may also follow the command: `lumeo list --json`.
  app_.fallthrough();
  app_.add_subcommand("demo", "Make a throwaway journal with sample data and show what Lumeo does")
      ->callback([this] { runDemo(*this); });

  auto regs = registrations();
  std::stable_sort(regs.begin(), regs.end(), [](auto& a, auto& b) { return a.order < b.order; });
  for (const auto& r : regs) r.fn(*this);
}

CLI::App& CliApp::noun(const std::string& name, const std::string& description) {
  for (CLI::App* sub : app_.get_subcommands({})) {
    if (sub->get_name() == name) return *sub;
  }
  CLI::App* sub = app_.add_subcommand(name, description);
  sub->require_subcommand(1);
  return *sub;
}

bool CliApp::interactive() const {
  return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

std::ostream& CliApp::out() {
  return std::cout;
}
std::ostream& CliApp::err() {
  return std::cerr;
}

void CliApp::printJson(const nlohmann::json& document) {
  out() << document.dump(2) << "\n";
}

void CliApp::runStartHooks() {
  if (started_) return;
  started_ = true;
  if (home_) DataDirectories::setHomeOverride(*home_);
  for (auto& hook : startHooks_) hook(*this);
}

int CliApp::run(int argc, char** argv) {
  // Start hooks run before the first command callback, once the global
  // options are known.
  app_.parse_complete_callback([this] {
    if (home_) DataDirectories::setHomeOverride(*home_);
  });
  int status = 0;
  try {
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    status = app_.exit(e);
    if (status != 0) status = 2;
  } catch (const CommandError& e) {
    err() << "lumeo: " << e.what() << "\n";
    status = e.status();
  } catch (const std::exception& e) {
    err() << "lumeo: " << e.what() << "\n";
    status = 1;
  }
  if (started_) {
    for (auto& hook : stopHooks_) {
      try {
        hook(*this);
      } catch (const std::exception& e) {
        err() << "lumeo: " << e.what() << "\n";
        if (status == 0) status = 1;
      }
    }
  }
  return status;
}

}  // namespace lumeo::cli
