// The calendar's start-up layout: frames of every month from January 1970
// to November 2026 (683 months), Lumeo's arithmetic against the peer that
// asks the platform's calendar for each month's first weekday and length;
// and a full scroll through the range with view recycling.
#include <benchmark/benchmark.h>

#include "browse/mood_calendar_layout.h"
#include "platform/calendar.h"
#include "store/date_all.h"

namespace {

constexpr long kLastMonth = 2026 * 12 + 11 - 23641;

void BM_LayoutArithmetic(benchmark::State& state) {
  lumeo::MoodCalendarMetrics metrics;
  for (auto _ : state) {
    auto layout = lumeo::MoodCalendarLayout::build(kLastMonth, 2, metrics, 640);
    benchmark::DoNotOptimize(layout.contentHeight());
  }
}
BENCHMARK(BM_LayoutArithmetic)->Unit(benchmark::kMicrosecond);

// Peer: the same frames with the month facts from ICU.
void BM_LayoutWithPlatformCalendar(benchmark::State& state) {
  lumeo::MoodCalendarMetrics metrics;
  for (auto _ : state) {
    lumeo::Calendar calendar = lumeo::Calendar::current();
    double y = 0;
    for (long index = 0; index <= kLastMonth; ++index) {
      auto [year, month] = lumeo::yearMonthForMonthIndex(index);
      lumeo::Date first = lumeo::dateByYear(year, month, 1);
      int weekday = static_cast<int>(calendar.component(lumeo::CalendarUnit::kWeekday, first));
      int days = static_cast<int>(
          calendar.rangeOfUnit(lumeo::CalendarUnit::kDay, lumeo::CalendarUnit::kMonth, first)->length);
      y += metrics.headerHeight + metrics.heightForRows(lumeo::rowsOfMonth(weekday, 2, days));
    }
    benchmark::DoNotOptimize(y);
  }
}
BENCHMARK(BM_LayoutWithPlatformCalendar)->Unit(benchmark::kMicrosecond);

// Scrolling from 1970 to now in 20-point steps: visible set and recycling.
void BM_ScrollWholeRange(benchmark::State& state) {
  lumeo::MoodCalendarMetrics metrics;
  auto layout = lumeo::MoodCalendarLayout::build(kLastMonth, 2, metrics, 640);
  for (auto _ : state) {
    lumeo::MoodCalendarRecycler recycler;
    for (double offset = 0; offset < layout.contentHeight() - 640; offset += 20) {
      recycler.update(layout.visibleMonths(offset, 640));
    }
    benchmark::DoNotOptimize(recycler.viewsMade());
  }
}
BENCHMARK(BM_ScrollWholeRange)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
