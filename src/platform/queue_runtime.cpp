// Thread context, main-queue storage and background-work accounting shared by
// the dispatch queues, operation queues and the main loop.
#include "platform/queue_runtime.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <exception>

#include "platform/log.h"

namespace lumeo::runtime {

namespace {
thread_local std::vector<QueueId> tContextStack;
std::atomic<int> gBackgroundWork{0};
char gMainQueueTag;
}  // namespace

std::vector<QueueId> QueueContext::current() {
  std::vector<QueueId> stack = tContextStack;
  if (isProcessMainThread() && std::find(stack.begin(), stack.end(), mainQueueId()) == stack.end()) {
    stack.insert(stack.begin(), mainQueueId());
  }
  return stack;
}

bool QueueContext::contains(QueueId id) {
  if (id == mainQueueId() && isProcessMainThread()) return true;
  return std::find(tContextStack.begin(), tContextStack.end(), id) != tContextStack.end();
}

QueueContext::Scope::Scope(std::vector<QueueId> stack) : saved_(std::move(tContextStack)) {
  tContextStack = std::move(stack);
}

QueueContext::Scope::~Scope() {
  tContextStack = std::move(saved_);
}

bool isProcessMainThread() {
  static const pid_t pid = getpid();
  thread_local const pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
  return tid == pid;
}

void runBlockLoggingExceptions(const Block& block, const std::string& queueLabel) {
  try {
    block();
  } catch (const std::exception& e) {
    LUMEO_LOG_ERROR("Uncaught exception in a block on queue %@: %@", queueLabel, e.what());
  } catch (...) {
    LUMEO_LOG_ERROR("Uncaught exception in a block on queue %@", queueLabel);
  }
}

void beginBackgroundWork() {
  gBackgroundWork.fetch_add(1, std::memory_order_acq_rel);
}

void endBackgroundWork() {
  if (gBackgroundWork.fetch_sub(1, std::memory_order_acq_rel) == 1) notifyMainLoop(false);
}

int backgroundWorkCount() {
  return gBackgroundWork.load(std::memory_order_acquire);
}

MainQueueState& mainQueueState() {
  // Never destroyed: worker threads may still post to it while the process exits.
  static MainQueueState& state = *new MainQueueState;
  return state;
}

void notifyMainLoop(bool wakeHost) {
  MainQueueState& s = mainQueueState();
  std::function<void()> wakeUp;
  {
    // Taking the lock orders this wake-up after a waiter's check of its condition.
    std::lock_guard lock(s.mutex);
    if (wakeHost) wakeUp = s.wakeUpHandler;
  }
  s.changed.notify_all();
  if (wakeUp) wakeUp();
}

QueueId mainQueueId() {
  return &gMainQueueTag;
}

}  // namespace lumeo::runtime
