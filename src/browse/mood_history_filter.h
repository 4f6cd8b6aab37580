// The history's period filter: two bounds picked in a sheet, the rules that
// keep them in order and whole days, "Today" as a moving end, and the range
// that the list fetch uses. Plain state and rules, no store: the history
// screens, the tag and day screens and the command line share it.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/date.h"

namespace lumeo {

// The end of a day as the filter writes it: its start plus 86399 seconds.
inline constexpr double kMoodHistoryDayEnd = 86399.0;

struct MoodHistoryPeriodFilter {
  enum DateEnum { kNone = 0, kEditingFrom = 1, kEditingTo = 2 };

  std::optional<Date> dateFrom;
  std::optional<Date> dateTo;
  int dateEnum = kNone;
  bool isFiltered = false;
  bool isFilteredOnToday = false;
  // The picker's limits: the first record's day and the end of today.
  std::optional<Date> minimumDate;
  std::optional<Date> maximumDate;

  // The inclusive range of the fetch, or nothing for no filter. A single
  // bound means the whole day of that bound; two bounds go in date order
  // whichever way round they were set. With `isFilteredOnToday` the end
  // becomes the end of today first (so the list follows the days).
  std::optional<std::pair<Date, Date>> fetchRange(Date now);

  // Opening the sheet: a missing bound makes the filter the whole journal,
  // from the first record's day to the end of today.
  void startDateSelected(std::optional<Date> firstRecordDate, Date now);
  void setDefaultsDates(std::optional<Date> firstRecordDate, Date now);
  // A date picked for the bound being edited (dateEnum). From never passes
  // To and the other way round; To always ends at its day's end.
  void dateSelected(Date picked, Date now);
  // "Done": the whole picker range counts as no filter.
  void filterDoneClicked();
  // "Clear", and a restored backup.
  void clearFilter();
  // After a sync: the first record's day and the end of the later of today
  // and the last record.
  void requestDates(Date firstRecord, Date lastRecord, Date now);

  // The labels: long date, no time, no relative names; To reads "Today"
  // when the filter follows today.
  std::string fromLabel() const;
  std::string toLabel() const;
  // The filter button's image.
  std::string filterButtonImageName() const { return isFiltered ? "FilterBlack" : "filterEmpty"; }
  // "Clear" is offered only for an active filter.
  bool isClearEnabled() const { return isFiltered; }
};

}  // namespace lumeo
