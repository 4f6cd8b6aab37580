// The desktop's notification centre as Lumeo uses it: a set of pending
// requests, each repeating daily at an hour and minute in a time zone, that a
// reminder pass replaces whole. The Linux side keeps the set in a file that a
// delivery agent reads (platform/linux/pending_request_file.h); tests keep it
// in memory. Also the calendar rule that says when a daily request fires,
// daylight-saving days included, which the agent and `lumeo reminders
// pending` share.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/time_zone.h"
#include "platform/value.h"

namespace lumeo {

// What a notification shows and hands back.
struct NotificationContent {
  long badge = 1;
  std::string body;
  // A sound file name of the reminder catalogue, or the name that stands for
  // the desktop's own sound.
  std::string sound;
  // Handed back to the application when the user acts on the notification.
  Value::Dictionary userInfo;
  // Requests of one reminder share this, so that catch-ups after a sleep can
  // be folded into one notification per reminder.
  std::string threadIdentifier;

  friend bool operator==(const NotificationContent&, const NotificationContent&) = default;
};

// A daily trigger: the hour and minute in a named time zone.
struct CalendarTrigger {
  int hour = 0;
  int minute = 0;
  std::string timeZone;  // Olson name; empty means the zone current at fire time
  bool repeats = true;

  friend bool operator==(const CalendarTrigger&, const CalendarTrigger&) = default;
};

struct NotificationRequest {
  std::string identifier;
  NotificationContent content;
  CalendarTrigger trigger;
  // Deliver only when nothing was recorded since the previous moment of the
  // same reminder (the previous fire of any request with the same thread).
  bool onlyIfNothingRecorded = false;

  friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

// The pending requests. Calls come from the main queue; the set is replaced
// by removeAll followed by adds, and didFinishUpdatingPendingRequests() marks
// the end of one such replacement (the file-backed centre writes then, so
// that nobody reading the file sees half a pass). Failures are logged and
// otherwise dropped: a reminder pass does not look at results.
class NotificationCenterService {
 public:
  virtual ~NotificationCenterService() = default;
  virtual void addNotificationRequest(const NotificationRequest& request) = 0;
  virtual void removeAllPendingNotificationRequests() = 0;
  virtual void didFinishUpdatingPendingRequests() {}
  virtual std::vector<NotificationRequest> pendingNotificationRequests() const = 0;
};

// Keeps the set in memory (tests, and front ends without a delivery agent).
class InMemoryNotificationCenterService : public NotificationCenterService {
 public:
  void addNotificationRequest(const NotificationRequest& request) override;
  void removeAllPendingNotificationRequests() override;
  void didFinishUpdatingPendingRequests() override;
  std::vector<NotificationRequest> pendingNotificationRequests() const override;
  // Calls seen so far, in order: "remove", "add", "finish".
  std::vector<std::string> calls() const;

 private:
  mutable std::mutex mutex_;
  std::vector<NotificationRequest> requests_;
  std::vector<std::string> calls_;
};

// --- When a daily trigger fires ------------------------------------------
//
// On an ordinary day: at hour:minute:00 local time in the trigger's zone.
// A time that the clock skips (02:30 when clocks spring from 02:00 to 03:00)
// fires as if the clock had not jumped, that much later by the new clock
// (03:30), once. A time that the clock passes twice (02:30 when clocks fall
// back from 03:00 to 02:00) fires once, at the first pass.

// The zone a trigger is read in: its own, or the current one when it names
// none or names a zone that does not exist.
TimeZone triggerTimeZone(const CalendarTrigger& trigger);
// The fire time on the civil day year-month-day of the trigger's zone.
Date fireDateOnDay(const CalendarTrigger& trigger, int year, int month, int day);
// The first fire time strictly after `after`.
Date nextFireDate(const CalendarTrigger& trigger, Date after);
// The latest fire time at or before `atOrBefore`.
Date previousFireDate(const CalendarTrigger& trigger, Date atOrBefore);

}  // namespace lumeo
