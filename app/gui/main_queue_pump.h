// Runs the core's main queue on Qt's event loop. The core calls the wake-up
// handler from any thread whenever a block or a due delayed call waits on the
// main queue; the pump posts one queued call to itself and drains the queue
// there, on the GUI thread, so the core's threading rules hold unchanged.
#pragma once

#include <QObject>
#include <atomic>

namespace lumeo::gui {

class MainQueuePump : public QObject {
  Q_OBJECT
 public:
  explicit MainQueuePump(QObject* parent = nullptr);
  ~MainQueuePump() override;

  // Runs what is ready now; the GUI calls it after handing the core a user
  // action, so that the action's completions show before the next frame.
  void drain();

 Q_SIGNALS:
  // The main queue ran: adapters refresh what the blocks may have changed.
  void drained();

 private:
  std::atomic<bool> scheduled_{false};
};

}  // namespace lumeo::gui
