// The history of one day, opened from a day of the calendar: the History
// tab's list over that day (or over the period filter, when one is set).
// Its share sheet offers Edit only, and its deletions arrive under the tag
// screens' notification, which only the screen that asked acts on.
#pragma once

#include "browse/mood_history_view_controller.h"

namespace lumeo {

class MoodDateHistoryViewController : public MoodHistoryViewController {
 public:
  MoodDateHistoryViewController(Date day, Environment environment = {});

  Date date() const { return date_; }
  // The day in the long style, without time (shown in bold, 20 points).
  std::string title() const;

  std::optional<Predicate> recordsFilterPredicate() override;
  int chooseActionKind() const override { return 2; }

 private:
  Date date_;
};

}  // namespace lumeo
