// The scrollable graph: its range, zoom and pan limits, the axis steps, the
// tag series and their lines, the settings switches, and one picture of
// the whole graph against its golden.
#include <gtest/gtest.h>

#include "insight/chart_test_support.h"
#include "insight/graph_line.h"
#include "insight/graph_scrollable_area.h"
#include "insight/mood_summary_graph_view_controller.h"
#include "insight/summary_test_support.h"
#include "store/notification_names.h"

namespace lumeo {
namespace {

using testing::utcDate;

std::vector<GraphDataObject> daily(Date first, int days, int perDay = 1) {
  std::vector<GraphDataObject> out;
  for (int d = 0; d < days; ++d)
    for (int i = 0; i < perDay; ++i)
      out.push_back(
          {first.dateByAddingTimeInterval(86400.0 * d + 3600.0 * (9 + 5 * i)), 3 + (d + i) % 6, nullptr});
  return out;
}

class GraphAreaTest : public testing::JournalTest {};

TEST_F(GraphAreaTest, RangeCoversTheJournalsDays) {
  GraphScrollableArea area(daily(utcDate(2026, 1, 1), 100), 428);
  EXPECT_EQ(area.minimumDate(), utcDate(2026, 1, 1));
  EXPECT_EQ(area.maximumDate(), utcDate(2026, 4, 11));
  EXPECT_EQ(area.numberOfDays(), 100);
  EXPECT_EQ(area.zoomRate(), 100);
  EXPECT_EQ(area.startDate(), area.minimumDate());
  EXPECT_EQ(area.endDate(), area.maximumDate());
  EXPECT_DOUBLE_EQ(area.dayInterval(), 4.0);  // (428 − 28) / 100
  EXPECT_EQ(area.numberOfDaysInWidth(428), 100);

  // All records on one day: one day, the end a day ahead.
  GraphScrollableArea one({{utcDate(2026, 5, 5, 10), 6, nullptr}, {utcDate(2026, 5, 5, 11), 7, nullptr}},
                          300);
  EXPECT_EQ(one.numberOfDays(), 1);
  EXPECT_EQ(one.endDate(), utcDate(2026, 5, 6));
  EXPECT_EQ(one.startDate(), utcDate(2026, 5, 5));
}

TEST_F(GraphAreaTest, ZoomIsClampedToItsLimits) {
  GraphScrollableArea area(daily(utcDate(2026, 1, 1), 100), 428);
  // Zooming out beyond the journal stops at its number of days.
  area.pinchChanged(0.1);
  EXPECT_EQ(area.newZoomRate(), 100);
  EXPECT_EQ(area.zoomText(), "100 days");
  area.pinchChanged(100);  // deep in: stops at 10 days
  EXPECT_EQ(area.newZoomRate(), 10);
  area.pinchChanged(3.0);  // trunc(100 / 3)
  EXPECT_EQ(area.newZoomRate(), 33);
  area.pinchEnded();
  EXPECT_EQ(area.zoomRate(), 33);
  // The end stays; the start follows the new width.
  EXPECT_EQ(area.endDate(), area.maximumDate());
  EXPECT_EQ(area.endUNIXDate() - area.startUNIXDate(), 33 * 86400);
  EXPECT_FALSE(area.setZoomRate(101));
  EXPECT_FALSE(area.setZoomRate(9));
  EXPECT_EQ(area.zoomRate(), 33);

  // A journal shorter than the minimum zoom shows all of itself.
  GraphScrollableArea shortOne(daily(utcDate(2026, 1, 1), 4), 300);
  shortOne.pinchChanged(10);
  EXPECT_EQ(shortOne.newZoomRate(), 4);
}

TEST_F(GraphAreaTest, PanningStopsWithinSixtySecondsOfALimit) {
  GraphScrollableArea area(daily(utcDate(2026, 1, 1), 100), 428);
  area.pinchChanged(4);  // 25 days
  area.pinchEnded();
  EXPECT_FALSE(area.canMoveRight());
  EXPECT_TRUE(area.canMoveLeft());
  const auto span = area.endUNIXDate() - area.startUNIXDate();
  ASSERT_TRUE(area.tryMoveLeft());
  ASSERT_TRUE(area.tryMoveLeft());
  ASSERT_TRUE(area.tryMoveLeft());
  EXPECT_EQ(area.startDate(), area.minimumDate());  // the last step was shortened
  EXPECT_EQ(area.endUNIXDate() - area.startUNIXDate(), span);
  EXPECT_FALSE(area.tryMoveLeft());
  ASSERT_TRUE(area.tryMoveRight());
  EXPECT_EQ(area.startUNIXDate() - static_cast<std::int64_t>(area.minimumDate().timeIntervalSince1970()),
            span);

  // 60 seconds from the limit counts as there; 61 does not.
  const Date min = area.minimumDate();
  area.setVisibleRange(min.dateByAddingTimeInterval(60), min.dateByAddingTimeInterval(60 + 86400 * 10));
  EXPECT_FALSE(area.canMoveLeft());
  area.setVisibleRange(min.dateByAddingTimeInterval(61), min.dateByAddingTimeInterval(61 + 86400 * 10));
  EXPECT_TRUE(area.canMoveLeft());
  ASSERT_TRUE(area.tryMoveLeft());
  EXPECT_EQ(area.startDate(), min);
}

TEST(GraphAxis, UnitStepsByVisibleSpan) {
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(90), 1);
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(91), 2);
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(366), 2);
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(367), 3);
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(549), 3);
  EXPECT_EQ(GraphScrollableArea::axisUnitStep(550), 4);
}

TEST_F(GraphAreaTest, AxisLabelsLeaveOutCrowdedOnes) {
  Canvas measure(10, 10);
  const Font font = MoodDrawChart::labelFont();
  GraphScrollableArea months(daily(utcDate(2026, 1, 1), 200), 600);
  auto labels = months.axisLabels(measure, font, 600);
  ASSERT_FALSE(labels.empty());
  EXPECT_EQ(labels.front().date, utcDate(2026, 1, 1));
  EXPECT_EQ(labels.front().text, "January");
  EXPECT_EQ(labels[1].date, utcDate(2026, 2, 1));
  // Days across a narrow view: every tick has its line, some lose their text.
  GraphScrollableArea days(daily(utcDate(2026, 1, 1), 80), 200);
  labels = days.axisLabels(measure, font, 200);
  EXPECT_EQ(labels.size(), 81u);  // both ends of the range have a tick
  EXPECT_EQ(labels.front().text, "1");
  std::size_t shown = 0;
  double previousEnd = -1e9;
  for (const auto& l : labels) {
    if (l.text.empty()) continue;
    EXPECT_GE(l.x + 2, previousEnd + GraphScrollableArea::kLabelSpacing);
    previousEnd = l.x + 2 + measure.textSize(l.text, font).width;
    ++shown;
  }
  EXPECT_GT(shown, 3u);
  EXPECT_LT(shown, 80u);
}

TEST(GraphLines, MoodLineSelectsOneNeighbourOnEachSide) {
  GraphLine line;
  line.pointsArray = {{utcDate(2026, 1, 1), 5, nullptr},
                      {utcDate(2026, 1, 3), 6, nullptr},
                      {utcDate(2026, 1, 5), 7, nullptr},
                      {utcDate(2026, 1, 9), 8, nullptr},
                      {utcDate(2026, 1, 12), 9, nullptr}};
  line.startDate = utcDate(2026, 1, 4);
  line.endDate = utcDate(2026, 1, 8);
  auto selected = line.selectedPoints();
  ASSERT_EQ(selected.size(), 3u);
  EXPECT_EQ(selected[0].level, 6);
  EXPECT_EQ(selected[2].level, 8);
  // Nothing before the start: the first selected point is the first inside.
  line.startDate = utcDate(2025, 12, 1);
  selected = line.selectedPoints();
  EXPECT_EQ(selected.front().level, 5);
}

TEST(GraphLines, TagLineScaleAndSinglePoints) {
  GraphTagLine line;
  line.startDate = utcDate(2026, 1, 1);
  line.endDate = utcDate(2026, 1, 11);
  line.pointsArray = {{utcDate(2026, 1, 1), 0},
                      {utcDate(2026, 1, 2), 1},
                      {utcDate(2026, 1, 6), 10},
                      {utcDate(2026, 1, 11), 5}};
  const auto points = line.scaledPoints();
  EXPECT_DOUBLE_EQ(points[0].second, 0.05);  // 0 gives the floor
  EXPECT_DOUBLE_EQ(points[1].second, 0.05);  // 10 % of the largest too
  EXPECT_DOUBLE_EQ(points[2].second, 0.95);
  EXPECT_DOUBLE_EQ(points[3].second, 0.45);
  EXPECT_NEAR(points[3].first, 10.0 * 864000 / 864000.02, 1e-9);
  // All zero: the floor, no division by zero.
  line.pointsArray = {{utcDate(2026, 1, 1), 0}, {utcDate(2026, 1, 2), 0}};
  EXPECT_DOUBLE_EQ(line.scaledPoints()[1].second, 0.05);

  // One point draws nothing.
  line.lineColor = graphTagLineColor(0);
  line.pointsArray = {{utcDate(2026, 1, 5), 3}};
  Canvas canvas(100, 50);
  line.draw(canvas, 100, 50);
  for (int x = 0; x < 100; x += 3)
    for (int y = 0; y < 50; y += 3) ASSERT_EQ(canvas.pixelAt(x, y).alpha, 0);

  EXPECT_EQ(kGraphTagLineColors.size(), 7u);
  EXPECT_EQ(graphTagLineColor(1), Color(1, 0.49803921580314636, 0, 1));
  EXPECT_EQ(graphTagLineColor(7), graphTagLineColor(0));
}

class GraphControllerTest : public testing::JournalTest {
 protected:
  void comment(long level, Date date, const std::string& text) {
    auto record = addRecord(level, date);
    record->moodDescription()->setComment(text);
  }
};

TEST_F(GraphControllerTest, SeriesCountOncePerCommentLinesTakeEveryValue) {
  comment(6, utcDate(2026, 11, 1, 8), "#sleep:8 #sleep:9 and #Sleep:7h");
  comment(4, utcDate(2026, 11, 2, 8), "#sleep:6,5 #coffee:2cups");
  comment(7, utcDate(2026, 11, 3, 8), "no values here");
  save();
  MoodSummaryGraphViewController graph(store_, defaults_);
  graph.viewDidLoad();
  ASSERT_EQ(graph.records().size(), 3u);
  ASSERT_TRUE(graph.completionOptions().contains("sleep:"));
  const MoodThirdValue& sleep = graph.completionOptions().at("sleep:");
  EXPECT_EQ(sleep.count, 2);
  EXPECT_EQ(sleep.minValue, 6.5);
  EXPECT_EQ(sleep.maxValue, 8);  // the 9 of the first comment is not counted
  EXPECT_EQ(graph.completionOptions().at("sleep:h").count, 1);
  EXPECT_EQ(graph.orderedKeys().front(), "coffee:cups");
  EXPECT_EQ(graph.rowRangeText("sleep:h"), "7.0 - 7.0 h");
  EXPECT_EQ(graph.rowCountText("sleep:"), "2");
  EXPECT_DOUBLE_EQ(graph.tagPanelHeight(), 3 * 28 + 22);

  const auto values = graph.extractLine(sleep);
  ASSERT_EQ(values.size(), 3u);  // 8 and 9, then 6.5
  EXPECT_EQ(values[0].value, 8);
  EXPECT_EQ(values[1].value, 9);
  EXPECT_EQ(values[2].value, 6.5);

  EXPECT_FALSE(graph.toggleTag("walk:km"));
  ASSERT_TRUE(graph.toggleTag("sleep:h"));
  ASSERT_TRUE(graph.toggleTag("sleep:"));
  const auto lines = graph.tagLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].color, graphTagLineColor(0));
  EXPECT_EQ(lines[1].color, graphTagLineColor(1));
  ASSERT_TRUE(graph.toggleTag("sleep:h"));
  EXPECT_EQ(graph.tagLines()[0].color, graphTagLineColor(0));
}

TEST_F(GraphControllerTest, NoSeriesNoPanel) {
  comment(6, utcDate(2026, 11, 1, 8), "#walk");
  save();
  MoodSummaryGraphViewController graph(store_, defaults_);
  graph.viewDidLoad();
  EXPECT_TRUE(graph.orderedKeys().empty());
  EXPECT_EQ(graph.tagPanelHeight(), 0);
}

TEST_F(GraphControllerTest, SettingsSwitchesStoreAndAnnounce) {
  MoodGraphSettingsViewController settings(defaults_);
  int smooth = 0, width = 0;
  ScopedObserver a(NotificationCenter::defaultCenter(), MoodGraphSmoothChangedNotification, nullptr,
                   [&](const Notification&) { ++smooth; });
  ScopedObserver b(NotificationCenter::defaultCenter(), MoodGraphLineWidthChangedNotification, nullptr,
                   [&](const Notification&) { ++width; });
  auto rows = settings.rows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].title, "Smooth");
  EXPECT_TRUE(rows[0].on);  // smoothing is on until turned off
  EXPECT_EQ(rows[1].key, "kChartsIncreaseWidth");
  EXPECT_FALSE(rows[1].on);
  smooth = 0;  // the first read of a fresh install announces too
  EXPECT_TRUE(settings.setSwitch(kChartsIncreaseWidth, true));
  EXPECT_TRUE(settings.setSwitch(kChartsSmooth, false));
  EXPECT_FALSE(settings.setSwitch("kChartsColour", true));
  EXPECT_EQ(smooth, 1);
  EXPECT_EQ(width, 1);
  EXPECT_FALSE(settings.rows()[0].on);
  EXPECT_TRUE(settings.rows()[1].on);
}

TEST_F(GraphControllerTest, GraphPictureMatchesItsGoldenAndShowsItsLines) {
  const auto journal = testing::fixedJournal();
  for (std::size_t i = 0; i < journal.size(); ++i) {
    const int hours = 5 + static_cast<int>(i * 7 % 5);
    comment(journal[i].moodLevel, journal[i].date,
            i % 3 == 0 ? "#sleep:" + std::to_string(hours) + "h"
                       : (i % 3 == 1 ? "#run:" + std::to_string(i % 11) + "km" : ""));
  }
  save();
  MoodSummaryGraphViewController graph(store_, defaults_);
  graph.viewDidLoad();
  graph.setSelectedTags({"sleep:h", "run:km"});
  GraphScrollableArea area(graph.records(), 500);
  area.pinchChanged(2);  // the last 30 of 60 days
  area.pinchEnded();
  area.updateTags(graph.tagLines());
  Canvas canvas(500, 260);
  graph.renderGraph(canvas, {500, 260}, area);
  const Image image = canvas.image();
  testing::expectMatchesGolden(image, "graph.png");

  // Golden-independent: the first tag line's red and the second's orange
  // are in the picture, below the legend that also carries them.
  auto found = [&](const Color& want) {
    for (int y = 50; y < 240; ++y)
      for (int x = 0; x < 500; ++x) {
        const Color c = image.pixelAt(x, y);
        if (std::fabs(c.red - want.red) < 0.05 && std::fabs(c.green - want.green) < 0.05 &&
            std::fabs(c.blue - want.blue) < 0.05)
          return true;
      }
    return false;
  };
  EXPECT_TRUE(found(graphTagLineColor(0)));
  EXPECT_TRUE(found(graphTagLineColor(1)));
  EXPECT_TRUE(found(Color(1, 1, 1)));  // the mood line
}

}  // namespace
}  // namespace lumeo
