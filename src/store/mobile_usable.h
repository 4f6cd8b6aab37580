// Date helpers of the general-purpose MobileUsable toolbox: the difference
// between two dates broken into calendar fields, order tests, and the
// "has this much time passed" test behind the backup reminders.
#pragma once

#include <optional>

#include "platform/date.h"
#include "platform/date_components.h"

namespace lumeo {

class MobileUsable {
 public:
  // Era, year, month, day, hour, minute and second from `start` to
  // `andEndDate`, in the user's current calendar. Each field is what remains
  // after the larger ones, so 1 month and 2 days has day 2: the backup
  // reminder counts on that.
  static DateComponents differenceBetweenStartDate(Date start, Date andEndDate);

  // `date:countingFromZeroBiggerThanDate:` and
  // `date:countingFromZeroLesserThanDate:` take the same argument types, so
  // in C++ they cannot both be overloads of date(); each is named by its
  // second keyword instead.
  // True if `a` is later than `than`.
  static bool countingFromZeroBiggerThanDate(Date a, Date than);
  // True if `a` is earlier than `than`.
  static bool countingFromZeroLesserThanDate(Date a, Date than);

  // The calendar's addition of the components to the date (months clip to
  // the last day of a shorter month). A sum beyond the calendar's range
  // gives the date back.
  static Date date(Date a, const DateComponents& afterAddOfDateComponents);

  // True if `newer` lies after `toOlderDate` plus the components, in the
  // Gregorian calendar (the one operation that doesn't follow the user's
  // calendar system); false without an older date.
  static bool amountTimeFromNewerDate(Date newer, std::optional<Date> toOlderDate,
                                      const DateComponents& moreThanAmountTimeComponents);
};

}  // namespace lumeo
