// The in-memory notification centre and the daily trigger rule.
#include "platform/notification_center_service.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <mutex>

namespace lumeo {

void InMemoryNotificationCenterService::addNotificationRequest(const NotificationRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  calls_.push_back("add");
}

void InMemoryNotificationCenterService::removeAllPendingNotificationRequests() {
  std::lock_guard lock(mutex_);
  requests_.clear();
  calls_.push_back("remove");
}

void InMemoryNotificationCenterService::didFinishUpdatingPendingRequests() {
  std::lock_guard lock(mutex_);
  calls_.push_back("finish");
}

std::vector<NotificationRequest> InMemoryNotificationCenterService::pendingNotificationRequests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<std::string> InMemoryNotificationCenterService::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

// --- Trigger rule -------------------------------------------------------------

namespace {

using std::chrono::day;
using std::chrono::days;
using std::chrono::month;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;

// Seconds since 1970 of a wall time read as if it were UTC.
double wallSeconds(const year_month_day& ymd, int hour, int minute) {
  return static_cast<double>(sys_days(ymd).time_since_epoch().count()) * 86400.0 + hour * 3600.0 +
         minute * 60.0;
}

year_month_day civilDay(const TimeZone& zone, Date instant) {
  double local = instant.timeIntervalSince1970() + zone.secondsFromGMT(instant);
  auto dayNumber = static_cast<long>(std::floor(local / 86400.0));
  return year_month_day(sys_days(days(dayNumber)));
}

Date fireOn(const CalendarTrigger& trigger, const TimeZone& zone, const year_month_day& ymd) {
  const double wall = wallSeconds(ymd, trigger.hour, trigger.minute);
  // The offsets a day before and a day after: at most one change lies
  // between them for every zone in use.
  const int before = zone.secondsFromGMT(Date::fromTimeIntervalSince1970(wall - 86400));
  const int after = zone.secondsFromGMT(Date::fromTimeIntervalSince1970(wall + 86400));
  const Date withBefore = Date::fromTimeIntervalSince1970(wall - before);
  const Date withAfter = Date::fromTimeIntervalSince1970(wall - after);
  const bool beforeFits = zone.secondsFromGMT(withBefore) == before;
  const bool afterFits = zone.secondsFromGMT(withAfter) == after;
  if (beforeFits && afterFits) return std::min(withBefore, withAfter);  // the first of two passes
  if (afterFits) return withAfter;
  // Either the only reading, or a skipped time read with the offset from
  // before the jump, which puts it as much later as the jump is long.
  return withBefore;
}

}  // namespace

TimeZone triggerTimeZone(const CalendarTrigger& trigger) {
  if (!trigger.timeZone.empty()) {
    // Zones are immutable and looking one up is costly; an agent asks for
    // the same few zones at every wake.
    static std::mutex mutex;
    static std::map<std::string, std::optional<TimeZone>> cache;
    std::lock_guard lock(mutex);
    auto it = cache.find(trigger.timeZone);
    if (it == cache.end()) it = cache.emplace(trigger.timeZone, TimeZone::named(trigger.timeZone)).first;
    if (it->second) return *it->second;
  }
  return TimeZone::current();
}

Date fireDateOnDay(const CalendarTrigger& trigger, int y, int m, int d) {
  year_month_day ymd(year(y), month(static_cast<unsigned>(m)), day(static_cast<unsigned>(d)));
  return fireOn(trigger, triggerTimeZone(trigger), ymd);
}

Date nextFireDate(const CalendarTrigger& trigger, Date after) {
  TimeZone zone = triggerTimeZone(trigger);
  sys_days start = sys_days(civilDay(zone, after)) - days(1);
  for (int i = 0; i < 4; ++i) {
    Date fire = fireOn(trigger, zone, year_month_day(start + days(i)));
    if (fire > after) return fire;
  }
  return after.dateByAddingTimeInterval(86400);  // not reached for real zones
}

Date previousFireDate(const CalendarTrigger& trigger, Date atOrBefore) {
  TimeZone zone = triggerTimeZone(trigger);
  sys_days start = sys_days(civilDay(zone, atOrBefore)) + days(1);
  for (int i = 0; i < 4; ++i) {
    Date fire = fireOn(trigger, zone, year_month_day(start - days(i)));
    if (fire <= atOrBefore) return fire;
  }
  return atOrBefore.dateByAddingTimeInterval(-86400);
}

}  // namespace lumeo
