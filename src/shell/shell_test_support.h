// Test doubles of the shell's tests: a presenter with scripted answers,
// services that record what they were asked, and a fixture with an
// application object on a real store in a temporary folder.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/clock.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell/presenter.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "testing/temp_dir.h"

namespace lumeo::testing {

// Records every alert and share sheet; answers with the next scripted
// result, or keeps the handler for the test to call.
class ScriptedPresenter : public Presenter {
 public:
  struct Shown {
    std::string screen;
    AlertRequest request;
    std::function<void(int)> handler;
  };
  std::vector<Shown> alerts;
  std::deque<int> answers;
  std::vector<ShareSheetRequest> shares;
  std::deque<std::string> shareAnswers;
  int endEditingCalls = 0;

  void presentAlert(Screen& from, const AlertRequest& request, std::function<void(int)> handler) override {
    alerts.push_back({from.className(), request, handler});
    if (!answers.empty()) {
      int answer = answers.front();
      answers.pop_front();
      handler(answer);
    }
  }
  void presentShareSheet(Screen&, const ShareSheetRequest& request,
                         std::function<void(const std::string&)> completion) override {
    shares.push_back(request);
    if (!shareAnswers.empty()) {
      std::string answer = shareAnswers.front();
      shareAnswers.pop_front();
      completion(answer);
    }
  }
  void endEditing() override { ++endEditingCalls; }
};

// A passcode gate that is set up by the test: with or without a stored
// passcode, answering at once, later (kept for the test) or never.
class FakePasscodeGate : public PasscodeGate {
 public:
  enum class Mode { kGrantAtOnce, kDenyAtOnce, kLater };
  Mode mode = Mode::kGrantAtOnce;
  bool passcodeStored = false;
  bool biometricPromptShown = false;
  int deletions = 0;
  std::vector<bool> screensShown;  // the argument of each passcodeScreenShown
  std::function<void(bool)> pending;

  void requestPassCodeFromViewController(Screen&, bool, std::function<void(bool)> completion,
                                         std::function<void()> afterDismiss) override {
    if (mode == Mode::kLater) {
      pending = std::move(completion);
    } else if (completion) {
      completion(mode == Mode::kGrantAtOnce);
    }
    if (afterDismiss) afterDismiss();
  }
  bool hasPasscode() const override { return passcodeStored; }
  void deletePasscode() override {
    ++deletions;
    passcodeStored = false;
  }
  void passcodeScreenShown(bool touchID) override { screensShown.push_back(touchID); }
  bool isBiometricInputRequestDisplayed() const override { return biometricPromptShown; }
};

class RecordingSync : public SyncService {
 public:
  int synchronizeCalls = 0;
  int setupCalls = 0;
  std::vector<std::string> fetched;
  std::optional<Error> fetchError;
  std::optional<Error> syncError;
  bool answerLater = false;
  std::vector<std::function<void()>> later;

  void setup() override { ++setupCalls; }
  void synchronizeWithCompletion(std::function<void(OptionalError)> completion) override {
    ++synchronizeCalls;
    if (completion) completion(std::nullopt);
  }
  void fetchRecord(const std::string& recordID, std::function<void(OptionalError)> completion) override {
    fetched.push_back(recordID);
    auto run = [this, completion] { completion(fetchError); };
    if (answerLater) {
      later.push_back(run);
    } else {
      run();
    }
  }
  void synchronize(const std::string&, std::function<void(OptionalError)> completion) override {
    completion(syncError);
  }
};

class RecordingCloudLink : public CloudLinkService {
 public:
  bool authorized = false;
  int unlinks = 0;
  std::vector<std::string> redirects;
  RedirectResult result = RedirectResult::kSuccess;
  std::string displayName;

  std::string appKey() const override { return "k3y"; }
  bool isAuthorized() const override { return authorized; }
  void unlinkAndResetClients() override {
    ++unlinks;
    authorized = false;
  }
  bool handleRedirectURL(const std::string& url, std::function<void(RedirectResult)> completion) override {
    redirects.push_back(url);
    completion(result);
    return true;
  }
  void getCurrentAccount(std::function<void(const std::string&)> completion) override {
    completion(displayName);
  }
};

class RecordingReminders : public ReminderScheduler {
 public:
  std::vector<bool> calls;
  void rescheduleReminders(bool show) override { calls.push_back(show); }
};

class RecordingApplication : public ApplicationHost {
 public:
  std::vector<std::pair<std::string, bool>> notificationsShown;
  std::vector<int> authorizationRequests;
  void presentLocalNotificationNow(const std::string& body, bool hasAction) override {
    notificationsShown.emplace_back(body, hasAction);
  }
  void requestNotificationAuthorization(int options) override { authorizationRequests.push_back(options); }
};

class SwitchableLocation : public LocationService {
 public:
  bool enabled = true;
  bool isEnabled() const override { return enabled; }
};

class SwitchableWatch : public WatchService {
 public:
  bool paired = false;
  int saves = 0;
  bool isPaired() const override { return paired; }
  void saveData() override { ++saves; }
};

// An application object on a real journal store in a temporary folder, on
// virtual time, with recording services.
class ShellTest : public ::testing::Test {
 protected:
  ShellTest()
      : clock_(Date::fromTimeIntervalSince1970(1763800000)),  // November 2025
        defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {
    presenter_ = std::make_shared<ScriptedPresenter>();
    MoodViewController::setSharedPresenter(presenter_);
    services_.passcode = passcode_;
    services_.sync = sync_;
    services_.cloudLink = cloud_;
    services_.reminders = reminders_;
    services_.application = application_;
    services_.location = location_;
    services_.watch = watch_;
  }
  ~ShellTest() override {
    app_.reset();
    MoodViewController::setSharedPresenter(nullptr);
  }

  MoodAppDelegate& makeApp() {
    app_ = std::make_unique<MoodAppDelegate>(ApplicationDirectories{dir_ / "Library", dir_ / "Documents", {}},
                                             services_, defaults_);
    return *app_;
  }

  // Launch and splash completion, as the CLI does it.
  MoodAppDelegate& launch(const LaunchOptions& options = {}) {
    makeApp().applicationDidFinishLaunchingWithOptions(options);
    app_->splash()->viewDidAppear(false);
    return *app_;
  }

  // Saves a record straight into the store file, as an earlier run would
  // have left it.
  void seedRecord(long level = 6) {
    JournalStore store({dir_ / "Library", dir_ / "Documents"}, defaults_);
    auto record = store.insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(Date::now());
    store.saveContext();
  }

  void runMainLoop(double seconds = 5) { MainLoop::shared().runFor(seconds); }

  ScopedSimulatedClock clock_;
  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<ScriptedPresenter> presenter_;
  std::shared_ptr<FakePasscodeGate> passcode_ = std::make_shared<FakePasscodeGate>();
  std::shared_ptr<RecordingSync> sync_ = std::make_shared<RecordingSync>();
  std::shared_ptr<RecordingCloudLink> cloud_ = std::make_shared<RecordingCloudLink>();
  std::shared_ptr<RecordingReminders> reminders_ = std::make_shared<RecordingReminders>();
  std::shared_ptr<RecordingApplication> application_ = std::make_shared<RecordingApplication>();
  std::shared_ptr<SwitchableLocation> location_ = std::make_shared<SwitchableLocation>();
  std::shared_ptr<SwitchableWatch> watch_ = std::make_shared<SwitchableWatch>();
  ShellServices services_;
  std::unique_ptr<MoodAppDelegate> app_;
};

}  // namespace lumeo::testing
