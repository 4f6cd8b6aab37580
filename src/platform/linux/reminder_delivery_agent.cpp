// The delivery agent's loop.
#include "platform/linux/reminder_delivery_agent.h"

#include <gio/gio.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <variant>

#include "platform/atomic_file.h"
#include "platform/linux/pending_request_file.h"
#include "platform/log.h"
#include "platform/time_zone.h"

namespace lumeo {

namespace {

std::optional<Date> readState(const std::filesystem::path& file) {
  if (file.empty()) return std::nullopt;
  std::ifstream in(file);
  double seconds = 0;
  if (!(in >> seconds) || !std::isfinite(seconds)) return std::nullopt;
  return Date::fromTimeIntervalSince1970(seconds);
}

Date startInstant(const ReminderAgentOptions& options) {
  Date now = Date::now();
  auto saved = readState(options.stateFile);
  if (!saved || *saved > now) return now;
  return std::max(*saved, now.dateByAddingTimeInterval(-options.startCatchUpSeconds));
}

bool sameStamp(const struct ::stat& a, const struct ::stat& b) {
  return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

}  // namespace

ReminderDeliveryAgent::ReminderDeliveryAgent(ReminderAgentOptions options)
    : options_(std::move(options)),
      planner_(startInstant(options_)),
      notifications_(options_.soundsDirectory) {
  notifications_.setActionHandler([this](const Value::Dictionary& userInfo) {
    if (options_.actionInvoked) options_.actionInvoked(userInfo);
  });
}

ReminderDeliveryAgent::~ReminderDeliveryAgent() {
  if (timer_) g_source_remove(timer_);
  if (loop_) g_main_loop_unref(loop_);
}

void ReminderDeliveryAgent::start() {
  zoneSource_ = zoneSource();
  zone_ = TimeZone::current().identifier();
  if (options_.reschedule) options_.reschedule();
  reloadIfChanged();
  if (!notifications_.serverAvailable()) {
    LUMEO_LOG_ERROR(
        "No notification server on the session bus (org.freedesktop.Notifications); "
        "reminders wait until one appears");
    serverMissingSaid_ = true;
  }
}

void ReminderDeliveryAgent::reloadIfChanged() {
  struct ::stat stamp {};
  if (::stat(options_.requestFile.c_str(), &stamp) != 0) {
    if (fileStamp_)
      LUMEO_LOG_WARNING("The pending reminders %@ are gone; keeping the last set", options_.requestFile);
    fileStamp_.reset();
    return;
  }
  if (fileStamp_ && sameStamp(*fileStamp_, stamp)) return;
  fileStamp_ = stamp;
  auto read = readPendingRequestFile(options_.requestFile);
  if (auto* error = std::get_if<Error>(&read)) {
    LUMEO_LOG_ERROR("Keeping the last good reminders: %@", error->description);
    return;
  }
  auto& requests = std::get<std::vector<NotificationRequest>>(read);
  LUMEO_LOG_VERBOSE("Loaded %@ pending reminders", static_cast<long>(requests.size()));
  planner_.setRequests(std::move(requests));
}

// What decides the current zone: TZ, and /etc/localtime (a link that a
// zone change replaces). Cheap to read at every wake, unlike the zone.
std::string ReminderDeliveryAgent::zoneSource() {
  std::string key = "TZ=";
  if (const char* tz = std::getenv("TZ")) key += tz;
  std::error_code ec;
  key += ";" + std::filesystem::read_symlink("/etc/localtime", ec).string();
  struct ::stat st {};
  if (::stat("/etc/localtime", &st) == 0) {
    key += ";" + std::to_string(st.st_ino) + ";" + std::to_string(st.st_mtim.tv_sec);
  }
  return key;
}

void ReminderDeliveryAgent::checkTimeZone() {
  std::string source = zoneSource();
  if (source == zoneSource_) return;
  zoneSource_ = source;
  std::string zone = TimeZone::current().identifier();
  if (zone == zone_) return;
  LUMEO_LOG_VERBOSE("The time zone changed from %@ to %@; rebuilding the reminders", zone_, zone);
  zone_ = zone;
  if (options_.reschedule) options_.reschedule();
  reloadIfChanged();
}

void ReminderDeliveryAgent::tick() {
  if (options_.remindersChanged && options_.remindersChanged()) {
    LUMEO_LOG_VERBOSE("The reminders changed; rebuilding the pending set");
    if (options_.reschedule) options_.reschedule();
  }
  reloadIfChanged();
  checkTimeZone();
  Date now = Date::now();
  // Notifications that found no server are kept for a while; a reminder
  // from hours ago that never showed is not worth showing any more.
  std::vector<DueNotification> due;
  for (auto& d : retry_) {
    if (now.timeIntervalSinceDate(d.fireDate) <= options_.retrySeconds) due.push_back(std::move(d));
  }
  retry_.clear();
  const bool quiet = planner_.nextFireDate(now).value_or(Date::distantFuture()) > now;
  for (auto& d : planner_.collectDue(now)) due.push_back(std::move(d));
  const bool anything = !due.empty();
  deliver(std::move(due));
  // The state only matters for a restart; write it when something happened
  // or every few minutes, not at every wake.
  if (anything || !quiet || now.timeIntervalSinceDate(lastSaved_) > 300 || now < lastSaved_) saveState();
  if (options_.onTick) options_.onTick(now);
}

void ReminderDeliveryAgent::deliver(std::vector<DueNotification> due) {
  Date now = Date::now();
  for (auto& d : due) {
    if (d.request.onlyIfNothingRecorded && options_.recordedBetween) {
      Date previous = planner_.previousMomentOfReminder(d.request, d.fireDate);
      if (options_.recordedBetween(previous, now)) {
        LUMEO_LOG_VERBOSE("Reminder at %02d:%02d stays silent: a record was made since its previous moment",
                          d.request.trigger.hour, d.request.trigger.minute);
        continue;
      }
    }
    auto posted = notifications_.post(d.request, d.catchUp);
    if (auto* error = std::get_if<Error>(&posted)) {
      if (!serverMissingSaid_ || error->code != kNoNotificationServer) {
        LUMEO_LOG_ERROR("Could not show a reminder: %@; trying again", error->description);
        serverMissingSaid_ = error->code == kNoNotificationServer;
      }
      retry_.push_back(std::move(d));
      continue;
    }
    if (serverMissingSaid_) {
      LUMEO_LOG_ERROR("The notification server is back; reminders are shown again");
      serverMissingSaid_ = false;
    }
    ++delivered_;
  }
}

void ReminderDeliveryAgent::saveState() {
  if (options_.stateFile.empty()) return;
  lastSaved_ = Date::now();
  char text[64];
  std::snprintf(text, sizeof text, "%.3f\n", planner_.checkedUntil().timeIntervalSince1970());
  if (auto error = writeFileAtomically(options_.stateFile, std::string_view(text))) {
    LUMEO_LOG_DEBUG("Could not keep the agent's state: %@", *error);
  }
}

std::optional<Date> ReminderDeliveryAgent::nextWake() const {
  return planner_.nextFireDate(Date::now());
}

void ReminderDeliveryAgent::armTimer() {
  if (timer_) g_source_remove(timer_);
  double wait = options_.maxSleepSeconds;
  if (!retry_.empty()) wait = std::min(wait, 10.0);
  if (auto next = nextWake()) wait = std::min(wait, std::max(0.0, next->timeIntervalSinceDate(Date::now())));
  auto ms = static_cast<guint>(std::ceil(wait * 1000.0)) + 5;  // land just after the minute
  timer_ = g_timeout_add(
      ms,
      [](gpointer self) -> gboolean {
        auto* agent = static_cast<ReminderDeliveryAgent*>(self);
        agent->timer_ = 0;
        agent->tick();
        agent->armTimer();
        return G_SOURCE_REMOVE;
      },
      this);
}

void ReminderDeliveryAgent::run(bool once, double pollSeconds) {
  start();
  tick();
  if (once) return;
  if (!loop_) loop_ = g_main_loop_new(nullptr, FALSE);
  armTimer();
  guint poll = 0;
  if (pollSeconds > 0) {
    poll = g_timeout_add(
        static_cast<guint>(pollSeconds * 1000),
        [](gpointer self) -> gboolean {
          static_cast<ReminderDeliveryAgent*>(self)->tick();
          return G_SOURCE_CONTINUE;
        },
        this);
  }
  // A change of the request file is seen at once, not at the next wake.
  GFile* file = g_file_new_for_path(options_.requestFile.c_str());
  GFileMonitor* monitor = g_file_monitor_file(file, G_FILE_MONITOR_NONE, nullptr, nullptr);
  if (monitor) {
    g_signal_connect(monitor, "changed",
                     G_CALLBACK(+[](GFileMonitor*, GFile*, GFile*, GFileMonitorEvent, gpointer self) {
                       auto* agent = static_cast<ReminderDeliveryAgent*>(self);
                       agent->tick();
                       agent->armTimer();
                     }),
                     this);
  }
  g_main_loop_run(loop_);
  if (monitor) g_object_unref(monitor);
  g_object_unref(file);
  if (poll) g_source_remove(poll);
}

void ReminderDeliveryAgent::quit() {
  if (loop_) g_main_loop_quit(loop_);
}

}  // namespace lumeo
