// The delivery agent end to end: real reminder dictionaries go through the
// reminder pass into the pending-request file, and the agent delivers them
// on a simulated clock to python3-dbusmock's notification daemon on a
// private session bus. A whole day of fixed, periodic and random reminders,
// the two daylight-saving days of Europe/Berlin in 2024, a six-hour suspend,
// the action button, the request file rewritten or damaged while the agent
// waits, and a notification server that goes away and comes back.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "platform/clock.h"
#include "platform/linux/pending_request_file.h"
#include "platform/linux/reminder_delivery_agent.h"
#include "platform/log.h"
#include "reminders/mood_reminder_scheduler.h"
#include "reminders/reminder_test_support.h"
#include "testing/private_bus.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;
using testing::seededSource;
using testing::wallTime;

// --- A private session bus with the mock notification daemon -----------------

constexpr char kNotifications[] = "org.freedesktop.Notifications";
constexpr char kNotificationsPath[] = "/org/freedesktop/Notifications";

// One bus for the whole program: the agent reaches it as the session bus,
// whose connection GLib keeps once made. The mock daemon starts afresh for
// every test.
class NotificationBus {
 public:
  static NotificationBus& shared() {
    static NotificationBus bus;
    return bus;
  }
  bool ready() const { return bus_.ready(); }

  // Starts (or restarts) the mock daemon and waits for its name.
  bool startDaemon() {
    stopDaemon();
    return bus_.startMock(kNotifications, {"--template", "notification_daemon"});
  }
  void stopDaemon() { bus_.stopMock(kNotifications); }

  // Each Notify call so far: its arguments as a variant tuple (owned).
  std::vector<GVariant*> notifyCalls() {
    std::vector<GVariant*> out;
    GVariant* reply = nullptr;
    if (!bus_.mock(kNotifications, kNotificationsPath, "GetCalls", nullptr, &reply)) return out;
    GVariantIter* iter = nullptr;
    g_variant_get(reply, "(a(tsav))", &iter);
    guint64 stamp = 0;
    const char* method = nullptr;
    GVariantIter* args = nullptr;
    while (g_variant_iter_loop(iter, "(t&sav)", &stamp, &method, &args)) {
      if (g_strcmp0(method, "Notify") != 0) continue;
      GVariantBuilder tuple;
      g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
      GVariant* arg = nullptr;
      GVariantIter* copy = g_variant_iter_copy(args);
      while (g_variant_iter_loop(copy, "v", &arg)) g_variant_builder_add_value(&tuple, arg);
      g_variant_iter_free(copy);
      out.push_back(g_variant_ref_sink(g_variant_builder_end(&tuple)));
    }
    g_variant_iter_free(iter);
    g_variant_unref(reply);
    return out;
  }
  void clearCalls() { bus_.mock(kNotifications, kNotificationsPath, "ClearCalls", nullptr); }
  void emitAction(std::uint32_t id, const std::string& key) {
    GVariantBuilder args;
    g_variant_builder_init(&args, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&args, "v", g_variant_new_uint32(id));
    g_variant_builder_add(&args, "v", g_variant_new_string(key.c_str()));
    bus_.mock(kNotifications, kNotificationsPath, "EmitSignal",
              g_variant_new("(sssav)", kNotifications, "ActionInvoked", "us", &args));
  }

 private:
  NotificationBus() {
    if (bus_.ready()) ::setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(), 1);
  }

  testing::PrivateBus bus_;
};

// What the daemon was shown: body and the sound hint of each notification.
struct Shown {
  std::string body;
  std::string sound;
  std::vector<std::string> actions;
  bool missed = false;
};

std::vector<Shown> shown(NotificationBus& bus) {
  std::vector<Shown> out;
  for (GVariant* call : bus.notifyCalls()) {
    Shown s;
    const char* body = nullptr;
    g_variant_get_child(call, 4, "&s", &body);
    s.body = body ? body : "";
    GVariant* actions = g_variant_get_child_value(call, 5);
    GVariantIter iter;
    g_variant_iter_init(&iter, actions);
    const char* a = nullptr;
    while (g_variant_iter_loop(&iter, "&s", &a)) s.actions.push_back(a);
    g_variant_unref(actions);
    GVariant* hints = g_variant_get_child_value(call, 6);
    const char* value = nullptr;
    if (g_variant_lookup(hints, "sound-file", "&s", &value)) s.sound = std::string("file:") + value;
    if (g_variant_lookup(hints, "sound-name", "&s", &value)) s.sound = std::string("name:") + value;
    gboolean missed = FALSE;
    if (g_variant_lookup(hints, "x-lumeo-missed", "b", &missed)) s.missed = missed;
    g_variant_unref(hints);
    g_variant_unref(call);
    out.push_back(s);
  }
  return out;
}

// --- Fixture -------------------------------------------------------------------

class ReminderAgentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus().ready()) << "no dbus-daemon";
    ASSERT_TRUE(bus().startDaemon()) << "the mock notification daemon did not start";
    bus().clearCalls();
  }
  void TearDown() override {
    agent_.reset();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }
  static NotificationBus& bus() { return NotificationBus::shared(); }

  static Value fixed(int hour, int minute, const std::string& text = "", const std::string& templ = "") {
    Value::Dictionary d{{"on", true},
                        {"isPeriodic", 0},
                        {"timeFrom", wallTime(2024, 1, 5, hour, minute)},
                        {"reminderCount", 1},
                        {"kSoundFilenameKey", "Gong small.mp3"}};
    if (!text.empty()) d["reminderText"] = text;
    if (!templ.empty()) d["templateText"] = templ;
    return Value(d);
  }
  static Value window(int h1, int m1, int h2, int m2, int count, bool random = false) {
    return Value(Value::Dictionary{{"on", true},
                                   {"isPeriodic", 1},
                                   {"isRandom", random ? 1 : 0},
                                   {"timeFrom", wallTime(2024, 1, 5, h1, m1)},
                                   {"timeTo", wallTime(2024, 1, 5, h2, m2)},
                                   {"reminderCount", count}});
  }

  // A reminder pass into the request file, as `lumeo reminders` makes it.
  ReminderPass writeRequests(const Value::Array& alarms) {
    ReminderPass pass = planReminderPass(alarms, "How are you feeling right now?", seededSource(11));
    FileNotificationCenterService center(dir_ / kPendingRequestFileName);
    center.removeAllPendingNotificationRequests();
    for (const auto& m : pass.moments) center.addNotificationRequest(makeNotificationRequest(m));
    center.didFinishUpdatingPendingRequests();
    return pass;
  }

  void startAgent() {
    ReminderAgentOptions o;
    o.requestFile = dir_ / kPendingRequestFileName;
    // No state file: the restart case is the command line test's.
    o.soundsDirectory =
        std::filesystem::path(std::getenv("LUMEO_SOURCE_DIR") ? std::getenv("LUMEO_SOURCE_DIR") : ".") /
        "resources" / "sounds";
    o.actionInvoked = [this](const Value::Dictionary& info) { actions_.push_back(info); };
    o.recordedBetween = [this](Date since, Date until) {
      for (Date r : records_) {
        if (r > since && r <= until) return true;
      }
      return false;
    };
    agent_ = std::make_unique<ReminderDeliveryAgent>(o);
    agent_->start();
  }

  // Moves the clock minute by minute (and a few seconds into each minute,
  // as a timer lands) up to `until`, ticking the agent.
  void walkTo(Date until) {
    Date now = Date::now();
    while (now < until) {
      now = std::min(until, now.dateByAddingTimeInterval(60));
      clock_.clock().set(now);
      int before = agent_->delivered();
      agent_->tick();
      for (int i = before; i < agent_->delivered(); ++i) deliveredAt_.push_back(testing::hourMinute(now));
    }
  }

  ScopedEnvironment env_{{"TZ", "Europe/Berlin"}, {"LANG", "en_US.UTF-8"}};
  ScopedSimulatedClock clock_{Date::fromTimeIntervalSince1970(0)};
  testing::TempDir dir_;
  std::unique_ptr<ReminderDeliveryAgent> agent_;
  std::vector<Value::Dictionary> actions_;
  std::vector<Date> records_;
  std::vector<std::string> deliveredAt_;  // "HH:MM" of the clock at each delivery
};

TEST_F(ReminderAgentTest, ADayOfFixedPeriodicAndRandomReminders) {
  clock_.clock().set(wallTime(2024, 6, 10, 0, 0, 5));
  auto pass = writeRequests({fixed(7, 45, "Morning check", "#morning "), window(9, 0, 17, 30, 4),
                             window(9, 0, 21, 0, 3, true),
                             Value(Value::Dictionary{{"on", false}, {"date", wallTime(2024, 1, 5, 12, 0)}})});
  ASSERT_EQ(pass.moments.size(), 1u + 4u + 3u);
  startAgent();
  walkTo(wallTime(2024, 6, 11, 0, 0, 5));
  // Exactly the pass's moments, each in its own minute.
  std::vector<std::string> expected;
  for (const auto& m : pass.moments) expected.push_back(testing::hourMinute(m.fireDate));
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(deliveredAt_, expected);
  for (const char* fixedOrPeriodic : {"07:45", "09:00", "11:07", "13:15", "15:22"}) {
    EXPECT_NE(std::find(deliveredAt_.begin(), deliveredAt_.end(), fixedOrPeriodic), deliveredAt_.end())
        << fixedOrPeriodic;
  }
  auto got = shown(bus());
  ASSERT_EQ(got.size(), 8u);
  EXPECT_EQ(got[0].body, "Morning check");
  EXPECT_NE(got[0].sound.find("file:"), std::string::npos);
  EXPECT_NE(got[0].sound.find("Gong small.mp3"), std::string::npos);
  EXPECT_EQ(got[0].actions,
            (std::vector<std::string>{"default", "Record my mood", "CAPTURE_ACTION", "Record my mood"}));
  for (std::size_t i = 1; i < got.size(); ++i) {
    EXPECT_EQ(got[i].body, "How are you feeling right now?");
    EXPECT_EQ(got[i].sound,
              "file:" + std::string(std::getenv("LUMEO_SOURCE_DIR") ? std::getenv("LUMEO_SOURCE_DIR") : ".") +
                  "/resources/sounds/Default.mp3")
        << "no sound named: the shipped Default.mp3";
    EXPECT_FALSE(got[i].missed);
  }
  EXPECT_EQ(agent_->delivered(), 8);

  // The next day brings the same moments again, and nothing else.
  walkTo(wallTime(2024, 6, 12, 0, 0, 5));
  EXPECT_EQ(shown(bus()).size(), 16u);
}

TEST_F(ReminderAgentTest, DaylightSavingDaysOfEuropeBerlin) {
  // The wall clock at each delivery: in spring 02:00 and 02:30 do not
  // exist and come as much later as the jump; in autumn the repeated
  // 02:00-03:00 hour delivers its moments once, in its first pass.
  const std::map<int, std::vector<std::string>> expected = {
      {3, {"01:00", "01:30", "03:00", "03:00", "03:30", "03:30", "03:30"}},
      {10, {"01:00", "01:30", "02:00", "02:30", "02:30", "03:00", "03:30"}},
  };
  for (auto [month, day] : {std::pair{3, 31}, std::pair{10, 27}}) {
    bus().clearCalls();
    agent_.reset();
    deliveredAt_.clear();
    clock_.clock().set(wallTime(2024, month, day - 1, 23, 0));
    // 02:30 alone, and every 30 minutes from 01:00 to 04:00.
    writeRequests({fixed(2, 30, "Half past two"), window(1, 0, 4, 0, 6)});
    startAgent();
    walkTo(wallTime(2024, month, day, 6, 0));
    auto got = shown(bus());
    EXPECT_EQ(got.size(), 7u) << "each moment once on " << month << "-" << day;
    EXPECT_EQ(deliveredAt_, expected.at(month));
    EXPECT_EQ(std::count_if(got.begin(), got.end(), [](const Shown& s) { return s.body == "Half past two"; }),
              1)
        << month << "-" << day;
  }
}

TEST_F(ReminderAgentTest, SixHourSuspend) {
  clock_.clock().set(wallTime(2024, 6, 10, 6, 0));
  // Moments every two hours from 08:00 (8, 10, 12, 14, 16, 18) and a fixed
  // one at 11:00.
  writeRequests({window(8, 0, 20, 0, 6), fixed(11, 0, "Eleven")});
  startAgent();
  walkTo(wallTime(2024, 6, 10, 9, 0));
  ASSERT_EQ(shown(bus()).size(), 1u);
  // Asleep from 09:00 to 15:00: the wall clock jumps.
  clock_.clock().set(wallTime(2024, 6, 10, 15, 0, 20));
  agent_->tick();
  auto woke = shown(bus());
  ASSERT_EQ(woke.size(), 3u) << "one catch-up for the window, one for the fixed reminder";
  EXPECT_TRUE(woke[1].missed);
  EXPECT_TRUE(woke[2].missed);
  walkTo(wallTime(2024, 6, 10, 23, 0));
  EXPECT_EQ(shown(bus()).size(), 5u) << "16:00 and 18:00, nothing twice";
}

TEST_F(ReminderAgentTest, ActionHandsOverTheTemplate) {
  clock_.clock().set(wallTime(2024, 6, 10, 7, 0));
  writeRequests({fixed(7, 30, "", "#walk ")});
  startAgent();
  walkTo(wallTime(2024, 6, 10, 7, 31));
  ASSERT_EQ(shown(bus()).size(), 1u);
  bus().emitAction(99, "CAPTURE_ACTION");  // not ours
  bus().emitAction(1, "CAPTURE_ACTION");
  for (int i = 0; i < 200 && actions_.empty(); ++i) {
    g_main_context_iteration(nullptr, FALSE);
    g_usleep(5000);
  }
  ASSERT_EQ(actions_.size(), 1u);
  EXPECT_EQ(actions_[0].at("template"), Value("#walk "));
}

TEST_F(ReminderAgentTest, RewrittenAndDamagedRequestFiles) {
  ScopedLogCapture log(kLogLevelError);
  clock_.clock().set(wallTime(2024, 6, 10, 7, 0));
  writeRequests({fixed(8, 0, "Eight")});
  startAgent();
  walkTo(wallTime(2024, 6, 10, 8, 30));
  ASSERT_EQ(shown(bus()).size(), 1u);

  // Rewritten while the agent waits: the new set is delivered.
  writeRequests({fixed(9, 0, "Nine"), fixed(9, 30, "Half past nine")});
  walkTo(wallTime(2024, 6, 10, 9, 10));
  ASSERT_EQ(shown(bus()).size(), 2u);
  EXPECT_EQ(shown(bus())[1].body, "Nine");

  // Damaged: logged, the last good set stays in force.
  testing::writeFile(dir_ / kPendingRequestFileName, "{\"version\": 1, \"requests\": [{\"hour\": 25}");
  walkTo(wallTime(2024, 6, 10, 9, 40));
  EXPECT_TRUE(log.contains("Keeping the last good reminders"));
  auto got = shown(bus());
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[2].body, "Half past nine");

  // Repaired: read again.
  writeRequests({fixed(10, 0, "Ten")});
  walkTo(wallTime(2024, 6, 10, 10, 5));
  EXPECT_EQ(shown(bus()).back().body, "Ten");
}

TEST_F(ReminderAgentTest, NoNotificationServerIsSaidAndRetried) {
  ScopedLogCapture log(kLogLevelError);
  clock_.clock().set(wallTime(2024, 6, 10, 7, 0));
  writeRequests({fixed(8, 0, "Eight")});
  bus().stopDaemon();
  startAgent();
  EXPECT_TRUE(log.contains("No notification server on the session bus"));
  walkTo(wallTime(2024, 6, 10, 8, 2));
  EXPECT_EQ(agent_->delivered(), 0);
  ASSERT_TRUE(bus().startDaemon());
  walkTo(wallTime(2024, 6, 10, 8, 4));
  EXPECT_EQ(agent_->delivered(), 1) << "kept and delivered once the server is back";
  EXPECT_EQ(shown(bus()).size(), 1u);
  EXPECT_TRUE(log.contains("notification server is back"));
}

TEST_F(ReminderAgentTest, OnlyIfNothingRecordedSinceThePreviousMoment) {
  clock_.clock().set(wallTime(2024, 6, 10, 7, 0));
  Value::Dictionary quiet = *window(9, 0, 21, 0, 3).asDictionary();  // 09:00, 13:00, 17:00
  quiet["onlyIfNothingRecorded"] = true;
  writeRequests({Value(quiet)});
  startAgent();
  walkTo(wallTime(2024, 6, 10, 9, 1));
  EXPECT_EQ(shown(bus()).size(), 1u) << "nothing recorded since yesterday 17:00";
  records_.push_back(wallTime(2024, 6, 10, 10, 15));
  walkTo(wallTime(2024, 6, 10, 13, 1));
  EXPECT_EQ(shown(bus()).size(), 1u) << "a record at 10:15 silences 13:00";
  walkTo(wallTime(2024, 6, 10, 17, 1));
  EXPECT_EQ(shown(bus()).size(), 2u) << "nothing since 13:00";
}

}  // namespace
}  // namespace lumeo
