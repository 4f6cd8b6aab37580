// Due moments of pending requests.
#include "platform/notification_delivery.h"

#include <algorithm>
#include <map>

namespace lumeo {

std::vector<DueNotification> NotificationDeliveryPlanner::collectDue(Date now) {
  std::vector<DueNotification> onTime;
  std::map<std::string, DueNotification> missed;  // by thread: the latest
  if (now > checkedUntil_ && next_ && now < *next_) {
    checkedUntil_ = now;  // nothing falls due before the known next moment
    return {};
  }
  if (now > checkedUntil_) {
    next_.reset();
    for (const auto& request : requests_) {
      // Only the latest moment of each request counts: a request missed on
      // several days is still one reminder to record.
      Date fire = previousFireDate(request.trigger, now);
      if (fire <= checkedUntil_) continue;
      DueNotification due{request, fire, now.timeIntervalSinceDate(fire) > kOnTimeSeconds};
      if (!due.catchUp) {
        onTime.push_back(std::move(due));
        continue;
      }
      std::string thread =
          request.content.threadIdentifier.empty() ? request.identifier : request.content.threadIdentifier;
      auto it = missed.find(thread);
      if (it == missed.end() || it->second.fireDate < fire) missed[thread] = std::move(due);
    }
    checkedUntil_ = now;
  }
  std::vector<DueNotification> due;
  for (auto& entry : missed) {
    // Plain references, not a structured binding: clang before 16 cannot
    // capture a binding in a lambda.
    const std::string& thread = entry.first;
    DueNotification& notification = entry.second;
    bool coveredOnTime = std::any_of(onTime.begin(), onTime.end(), [&](const DueNotification& d) {
      return d.request.content.threadIdentifier == notification.request.content.threadIdentifier &&
             !thread.empty() && thread == d.request.content.threadIdentifier;
    });
    if (!coveredOnTime) due.push_back(std::move(notification));
  }
  due.insert(due.end(), onTime.begin(), onTime.end());
  std::stable_sort(due.begin(), due.end(), [](const DueNotification& a, const DueNotification& b) {
    return a.fireDate < b.fireDate;
  });
  return due;
}

std::optional<Date> NotificationDeliveryPlanner::nextFireDate(Date now) const {
  if (!next_) {
    for (const auto& request : requests_) {
      Date fire = lumeo::nextFireDate(request.trigger, checkedUntil_);
      if (!next_ || fire < *next_) next_ = fire;
    }
  }
  if (next_ && *next_ <= now) {
    // Asked about a later instant than was checked: look from there.
    std::optional<Date> later;
    for (const auto& request : requests_) {
      Date fire = lumeo::nextFireDate(request.trigger, now);
      if (!later || fire < *later) later = fire;
    }
    return later;
  }
  return next_;
}

Date NotificationDeliveryPlanner::previousMomentOfReminder(const NotificationRequest& request,
                                                           Date fireDate) const {
  Date before = fireDate.dateByAddingTimeInterval(-1);
  Date latest = previousFireDate(request.trigger, before);
  if (request.content.threadIdentifier.empty()) return latest;
  for (const auto& other : requests_) {
    if (other.content.threadIdentifier != request.content.threadIdentifier) continue;
    Date fire = previousFireDate(other.trigger, before);
    if (fire > latest) latest = fire;
  }
  return latest;
}

}  // namespace lumeo
