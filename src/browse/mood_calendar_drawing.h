// One month of the calendar as a picture: the title, the weekday letters and
// each day's tile (picture, day number and the strip of its records), drawn
// through Canvas as the GUI's month view shows it. The command line writes
// it with `lumeo calendar --png`.
#pragma once

#include <string>

#include "browse/mood_calendar_view.h"
#include "platform/canvas.h"

namespace lumeo {

// Draws `month` (already filled by setYearMonth) with `title` over it, at
// `scale` pixels a point, on white. A 1st that sits left of the grid (a
// Monday-first month starting on a Sunday) gets a column of room there.
Canvas drawCalendarMonth(const MoodCalendarMonthView& month, const MoodCalendarMetrics& metrics,
                         const std::string& title, double scale);

}  // namespace lumeo
