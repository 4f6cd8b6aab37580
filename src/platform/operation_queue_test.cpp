// Operation queues: the concurrency limit holds, a limit of one keeps order,
// cancelling drops only what has not started, suspension holds work back,
// and waiting and destruction wait for what runs.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/dispatch_queue.h"

namespace lumeo {
namespace {

// A latch that operations block on until the test opens it.
class Gate {
 public:
  void open() {
    {
      std::lock_guard lock(mutex_);
      open_ = true;
    }
    changed_.notify_all();
  }
  void pass() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

// Counts operations inside at once and remembers the most.
struct Occupancy {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  void enter() {
    int now = ++inside;
    int seen = most.load();
    while (now > seen && !most.compare_exchange_weak(seen, now)) {
    }
  }
  void leave() { --inside; }
};

TEST(OperationQueue, NeverRunsMoreThanTheLimitAndReachesIt) {
  OperationQueue queue(3, "limited");
  Occupancy occupancy;
  std::atomic<int> started{0};
  Gate gate;
  for (int i = 0; i < 12; ++i) {
    queue.addOperation([&] {
      occupancy.enter();
      ++started;
      gate.pass();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      occupancy.leave();
    });
  }
  // Three start and block on the gate; the rest must wait for a slot.
  while (started < 3) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(started.load(), 3);
  EXPECT_EQ(queue.operationCount(), 12);
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(started.load(), 12);
  EXPECT_EQ(occupancy.most.load(), 3);
  EXPECT_EQ(queue.operationCount(), 0);
}

TEST(OperationQueue, LimitOfOneRunsInOrderOneAtATime) {
  OperationQueue queue(1, "serial");
  Occupancy occupancy;
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    queue.addOperation([&, i] {
      occupancy.enter();
      order.push_back(i);
      EXPECT_TRUE(queue.isCurrent());
      occupancy.leave();
    });
  }
  queue.waitUntilAllOperationsAreFinished();
  ASSERT_EQ(order.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(occupancy.most.load(), 1);
  EXPECT_FALSE(queue.isCurrent());
}

TEST(OperationQueue, CancelDropsWaitingOperationsButLetsRunningOnesFinish) {
  OperationQueue queue(1, "cancel");
  Gate gate;
  std::atomic<bool> firstStarted{false};
  std::atomic<bool> firstFinished{false};
  std::atomic<int> laterRan{0};
  queue.addOperation([&] {
    firstStarted = true;
    gate.pass();
    firstFinished = true;
  });
  for (int i = 0; i < 5; ++i) queue.addOperation([&] { ++laterRan; });
  while (!firstStarted) std::this_thread::yield();
  queue.cancelAllOperations();
  EXPECT_EQ(queue.operationCount(), 1);
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(firstFinished.load());
  EXPECT_EQ(laterRan.load(), 0);

  // The queue keeps working after a cancel.
  queue.addOperation([&] { ++laterRan; });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(laterRan.load(), 1);
}

TEST(OperationQueue, SuspendedQueueHoldsWorkUntilResumed) {
  OperationQueue queue(2, "suspend");
  queue.setSuspended(true);
  EXPECT_TRUE(queue.isSuspended());
  std::atomic<int> ran{0};
  for (int i = 0; i < 4; ++i) queue.addOperation([&] { ++ran; });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(ran.load(), 0);
  EXPECT_EQ(queue.operationCount(), 4);
  queue.setSuspended(false);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran.load(), 4);
}

TEST(OperationQueue, RaisingTheLimitStartsWaitingWork) {
  OperationQueue queue(0, "raised");
  std::atomic<int> ran{0};
  queue.addOperation([&] { ++ran; });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(ran.load(), 0);
  queue.setMaxConcurrentOperationCount(-1);
  EXPECT_EQ(queue.maxConcurrentOperationCount(), -1);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran.load(), 1);
}

TEST(OperationQueue, DestructionWaitsForTheRunningOperationAndDropsTheRest) {
  std::atomic<bool> finished{false};
  std::atomic<int> dropped{0};
  std::atomic<bool> started{false};
  {
    OperationQueue queue(1, "closing");
    queue.addOperation([&] {
      started = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      finished = true;
    });
    queue.addOperation([&] { ++dropped; });
    while (!started) std::this_thread::yield();
  }
  EXPECT_TRUE(finished.load());
  EXPECT_EQ(dropped.load(), 0);
}

TEST(OperationQueue, WaitingFromInsideAnOperationDoesNotWaitForItself) {
  OperationQueue queue(2, "self wait");
  std::atomic<bool> siblingDone{false};
  std::atomic<bool> sawSibling{false};
  queue.addOperation([&] { siblingDone = true; });
  queue.addOperation([&] {
    queue.waitUntilAllOperationsAreFinished();
    sawSibling = siblingDone.load();
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(sawSibling.load());
}

}  // namespace
}  // namespace lumeo
