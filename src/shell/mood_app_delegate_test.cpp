// The application object's life cycle on a real store: launch and first
// start, the splash hand-over, the background walk and its outcomes, the
// foreground steps, reminders, redirect URLs and pushes.
#include "shell/mood_app_delegate.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "shell/resources_location.h"
#include "shell/shell_test_support.h"
#include "store/image_store.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

std::string readFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

using testing::FakePasscodeGate;
using testing::ShellTest;

class MoodAppDelegateTest : public ShellTest {};

// --- Launch and first start -----------------------------------------------

TEST_F(MoodAppDelegateTest, FirstStartOnAnEmptyStoreClearsOldSecretsAndMarksIt) {
  passcode_->passcodeStored = true;
  cloud_->authorized = true;
  MoodAppDelegate& app = makeApp();
  app.applicationDidFinishLaunchingWithOptions({});
  EXPECT_TRUE(defaults_->boolForKey(kMoodFirstStart));
  EXPECT_EQ(passcode_->deletions, 1);
  EXPECT_EQ(cloud_->unlinks, 1);

  // The next launch leaves everything alone.
  passcode_->passcodeStored = true;
  launch();
  EXPECT_EQ(passcode_->deletions, 1);
  EXPECT_EQ(cloud_->unlinks, 1);
}

TEST_F(MoodAppDelegateTest, RecordsWithoutTheMarkAreNoFirstStart) {
  seedRecord();
  passcode_->passcodeStored = true;
  launch();
  EXPECT_TRUE(defaults_->objectForKey(kMoodFirstStart).isNull()) << "the test repeats at the next launch";
  EXPECT_EQ(passcode_->deletions, 0);
  EXPECT_TRUE(passcode_->passcodeStored);
  EXPECT_EQ(cloud_->unlinks, 0);
}

// A journal that cannot be opened may hold records; treating it as a first
// start would delete the passcode and cloud links that belong to it.
TEST_F(MoodAppDelegateTest, AStoreThatCannotBeOpenedIsNoFirstStart) {
  std::filesystem::create_directories(dir_ / "Library");
  const std::filesystem::path store = dir_ / "Library" / kJournalStoreFileName;
  struct Case {
    const char* name;
    std::function<void()> make;
  };
  const Case cases[] = {
      {"foreign file", [&] { std::ofstream(store) << "my notes, not a journal\n"; }},
      {"damaged header",
       [&] {
         std::ofstream out(store, std::ios::binary);
         out << std::string("SQLite format 2\0", 16) << std::string(4080, 'x');
       }},
      {"a folder in its place", [&] { std::filesystem::create_directory(store); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(store);
    c.make();
    auto before = std::filesystem::is_regular_file(store) ? readFile(store) : std::string();
    passcode_->passcodeStored = true;
    cloud_->authorized = true;
    launch();
    EXPECT_TRUE(app_->store().storeOpenError());
    EXPECT_TRUE(defaults_->objectForKey(kMoodFirstStart).isNull());
    EXPECT_EQ(passcode_->deletions, 0);
    EXPECT_TRUE(passcode_->passcodeStored);
    EXPECT_EQ(cloud_->unlinks, 0);
    if (!before.empty()) {
      EXPECT_EQ(readFile(store), before) << "the file is left as it was";
    }
    app_.reset();
  }
  // Once the file is moved away, the next launch is the first start.
  std::filesystem::remove_all(store);
  launch();
  EXPECT_FALSE(app_->store().storeOpenError());
  EXPECT_TRUE(defaults_->boolForKey(kMoodFirstStart));
  EXPECT_EQ(passcode_->deletions, 1);
}

// Both front ends launch from one resources folder: the launch copies the
// feeling words from it into the library once and never over the user's
// own list; the folder is the environment's, or the installed one, or the
// source tree's.
TEST_F(MoodAppDelegateTest, LaunchCopiesTheFeelingWordsFromTheResourcesFolder) {
  const std::filesystem::path resources = dir_ / "resources";
  std::filesystem::create_directories(resources);
  std::ofstream(resources / "emotions.plist") << "<plist><array><string>zany</string></array></plist>";
  const std::filesystem::path copy = dir_ / "Library" / "emotions.plist";
  {
    testing::ScopedEnvironment env({{kResourcesDirectoryVariable, resources.string()}});
    EXPECT_EQ(resourcesDirectory(), resources);
    launch();
    EXPECT_EQ(app_->directories().resources, resources);
    EXPECT_NE(readFile(copy).find("zany"), std::string::npos);

    // The user's own list stays.
    std::ofstream(copy) << "<plist><array><string>mine</string></array></plist>";
    app_.reset();
    launch();
    EXPECT_NE(readFile(copy).find("mine"), std::string::npos);
  }
  {
    testing::ScopedEnvironment env({{kResourcesDirectoryVariable, std::nullopt}});
    std::filesystem::path usual = resourcesDirectory();
    EXPECT_TRUE(usual == installedResourcesDirectory() ||
                !std::filesystem::exists(installedResourcesDirectory()))
        << usual;
    EXPECT_TRUE(std::filesystem::exists(usual / "emotions.plist")) << usual;
    EXPECT_TRUE(std::filesystem::exists(usual / "mood.plist")) << usual;
    // A test's own folder wins over everything.
    setResourcesDirectory(resources);
    EXPECT_EQ(resourcesDirectory(), resources);
    setResourcesDirectory({});
    EXPECT_EQ(resourcesDirectory(), usual);
  }
}

TEST_F(MoodAppDelegateTest, LaunchSetsDefaultsAndShowsTheSplashThenTheTabs) {
  location_->enabled = true;
  MoodAppDelegate& app = makeApp();
  EXPECT_EQ(app.remindersText(), "How are you feeling right now?");
  LocalNotification reminder;
  reminder.userInfo["template"] = Value("#sleep ");
  app.applicationDidFinishLaunchingWithOptions({reminder});
  EXPECT_TRUE(app.isDropboxReminderEnabled());
  EXPECT_TRUE(app.isMapAutomaticSelectLocation());
  EXPECT_EQ(app.reminderTemplateText(), "#sleep ");
  EXPECT_EQ(application_->authorizationRequests, std::vector<int>{7});
  EXPECT_EQ(app.window().rootViewController()->className(), "MoodSplashViewController");
  EXPECT_TRUE(app.window().isVisible());
  EXPECT_EQ(sync_->setupCalls, 1) << "the first-start fetch opened the store";

  app.splash()->viewDidAppear(false);
  auto root = app.window().rootViewController();
  ASSERT_TRUE(root->isNavigationController());
  EXPECT_EQ(root->className(), "MoodPortraitOnlyNavigationController");
  ASSERT_TRUE(app.tabBarController());
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_EQ(reminders_->calls, std::vector<bool>{false});
  EXPECT_GE(sync_->synchronizeCalls, 1);
  auto alarms = defaults_->arrayForKey(kAlarm);
  ASSERT_TRUE(alarms);
  ASSERT_EQ(alarms->size(), 3u);
  EXPECT_FALSE((*alarms)[0]["on"].toBool());
  EXPECT_TRUE((*alarms)[2]["on"].toBool());
  EXPECT_TRUE(defaults_->persistentDomain().count(kAlarm) == 0) << "registered, not stored";
  EXPECT_EQ(app.window().visibleViewController()->className(), "MoodTutorialViewController");
}

// The image store is cleaned at launch, unless the front end says that this
// run only reads the journal.
TEST_F(MoodAppDelegateTest, LaunchCleansTheImageStoreUnlessAskedNotTo) {
  seedRecord();
  const auto orphan = dir_ / "Library" / "imageStore" / "0123456789abcdef01234567.jpg";
  std::filesystem::create_directories(orphan.parent_path());
  std::ofstream(orphan) << "no record names this";
  std::filesystem::last_write_time(orphan,
                                   std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));

  LaunchOptions readOnly;
  readOnly.cleanImageStore = false;
  launch(readOnly);
  ImageStore::shared()->waitForCleanup();
  EXPECT_TRUE(std::filesystem::exists(orphan));

  launch();
  ImageStore::shared()->waitForCleanup();
  EXPECT_FALSE(std::filesystem::exists(orphan));
}

TEST_F(MoodAppDelegateTest, LaunchWithoutLocationDropsAutomaticPlaces) {
  EXPECT_FALSE(defaults_->setBool(kIsMapAutomaticSelectLocation, false));
  location_->enabled = true;
  launch();
  EXPECT_FALSE(defaults_->objectForKey(kIsMapAutomaticSelectLocation).isNull()) << "a user's false survives";
  location_->enabled = false;
  launch();
  EXPECT_TRUE(defaults_->objectForKey(kIsMapAutomaticSelectLocation).isNull());
}

TEST_F(MoodAppDelegateTest, EverySaveOfTheMainContextAsksForASync) {
  MoodAppDelegate& app = launch();
  int before = sync_->synchronizeCalls;
  auto record = app.store().insertRecordWithDescription();
  record->setMoodLevel(5);
  record->setDate(Date::now());
  app.saveContext();
  // Two observers: the store's and the splash completion's.
  EXPECT_EQ(sync_->synchronizeCalls, before + 2);
}

// --- Background walk ----------------------------------------------------------

class BackgroundWalkTest : public ShellTest {
 protected:
  MoodAppDelegate& ready() {
    EXPECT_FALSE(defaults_->setBool(kTutorialCompleted, true));
    EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, true));
    MoodAppDelegate& app = launch();
    app.tabBarController()->selectTab(MoodTabBarController::kMapTab, false);
    return app;
  }
  std::shared_ptr<NavigationController> presentInNav(MoodAppDelegate& app, const std::string& screen) {
    auto nav = std::make_shared<NavigationController>(std::make_shared<MoodViewController>(screen));
    app.navigationController()->presentViewController(nav, false);
    return nav;
  }
};

TEST_F(BackgroundWalkTest, SettingsUpAreDismissedAndCaptureShownWithoutPasscodeScreen) {
  MoodAppDelegate& app = ready();
  passcode_->passcodeStored = true;
  app.passCodeUnlocked = true;
  presentInNav(app, "MoodSettingsViewController");
  app.applicationDidEnterBackground();
  EXPECT_FALSE(app.passCodeUnlocked);
  EXPECT_FALSE(app.navigationController()->presentedViewController());
  ASSERT_TRUE(app.settingsController());
  EXPECT_EQ(app.settingsController()->className(), "MoodSettingsViewController");
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_FALSE(app.isPasscodeScreenRoot()) << "S set: the settings gate asks again when reopened";
}

TEST_F(BackgroundWalkTest, RunningBackupKeepsItsScreenAndTheTab) {
  MoodAppDelegate& app = ready();
  auto nav = presentInNav(app, "MoodSettingsViewController");
  nav->pushViewController(std::make_shared<MoodViewController>("MoodBackupViewController"), false);
  app.backupOrrestoreStarted = true;
  app.applicationDidEnterBackground();
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kMapTab);
  EXPECT_FALSE(app.isPasscodeScreenRoot());
}

TEST_F(BackgroundWalkTest, IdleBackupScreenStaysButCaptureIsSelected) {
  MoodAppDelegate& app = ready();
  presentInNav(app, "MoodBackupViewController");
  app.applicationDidEnterBackground();
  EXPECT_TRUE(app.navigationController()->presentedViewController()) << "nothing dismissed it";
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
}

TEST_F(BackgroundWalkTest, HelpOpenReturnsToWhereTheUserWas) {
  MoodAppDelegate& app = ready();
  presentInNav(app, "MoodHelpViewController");
  app.applicationDidEnterBackground();
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kMapTab);
}

TEST_F(BackgroundWalkTest, PasscodeScreenUpBecomesTheWindowRoot) {
  MoodAppDelegate& app = ready();
  passcode_->passcodeStored = true;
  app.navigationController()->presentViewController(
      std::make_shared<MoodViewController>("MoodPassInputViewController"), false);
  app.applicationDidEnterBackground();
  EXPECT_FALSE(app.navigationController()->presentedViewController());
  EXPECT_TRUE(app.isPasscodeScreenRoot());
  EXPECT_EQ(app.mainNavigationController(), app.navigationController());
  EXPECT_EQ(passcode_->screensShown, std::vector<bool>{false});

  // Coming back asks for biometrics on the same screen.
  int ended = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodBackgroundEndedNotification, nullptr,
                          [&](const Notification&) { ++ended; });
  app.applicationWillEnterForeground();
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(passcode_->screensShown, (std::vector<bool>{false, true}));
  app.switchWindowRootToMainNavigationController();
  EXPECT_EQ(app.window().rootViewController(), app.navigationController());
}

// What covers the interface is mostly presented from inside it: the tab
// gate's entry screen and the settings by the tabs, an editor by the tab
// on screen. The walk must see those as it sees what the stack presents.
TEST_F(BackgroundWalkTest, ScreensPresentedFromInsideTheInterfaceAreWalkedToo) {
  struct Case {
    const char* name;
    std::function<void(MoodAppDelegate&)> open;
    bool locks;      // the whole-window lock is up afterwards
    bool staysOpen;  // the presented screen is still there
  };
  const Case cases[] = {
      {"tab gate's entry screen, presented by the tabs",
       [](MoodAppDelegate& app) {
         app.tabBarController()->presentViewController(
             std::make_shared<MoodViewController>("MoodPassInputViewController"), false);
       },
       true, false},
      {"entry screen presented by a tab's own screen",
       [](MoodAppDelegate& app) {
         app.tabBarController()->controllers()[MoodTabBarController::kMapTab]->presentViewController(
             std::make_shared<MoodViewController>("MoodPassInputViewController"), false);
       },
       true, false},
      {"settings opened from the tabs",
       [](MoodAppDelegate& app) {
         app.tabBarController()->presentViewController(
             std::make_shared<NavigationController>(
                 std::make_shared<MoodViewController>("MoodSettingsViewController")),
             false);
       },
       false, false},
      {"a record's editor over the tabs",
       [](MoodAppDelegate& app) {
         app.tabBarController()->presentViewController(
             std::make_shared<MoodViewController>("MoodRecordEditViewController"), false);
       },
       false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MoodAppDelegate& app = ready();
    passcode_->passcodeStored = true;
    app.passCodeUnlocked = true;
    c.open(app);
    ASSERT_FALSE(app.screensPresentedOverMainInterface().empty());
    app.applicationDidEnterBackground();
    EXPECT_FALSE(app.passCodeUnlocked);
    EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
    EXPECT_EQ(app.isPasscodeScreenRoot(), c.locks);
    EXPECT_EQ(!app.screensPresentedOverMainInterface().empty(), c.staysOpen);
    if (c.locks) {
      // The main interface waits behind the lock and comes back whole.
      EXPECT_EQ(app.mainNavigationController(), app.navigationController());
      app.applicationWillEnterForeground();
      EXPECT_TRUE(app.isPasscodeScreenRoot()) << "coming back keeps the lock up";
      app.switchWindowRootToMainNavigationController();
      EXPECT_EQ(app.window().rootViewController(), app.navigationController());
      EXPECT_TRUE(app.passCodeUnlocked);
    }
  }
}

// Backgrounding on a tab with nothing open shows no lock on return; the
// other tabs ask through their gate.
TEST_F(BackgroundWalkTest, NothingOpenMeansNoLockScreen) {
  MoodAppDelegate& app = ready();
  passcode_->passcodeStored = true;
  app.passCodeUnlocked = true;
  app.applicationDidEnterBackground();
  app.applicationWillEnterForeground();
  EXPECT_FALSE(app.isPasscodeScreenRoot());
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_FALSE(app.passCodeUnlocked);
}

TEST_F(BackgroundWalkTest, BiometricPromptOnScreenKeepsThePasscodeScreenDown) {
  MoodAppDelegate& app = ready();
  passcode_->passcodeStored = true;
  passcode_->biometricPromptShown = true;
  app.navigationController()->presentViewController(
      std::make_shared<MoodViewController>("MoodPassInputViewController"), false);
  app.applicationDidEnterBackground();
  EXPECT_FALSE(app.isPasscodeScreenRoot());
}

TEST_F(BackgroundWalkTest, LinkingACloudAccountSkipsTheWalkOnce) {
  MoodAppDelegate& app = ready();
  presentInNav(app, "MoodSettingsViewController");
  app.isDropboxTryConnect = true;
  app.applicationDidEnterBackground();
  EXPECT_FALSE(app.isDropboxTryConnect);
  EXPECT_TRUE(app.navigationController()->presentedViewController());
  app.applicationDidEnterBackground();
  EXPECT_FALSE(app.navigationController()->presentedViewController());
}

TEST_F(BackgroundWalkTest, SavesPendingChangesAndSyncsUnderABackgroundTask) {
  MoodAppDelegate& app = ready();
  auto record = app.store().insertRecordWithDescription();
  record->setMoodLevel(3);
  record->setDate(Date::now());
  int syncs = sync_->synchronizeCalls;
  app.applicationDidEnterBackground();
  // The save runs on a global queue that hands over to the main queue: wait
  // in real time for both.
  for (int i = 0; i < 2000 && !(application_->openBackgroundTasks() == 0 && sync_->synchronizeCalls > syncs);
       ++i) {
    MainLoop::shared().runOnce();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_FALSE(app.managedObjectContext()->hasChanges());
  EXPECT_EQ(application_->openBackgroundTasks(), 0);
}

// --- Foreground and termination ---------------------------------------------

TEST_F(MoodAppDelegateTest, ActiveClearsBadgeSyncsAndFollowsLocation) {
  MoodAppDelegate& app = launch();
  application_->setApplicationIconBadgeNumber(4);
  EXPECT_FALSE(defaults_->setBool(kIsMapAutomaticSelectLocation, true));
  int syncs = sync_->synchronizeCalls;
  location_->enabled = false;
  app.applicationDidBecomeActive();
  EXPECT_EQ(application_->applicationIconBadgeNumber(), 0);
  EXPECT_EQ(sync_->synchronizeCalls, syncs + 1);
  EXPECT_TRUE(defaults_->objectForKey(kIsMapAutomaticSelectLocation).isNull());
}

TEST_F(MoodAppDelegateTest, GoingInactiveDuringACloudTransferCancelsIt) {
  MoodAppDelegate& app = launch();
  int ended = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodBackgroundEndedNotification, nullptr,
                          [&](const Notification&) { ++ended; });
  app.applicationWillResignActive();
  EXPECT_TRUE(application_->notificationsShown.empty());
  app.isDropboxOperationStarted = true;
  app.applicationWillResignActive();
  ASSERT_EQ(application_->notificationsShown.size(), 1u);
  EXPECT_EQ(application_->notificationsShown[0].first,
            "Operation could not continue in background. Cancelled.");
  EXPECT_FALSE(application_->notificationsShown[0].second);
  EXPECT_EQ(ended, 1);
  EXPECT_FALSE(app.isDropboxOperationStarted);
}

TEST_F(MoodAppDelegateTest, TerminationSavesWhatIsPending) {
  MoodAppDelegate& app = launch();
  auto record = app.store().insertRecordWithDescription();
  record->setMoodLevel(8);
  record->setDate(Date::now());
  app.applicationWillTerminate();
  app_.reset();
  JournalStore reread({dir_ / "Library", dir_ / "Documents"}, defaults_);
  EXPECT_EQ(reread.allRecords().size(), 1u);
}

// --- Reminders ----------------------------------------------------------------

TEST_F(MoodAppDelegateTest, TappedReminderAbandonsTheCaptureAndLeavesTheEditorSlowly) {
  EXPECT_FALSE(defaults_->setBool(kTutorialCompleted, true));
  EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, true));
  MoodAppDelegate& app = launch();
  EXPECT_FALSE(defaults_->setString(kMoodRecordInCreation, "x-lumeo-og://store/MoodRecord/p1"));
  app.tabBarController()->selectTab(MoodTabBarController::kHistoryTab, false);
  app.navigationController()->presentViewController(
      std::make_shared<MoodViewController>("MoodRecordEditViewController"), true);
  application_->setApplicationState(ApplicationHost::State::kInactive);
  LocalNotification reminder;
  reminder.userInfo["template"] = Value("#work");
  app.applicationDidReceiveLocalNotification(reminder);
  EXPECT_EQ(app.reminderTemplateText(), "#work");
  EXPECT_TRUE(defaults_->objectForKey(kMoodRecordInCreation).isNull());
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_FALSE(app.navigationController()->presentedViewController());
  EXPECT_DOUBLE_EQ(app.window().layerSpeed(), 0.2);
}

TEST_F(MoodAppDelegateTest, ReminderInTheForegroundAsksFirst) {
  EXPECT_FALSE(defaults_->setBool(kTutorialCompleted, true));
  EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, true));
  MoodAppDelegate& app = launch();
  app.tabBarController()->selectTab(MoodTabBarController::kSummaryTab, false);
  presenter_->answers.push_back(1);
  bool completed = false;
  app.userNotificationCenterDidReceiveNotificationResponse({}, [&] { completed = true; });
  EXPECT_TRUE(completed);
  EXPECT_EQ(app.reminderTemplateText(), "") << "no template: stored empty";
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  const AlertRequest& alert = presenter_->alerts[0].request;
  EXPECT_EQ(alert.title, "Reminders");
  EXPECT_EQ(alert.message, "How are you feeling right now?");
  ASSERT_EQ(alert.actions.size(), 2u);
  EXPECT_EQ(alert.actions[0].title, "CAPTURE_ACTION_BUTTON_TITLE");
  EXPECT_EQ(alert.actions[1].style, AlertActionStyle::kCancel);
  EXPECT_EQ(app.tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);

  // A reminder without action only keeps its template.
  LocalNotification silent;
  silent.hasAction = false;
  silent.userInfo["template"] = Value("t");
  app.applicationDidReceiveLocalNotification(silent);
  EXPECT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(app.reminderTemplateText(), "t");

  EXPECT_EQ(MoodAppDelegate::userNotificationCenterWillPresentNotificationOptions(14), 10);
  EXPECT_EQ(MoodAppDelegate::userNotificationCenterWillPresentNotificationOptions(13), 4);
}

// --- URLs and pushes ------------------------------------------------------------

TEST_F(MoodAppDelegateTest, RedirectURLsOfTheCloudLinkAreRouted) {
  MoodAppDelegate& app = launch();
  std::vector<std::string> posted;
  ScopedObserver linked(NotificationCenter::defaultCenter(), DropboxLinkedNotification, nullptr,
                        [&](const Notification& n) { posted.push_back(n.name); });
  ScopedObserver canceled(NotificationCenter::defaultCenter(), DropboxLinkCanceledNotification, nullptr,
                          [&](const Notification& n) { posted.push_back(n.name); });
  EXPECT_TRUE(app.applicationOpenURL("db-k3y://2/token"));
  EXPECT_TRUE(app.isDropboxOpenWithHandler);
  cloud_->result = CloudLinkService::RedirectResult::kCancel;
  EXPECT_TRUE(app.applicationOpenURL("db-k3y://2/cancel"));
  EXPECT_FALSE(app.applicationOpenURL("db-other://x"));
  EXPECT_FALSE(app.applicationOpenURL("fb12345://authorize"));
  EXPECT_EQ(posted, (std::vector<std::string>{DropboxLinkedNotification, DropboxLinkCanceledNotification}));
  EXPECT_EQ(cloud_->redirects.size(), 2u);
}

Value::Dictionary pushFor(const std::string& recordID) {
  return {{"aps", Value(Value::Dictionary{{"content-available", Value(1)}})},
          {"ck", Value(Value::Dictionary{{"qry", Value(Value::Dictionary{{"rid", Value(recordID)}})}})}};
}

TEST_F(MoodAppDelegateTest, PushAnswersNoDataAtOnceThenTheRealOutcome) {
  MoodAppDelegate& app = launch();
  app.setSyncingEnabled(true);
  app.setSyncingService("iCloud");
  std::vector<int> results;
  app.applicationDidReceiveRemoteNotification(pushFor("R1"), [&](int r) { results.push_back(r); });
  EXPECT_EQ(results, (std::vector<int>{1, 0}));
  EXPECT_EQ(sync_->fetched, std::vector<std::string>{"R1"});
  EXPECT_NE(app.backgroundTask, ApplicationHost::kInvalidBackgroundTask);

  results.clear();
  sync_->fetchError = Error("CKErrorDomain", 3);
  app.applicationDidReceiveRemoteNotification(pushFor("R2"), [&](int r) { results.push_back(r); });
  EXPECT_EQ(results, (std::vector<int>{1, 2}));

  results.clear();
  sync_->fetchError.reset();
  sync_->syncError = Error("SyncErrorDomain", 103);
  sync_->answerLater = true;
  app.applicationDidReceiveRemoteNotification(pushFor("R3"), [&](int r) { results.push_back(r); });
  EXPECT_EQ(results, std::vector<int>{1});
  sync_->later.back()();
  EXPECT_EQ(results, (std::vector<int>{1, 2}));
}

TEST_F(MoodAppDelegateTest, PushIsIgnoredUnlessICloudSyncIsOn) {
  MoodAppDelegate& app = launch();
  std::vector<int> results;
  auto handler = [&](int r) { results.push_back(r); };
  app.applicationDidReceiveRemoteNotification(pushFor("R1"), handler);
  app.setSyncingEnabled(true);
  app.setSyncingService("Dropbox");
  app.applicationDidReceiveRemoteNotification(pushFor("R1"), handler);
  app.setSyncingService("iCloud");
  app.applicationDidReceiveRemoteNotification({{"aps", Value(Value::Dictionary{})}}, handler);
  EXPECT_EQ(results, (std::vector<int>{1, 1, 1}));
  EXPECT_TRUE(sync_->fetched.empty());
}

}  // namespace
}  // namespace lumeo
