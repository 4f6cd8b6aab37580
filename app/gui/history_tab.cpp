#include "history_tab.h"

#include "gui_runtime.h"
#include "gui_session.h"
#include "history_controller.h"
#include "shell/mood_app_delegate.h"
#include "summary_controller.h"

namespace lumeo::gui {

namespace {

const GuiRegistration kTabs(20, [](GuiRuntime& runtime) {
  // An empty environment: the running application's journal, share sheet
  // and capture tab.
  runtime.addSingleton("History", new LazyTab(
                                      runtime,
                                      [](GuiRuntime& runtime, QObject* parent) {
                                        return new HistoryController(runtime.session().app().store(), {},
                                                                     parent);
                                      },
                                      &runtime));
  runtime.addSingleton("Summary", new LazyTab(
                                      runtime,
                                      [](GuiRuntime& runtime, QObject* parent) {
                                        return new SummaryController(runtime.session().app().store(),
                                                                     runtime.session().defaults(), parent);
                                      },
                                      &runtime));
});

}  // namespace

LazyTab::LazyTab(GuiRuntime& runtime, Make make, QObject* parent)
    : QObject(parent), runtime_(runtime), make_(std::move(make)) {}

QObject* LazyTab::open() {
  if (!controller_ && runtime_.session().journalOpen()) {
    controller_ = make_(runtime_, this);
    Q_EMIT controllerChanged();
  }
  return controller_;
}

void LazyTab::reset() {
  if (!controller_) return;
  controller_->deleteLater();
  controller_ = nullptr;
  Q_EMIT controllerChanged();
}

}  // namespace lumeo::gui
