// Serial, global and main queues: order, one-at-a-time execution, sync
// re-entrancy across queues, exceptions, and what happens to queued work when
// a queue goes away.
#include "platform/dispatch_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/log.h"

namespace lumeo {
namespace {

// Waits in real time for a background result; generous, since a loaded
// machine may be slow. Only failures hit the limit.
template <typename T>
T await(std::future<T>& f) {
  EXPECT_EQ(f.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  return f.get();
}

TEST(SerialQueue, RunsBlocksOneAtATimeInTheOrderAdded) {
  auto queue = DispatchQueue::makeSerial("order");
  std::vector<int> order;
  std::atomic<int> inside{0};
  std::atomic<int> mostInside{0};
  for (int i = 0; i < 200; ++i) {
    queue->async([&, i] {
      int now = ++inside;
      mostInside = std::max(mostInside.load(), now);
      order.push_back(i);  // unsynchronised on purpose: the queue is the lock
      --inside;
    });
  }
  queue->sync([] {});
  ASSERT_EQ(order.size(), 200u);
  for (int i = 0; i < 200; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(mostInside.load(), 1);
  EXPECT_EQ(queue->label(), "order");
}

TEST(SerialQueue, SyncIsReentrantOnItsOwnQueueAndAcrossQueues) {
  auto a = DispatchQueue::makeSerial("a");
  auto b = DispatchQueue::makeSerial("b");
  std::vector<std::string> trace;
  a->sync([&] {
    trace.push_back("a");
    EXPECT_TRUE(a->isCurrent());
    a->sync([&] { trace.push_back("a again"); });
    b->sync([&] {
      trace.push_back("b");
      EXPECT_TRUE(b->isCurrent());
      // a's thread is blocked waiting for this block: going back to a must
      // not deadlock.
      a->sync([&] { trace.push_back("a from b"); });
    });
  });
  EXPECT_EQ(trace, (std::vector<std::string>{"a", "a again", "b", "a from b"}));
  EXPECT_FALSE(a->isCurrent());
  EXPECT_FALSE(b->isCurrent());
}

TEST(SerialQueue, SyncWaitsForEarlierBlocks) {
  auto queue = DispatchQueue::makeSerial("earlier");
  std::promise<void> gate;
  std::shared_future<void> opened = gate.get_future().share();
  std::atomic<bool> firstDone{false};
  queue->async([&] {
    opened.wait();
    firstDone = true;
  });
  std::thread opener([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    gate.set_value();
  });
  bool sawFirst = false;
  queue->sync([&] { sawFirst = firstDone; });
  opener.join();
  EXPECT_TRUE(sawFirst);
}

TEST(SerialQueue, ExceptionsReachTheSyncCallerAndDoNotStopTheQueue) {
  auto queue = DispatchQueue::makeSerial("throws");
  EXPECT_THROW(queue->sync([] { throw std::runtime_error("bad record"); }), std::runtime_error);

  ScopedLogCapture log(kLogLevelError);
  queue->async([] { throw std::runtime_error("lost in async"); });
  int after = 0;
  queue->sync([&] { after = 1; });
  EXPECT_EQ(after, 1);
  EXPECT_TRUE(log.contains("lost in async"));
  EXPECT_TRUE(log.contains("throws"));
}

TEST(SerialQueue, DestroyingTheQueueRunsTheBlocksAlreadyQueued) {
  std::atomic<int> ran{0};
  {
    auto queue = DispatchQueue::makeSerial("closing");
    for (int i = 0; i < 50; ++i) {
      queue->async([&] {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        ++ran;
      });
    }
  }
  EXPECT_EQ(ran.load(), 50);
}

TEST(SerialQueue, LastReferenceDroppedInsideItsOwnBlock) {
  auto queue = DispatchQueue::makeSerial("self-release");
  std::promise<void> done;
  auto finished = done.get_future();
  DispatchQueue* raw = queue.get();
  raw->async([q = std::move(queue), &done]() mutable {
    q.reset();  // the queue dies on its own worker thread
    done.set_value();
  });
  await(finished);
  SUCCEED();
}

TEST(GlobalQueue, RunsBlocksAtTheSameTime) {
  // Two blocks that each wait for the other can only finish concurrently.
  std::promise<void> first, second;
  auto firstSeen = first.get_future().share();
  auto secondSeen = second.get_future().share();
  std::promise<void> bothDone;
  std::atomic<int> finished{0};
  auto done = bothDone.get_future();
  auto block = [&](std::promise<void>& mine, std::shared_future<void> other) {
    mine.set_value();
    other.wait();
    if (++finished == 2) bothDone.set_value();
  };
  DispatchQueue::global().async([&] { block(first, secondSeen); });
  DispatchQueue::global().async([&] { block(second, firstSeen); });
  await(done);
  EXPECT_EQ(finished.load(), 2);
}

TEST(GlobalQueue, SyncRunsOnTheCallerAndKnowsItsQueue) {
  std::thread::id runner;
  bool current = false;
  DispatchQueue::global().sync([&] {
    runner = std::this_thread::get_id();
    current = DispatchQueue::global().isCurrent();
  });
  EXPECT_EQ(runner, std::this_thread::get_id());
  EXPECT_TRUE(current);
  EXPECT_FALSE(DispatchQueue::global().isCurrent());
}

TEST(MainQueue, IsTheMainThreadAndSyncFromItRunsInline) {
  EXPECT_TRUE(MainLoop::shared().isMainThread());
  EXPECT_TRUE(DispatchQueue::main().isCurrent());
  int ran = 0;
  DispatchQueue::main().sync([&] { ran = 1; });
  EXPECT_EQ(ran, 1);

  std::promise<bool> fromWorker;
  auto answer = fromWorker.get_future();
  std::thread([&] {
    fromWorker.set_value(DispatchQueue::main().isCurrent() || MainLoop::shared().isMainThread());
  }).join();
  EXPECT_FALSE(answer.get());
}

TEST(MainQueue, BackgroundSyncWaitsForTheLoopToRunIt) {
  auto queue = DispatchQueue::makeSerial("worker");
  std::atomic<bool> done{false};
  std::thread::id ranOn;
  queue->async([&] {
    DispatchQueue::main().sync([&] { ranOn = std::this_thread::get_id(); });
    done = true;
  });
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return done.load(); }, 20));
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(MainQueue, SerialQueueCalledSynchronouslyFromMainCanCallBackIntoMain) {
  auto queue = DispatchQueue::makeSerial("back-to-main");
  std::vector<std::string> trace;
  queue->sync([&] {
    trace.push_back("worker");
    DispatchQueue::main().sync([&] { trace.push_back("main"); });
  });
  EXPECT_EQ(trace, (std::vector<std::string>{"worker", "main"}));
}

TEST(MainQueue, AsyncBlocksRunOnlyWhenTheLoopRuns) {
  std::vector<int> order;
  DispatchQueue::main().async([&] { order.push_back(1); });
  DispatchQueue::main().async([&] {
    order.push_back(2);
    // Added while the loop runs: waits for the next pass of runOnce.
    DispatchQueue::main().async([&] { order.push_back(3); });
  });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(MainLoop::shared().runOnce(), 2);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_EQ(MainLoop::shared().runOnce(), 1);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(MainQueue, WakeUpHandlerHearsOfBlocksFromOtherThreads) {
  std::atomic<int> wakeUps{0};
  MainLoop::shared().setWakeUpHandler([&] { ++wakeUps; });
  std::thread([] { DispatchQueue::main().async([] {}); }).join();
  MainLoop::shared().setWakeUpHandler(nullptr);
  EXPECT_GE(wakeUps.load(), 1);
  MainLoop::shared().runOnce();
}

}  // namespace
}  // namespace lumeo
