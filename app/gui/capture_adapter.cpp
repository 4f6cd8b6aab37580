#include "capture_adapter.h"

#include "gui_runtime.h"
#include "gui_session.h"
#include "main_queue_pump.h"
#include "shell_adapter.h"

namespace lumeo::gui {

CaptureAdapter::CaptureAdapter(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &CaptureAdapter::appear);
  appear();
}

void CaptureAdapter::appear() {
  if (auto capture = runtime_.session().capture()) {
    capture->viewWillAppear();
    tiles_.setTiles(capture->tiles());
  }
}

bool CaptureAdapter::chooseLevel(int level) {
  auto capture = runtime_.session().capture();
  auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell")));
  if (!capture || level < 1 || level > 10 || !runtime_.session().splashDone() ||
      !runtime_.session().journalError().empty())
    return false;
  const auto& tiles = capture->tiles();
  for (std::size_t i = 0; i < tiles.size(); ++i) {
    if (tiles[i].level != level) continue;
    (void)runtime_.session().prepareToWrite();
    capture->selectMenu(static_cast<int>(i));
    if (shell) shell->refresh();
    return true;
  }
  return false;
}

}  // namespace lumeo::gui
