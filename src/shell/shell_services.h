// The outside services that the application object drives: the passcode
// gate, sync, reminder scheduling, the cloud link, location, the watch and
// the host application (badge, background tasks, local notifications).
// Each is a narrow interface with a do-nothing (or always-granted) default,
// which a later subsystem replaces with the real thing.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/date.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

class Screen;
class MoodRecord;
class ManagedObjectContext;

// The one gate in front of every protected action. Contract: the completion
// is called at once (before requestPassCode returns) with true when no
// passcode is set or the application is unlocked; otherwise the gate shows
// its screen and calls the completion later with the outcome, on the main
// queue. `afterDismiss` runs once the gate's screen has gone.
class PasscodeGate {
 public:
  virtual ~PasscodeGate() = default;
  virtual void requestPassCodeFromViewController(Screen& from, bool animated,
                                                 std::function<void(bool granted)> completion,
                                                 std::function<void()> afterDismiss) = 0;
  // Whether a passcode is stored (in the keychain).
  virtual bool hasPasscode() const = 0;
  // Removes the stored passcode; nothing happens when there is none.
  virtual void deletePasscode() = 0;
  // The passcode screen became the window's root; with true it also asks
  // for biometrics.
  virtual void passcodeScreenShown(bool displayInputTouchIDRequest) { (void)displayInputTouchIDRequest; }
  // True while the system's biometric prompt is on screen.
  virtual bool isBiometricInputRequestDisplayed() const { return false; }
};

// No passcode: every request is granted at once.
class AlwaysGrantedPasscodeGate : public PasscodeGate {
 public:
  void requestPassCodeFromViewController(Screen&, bool, std::function<void(bool)> completion,
                                         std::function<void()> afterDismiss) override {
    if (completion) completion(true);
    if (afterDismiss) afterDismiss();
  }
  bool hasPasscode() const override { return false; }
  void deletePasscode() override {}
};

// The application's door to the sync engine. Completions run on the main
// queue; an unset completion is allowed everywhere. Calls may come twice for
// one save (the store and the splash both observe saves); the service must
// tolerate that.
class SyncService {
 public:
  virtual ~SyncService() = default;
  virtual void setManagedObjectContext(std::shared_ptr<ManagedObjectContext> context) { (void)context; }
  virtual void setStorePath(const std::filesystem::path& path) { (void)path; }
  virtual void setup() {}
  virtual void synchronizeWithCompletion(std::function<void(OptionalError)> completion) {
    if (completion) completion(std::nullopt);
  }
  // Fetches the nudge record that a remote notification named.
  virtual void fetchRecord(const std::string& recordID, std::function<void(OptionalError)> completion) {
    (void)recordID;
    if (completion) completion(std::nullopt);
  }
  virtual void synchronize(const std::string& recordID, std::function<void(OptionalError)> completion) {
    (void)recordID;
    if (completion) completion(std::nullopt);
  }
};

// Maps the reminders onto repeating local notifications.
class ReminderScheduler {
 public:
  virtual ~ReminderScheduler() = default;
  virtual void rescheduleReminders(bool showActivityIndicator) { (void)showActivityIndicator; }
};

// The cloud-drive account link used by backups.
class CloudLinkService {
 public:
  enum class RedirectResult { kSuccess, kCancel, kError };
  virtual ~CloudLinkService() = default;
  virtual void setupWithAppKey(const std::string& appKey) { (void)appKey; }
  // The application key; redirect URLs start with "db-" and this key.
  virtual std::string appKey() const { return {}; }
  // An authorised client exists.
  virtual bool isAuthorized() const { return false; }
  virtual void unlinkAndResetClients() {}
  // Returns false when the URL is not a redirect of this service; otherwise
  // the completion later gets the outcome.
  virtual bool handleRedirectURL(const std::string& url, std::function<void(RedirectResult)> completion) {
    (void)url;
    (void)completion;
    return false;
  }
  // The linked account's display name ("" when unknown).
  virtual void getCurrentAccount(std::function<void(const std::string& displayName)> completion) {
    if (completion) completion({});
  }
};

// One position report of the device.
struct LocationFix {
  double latitude = 0;
  double longitude = 0;
  // Radius of uncertainty in metres; negative when the fix is not valid.
  double horizontalAccuracy = -1;
  Date timestamp;
};

// The device's position. The default has none and says location is not
// available; a desktop service (GeoClue over D-Bus) or a test provider
// overrides it. Fixes and failures go to the handlers, on the main queue,
// between startUpdatingLocation and stopUpdatingLocation.
class LocationService {
 public:
  using FixHandler = std::function<void(const LocationFix& fix)>;
  using FailureHandler = std::function<void(const Error& error)>;

  virtual ~LocationService() = default;
  // Location is available and permitted.
  virtual bool isEnabled() const { return false; }
  // Location exists on this machine, whether permitted or not.
  virtual bool isEnabledOnlyServices() const { return isEnabled(); }
  virtual void startUpdatingLocation() {}
  virtual void stopUpdatingLocation() {}

  // Who hears the reports; one listener, the last one set.
  void setHandlers(FixHandler onFix, FailureHandler onFailure) {
    onFix_ = std::move(onFix);
    onFailure_ = std::move(onFailure);
  }
  // Called by the provider when a fix or a failure comes in.
  void deliverFix(const LocationFix& fix) const {
    if (onFix_) onFix_(fix);
  }
  void deliverFailure(const Error& error) const {
    if (onFailure_) onFailure_(error);
  }

 private:
  FixHandler onFix_;
  FailureHandler onFailure_;
};

class WatchService {
 public:
  virtual ~WatchService() = default;
  virtual bool isPaired() const { return false; }
  // Sends the current level table and tags to the watch.
  virtual void saveData() {}
};

// The capture screen's hooks that the shell calls.
class CaptureHooks {
 public:
  virtual ~CaptureHooks() = default;
  // Reopens the editor on a record whose capture was interrupted.
  virtual void checkForRecordBeingCreated() {}
  // The editor on an existing record, both states taken from it; `finished`
  // runs with the editor when the user is done or cancels. Null when the
  // capture screens are not part of this build.
  virtual std::shared_ptr<Screen> editorForExistingRecord(const std::shared_ptr<MoodRecord>& record,
                                                          std::function<void(Screen& editor)> finished) {
    (void)record;
    (void)finished;
    return nullptr;
  }
};

// Removes image files that no description names any more.
class ImageStoreCleaner {
 public:
  virtual ~ImageStoreCleaner() = default;
  virtual void clearImageStore() {}
};

// The host application: badge, background tasks, application state and
// immediate local notifications.
class ApplicationHost {
 public:
  enum class State { kActive = 0, kInactive = 1, kBackground = 2 };
  static constexpr unsigned long kInvalidBackgroundTask = 0;

  virtual ~ApplicationHost() = default;
  virtual void setApplicationIconBadgeNumber(long number) { badge_ = number; }
  long applicationIconBadgeNumber() const { return badge_; }
  virtual State applicationState() const { return state_; }
  void setApplicationState(State state) { state_ = state; }
  // Returns a handle other than kInvalidBackgroundTask. The expiry handler
  // runs if the host ends the task on its own.
  virtual unsigned long beginBackgroundTask(std::function<void()> expirationHandler) {
    (void)expirationHandler;
    ++openTasks_;
    return ++lastTask_;
  }
  virtual void endBackgroundTask(unsigned long task) {
    if (task != kInvalidBackgroundTask && openTasks_ > 0) --openTasks_;
  }
  int openBackgroundTasks() const { return openTasks_; }
  // Shows a notification now (no action button when hasAction is false).
  virtual void presentLocalNotificationNow(const std::string& body, bool hasAction) {
    (void)body;
    (void)hasAction;
  }
  // Options as a bit set: 1 badge, 2 sound, 4 alert.
  virtual void requestNotificationAuthorization(int options) { (void)options; }

 private:
  long badge_ = 0;
  State state_ = State::kActive;
  unsigned long lastTask_ = 0;
  int openTasks_ = 0;
};

// Everything the application object is given at construction. Unset
// members get the do-nothing defaults.
struct ShellServices {
  std::shared_ptr<PasscodeGate> passcode;
  std::shared_ptr<SyncService> sync;
  std::shared_ptr<ReminderScheduler> reminders;
  std::shared_ptr<CloudLinkService> cloudLink;
  std::shared_ptr<LocationService> location;
  std::shared_ptr<WatchService> watch;
  std::shared_ptr<CaptureHooks> capture;
  std::shared_ptr<ImageStoreCleaner> imageStore;
  std::shared_ptr<ApplicationHost> application;

  // Fills every unset member with its default.
  void fillDefaults();
};

}  // namespace lumeo
