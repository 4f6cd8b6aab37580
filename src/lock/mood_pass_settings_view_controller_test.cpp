// The lock settings and the application around the lock: rows by state, the
// recovery key switch, disabling, the fingerprint switch, the background
// rules and the first start.
#include "lock/mood_pass_settings_view_controller.h"

#include <gtest/gtest.h>

#include "lock/lock_fixture.h"

namespace lumeo {
namespace {

using testing::LockTest;

class PassSettingsTest : public LockTest {
 protected:
  std::shared_ptr<MoodPassSettingsViewController> settings() {
    auto screen = std::make_shared<MoodPassSettingsViewController>(facade_);
    app_->tabBarController()->presentViewController(screen, false);
    return screen;
  }
};

TEST_F(PassSettingsTest, RowsFollowTheStoredStateAndTheReaderBeingThere) {
  ready();
  auto screen = settings();
  EXPECT_EQ(screen->items(), std::vector<std::string>{kEnablePasscodeRow});
  EXPECT_EQ(screen->labelForRow(kEnablePasscodeRow), "Enable password");

  screen->selectRow(kEnablePasscodeRow);
  auto entry = screen->entryScreen();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->title(), "Pass Code");
  EXPECT_EQ(entry->changeCodeStage(), 1);
  type(*entry, "13571357");
  runMainLoop(2);
  EXPECT_FALSE(screen->presentedViewController());
  EXPECT_EQ(screen->items(), (std::vector<std::string>{kDisablePasscodeRow, kChangePasscodeRow, kBiometricRow,
                                                       kSecretKeyRow}));
  EXPECT_EQ(screen->labelForRow(kBiometricRow), "Fingerprint");

  reader_->available = false;
  screen->loadPassSettingsItems();
  EXPECT_EQ(screen->items(),
            (std::vector<std::string>{kDisablePasscodeRow, kChangePasscodeRow, kSecretKeyRow}));
}

TEST_F(PassSettingsTest, TheRecoveryKeyAlertSavesOnlyTextAndCancelLeavesTheSwitchOff) {
  ready();
  setPasscode("1234");
  auto screen = settings();
  alerts_->answers.push_back({0, "typed then cancelled"});
  screen->switchChanged(kSecretKeyRow, true);
  ASSERT_EQ(alerts_->shown.size(), 1u);
  const auto& request = alerts_->shown[0].request;
  EXPECT_EQ(request.message,
            "Enter the password recovery key to recover if you forget the password in the future");
  EXPECT_EQ(request.resultsNeedingText, std::vector<int>{1}) << "Save only while the field holds text";
  EXPECT_FALSE(screen->switchOnForRow(kSecretKeyRow));
  EXPECT_FALSE(MoodPasscodeStorage::secretKey());

  alerts_->answers.push_back({1, "otter"});
  screen->switchChanged(kSecretKeyRow, true);
  EXPECT_TRUE(screen->switchOnForRow(kSecretKeyRow));
  EXPECT_EQ(MoodPasscodeStorage::secretKey(), "otter");

  screen->switchChanged(kSecretKeyRow, false);
  EXPECT_FALSE(screen->switchOnForRow(kSecretKeyRow));
  EXPECT_FALSE(MoodPasscodeStorage::secretKey());
}

TEST_F(PassSettingsTest, DisablingTakesTheKeyAlongAndNeedsTheCode) {
  ready();
  setPasscode("1234", "otter");
  auto screen = settings();
  screen->selectRow(kDisablePasscodeRow);
  auto entry = screen->entryScreen();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->title(), "Disable");
  EXPECT_EQ(entry->changeCodeStage(), 0);
  type(*entry, "9999");
  runMainLoop(2);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
  type(*entry, "1234");
  runMainLoop(2);
  EXPECT_FALSE(MoodPasscodeStorage::passCode());
  EXPECT_TRUE(keychain_->items().empty()) << "the recovery key went with the passcode";
  EXPECT_EQ(screen->items(), std::vector<std::string>{kEnablePasscodeRow});

  // A stale key in the keyring does not come back with a new passcode.
  ASSERT_TRUE(keychain_->add({"LumeoJournal", "SecretKey"}, "LumeoJournal", "old").ok());
  setPasscode("2222");
  EXPECT_FALSE(MoodPasscodeStorage::secretKey());
}

TEST_F(PassSettingsTest, AKeyringGoneDuringDisableKeepsTheLockAndSaysWhy) {
  ready();
  setPasscode("1234", "otter");
  auto screen = settings();
  screen->selectRow(kDisablePasscodeRow);
  type(*screen->entryScreen(), "1234");
  keychain_->setAvailable(false);
  runMainLoop(2);
  ASSERT_TRUE(screen->lastError());
  EXPECT_EQ(screen->lastError()->code, kSecretNotAvailable);
  keychain_->setAvailable(true);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
  EXPECT_EQ(MoodPasscodeStorage::secretKey(), "otter");
}

TEST_F(PassSettingsTest, TurningTheFingerprintOffKeepsThePasscodeAndTheEntryScreenAsksForAFinger) {
  ready();
  setPasscode("1234");
  auto screen = settings();
  screen->switchChanged(kBiometricRow, true);
  EXPECT_TRUE(screen->switchOnForRow(kBiometricRow));
  EXPECT_TRUE(facade_->isAuthenticationEnabledForFeature(kPasscodeEnabledFeature));

  // The entry screen tries the finger first and falls back to the keypad.
  auto entry = std::make_shared<MoodPassInputViewController>(facade_);
  int done = 0;
  entry->doneBlock = [&] { ++done; };
  entry->viewDidLoad();
  EXPECT_TRUE(entry->isPreparing());
  ASSERT_EQ(reader_->checks, 1);
  reader_->finish(Error(kBiometricErrorDomain, kBiometricAuthenticationFailed));
  runMainLoop(1);
  EXPECT_FALSE(entry->isPreparing());
  EXPECT_EQ(done, 0);
  entry->viewDidLoad();
  reader_->finish();
  runMainLoop(1);
  EXPECT_EQ(done, 1);

  screen->switchChanged(kBiometricRow, false);
  EXPECT_FALSE(screen->switchOnForRow(kBiometricRow));
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
  auto plain = std::make_shared<MoodPassInputViewController>(facade_);
  plain->viewDidLoad();
  EXPECT_FALSE(plain->isPreparing());
  EXPECT_EQ(reader_->checks, 2);
}

TEST_F(PassSettingsTest, TheRecoveryRowsLabelShrinksByBisection) {
  auto width = [](double size) { return size * 10; };
  EXPECT_EQ(MoodPassSettingsViewController::newFontSize(17, width, 200), 17);
  double size = MoodPassSettingsViewController::newFontSize(17, width, 120);
  EXPECT_LE(width(size), 120);
  EXPECT_GT(size, 11.4);
  EXPECT_EQ(MoodPassSettingsViewController::newFontSize(17, width, 1), 2) << "no smaller than size - 15";
}

TEST_F(LockTest, BackgroundOnCaptureShowsNoLockOnReturnWhileHistoryAsks) {
  MoodAppDelegate& app = ready();
  setPasscode("1234");
  auto tabs = app.tabBarController();
  app.applicationDidEnterBackground();
  app.applicationWillEnterForeground();
  EXPECT_FALSE(app.isPasscodeScreenRoot());
  EXPECT_FALSE(tabs->buttonGroupShouldSelectButtonAtIndex(1));
  auto entry = entryOver(*tabs);
  ASSERT_TRUE(entry) << "the history tab asks for the code";
  type(*entry, "1234");
  EXPECT_EQ(tabs->currentIndex(), 1);
  runMainLoop(1);

  // With a screen open over the tabs, the whole window locks.
  app.navigationController()->presentViewController(
      std::make_shared<MoodViewController>("MoodPassInputViewController"), false);
  app.applicationDidEnterBackground();
  ASSERT_TRUE(app.isPasscodeScreenRoot());
  auto root = gate_->rootEntryScreen();
  ASSERT_TRUE(root);
  app.applicationWillEnterForeground();
  auto fresh = gate_->rootEntryScreen();
  EXPECT_NE(fresh, root) << "coming back puts up a fresh screen";
  fresh->cancel();
  EXPECT_TRUE(app.isPasscodeScreenRoot()) << "the whole-window lock cannot be cancelled";
  type(*fresh, "1234");
  EXPECT_FALSE(app.isPasscodeScreenRoot());
  EXPECT_TRUE(app.passCodeUnlocked);
}

TEST_F(LockTest, AFreshInstallDeletesAnOldPasscodeButAJournalInUseKeepsIt) {
  makeApp();
  setPasscode("1234", "otter");
  app_.reset();
  launch();
  EXPECT_FALSE(MoodPasscodeStorage::passCode());
  EXPECT_TRUE(keychain_->items().empty());

  setPasscode("4321");
  EXPECT_FALSE(defaults_->removeObjectForKey(kMoodFirstStart));
  seedRecord();
  launch();
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "4321");
}

TEST_F(LockTest, TheFacadeLetsANeverEnabledFeatureThroughAndIgnoresASecondRequest) {
  ready();
  EXPECT_TRUE(defaults_->objectForKey(kTouchIDEnabledForThisAppKey).isNull() == false)
      << "the facade writes false for an unset switch";
  EXPECT_FALSE(facade_->biometricEnabledForThisApp());
  int successes = 0, failures = 0;
  auto ok = [&] { ++successes; };
  auto fail = [&](const Error&) { ++failures; };
  EXPECT_TRUE(facade_->authenticateForAccessToFeature("PasscodeEnabled", "r", ok, fail));
  runMainLoop(1);
  EXPECT_EQ(successes, 1);
  EXPECT_EQ(reader_->checks, 0) << "no prompt for a feature that never wanted one";

  facade_->enableAuthenticationForFeature("PasscodeEnabled", nullptr, nullptr);
  EXPECT_TRUE(facade_->authenticateForAccessToFeature("PasscodeEnabled", "r", ok, fail));
  EXPECT_TRUE(MoodBiometricAuthenticationFacade::isBiometricInputRequestDisplayed());
  MoodBiometricAuthenticationFacade other(reader_, defaults_);
  EXPECT_FALSE(other.authenticateForAccessToFeature("PasscodeEnabled", "r", ok, fail));
  reader_->finish();
  runMainLoop(1);
  EXPECT_EQ(successes, 2);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(reader_->checks, 1) << "the second request started nothing";
  EXPECT_FALSE(MoodBiometricAuthenticationFacade::isBiometricInputRequestDisplayed());

  reader_->available = false;
  std::optional<Error> error;
  facade_->authenticateForAccessToFeature("PasscodeEnabled", "r", ok, [&](const Error& e) { error = e; });
  runMainLoop(1);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("CTBiometricsAuthenticationDomain", 1000));
  EXPECT_EQ(error->description, "Authentication by Biometrics isn't available");
}

}  // namespace
}  // namespace lumeo

namespace lumeo::testing {
namespace {

// The tab gate's own entry screen, left up when the application goes to
// the background, becomes the whole-window lock; the main interface comes
// back whole behind the right code.
TEST_F(LockTest, TheGatesEntryScreenLeftUpBecomesTheWindowLock) {
  MoodAppDelegate& app = ready();
  setPasscode("1234");
  auto tabs = app.tabBarController();
  EXPECT_FALSE(tabs->buttonGroupShouldSelectButtonAtIndex(2));
  ASSERT_TRUE(entryOver(*tabs));
  app.applicationDidEnterBackground();
  EXPECT_FALSE(entryOver(*tabs)) << "the gate's screen is closed";
  ASSERT_TRUE(app.isPasscodeScreenRoot());
  app.applicationWillEnterForeground();
  auto root = gate_->rootEntryScreen();
  ASSERT_TRUE(root);
  type(*root, "1234");
  EXPECT_EQ(app.window().rootViewController(), app.navigationController());
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kCaptureTab);
}

// Settings asked for by code open once the entry screen has gone: opened
// while it was still up, they would sit on it and leave with it.
TEST_F(LockTest, SettingsBehindTheCodeOpenAfterTheEntryScreenHasGone) {
  MoodAppDelegate& app = ready();
  setPasscode("1234");
  auto tabs = app.tabBarController();
  tabs->showSettings();
  auto entry = entryOver(*tabs);
  ASSERT_TRUE(entry);
  type(*entry, "1234");
  runMainLoop(1);
  auto presented = tabs->presentedViewController();
  ASSERT_TRUE(presented);
  ASSERT_TRUE(presented->isNavigationController());
  EXPECT_EQ(app.window().visibleViewController()->className(), "MoodSettingsViewController");
  EXPECT_FALSE(presented->presentedViewController());

  // Unlocked now: the menu opens at once, and only once.
  presented->dismissViewControllerAnimated(false);
  tabs->showSettings();
  ASSERT_TRUE(tabs->presentedViewController());
  EXPECT_EQ(app.window().visibleViewController()->className(), "MoodSettingsViewController");
  EXPECT_FALSE(tabs->presentedViewController()->presentedViewController());
}

}  // namespace
}  // namespace lumeo::testing
