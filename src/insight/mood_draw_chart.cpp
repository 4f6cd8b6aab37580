// Drawing of the trend, weekly and daily charts. The geometry follows the
// phone's drawing, point for point: the band's shapes reach 100 points out
// of the picture so that their closing edges never show, the grid's
// positions are rounded in single precision, and the cycles fold every
// record onto one period by its distance from an origin.
#include "insight/mood_draw_chart.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "insight/mood_summary_chart_view.h"
#include "insight/spline_fit.h"
#include "platform/date_formatter.h"
#include "platform/string_format.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

std::atomic<bool> gNotEnoughAlltime{false};
std::atomic<bool> gNotEnoughWeekly{false};
std::atomic<bool> gNotEnoughDaily{false};
std::atomic<double> gScreenScale{1.0};

// The trend's margins, single-precision constants widened to double: they
// keep one record, or records at one instant, from a division by zero and
// keep x inside the scale.
constexpr double kTrendOriginMargin = 0.009999999776482582;
constexpr double kTrendSpanMargin = 0.019999999552965164;
// Labels keep this far from the picture's left and right edges.
constexpr double kTrendLabelInset = 4.0;
constexpr int kMaximumTicks = 20000;

// Rounds down to a multiple of `step` in single precision, as the grid does.
double roundDownSingle(double value, double step) {
  const float v = static_cast<float>(value);
  const float s = static_cast<float>(step);
  return static_cast<double>(std::floor(v / s) * s);
}

void drawGrid(Canvas& canvas, double width, double height) {
  for (int i = 1; i <= 10; ++i) {
    canvas.fillRect(Rect{0, chartGridLineY(height, i), width, 0.1}, Color(0, 0, 0, 1));
  }
}

// An image canvas of `size` points at the screen's scale, its drawing
// scaled so that the drawers work in points.
std::optional<Canvas> imageCanvas(Size size, double scale) {
  if (!(size.width > 0) || !(size.height > 0)) return std::nullopt;
  const double w = std::ceil(size.width * scale);
  const double h = std::ceil(size.height * scale);
  if (w > 20000 || h > 20000) return std::nullopt;
  Canvas canvas(static_cast<int>(w), static_cast<int>(h));
  canvas.scale(scale, scale);
  return canvas;
}

}  // namespace

std::vector<ChartRecord> chartRecordsFrom(const std::vector<std::shared_ptr<MoodRecord>>& records) {
  std::vector<ChartRecord> out;
  out.reserve(records.size());
  for (const auto& record : records) {
    if (!record) continue;
    if (auto date = record->date()) out.push_back({*date, record->moodLevel()});
  }
  return out;
}

ChartStyle ChartStyle::current() {
  ChartStyle style;
  auto& op = MoodUserDefaultsOperator::sharedOperator();
  style.increaseWidth = op.graphIncreaseWidth();
  style.chartType = static_cast<long>(op.chartType());
  return style;
}

double chartGridLineY(double height, int i) {
  const float step = static_cast<float>(height) / 10.0f;
  return roundDownSingle(static_cast<double>(step * static_cast<float>(i)), 0.1) - height / 20.0;
}

Date weeklyChartOrigin(Date first, const Calendar& calendar) {
  if (auto week = calendar.rangeOfUnit(CalendarUnit::kWeekOfYear, first)) return week->start;
  return calendar.startOfDay(first);
}

Date dailyChartOrigin(Date first, const Calendar& calendar) {
  DateComponents c = calendar.components(kYearMonthDay | CalendarUnit::kEra, first);
  c.hour = 6;
  return calendar.dateFromComponents(c).value_or(first);
}

std::vector<std::string> weeklyChartLabels(const Calendar& calendar) {
  const std::int64_t days =
      calendar.maximumRangeOfUnit(CalendarUnit::kWeekday).value_or(UnitRange{1, 7}).length;
  const std::vector<std::string> symbols = calendar.shortWeekdaySymbols();
  std::vector<std::string> out;
  for (std::int64_t i = 0; i < days; ++i) {
    const auto index = static_cast<std::size_t>((calendar.firstWeekday() - 1 + i) % days);
    out.push_back(index < symbols.size() ? symbols[index] : std::string());
  }
  return out;
}

std::vector<std::string> dailyChartLabels() {
  std::vector<std::string> out;
  for (int i = 1; i <= 8; ++i)
    out.push_back(stringWithFormat("%02ld:00", static_cast<long>((6 + 3 * i) % 24)));
  return out;
}

Path recordDotsPath(std::vector<Point> centres, double diameter) {
  Path path;
  const double r = diameter / 2;
  std::erase_if(centres, [](const Point& p) { return !std::isfinite(p.x) || !std::isfinite(p.y); });
  std::sort(centres.begin(), centres.end(),
            [](const Point& a, const Point& b) { return a.y < b.y || (a.y == b.y && a.x < b.x); });
  std::size_t i = 0;
  while (i < centres.size()) {
    // A run of centres on one row, each within a radius of the previous.
    std::size_t j = i;
    while (j + 1 < centres.size() && centres[j + 1].y == centres[i].y && centres[j + 1].x - centres[j].x <= r)
      ++j;
    const Point& first = centres[i];
    const Point& last = centres[j];
    if (j == i) {
      path.addEllipseInRect(Rect{first.x - r, first.y - r, diameter, diameter});
    } else {
      // A capsule: the two end discs and the band between them, traced
      // in one direction so that the winding rule joins them.
      path.addEllipseInRect(Rect{first.x - r, first.y - r, diameter, diameter});
      path.addEllipseInRect(Rect{last.x - r, last.y - r, diameter, diameter});
      path.moveTo({first.x, first.y - r});
      path.lineTo({last.x, last.y - r});
      path.lineTo({last.x, last.y + r});
      path.lineTo({first.x, first.y + r});
      path.closePath();
    }
    i = j + 1;
  }
  return path;
}

// --- Trend ticks ---------------------------------------------------------

TrendTickUnit trendTickUnit(Date first, Date last, const Calendar& calendar) {
  // Each difference is taken together with days, so that a unit counts only
  // whole periods.
  const auto years = calendar.componentsFromDate(CalendarUnit::kYear | CalendarUnit::kDay, first, last).year;
  const auto months =
      calendar.componentsFromDate(CalendarUnit::kMonth | CalendarUnit::kDay, first, last).month;
  const auto days = calendar.componentsFromDate(CalendarUnit::kDay, first, last).day;
  const std::int64_t y = years.value_or(0);
  const std::int64_t m = months.value_or(0);
  const std::int64_t d = days.value_or(0);
  const std::int64_t weeks = d / 7;
  if (y > 1) return TrendTickUnit::kYears;
  if (m >= 2) return (m < 7 || y == 0) ? TrendTickUnit::kMonths : TrendTickUnit::kYears;
  if (weeks >= 2) return weeks < 7 ? TrendTickUnit::kWeeks : TrendTickUnit::kMonths;
  return (d <= 0 || d < 7) ? TrendTickUnit::kDays : TrendTickUnit::kWeeks;
}

std::optional<Date> nextTrendTick(Date t, TrendTickUnit unit, const Calendar& calendar) {
  const DateComponents c = calendar.components(kYearMonthDay | CalendarUnit::kWeekday, t);
  if (!c.year || !c.month || !c.day) return std::nullopt;
  DateComponents next;
  next.year = *c.year;
  next.month = *c.month;
  next.day = *c.day;
  // Keep the era, so that a year before the common era counts the right way.
  if (auto era = calendar.components(CalendarUnit::kEra, t).era) next.era = *era;
  switch (unit) {
    case TrendTickUnit::kYears:
      next.year = *c.year + 1;
      next.month = 1;
      next.day = 1;
      break;
    case TrendTickUnit::kMonths:
      next.month = *c.month + 1;
      next.day = 1;
      break;
    case TrendTickUnit::kWeeks: {
      // The next first weekday of the calendar; with Sunday first this is
      // day − weekday + 8.
      const std::int64_t weekday = c.weekday.value_or(1);
      const std::int64_t sinceFirst = ((weekday - calendar.firstWeekday()) % 7 + 7) % 7;
      next.day = *c.day + 7 - sinceFirst;
      break;
    }
    case TrendTickUnit::kDays:
      next.day = *c.day + 1;
      break;
  }
  next.hour = 0;
  next.minute = 0;
  next.second = 0;
  auto date = calendar.dateFromComponents(next);
  if (!date || !(*date > t)) return std::nullopt;
  return date;
}

std::string trendTickLabel(Date tick, TrendTickUnit unit) {
  const Date inside = tick.dateByAddingTimeInterval(-1.0);
  switch (unit) {
    case TrendTickUnit::kYears:
      return DateFormatter("yyyy").stringFromDate(inside);
    case TrendTickUnit::kMonths:
      return DateFormatter("MMM").stringFromDate(inside);
    case TrendTickUnit::kWeeks:
    case TrendTickUnit::kDays:
      break;
  }
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kMedium);
  return formatter.stringFromDate(inside);
}

// --- Flags and scale ------------------------------------------------------

bool MoodDrawChart::notEnoughDataAlltime() {
  return gNotEnoughAlltime.load();
}
bool MoodDrawChart::notEnoughDataWeekly() {
  return gNotEnoughWeekly.load();
}
bool MoodDrawChart::notEnoughDataDaily() {
  return gNotEnoughDaily.load();
}
void MoodDrawChart::resetFlags() {
  gNotEnoughAlltime = false;
  gNotEnoughWeekly = false;
  gNotEnoughDaily = false;
}
double MoodDrawChart::screenScale() {
  return gScreenScale.load();
}
void MoodDrawChart::setScreenScale(double scale) {
  gScreenScale = (scale > 0 && scale <= 8) ? scale : 1.0;
}

Color MoodDrawChart::labelColor() {
  return Color(0.7803921699523926, 0.7921568751335144, 0.615686297416687, 1);
}

Font MoodDrawChart::labelFont() {
  Font font;
  font.pointSize = 13;
  return font;
}

// --- The plot routine -------------------------------------------------------

long MoodDrawChart::plot(Canvas& canvas, const std::vector<ChartRecord>& records, Date origin, bool wrap,
                         double width, double height, double span, bool increaseWidth) {
  if (records.empty()) return 0;
  const double W = width;
  const double H = height;
  std::vector<double> xs;
  std::vector<double> ys;
  xs.reserve(records.size());
  ys.reserve(records.size());
  for (const ChartRecord& record : records) {
    double p = record.date.timeIntervalSinceDate(origin) / span;
    if (wrap) {
      p = std::fmod(p, 1.0);
      if (p < 0) p += 1.0;
    }
    xs.push_back(10.0 * p);
    ys.push_back((static_cast<double>(record.moodLevel) - 0.5) / 10.0);
  }
  const long n = wrap ? 10 : 14;
  const SplineBand band = splineBand(static_cast<long>(xs.size()), xs.data(), ys.data(), n);

  const double edgeWidth = increaseWidth ? 0.4 : 0.2;
  const double curveWidth = increaseWidth ? 2.0 : 1.0;

  Path upper;
  Path lower;
  Path curve;
  upper.moveTo({-100, H + 100});
  lower.moveTo({-100, -100});
  for (int k = 0; k < kSplineGridPoints; ++k) {
    const double x = W / 10.0 * band.x[k];
    upper.lineTo({x, H * (band.curve[k] + band.halfWidth[k])});
    lower.lineTo({x, H * (band.curve[k] - band.halfWidth[k])});
    if (k == 0) {
      curve.moveTo({0, H * band.curve[0]});
    } else {
      curve.lineTo({x, H * band.curve[k]});
    }
  }
  upper.lineTo({W + 100, H + 100});
  upper.closePath();
  lower.lineTo({W + 100, -100});
  lower.closePath();

  const Color white(1, 1, 1, 1);
  const Color shade(0, 0, 0, 0.05);
  canvas.saveState();
  // y up from the bottom edge, so that better moods lie higher.
  canvas.translate(0, H);
  canvas.scale(1, -1);
  canvas.fillPath(upper, shade);
  canvas.fillPath(lower, shade);
  canvas.strokePath(upper, white, edgeWidth, LineJoin::kRound);
  canvas.strokePath(lower, white, edgeWidth, LineJoin::kRound);
  canvas.strokePath(curve, white, curveWidth, LineJoin::kRound);
  std::vector<Point> centres;
  centres.reserve(xs.size());
  for (std::size_t i = 0; i < xs.size(); ++i) centres.push_back({W / 10.0 * xs[i], H * ys[i]});
  canvas.fillPath(recordDotsPath(std::move(centres), 2.0), white);
  canvas.restoreState();

  drawGrid(canvas, W, H);
  return band.count;
}

// --- The three charts -------------------------------------------------------

long MoodDrawChart::drawWeeklyChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size,
                                    bool pdf, const ChartStyle& style) {
  if (records.empty()) return 0;
  const double W = size.width;
  const double H = size.height;
  const Calendar calendar = Calendar::current();
  const Date origin = weeklyChartOrigin(records.front().date, calendar);
  const std::int64_t days =
      calendar.maximumRangeOfUnit(CalendarUnit::kWeekday).value_or(UnitRange{1, 7}).length;
  const double span = 86400.0 * static_cast<double>(days);

  const std::vector<std::string> labels = weeklyChartLabels(calendar);
  const double columnWidth = W / static_cast<double>(days);
  const double lineWidth = pdf ? 0.2 : 0.1;
  for (std::int64_t i = 0; i < days; ++i) {
    canvas.drawTextInRect(labels[static_cast<std::size_t>(i)],
                          Rect{columnWidth * static_cast<double>(i), H - 20, columnWidth, 20}, labelFont(),
                          labelColor());
    if (i > 0) {
      const double x = roundDownSingle(columnWidth * static_cast<double>(i), 0.1);
      canvas.fillRect(Rect{x, 0, lineWidth, H}, Color(0, 0, 0, 1));
    }
  }
  drawGrid(canvas, W, H);
  const long count = plot(canvas, records, origin, true, W, H, span, style.increaseWidth);
  gNotEnoughWeekly = count < 4;
  return count;
}

long MoodDrawChart::drawDailyChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size,
                                   bool pdf, const ChartStyle& style) {
  if (records.empty()) return 0;
  const double W = size.width;
  const double H = size.height;
  const Calendar calendar = Calendar::current();
  // The chart's day begins at 06:00 of the first record's day.
  const Date origin = dailyChartOrigin(records.front().date, calendar);
  const std::vector<std::string> labels = dailyChartLabels();

  const double columnWidth = W / 8.0;
  const double lineWidth = pdf ? 0.2 : 0.1;
  for (int i = 1; i <= 8; ++i) {
    const std::string& label = labels[static_cast<std::size_t>(i - 1)];
    canvas.saveState();
    canvas.translate(columnWidth * i, H);
    canvas.rotate(-M_PI / 2);
    canvas.drawText(label, Point{5.0, -15.0}, labelFont(), labelColor());
    canvas.restoreState();
    if (i < 8) {
      const double x = roundDownSingle(columnWidth * i, lineWidth);
      canvas.fillRect(Rect{x, 0, lineWidth, H}, Color(0, 0, 0, 1));
    }
  }
  drawGrid(canvas, W, H);
  const long count = plot(canvas, records, origin, true, W, H, 86400.0, style.increaseWidth);
  gNotEnoughDaily = count < 4;
  return count;
}

long MoodDrawChart::drawAlltimeChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size,
                                     const ChartStyle& style) {
  if (records.empty()) return 0;
  const double W = size.width;
  const double H = size.height;
  const Date first = records.front().date;
  const Date last = records.back().date;
  const double span0 = last.timeIntervalSinceDate(first);
  const double span = span0 + kTrendSpanMargin;
  const Calendar calendar = Calendar::current();

  // The period's title sits at the centre of the bottom edge; labels that
  // would run into it or into the previous label are left out.
  const Font font = labelFont();
  const Color color = labelColor();
  const std::string title = MoodSummaryChartView::summaryType(style.chartType).value_or("");
  const Size titleSize = canvas.textSize(title, font);
  const Rect titleRect{(W - titleSize.width) / 2, H - 20, titleSize.width, 20};
  if (!title.empty()) canvas.drawTextInRect(title, titleRect, font, color);

  auto overlapWidth = [](const Rect& a, const Rect& b) {
    const double left = std::max(a.x, b.x);
    const double right = std::min(a.x + a.width, b.x + b.width);
    const double top = std::max(a.y, b.y);
    const double bottom = std::min(a.y + a.height, b.y + b.height);
    if (right <= left || bottom <= top) return 0.0;
    return right - left;
  };

  const TrendTickUnit unit = trendTickUnit(first, last, calendar);
  std::optional<Rect> previous;
  double previousX = 0;
  Date t = first;
  for (int ticks = 0; ticks < kMaximumTicks; ++ticks) {
    auto tick = nextTrendTick(t, unit, calendar);
    if (!tick || *tick > last) break;
    t = *tick;
    const double x = W * tick->timeIntervalSinceDate(first) / span;
    canvas.fillRect(Rect{x, 0, 0.1, H}, Color(0, 0, 0, 1));
    // The label names the period ending at this tick: centred between the
    // previous tick (or the left edge) and this one, and kept a little
    // inside the picture, so that a first tick near the left edge does not
    // cut it.
    const std::string label = trendTickLabel(*tick, unit);
    const Size labelSize = canvas.textSize(label, font);
    const double labelX = std::max(kTrendLabelInset, std::min((previousX + x - labelSize.width) / 2,
                                                              W - kTrendLabelInset - labelSize.width));
    const Rect labelRect{labelX, H - 20, labelSize.width, 20};
    previousX = x;
    if (title.empty() ? false : overlapWidth(labelRect, titleRect) > 2.0) continue;
    if (previous && overlapWidth(labelRect, *previous) > 2.0) continue;
    canvas.drawTextInRect(label, labelRect, font, color);
    previous = labelRect;
  }

  drawGrid(canvas, W, H);
  const Date origin = first.dateByAddingTimeInterval(-kTrendOriginMargin);
  const long count = plot(canvas, records, origin, false, W, H, span, style.increaseWidth);
  gNotEnoughAlltime = count < 4;
  return count;
}

// --- Images -----------------------------------------------------------------

std::optional<Image> MoodDrawChart::drawChartImage(ChartKind kind, const std::vector<ChartRecord>& records,
                                                   Size ofSize, bool pdf, const ChartStyle& style,
                                                   double scale) {
  if (records.empty()) return std::nullopt;
  auto canvas = imageCanvas(ofSize, scale);
  if (!canvas) return std::nullopt;
  switch (kind) {
    case ChartKind::kTrend:
      drawAlltimeChart(*canvas, records, ofSize, style);
      break;
    case ChartKind::kWeekly:
      drawWeeklyChart(*canvas, records, ofSize, pdf, style);
      break;
    case ChartKind::kDaily:
      drawDailyChart(*canvas, records, ofSize, pdf, style);
      break;
  }
  return canvas->image();
}

std::optional<Image> MoodDrawChart::drawAlltimeChartImageForRecords(const std::vector<ChartRecord>& records,
                                                                    Size ofSize) {
  return drawChartImage(ChartKind::kTrend, records, ofSize, false, ChartStyle::current(), screenScale());
}

std::optional<Image> MoodDrawChart::drawWeeklyChartImageForRecords(const std::vector<ChartRecord>& records,
                                                                   Size ofSize, bool pdf) {
  return drawChartImage(ChartKind::kWeekly, records, ofSize, pdf, ChartStyle::current(), screenScale());
}

std::optional<Image> MoodDrawChart::drawDailyChartImageForRecords(const std::vector<ChartRecord>& records,
                                                                  Size ofSize, bool pdf) {
  return drawChartImage(ChartKind::kDaily, records, ofSize, pdf, ChartStyle::current(), screenScale());
}

std::optional<Image> MoodDrawChart::drawAlltimeChartImageForRecords(
    const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize) {
  return drawAlltimeChartImageForRecords(chartRecordsFrom(records), ofSize);
}
std::optional<Image> MoodDrawChart::drawWeeklyChartImageForRecords(
    const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize, bool pdf) {
  return drawWeeklyChartImageForRecords(chartRecordsFrom(records), ofSize, pdf);
}
std::optional<Image> MoodDrawChart::drawDailyChartImageForRecords(
    const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize, bool pdf) {
  return drawDailyChartImageForRecords(chartRecordsFrom(records), ofSize, pdf);
}

}  // namespace lumeo
