// The summary's first page: the period choice, the three averages (all
// records of the period, the last week, the last month) and the three
// charts. It fetches the period's records, computes, draws, and hands the
// result to its view through a delegate; it never draws a widget itself.
//
// Refresh: every save, sync end, locale, time-zone and activation change
// calls invalidate(), which recomputes at once when the page is on screen
// and otherwise marks it stale for its next appearance. Main thread only.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "insight/mood_draw_chart.h"
#include "insight/mood_summary_chart_view.h"
#include "insight/mood_summary_stat_bar.h"
#include "platform/date.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class UserDefaults;
class MoodSummaryTotalViewController;

// Notification names of the host platform that the summary also follows.
inline constexpr char NSCurrentLocaleDidChangeNotification[] = "NSCurrentLocaleDidChangeNotification";
inline constexpr char NSSystemTimeZoneDidChangeNotification[] = "NSSystemTimeZoneDidChangeNotification";
inline constexpr char UIApplicationDidBecomeActiveNotification[] = "UIApplicationDidBecomeActiveNotification";

// The view behind the page. Every call comes on the main thread.
class MoodSummaryTotalViewDelegate {
 public:
  virtual ~MoodSummaryTotalViewDelegate() = default;
  // The images, flags, cards and bars changed; read them from the controller.
  virtual void summaryViewsUpdated(MoodSummaryTotalViewController& controller) = 0;
  // Show or hide the period picker (rows: MoodSummaryChartView::summaryTypes()).
  virtual void setPeriodPickerVisible(bool visible, long selectedRow) { (void)visible, (void)selectedRow; }
  // The trend card's tag button: show the scrollable graph, landscape,
  // with the navigation bar hidden.
  virtual void presentGraph() {}
};

// The periods of the summary, by their stored number.
enum MoodSummaryChartType : long {
  kSummaryFromFirstRecord = 0,
  kSummaryThisYear = 1,
  kSummaryThisQuartal = 2,
  kSummaryThisMonth = 3,
  kSummaryLast30Days = 4,
  kSummaryLast180Days = 5,
};

// The bounds of a period at `now`: nothing for "From first record" (all
// records) and for numbers outside 0..5.
struct SummaryPeriodBounds {
  Date from;
  Date to;
};
std::optional<SummaryPeriodBounds> summaryPeriodBounds(long chartType, Date now);

// The three averages of a list of records at `now` (−1: no value). The week
// and month windows run back from `now`; the month counts only when it holds
// more records than the week.
struct SummaryAverages {
  double total = -1;
  double week = -1;
  double month = -1;
  std::size_t count = 0;
  std::size_t weekCount = 0;
  std::size_t monthCount = 0;
};
SummaryAverages summaryAverages(const std::vector<ChartRecord>& records, Date now);

class MoodSummaryTotalViewController : public MoodViewController, public MoodSummaryChartViewDelegate {
 public:
  // `defaults` holds the period ("kMoodSummaryChartType"); null: the
  // standard defaults.
  MoodSummaryTotalViewController(JournalStore& store, std::shared_ptr<UserDefaults> defaults = nullptr);
  ~MoodSummaryTotalViewController() override;

  void setDelegate(std::weak_ptr<MoodSummaryTotalViewDelegate> delegate) { delegate_ = std::move(delegate); }
  // Connects the cards' buttons to this controller; call once it is owned
  // by a shared pointer.
  void connectCards();

  // --- Life cycle as the front end reports it -----------------------------
  void viewDidLoad() { viewLoaded_ = true; }
  // Reloads when stale, recomputes the cards' tag buttons, closes the picker.
  void viewWillAppear();
  void viewDidAppear() {
    onScreen_ = true;
    lastChartPageLogged_ = std::numeric_limits<std::int64_t>::max();
  }
  void viewDidDisappear() { onScreen_ = false; }

  // --- The spec'd operations -------------------------------------------
  void reloadMoodRecords();
  void invalidate();
  void updateViews();
  void moodSummaryStartDateClicked(MoodSummaryChartView& view) override;
  void moodSummaryChartViewClicked(MoodSummaryChartView& view) override;
  // The picker's done: stores the row as the period, reloads, updates, hides.
  void doneButtonClicked(long selectedRow);

  // --- State -----------------------------------------------------------
  long chartType() const;
  void setChartType(long type);
  double totalStatAvg() const { return totalStatAvg_; }
  double weekStatAvg() const { return weekStatAvg_; }
  double monthStatAvg() const { return monthStatAvg_; }
  std::optional<Date> firstRecordDate() const { return firstRecordDate_; }
  std::optional<Date> lastRecordDate() const { return lastRecordDate_; }
  std::size_t recordCount() const { return recordCount_; }
  bool dataUpToDate() const { return dataUpToDate_; }
  const std::optional<Image>& chartImageAlltime() const { return chartImageAlltime_; }
  const std::optional<Image>& chartImageWeekly() const { return chartImageWeekly_; }
  const std::optional<Image>& chartImageDaily() const { return chartImageDaily_; }
  // The records of the last reload, oldest first.
  const std::vector<ChartRecord>& records() const { return records_; }

  MoodSummaryStatBar& totalStatBar() { return totalStatBar_; }
  MoodSummaryStatBar& weekStatBar() { return weekStatBar_; }
  MoodSummaryStatBar& monthStatBar() { return monthStatBar_; }
  MoodSummaryChartView& chartViewAlltime() { return *chartViewAlltime_; }
  MoodSummaryChartView& chartViewWeekly() { return *chartViewWeekly_; }
  MoodSummaryChartView& chartViewDaily() { return *chartViewDaily_; }

  // The size of each chart in points (the first chart's frame).
  Size frameForFirstChart() const { return chartSize_; }
  void setChartSize(Size size) { chartSize_ = size; }
  // Whether to draw the pictures at all (a front end that shows numbers
  // only can skip the fits); on by default.
  void setDrawsCharts(bool draws) { drawsCharts_ = draws; }

 private:
  void observe(const char* name, void (MoodSummaryTotalViewController::*action)());

  JournalStore& store_;
  std::shared_ptr<UserDefaults> defaults_;
  std::weak_ptr<MoodSummaryTotalViewDelegate> delegate_;
  // Start at 0.0: a journal that never had a record shows 0.0, as on the
  // phone, until something was computed.
  double totalStatAvg_ = 0.0;
  double weekStatAvg_ = 0.0;
  double monthStatAvg_ = 0.0;
  std::optional<Date> firstRecordDate_;
  std::optional<Date> lastRecordDate_;
  std::size_t recordCount_ = 0;
  std::vector<ChartRecord> records_;
  std::optional<Image> chartImageAlltime_;
  std::optional<Image> chartImageWeekly_;
  std::optional<Image> chartImageDaily_;
  bool dataUpToDate_ = false;
  bool viewLoaded_ = false;
  bool onScreen_ = false;
  bool pickerVisible_ = false;
  bool drawsCharts_ = true;
  std::int64_t lastChartPageLogged_ = std::numeric_limits<std::int64_t>::max();
  Size chartSize_{600, 400};
  MoodSummaryStatBar totalStatBar_;
  MoodSummaryStatBar weekStatBar_;
  MoodSummaryStatBar monthStatBar_;
  std::shared_ptr<MoodSummaryChartView> chartViewAlltime_;
  std::shared_ptr<MoodSummaryChartView> chartViewWeekly_;
  std::shared_ptr<MoodSummaryChartView> chartViewDaily_;
  std::vector<ScopedObserver> observers_;
};

}  // namespace lumeo
