// The graph screen's data: records, tag series, selected lines, and the
// composition of one picture of the graph.
#include "insight/mood_summary_graph_view_controller.h"

#include <algorithm>

#include "insight/mood_summary_chart_view.h"
#include "platform/localization.h"
#include "platform/string_format.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"

namespace lumeo {

MoodSummaryGraphViewController::MoodSummaryGraphViewController(JournalStore& store,
                                                               std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodSummaryGraphViewController"), store_(store), defaults_(std::move(defaults)) {
  observers_.emplace_back(NotificationCenter::defaultCenter(), MoodGraphSmoothChangedNotification, nullptr,
                          [this](const Notification&) { graphSmoothChanged(); });
}

MoodSummaryGraphViewController::~MoodSummaryGraphViewController() = default;

void MoodSummaryGraphViewController::viewDidLoad() {
  memoryRecords();
  loadTags();
}

void MoodSummaryGraphViewController::memoryRecords() {
  records_.clear();
  comments_.clear();
  for (const auto& record : store_.recordsSortedByDate()) {
    auto date = record->date();
    if (!date) continue;
    records_.push_back({*date, record->moodLevel(), record});
    auto description = record->moodDescription();
    comments_.push_back(description ? description->comment().value_or("") : std::string());
  }
}

void MoodSummaryGraphViewController::loadTags() {
  MoodThirdValueTable table;
  for (const auto& description : store_.allDescriptions()) {
    if (auto comment = description->comment()) table.addComment(*comment);
  }
  completionOptions_ = table.values();
  orderedKeys_ = table.orderedKeys();
  std::erase_if(selectedTags_, [this](const std::string& key) { return !completionOptions_.contains(key); });
}

double MoodSummaryGraphViewController::tagPanelHeight() const {
  if (orderedKeys_.empty()) return 0;
  return static_cast<double>(std::min(orderedKeys_.size(), kTagPanelVisibleRows)) * kTagRowHeight +
         kTagPanelExtra;
}

std::string MoodSummaryGraphViewController::rowRangeText(const std::string& key) const {
  auto it = completionOptions_.find(key);
  if (it == completionOptions_.end()) return {};
  return stringWithFormat("%.1f - %.1f %@", it->second.minValue, it->second.maxValue, it->second.unitValue);
}

std::string MoodSummaryGraphViewController::rowCountText(const std::string& key) const {
  auto it = completionOptions_.find(key);
  if (it == completionOptions_.end()) return {};
  return stringWithFormat("%ld", it->second.count);
}

bool MoodSummaryGraphViewController::toggleTag(const std::string& key) {
  if (!completionOptions_.contains(key)) return false;
  auto it = std::find(selectedTags_.begin(), selectedTags_.end(), key);
  if (it == selectedTags_.end()) {
    selectedTags_.push_back(key);
  } else {
    selectedTags_.erase(it);
  }
  if (auto delegate = delegate_.lock()) delegate->graphNeedsRedraw();
  return true;
}

void MoodSummaryGraphViewController::setSelectedTags(std::vector<std::string> keys) {
  selectedTags_.clear();
  for (auto& key : keys) {
    if (completionOptions_.contains(key) &&
        std::find(selectedTags_.begin(), selectedTags_.end(), key) == selectedTags_.end())
      selectedTags_.push_back(std::move(key));
  }
}

std::vector<GraphDataPoint> MoodSummaryGraphViewController::extractLine(const MoodThirdValue& series) const {
  std::vector<GraphDataPoint> points;
  for (std::size_t i = 0; i < records_.size(); ++i) {
    // Every occurrence counts here, unlike in the series table.
    for (double value : graphValuesInComment(comments_[i], series))
      points.push_back({records_[i].time, value});
  }
  std::stable_sort(points.begin(), points.end(),
                   [](const GraphDataPoint& a, const GraphDataPoint& b) { return a.time < b.time; });
  return points;
}

std::vector<GraphTagSeries> MoodSummaryGraphViewController::tagLines() const {
  std::vector<GraphTagSeries> lines;
  for (std::size_t i = 0; i < selectedTags_.size(); ++i) {
    auto it = completionOptions_.find(selectedTags_[i]);
    if (it == completionOptions_.end()) continue;
    lines.push_back({selectedTags_[i], extractLine(it->second), graphTagLineColor(i)});
  }
  return lines;
}

bool MoodSummaryGraphViewController::graphSmoothed() const {
  return MoodUserDefaultsOperator(defaults_).graphSmoothed();
}

bool MoodSummaryGraphViewController::graphIncreaseWidth() const {
  return MoodUserDefaultsOperator(defaults_).graphIncreaseWidth();
}

void MoodSummaryGraphViewController::graphSmoothChanged() {
  if (auto delegate = delegate_.lock()) delegate->graphNeedsRedraw();
}

void MoodSummaryGraphViewController::renderGraph(Canvas& canvas, Size size,
                                                 const GraphScrollableArea& area) const {
  const double W = size.width;
  const double axisHeight = 20;
  const double H = std::max(1.0, size.height - axisHeight);
  MoodSummaryChartView::drawBackground(canvas, Rect{0, 0, W, size.height},
                                       MoodSummaryChartView::currentBackground());
  const Font font = MoodDrawChart::labelFont();
  const Color labelColor = MoodDrawChart::labelColor();
  // Axis: a thin grid line and its label at each tick.
  for (const GraphAxisLabel& label : area.axisLabels(canvas, font, W)) {
    canvas.fillRect(Rect{label.x, 0, 0.1, H}, Color(0, 0, 0, 1));
    if (!label.text.empty())
      canvas.drawTextInRect(label.text, Rect{label.x + 2, H, W, axisHeight}, font, labelColor,
                            TextAlignment::kLeft);
  }
  for (int i = 1; i <= 10; ++i) canvas.fillRect(Rect{0, chartGridLineY(H, i), W, 0.1}, Color(0, 0, 0, 1));

  GraphLine mood;
  mood.pointsArray = records_;
  mood.startDate = area.startDate();
  mood.endDate = area.endDate();
  mood.smoothed = graphSmoothed();
  mood.increaseWidth = graphIncreaseWidth();
  mood.draw(canvas, W, H);

  double legendY = 4;
  for (const GraphTagSeries& series : area.tagsArray()) {
    GraphTagLine line;
    line.pointsArray = series.points;
    line.startDate = area.startDate();
    line.endDate = area.endDate();
    line.lineColor = series.color;
    line.draw(canvas, W, H);
    auto it = completionOptions_.find(series.key);
    std::string legend = "#" + (it != completionOptions_.end() ? it->second.tagName : series.key);
    if (it != completionOptions_.end() && !it->second.unitValue.empty())
      legend += " (" + it->second.unitValue + ")";
    canvas.fillRect(Rect{6, legendY + 7, 14, 3}, series.color);
    canvas.drawText(legend, Point{24, legendY}, font, Color(1, 1, 1, 1));
    legendY += 18;
  }
}

// --- Settings ----------------------------------------------------------------

MoodGraphSettingsViewController::MoodGraphSettingsViewController(std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodGraphSettingsViewController"), defaults_(std::move(defaults)) {}

std::vector<MoodGraphSettingsViewController::Row> MoodGraphSettingsViewController::rows() const {
  MoodUserDefaultsOperator op(defaults_);
  return {{kChartsSmooth, localized("Smooth"), op.graphSmoothed()},
          {kChartsIncreaseWidth, localized("Increase width"), op.graphIncreaseWidth()}};
}

bool MoodGraphSettingsViewController::setSwitch(const std::string& key, bool on) {
  MoodUserDefaultsOperator op(defaults_);
  if (key == kChartsSmooth) {
    (void)op.setGraphSmoothed(on);
    return true;
  }
  if (key == kChartsIncreaseWidth) {
    (void)op.setGraphIncreaseWidth(on);
    return true;
  }
  return false;
}

}  // namespace lumeo
