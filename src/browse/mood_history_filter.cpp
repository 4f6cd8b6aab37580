// The period filter's rules.
#include "browse/mood_history_filter.h"

#include "browse/browse_text.h"
#include "platform/date_formatter.h"
#include "store/date_all.h"

namespace lumeo {

namespace {

Date dayEnd(Date d) {
  return onlyDate(d).dateByAddingTimeInterval(kMoodHistoryDayEnd);
}

std::string longDateText(Date d) {
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kLong);
  formatter.setTimeStyle(DateFormatter::Style::kNone);
  return formatter.stringFromDate(d);
}

}  // namespace

std::optional<std::pair<Date, Date>> MoodHistoryPeriodFilter::fetchRange(Date now) {
  if (isFilteredOnToday) dateTo = dayEnd(now);
  if (!dateFrom && !dateTo) return std::nullopt;
  if (dateFrom && dateTo) {
    Date a = *dateFrom, b = *dateTo;
    if (b < a) std::swap(a, b);
    return std::make_pair(a, b);
  }
  Date bound = dateFrom ? *dateFrom : *dateTo;
  return std::make_pair(onlyDate(bound), dayEnd(bound));
}

void MoodHistoryPeriodFilter::startDateSelected(std::optional<Date> firstRecordDate, Date now) {
  if (!dateFrom || !dateTo) {
    isFilteredOnToday = true;
    setDefaultsDates(firstRecordDate, now);
  }
  if (!minimumDate) minimumDate = onlyDate(firstRecordDate.value_or(now));
  if (!maximumDate) maximumDate = dayEnd(now);
}

void MoodHistoryPeriodFilter::setDefaultsDates(std::optional<Date> firstRecordDate, Date now) {
  dateFrom = onlyDate(firstRecordDate.value_or(now));
  dateTo = dayEnd(now);
  minimumDate = dateFrom;
  maximumDate = dateTo;
}

void MoodHistoryPeriodFilter::dateSelected(Date picked, Date now) {
  Date dayStart = onlyDate(picked);
  if (dateEnum == kEditingFrom) {
    dateFrom = dayStart;
    if (dateTo && *dateFrom > *dateTo) dateFrom = onlyDate(*dateTo);
  } else if (dateEnum == kEditingTo) {
    dateTo = dayStart;
    if (dateFrom && *dateTo < *dateFrom) dateTo = *dateFrom;
  } else {
    return;
  }
  if (dateTo) {
    dateTo = dayEnd(*dateTo);
    isFilteredOnToday = onlyDate(*dateTo) == onlyDate(now);
  }
}

void MoodHistoryPeriodFilter::filterDoneClicked() {
  bool wholeRange = dateFrom && dateTo && minimumDate && maximumDate &&
                    onlyDate(*dateFrom) == onlyDate(*minimumDate) &&
                    onlyDate(*dateTo) == onlyDate(*maximumDate);
  if (wholeRange || (!dateFrom && !dateTo)) {
    clearFilter();
  } else {
    isFiltered = true;
  }
  dateEnum = kNone;
}

void MoodHistoryPeriodFilter::clearFilter() {
  isFilteredOnToday = false;
  isFiltered = false;
  dateFrom.reset();
  dateTo.reset();
}

void MoodHistoryPeriodFilter::requestDates(Date firstRecord, Date lastRecord, Date now) {
  minimumDate = onlyDate(firstRecord);
  maximumDate = dayEnd(lastRecord > now ? lastRecord : now);
}

std::string MoodHistoryPeriodFilter::fromLabel() const {
  return dateFrom ? longDateText(*dateFrom) : std::string();
}

std::string MoodHistoryPeriodFilter::toLabel() const {
  if (isFilteredOnToday) return browseText("Today");
  return dateTo ? longDateText(*dateTo) : std::string();
}

}  // namespace lumeo
