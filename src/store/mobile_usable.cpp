// MobileUsable's date helpers on the user's current calendar.
#include "store/mobile_usable.h"

#include "platform/calendar.h"

namespace lumeo {

DateComponents MobileUsable::differenceBetweenStartDate(Date start, Date andEndDate) {
  return Calendar::current().componentsFromDate(CalendarUnit::kEra | kYearToSecond, start, andEndDate);
}

bool MobileUsable::countingFromZeroBiggerThanDate(Date a, Date than) {
  return a > than;
}

bool MobileUsable::countingFromZeroLesserThanDate(Date a, Date than) {
  return a < than;
}

Date MobileUsable::date(Date a, const DateComponents& afterAddOfDateComponents) {
  return Calendar::current().dateByAddingComponents(afterAddOfDateComponents, a).value_or(a);
}

bool MobileUsable::amountTimeFromNewerDate(Date newer, std::optional<Date> toOlderDate,
                                           const DateComponents& moreThanAmountTimeComponents) {
  if (!toOlderDate) return false;
  const auto limit = Calendar::gregorian().dateByAddingComponents(moreThanAmountTimeComponents, *toOlderDate);
  return limit && newer > *limit;
}

}  // namespace lumeo
