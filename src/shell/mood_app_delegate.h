// The application object: the hub that owns the journal store, the window
// and the tabs, and that reacts to each life-cycle event. Every entry point
// below is one event of the host (launch, going inactive, background,
// foreground, active, termination, a reminder, a redirect URL, a push) and
// runs its steps in a fixed order; the front ends only forward the events.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/notification_center.h"
#include "platform/value.h"
#include "shell/mood_splash_view_controller.h"
#include "shell/mood_tab_bar_controller.h"
#include "shell/screen.h"
#include "shell/shell_services.h"
#include "store/journal_store.h"

namespace lumeo {

class UserDefaults;
class MoodRecord;
class ImageStore;

// A reminder as the host hands it over.
struct LocalNotification {
  Value::Dictionary userInfo;
  bool hasAction = true;
};

struct LaunchOptions {
  std::optional<LocalNotification> localNotification;
  // Whether the splash's completion cleans the image store. A front end
  // that only reads the journal in this run (the command line's `list`,
  // `show`, ...) skips it; the desktop application always cleans.
  bool cleanImageStore = true;
};

// Where the application keeps its files.
struct ApplicationDirectories {
  std::filesystem::path library;
  std::filesystem::path documents;
  // The shipped resources ("emotions.plist", ...); empty for the usual
  // folder, resourcesDirectory().
  std::filesystem::path resources;
};

class MoodAppDelegate {
 public:
  // init: stores the default reminder text if none is stored. The newest
  // application object is the shared one until it is destroyed.
  MoodAppDelegate(ApplicationDirectories directories, ShellServices services,
                  std::shared_ptr<UserDefaults> defaults = nullptr);
  ~MoodAppDelegate();
  MoodAppDelegate(const MoodAppDelegate&) = delete;
  MoodAppDelegate& operator=(const MoodAppDelegate&) = delete;

  static MoodAppDelegate* sharedDelegate();

  // --- Life cycle -------------------------------------------------------
  bool applicationDidFinishLaunchingWithOptions(const LaunchOptions& options);
  // Runs the splash's completion (the front end calls it when the splash's
  // fade-in ended; splash().viewDidAppear(false) does it at once).
  void splashCompleted(bool launchedFromNotification);
  void applicationWillResignActive();
  void applicationDidEnterBackground();
  void applicationWillEnterForeground();
  void applicationDidBecomeActive();
  void applicationWillTerminate();

  // --- Reminders --------------------------------------------------------
  void applicationDidReceiveLocalNotification(const LocalNotification& notification);
  void userNotificationCenterDidReceiveNotificationResponse(const Value::Dictionary& userInfo,
                                                            std::function<void()> completionHandler);
  // Presentation options for a reminder that arrives in the foreground.
  static int userNotificationCenterWillPresentNotificationOptions(int systemMajorVersion);
  void showMoodCaptureControllerAfterInactiveState(bool afterInactiveState);

  // --- URLs and pushes --------------------------------------------------
  bool applicationOpenURL(const std::string& url);
  void applicationDropBoxLinked(const std::string& url);
  // Fetch results: 0 new data, 1 no data, 2 failed.
  void applicationDidReceiveRemoteNotification(const Value::Dictionary& userInfo,
                                               std::function<void(int fetchResult)> completionHandler);

  // --- Store (the stack itself lives in JournalStore) --------------------
  JournalStore& store() { return *store_; }
  std::shared_ptr<ManagedObjectContext> managedObjectContext() { return store_->managedObjectContext(); }
  void saveContext() { store_->saveContext(); }
  void applicationDropLinks() { store_->applicationDropLinks(); }
  std::filesystem::path storeURL() const { return store_->storeURL(); }
  static void removeCoordinates();

  // --- Share sheet and backup reminders ---------------------------------
  // The text that the share sheet offers for a record.
  static std::string shareTextForRecord(const MoodRecord& record);
  // The level's text in lower case ("good"), as the share text uses it. The
  // level table belongs to the capture screens, which install the lookup;
  // without one the level's number stands in.
  static std::string levelTextLowercase(long level);
  static void setLevelTextProvider(std::function<std::string(long level)> provider);
  void chooseActionForRecord(const std::shared_ptr<MoodRecord>& record, int chooseAction, int moodAction);
  void moodEditActivityFinished(const std::shared_ptr<MoodRecord>& record);
  void moodDeleteActivityChosen(int chooseAction);
  void displayRecentBackupMissedAlertIfNeeded();
  void setDropboxCounter(long delta);
  void alertUnlinkedDropbox() { alertForBackup(10); }
  void alertForBackup(int kind);

  // --- Passcode screen as window root ------------------------------------
  void switchWindowRootVConPasscodeInputNavigationControllerWithDisplayInputTouchIDRequest(
      bool displayTouchID);
  // Puts the main interface back after the passcode was entered.
  void switchWindowRootToMainNavigationController();
  bool isPasscodeScreenRoot() const;
  // Every screen presented over the main interface, bottom first: what the
  // navigation stack, the screens in it and the tabs' screens present.
  std::vector<std::shared_ptr<Screen>> screensPresentedOverMainInterface() const;

  // --- Typed settings; setters write through and synchronise at once ------
  bool isDropboxReminderEnabled() const;
  void setDropboxReminderEnabled(bool enabled);
  bool isDropboxSynchronizeEnabled() const;
  void setDropboxSynchronizeEnabled(bool enabled);
  long dropboxCounter() const;
  bool isSyncingEnabled() const;
  void setSyncingEnabled(bool enabled);
  std::string syncingService() const;
  void setSyncingService(const std::string& service);
  bool isMapAutomaticSelectLocation() const;
  void setMapAutomaticSelectLocation(bool enabled);
  bool remindersTextExists() const;
  std::string remindersText() const;
  void setRemindersText(const std::string& text);
  std::string reminderTemplateText() const;
  void setReminderTemplateText(const std::string& text);
  std::optional<Date> lastBackupDate() const;
  void setLastBackupDate(std::optional<Date> date);
  std::optional<Date> recentBackupMissedLastNotificationDate() const;
  void setRecentBackupMissedLastNotificationDate(std::optional<Date> date);

  // --- State ------------------------------------------------------------
  bool passCodeUnlocked = false;
  bool isDropboxOperationStarted = false;
  bool isDropboxTryConnect = false;
  bool isDropboxOpenWithHandler = false;
  bool backupOrrestoreStarted = false;
  bool trackingConfigured = false;
  unsigned long backgroundTask = ApplicationHost::kInvalidBackgroundTask;

  Window& window() { return window_; }
  std::shared_ptr<NavigationController> navigationController() const { return navigationController_; }
  std::shared_ptr<Screen> mainNavigationController() const { return mainNavigationController_; }
  std::shared_ptr<MoodTabBarController> tabBarController() const { return tabBarController_; }
  std::shared_ptr<MoodSplashViewController> splash() const { return splash_; }
  std::shared_ptr<Screen> settingsController() const { return settingsController_; }
  const ShellServices& services() const { return services_; }
  // The capture tab is built after the application object, since it works
  // on this object's store; the front end hands it over here.
  void setCaptureHooks(std::shared_ptr<CaptureHooks> hooks) {
    services_.capture = hooks ? std::move(hooks) : std::make_shared<CaptureHooks>();
  }
  UserDefaults& defaults() const { return *defaults_; }
  const ApplicationDirectories& directories() const { return directories_; }

 private:
  void handleFirstStart();
  void handleReminder(const Value::Dictionary& userInfo, std::optional<bool> hasAction);
  void sendLocalNotificationDrop();
  void copyEmotionsIfNeeded();
  void registerDefaultAlarms();
  void observeSavesForSync(const std::shared_ptr<ManagedObjectContext>& context);
  bool visibleIsMoodViewController() const;
  MoodViewController* visibleMoodViewController();

  ApplicationDirectories directories_;
  ShellServices services_;
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<JournalStore> store_;
  // The image store this object installed as the shared one; taken down
  // again with it, so a later journal never writes into this one's folder.
  std::shared_ptr<ImageStore> imageStore_;
  Window window_;
  std::shared_ptr<MoodSplashViewController> splash_;
  std::shared_ptr<MoodTabBarController> tabBarController_;
  std::shared_ptr<NavigationController> navigationController_;
  std::shared_ptr<Screen> mainNavigationController_;
  std::shared_ptr<Screen> settingsController_;
  std::vector<ScopedObserver> saveObservers_;
  bool cleanImageStoreAtLaunch_ = true;
};

}  // namespace lumeo
