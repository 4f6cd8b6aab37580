// Global options, command registry and error handling of the lumeo command.
#include "cli_app.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "cli_docs.h"
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
  throw CommandError(what + " must be a whole number, not \"" + text + "\"", kUsageError);
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
  out() << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

std::optional<std::size_t> firstInvalidUtf8(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  std::size_t i = 0;
  while (i < size) {
    const unsigned char lead = bytes[i];
    std::size_t length = 0;
    char32_t minimum = 0, code = 0;
    if (lead < 0x80) {
      ++i;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      length = 2, minimum = 0x80, code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, minimum = 0x800, code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, minimum = 0x10000, code = lead & 0x07;
    } else {
      return i;
    }
    if (i + length > size) return i;
    for (std::size_t k = 1; k < length; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return i;
      code = (code << 6) | (bytes[i + k] & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return i;
    i += length;
  }
  return std::nullopt;
}

void requireUtf8(const std::string& text, const std::string& what) {
  if (auto at = firstInvalidUtf8(text)) {
    throw CommandError(
        what + " is not UTF-8 text (bad byte at offset " + std::to_string(*at) + "); nothing was changed",
        kUsageError);
  }
}

std::string readCommentFile(const std::string& file) {
  std::string text;
  if (file == "-") {
    text.assign(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) throw CommandError("cannot read the comment from standard input");
  } else {
    std::error_code ec;
    if (std::filesystem::is_directory(file, ec)) {
      throw CommandError("cannot read the comment file " + file + ": it is a folder (nothing was changed)");
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      throw CommandError("cannot read the comment file " + file + ": " + std::strerror(errno) +
                         " (nothing was changed)");
    }
    text.assign(std::istreambuf_iterator<char>(in), {});
    if (in.bad()) throw CommandError("cannot read the comment file " + file + " (nothing was changed)");
  }
  // Editors end a file with a line break; the comment does not.
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  requireUtf8(text, file == "-" ? std::string("the comment on standard input") : "the comment in " + file);
  return text;
}

void CliApp::runStartHooks() {
  if (started_) return;
  started_ = true;
  if (home_) DataDirectories::setHomeOverride(*home_);
  for (auto& hook : startHooks_) hook(*this);
}

void CliApp::runOpenHooks() {
  for (auto& hook : openHooks_) hook(*this);
}

void CliApp::runCloseHooks() {
  for (auto& hook : closeHooks_) hook(*this);
}

int CliApp::run(int argc, char** argv) {
  // The hidden generators of the completion scripts and the manual page;
  // the build runs them. They stand alone on the command line, need no
  // command and open nothing.
  if (argc >= 2 &&
      (std::string(argv[1]) == "--generate-completion" || std::string(argv[1]) == "--generate-man")) {
    const std::string flag = argv[1];
    const std::string shell = argc >= 3 ? argv[2] : "";
    if (flag == "--generate-man" && argc == 2) {
      out() << manPage(app_, std::string("lumeo ") + LUMEO_VERSION);
      return 0;
    }
    if (flag == "--generate-completion" && argc == 3 && (shell == "bash" || shell == "zsh")) {
      out() << (shell == "bash" ? bashCompletion(app_) : zshCompletion(app_));
      return 0;
    }
    err() << "lumeo: use --generate-completion bash|zsh or --generate-man alone\n";
    return kUsageError;
  }
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
