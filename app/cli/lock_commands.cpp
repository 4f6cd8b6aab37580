// lumeo lock: the passcode, its recovery key and the fingerprint switch, and
// the gate in front of the reading commands. The commands drive the same
// entry-screen controller as the GUI (its stages, checks and recovery
// alert); what the terminal adds is the code's source (the terminal without
// echo, or --passcode-fd N for scripts) and a growing wait after wrong codes,
// counted across runs.
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "cli_app.h"
#include "journal_commands.h"
#include "lock/lock_text.h"
#include "lock/mood_biometric_authentication_facade.h"
#include "lock/mood_pass_input_view_controller.h"
#include "lock/mood_passcode_storage.h"
#include "lock/passcode_attempt_throttle.h"
#include "lock/text_field_alert.h"
#include "lock_gate.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/fprintd_authenticator.h"
#include "platform/linux/secret_service_store.h"
#include "shell/mood_app_delegate.h"

namespace lumeo::cli {

namespace {

// Commands that stay open with a passcode set: capturing and what belongs
// to it, the lock's own status and first setup, and the reminder agent.
// Everything else that opens the journal asks; a new command is gated
// unless it is named here.
const std::vector<std::string>& openCommands() {
  static const std::vector<std::string> names = {"add",  "complete", "template", "levels",
                                                 "lock", "agent",    "demo"};
  return names;
}

std::optional<int> passcodeFd;
bool unlockedThisProcess = false;
std::vector<std::string> fdLines;
bool fdRead = false;

// --- Where codes come from --------------------------------------------------

std::string nextFdLine() {
  if (!fdRead) {
    fdRead = true;
    std::string all;
    char buffer[256];
    for (;;) {
      ssize_t n = ::read(*passcodeFd, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0)
        throw CommandError("cannot read the passcode from file descriptor " + std::to_string(*passcodeFd), 2);
      if (n == 0 || all.size() > 4096) break;
      all.append(buffer, static_cast<std::size_t>(n));
    }
    std::size_t start = 0;
    while (start <= all.size()) {
      std::size_t end = all.find('\n', start);
      if (end == std::string::npos) end = all.size();
      std::string line = all.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty() || end < all.size()) fdLines.push_back(line);
      start = end + 1;
    }
  }
  if (fdLines.empty())
    throw CommandError("--passcode-fd " + std::to_string(*passcodeFd) + " gave no passcode", 2);
  std::string line = fdLines.front();
  fdLines.erase(fdLines.begin());
  return line;
}

// A line typed on the terminal without echo. Echo goes off before the
// prompt shows and nothing typed ahead is thrown away, so that input that
// follows the prompt at once (a fast typist, a script on a terminal) is kept.
std::string readHidden(CliApp& cli, const std::string& prompt) {
  termios old{};
  bool restore = tcgetattr(STDIN_FILENO, &old) == 0;
  if (restore) {
    termios quiet = old;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  cli.err() << prompt << std::flush;
  std::string line;
  std::getline(std::cin, line);
  if (restore) tcsetattr(STDIN_FILENO, TCSANOW, &old);
  cli.err() << "\n";
  return line;
}

std::string askCode(CliApp& cli, const std::string& prompt) {
  if (passcodeFd) return nextFdLine();
  if (cli.interactive()) return readHidden(cli, prompt);
  throw CommandError(
      "this journal is locked: type the passcode on a terminal, or give it to a script with --passcode-fd N");
}

// The code itself never appears in a message.
void checkShape(const std::string& code) {
  bool digits = code.size() == MoodPassInputView::kPassCodeLength &&
                std::all_of(code.begin(), code.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!digits) throw CommandError("a passcode is four digits from 0 to 9", 2);
}

void type(MoodPassInputViewController& screen, const std::string& code) {
  for (char c : code) screen.number(std::string(1, c));
}

// --- What the controllers show on a terminal ----------------------------------

class TerminalPresenter : public Presenter {
 public:
  explicit TerminalPresenter(CliApp& cli) : cli_(cli) {}
  void presentAlert(Screen&, const AlertRequest& request, std::function<void(int)> handler) override {
    cli_.err() << request.title << ": " << request.message << "\n";
    if (handler && !request.actions.empty()) handler(request.actions.back().result);
  }
  void presentShareSheet(Screen&, const ShareSheetRequest&,
                         std::function<void(const std::string&)>) override {}

 private:
  CliApp& cli_;
};

class TerminalTextFieldAlerts : public TextFieldAlertPresenter {
 public:
  explicit TerminalTextFieldAlerts(CliApp& cli) : cli_(cli) {}
  void presentTextFieldAlert(Screen&, const TextFieldAlertRequest& request,
                             std::function<void(int, const std::string&)> handler) override {
    if (!cli_.interactive() || passcodeFd) return;  // a script is never asked
    cli_.err() << request.title << ": " << request.message << "\n";
    std::string text = readHidden(cli_, request.placeholder + " (Enter to skip): ");
    if (handler) handler(text.empty() ? 0 : 1, text);
  }

 private:
  CliApp& cli_;
};

// Installs the terminal presenters while a gate or a lock command runs.
class TerminalDialogs {
 public:
  explicit TerminalDialogs(CliApp& cli) {
    MoodViewController::setSharedPresenter(std::make_shared<TerminalPresenter>(cli));
    TextFieldAlertPresenter::setShared(std::make_shared<TerminalTextFieldAlerts>(cli));
  }
  ~TerminalDialogs() {
    MoodViewController::setSharedPresenter(nullptr);
    TextFieldAlertPresenter::setShared(nullptr);
  }
};

// --- The gate ---------------------------------------------------------------------

// The system's keyring and fingerprint reader, for this journal.
void installServices() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  std::error_code ec;
  auto journal = std::filesystem::weakly_canonical(DataDirectories::current().library, ec);
  SecretStore::setShared(std::make_shared<SecretServiceStore>(journal.string()));
  BiometricAuthenticator::setShared(std::make_shared<FprintdAuthenticator>());
}

bool lockIsSet() {
  OptionalError error;
  bool set = MoodPasscodeStorage::passcodeEnabled(&error);
  if (error) {
    throw CommandError("this journal has a passcode, but the keyring that holds it cannot be read: " +
                       error->description);
  }
  return set;
}

// The current code, typed into the screen's stage 0 with the wait and the
// count of wrong codes. Returns when the screen accepted it.
void enterCurrentCode(CliApp& cli, MoodPassInputViewController& screen, const bool& done) {
  PasscodeAttemptThrottle throttle(DataDirectories::current().library);
  if (double wait = throttle.secondsToWait(); wait > 0) {
    cli.err() << "lumeo: " << throttle.wrongInARow() << " wrong passcode"
              << (throttle.wrongInARow() == 1 ? "" : "s") << " in a row; waiting "
              << static_cast<long>(std::ceil(wait)) << " s before this attempt\n";
    std::this_thread::sleep_for(std::chrono::duration<double>(wait));
  }
  std::string code = askCode(cli, "Passcode: ");
  checkShape(code);
  screen.tryOldCount = throttle.wrongInARow();
  int stage = screen.changeCodeStage();
  type(screen, code);
  if (done || screen.changeCodeStage() != stage) {
    if (auto error = throttle.recordRight()) cli.err() << "lumeo: " << error->description << "\n";
    return;
  }
  // Failing to count a wrong code must not make guessing free.
  if (auto error = throttle.recordWrong()) {
    throw CommandError("cannot note the wrong passcode: " + error->description);
  }
  throw CommandError(lockText("Pass code didn't match. Try again."));
}

std::string runningCommand(CliApp& cli) {
  auto used = cli.root().get_subcommands();
  return used.empty() ? std::string() : used.front()->get_name();
}

// --- lumeo lock ---------------------------------------------------------------------

MoodBiometricAuthenticationFacade& facade() {
  static MoodBiometricAuthenticationFacade instance;
  return instance;
}

void runStatus(CliApp& cli) {
  journalSession(cli);
  bool set = lockIsSet();
  bool key = set && !MoodPasscodeStorage::secretKey().value_or("").empty();
  OptionalError readerError;
  bool reader = BiometricAuthenticator::shared()->canEvaluatePolicy(&readerError);
  bool finger = facade().biometricEnabledForThisApp();
  PasscodeAttemptThrottle throttle(DataDirectories::current().library);
  if (cli.json()) {
    cli.printJson({{"passcode", set},
                   {"recoveryKey", key},
                   {"fingerprint", finger},
                   {"fingerprintReader", reader},
                   {"wrongPasscodesInARow", throttle.wrongInARow()},
                   {"secondsToWait", std::ceil(throttle.secondsToWait())}});
    return;
  }
  cli.out() << "Passcode       " << (set ? "on" : "off") << "\n";
  if (!set) return;
  cli.out() << "Recovery key   " << (key ? "set" : "not set") << "\n"
            << "Fingerprint    " << (finger ? "on" : "off") << " ("
            << (reader        ? "a reader with an enrolled finger"
                : readerError ? readerError->description
                              : "no reader")
            << ")\n";
  if (throttle.wrongInARow() > 0) {
    cli.out() << "Wrong codes    " << throttle.wrongInARow() << " in a row; the next try waits "
              << static_cast<long>(std::ceil(throttle.secondsToWait())) << " s\n";
  }
}

// Stages 1 and 2 of the screen: the new code and the new code again.
void enterNewCode(CliApp& cli, MoodPassInputViewController& screen, const bool& done) {
  std::string code = askCode(cli, "New passcode: ");
  checkShape(code);
  type(screen, code);
  if (screen.changeCodeStage() != 2) throw CommandError("the new passcode is the same as the current one");
  std::string again =
      passcodeFd ? (fdLines.empty() ? code : nextFdLine()) : askCode(cli, "New passcode again: ");
  checkShape(again);
  type(screen, again);
  if (done) return;
  if (screen.lastStoreError()) {
    throw CommandError("could not store the passcode: " + screen.lastStoreError()->description +
                       " (nothing was changed)");
  }
  throw CommandError(lockText("Pass code didn't match. Try again."));
}

void runEnable(CliApp& cli) {
  journalSession(cli);
  if (lockIsSet()) throw CommandError("a passcode is set already; change it with `lumeo lock change`");
  TerminalDialogs dialogs(cli);
  auto screen = std::make_shared<MoodPassInputViewController>();
  bool done = false;
  screen->doneBlock = [&] { done = true; };
  screen->changeCodeMode = true;
  screen->viewWillAppear(false);
  enterNewCode(cli, *screen, done);
  cli.out() << "Passcode set. Reading the journal now needs it; `lumeo add` does not.\n";
}

void runChange(CliApp& cli) {
  journalSession(cli);
  if (!lockIsSet()) throw CommandError("no passcode is set; set one with `lumeo lock enable`");
  TerminalDialogs dialogs(cli);
  auto screen = std::make_shared<MoodPassInputViewController>();
  bool done = false;
  screen->doneBlock = [&] { done = true; };
  screen->changeCodeMode = true;
  screen->viewWillAppear(false);
  enterCurrentCode(cli, *screen, done);
  enterNewCode(cli, *screen, done);
  cli.out() << "Passcode changed.\n";
}

void runDisable(CliApp& cli) {
  journalSession(cli);
  if (!lockIsSet()) throw CommandError("no passcode is set");
  TerminalDialogs dialogs(cli);
  auto screen = std::make_shared<MoodPassInputViewController>();
  bool done = false;
  screen->doneBlock = [&] { done = true; };
  screen->viewWillAppear(false);
  enterCurrentCode(cli, *screen, done);
  // The passcode first, then its key, as the settings screen does.
  if (auto error = MoodPasscodeStorage::setPassCode("")) {
    throw CommandError("could not remove the passcode: " + error->description + " (it is still set)");
  }
  if (auto error = MoodPasscodeStorage::setSecretKey(std::nullopt)) {
    cli.err() << "lumeo: the recovery key stays in the keyring: " << error->description << "\n";
  }
  cli.out() << "Passcode removed, with its recovery key.\n";
}

void requireLockFor(const std::string& what) {
  if (!lockIsSet()) throw CommandError(what + " needs a passcode; set one with `lumeo lock enable`");
}

void runRecoveryKeySet(CliApp& cli) {
  requireUnlocked(cli);
  requireLockFor("a recovery key");
  std::string key;
  if (cli.interactive()) {
    key = readHidden(cli, lockText("Password recovery key") + ": ");
  } else {
    std::getline(std::cin, key);
  }
  if (key.empty()) throw CommandError("the recovery key must not be empty", 2);
  if (auto error = MoodPasscodeStorage::setSecretKey(key)) {
    throw CommandError("could not store the recovery key: " + error->description + " (nothing was changed)");
  }
  cli.out() << "Recovery key set. Every fifth wrong passcode on a terminal offers it.\n";
}

void runRecoveryKeyClear(CliApp& cli) {
  requireUnlocked(cli);
  requireLockFor("a recovery key");
  if (auto error = MoodPasscodeStorage::setSecretKey(std::nullopt)) {
    throw CommandError("could not remove the recovery key: " + error->description);
  }
  cli.out() << "Recovery key removed.\n";
}

void runFingerprint(CliApp& cli, bool on) {
  requireUnlocked(cli);
  requireLockFor("the fingerprint");
  if (!on) {
    facade().disableBiometricForThisApp();
    cli.out() << "Fingerprint off; the passcode stays.\n";
    return;
  }
  OptionalError why;
  if (!BiometricAuthenticator::shared()->canEvaluatePolicy(&why)) {
    throw CommandError(MoodBiometricAuthenticationFacade::authenticationUnavailabilityError().description +
                       ": " + (why ? why->description : "no fingerprint reader"));
  }
  facade().enableBiometricForThisApp();
  facade().enableAuthenticationForFeature(kPasscodeEnabledFeature, nullptr, nullptr);
  cli.out() << "Fingerprint on: on a terminal, a finger on the reader opens the journal.\n";
}

void registerCommands(CliApp& cli) {
  cli.root()
      .add_option_function<int>(
          "--passcode-fd",
          [](int fd) {
            if (fd < 0) throw CLI::ValidationError("--passcode-fd", "a file descriptor is 0 or more");
            passcodeFd = fd;
          },
          "Read the passcode from file descriptor N (one code a line) instead of the terminal")
      ->type_name("N");
  cli.addStartHook([](CliApp& app) {
    installServices();
    const auto& open = openCommands();
    if (std::find(open.begin(), open.end(), runningCommand(app)) == open.end()) requireUnlocked(app);
  });

  CLI::App& lock = cli.noun("lock", "The passcode that keeps the journal from other eyes");
  lock.add_subcommand("status", "Whether a passcode, a recovery key and the fingerprint are set")
      ->callback([&cli] { runStatus(cli); });
  lock.add_subcommand("enable", "Set a passcode of four digits")->callback([&cli] { runEnable(cli); });
  lock.add_subcommand("change", "Change the passcode (asks for the current one)")->callback([&cli] {
    runChange(cli);
  });
  lock.add_subcommand("disable", "Remove the passcode and its recovery key")->callback([&cli] {
    runDisable(cli);
  });
  CLI::App* key = lock.add_subcommand("recovery-key", "The key that shows a forgotten passcode");
  key->require_subcommand(1);
  key->add_subcommand("set", "Set the key (typed, or one line on standard input)")->callback([&cli] {
    runRecoveryKeySet(cli);
  });
  key->add_subcommand("clear", "Remove the key")->callback([&cli] { runRecoveryKeyClear(cli); });
  CLI::App* finger = lock.add_subcommand("fingerprint", "Open the journal with a finger (fprintd)");
  finger->require_subcommand(1);
  finger->add_subcommand("on", "Use the fingerprint reader")->callback([&cli] { runFingerprint(cli, true); });
  finger->add_subcommand("off", "Use the passcode alone")->callback([&cli] { runFingerprint(cli, false); });
}

const CommandRegistration kLockCommands(95, registerCommands);

}  // namespace

void requireUnlocked(CliApp& cli) {
  if (unlockedThisProcess) return;
  journalSession(cli);
  installServices();
  if (!lockIsSet() || MoodPasscodeStorage::passCodeUnlocked()) {
    unlockedThisProcess = true;
    return;
  }
  TerminalDialogs dialogs(cli);
  auto screen = std::make_shared<MoodPassInputViewController>();
  bool done = false;
  screen->doneBlock = [&] { done = true; };
  screen->viewWillAppear(false);
  // On a terminal a finger may open the journal; a failed or cancelled
  // check falls back to the code, as on the entry screen.
  if (cli.interactive() && !passcodeFd) {
    screen->viewDidLoad();
    if (screen->isPreparing()) {
      cli.err() << "Put a finger on the reader...\n";
      MainLoop::shared().runUntil([&] { return done || !screen->isPreparing(); }, 90);
    }
  }
  if (!done) enterCurrentCode(cli, *screen, done);
  MoodPasscodeStorage::setPassCodeUnlocked(true);
  unlockedThisProcess = true;
}

}  // namespace lumeo::cli
