// One day's history.
#include "browse/mood_date_history_view_controller.h"

#include "platform/date_formatter.h"
#include "store/date_all.h"
#include "store/notification_names.h"

namespace lumeo {

MoodDateHistoryViewController::MoodDateHistoryViewController(Date day, Environment environment)
    : MoodHistoryViewController(std::move(environment), "MoodDateHistoryViewController",
                                MoodTagDeleteRecordNotification, true),
      date_(day) {
  selectedHistoryViewType_ = kList;
}

std::string MoodDateHistoryViewController::title() const {
  return DateFormatter::localizedStringFromDate(date_, DateFormatter::Style::kLong,
                                                DateFormatter::Style::kNone);
}

std::optional<Predicate> MoodDateHistoryViewController::recordsFilterPredicate() {
  if (auto period = periodPredicate()) return period;
  Date start = onlyDate(date_);
  return Predicate::predicateWithFormat("(date >= %@ AND date <= %@)", start,
                                        start.dateByAddingTimeInterval(kMoodHistoryDayEnd));
}

}  // namespace lumeo
