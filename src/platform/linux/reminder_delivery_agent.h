// The reminder delivery agent behind `lumeo agent`: it reads the
// pending-request file, waits for the next due minute in local wall-clock
// time and posts each reminder to the desktop's notification server.
//
// Waiting: never longer than maxSleepSeconds at a time, and each wake-up
// compares the clock with the last instant checked, so a suspend, a
// wall-clock change or a time-zone change is noticed within that bound (a
// monotonic sleep alone would miss them). Moments missed meanwhile give one
// catch-up per reminder; no moment is delivered twice. The request file is
// reloaded when it changes; a damaged file is logged and the last good set
// kept. Without a notification server the agent says so once, keeps the due
// notifications for up to an hour and tries again.
//
// All time comes from Clock::current(). The agent runs on the thread of the
// default GLib main context; tests drive it with tick() on a simulated clock.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/desktop_notifications.h"
#include "platform/notification_delivery.h"

typedef struct _GMainLoop GMainLoop;

namespace lumeo {

struct ReminderAgentOptions {
  std::filesystem::path requestFile;
  std::filesystem::path soundsDirectory;
  // Where the last checked instant is kept between runs; empty: nowhere.
  std::filesystem::path stateFile;
  // A reminder pass that rewrites the request file; run at start and when
  // the time zone changes. May be empty.
  std::function<void()> reschedule;
  // Asked at every wake: true when the reminders in the settings changed
  // behind the agent's back (a restore, another front end, a hand edit),
  // which calls for a pass. May be empty.
  std::function<bool()> remindersChanged;
  // True when the journal holds a record dated in (since, until]. Asked
  // only for requests that are to stay silent after a record. Empty: never.
  std::function<bool(Date since, Date until)> recordedBetween;
  // The user chose the action on a reminder: hand the template over and
  // open the capture screen.
  std::function<void(const Value::Dictionary& userInfo)> actionInvoked;
  // Moments up to this long before the start are still delivered (as
  // catch-ups) when the state file says they were not checked yet.
  double startCatchUpSeconds = 3600;
  double maxSleepSeconds = 30;
  // Undelivered notifications (no server) are retried this long.
  double retrySeconds = 3600;
  // Called after every tick with the instant checked (test hook).
  std::function<void(Date checked)> onTick;
};

class ReminderDeliveryAgent {
 public:
  explicit ReminderDeliveryAgent(ReminderAgentOptions options);
  ~ReminderDeliveryAgent();
  ReminderDeliveryAgent(const ReminderDeliveryAgent&) = delete;
  ReminderDeliveryAgent& operator=(const ReminderDeliveryAgent&) = delete;

  // Runs the start pass and loads the requests.
  void start();
  // One round: reload the file if it changed, re-run the pass if the time
  // zone changed, deliver what is due, retry what could not be delivered.
  void tick();
  // The instant the agent next needs to look.
  std::optional<Date> nextWake() const;
  // Runs the GLib main loop until quit() (or, with `once`, one tick).
  // `pollSeconds` > 0 also ticks at that real-time interval (the test clock).
  void run(bool once, double pollSeconds = 0);
  void quit();

  const NotificationDeliveryPlanner& planner() const { return planner_; }
  DesktopNotifications& notifications() { return notifications_; }
  int delivered() const { return delivered_; }

 private:
  void reloadIfChanged();
  void checkTimeZone();
  static std::string zoneSource();
  void deliver(std::vector<DueNotification> due);
  void saveState();
  void armTimer();

  ReminderAgentOptions options_;
  NotificationDeliveryPlanner planner_;
  DesktopNotifications notifications_;
  std::optional<struct ::stat> fileStamp_;
  std::string zone_;
  std::string zoneSource_;
  std::deque<DueNotification> retry_;
  bool serverMissingSaid_ = false;
  int delivered_ = 0;
  Date lastSaved_;
  GMainLoop* loop_ = nullptr;
  unsigned timer_ = 0;
};

}  // namespace lumeo
