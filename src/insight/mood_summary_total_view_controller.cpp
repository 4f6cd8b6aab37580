// The summary page's period logic, averages and refresh rules.
#include "insight/mood_summary_total_view_controller.h"

#include "platform/calendar.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "store/date_all.h"
#include "store/journal_store.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

std::optional<SummaryPeriodBounds> summaryPeriodBounds(long chartType, Date now) {
  // The rolling periods end with the last second of today.
  const Date endOfToday = addDays(onlyDate(now), 1).dateByAddingTimeInterval(-1.0);
  switch (chartType) {
    case kSummaryThisYear:
      return SummaryPeriodBounds{theYearStart(now), theYearEnd(now)};
    case kSummaryThisQuartal:
      return SummaryPeriodBounds{theQuarterStart(now), theQuarterEnd(now)};
    case kSummaryThisMonth:
      return SummaryPeriodBounds{theMonthStart(now), theMonthEnd(now)};
    case kSummaryLast30Days:
      return SummaryPeriodBounds{addDays(now, -30), endOfToday};
    case kSummaryLast180Days:
      return SummaryPeriodBounds{addDays(now, -180), endOfToday};
    default:
      return std::nullopt;
  }
}

SummaryAverages summaryAverages(const std::vector<ChartRecord>& records, Date now) {
  SummaryAverages out;
  if (records.empty()) return out;
  const Calendar calendar = Calendar::current();
  const double weekSpan =
      86400.0 * static_cast<double>(
                    calendar.maximumRangeOfUnit(CalendarUnit::kWeekday).value_or(UnitRange{1, 7}).length);
  const double monthSpan =
      86400.0 *
      static_cast<double>(calendar.maximumRangeOfUnit(CalendarUnit::kDay).value_or(UnitRange{1, 31}).length);
  double total = 0;
  double weekSum = 0;
  double monthSum = 0;
  for (const ChartRecord& record : records) {
    const double level = static_cast<double>(record.moodLevel);
    const double age = now.timeIntervalSinceDate(record.date);
    total += level;
    if (age < weekSpan) {
      weekSum += level;
      ++out.weekCount;
    }
    if (age < monthSpan) {
      monthSum += level;
      ++out.monthCount;
    }
  }
  out.count = records.size();
  out.total = total / static_cast<double>(records.size());
  out.week = out.weekCount >= 1 ? weekSum / static_cast<double>(out.weekCount) : -1;
  // A month bar that would only repeat the week's records reads as no data.
  out.month = out.monthCount > out.weekCount ? monthSum / static_cast<double>(out.monthCount) : -1;
  return out;
}

MoodSummaryTotalViewController::MoodSummaryTotalViewController(JournalStore& store,
                                                               std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodSummaryTotalViewController"),
      store_(store),
      defaults_(std::move(defaults)),
      totalStatBar_("Total"),
      weekStatBar_("Last week"),
      monthStatBar_("Last month"),
      chartViewAlltime_(std::make_shared<MoodSummaryChartView>(MoodSummaryChartKind::kTrend)),
      chartViewWeekly_(std::make_shared<MoodSummaryChartView>(MoodSummaryChartKind::kWeekly)),
      chartViewDaily_(std::make_shared<MoodSummaryChartView>(MoodSummaryChartKind::kDaily)) {
  observe(IDMSyncActivityDidEnd, &MoodSummaryTotalViewController::invalidate);
  observe(IDMSyncActivityDidDataMergingEndNotification, &MoodSummaryTotalViewController::invalidate);
  observe(MoodModelHasChangedNotification, &MoodSummaryTotalViewController::invalidate);
  observe(NSCurrentLocaleDidChangeNotification, &MoodSummaryTotalViewController::invalidate);
  observe(NSSystemTimeZoneDidChangeNotification, &MoodSummaryTotalViewController::invalidate);
  observe(UIApplicationDidBecomeActiveNotification, &MoodSummaryTotalViewController::invalidate);
  // The line width changes the drawing itself.
  observe(MoodGraphLineWidthChangedNotification, &MoodSummaryTotalViewController::reloadMoodRecords);
  observe(UIApplicationDidBecomeActiveNotification, &MoodSummaryTotalViewController::updateViews);
}

MoodSummaryTotalViewController::~MoodSummaryTotalViewController() = default;

void MoodSummaryTotalViewController::observe(const char* name,
                                             void (MoodSummaryTotalViewController::*action)()) {
  observers_.emplace_back(NotificationCenter::defaultCenter(), name, nullptr,
                          [this, action](const Notification&) { (this->*action)(); });
}

void MoodSummaryTotalViewController::connectCards() {
  auto self = std::dynamic_pointer_cast<MoodSummaryTotalViewController>(shared_from_this());
  std::shared_ptr<MoodSummaryChartViewDelegate> delegate(
      self, static_cast<MoodSummaryChartViewDelegate*>(self.get()));
  chartViewAlltime_->setDelegate(delegate);
  chartViewWeekly_->setDelegate(delegate);
  chartViewDaily_->setDelegate(delegate);
}

long MoodSummaryTotalViewController::chartType() const {
  return static_cast<long>(MoodUserDefaultsOperator(defaults_).chartType());
}

void MoodSummaryTotalViewController::setChartType(long type) {
  MoodUserDefaultsOperator op(defaults_);
  (void)op.setChartType(type);
  // The application object's setter synchronises at once.
  auto defaults = defaults_ ? defaults_ : UserDefaults::standard();
  if (defaults) defaults->synchronize();
}

void MoodSummaryTotalViewController::reloadMoodRecords() {
  const long type = chartType();
  const Date now = Date::now();
  // Only dates and levels: the charts and averages need nothing else, and
  // a large journal is read much faster without making its records.
  std::vector<JournalStore::DatedLevel> fetched;
  if (auto bounds = summaryPeriodBounds(type, now)) {
    firstRecordDate_ = bounds->from;
    lastRecordDate_ = bounds->to;
    fetched = store_.datedLevels(bounds->from, bounds->to);
  } else {
    // From the first record; an unknown period too, which applies no
    // predicate and keeps the previous dates.
    fetched = store_.datedLevels();
  }
  records_.clear();
  records_.reserve(fetched.size());
  for (const auto& f : fetched) records_.push_back({f.date, f.moodLevel});
  recordCount_ = records_.size();

  const Size size = frameForFirstChart();
  auto draw = [&] {
    if (!drawsCharts_) return;
    ChartStyle style;
    style.increaseWidth = MoodUserDefaultsOperator(defaults_).graphIncreaseWidth();
    style.chartType = type;
    const double scale = MoodDrawChart::screenScale();
    chartImageAlltime_ =
        MoodDrawChart::drawChartImage(ChartKind::kTrend, records_, size, false, style, scale);
    chartImageWeekly_ =
        MoodDrawChart::drawChartImage(ChartKind::kWeekly, records_, size, false, style, scale);
    chartImageDaily_ = MoodDrawChart::drawChartImage(ChartKind::kDaily, records_, size, false, style, scale);
  };

  if (records_.empty()) {
    // The averages keep what they had; each drawer leaves its flag alone.
    draw();
    updateViews();
    dataUpToDate_ = true;
    return;
  }
  firstRecordDate_ = records_.front().date;
  lastRecordDate_ = records_.back().date;
  const SummaryAverages averages = summaryAverages(records_, now);
  totalStatAvg_ = averages.total;
  weekStatAvg_ = averages.week;
  monthStatAvg_ = averages.month;
  draw();
  updateViews();
  dataUpToDate_ = true;
}

void MoodSummaryTotalViewController::invalidate() {
  if (!MainLoop::shared().isMainThread()) return;
  if (viewLoaded_ && onScreen_) {
    reloadMoodRecords();
  } else {
    dataUpToDate_ = false;
  }
}

void MoodSummaryTotalViewController::updateViews() {
  chartViewAlltime_->setNotEnoughData(MoodDrawChart::notEnoughDataAlltime());
  chartViewWeekly_->setNotEnoughData(MoodDrawChart::notEnoughDataWeekly());
  chartViewDaily_->setNotEnoughData(MoodDrawChart::notEnoughDataDaily());
  // Only the trend card offers the graph, and only when it has a curve.
  chartViewAlltime_->setHasTagButton(!MoodDrawChart::notEnoughDataAlltime());
  chartViewWeekly_->setHasTagButton(false);
  chartViewDaily_->setHasTagButton(false);

  const Size size = frameForFirstChart();
  chartViewAlltime_->prepareAllWithFrame(Rect{0, 0, size.width, size.height}, chartImageAlltime_,
                                         chartType());
  chartViewWeekly_->prepareAllWithFrame(Rect{size.width, 0, size.width, size.height}, chartImageWeekly_,
                                        std::nullopt, std::nullopt);
  chartViewDaily_->prepareAllWithFrame(Rect{2 * size.width, 0, size.width, size.height}, chartImageDaily_,
                                       std::nullopt, std::nullopt);

  totalStatBar_.setMoodLevel(totalStatAvg_);
  weekStatBar_.setMoodLevel(weekStatAvg_);
  monthStatBar_.setMoodLevel(monthStatAvg_);
  if (auto delegate = delegate_.lock()) delegate->summaryViewsUpdated(*this);
}

void MoodSummaryTotalViewController::viewWillAppear() {
  viewLoaded_ = true;
  if (!dataUpToDate_) reloadMoodRecords();
  chartViewAlltime_->setHasTagButton(!MoodDrawChart::notEnoughDataAlltime());
  if (pickerVisible_) {
    pickerVisible_ = false;
    if (auto delegate = delegate_.lock()) delegate->setPeriodPickerVisible(false, chartType());
  }
}

void MoodSummaryTotalViewController::moodSummaryStartDateClicked(MoodSummaryChartView&) {
  pickerVisible_ = true;
  if (auto delegate = delegate_.lock()) delegate->setPeriodPickerVisible(true, chartType());
}

void MoodSummaryTotalViewController::moodSummaryChartViewClicked(MoodSummaryChartView&) {
  if (auto delegate = delegate_.lock()) delegate->presentGraph();
}

void MoodSummaryTotalViewController::doneButtonClicked(long selectedRow) {
  setChartType(selectedRow);
  reloadMoodRecords();
  updateViews();
  pickerVisible_ = false;
  if (auto delegate = delegate_.lock()) delegate->setPeriodPickerVisible(false, selectedRow);
}

}  // namespace lumeo
