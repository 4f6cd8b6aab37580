// The three pictures of the summary: the mood trend over the whole range,
// the weekly cycle (every record folded onto one week) and the daily cycle
// (folded onto one day), each a fitted curve with its spread band, the
// records as white dots and a level grid, on a transparent background. The
// summary screen, `lumeo summary --charts` and the PDF report draw them
// through here, so all show the same pixels.
//
// Each drawer also sets a process-wide "not enough data" flag: a fit that
// keeps fewer than four singular values is too thin to be worth showing, and
// the card then shows its not-enough-data layer instead of the picture. An
// empty record list draws nothing and leaves the flag as it was. Main thread
// only: the flags and the solver under the fit are shared by the process.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/calendar.h"
#include "platform/canvas.h"
#include "platform/date.h"
#include "platform/image.h"

namespace lumeo {

class MoodRecord;

// What a chart reads of a record. Records are expected in ascending date
// order (the trend takes the first and the last as its range).
struct ChartRecord {
  Date date;
  long moodLevel = 0;
  friend bool operator==(const ChartRecord&, const ChartRecord&) = default;
};

// Records without a date are left out.
std::vector<ChartRecord> chartRecordsFrom(const std::vector<std::shared_ptr<MoodRecord>>& records);

// The settings a chart depends on, read from the user's defaults by
// current(): the line-width switch and the summary period, whose title the
// trend chart writes under its axis.
struct ChartStyle {
  bool increaseWidth = false;
  long chartType = 0;
  static ChartStyle current();
};

// The trend chart's tick unit and ticks, exposed for the tests and for the
// front ends that label their own axes.
enum class TrendTickUnit { kDays, kWeeks, kMonths, kYears };
TrendTickUnit trendTickUnit(Date first, Date last, const Calendar& calendar);
// The first tick after `t`: the next 1 January, first of the month, first
// weekday of the calendar or midnight. nullopt where the calendar cannot
// reach (far outside its range).
std::optional<Date> nextTrendTick(Date t, TrendTickUnit unit, const Calendar& calendar);
// The label of a tick: the period that ends there ("2026", "Nov", a medium
// date), in the user's locale.
std::string trendTickLabel(Date tick, TrendTickUnit unit);

// The cycles' origins: midnight at the start of the first record's week
// (by the calendar's first weekday), and 06:00 of its day.
Date weeklyChartOrigin(Date first, const Calendar& calendar);
Date dailyChartOrigin(Date first, const Calendar& calendar);
// The weekly chart's column labels, first weekday first, and the daily
// chart's hour labels, "09:00" to "06:00".
std::vector<std::string> weeklyChartLabels(const Calendar& calendar);
std::vector<std::string> dailyChartLabels();

// The records' dots, discs of `diameter` around `centres`, as one figure.
// Dots on one row closer than half a diameter merge into a capsule (what
// their union looks like up to a few hundredths of a point), so that a
// journal of 100,000 records draws a few hundred shapes, not 100,000
// overlapping circles.
Path recordDotsPath(std::vector<Point> centres, double diameter);

// The y of the i-th grid line (1..10) for a chart of height H: (H/10)·i
// rounded down to a tenth in single precision, less H/20.
double chartGridLineY(double height, int i);

// The three charts, in the summary's page order.
enum class ChartKind { kTrend = 0, kWeekly = 1, kDaily = 2 };

class MoodDrawChart {
 public:
  // Any of the three at `scale` pixels a point with an explicit style; the
  // image drawers below are this with the user's style and screenScale().
  static std::optional<Image> drawChartImage(ChartKind kind, const std::vector<ChartRecord>& records,
                                             Size ofSize, bool pdf, const ChartStyle& style, double scale);

  // Each image is `ofSize` points at screenScale() pixels a point; nothing
  // for an empty record list.
  static std::optional<Image> drawAlltimeChartImageForRecords(const std::vector<ChartRecord>& records,
                                                              Size ofSize);
  static std::optional<Image> drawWeeklyChartImageForRecords(const std::vector<ChartRecord>& records,
                                                             Size ofSize, bool pdf);
  static std::optional<Image> drawDailyChartImageForRecords(const std::vector<ChartRecord>& records,
                                                            Size ofSize, bool pdf);
  static std::optional<Image> drawAlltimeChartImageForRecords(
      const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize);
  static std::optional<Image> drawWeeklyChartImageForRecords(
      const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize, bool pdf);
  static std::optional<Image> drawDailyChartImageForRecords(
      const std::vector<std::shared_ptr<MoodRecord>>& records, Size ofSize, bool pdf);

  // The same drawings onto a canvas the caller owns (a report page), in a
  // box of `size` at the canvas's current origin. Return the number of
  // singular values the curve's fit kept (0 for no records) and set the flag
  // as the image drawers do.
  static long drawAlltimeChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size,
                               const ChartStyle& style);
  static long drawWeeklyChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size, bool pdf,
                              const ChartStyle& style);
  static long drawDailyChart(Canvas& canvas, const std::vector<ChartRecord>& records, Size size, bool pdf,
                             const ChartStyle& style);

  static bool notEnoughDataAlltime();
  static bool notEnoughDataWeekly();
  static bool notEnoughDataDaily();
  // Back to the start state (all false); for tests.
  static void resetFlags();

  // Pixels a point of the images; 1 until a front end sets its screen's.
  static double screenScale();
  static void setScreenScale(double scale);

  // The shared plot routine: the curve, its band, the dots and the level
  // grid, for records placed by `origin` and `span` seconds, folded onto
  // the span when `wrap`. Returns the count of kept singular values.
  static long plot(Canvas& canvas, const std::vector<ChartRecord>& records, Date origin, bool wrap,
                   double width, double height, double span, bool increaseWidth);

  // The text colour of the axis labels.
  static Color labelColor();
  static Font labelFont();
};

}  // namespace lumeo
