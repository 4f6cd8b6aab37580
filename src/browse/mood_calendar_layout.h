// The calendar's geometry as pure functions: month indices since January
// 1970, where each day of a month sits in its grid, the frames of every
// month and header from January 1970 to now, which of them a scroll offset
// shows, which views the visible set needs (made new or taken from the
// pools), and the month that paging settles on. Nothing here fetches or
// draws, so all of it is tested over the whole range.
#pragma once

#include <cstddef>
#include <map>
#include <utility>
#include <vector>

#include "platform/canvas.h"

namespace lumeo {

// --- Month indices -------------------------------------------------------------------
// year × 12 + month − 23641: January 1970 is 0.
long monthIndexFrom1970(long year, long month);
// The way back: year = 1970 + index / 12, month = index mod 12 + 1 (floor
// division, so -1 is December 1969).
std::pair<long, long> yearMonthForMonthIndex(long index);

// The facts of a month that the grid needs, in the Gregorian calendar.
struct MoodCalendarMonthFacts {
  int firstWeekday = 1;  // weekday of the 1st: 1 Sunday .. 7 Saturday
  int days = 31;
};
MoodCalendarMonthFacts monthFacts(long year, long month);

// --- Placement -----------------------------------------------------------------------
struct MoodDayPlacement {
  long column = 0;
  long row = 0;
  friend bool operator==(const MoodDayPlacement&, const MoodDayPlacement&) = default;
};
// Where zero-based day `d` sits. With a = weekday of the 1st, less one in a
// Monday-first calendar, and o = a − 1: column (o + d) % 7 and row
// (o + d) / 7, truncated. A month beginning on a Sunday in a Monday-first
// calendar has a = 0: its 1st stays in row 0 at column −1, left of the
// grid, and every other day moves down a row. Other first weekdays than
// Sunday and Monday get no adjustment.
MoodDayPlacement placementOfDay(int weekdayOfFirst, int calendarFirstWeekday, long d);
// The rows a month's days take.
long rowsOfMonth(int weekdayOfFirst, int calendarFirstWeekday, int days);

// --- Frames of all months --------------------------------------------------------------
struct MoodCalendarMetrics {
  double width = 320;
  double daySize = 40;
  double space = 5;
  double headerHeight = 40;        // the month's title bar
  double weekdaysHeight = 20;      // the weekday letters of a month
  double monthBottomSpace = 10;    // below the last row
  double openedHeaderExtra = 180;  // an opened header's month selector

  // The month view's height for that many rows.
  double heightForRows(long rows) const {
    return weekdaysHeight + static_cast<double>(rows) * (daySize + space) + monthBottomSpace;
  }
};

class MoodCalendarLayout {
 public:
  // Header and month frames for every index from 0 to `currentMonthIndex`,
  // one below the other, and a content height with one viewport's room
  // after the last, so the newest month can reach the top.
  static MoodCalendarLayout build(long currentMonthIndex, int calendarFirstWeekday,
                                  const MoodCalendarMetrics& metrics, double viewportHeight);

  long monthCount() const { return static_cast<long>(monthFrames_.size()); }
  const Rect& monthFrame(long index) const { return monthFrames_.at(static_cast<std::size_t>(index)); }
  const Rect& headerFrame(long index) const { return headerFrames_.at(static_cast<std::size_t>(index)); }
  double contentHeight() const { return contentHeight_; }
  const MoodCalendarMetrics& metrics() const { return metrics_; }

  // Indices whose frames meet the band [offset, offset + height); the scan
  // runs from January 1970 and stops at the first miss after a hit.
  std::vector<long> visibleMonths(double offset, double height) const;
  std::vector<long> visibleHeaders(double offset, double height) const;
  // The visible month with the greatest visible height (strictly greater
  // than the best so far, from 0): where paging settles; -1 when none.
  long monthWithGreatestVisibleHeight(double offset, double height) const;
  // The offset that puts a month's header at the top.
  double offsetForMonth(long index) const;

  // An opened header grows by `delta`; every frame below moves down.
  void shiftBelowHeader(long index, double delta);

 private:
  static std::vector<long> visible(const std::vector<Rect>& frames, double offset, double height);

  MoodCalendarMetrics metrics_;
  std::vector<Rect> monthFrames_;
  std::vector<Rect> headerFrames_;
  double contentHeight_ = 0;
  double viewportHeight_ = 0;
};

// --- Recycling -------------------------------------------------------------------------------
// Which view shows which index. Views out of the visible set go back to the
// pool; each newly visible index takes a pooled view or a new one. Views
// are numbered in the order they were made.
class MoodCalendarRecycler {
 public:
  struct Counts {
    long made = 0;      // new views
    long reused = 0;    // taken from the pool
    long returned = 0;  // went back to the pool
  };

  // Applies a visible set; `assigned` gets the indices that need their
  // view set up (new or reused) with the view number.
  Counts update(const std::vector<long>& visible, std::vector<std::pair<long, long>>* assigned = nullptr);

  const std::map<long, long>& viewsInUse() const { return inUse_; }
  std::size_t freeViews() const { return free_.size(); }
  long viewsMade() const { return made_; }

 private:
  std::map<long, long> inUse_;  // index → view number
  std::vector<long> free_;
  long made_ = 0;
};

}  // namespace lumeo
