// The History tab inside the running application: its share sheet, the
// warning before a deletion, the deletion that the warning's "Yes" sets off
// 0.4 seconds later, the switch to capture when the journal is empty, and
// the day screen whose share sheet offers Edit only.
#include <gtest/gtest.h>

#include "browse/mood_date_history_view_controller.h"
#include "browse/mood_history_view_controller.h"
#include "shell/shell_test_support.h"
#include "store/date_all.h"

namespace lumeo {
namespace {

class HistoryInAppTest : public testing::ShellTest {
 protected:
  std::shared_ptr<MoodRecord> record(long level, double secondsAgo, const std::string& comment) {
    auto made = app_->store().insertRecordWithDescription();
    made->setMoodLevel(level);
    made->setDate(Date::now().dateByAddingTimeInterval(-secondsAgo));
    made->moodDescription()->setComment(comment);
    app_->saveContext();
    return made;
  }
  std::vector<std::string> activityTypes(const ShareSheetRequest& request) {
    std::vector<std::string> out;
    for (const auto& activity : request.applicationActivities) out.push_back(activity.type);
    return out;
  }
};

TEST_F(HistoryInAppTest, ShareSheetWarningAndDeletionUntilTheJournalIsEmpty) {
  launch();
  record(7, 7200, "Long walk #walk");
  record(3, 60, "Tired");
  auto history = std::make_shared<MoodHistoryViewController>();
  history->viewDidLoad();
  history->viewWillAppear();
  ASSERT_EQ(history->moodRecords().size(), 2u);
  app_->tabBarController()->selectTab(MoodTabBarController::kHistoryTab, false);

  history->setSelectedMoodRecordIndex(0);
  presenter_->shareAnswers.push_back("MoodDeleteActivity");
  presenter_->answers.push_back(1);  // "Yes"
  history->chooseAction();
  ASSERT_EQ(presenter_->shares.size(), 1u);
  const ShareSheetRequest& share = presenter_->shares[0];
  EXPECT_NE(share.text.find("] Feeling 7.\n\nLong walk #walk"), std::string::npos) << share.text;
  EXPECT_EQ(share.text.front(), '[');
  EXPECT_EQ(activityTypes(share), (std::vector<std::string>{"MoodEditActivity", "MoodDeleteActivity"}));
  ASSERT_FALSE(presenter_->alerts.empty());
  const AlertRequest& warning = presenter_->alerts.back().request;
  EXPECT_EQ(warning.title, "Wait a moment!");
  EXPECT_NE(warning.message.find("You will only benifit from being honest"), std::string::npos);
  // The deletion waits for the sheet to go.
  EXPECT_EQ(history->moodRecords().size(), 2u);
  runMainLoop(1);
  ASSERT_EQ(history->moodRecords().size(), 1u);
  EXPECT_EQ(history->moodRecords()[0]->moodLevel(), 3);
  EXPECT_EQ(history->selectedMoodRecordIndex(), 0);
  EXPECT_EQ(app_->tabBarController()->currentIndex(), MoodTabBarController::kHistoryTab);

  // "No" keeps the record.
  presenter_->shareAnswers.push_back("MoodDeleteActivity");
  presenter_->answers.push_back(0);
  history->chooseAction();
  runMainLoop(1);
  EXPECT_EQ(history->moodRecords().size(), 1u);

  // The last record: the journal is empty and capture shows.
  presenter_->shareAnswers.push_back("MoodDeleteActivity");
  presenter_->answers.push_back(1);
  history->chooseAction();
  runMainLoop(1);
  EXPECT_TRUE(history->moodRecords().empty());
  EXPECT_EQ(app_->tabBarController()->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_FALSE(app_->store().hasAnyRecord());
}

TEST_F(HistoryInAppTest, ADayScreenOffersEditOnlyAndDeletesItsOwnRecord) {
  launch();
  auto older = record(5, 3 * 86400, "Three days ago");
  record(8, 60, "Today");
  auto history = std::make_shared<MoodHistoryViewController>();
  history->viewDidLoad();
  history->viewWillAppear();
  history->setSelectedMoodRecordIndex(1);
  auto day = std::make_shared<MoodDateHistoryViewController>(*older->date());
  day->viewDidLoad();
  day->viewWillAppear();
  ASSERT_EQ(day->moodRecords().size(), 1u);
  day->setSelectedMoodRecordIndex(0);
  presenter_->shareAnswers.push_back("");  // closed without a choice
  day->chooseAction();
  ASSERT_EQ(presenter_->shares.size(), 1u);
  EXPECT_EQ(activityTypes(presenter_->shares[0]), (std::vector<std::string>{"MoodEditActivity"}));

  // Edit opens the editor on the record, a second after the sheet.
  presenter_->shareAnswers.push_back("MoodEditActivity");
  day->chooseAction();
  runMainLoop(2);
  Screen* visible = app_->window().visibleViewController();
  ASSERT_NE(visible, nullptr);
  EXPECT_EQ(visible->className(), "MoodRecordEditViewController");
  visible->dismissViewControllerAnimated(false);

  // Its deletion (as a shake asks for it) takes its record, not the
  // History tab's selection.
  presenter_->answers.push_back(1);
  day->motionEnded(true);
  runMainLoop(1);
  EXPECT_TRUE(day->moodRecords().empty());
  ASSERT_EQ(history->moodRecords().size(), 1u);
  EXPECT_EQ(history->moodRecords()[0]->moodLevel(), 8);
}

TEST(HistoryAutoscroll, SpeedGrowsWithTheSquareOfTheDepthIntoTheOuterFifths) {
  EXPECT_EQ(MoodHistoryView::autoscrollSpeedForTrackFraction(0.5, 100), 0);
  EXPECT_EQ(MoodHistoryView::autoscrollSpeedForTrackFraction(0.2, 100), 0);
  EXPECT_EQ(MoodHistoryView::autoscrollSpeedForTrackFraction(0.7999999970197678, 100), 0);
  EXPECT_DOUBLE_EQ(MoodHistoryView::autoscrollSpeedForTrackFraction(0.1, 100), -25);
  EXPECT_DOUBLE_EQ(MoodHistoryView::autoscrollSpeedForTrackFraction(0, 100), -100);
  EXPECT_NEAR(MoodHistoryView::autoscrollSpeedForTrackFraction(0.9, 100), 25, 1e-6);
  EXPECT_NEAR(MoodHistoryView::autoscrollSpeedForTrackFraction(1.5, 100), 100, 1e-9);
}

}  // namespace
}  // namespace lumeo
