// The reminder pass and its queues.
#include "reminders/mood_reminder_scheduler.h"

#include <algorithm>

#include "platform/calendar.h"
#include "platform/dispatch_queue.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "platform/time_zone.h"
#include "platform/user_defaults.h"
#include "reminders/mood_reminder.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

// Today at the hour and minute of `time`, seconds zero.
std::optional<Date> todayAt(const Calendar& calendar, Date time) {
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  today.hour = calendar.component(CalendarUnit::kHour, time);
  today.minute = calendar.component(CalendarUnit::kMinute, time);
  today.second = 0;
  return calendar.dateFromComponents(today);
}

void addPeriodicMoments(const MoodReminder& reminder, ReminderMoment base, std::vector<ReminderMoment>& out) {
  if (!reminder.timeFrom || !reminder.timeTo) return;
  Calendar calendar = Calendar::current();
  auto start = todayAt(calendar, *reminder.timeFrom);
  auto end = todayAt(calendar, *reminder.timeTo);
  if (!start || !end) return;
  const std::int64_t startHour = calendar.component(CalendarUnit::kHour, *start);
  const std::int64_t startMinute = calendar.component(CalendarUnit::kMinute, *start);
  const std::int64_t endHour = calendar.component(CalendarUnit::kHour, *end);
  const std::int64_t endMinute = calendar.component(CalendarUnit::kMinute, *end);
  // Two independent tests, as the random reminders make them: 09:30-17:00
  // counts as ending tomorrow. The moments then spread over 31.5 hours and
  // wrap past midnight, which is what stored reminders have always done.
  if (endHour < startHour || endMinute < startMinute) {
    end = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, *end);
    if (!end) return;
  }
  const std::int64_t n = std::max<std::int64_t>(1, reminder.reminderCount);
  const double step = end->timeIntervalSinceDate(*start) / static_cast<double>(n);
  if (!(*start < *end)) return;
  for (std::int64_t i = 0; i < n; ++i) {
    base.fireDate = start->dateByAddingTimeInterval(static_cast<double>(i) * step);
    out.push_back(base);
  }
}

}  // namespace

ReminderPass planReminderPass(const Value::Array& alarms, const std::string& globalText,
                              const RandomSource& random) {
  ReminderPass pass;
  pass.alarms = alarms;
  for (std::size_t index = 0; index < pass.alarms.size(); ++index) {
    Value& element = pass.alarms[index];
    auto reminder = MoodReminder::dictionaryToReminder(element);
    if (!reminder) {
      LUMEO_LOG_DEBUG("Reminder %@ is not a dictionary; skipped", static_cast<long>(index));
      continue;
    }
    if (!reminder->isEnabled) continue;
    Value::Dictionary& dictionary = *element.asDictionary();

    ReminderMoment base;
    base.soundFilename = MoodReminder::soundFilenameFromDict(dictionary, true);
    base.text =
        reminder->reminderText && !reminder->reminderText->empty() ? *reminder->reminderText : globalText;
    base.templateText = reminder->templateText.value_or("");
    base.reminderIndex = index;
    base.onlyIfNothingRecorded = reminder->onlyIfNothingRecorded;

    if (!reminder->isPeriodic) {
      // dictionaryToReminder already let a legacy "date" win over "timeFrom".
      if (!reminder->timeFrom) continue;
      base.fireDate = *reminder->timeFrom;
      pass.moments.push_back(base);
    } else if (!reminder->isRandom) {
      addPeriodicMoments(*reminder, base, pass.moments);
    } else {
      auto stored = dictionary.find(kReminderRandomReminderKey);
      MoodRandomReminder drawn(random);
      if (stored == dictionary.end() || !stored->second.asDictionary()) {
        drawn.setFromTime(reminder->timeFrom, reminder->timeTo);
        drawn.setRepeatCount(static_cast<std::uint64_t>(std::max<std::int64_t>(0, reminder->reminderCount)));
        drawn.recreateRandomShots();
        dictionary[kReminderRandomReminderKey] = Value(drawn.convertToDictionary());
        pass.changed = true;
      } else {
        drawn = MoodRandomReminder::initFromDictionary(*stored->second.asDictionary(), random);
        if (drawn.needToRescheduleRelativelyCurrentDate()) {
          drawn.randomizeAllShotsIfNeed();
          drawn.recalculateDateAfterWhichRandomizingPossible();
          dictionary[kReminderRandomReminderKey] = Value(drawn.convertToDictionary());
          pass.changed = true;
        }
      }
      const auto& shots = drawn.randomReminderShots();
      for (std::uint64_t i = 0; i < drawn.repeatCount() && i < shots.size(); ++i) {
        base.fireDate = shots[i].fireDate();
        pass.moments.push_back(base);
      }
    }
  }
  return pass;
}

NotificationRequest makeNotificationRequest(const ReminderMoment& moment) {
  NotificationRequest request;
  request.identifier = globallyUniqueString();
  request.content.badge = 1;
  request.content.body = moment.text;
  request.content.sound = moment.soundFilename;
  request.content.userInfo = {{"template", Value(moment.templateText)}};
  request.content.threadIdentifier = "reminder-" + std::to_string(moment.reminderIndex);
  Calendar calendar = Calendar::current();
  // The seconds are dropped: a request fires on the minute.
  request.trigger.hour = static_cast<int>(calendar.component(CalendarUnit::kHour, moment.fireDate));
  request.trigger.minute = static_cast<int>(calendar.component(CalendarUnit::kMinute, moment.fireDate));
  request.trigger.timeZone = TimeZone::current().identifier();
  request.trigger.repeats = true;
  request.onlyIfNothingRecorded = moment.onlyIfNothingRecorded;
  return request;
}

// --- Scheduler ------------------------------------------------------------------

MoodReminderScheduler::MoodReminderScheduler(std::shared_ptr<NotificationCenterService> center,
                                             std::shared_ptr<UserDefaults> defaults,
                                             std::shared_ptr<ReminderProgressIndicator> progress,
                                             RandomSource random)
    : center_(center ? std::move(center) : std::make_shared<InMemoryNotificationCenterService>()),
      defaults_(std::move(defaults)),
      progress_(progress ? std::move(progress) : std::make_shared<ReminderProgressIndicator>()),
      random_(random ? std::move(random) : systemRandomSource()) {}

void MoodReminderScheduler::rescheduleReminders(bool showProgress) {
  rescheduleReminders(showProgress, nullptr);
}

void MoodReminderScheduler::rescheduleReminders(bool showProgress, std::function<void()> passFinished) {
  if (showProgress) progress_->start(localized(kProgressLabel), kProgressMinimumShowTime);
  auto center = center_;
  auto defaults = defaults_;
  auto progress = progress_;
  auto random = random_;
  DispatchQueue::global().async([center, defaults, progress, random, showProgress, passFinished] {
    // Every cancel and add goes through the main queue in the order of
    // dispatch, so all cancels of a pass come before all of its adds.
    DispatchQueue::main().async([center] { center->removeAllPendingNotificationRequests(); });
    MoodUserDefaultsOperator settings(defaults);
    std::string globalText = settings.remindersText().value_or("");
    ReminderPass pass = planReminderPass(settings.remindersAlarms(), globalText, random);
    for (const ReminderMoment& moment : pass.moments) {
      NotificationRequest request = makeNotificationRequest(moment);
      DispatchQueue::main().async([center, request] { center->addNotificationRequest(request); });
    }
    DispatchQueue::main().async([center] { center->didFinishUpdatingPendingRequests(); });
    if (pass.changed) {
      if (auto error = settings.setRemindersAlarms(pass.alarms)) {
        LUMEO_LOG_DEBUG("Could not store the drawn reminders: %@", *error);
      }
    }
    DispatchQueue::main().async([progress, showProgress, passFinished] {
      if (showProgress) progress->stop();
      if (passFinished) passFinished();
    });
  });
}

void MoodReminderScheduler::cancelAllLocalNotifications() {
  auto center = center_;
  DispatchQueue::main().async([center] { center->removeAllPendingNotificationRequests(); });
}

void MoodReminderScheduler::createLocalNotification(const ReminderMoment& moment) {
  auto center = center_;
  NotificationRequest request = makeNotificationRequest(moment);
  DispatchQueue::main().async([center, request] { center->addNotificationRequest(request); });
}

}  // namespace lumeo
