// Notification delivery: synchronous, in the order observers were added,
// filtered by name and sender, and safe when observers come and go during a
// delivery.
#include "platform/notification_center.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace lumeo {
namespace {

TEST(NotificationCenter, DeliversSynchronouslyInTheOrderObserversWereAdded) {
  NotificationCenter center;
  std::vector<std::string> calls;
  ScopedObserver a(center, "MoodModelHasChangedNotification", nullptr,
                   [&](const Notification&) { calls.push_back("a"); });
  ScopedObserver b(center, "MoodModelHasChangedNotification", nullptr,
                   [&](const Notification&) { calls.push_back("b"); });
  ScopedObserver all(center, "", nullptr, [&](const Notification& n) { calls.push_back("all:" + n.name); });
  ScopedObserver other(center, "OtherNotification", nullptr,
                       [&](const Notification&) { calls.push_back("other"); });

  std::thread::id deliveredOn;
  ScopedObserver thread(center, "MoodModelHasChangedNotification", nullptr,
                        [&](const Notification&) { deliveredOn = std::this_thread::get_id(); });
  center.post("MoodModelHasChangedNotification");
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "all:MoodModelHasChangedNotification"}));
  EXPECT_EQ(deliveredOn, std::this_thread::get_id());
}

TEST(NotificationCenter, CarriesObjectAndUserInfo) {
  NotificationCenter center;
  std::string object;
  Value::Dictionary info;
  ScopedObserver o(center, "Saved", nullptr, [&](const Notification& n) {
    object = std::any_cast<std::string>(n.object);
    info = n.userInfo;
  });
  center.post("Saved", nullptr, std::string("record"), {{"count", 3}});
  EXPECT_EQ(object, "record");
  EXPECT_EQ(info.at("count"), Value(3));
}

TEST(NotificationCenter, SenderFilterMatchesOnlyThatSender) {
  NotificationCenter center;
  int mine = 0;
  int anyone = 0;
  int contextA = 0, contextB = 0;
  ScopedObserver filtered(center, "DidSave", &contextA, [&](const Notification&) { ++mine; });
  ScopedObserver open(center, "DidSave", nullptr, [&](const Notification&) { ++anyone; });
  center.post("DidSave", &contextA);
  center.post("DidSave", &contextB);
  center.post("DidSave");
  EXPECT_EQ(mine, 1);
  EXPECT_EQ(anyone, 3);
  (void)contextB;
}

TEST(NotificationCenter, RemovalDuringDeliveryTakesEffectAtOnce) {
  NotificationCenter center;
  std::vector<std::string> calls;
  ObserverToken second = 0;
  ObserverToken first = center.addObserver("N", nullptr, [&](const Notification&) {
    calls.push_back("first");
    center.removeObserver(second);  // a later observer: not called any more
    center.removeObserver(first);   // itself: fine, and not called next time
  });
  second = center.addObserver("N", nullptr, [&](const Notification&) { calls.push_back("second"); });
  center.addObserver("N", nullptr, [&](const Notification&) { calls.push_back("third"); });
  center.post("N");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "third"}));
  calls.clear();
  center.post("N");
  EXPECT_EQ(calls, (std::vector<std::string>{"third"}));
}

TEST(NotificationCenter, ObserversAddedDuringDeliveryHearOnlyLaterPosts) {
  NotificationCenter center;
  std::vector<std::string> calls;
  std::vector<ScopedObserver> added;
  ScopedObserver adder(center, "N", nullptr, [&](const Notification&) {
    calls.push_back("adder");
    if (added.empty()) {
      added.emplace_back(center, "N", nullptr, [&](const Notification&) { calls.push_back("late"); });
    }
  });
  center.post("N");
  EXPECT_EQ(calls, std::vector<std::string>{"adder"});
  center.post("N");
  EXPECT_EQ(calls, (std::vector<std::string>{"adder", "adder", "late"}));
}

TEST(NotificationCenter, PostingFromAnObserverNests) {
  NotificationCenter center;
  std::vector<std::string> calls;
  ScopedObserver outer(center, "Outer", nullptr, [&](const Notification&) {
    calls.push_back("outer begin");
    center.post("Inner");
    calls.push_back("outer end");
  });
  ScopedObserver inner(center, "Inner", nullptr, [&](const Notification&) { calls.push_back("inner"); });
  center.post("Outer");
  EXPECT_EQ(calls, (std::vector<std::string>{"outer begin", "inner", "outer end"}));
}

TEST(NotificationCenter, ScopedObserverStopsAtScopeEndAndMoves) {
  NotificationCenter center;
  int calls = 0;
  {
    ScopedObserver kept;
    {
      ScopedObserver o(center, "N", nullptr, [&](const Notification&) { ++calls; });
      kept = std::move(o);
    }
    center.post("N");
    EXPECT_EQ(calls, 1);
  }
  center.post("N");
  EXPECT_EQ(calls, 1);
}

TEST(NotificationCenter, ConcurrentPostersAndObserversDoNotLoseDeliveries) {
  NotificationCenter center;
  std::atomic<int> delivered{0};
  ScopedObserver counter(center, "Tick", nullptr, [&](const Notification&) { ++delivered; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        ScopedObserver churn(center, "Other", nullptr, [](const Notification&) {});
        center.post("Tick");
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(delivered.load(), 2000);
}

}  // namespace
}  // namespace lumeo
