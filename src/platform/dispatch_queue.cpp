// The three kinds of DispatchQueue: the main queue (drained by MainLoop), serial
// queues with one worker thread each, and the concurrent global queue on a
// pool of threads that grows while every thread is busy.
#include "platform/dispatch_queue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <future>
#include <mutex>
#include <thread>

#include "platform/queue_runtime.h"
#include "platform/timer_scheduler.h"

namespace lumeo {

using runtime::QueueContext;
using runtime::QueueId;

namespace {

// Runs `block` on the calling thread on behalf of `id`, as sync() does when
// the caller already works for that queue.
void runInline(QueueId id, const Block& block) {
  std::vector<QueueId> stack = QueueContext::current();
  stack.push_back(id);
  QueueContext::Scope scope(std::move(stack));
  block();
}

// Wraps `block` for sync(): the worker runs it for the caller's queues too,
// so that a nested sync() back onto one of them runs inline instead of
// waiting on a thread that is itself waiting; the caller gets the block's
// exception, if any.
Block makeSyncWrapper(QueueId id, Block block, std::promise<void>& done) {
  std::vector<QueueId> stack = QueueContext::current();
  stack.push_back(id);
  return [stack = std::move(stack), block = std::move(block), &done]() mutable {
    QueueContext::Scope scope(std::move(stack));
    try {
      block();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  };
}

class MainQueue final : public DispatchQueue {
 public:
  void async(Block block) override {
    {
      runtime::MainQueueState& s = runtime::mainQueueState();
      std::lock_guard lock(s.mutex);
      s.blocks.push_back(std::move(block));
    }
    runtime::notifyMainLoop();
  }

  void sync(Block block) override {
    if (isCurrent()) {
      runInline(runtime::mainQueueId(), block);
      return;
    }
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    async(makeSyncWrapper(runtime::mainQueueId(), std::move(block), done));
    finished.get();
  }

  DelayedCall after(double seconds, Block block) override {
    return TimerScheduler::shared().schedule(
        seconds, [this](Block b) { async(std::move(b)); }, std::move(block), true);
  }

  bool isCurrent() const override { return QueueContext::contains(runtime::mainQueueId()); }
  const std::string& label() const override { return label_; }

 private:
  std::string label_ = "main";
};

// The state a serial queue shares with its worker thread and its delayed calls.
struct SerialCore {
  explicit SerialCore(std::string l) : label(std::move(l)) {}

  // False once the queue is being destroyed: the block is dropped.
  bool push(Block block) {
    std::lock_guard lock(mutex);
    if (closing) return false;
    runtime::beginBackgroundWork();
    blocks.push_back(std::move(block));
    // Signalled under the lock: once the lock is free the worker may run a
    // block that drops the last reference to this core.
    changed.notify_one();
    return true;
  }

  void workerLoop() {
    for (;;) {
      Block block;
      {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return !blocks.empty() || closing; });
        if (blocks.empty()) return;  // closing and drained
        block = std::move(blocks.front());
        blocks.pop_front();
      }
      {
        QueueContext::Scope scope({this});
        runtime::runBlockLoggingExceptions(block, label);
      }
      block = nullptr;  // release captures before the work counts as done
      runtime::endBackgroundWork();
    }
  }

  const std::string label;
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Block> blocks;
  bool closing = false;
};

class SerialQueue final : public DispatchQueue {
 public:
  explicit SerialQueue(const std::string& label) : core_(std::make_shared<SerialCore>(label)) {
    thread_ = std::thread([core = core_] { core->workerLoop(); });
  }

  // Runs the blocks already queued, then ends the worker. Dropping the last
  // reference from inside one of the queue's own blocks lets the worker finish
  // on its own instead of joining itself.
  ~SerialQueue() override {
    {
      std::lock_guard lock(core_->mutex);
      core_->closing = true;
    }
    core_->changed.notify_all();
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  void async(Block block) override { core_->push(std::move(block)); }

  void sync(Block block) override {
    if (isCurrent()) {
      runInline(core_.get(), block);
      return;
    }
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    core_->push(makeSyncWrapper(core_.get(), std::move(block), done));
    finished.get();
  }

  // The delayed call does not keep the queue alive: if the queue is gone when
  // the call falls due, the block is dropped.
  DelayedCall after(double seconds, Block block) override {
    std::weak_ptr<SerialCore> weak = core_;
    return TimerScheduler::shared().schedule(
        seconds,
        [weak](Block b) {
          if (auto core = weak.lock()) core->push(std::move(b));
        },
        std::move(block), false);
  }

  bool isCurrent() const override { return QueueContext::contains(core_.get()); }
  const std::string& label() const override { return core_->label; }

 private:
  std::shared_ptr<SerialCore> core_;
  std::thread thread_;
};

// A pool that starts another thread whenever more blocks wait than threads
// idle, up to kMaxThreads; blocks that wait on each other therefore do not
// starve the pool. Threads stay for the life of the process.
class GlobalQueue final : public DispatchQueue {
 public:
  static constexpr int kMaxThreads = 64;

  void async(Block block) override {
    runtime::beginBackgroundWork();
    bool spawn = false;
    {
      std::lock_guard lock(mutex_);
      blocks_.push_back(std::move(block));
      if (static_cast<int>(blocks_.size()) > idle_ && threads_ < kMaxThreads) {
        ++threads_;
        spawn = true;
      }
    }
    if (spawn) {
      std::thread([this] { workerLoop(); }).detach();
    } else {
      changed_.notify_one();
    }
  }

  // A concurrent queue has no order to keep, so the caller runs the block.
  void sync(Block block) override { runInline(this, block); }

  DelayedCall after(double seconds, Block block) override {
    return TimerScheduler::shared().schedule(
        seconds, [this](Block b) { async(std::move(b)); }, std::move(block), false);
  }

  bool isCurrent() const override { return QueueContext::contains(this); }
  const std::string& label() const override { return label_; }

 private:
  void workerLoop() {
    for (;;) {
      Block block;
      {
        std::unique_lock lock(mutex_);
        ++idle_;
        changed_.wait(lock, [this] { return !blocks_.empty(); });
        --idle_;
        block = std::move(blocks_.front());
        blocks_.pop_front();
      }
      {
        QueueContext::Scope scope({this});
        runtime::runBlockLoggingExceptions(block, label_);
      }
      block = nullptr;
      runtime::endBackgroundWork();
    }
  }

  std::string label_ = "global";
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Block> blocks_;
  int threads_ = 0;
  int idle_ = 0;
};

}  // namespace

DispatchQueue& DispatchQueue::main() {
  // Never destroyed, like the state it posts to.
  static DispatchQueue& queue = *new MainQueue;
  return queue;
}

DispatchQueue& DispatchQueue::global() {
  // Never destroyed: its detached threads wait on it until the process ends.
  static DispatchQueue& queue = *new GlobalQueue;
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::makeSerial(const std::string& label) {
  return std::make_shared<SerialQueue>(label);
}

DelayedCall after(double seconds, Block block) {
  return DispatchQueue::main().after(seconds, std::move(block));
}

}  // namespace lumeo
