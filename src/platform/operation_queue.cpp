// Operation queues: blocks started in the order they were added, at most
// maxConcurrentOperationCount at a time, on the threads of the global queue.
#include <condition_variable>
#include <deque>
#include <mutex>

#include "platform/dispatch_queue.h"
#include "platform/queue_runtime.h"

namespace lumeo {

using runtime::QueueContext;

// Lives as long as any of its operations is running, so that an operation
// finishing after the queue's destruction still finds its bookkeeping.
struct OperationQueueState : std::enable_shared_from_this<OperationQueueState> {
  std::string name;
  mutable std::mutex mutex;
  std::condition_variable changed;
  std::deque<Block> pending;
  int running = 0;
  int maxConcurrent = 1;
  bool suspended = false;

  bool canStartMore() const {
    return !suspended && !pending.empty() && (maxConcurrent < 0 || running < maxConcurrent);
  }

  // Caller holds `mutex`.
  void startMore() {
    while (canStartMore()) {
      Block op = std::move(pending.front());
      pending.pop_front();
      ++running;
      DispatchQueue::global().async([self = shared_from_this(), op = std::move(op)]() mutable {
        {
          QueueContext::Scope scope({self.get()});
          runtime::runBlockLoggingExceptions(op, self->name);
        }
        op = nullptr;
        std::lock_guard lock(self->mutex);
        --self->running;
        self->startMore();
        self->changed.notify_all();
      });
    }
  }

  // Operations of this queue that the calling thread is running (0 or 1):
  // waiting from inside an operation must not wait for that operation.
  int ownRunning() const { return QueueContext::contains(this) ? 1 : 0; }
};

struct OperationQueue::Impl {
  std::shared_ptr<OperationQueueState> state = std::make_shared<OperationQueueState>();
};

OperationQueue::OperationQueue(int maxConcurrentOperationCount, std::string name)
    : impl_(std::make_unique<Impl>()) {
  impl_->state->maxConcurrent = maxConcurrentOperationCount;
  impl_->state->name = name.empty() ? "operation queue" : std::move(name);
}

OperationQueue::~OperationQueue() {
  OperationQueueState& s = *impl_->state;
  std::deque<Block> dropped;
  std::unique_lock lock(s.mutex);
  dropped.swap(s.pending);
  int own = s.ownRunning();
  s.changed.wait(lock, [&] { return s.running <= own; });
}

void OperationQueue::addOperation(Block block) {
  OperationQueueState& s = *impl_->state;
  std::lock_guard lock(s.mutex);
  s.pending.push_back(std::move(block));
  s.startMore();
}

void OperationQueue::setMaxConcurrentOperationCount(int count) {
  OperationQueueState& s = *impl_->state;
  std::lock_guard lock(s.mutex);
  s.maxConcurrent = count;
  s.startMore();
}

int OperationQueue::maxConcurrentOperationCount() const {
  std::lock_guard lock(impl_->state->mutex);
  return impl_->state->maxConcurrent;
}

void OperationQueue::cancelAllOperations() {
  std::deque<Block> dropped;
  {
    std::lock_guard lock(impl_->state->mutex);
    dropped.swap(impl_->state->pending);
  }
  impl_->state->changed.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  OperationQueueState& s = *impl_->state;
  std::unique_lock lock(s.mutex);
  int own = s.ownRunning();
  s.changed.wait(lock, [&] { return s.pending.empty() && s.running <= own; });
}

int OperationQueue::operationCount() const {
  std::lock_guard lock(impl_->state->mutex);
  return static_cast<int>(impl_->state->pending.size()) + impl_->state->running;
}

void OperationQueue::setSuspended(bool suspended) {
  OperationQueueState& s = *impl_->state;
  std::lock_guard lock(s.mutex);
  s.suspended = suspended;
  s.startMore();
}

bool OperationQueue::isSuspended() const {
  std::lock_guard lock(impl_->state->mutex);
  return impl_->state->suspended;
}

bool OperationQueue::isCurrent() const {
  return QueueContext::contains(impl_->state.get());
}

}  // namespace lumeo
