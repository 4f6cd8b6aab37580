// The shell's screens: tab availability and the tab gate, the settings
// rows, the alert helpers, the share sheet, the backup reminders and the
// navigation model under them.
#include "platform/calendar.h"
#include "shell/mood_settings_view_controller.h"
#include "shell/mood_tab_bar_controller.h"
#include "shell/mood_view_controller.h"
#include "shell/shell_test_support.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {
namespace {

using testing::FakePasscodeGate;
using testing::ShellTest;

class TabsTest : public ShellTest {
 protected:
  MoodAppDelegate& ready() {
    EXPECT_FALSE(defaults_->setBool(kTutorialCompleted, true));
    EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, true));
    return launch();
  }
};

TEST_F(TabsTest, HistoryAndSummaryNeedRecordsAndTheLastDeleteGoesToCapture) {
  MoodAppDelegate& app = ready();
  auto tabs = app.tabBarController();
  EXPECT_FALSE(tabs->isButtonEnabled(MoodTabBarController::kHistoryTab));
  EXPECT_FALSE(tabs->isButtonEnabled(MoodTabBarController::kSummaryTab));
  EXPECT_TRUE(tabs->isButtonEnabled(MoodTabBarController::kMapTab));
  EXPECT_EQ(tabs->titles(), (std::vector<std::string>{"Capture", "History", "Summary", "Map"}));

  auto record = app.store().insertRecordWithDescription();
  record->setMoodLevel(4);
  record->setDate(Date::now());
  app.saveContext();
  EXPECT_TRUE(tabs->isSummaryAvailable());
  EXPECT_TRUE(tabs->isButtonEnabled(MoodTabBarController::kHistoryTab));
  tabs->selectTab(MoodTabBarController::kHistoryTab, false);

  EXPECT_FALSE(app.store().deleteRecord(record));
  app.saveContext();
  EXPECT_FALSE(tabs->isSummaryAvailable());
  EXPECT_TRUE(tabs->isSummaryAvailableBefore());
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_EQ(tabs->lastPageDirection(), MoodTabBarController::PageDirection::kReverse);
  EXPECT_FALSE(tabs->isButtonEnabled(MoodTabBarController::kSummaryTab));
  EXPECT_TRUE(tabs->isButtonEnabled(MoodTabBarController::kMapTab));

  // A sync that ends only refreshes the buttons; it does not move the page.
  tabs->selectTab(MoodTabBarController::kMapTab, false);
  NotificationCenter::defaultCenter().post(IDMSyncActivityDidEnd);
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kMapTab);
}

TEST_F(TabsTest, TheGateAllowsCaptureAlwaysAndOtherTabsOnlyByPasscode) {
  MoodAppDelegate& app = ready();
  auto tabs = app.tabBarController();
  passcode_->mode = FakePasscodeGate::Mode::kDenyAtOnce;
  EXPECT_TRUE(tabs->buttonGroupShouldSelectButtonAtIndex(0));
  EXPECT_FALSE(tabs->buttonGroupShouldSelectButtonAtIndex(2));
  passcode_->mode = FakePasscodeGate::Mode::kGrantAtOnce;
  EXPECT_TRUE(tabs->buttonGroupShouldSelectButtonAtIndex(2));

  // Answered after the user typed the code: refused now, selected then.
  passcode_->mode = FakePasscodeGate::Mode::kLater;
  EXPECT_FALSE(tabs->buttonGroupShouldSelectButtonAtIndex(3));
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kCaptureTab);
  passcode_->pending(true);
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kMapTab);
  EXPECT_EQ(tabs->selectedButtonIndex(), MoodTabBarController::kMapTab);
  EXPECT_FALSE(tabs->buttonGroupShouldSelectButtonAtIndex(1));
  passcode_->pending(false);
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kMapTab);
}

TEST_F(TabsTest, SettingsOpenBehindTheGateAndTutorialShowsUntilDone) {
  MoodAppDelegate& app = ready();
  passcode_->mode = FakePasscodeGate::Mode::kDenyAtOnce;
  app.tabBarController()->showSettings();
  EXPECT_FALSE(app.tabBarController()->presentedViewController());
  passcode_->mode = FakePasscodeGate::Mode::kGrantAtOnce;
  app.tabBarController()->showSettings();
  EXPECT_EQ(app.window().visibleViewController()->className(), "MoodSettingsViewController");

  EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, false));
  launch();
  EXPECT_EQ(app_->window().visibleViewController()->className(), "MoodTutorialViewController.sync");
  EXPECT_GE(watch_->saves, 1);
}

TEST_F(TabsTest, SettingsRowsFollowTheWatchAndTheCloudLink) {
  ready();
  auto settings = std::make_shared<MoodSettingsViewController>(cloud_, watch_, defaults_);
  const std::vector<std::string> fixed = {"kMoodsRow",     "kTemplateRow", "kChartsRow", "kMapRow",
                                          "kRemindersRow", "kBackupRow",   "kSyncRow",   "kLockRow",
                                          "kExportRow",    "kWatchRow"};
  std::vector<std::string> expected = fixed;
  expected.insert(expected.end(), {"", ""});
  EXPECT_EQ(settings->sections(), expected);
  EXPECT_EQ(settings->rowForKey("kLockRow")->title, "Pass Code");
  EXPECT_EQ(settings->heightForRow(9), 0) << "no watch: the watch row hides";
  EXPECT_EQ(settings->heightForRow(8), 48) << "and export closes the list";
  EXPECT_EQ(settings->heightForRow(0), 44);
  watch_->paired = true;
  EXPECT_EQ(settings->heightForRow(9), 48);
  EXPECT_EQ(settings->heightForRow(8), 44);

  cloud_->authorized = true;
  settings->loadSections();
  ASSERT_EQ(settings->sections().size(), 13u);
  EXPECT_EQ(settings->sections()[10], "kSpaceAndDropboxRow");
  EXPECT_EQ(settings->heightForRow(11), 48);

  // Unlink asks, then forgets the account.
  EXPECT_FALSE(defaults_->setString(kDropboxLogin, "someone"));
  presenter_->answers.push_back(kMoodActionDestructive);
  auto nav = std::make_shared<NavigationController>(settings);
  settings->didSelectRow(11);
  ASSERT_EQ(presenter_->alerts.back().request.actions.size(), 2u);
  EXPECT_EQ(presenter_->alerts.back().request.actions[0].style, AlertActionStyle::kDestructive);
  EXPECT_EQ(presenter_->alerts.back().request.actions[1].style, AlertActionStyle::kCancel);
  EXPECT_EQ(cloud_->unlinks, 2) << "one at first start, one here";
  EXPECT_FALSE(defaults_->stringForKey(kDropboxLogin));
  EXPECT_EQ(settings->sections().back(), "");

  settings->didSelectRow(5);
  EXPECT_EQ(nav->topViewController()->className(), "MoodBackupViewController");

  // A registered maker makes the row's real screen; without one the row
  // pushes a plain screen of that name.
  struct LockSettings : MoodViewController {
    LockSettings() : MoodViewController("MoodPassSettingsViewController") {}
  };
  std::shared_ptr<Screen> made;
  MoodSettingsViewController::registerScreenMaker("MoodPassSettingsViewController", [&made] {
    made = std::make_shared<LockSettings>();
    return made;
  });
  settings->didSelectRow(7);
  EXPECT_EQ(nav->topViewController(), made.get());
  MoodSettingsViewController::registerScreenMaker("MoodPassSettingsViewController", nullptr);
  settings->didSelectRow(7);
  EXPECT_NE(nav->topViewController(), made.get());
  EXPECT_EQ(nav->topViewController()->className(), "MoodPassSettingsViewController");
}

TEST_F(TabsTest, LinkedAccountNameShowsInItsRow) {
  ready();
  cloud_->authorized = true;
  cloud_->displayName = "Ada";
  auto settings = std::make_shared<MoodSettingsViewController>(cloud_, watch_, defaults_);
  NotificationCenter::defaultCenter().post(DropboxLinkedNotification);
  runMainLoop(1);
  EXPECT_EQ(settings->dropboxLoginString(), "Linked by Ada");
  EXPECT_EQ(settings->rowForKey("kDropboxAccountRow")->title, "Linked by Ada");
  EXPECT_EQ(settings->accountRowReloads(), 1);
}

TEST(MoodViewControllerAlerts, ButtonsOnlyForPresentTitlesWithTheirResults) {
  auto presenter = std::make_shared<testing::ScriptedPresenter>();
  MoodViewController::setSharedPresenter(presenter);
  auto screen = std::make_shared<MoodViewController>("MoodHistoryViewController");
  std::vector<int> results;
  presenter->answers = {0, 1};
  screen->showAlert("t", "m", std::nullopt, std::string("Cancel"), [&](int r) { results.push_back(r); });
  screen->showAlert("t", "m", std::string("OK"), std::nullopt, [&](int r) { results.push_back(r); });
  EXPECT_EQ(results, (std::vector<int>{0, 1}));
  ASSERT_EQ(presenter->alerts[0].request.actions.size(), 1u);
  EXPECT_EQ(presenter->alerts[0].request.actions[0].style, AlertActionStyle::kCancel);
  ASSERT_EQ(presenter->alerts[1].request.actions.size(), 1u);

  RGBAColor red{1, 0, 0, 1};
  screen->showAlert("t", "m", std::string("Delete"), red, AlertActionStyle::kDestructive, std::string("No"),
                    std::nullopt, nullptr);
  EXPECT_EQ(presenter->alerts[2].request.actions[0].titleTextColor, red);

  presenter->answers = {7};
  screen->showActionSheet("", "", {{"A", 7}, {"Remove", 4}, {"Cancel", 5}},
                          [&](int r) { results.push_back(r); });
  EXPECT_EQ(results.back(), 7);
  const auto& sheet = presenter->alerts[3].request;
  EXPECT_TRUE(sheet.actionSheet);
  EXPECT_EQ(sheet.actions[0].style, AlertActionStyle::kDefault);
  EXPECT_EQ(sheet.actions[1].style, AlertActionStyle::kDestructive);
  EXPECT_EQ(sheet.actions[2].style, AlertActionStyle::kCancel);
  MoodViewController::setSharedPresenter(nullptr);
}

// An answer can arrive after the user left the screen that asked (the
// application went to the background, a reminder took over); the handler,
// which may use the screen's `this`, must then not run.
TEST(MoodViewControllerAlerts, AnAnswerAfterTheScreenIsGoneIsDropped) {
  auto presenter = std::make_shared<testing::ScriptedPresenter>();
  MoodViewController::setSharedPresenter(presenter);
  auto alertScreen = std::make_shared<MoodViewController>("MoodHistoryViewController");
  auto sheetScreen = std::make_shared<MoodViewController>("MoodGalleryViewController");
  std::vector<std::string> ran;
  alertScreen->showAlert("t", "m", std::string("OK"), std::string("Cancel"),
                         [&, screen = alertScreen.get()](int) { ran.push_back(screen->className()); });
  sheetScreen->showActionSheet("", "", {{"A", 7}, {"Cancel", 5}},
                               [&, screen = sheetScreen.get()](int) { ran.push_back(screen->className()); });
  ASSERT_EQ(presenter->alerts.size(), 2u);

  // While the screen lives, its answer runs (and keeps it alive meanwhile).
  std::weak_ptr<Screen> watch = sheetScreen;
  presenter->alerts[1].handler(7);
  EXPECT_EQ(ran, std::vector<std::string>{"MoodGalleryViewController"});

  alertScreen.reset();
  sheetScreen.reset();
  ASSERT_TRUE(watch.expired());
  presenter->alerts[0].handler(1);
  presenter->alerts[1].handler(7);
  EXPECT_EQ(ran.size(), 1u) << "no handler ran for a destroyed screen";

  MoodViewController::setSharedPresenter(nullptr);
}

TEST(MoodViewControllerLayout, TallPhonesGetTheXLayoutOfListedScreensOnly) {
  EXPECT_EQ(MoodViewController::nibNameForDevice("MoodSettingsViewController", true),
            "MoodSettingsViewControllerX");
  EXPECT_EQ(MoodViewController::nibNameForDevice("MoodSettingsViewController", false),
            "MoodSettingsViewController");
  EXPECT_EQ(MoodViewController::nibNameForDevice("MoodCaptureViewController", true),
            "MoodCaptureViewController");
  EXPECT_EQ(MoodViewController::nibNameForDevice("MoodHelpViewControllerX", true), "MoodHelpViewControllerX");
  EXPECT_EQ(MoodViewController::tallLayoutScreens().size(), 22u);
}

TEST(NavigationModel, DismissingFromInsideAStackTakesTheStackAndAllAbove) {
  Window window;
  std::vector<std::string> events;
  window.setChangeHandler([&](const std::string& what, Screen*, bool) { events.push_back(what); });
  auto root = std::make_shared<NavigationController>(std::make_shared<MoodViewController>("Root"));
  window.setRootViewController(root);
  auto inner = std::make_shared<MoodViewController>("Inner");
  auto sheet = std::make_shared<NavigationController>(inner);
  root->presentViewController(sheet, true);
  auto top = std::make_shared<MoodViewController>("Top");
  root->presentViewController(top, false);  // goes on top of the chain
  EXPECT_EQ(sheet->presentedViewController(), top);
  EXPECT_EQ(window.visibleViewController(), top.get());
  inner->dismissViewControllerAnimated(false);
  EXPECT_FALSE(root->presentedViewController());
  EXPECT_FALSE(top->presentingViewController());
  EXPECT_EQ(window.visibleViewController()->className(), "Root");
  EXPECT_EQ(events.back(), "dismiss");
}

// --- Share sheet and backup reminders ---------------------------------------

class RoutingTest : public TabsTest {
 protected:
  std::shared_ptr<MoodRecord> record(MoodAppDelegate& app, const std::string& comment, bool photo) {
    auto r = app.store().insertRecordWithDescription();
    r->setMoodLevel(8);
    r->setDate(Date::now());
    r->moodDescription()->setComment(comment);
    if (photo) r->moodDescription()->setPhotoName("0000000100000002000003.jpg");
    app.saveContext();
    return r;
  }
};

TEST_F(RoutingTest, ShareTextAndActivitiesDependOnTheCaller) {
  MoodAppDelegate& app = ready();
  MoodAppDelegate::setLevelTextProvider([](long level) { return level == 8 ? std::string("Great") : "?"; });
  auto r = record(app, "Sunny walk #walk", false);
  std::string text = MoodAppDelegate::shareTextForRecord(*r);
  EXPECT_EQ(text.substr(0, 1), "[");
  EXPECT_NE(text.find("] Feeling great.\n\nSunny walk #walk"), std::string::npos) << text;

  app.chooseActionForRecord(r, 1, 99);
  ASSERT_EQ(presenter_->shares.size(), 1u);
  const ShareSheetRequest& history = presenter_->shares[0];
  ASSERT_EQ(history.applicationActivities.size(), 2u);
  EXPECT_EQ(history.applicationActivities[0].type, "MoodEditActivity");
  EXPECT_EQ(history.applicationActivities[1].image, "activity-delete");
  EXPECT_EQ(history.excludedActivityTypes, (std::vector<std::string>{kShareActivityCopy, kShareActivitySave}))
      << "no photo: nothing to save";
  for (const char* type :
       {kShareActivitySave, kShareActivityOpenWith, kShareActivityEmail, kShareActivityCopy}) {
    EXPECT_EQ(std::string(type).rfind("org.lumeo.share.", 0), 0u) << type;
    EXPECT_EQ(history.itemForActivityType(type), "") << type;
  }

  auto withPhoto = record(app, "x", true);
  app.chooseActionForRecord(withPhoto, 0, 0);
  EXPECT_TRUE(presenter_->shares[1].applicationActivities.empty());
  EXPECT_TRUE(presenter_->shares[1].photoPath);
  EXPECT_EQ(presenter_->shares[1].excludedActivityTypes, std::vector<std::string>{kShareActivityCopy});
  app.chooseActionForRecord(withPhoto, 2, 0);
  EXPECT_EQ(presenter_->shares[2].applicationActivities.size(), 1u);
  MoodAppDelegate::setLevelTextProvider(nullptr);
}

TEST_F(RoutingTest, DeleteActivityWarnsThenAsksTheHistoryToDelete) {
  MoodAppDelegate& app = ready();
  auto r = record(app, "x", false);
  int deletes = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodDeleteRecordNotification, nullptr,
                          [&](const Notification&) { ++deletes; });
  presenter_->shareAnswers.push_back("MoodDeleteActivity");
  presenter_->answers.push_back(1);
  app.chooseActionForRecord(r, 1, 0);
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.title, "Wait a moment!");
  EXPECT_NE(presenter_->alerts[0].request.message.find("You will only benifit from being honest"),
            std::string::npos);
  EXPECT_EQ(deletes, 0) << "after the sheet has gone";
  runMainLoop(1);
  EXPECT_EQ(deletes, 1);

  // "No" keeps the record.
  presenter_->shareAnswers.push_back("MoodDeleteActivity");
  presenter_->answers.push_back(0);
  app.chooseActionForRecord(r, 1, 0);
  runMainLoop(1);
  EXPECT_EQ(deletes, 1);

  // Edit opens the editor a second later.
  presenter_->shareAnswers.push_back("MoodEditActivity");
  app.chooseActionForRecord(r, 2, 0);
  runMainLoop(2);
  EXPECT_EQ(app.window().visibleViewController()->className(), "MoodRecordEditViewController");
}

TEST_F(RoutingTest, MissedBackupAlertCountsOnlyTheDayRemainder) {
  MoodAppDelegate& app = ready();
  Calendar calendar = Calendar::current();
  Date now = Date::now();
  auto monthAgo = calendar.dateByAddingUnit(CalendarUnit::kMonth, -1, now);
  app.setLastBackupDate(*monthAgo);
  app.displayRecentBackupMissedAlertIfNeeded();
  EXPECT_TRUE(presenter_->alerts.empty()) << "1 month is day 0";

  app.setLastBackupDate(now.dateByAddingTimeInterval(-6 * 86400));
  app.displayRecentBackupMissedAlertIfNeeded();
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.title, "Attention!");
  EXPECT_EQ(presenter_->alerts[0].request.message, "RECENT_BACKUP_MISSED_ALERT");
  EXPECT_EQ(app.recentBackupMissedLastNotificationDate(), now);

  // Not again within two days, again after them.
  clock_.clock().advance(86400);
  app.displayRecentBackupMissedAlertIfNeeded();
  EXPECT_EQ(presenter_->alerts.size(), 1u);
  clock_.clock().advance(86400);
  app.displayRecentBackupMissedAlertIfNeeded();
  EXPECT_EQ(presenter_->alerts.size(), 2u);

  app.setDropboxReminderEnabled(false);
  clock_.clock().advance(3 * 86400);
  app.displayRecentBackupMissedAlertIfNeeded();
  EXPECT_EQ(presenter_->alerts.size(), 2u);
}

TEST_F(RoutingTest, EveryTenthRecordRemindsOfTheBackupAndGoLeadsThere) {
  MoodAppDelegate& app = ready();
  for (int i = 0; i < 9; ++i) app.setDropboxCounter(1);
  runMainLoop(2);
  EXPECT_TRUE(presenter_->alerts.empty());
  presenter_->answers.push_back(1);
  app.setDropboxCounter(1);
  EXPECT_TRUE(presenter_->alerts.empty()) << "a second later";
  runMainLoop(2);
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.message, "Alert backup");
  EXPECT_EQ(app.navigationController()->topViewController()->className(), "MoodBackupViewController");

  for (int i = 0; i < 10; ++i) app.setDropboxCounter(1);
  runMainLoop(2);
  EXPECT_EQ(presenter_->alerts.size(), 2u) << "the 20th again";
  EXPECT_EQ(app.dropboxCounter(), 20);

  app.setDropboxReminderEnabled(false);
  app.setDropboxCounter(10);
  EXPECT_EQ(app.dropboxCounter(), 20) << "nothing counts while reminders are off";
}

}  // namespace
}  // namespace lumeo
