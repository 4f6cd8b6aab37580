// Which pending requests are due: the part of a delivery agent that needs no
// desktop. It walks the clock forward from the last instant it checked, so a
// wake-up after a suspend, a wall-clock jump or a late timer finds every
// moment it passed; it never looks at an instant twice, so no moment is
// delivered twice, even when the clock is set back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/notification_center_service.h"

namespace lumeo {

struct DueNotification {
  NotificationRequest request;
  Date fireDate;
  // Missed by more than kOnTimeSeconds (the machine slept, the clock jumped):
  // one such notification per reminder, for its latest missed moment.
  bool catchUp = false;
};

class NotificationDeliveryPlanner {
 public:
  // A moment this much past is delivered as missed.
  static constexpr double kOnTimeSeconds = 90;

  // Nothing at or before `checkedUntil` is delivered.
  explicit NotificationDeliveryPlanner(Date checkedUntil) : checkedUntil_(checkedUntil) {}

  // Replaces the requests; what was checked stays checked.
  void setRequests(std::vector<NotificationRequest> requests) {
    requests_ = std::move(requests);
    next_.reset();
  }
  const std::vector<NotificationRequest>& requests() const { return requests_; }

  // The moments in (checkedUntil, now], in fire order, and moves
  // checkedUntil to now. On time, every request due fires; for missed
  // moments each reminder (requests of one thread) gives one catch-up, and
  // none when the same reminder also has a moment on time. A clock set back
  // gives nothing until it passes checkedUntil again.
  std::vector<DueNotification> collectDue(Date now);

  // The earliest moment after max(checkedUntil, now); none without requests.
  std::optional<Date> nextFireDate(Date now) const;

  // The moment before `fireDate` of the same reminder: the latest earlier
  // fire of any request of that thread (for a single daily request, the day
  // before).
  Date previousMomentOfReminder(const NotificationRequest& request, Date fireDate) const;

  Date checkedUntil() const { return checkedUntil_; }

 private:
  std::vector<NotificationRequest> requests_;
  Date checkedUntil_;
  // The first moment after checkedUntil_, while known: most wake-ups fall
  // before it and need no calendar work.
  mutable std::optional<Date> next_;
};

}  // namespace lumeo
