// The chart card's titles, texts and layer rules.
#include "insight/mood_summary_chart_view.h"

#include "platform/localization.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

// "This quartal" is the period's name as users know it; it stays so.
const char* const kSummaryTypes[] = {"From first record", "This year",    "This quartal",
                                     "This month",        "Last 30 days", "Last 180 days"};

}  // namespace

std::optional<std::string> MoodSummaryChartView::summaryType(long chartType) {
  if (chartType < 0 || chartType > 5) return std::nullopt;
  return localized(kSummaryTypes[chartType]);
}

std::vector<std::string> MoodSummaryChartView::summaryTypes() {
  std::vector<std::string> out;
  for (const char* title : kSummaryTypes) out.push_back(localized(title));
  return out;
}

std::string MoodSummaryChartView::infoTitle(MoodSummaryChartKind kind) {
  switch (kind) {
    case MoodSummaryChartKind::kTrend:
      return localized("Mood Trend");
    case MoodSummaryChartKind::kWeekly:
      return localized("Weekly Cycle");
    case MoodSummaryChartKind::kDaily:
      return localized("Daily Cycle");
  }
  return {};
}

std::string MoodSummaryChartView::infoText(MoodSummaryChartKind kind) {
  switch (kind) {
    case MoodSummaryChartKind::kTrend:
      return localized(
          "This chart shows how your mood changes on average. Rather than pointing out occasional ups and "
          "downs, this chart will indicate, for example, that you started feeling generally better several "
          "days ago compared to how you were last month.");
    case MoodSummaryChartKind::kWeekly:
      return localized(
          "This chart shows how you tend to feel each day of your usual week. Should the lightened area "
          "around the chart be narrow \u2014 you tend to feel that particular way this day, should it be "
          "wide \u2014 there's no association of your mood and this day of the week.");
    case MoodSummaryChartKind::kDaily:
      return localized(
          "This chart shows how you tend to feel during your usual day. Should the lightened area around "
          "the chart be narrow \u2014 you tend to feel that particular way at this time of the day, should "
          "it be wide \u2014 there's no association of your mood and this time of the day.");
  }
  return {};
}

MoodSummaryCardBackground MoodSummaryChartView::currentBackground() {
  auto& op = MoodUserDefaultsOperator::sharedOperator();
  MoodSummaryCardBackground background;
  if (op.gradientColorEnabled()) {
    background.gradient = true;
    background.colors = {op.fromColor(), op.middleColor(), op.toColor()};
  } else {
    background.imageName = "moodSummaryGradient";
  }
  return background;
}

void MoodSummaryChartView::drawBackground(Canvas& canvas, const Rect& rect,
                                          const MoodSummaryCardBackground& background) {
  std::vector<Color> colors = background.colors;
  if (!background.gradient || colors.empty()) {
    colors = {MoodUserDefaultsOperator::defaultFromColor(), MoodUserDefaultsOperator::defaultMiddleColor(),
              MoodUserDefaultsOperator::defaultToColor()};
  }
  canvas.fillLinearGradient(rect, Point{rect.x, rect.y}, Point{rect.x, rect.y + rect.height}, colors);
}

void MoodSummaryChartView::prepareAllWithFrame(const Rect& frame, std::optional<Image> chartImage,
                                               long type) {
  frame_ = frame;
  chartImage_ = std::move(chartImage);
  buttonStartTitle_ = summaryType(type).value_or("");
  labelStart_.reset();
  labelEnd_.reset();
}

void MoodSummaryChartView::prepareAllWithFrame(const Rect& frame, std::optional<Image> chartImage,
                                               std::optional<std::string> startDateString,
                                               std::optional<std::string> endDateString) {
  frame_ = frame;
  chartImage_ = std::move(chartImage);
  buttonStartTitle_.clear();
  labelStart_ = std::move(startDateString);
  labelEnd_ = std::move(endDateString);
}

void MoodSummaryChartView::setNotEnoughData(bool notEnoughData) {
  notEnoughData_ = notEnoughData;
  infoVisible_ = false;
  notEnoughDataAlpha_ = notEnoughData ? 1.0 : 0.0;
}

void MoodSummaryChartView::showInfo() {
  infoVisible_ = true;
  notEnoughDataAlpha_ = 0;
}

void MoodSummaryChartView::hideInfo() {
  infoVisible_ = false;
  notEnoughDataAlpha_ = notEnoughData_ ? 1.0 : 0.0;
}

void MoodSummaryChartView::tagButtonClicked() {
  if (!hasTagButton_) return;
  if (auto delegate = delegate_.lock()) delegate->moodSummaryChartViewClicked(*this);
}

void MoodSummaryChartView::startButtonClicked() {
  if (auto delegate = delegate_.lock()) delegate->moodSummaryStartDateClicked(*this);
}

}  // namespace lumeo
