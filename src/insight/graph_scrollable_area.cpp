// The scrollable graph's range rules: a day is the unit of zoom, the range
// never leaves the journal's first and last day, and panning moves by one
// visible span at a time.
#include "insight/graph_scrollable_area.h"

#include <algorithm>
#include <cmath>

#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/string_format.h"
#include "store/date_all.h"

namespace lumeo {

namespace {

constexpr double kDay = 86400.0;
constexpr int kMaximumAxisTicks = 5000;

}  // namespace

GraphScrollableArea::GraphScrollableArea(std::vector<GraphDataObject> objects, double viewWidth)
    : objects_(std::move(objects)), viewWidth_(std::max(viewWidth, kWidthMargin + 1)) {
  std::stable_sort(objects_.begin(), objects_.end(),
                   [](const GraphDataObject& a, const GraphDataObject& b) { return a.time < b.time; });
  const Calendar calendar = Calendar::current();
  const Date first = objects_.empty() ? Date::now() : objects_.front().time;
  const Date last = objects_.empty() ? Date::now() : objects_.back().time;
  minimumDate_ = calendar.startOfDay(first);
  // The end of the last record's day; one day when all fall on one day.
  const Date lastDay = calendar.startOfDay(last);
  maximumDate_ = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, lastDay).value_or(lastDay);
  if (!(maximumDate_ > minimumDate_)) maximumDate_ = minimumDate_.dateByAddingTimeInterval(kDay);
  const double days = std::round(maximumDate_.timeIntervalSinceDate(minimumDate_) / kDay);
  numberOfDays_ = std::max(1L, static_cast<long>(std::min(days, 1e9)));
  zoomRate_ = numberOfDays_;
  newZoomRate_ = zoomRate_;
  endUNIXDate_ = static_cast<std::int64_t>(maximumDate_.timeIntervalSince1970());
  recalculateStartDate();
}

void GraphScrollableArea::updateTags(std::vector<GraphTagSeries> tags) {
  tags_ = std::move(tags);
  if (auto delegate = delegate_.lock()) {
    delegate->graphScrollableViewDidStartRedraw(*this);
    delegate->graphScrollableViewDidEndRedraw(*this);
  }
}

double GraphScrollableArea::dayInterval() const {
  return (viewWidth_ - kWidthMargin) / static_cast<double>(std::max(1L, zoomRate_));
}

long GraphScrollableArea::numberOfDaysInWidth(double width) const {
  return static_cast<long>(std::trunc((width - kWidthMargin) / dayInterval() + 0.5));
}

void GraphScrollableArea::recalculateStartDate() {
  const std::int64_t days = std::max(1L, numberOfDaysInWidth(viewWidth_));
  const auto span = static_cast<std::int64_t>(days * static_cast<std::int64_t>(kDay));
  const auto minimum = static_cast<std::int64_t>(minimumDate_.timeIntervalSince1970());
  const auto maximum = static_cast<std::int64_t>(maximumDate_.timeIntervalSince1970());
  startUNIXDate_ = endUNIXDate_ - span;
  if (startUNIXDate_ < minimum) {
    startUNIXDate_ = minimum;
    endUNIXDate_ = minimum + span;
  }
  if (endUNIXDate_ > maximum) {
    endUNIXDate_ = maximum;
    startUNIXDate_ = maximum - span;
  }
}

void GraphScrollableArea::reload() {
  auto delegate = delegate_.lock();
  if (delegate) {
    const double contentWidth = dayInterval() * static_cast<double>(numberOfDays_) + kWidthMargin;
    delegate->graphScrollableViewWillUpdateFrame(*this, Rect{0, 0, contentWidth, 0});
    delegate->graphScrollableViewDidStartRedraw(*this);
  }
  recalculateStartDate();
  if (delegate) delegate->graphScrollableViewDidEndRedraw(*this);
}

void GraphScrollableArea::scrollToRecentObjects() {
  endUNIXDate_ = static_cast<std::int64_t>(maximumDate_.timeIntervalSince1970());
  reload();
}

bool GraphScrollableArea::setVisibleRange(Date from, Date to) {
  if (!(to > from)) return false;
  startUNIXDate_ = static_cast<std::int64_t>(std::floor(from.timeIntervalSince1970()));
  endUNIXDate_ = static_cast<std::int64_t>(std::ceil(to.timeIntervalSince1970()));
  zoomRate_ =
      std::max(1L, static_cast<long>(std::round(static_cast<double>(endUNIXDate_ - startUNIXDate_) / kDay)));
  newZoomRate_ = zoomRate_;
  return true;
}

bool GraphScrollableArea::canMoveLeft() const {
  return static_cast<double>(startUNIXDate_) - minimumDate_.timeIntervalSince1970() > kLimitTolerance;
}

bool GraphScrollableArea::canMoveRight() const {
  return maximumDate_.timeIntervalSince1970() - static_cast<double>(endUNIXDate_) > kLimitTolerance;
}

bool GraphScrollableArea::tryMoveLeft() {
  if (!canMoveLeft()) return false;
  const std::int64_t span = endUNIXDate_ - startUNIXDate_;
  const auto minimum = static_cast<std::int64_t>(minimumDate_.timeIntervalSince1970());
  // Near the limit the step is shortened to reach it exactly.
  startUNIXDate_ = std::max(startUNIXDate_ - span, minimum);
  endUNIXDate_ = startUNIXDate_ + span;
  return true;
}

bool GraphScrollableArea::tryMoveRight() {
  if (!canMoveRight()) return false;
  const std::int64_t span = endUNIXDate_ - startUNIXDate_;
  const auto maximum = static_cast<std::int64_t>(maximumDate_.timeIntervalSince1970());
  endUNIXDate_ = std::min(endUNIXDate_ + span, maximum);
  startUNIXDate_ = endUNIXDate_ - span;
  return true;
}

void GraphScrollableArea::pinchChanged(double scale) {
  if (!(scale > 0)) return;
  const double maximum = maximumZoomRate();
  const double minimum = std::min(kMinimumZoomRate, maximum);
  const double proposed = std::trunc(static_cast<double>(zoomRate_) / scale);
  newZoomRate_ = static_cast<long>(std::clamp(proposed, minimum, maximum));
  if (auto delegate = delegate_.lock()) delegate->graphScrollableViewDidChangeZoomRate(*this, newZoomRate_);
}

std::string GraphScrollableArea::zoomText() const {
  return stringWithFormat("%ld days", newZoomRate_);
}

void GraphScrollableArea::pinchEnded() {
  if (newZoomRate_ == zoomRate_) return;
  auto delegate = delegate_.lock();
  if (delegate) delegate->graphScrollableViewDidStartUpdateZoomRate(*this);
  if (setZoomRate(newZoomRate_)) reload();
  if (delegate) delegate->graphScrollableViewDidEndUpdateZoomRate(*this);
}

bool GraphScrollableArea::setZoomRate(long rate) {
  const double maximum = maximumZoomRate();
  const double minimum = std::min(kMinimumZoomRate, maximum);
  if (static_cast<double>(rate) < minimum || static_cast<double>(rate) > maximum) return false;
  zoomRate_ = rate;
  newZoomRate_ = rate;
  return true;
}

int GraphScrollableArea::axisUnitStep(long spanDays) {
  if (spanDays < 91) return 1;
  if (spanDays <= 366) return 2;
  if (spanDays <= 549) return 3;
  return 4;
}

std::vector<GraphAxisLabel> GraphScrollableArea::axisLabels(Canvas& measure, const Font& font,
                                                            double width) const {
  std::vector<GraphAxisLabel> labels;
  const Date start = startDate();
  const Date end = endDate();
  const double span = end.timeIntervalSinceDate(start);
  if (!(span > 0)) return labels;
  const int step = axisUnitStep(static_cast<long>(std::trunc(span / kDay)));
  const Calendar calendar = Calendar::current();

  // The first tick: the start of the unit that holds the start date.
  Date tick = calendar.startOfDay(start);
  CalendarUnit unit = CalendarUnit::kDay;
  DateFormatter formatter;
  switch (step) {
    case 1:
      formatter.setDateFormat("d");  // the day of the month
      break;
    case 2:
      unit = CalendarUnit::kMonth;
      tick = theMonthStart(start);
      formatter.setDateFormat("MMMM");
      break;
    case 3:
      unit = CalendarUnit::kQuarter;
      tick = theQuarterStart(start);
      formatter.setDateFormat("QQQ");
      break;
    default:
      unit = CalendarUnit::kYear;
      tick = theYearStart(start);
      formatter.setDateFormat("YYYY");
      break;
  }
  double previousRight = -1e9;
  for (int i = 0; i < kMaximumAxisTicks && tick <= end; ++i) {
    if (tick >= start) {
      GraphAxisLabel label;
      label.date = tick;
      label.x = width * tick.timeIntervalSinceDate(start) / span;
      const std::string text = formatter.stringFromDate(tick);
      const double left = label.x + 2;
      if (left >= previousRight + kLabelSpacing) {
        label.text = text;
        previousRight = left + measure.textSize(text, font).width;
      }
      labels.push_back(std::move(label));
    }
    const Date next = unit == CalendarUnit::kDay ? nextDay(tick) : addUnit(tick, unit, 1);
    if (!(next > tick)) break;
    tick = next;
  }
  return labels;
}

}  // namespace lumeo
