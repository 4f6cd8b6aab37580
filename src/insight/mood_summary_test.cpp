// The summary page: period bounds, the three averages with their rolling
// windows, the refresh rules on notifications, and the average bars.
#include <gtest/gtest.h>

#include <thread>

#include "capture/mood_levels_presentation.h"
#include "insight/mood_summary_total_view_controller.h"
#include "insight/mood_summary_view_controller.h"
#include "insight/summary_test_support.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {
namespace {

using testing::utcDate;

std::vector<ChartRecord> at(Date now, std::initializer_list<std::pair<double, long>> agesAndLevels) {
  std::vector<ChartRecord> out;
  for (const auto& [age, level] : agesAndLevels) out.push_back({now.dateByAddingTimeInterval(-age), level});
  std::sort(out.begin(), out.end(),
            [](const ChartRecord& a, const ChartRecord& b) { return a.date < b.date; });
  return out;
}

class SummaryAveragesTest : public testing::JournalTest {};

TEST_F(SummaryAveragesTest, WeekAndMonthWindowsRunBackFromNow) {
  const Date now = Date::now();
  const double day = 86400;
  // Exactly seven days old: outside the week, inside the month.
  auto a = summaryAverages(at(now, {{7 * day, 4}}), now);
  EXPECT_EQ(a.weekCount, 0u);
  EXPECT_EQ(a.week, -1);
  EXPECT_EQ(a.month, 4);
  EXPECT_EQ(a.total, 4);
  // A second short of seven days is inside.
  a = summaryAverages(at(now, {{7 * day - 1, 4}}), now);
  EXPECT_EQ(a.week, 4);
  EXPECT_EQ(a.month, -1);  // the month would only repeat the week

  // All in the last week: total and week agree, the month reads no data.
  a = summaryAverages(at(now, {{day, 8}, {2 * day, 6}, {3 * day, 7}}), now);
  EXPECT_DOUBLE_EQ(a.total, 7);
  EXPECT_DOUBLE_EQ(a.week, 7);
  EXPECT_EQ(a.month, -1);

  // Nothing in the last seven days, something in the last 31.
  a = summaryAverages(at(now, {{10 * day, 3}, {20 * day, 5}, {40 * day, 10}}), now);
  EXPECT_EQ(a.week, -1);
  EXPECT_DOUBLE_EQ(a.month, 4);
  EXPECT_DOUBLE_EQ(a.total, 6);
  // 31 days exactly is out of the month.
  a = summaryAverages(at(now, {{31 * day, 3}, {day, 9}}), now);
  EXPECT_EQ(a.month, -1);

  // Records dated after now count everywhere (negative age).
  a = summaryAverages(at(now, {{-day, 9}, {10 * day, 1}}), now);
  EXPECT_EQ(a.week, 9);
  EXPECT_EQ(a.month, 5);
}

TEST_F(SummaryAveragesTest, PeriodBounds) {
  const Date now = utcDate(2026, 11, 23, 12, 30);
  EXPECT_FALSE(summaryPeriodBounds(kSummaryFromFirstRecord, now));
  EXPECT_FALSE(summaryPeriodBounds(6, now));
  EXPECT_FALSE(summaryPeriodBounds(-1, now));
  auto b = *summaryPeriodBounds(kSummaryLast30Days, now);
  // From now less 30 calendar days, time of day kept, to the last second of today.
  EXPECT_EQ(b.from, utcDate(2026, 10, 24, 12, 30));
  EXPECT_EQ(b.to, utcDate(2026, 11, 23, 23, 59, 59));
  b = *summaryPeriodBounds(kSummaryLast180Days, now);
  EXPECT_EQ(b.from, utcDate(2026, 5, 27, 12, 30));
  b = *summaryPeriodBounds(kSummaryThisYear, now);
  EXPECT_EQ(b.from, utcDate(2026, 1, 1));
  EXPECT_EQ(b.to, utcDate(2026, 12, 31, 23, 59, 59));
  // Quarter and month end at the start of their last day, as the date
  // helpers give them.
  b = *summaryPeriodBounds(kSummaryThisQuartal, now);
  EXPECT_EQ(b.from, utcDate(2026, 10, 1));
  EXPECT_EQ(b.to, utcDate(2026, 12, 31));
  b = *summaryPeriodBounds(kSummaryThisMonth, now);
  EXPECT_EQ(b.from, utcDate(2026, 11, 1));
  EXPECT_EQ(b.to, utcDate(2026, 11, 30));

  EXPECT_EQ(*MoodSummaryChartView::summaryType(2), "This quartal");
  EXPECT_EQ(*MoodSummaryChartView::summaryType(0), "From first record");
  EXPECT_FALSE(MoodSummaryChartView::summaryType(6));
  EXPECT_EQ(MoodSummaryChartView::summaryTypes().size(), 6u);
}

class RecordingSummaryView : public MoodSummaryTotalViewDelegate {
 public:
  int updates = 0;
  std::vector<bool> picker;
  int graphs = 0;
  void summaryViewsUpdated(MoodSummaryTotalViewController&) override { ++updates; }
  void setPeriodPickerVisible(bool visible, long) override { picker.push_back(visible); }
  void presentGraph() override { ++graphs; }
};

class SummaryControllerTest : public testing::JournalTest {
 protected:
  SummaryControllerTest() {
    MoodDrawChart::resetFlags();
    controller_ = std::make_shared<MoodSummaryTotalViewController>(store_, defaults_);
    controller_->connectCards();
    controller_->setChartSize({120, 80});
    controller_->setDelegate(view_);
  }
  void show() {
    controller_->viewDidLoad();
    controller_->viewWillAppear();
    controller_->viewDidAppear();
  }
  std::shared_ptr<RecordingSummaryView> view_ = std::make_shared<RecordingSummaryView>();
  std::shared_ptr<MoodSummaryTotalViewController> controller_;
};

TEST_F(SummaryControllerTest, EmptyJournalKeepsZeroAndDrawsNothing) {
  show();
  EXPECT_EQ(view_->updates, 1);
  EXPECT_TRUE(controller_->dataUpToDate());
  EXPECT_EQ(controller_->totalStatAvg(), 0.0);
  EXPECT_EQ(controller_->weekStatAvg(), 0.0);
  EXPECT_EQ(controller_->monthStatAvg(), 0.0);
  EXPECT_FALSE(controller_->chartImageAlltime());
  EXPECT_FALSE(controller_->chartImageWeekly());
  EXPECT_FALSE(controller_->chartImageDaily());
  // The bars show 0.0 rather than the no-data label.
  EXPECT_FALSE(controller_->totalStatBar().barHidden());
  EXPECT_EQ(controller_->totalStatBar().levelText(), "0.0");
  EXPECT_FALSE(controller_->firstRecordDate());
}

TEST_F(SummaryControllerTest, ReloadComputesAndAnEmptyPeriodKeepsTheAverages) {
  const Date now = Date::now();
  for (int d = 0; d < 20; ++d)
    addRecord(4 + d % 5, now.dateByAddingTimeInterval(-86400.0 * d - 3600 * (d % 9)));
  save();
  show();
  EXPECT_EQ(controller_->recordCount(), 20u);
  EXPECT_DOUBLE_EQ(controller_->totalStatAvg(), 6.0);
  EXPECT_GT(controller_->weekStatAvg(), 0);
  EXPECT_GT(controller_->monthStatAvg(), 0);  // more records in the month than in the week
  EXPECT_EQ(*controller_->lastRecordDate(), now);
  EXPECT_TRUE(controller_->chartImageAlltime());
  EXPECT_EQ(controller_->chartImageWeekly()->width(), 120);
  EXPECT_EQ(controller_->totalStatBar().levelText(), "6.0");
  EXPECT_EQ(controller_->chartViewAlltime().buttonStartTitle(), "From first record");
  EXPECT_EQ(controller_->chartViewAlltime().hasTagButton(), !MoodDrawChart::notEnoughDataAlltime());
  EXPECT_FALSE(controller_->chartViewWeekly().hasTagButton());

  // A period with no records (this month, two months on): the averages of
  // before stay.
  const double total = controller_->totalStatAvg();
  clock_.clock().advance(86400.0 * 60);
  controller_->doneButtonClicked(kSummaryThisMonth);
  EXPECT_EQ(defaults_->integerForKey(kMoodSummaryChartType), kSummaryThisMonth);
  EXPECT_EQ(controller_->recordCount(), 0u);
  EXPECT_EQ(controller_->totalStatAvg(), total);
  EXPECT_EQ(*controller_->firstRecordDate(), utcDate(2027, 1, 1));  // the bounds stand in
  EXPECT_EQ(view_->picker.back(), false);
}

TEST_F(SummaryControllerTest, ThisMonthOnTheFirstOnlyHoldsThatDay) {
  clock_.clock().set(utcDate(2026, 11, 1, 12));
  addRecord(2, utcDate(2026, 10, 30, 10));
  addRecord(2, utcDate(2026, 10, 31, 10));
  addRecord(8, utcDate(2026, 11, 1, 9));
  addRecord(6, utcDate(2026, 11, 1, 11));
  save();
  controller_->setChartType(kSummaryThisMonth);
  show();
  EXPECT_EQ(controller_->recordCount(), 2u);
  EXPECT_DOUBLE_EQ(controller_->weekStatAvg(), 7.0);
  EXPECT_EQ(controller_->monthStatAvg(), -1);
  EXPECT_TRUE(controller_->monthStatBar().barHidden());
  EXPECT_TRUE(controller_->monthStatBar().notEnoughDataLabelVisible());
}

TEST_F(SummaryControllerTest, RefreshRules) {
  addRecord(7, Date::now());
  save();
  // Loaded but not on screen: a save only marks the page stale.
  controller_->viewDidLoad();
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
  EXPECT_EQ(view_->updates, 0);
  EXPECT_FALSE(controller_->dataUpToDate());
  show();
  EXPECT_EQ(view_->updates, 1);

  // On screen, every listed notification recomputes at once.
  for (const char* name :
       {MoodModelHasChangedNotification, IDMSyncActivityDidEnd, IDMSyncActivityDidDataMergingEndNotification,
        NSCurrentLocaleDidChangeNotification, NSSystemTimeZoneDidChangeNotification}) {
    const int before = view_->updates;
    NotificationCenter::defaultCenter().post(name);
    EXPECT_EQ(view_->updates, before + 1) << name;
  }
  // Activation recomputes and pushes the views once more.
  int before = view_->updates;
  NotificationCenter::defaultCenter().post(UIApplicationDidBecomeActiveNotification);
  EXPECT_EQ(view_->updates, before + 2);

  // From another thread nothing happens.
  before = view_->updates;
  std::thread([] { NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification); }).join();
  EXPECT_EQ(view_->updates, before);

  // The line width redraws even off screen.
  controller_->viewDidDisappear();
  before = view_->updates;
  NotificationCenter::defaultCenter().post(MoodGraphLineWidthChangedNotification);
  EXPECT_EQ(view_->updates, before + 1);

  // The cards' buttons reach the view.
  controller_->chartViewAlltime().startButtonClicked();
  EXPECT_EQ(view_->picker.back(), true);
}

TEST_F(SummaryControllerTest, ContainerShowsOnePageAtATime) {
  addRecord(7, Date::now(), {"walk"});
  save();
  MoodSummaryViewController summary(store_, defaults_);
  summary.viewWillAppear();
  EXPECT_TRUE(summary.total().dataUpToDate());
  EXPECT_FALSE(summary.positive().dataUpToDate());
  summary.selectPage(MoodSummaryViewController::kPositivePage);
  EXPECT_TRUE(summary.positive().dataUpToDate());
  ASSERT_EQ(summary.positive().topTags().size(), 1u);
  summary.selectPage(7);
  EXPECT_EQ(summary.selectedPage(), MoodSummaryViewController::kPositivePage);
}

TEST(MoodSummaryStatBar, NegativeHidesOtherwiseOneDecimalAndLevelColour) {
  MoodSummaryStatBar bar("Total");
  EXPECT_TRUE(bar.barHidden());
  bar.setMoodLevel(6.34);
  EXPECT_FALSE(bar.barHidden());
  EXPECT_EQ(bar.levelText(), "6.3");
  EXPECT_DOUBLE_EQ(bar.barLength(), 20 * 6.34);
  EXPECT_EQ(bar.barColor(), *MoodLevelsPresentation::defaultMoodLevels().interpolatedColorForMoodLevel(6.34));
  bar.setMoodLevel(-1);
  EXPECT_TRUE(bar.barHidden());
  EXPECT_TRUE(bar.notEnoughDataLabelVisible());
  EXPECT_EQ(bar.levelText(), "");
}

TEST(MoodSummaryChartView, LayersFollowTheFlag) {
  MoodSummaryChartView card(ChartKind::kWeekly);
  EXPECT_EQ(card.infoTitleText(), "Weekly Cycle");
  card.setNotEnoughData(true);
  EXPECT_EQ(card.notEnoughDataAlpha(), 1);
  card.showInfo();
  EXPECT_TRUE(card.infoVisible());
  EXPECT_EQ(card.notEnoughDataAlpha(), 0);
  card.hideInfo();
  EXPECT_EQ(card.notEnoughDataAlpha(), 1);
  card.setNotEnoughData(false);
  EXPECT_EQ(card.notEnoughDataAlpha(), 0);
}

}  // namespace
}  // namespace lumeo
