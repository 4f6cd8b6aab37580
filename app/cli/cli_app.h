// The lumeo command line: one CLI11 application with global options, and a
// registry through which each command file adds its commands and its step of
// the demo. Commands report user errors by throwing CommandError; main()
// turns it into a message on standard error and exit status 1.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumeo::cli {

// A failure the user can act on: bad input, a missing record, an unreadable
// file. The message is printed as it stands.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& message, int status = 1)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

class CliApp {
 public:
  CliApp();

  CLI::App& root() { return app_; }
  // Adds `lumeo NOUN` (or finds it when another file added it already), so
  // that several files can add verbs to one noun.
  CLI::App& noun(const std::string& name, const std::string& description);

  bool json() const { return json_; }
  bool interactive() const;  // standard input and output are terminals
  std::optional<std::filesystem::path> home() const { return home_; }

  std::ostream& out();
  std::ostream& err();
  // Prints a JSON document (with --json) on standard output. Text that is
  // not UTF-8 (a record stored by an older build, or written into the file
  // by hand) comes out with U+FFFD in place of the bad bytes, so one such
  // record never breaks the output of the whole journal.
  void printJson(const nlohmann::json& document);

  // Runs the command line; returns the process exit status.
  int run(int argc, char** argv);

  // Start hooks run once, when the first command that needs the journal
  // calls runStartHooks(); stop hooks run after the command (also when it
  // failed) if the start hooks ran. The journal session uses them for the
  // launch and termination sequences, so `lumeo --help` opens nothing.
  void addStartHook(std::function<void(CliApp&)> hook) { startHooks_.push_back(std::move(hook)); }
  void addStopHook(std::function<void(CliApp&)> hook) { stopHooks_.push_back(std::move(hook)); }
  void runStartHooks();
  // Open hooks run each time the journal session opens (once launched),
  // close hooks each time it closes (at the command's end and at every
  // closeJournalSession), after its final save and before its writer lock
  // goes: what a command keeps open beside the journal (the sync event log)
  // lives as long as the session, and its last writes happen while no other
  // writer can start. Both run in the order they were added.
  void addOpenHook(std::function<void(CliApp&)> hook) { openHooks_.push_back(std::move(hook)); }
  void addCloseHook(std::function<void(CliApp&)> hook) { closeHooks_.push_back(std::move(hook)); }
  void runOpenHooks();
  void runCloseHooks();
  bool startHooksRan() const { return started_; }

 private:
  CLI::App app_;
  bool json_ = false;
  std::optional<std::filesystem::path> home_;
  std::vector<std::function<void(CliApp&)>> startHooks_;
  std::vector<std::function<void(CliApp&)>> stopHooks_;
  std::vector<std::function<void(CliApp&)>> openHooks_;
  std::vector<std::function<void(CliApp&)>> closeHooks_;
  bool started_ = false;
};

// Registration of command files, made by static objects in each file:
//   static const CommandRegistration kJournal(10, [](CliApp& app) { ... });
// Lower order registers first, which fixes the order of the help text.
struct CommandRegistration {
  CommandRegistration(int order, std::function<void(CliApp&)> registrar);
};

// A step of `lumeo demo`: fills the throwaway journal with sample data of
// one capability and prints what that capability shows. Steps run in order.
struct DemoStep {
  DemoStep(int order, std::string title, std::function<void(CliApp&)> step);
};

// Parses an integer option value or throws a usage error.
long parseInteger(const std::string& text, const std::string& what);

// Exit statuses. A usage error is a command line that cannot be right
// whatever the journal holds: a malformed or out-of-range value, options
// that exclude each other, a date in the future, text that is not UTF-8.
// Every other failure (no such record, tag or file, a picture that cannot
// be read, a store that cannot be opened or saved) is status 1.
inline constexpr int kUsageError = 2;
inline constexpr int kFailure = 1;

// The byte offset of the first byte that is not part of well-formed UTF-8
// (no overlong forms, no surrogates, nothing above U+10FFFF), if any.
std::optional<std::size_t> firstInvalidUtf8(const std::string& text);
// Throws a usage error naming `what` when `text` is not UTF-8; every text
// stored in the journal or the settings goes through it.
void requireUtf8(const std::string& text, const std::string& what);

// The comment of `--comment-file FILE`: the file's text ("-" reads standard
// input) without one final line break, checked to be UTF-8. A file that
// cannot be read is status 1.
std::string readCommentFile(const std::string& file);

}  // namespace lumeo::cli
