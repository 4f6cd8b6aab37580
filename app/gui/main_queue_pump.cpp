#include "main_queue_pump.h"

#include <QMetaObject>

#include "platform/dispatch_queue.h"

namespace lumeo::gui {

MainQueuePump::MainQueuePump(QObject* parent) : QObject(parent) {
  MainLoop::shared().setWakeUpHandler([this] {
    // One queued call at a time: a burst of posts from a background queue
    // becomes one drain, not one Qt event per block.
    if (!scheduled_.exchange(true))
      QMetaObject::invokeMethod(this, &MainQueuePump::drain, Qt::QueuedConnection);
  });
  // Blocks posted before the pump existed (the launch posts some) run at
  // the first turn of the event loop.
  scheduled_ = true;
  QMetaObject::invokeMethod(this, &MainQueuePump::drain, Qt::QueuedConnection);
}

MainQueuePump::~MainQueuePump() {
  MainLoop::shared().setWakeUpHandler({});
}

void MainQueuePump::drain() {
  // Cleared first: a block that posts another wakes the pump again.
  scheduled_ = false;
  if (MainLoop::shared().runOnce() > 0) Q_EMIT drained();
}

}  // namespace lumeo::gui
