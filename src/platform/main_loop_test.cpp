// The main loop on a simulated clock: delayed calls of every queue fire in due
// order at the right virtual instant, runFor/runUntil/runUntilIdle move time
// only as far as they may, and background work settles before time moves.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/dispatch_queue.h"
#include "platform/timer_scheduler.h"

namespace lumeo {
namespace {

class VirtualTime : public ::testing::Test {
 protected:
  double elapsed() const { return Date::now().timeIntervalSinceDate(start_); }

  Date start_ = Date::fromTimeIntervalSince1970(1'700'000'000);
  ScopedSimulatedClock clock_{start_};
};

TEST_F(VirtualTime, DelaysFireInDueOrderAtTheirVirtualInstant) {
  std::vector<std::pair<int, double>> fired;
  after(30, [&] { fired.emplace_back(30, elapsed()); });
  after(10, [&] { fired.emplace_back(10, elapsed()); });
  after(20, [&] { fired.emplace_back(20, elapsed()); });
  // Same instant: in the order they were asked for.
  after(20, [&] { fired.emplace_back(21, elapsed()); });

  EXPECT_DOUBLE_EQ(MainLoop::shared().secondsUntilNextTimer(), 10);
  MainLoop::shared().runFor(60);
  EXPECT_EQ(fired, (std::vector<std::pair<int, double>>{{10, 10}, {20, 20}, {21, 20}, {30, 30}}));
  EXPECT_DOUBLE_EQ(elapsed(), 60);
  EXPECT_LT(MainLoop::shared().secondsUntilNextTimer(), 0);
}

TEST_F(VirtualTime, RunForStopsAtItsEndAndLeavesLaterCallsWaiting) {
  std::vector<int> fired;
  after(5, [&] { fired.push_back(5); });
  after(15, [&] { fired.push_back(15); });
  MainLoop::shared().runFor(10);
  EXPECT_EQ(fired, std::vector<int>{5});
  EXPECT_DOUBLE_EQ(elapsed(), 10);
  EXPECT_DOUBLE_EQ(MainLoop::shared().secondsUntilNextTimer(), 5);
  MainLoop::shared().runFor(5);  // a call due exactly at the end fires
  EXPECT_EQ(fired, (std::vector<int>{5, 15}));
}

TEST_F(VirtualTime, RunUntilReturnsWhenTheConditionHoldsOrTheTimeoutPasses) {
  bool synced = false;
  after(20, [&] { synced = true; });
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return synced; }, 30));
  EXPECT_DOUBLE_EQ(elapsed(), 20);

  bool never = false;
  after(45, [&] { never = true; });
  EXPECT_FALSE(MainLoop::shared().runUntil([&] { return never; }, 10));
  EXPECT_DOUBLE_EQ(elapsed(), 30);
  EXPECT_FALSE(never);
}

TEST_F(VirtualTime, ChainedDelaysAndDelaysScheduledFromBlocks) {
  std::vector<double> fired;
  std::function<void()> tick = [&] {
    fired.push_back(elapsed());
    if (fired.size() < 4) after(2.5, tick);
  };
  after(2.5, tick);
  MainLoop::shared().runFor(100);
  EXPECT_EQ(fired, (std::vector<double>{2.5, 5, 7.5, 10}));
}

TEST_F(VirtualTime, RunUntilIdleMovesTimeOnlyWithinItsLimit) {
  bool fired = false;
  after(50, [&] { fired = true; });
  MainLoop::shared().runUntilIdle();
  EXPECT_FALSE(fired);
  EXPECT_DOUBLE_EQ(elapsed(), 0);
  MainLoop::shared().runUntilIdle(40);
  EXPECT_FALSE(fired);
  EXPECT_DOUBLE_EQ(elapsed(), 0);
  MainLoop::shared().runUntilIdle(60);
  EXPECT_TRUE(fired);
  EXPECT_DOUBLE_EQ(elapsed(), 50);
}

TEST_F(VirtualTime, BackgroundQueueDelaysFireWhenTheLoopMovesTime) {
  auto queue = DispatchQueue::makeSerial("sync nudge");
  std::atomic<double> firedAt{-1};
  std::atomic<bool> onQueue{false};
  queue->after(20, [&] {
    firedAt = elapsed();
    onQueue = queue->isCurrent();
  });
  MainLoop::shared().runFor(25);
  EXPECT_DOUBLE_EQ(firedAt.load(), 20);
  EXPECT_TRUE(onQueue.load());

  std::atomic<double> globalAt{-1};
  DispatchQueue::global().after(3, [&] { globalAt = elapsed(); });
  MainLoop::shared().runFor(5);
  EXPECT_DOUBLE_EQ(globalAt.load(), 28);
}

TEST_F(VirtualTime, TimeWaitsForBackgroundWorkToSettle) {
  // The worker takes real time before it schedules its reply; the loop must
  // not jump to the 30-second timeout meanwhile.
  auto queue = DispatchQueue::makeSerial("slow worker");
  bool replied = false;
  double repliedAt = -1;
  queue->async([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    DispatchQueue::main().after(1, [&] {
      replied = true;
      repliedAt = elapsed();
    });
  });
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return replied; }, 30));
  EXPECT_DOUBLE_EQ(repliedAt, 1);

  // An operation queue's work counts as well.
  OperationQueue operations(2, "slow operations");
  std::atomic<int> finished{0};
  for (int i = 0; i < 4; ++i) {
    operations.addOperation([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      DispatchQueue::main().after(2, [&] { ++finished; });
    });
  }
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return finished == 4; }, 30));
  EXPECT_DOUBLE_EQ(elapsed(), 3);
}

TEST_F(VirtualTime, RunEndsWithQuitFromABlock) {
  std::vector<double> fired;
  after(1, [&] { fired.push_back(elapsed()); });
  after(7, [&] {
    fired.push_back(elapsed());
    MainLoop::shared().quit();
  });
  after(9, [&] { fired.push_back(elapsed()); });
  MainLoop::shared().run();
  EXPECT_EQ(fired, (std::vector<double>{1, 7}));
  MainLoop::shared().quit();  // no run active: ignored, the next run is not cut short
  bool ran = false;
  after(1, [&] {
    ran = true;
    MainLoop::shared().quit();
  });
  MainLoop::shared().run();
  EXPECT_TRUE(ran);
  EXPECT_DOUBLE_EQ(elapsed(), 8);
  EXPECT_EQ(fired.size(), 2u);
  MainLoop::shared().runFor(1);  // the call due at 9 is still there
  EXPECT_EQ(fired, (std::vector<double>{1, 7, 9}));
}

TEST_F(VirtualTime, ZeroDelayIsAnOrdinaryAsync) {
  bool ran = false;
  after(0, [&] { ran = true; });
  EXPECT_EQ(MainLoop::shared().runOnce(), 1);
  EXPECT_TRUE(ran);
  EXPECT_DOUBLE_EQ(elapsed(), 0);
}

TEST_F(VirtualTime, RunOnceFiresCallsThatATestBroughtDueByHand) {
  bool fired = false;
  after(5, [&] { fired = true; });
  clock_.clock().advance(4);
  MainLoop::shared().runOnce();
  EXPECT_FALSE(fired);
  clock_.clock().advance(1);
  MainLoop::shared().runOnce();
  EXPECT_TRUE(fired);
}

TEST_F(VirtualTime, CancelledCallsNeverRunAndTimeDoesNotMoveToThem) {
  bool timedOut = false;
  DelayedCall timeout = after(30, [&] { timedOut = true; });
  bool nudged = false;
  DelayedCall nudge = after(20, [&] { nudged = true; });
  EXPECT_TRUE(timeout.isPending());
  EXPECT_TRUE(timeout.cancel());
  EXPECT_FALSE(timeout.isPending());
  EXPECT_FALSE(timeout.cancel());  // twice: nothing more to stop

  MainLoop::shared().runUntilIdle(3600);
  EXPECT_TRUE(nudged);
  EXPECT_FALSE(timedOut);
  EXPECT_DOUBLE_EQ(elapsed(), 20);  // not 30
  EXPECT_FALSE(nudge.isPending());
  EXPECT_FALSE(nudge.cancel());  // already ran

  EXPECT_FALSE(DelayedCall().cancel());
  EXPECT_FALSE(DelayedCall().isPending());
}

TEST_F(VirtualTime, CancelReleasesTheBlockAtOnce) {
  auto payload = std::make_shared<int>(7);
  std::weak_ptr<int> watch = payload;
  DelayedCall call = after(5, [payload] { (void)payload; });
  payload.reset();
  EXPECT_FALSE(watch.expired());
  call.cancel();
  EXPECT_TRUE(watch.expired());
}

TEST_F(VirtualTime, CancelStopsACallThatFiredButWaitsForItsBusyQueue) {
  auto queue = DispatchQueue::makeSerial("busy");
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> ran{false};
  queue->async([released] { released.wait(); });
  DelayedCall call = queue->after(1, [&] { ran = true; });
  clock_.clock().advance(1);
  TimerScheduler::shared().fireDueTimers();  // now queued behind the busy block
  EXPECT_TRUE(call.isPending());
  EXPECT_TRUE(call.cancel());
  release.set_value();
  queue->sync([] {});
  EXPECT_FALSE(ran.load());
}

TEST_F(VirtualTime, RepeatedRequestsKeepOnlyTheLastPendingCall) {
  // The sync nudge pattern: each merge cancels the pending nudge and asks
  // for a new one 20 seconds later, so a burst of merges gives one nudge.
  int nudges = 0;
  DelayedCall pending;
  for (int merge = 0; merge < 5; ++merge) {
    pending.cancel();
    pending = after(20, [&] { ++nudges; });
    MainLoop::shared().runFor(3);
  }
  MainLoop::shared().runFor(60);
  EXPECT_EQ(nudges, 1);
}

TEST(VirtualTimeIsolation, DelaysOfAFinishedClockNeverFireLater) {
  bool leaked = false;
  {
    ScopedSimulatedClock first;
    after(10, [&] { leaked = true; });
    EXPECT_EQ(TimerScheduler::shared().pendingCount(), 1);
  }
  {
    ScopedSimulatedClock second;
    EXPECT_EQ(TimerScheduler::shared().pendingCount(), 0);
    MainLoop::shared().runFor(3600);
  }
  MainLoop::shared().runOnce();  // back on the system clock
  EXPECT_FALSE(leaked);
}

TEST(RealTime, BackgroundDelaysFireWithoutARunningLoop) {
  auto queue = DispatchQueue::makeSerial("real time");
  std::promise<double> fired;
  auto firedAt = fired.get_future();
  Date start = Date::now();
  queue->after(0.05, [&] { fired.set_value(Date::now().timeIntervalSinceDate(start)); });
  ASSERT_EQ(firedAt.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_GE(firedAt.get(), 0.05);
}

TEST(RealTime, MainLoopRunsDelaysAndIdlesOut) {
  bool fired = false;
  after(0.02, [&] { fired = true; });
  MainLoop::shared().runUntilIdle(10);
  EXPECT_TRUE(fired);
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return fired; }, 0));
}

TEST(RealTime, ADelayedCallOnADestroyedQueueIsDropped) {
  std::atomic<bool> ran{false};
  {
    auto queue = DispatchQueue::makeSerial("short-lived");
    queue->after(0.01, [&] { ran = true; });
  }
  MainLoop::shared().runFor(0.1);
  EXPECT_FALSE(ran.load());
}

}  // namespace
}  // namespace lumeo
