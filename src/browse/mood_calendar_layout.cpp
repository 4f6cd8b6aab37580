// Month indices, day placement, the frames of all months, visibility,
// paging and the recycling of views.
#include "browse/mood_calendar_layout.h"

#include <algorithm>

namespace lumeo {

namespace {

long floorDiv(long a, long b) {
  long q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
long daysFromCivil(long y, long m, long d) {
  y -= m <= 2;
  long era = floorDiv(y, 400);
  long yoe = y - era * 400;
  long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

bool isLeapYear(long y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

}  // namespace

long monthIndexFrom1970(long year, long month) {
  return year * 12 + month - 23641;
}

std::pair<long, long> yearMonthForMonthIndex(long index) {
  return {1970 + floorDiv(index, 12), index - floorDiv(index, 12) * 12 + 1};
}

MoodCalendarMonthFacts monthFacts(long year, long month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  MoodCalendarMonthFacts facts;
  long m = std::clamp(month, 1L, 12L);
  facts.days = kDays[m - 1] + (m == 2 && isLeapYear(year) ? 1 : 0);
  long days = daysFromCivil(year, m, 1);
  // 1 January 1970 was a Thursday (5).
  facts.firstWeekday = static_cast<int>(((days + 4) % 7 + 7) % 7) + 1;
  return facts;
}

MoodDayPlacement placementOfDay(int weekdayOfFirst, int calendarFirstWeekday, long d) {
  long a = calendarFirstWeekday == 2 ? weekdayOfFirst - 1 : weekdayOfFirst;
  long o = a - 1;
  // Truncated toward zero on purpose: see the header.
  MoodDayPlacement p{(o + d) % 7, (o + d) / 7};
  if (a == 0 && d != 0) p.row += 1;
  return p;
}

long rowsOfMonth(int weekdayOfFirst, int calendarFirstWeekday, int days) {
  long rows = 0;
  for (long d = 0; d < days; ++d)
    rows = std::max(rows, placementOfDay(weekdayOfFirst, calendarFirstWeekday, d).row + 1);
  return rows;
}

// --- Layout --------------------------------------------------------------------------------

MoodCalendarLayout MoodCalendarLayout::build(long currentMonthIndex, int calendarFirstWeekday,
                                             const MoodCalendarMetrics& metrics, double viewportHeight) {
  MoodCalendarLayout layout;
  layout.metrics_ = metrics;
  layout.viewportHeight_ = viewportHeight;
  long count = std::max(0L, currentMonthIndex + 1);
  layout.monthFrames_.reserve(static_cast<std::size_t>(count));
  layout.headerFrames_.reserve(static_cast<std::size_t>(count));
  double y = 0;
  for (long index = 0; index < count; ++index) {
    auto [year, month] = yearMonthForMonthIndex(index);
    MoodCalendarMonthFacts facts = monthFacts(year, month);
    layout.headerFrames_.push_back({0, y, metrics.width, metrics.headerHeight});
    y += metrics.headerHeight;
    double height = metrics.heightForRows(rowsOfMonth(facts.firstWeekday, calendarFirstWeekday, facts.days));
    layout.monthFrames_.push_back({0, y, metrics.width, height});
    y += height;
  }
  layout.contentHeight_ = y + viewportHeight;
  return layout;
}

std::vector<long> MoodCalendarLayout::visible(const std::vector<Rect>& frames, double offset, double height) {
  std::vector<long> out;
  const double top = offset, bottom = offset + height;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const Rect& f = frames[i];
    bool meets = f.y < bottom && f.y + f.height > top;
    if (meets) {
      out.push_back(static_cast<long>(i));
    } else if (!out.empty()) {
      break;
    }
  }
  return out;
}

std::vector<long> MoodCalendarLayout::visibleMonths(double offset, double height) const {
  return visible(monthFrames_, offset, height);
}

std::vector<long> MoodCalendarLayout::visibleHeaders(double offset, double height) const {
  return visible(headerFrames_, offset, height);
}

long MoodCalendarLayout::monthWithGreatestVisibleHeight(double offset, double height) const {
  long best = -1;
  double bestHeight = 0;
  for (long index : visibleMonths(offset, height)) {
    const Rect& f = monthFrame(index);
    double shown = std::min(f.y + f.height, offset + height) - std::max(f.y, offset);
    if (shown > bestHeight) {
      bestHeight = shown;
      best = index;
    }
  }
  return best;
}

double MoodCalendarLayout::offsetForMonth(long index) const {
  if (headerFrames_.empty()) return 0;
  index = std::clamp(index, 0L, monthCount() - 1);
  return headerFrame(index).y;
}

void MoodCalendarLayout::shiftBelowHeader(long index, double delta) {
  if (index < 0 || index >= monthCount() || delta == 0) return;
  headerFrames_[static_cast<std::size_t>(index)].height += delta;
  monthFrames_[static_cast<std::size_t>(index)].y += delta;
  for (std::size_t i = static_cast<std::size_t>(index) + 1; i < monthFrames_.size(); ++i) {
    headerFrames_[i].y += delta;
    monthFrames_[i].y += delta;
  }
  contentHeight_ += delta;
}

// --- Recycling -------------------------------------------------------------------------------

MoodCalendarRecycler::Counts MoodCalendarRecycler::update(const std::vector<long>& visible,
                                                          std::vector<std::pair<long, long>>* assigned) {
  Counts counts;
  for (auto it = inUse_.begin(); it != inUse_.end();) {
    if (std::find(visible.begin(), visible.end(), it->first) == visible.end()) {
      free_.push_back(it->second);
      ++counts.returned;
      it = inUse_.erase(it);
    } else {
      ++it;
    }
  }
  for (long index : visible) {
    if (inUse_.count(index)) continue;
    long view;
    if (!free_.empty()) {
      view = free_.back();
      free_.pop_back();
      ++counts.reused;
    } else {
      view = made_++;
      ++counts.made;
    }
    inUse_[index] = view;
    if (assigned) assigned->emplace_back(index, view);
  }
  return counts;
}

}  // namespace lumeo
