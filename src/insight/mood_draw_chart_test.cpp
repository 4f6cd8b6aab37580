// The charts: the trend's tick units and ticks, the cycles' origins and
// labels under different calendars, the not-enough-data flags, and the
// pictures themselves, both against checked-in goldens and by facts that
// hold whatever the golden says (the band is lighter than what lies outside
// it, a record is a white dot, grid lines lie between the level bands).
#include "insight/mood_draw_chart.h"

#include <gtest/gtest.h>

#include "insight/chart_test_support.h"
#include "insight/mood_summary_chart_view.h"
#include "insight/spline_fit.h"
#include "insight/summary_test_support.h"
#include "platform/time_zone.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::brightness;
using testing::fixedJournal;

Calendar utcCalendar(int firstWeekday) {
  Calendar calendar("en_US", TimeZone::gmt());
  calendar.setFirstWeekday(firstWeekday);
  return calendar;
}

// "yyyy-mm-ddThh:mm" in UTC.
Date utc(const char* iso) {
  int y, mo, d, h = 0, mi = 0;
  std::sscanf(iso, "%d-%d-%dT%d:%d", &y, &mo, &d, &h, &mi);
  return testing::utcDate(y, mo, d, h, mi);
}

class ChartEnvironment : public ::testing::Test {
 protected:
  testing::ScopedEnvironment env_{
      {"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}, {"LUMEO_FIRST_WEEKDAY", "1"}};
  void SetUp() override { MoodDrawChart::resetFlags(); }
};

TEST(TrendTicks, UnitTableAtItsBoundaries) {
  const Calendar c = utcCalendar(1);
  const Date jan1 = utc("2026-01-01");
  // Days up to 6, weeks from 7 days; 13 days are still one week, so weeks.
  EXPECT_EQ(trendTickUnit(jan1, jan1, c), TrendTickUnit::kDays);
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-01-07"), c), TrendTickUnit::kDays);
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-01-08"), c), TrendTickUnit::kWeeks);
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-01-14"), c), TrendTickUnit::kWeeks);
  // 6 weeks (42 days, one month) keep weeks; 7 weeks switch to months.
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-02-12"), c), TrendTickUnit::kWeeks);
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-02-19"), c), TrendTickUnit::kMonths);
  // Two months and more within the year: months.
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-03-01"), c), TrendTickUnit::kMonths);
  EXPECT_EQ(trendTickUnit(jan1, utc("2026-12-31"), c), TrendTickUnit::kMonths);
  // Exactly one year: 12 months with a year counted, so years; two years too.
  EXPECT_EQ(trendTickUnit(utc("2024-03-01"), utc("2025-03-01"), c), TrendTickUnit::kYears);
  EXPECT_EQ(trendTickUnit(utc("2024-03-01"), utc("2026-03-01"), c), TrendTickUnit::kYears);
  // One day short of a year: 11 months, no year.
  EXPECT_EQ(trendTickUnit(utc("2024-03-01"), utc("2025-02-28"), c), TrendTickUnit::kMonths);
}

TEST(TrendTicks, NextTickIsMidnightOfTheNextPeriod) {
  const Calendar sunday = utcCalendar(1);
  const Calendar monday = utcCalendar(2);
  const Date wednesday = utc("2026-11-18T15:30");
  EXPECT_EQ(*nextTrendTick(wednesday, TrendTickUnit::kDays, sunday), utc("2026-11-19"));
  EXPECT_EQ(*nextTrendTick(wednesday, TrendTickUnit::kWeeks, sunday), utc("2026-11-22"));
  EXPECT_EQ(*nextTrendTick(wednesday, TrendTickUnit::kWeeks, monday), utc("2026-11-23"));
  // From the first weekday itself, a whole week on.
  EXPECT_EQ(*nextTrendTick(utc("2026-11-22"), TrendTickUnit::kWeeks, sunday), utc("2026-11-29"));
  EXPECT_EQ(*nextTrendTick(wednesday, TrendTickUnit::kMonths, sunday), utc("2026-12-01"));
  EXPECT_EQ(*nextTrendTick(utc("2026-12-31T23:59"), TrendTickUnit::kMonths, sunday), utc("2027-01-01"));
  EXPECT_EQ(*nextTrendTick(wednesday, TrendTickUnit::kYears, sunday), utc("2027-01-01"));
  // Before 1970 as well.
  EXPECT_EQ(*nextTrendTick(utc("1950-06-15"), TrendTickUnit::kYears, sunday), utc("1951-01-01"));
}

TEST_F(ChartEnvironment, TickLabelsNameThePeriodThatEnds) {
  EXPECT_EQ(trendTickLabel(utc("2026-01-01"), TrendTickUnit::kYears), "2025");
  EXPECT_EQ(trendTickLabel(utc("2026-03-01"), TrendTickUnit::kMonths), "Feb");
  EXPECT_EQ(trendTickLabel(utc("2026-03-01"), TrendTickUnit::kDays), "Feb 28, 2026");
}

TEST(CycleCharts, WeeklyOriginFollowsTheFirstWeekday) {
  const Date thursday = utc("2026-11-19T15:00");
  EXPECT_EQ(weeklyChartOrigin(thursday, utcCalendar(1)), utc("2026-11-15"));  // Sunday
  EXPECT_EQ(weeklyChartOrigin(thursday, utcCalendar(2)), utc("2026-11-16"));  // Monday
  // A Sunday record under Monday-first belongs to the week that began on
  // the Monday before.
  EXPECT_EQ(weeklyChartOrigin(utc("2026-11-22T10:00"), utcCalendar(2)), utc("2026-11-16"));
  // Across the turn of a year.
  EXPECT_EQ(weeklyChartOrigin(utc("2027-01-01T12:00"), utcCalendar(2)), utc("2026-12-28"));

  const auto sundayFirst = weeklyChartLabels(utcCalendar(1));
  const auto mondayFirst = weeklyChartLabels(utcCalendar(2));
  ASSERT_EQ(sundayFirst.size(), 7u);
  EXPECT_EQ(sundayFirst.front(), "Sun");
  EXPECT_EQ(sundayFirst.back(), "Sat");
  EXPECT_EQ(mondayFirst.front(), "Mon");
  EXPECT_EQ(mondayFirst.back(), "Sun");
  // Names come from the locale.
  Calendar german("de_DE", TimeZone::gmt());
  EXPECT_EQ(weeklyChartLabels(german).front(), "Mo.");
}

TEST(CycleCharts, DailyChartStartsAtSixInTheMorning) {
  const Calendar c = utcCalendar(1);
  EXPECT_EQ(dailyChartOrigin(utc("2026-11-19T15:00"), c), utc("2026-11-19T06:00"));
  // Before six the origin is still that day's 06:00: the record lies at the
  // right end of the folded day, one at 06:00 at the left.
  EXPECT_EQ(dailyChartOrigin(utc("2026-11-19T05:59"), c), utc("2026-11-19T06:00"));
  EXPECT_EQ(dailyChartLabels(), (std::vector<std::string>{"09:00", "12:00", "15:00", "18:00", "21:00",
                                                          "00:00", "03:00", "06:00"}));
}

TEST(ChartGrid, LinesAreRoundedToTenthsInSinglePrecision) {
  EXPECT_NEAR(chartGridLineY(200, 1), 20.0 - 10.0, 1e-6);
  EXPECT_NEAR(chartGridLineY(200, 10), 200.0 - 10.0, 1e-6);
  // 333/10·3 = 99.9 in float is 99.89999...; it rounds down to 99.8.
  EXPECT_NEAR(chartGridLineY(333, 3), 99.8 - 16.65, 1e-4);
}

TEST_F(ChartEnvironment, EmptyListDrawsNothingAndKeepsTheFlag) {
  const std::vector<ChartRecord> three = {
      {utc("2026-11-01T10:00"), 5}, {utc("2026-11-02T12:00"), 7}, {utc("2026-11-03T18:00"), 3}};
  ASSERT_TRUE(MoodDrawChart::drawAlltimeChartImageForRecords(three, {300, 200}));
  ASSERT_TRUE(MoodDrawChart::drawWeeklyChartImageForRecords(three, {300, 200}, false));
  // Three records keep fewer than four singular values.
  EXPECT_TRUE(MoodDrawChart::notEnoughDataAlltime());
  EXPECT_TRUE(MoodDrawChart::notEnoughDataWeekly());
  EXPECT_FALSE(MoodDrawChart::notEnoughDataDaily());  // not drawn yet

  EXPECT_FALSE(MoodDrawChart::drawAlltimeChartImageForRecords(std::vector<ChartRecord>{}, {300, 200}));
  EXPECT_FALSE(MoodDrawChart::drawDailyChartImageForRecords(std::vector<ChartRecord>{}, {300, 200}, false));
  EXPECT_TRUE(MoodDrawChart::notEnoughDataAlltime());  // stale, as accepted
  EXPECT_FALSE(MoodDrawChart::notEnoughDataDaily());

  const auto journal = fixedJournal();
  ASSERT_TRUE(MoodDrawChart::drawAlltimeChartImageForRecords(journal, {300, 200}));
  EXPECT_FALSE(MoodDrawChart::notEnoughDataAlltime());
}

TEST_F(ChartEnvironment, DegenerateJournalsGiveAPictureAndNoCrash) {
  const Date t = utc("2026-11-01T10:00");
  const std::vector<std::vector<ChartRecord>> cases = {
      {{t, 6}},                                                        // one record
      {{t, 2}, {t, 9}, {t, 5}},                                        // all at one instant
      {{utc("1931-05-01T08:00"), 4}, {utc("1969-12-31T23:00"), 6}},    // before 1970
      {{t, 5}, {Date::fromTimeIntervalSince1970(253402300799.0), 8}},  // year 9999
  };
  for (const auto& records : cases) {
    for (ChartKind kind : {ChartKind::kTrend, ChartKind::kWeekly, ChartKind::kDaily}) {
      auto image = MoodDrawChart::drawChartImage(kind, records, {300, 200}, false, {}, 1);
      ASSERT_TRUE(image);
      EXPECT_EQ(image->width(), 300);
    }
    EXPECT_TRUE(MoodDrawChart::notEnoughDataAlltime());
  }
  // A zero or absurd size gives no picture rather than a huge allocation.
  EXPECT_FALSE(MoodDrawChart::drawChartImage(ChartKind::kTrend, cases[0], {0, 200}, false, {}, 1));
  EXPECT_FALSE(MoodDrawChart::drawChartImage(ChartKind::kTrend, cases[0], {1e7, 200}, false, {}, 1));
}

// A journal that starts just before a tick puts the first label's centre
// near the left edge; the label moves right rather than being cut there.
TEST_F(ChartEnvironment, TrendLabelNearTheLeftEdgeStaysWhole) {
  std::vector<ChartRecord> records;
  for (int day = 0; day <= 41; ++day) {
    // Levels 4 to 8 only: no white dot of a record reaches the label band.
    records.push_back({utc("2026-10-10T12:00").dateByAddingTimeInterval(day * 86400.0), 4 + day % 5});
  }
  const double W = 300, H = 200;
  auto image = MoodDrawChart::drawChartImage(ChartKind::kTrend, records, {W, H}, false, {}, 1);
  ASSERT_TRUE(image);
  auto isText = [](const Color& c) {
    return c.alpha > 0.5 && c.red > 0.55 && c.green > 0.55 && c.blue > 0.35;
  };
  int textAtEdge = 0, textInBand = 0;
  for (int y = static_cast<int>(H) - 20; y < static_cast<int>(H); ++y) {
    for (int x = 0; x < static_cast<int>(W); ++x) {
      if (!isText(image->pixelAt(x, y))) continue;
      ++textInBand;
      if (x < 2) ++textAtEdge;
    }
  }
  EXPECT_GT(textInBand, 50) << "the labels are drawn";
  EXPECT_EQ(textAtEdge, 0) << "a label runs into the left edge";
}

// --- Pictures ---------------------------------------------------------------

Image cardImage(ChartKind kind, const std::vector<ChartRecord>& records, Size size, bool pdf = false) {
  ChartStyle style;
  style.chartType = 0;
  auto chart = MoodDrawChart::drawChartImage(kind, records, size, pdf, style, 1);
  Canvas canvas(static_cast<int>(size.width), static_cast<int>(size.height));
  MoodSummaryChartView::drawBackground(canvas, {0, 0, size.width, size.height}, {});
  canvas.drawImage(*chart, {0, 0, size.width, size.height});
  return canvas.image();
}

TEST_F(ChartEnvironment, ChartsMatchTheirGoldens) {
  const auto journal = fixedJournal();
  testing::expectMatchesGolden(cardImage(ChartKind::kTrend, journal, {400, 240}), "trend.png");
  testing::expectMatchesGolden(cardImage(ChartKind::kWeekly, journal, {400, 240}), "weekly.png");
  testing::expectMatchesGolden(cardImage(ChartKind::kDaily, journal, {400, 240}), "daily.png");
  testing::expectMatchesGolden(cardImage(ChartKind::kWeekly, journal, {400, 240}, true), "weekly_pdf.png");
}

// The band and dots of the weekly chart at 3 pixels a point, checked
// against the fit computed here from the same samples.
TEST_F(ChartEnvironment, BandIsLighterThanOutsideAndRecordsAreWhiteDots) {
  const auto journal = fixedJournal();
  const double W = 300, H = 200, scale = 3;
  ChartStyle style;
  auto image = MoodDrawChart::drawChartImage(ChartKind::kWeekly, journal, {W, H}, false, style, scale);
  ASSERT_TRUE(image);
  const Calendar calendar = Calendar::current();
  const Date origin = weeklyChartOrigin(journal.front().date, calendar);
  std::vector<double> xs, ys;
  for (const auto& r : journal) {
    double p = std::fmod(r.date.timeIntervalSinceDate(origin) / 604800.0, 1.0);
    if (p < 0) p += 1;
    xs.push_back(10 * p);
    ys.push_back((r.moodLevel - 0.5) / 10);
  }
  const SplineBand band = splineBand(static_cast<long>(xs.size()), xs.data(), ys.data(), 10);
  auto pixel = [&](double x, double yUp) {
    return image->pixelAt(static_cast<int>(x * scale), static_cast<int>((H - yUp) * scale));
  };
  int checked = 0;
  for (int k = 10; k < 90; k += 7) {
    const double x = W / 10 * band.x[k];
    const double inside = H * (band.curve[k] + 0.5 * band.halfWidth[k]);
    const double outside = H * (band.curve[k] + band.halfWidth[k] + 0.04);
    // Stay off the grid lines and off the dots' rows (levels sit on lines).
    auto offGrid = [&](double yUp) {
      const double y = H - yUp;
      for (int i = 1; i <= 10; ++i)
        if (std::fabs(y - chartGridLineY(H, i)) < 1.5) return false;
      return true;
    };
    if (!offGrid(inside) || !offGrid(outside) || outside > H - 1) continue;
    const Color in = pixel(x, inside);
    const Color out = pixel(x, outside);
    // Outside the band lies a black veil; inside it nothing.
    EXPECT_LT(in.alpha, 0.02) << "k=" << k;
    EXPECT_NEAR(out.alpha, 0.05, 0.02) << "k=" << k;
    ++checked;
  }
  EXPECT_GE(checked, 4);

  // A record far from the curve shows as a white disc at its place.
  int dots = 0;
  for (std::size_t i = 0; i < xs.size() && dots < 5; ++i) {
    const double curve = band.curve[static_cast<std::size_t>(std::lround(xs[i] / 10 * 99))];
    if (std::fabs(curve - ys[i]) < 0.12 || xs[i] < 0.3 || xs[i] > 9.7) continue;
    const Color c = pixel(W / 10 * xs[i], H * ys[i]);
    EXPECT_GT(c.alpha, 0.8);
    EXPECT_GT(brightness(c), 0.6);  // a grid line crosses the centre
    ++dots;
  }
  EXPECT_EQ(dots, 5);
}

TEST_F(ChartEnvironment, GridLinesLieBetweenTheLevelBands) {
  // Levels 4 to 6 only: the top of the picture holds nothing but the grid
  // and the veil outside the band.
  std::vector<ChartRecord> records;
  for (const auto& r : fixedJournal()) records.push_back({r.date, 4 + r.moodLevel % 3});
  const double W = 300, H = 200, scale = 3;
  auto image = MoodDrawChart::drawChartImage(ChartKind::kDaily, records, {W, H}, false, {}, scale);
  ASSERT_TRUE(image);
  const int x = static_cast<int>(W * 0.55 * scale) + 1;  // clear of the hour lines
  for (int i = 1; i <= 2; ++i) {
    const int line = static_cast<int>(chartGridLineY(H, i) * scale);
    const int between = static_cast<int>((chartGridLineY(H, i) + H / 20) * scale);
    const double lineAlpha = image->pixelAt(x, line).alpha;
    const double betweenAlpha = image->pixelAt(x, between).alpha;
    EXPECT_GT(lineAlpha, betweenAlpha + 0.1) << "line " << i;
    EXPECT_LT(brightness(image->pixelAt(x, line)), 0.05);  // black
  }
  // The weekly chart's column lines are twice as strong for the report.
  auto screen = MoodDrawChart::drawChartImage(ChartKind::kWeekly, records, {W, H}, false, {}, 1);
  auto pdf = MoodDrawChart::drawChartImage(ChartKind::kWeekly, records, {W, H}, true, {}, 1);
  const int column = static_cast<int>(std::floor(W / 7));
  EXPECT_GT(pdf->pixelAt(column, 30).alpha, screen->pixelAt(column, 30).alpha + 0.05);
}

}  // namespace
}  // namespace lumeo
