// The reminder pass: every enabled reminder becomes notification requests
// that repeat daily at an hour and minute, and each pass rebuilds the whole
// set from the stored dictionaries. Nothing is scheduled ahead by date, so
// after one pass nothing more is needed until the reminders change.
//
// planReminderPass() is the pure heart of it (dictionaries in, moments and
// the dictionaries to write back out); MoodReminderScheduler runs it the way
// the application does: on a background queue, with every call to the
// notification centre funnelled through the main queue.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/notification_center_service.h"
#include "platform/value.h"
#include "reminders/mood_random_reminder.h"
#include "shell/shell_services.h"

namespace lumeo {

class UserDefaults;

// One notification that a pass makes.
struct ReminderMoment {
  Date fireDate;  // only its hour and minute count
  std::string text;
  std::string soundFilename;
  std::string templateText;
  std::size_t reminderIndex = 0;  // position of its dictionary in "alarm"
  bool onlyIfNothingRecorded = false;
};

struct ReminderPass {
  std::vector<ReminderMoment> moments;
  // The dictionaries as they must be stored after the pass: copies of the
  // input, with "randomReminder" drawn or re-drawn where that was due.
  Value::Array alarms;
  // True when some random reminder was drawn or re-drawn; only then is the
  // array written back, once.
  bool changed = false;
};

// Works on the current calendar and clock. Elements that are not reminder
// dictionaries, disabled reminders and fixed reminders without a time make
// nothing; they stay in the array as they are.
ReminderPass planReminderPass(const Value::Array& alarms, const std::string& globalText,
                              const RandomSource& random = systemRandomSource());

// The request for one moment: badge 1, the text, the sound, the template in
// userInfo under "template", a daily trigger on the moment's hour and minute
// in the current time zone, and a new identifier.
NotificationRequest makeNotificationRequest(const ReminderMoment& moment);

// Shows and hides the progress indicator of a pass ("Setting up
// reminders..."). The front end's; the default shows nothing.
class ReminderProgressIndicator {
 public:
  virtual ~ReminderProgressIndicator() = default;
  // Called on the thread that asked for the pass.
  virtual void start(const std::string& label, double minimumShowTime) {
    (void)label;
    (void)minimumShowTime;
  }
  // Called on the main queue.
  virtual void stop() {}
};

class MoodReminderScheduler : public ReminderScheduler {
 public:
  static constexpr const char* kProgressLabel = "Setting up reminders...";
  static constexpr double kProgressMinimumShowTime = 1.5;

  // `defaults` null: the standard store at the time of each pass.
  MoodReminderScheduler(std::shared_ptr<NotificationCenterService> center,
                        std::shared_ptr<UserDefaults> defaults = nullptr,
                        std::shared_ptr<ReminderProgressIndicator> progress = nullptr,
                        RandomSource random = systemRandomSource());

  // The full pass; returns at once, the work runs on the global queue and
  // reaches the centre through the main queue. `passFinished` (tests, the
  // command line) runs on the main queue after the pass's last call.
  void rescheduleReminders(bool showProgress) override;
  void rescheduleReminders(bool showProgress, std::function<void()> passFinished);
  void rescheduleReminders() { rescheduleReminders(true); }
  // What a restore calls; the same as a pass with progress.
  void clearNotificationCenter() { rescheduleReminders(true); }
  void cancelAllLocalNotifications();
  void createLocalNotification(const ReminderMoment& moment);

  NotificationCenterService& center() { return *center_; }

 private:
  std::shared_ptr<NotificationCenterService> center_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<ReminderProgressIndicator> progress_;
  RandomSource random_;
};

}  // namespace lumeo
