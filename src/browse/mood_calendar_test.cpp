// The calendar: month indices and month facts against the platform's
// calendar for 56 years, day placement (with the column −1 of a Sunday 1st
// in a Monday-first week), the frames, visible sets, paging and recycling as
// pure functions over every month since 1970, and the month and day views
// on a real journal, with a golden picture of one month.
#include <gtest/gtest.h>

#include "browse/browse_test_support.h"
#include "browse/mood_calendar_drawing.h"
#include "browse/mood_calendar_layout.h"
#include "browse/mood_calendar_view.h"
#include "capture/mood_levels_presentation.h"
#include "platform/calendar.h"
#include "testing/golden_image.h"

namespace lumeo {
namespace {

using testing::BrowseTest;

constexpr long kNovember2026 = 2026 * 12 + 11 - 23641;  // 682: 56 years and 11 months

TEST(CalendarMonths, IndicesAndFactsAgreeWithTheCalendar) {
  testing::ScopedEnvironment env({{"TZ", "UTC"}});
  EXPECT_EQ(monthIndexFrom1970(1970, 1), 0);
  EXPECT_EQ(monthFrom1970(Date::fromTimeIntervalSince1970(0)), 0);
  EXPECT_EQ(yearMonthForMonthIndex(0), std::make_pair(1970L, 1L));
  EXPECT_EQ(yearMonthForMonthIndex(-1), std::make_pair(1969L, 12L));
  EXPECT_EQ(yearMonthForMonthIndex(kNovember2026), std::make_pair(2026L, 11L));

  Calendar calendar = Calendar::current();
  for (long index = 0; index <= kNovember2026; ++index) {
    auto [year, month] = yearMonthForMonthIndex(index);
    ASSERT_EQ(monthIndexFrom1970(year, month), index);
    Date first = dateByYear(year, month, 1);
    ASSERT_EQ(monthFrom1970(first), index);
    MoodCalendarMonthFacts facts = monthFacts(year, month);
    ASSERT_EQ(facts.firstWeekday, calendar.component(CalendarUnit::kWeekday, first)) << year << "-" << month;
    ASSERT_EQ(facts.days, calendar.rangeOfUnit(CalendarUnit::kDay, CalendarUnit::kMonth, first)->length);
  }
  EXPECT_EQ(monthFacts(2023, 2).days, 28);
  EXPECT_EQ(monthFacts(2024, 2).days, 29);
  EXPECT_EQ(monthFacts(1900, 2).days, 28);
  EXPECT_EQ(monthFacts(2000, 2).days, 29);
}

TEST(CalendarPlacement, MondayFirstMonthBeginningOnSundayPutsTheFirstLeftOfTheGrid) {
  // March 2026 begins on a Sunday.
  ASSERT_EQ(monthFacts(2026, 3).firstWeekday, 1);
  EXPECT_EQ(placementOfDay(1, 2, 0), (MoodDayPlacement{-1, 0}));
  EXPECT_EQ(placementOfDay(1, 2, 1), (MoodDayPlacement{0, 1}));  // Monday the 2nd
  EXPECT_EQ(placementOfDay(1, 2, 7), (MoodDayPlacement{6, 1}));  // Sunday the 8th
  EXPECT_EQ(placementOfDay(1, 2, 8), (MoodDayPlacement{0, 2}));
  EXPECT_EQ(placementOfDay(1, 2, 30), (MoodDayPlacement{1, 5}));
  EXPECT_EQ(rowsOfMonth(1, 2, 31), 6);
  // Sunday first: the same month is an ordinary grid.
  EXPECT_EQ(placementOfDay(1, 1, 0), (MoodDayPlacement{0, 0}));
  EXPECT_EQ(placementOfDay(1, 1, 7), (MoodDayPlacement{0, 1}));
  EXPECT_EQ(rowsOfMonth(1, 1, 31), 5);
  // Monday first, a Monday 1st (June 2026) and a Saturday 1st (August 2026).
  EXPECT_EQ(placementOfDay(2, 2, 0), (MoodDayPlacement{0, 0}));
  EXPECT_EQ(placementOfDay(7, 2, 0), (MoodDayPlacement{5, 0}));
  EXPECT_EQ(placementOfDay(7, 2, 2), (MoodDayPlacement{0, 1}));
  // Any other first weekday is not adjusted.
  EXPECT_EQ(placementOfDay(3, 7, 0), placementOfDay(3, 1, 0));
  // February 2015 fills exactly four Sunday-first rows.
  EXPECT_EQ(rowsOfMonth(monthFacts(2015, 2).firstWeekday, 1, 28), 4);
}

TEST(CalendarLayout, FramesVisibilityPagingAndRecyclingOverFiftySixYears) {
  MoodCalendarMetrics metrics;
  const double viewport = 480;
  MoodCalendarLayout layout = MoodCalendarLayout::build(kNovember2026, 2, metrics, viewport);
  ASSERT_EQ(layout.monthCount(), kNovember2026 + 1);

  // One column: header, then its month, without gaps or overlaps.
  double y = 0;
  for (long i = 0; i < layout.monthCount(); ++i) {
    ASSERT_EQ(layout.headerFrame(i).y, y);
    ASSERT_EQ(layout.headerFrame(i).height, metrics.headerHeight);
    ASSERT_EQ(layout.monthFrame(i).y, y + metrics.headerHeight);
    auto [year, month] = yearMonthForMonthIndex(i);
    auto facts = monthFacts(year, month);
    ASSERT_EQ(layout.monthFrame(i).height,
              metrics.heightForRows(rowsOfMonth(facts.firstWeekday, 2, facts.days)));
    y = layout.monthFrame(i).y + layout.monthFrame(i).height;
  }
  EXPECT_EQ(layout.contentHeight(), y + viewport);

  // The visible set is the run of months meeting the band, and nothing else.
  for (double offset = 0; offset < layout.contentHeight() - viewport; offset += 997) {
    auto visible = layout.visibleMonths(offset, viewport);
    ASSERT_FALSE(visible.empty()) << offset;
    for (std::size_t k = 1; k < visible.size(); ++k) ASSERT_EQ(visible[k], visible[k - 1] + 1);
    for (long i : {visible.front() - 1, visible.back() + 1}) {
      if (i < 0 || i >= layout.monthCount()) continue;
      const Rect& f = layout.monthFrame(i);
      ASSERT_TRUE(f.y + f.height <= offset || f.y >= offset + viewport) << i;
    }
  }
  // The last month can reach the top, and paging there picks it.
  double last = layout.offsetForMonth(kNovember2026);
  EXPECT_LE(last + viewport, layout.contentHeight());
  EXPECT_EQ(layout.monthWithGreatestVisibleHeight(last, viewport), kNovember2026);
  // Half-way between two months, the one showing more wins.
  const Rect& june = layout.monthFrame(kNovember2026 - 5);
  EXPECT_EQ(layout.monthWithGreatestVisibleHeight(june.y + june.height * 0.05, viewport), kNovember2026 - 5);
  EXPECT_EQ(layout.monthWithGreatestVisibleHeight(june.y + june.height * 0.9, viewport), kNovember2026 - 4);
  EXPECT_EQ(layout.monthWithGreatestVisibleHeight(-5000, viewport), -1);

  // Scrolling all the way down and back makes only a screenful of views.
  MoodCalendarRecycler recycler;
  long made = 0, reused = 0, returned = 0;
  std::size_t mostVisible = 0;
  auto step = [&](double offset) {
    auto visible = layout.visibleMonths(offset, viewport);
    mostVisible = std::max(mostVisible, visible.size());
    auto counts = recycler.update(visible);
    made += counts.made;
    reused += counts.reused;
    returned += counts.returned;
    ASSERT_EQ(recycler.viewsInUse().size(), visible.size());
  };
  for (double offset = 0; offset <= layout.contentHeight() - viewport; offset += 53) step(offset);
  for (double offset = layout.contentHeight() - viewport; offset >= 0; offset -= 211) step(offset);
  EXPECT_EQ(made, recycler.viewsMade());
  EXPECT_LE(recycler.viewsMade(), static_cast<long>(mostVisible) + 1);
  EXPECT_GT(reused, 2 * layout.monthCount() - 10);
  EXPECT_EQ(made + reused - returned, static_cast<long>(recycler.viewsInUse().size()));
  EXPECT_EQ(recycler.freeViews() + recycler.viewsInUse().size(),
            static_cast<std::size_t>(recycler.viewsMade()));

  // An opened header pushes everything below it down, and closing undoes it.
  MoodCalendarLayout opened = layout;
  opened.shiftBelowHeader(100, 180);
  EXPECT_EQ(opened.headerFrame(100).height, metrics.headerHeight + 180);
  EXPECT_EQ(opened.monthFrame(100).y, layout.monthFrame(100).y + 180);
  EXPECT_EQ(opened.monthFrame(99).y, layout.monthFrame(99).y);
  EXPECT_EQ(opened.headerFrame(kNovember2026).y, layout.headerFrame(kNovember2026).y + 180);
  opened.shiftBelowHeader(100, -180);
  EXPECT_EQ(opened.contentHeight(), layout.contentHeight());
}

class CalendarTest : public BrowseTest {
 protected:
  struct Delegate : MoodCalendarViewDelegate {
    std::vector<std::string> pressed;
    std::vector<long> changed;
    void didCalendarViewPressed(long y, long m, long d, bool exist) override {
      pressed.push_back(std::to_string(y) + "-" + std::to_string(m) + "-" + std::to_string(d) +
                        (exist ? "+" : "-"));
    }
    void didCalendarViewCurrentMonthIndexChanged(long index) override { changed.push_back(index); }
  };
};

TEST_F(CalendarTest, ADayShowsEachRecordInDateOrderAndThePictureOfTheFirstWithOne) {
  add(2, at(2026, 11, 10, 20));
  auto second = add(9, at(2026, 11, 10, 12), "", true);
  add(5, at(2026, 11, 10, 8));
  add(7, at(2026, 11, 3, 9));
  add(4, at(2026, 12, 1, 0, 30));  // next month: not in November
  MoodCalendarMonthView month(*store_, MoodCalendarMetrics{});
  month.setYearMonth(2026, 11);
  ASSERT_EQ(month.dayViews().size(), 31u);
  const MoodDayView& tenth = month.dayViews()[9];
  ASSERT_EQ(tenth.records().size(), 3u);
  EXPECT_EQ(tenth.pictureRecord(), second);
  EXPECT_EQ(tenth.look(), MoodDayView::Look::kPhoto);
  ASSERT_TRUE(tenth.imageFile().has_value());
  EXPECT_FALSE(tenth.background().has_value());
  MoodLevelsPresentation levels;
  ASSERT_EQ(tenth.strip().size(), 3u);
  std::vector<long> order;
  for (const auto& piece : tenth.strip()) {
    order.push_back(piece.level);
    EXPECT_DOUBLE_EQ(piece.width, 40.0 / 3);
    EXPECT_EQ(piece.color, *levels.interpolatedColorForMoodLevel(static_cast<double>(piece.level)));
  }
  EXPECT_EQ(order, (std::vector<long>{5, 9, 2}));
  EXPECT_DOUBLE_EQ(tenth.strip()[2].x, 80.0 / 3);

  const MoodDayView& third = month.dayViews()[2];
  EXPECT_EQ(third.look(), MoodDayView::Look::kNoPhoto);
  EXPECT_EQ(third.numberColor(), kMoodDayNumber);
  const MoodDayView& first = month.dayViews()[0];
  EXPECT_EQ(first.look(), MoodDayView::Look::kEmpty);
  EXPECT_EQ(first.background(), kMoodDayEmptyBackground);
  EXPECT_EQ(first.numberColor(), kMoodDayEmptyNumber);
  EXPECT_TRUE(first.strip().empty());
  EXPECT_TRUE(month.dayViews()[30].hidden);  // November has 30 days
  EXPECT_FALSE(MoodDayView::checkCurrentDate());

  // A photo file gone from the image store: the day keeps its look, without
  // a file to show.
  std::filesystem::remove(*tenth.imageFile());
  month.setYearMonth(2026, 11);
  EXPECT_EQ(month.dayViews()[9].look(), MoodDayView::Look::kPhoto);
  EXPECT_FALSE(month.dayViews()[9].imageFile().has_value());
}

TEST_F(CalendarTest, FebruaryOfACommonYearHidesThreeDaysAndHeadingsFollowTheWeek) {
  MoodCalendarMonthView month(*store_, MoodCalendarMetrics{});
  month.setYearMonth(2023, 2);
  EXPECT_EQ(month.numberOfDays(), 28);
  long hidden = 0;
  for (const auto& day : month.dayViews()) hidden += day.hidden ? 1 : 0;
  EXPECT_EQ(hidden, 3);
  EXPECT_EQ(MoodCalendarMonthView::weekdayHeadings(),
            (std::vector<std::string>{"S", "M", "T", "W", "T", "F", "S"}));
  testing::ScopedEnvironment monday({{"LUMEO_FIRST_WEEKDAY", "2"}});
  EXPECT_EQ(MoodCalendarMonthView::weekdayHeadings().front(), "M");
  month.setYearMonth(2026, 3);
  EXPECT_EQ(month.dayViews()[0].placement, (MoodDayPlacement{-1, 0}));
  EXPECT_LT(month.dayViews()[0].frame.x, 0);
}

TEST_F(CalendarTest, ATagFilterEmptiesDaysWithoutTheTagAndTheirTapsLeadNowhere) {
  add(6, at(2026, 11, 5, 9), "#walk");
  add(3, at(2026, 11, 6, 9), "#work");
  Delegate delegate;
  MoodCalendarView calendar(*store_, MoodCalendarMetrics{}, 480, Date::now());
  calendar.setDelegate(&delegate);
  calendar.scrollToMonthIndex(kNovember2026, false);
  ASSERT_NE(calendar.monthViewForIndex(kNovember2026), nullptr);
  EXPECT_EQ(calendar.headerTitleForIndex(kNovember2026), "November 2026");
  EXPECT_EQ(calendar.monthButtonTitle(), "November 2026");
  calendar.setTags({store_->tagNamed("walk")});
  calendar.reload();
  MoodCalendarMonthView& month = *calendar.monthViewForIndex(kNovember2026);
  EXPECT_TRUE(month.dayViews()[4].exists());
  EXPECT_EQ(month.dayViews()[5].look(), MoodDayView::Look::kEmpty);
  month.dayViews()[5].buttonPressed();
  month.dayViews()[4].buttonPressed();
  EXPECT_EQ(delegate.pressed, (std::vector<std::string>{"2026-11-6-", "2026-11-5+"}));

  // The History tab opens a day only when it has records.
  auto history = screen();
  EXPECT_EQ(history->didCalendarViewPressed(2026, 11, 6, false), nullptr);
  EXPECT_NE(history->didCalendarViewPressed(2026, 11, 5, true), nullptr);
}

TEST_F(CalendarTest, ScrollingRecyclesViewsAndPagingSettlesOnAMonth) {
  Delegate delegate;
  MoodCalendarView calendar(*store_, MoodCalendarMetrics{}, 480, Date::now());
  calendar.setDelegate(&delegate);
  EXPECT_EQ(calendar.lastMonthIndex(), kNovember2026);
  calendar.scrollToMonthIndex(0, false);
  for (double offset = 0; offset < 40000; offset += 120) calendar.scrollViewDidScroll(offset);
  EXPECT_LE(calendar.monthRecycler().viewsMade(), 5);
  EXPECT_LE(calendar.headerRecycler().viewsMade(), 5);
  // Stop between two months: the view moves to the one showing more.
  const Rect& f = calendar.layout().monthFrame(100);
  calendar.scrollViewDidScroll(f.y + f.height * 0.05);
  calendar.scrollViewDidEndDragging(false);
  EXPECT_EQ(calendar.currentMonthIndex(), 100);
  EXPECT_EQ(calendar.contentOffset(), calendar.layout().offsetForMonth(100));
  EXPECT_EQ(delegate.changed.back(), 100);
  // The picker cannot go past this month.
  calendar.monthPicked(2030, 1);
  EXPECT_EQ(calendar.currentMonthIndex(), kNovember2026);

  // Headers open one at a time and close when dragging starts.
  double below = calendar.layout().headerFrame(kNovember2026).y;
  EXPECT_EQ(calendar.updateCalendarHeader(kNovember2026 - 2, 1), 0.25);
  EXPECT_EQ(calendar.updateCalendarHeader(kNovember2026 - 1, 2), 0.125);
  EXPECT_EQ(calendar.openedIndex(), kNovember2026 - 1);
  EXPECT_EQ(calendar.layout().headerFrame(kNovember2026).y, below + 180);
  calendar.scrollViewWillBeginDragging();
  EXPECT_EQ(calendar.openedIndex(), -1);
  EXPECT_EQ(calendar.layout().headerFrame(kNovember2026).y, below);
}

TEST_F(CalendarTest, AMonthDrawsLikeTheGolden) {
  testing::ScopedEnvironment monday({{"LUMEO_FIRST_WEEKDAY", "2"}});
  const long levelsOfDays[][3] = {{7, 0, 0}, {3, 8, 0}, {9, 0, 0}, {5, 6, 2}, {10, 0, 0}, {1, 4, 0}};
  int day = 2;
  for (const auto& levels : levelsOfDays) {
    int hour = 8;
    for (long level : levels) {
      if (level) add(level, at(2026, 10, day, hour), "", day == 8 && hour == 8);
      hour += 4;
    }
    day += 3;
  }
  MoodCalendarMetrics metrics;
  MoodCalendarMonthView month(*store_, metrics);
  month.setYearMonth(2026, 10);
  Canvas canvas = drawCalendarMonth(month, metrics,
                                    MoodCalendarView::headerByMonthIndex(monthIndexFrom1970(2026, 10)), 2);
  testing::expectMatchesGolden(canvas, "browse/calendar_month.png");
}

}  // namespace
}  // namespace lumeo
