#include "history_tab.h"

#include "gui_runtime.h"
#include "gui_session.h"
#include "history_controller.h"
#include "shell/mood_app_delegate.h"
#include "summary_controller.h"

namespace lumeo::gui {

namespace {

const GuiRegistration kTabs(20, [](GuiRuntime& runtime) {
  runtime.addSingleton("History", new HistoryTab(runtime, &runtime));
  runtime.addSingleton("Summary", new SummaryTab(runtime, &runtime));
});

}  // namespace

HistoryTab::HistoryTab(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {}

QObject* HistoryTab::controller() const {
  return controller_;
}

QObject* HistoryTab::open() {
  if (!controller_ && runtime_.session().journalOpen()) {
    // An empty environment: the running application's journal, share sheet
    // and capture tab.
    controller_ = new HistoryController(runtime_.session().app().store(), {}, this);
    Q_EMIT controllerChanged();
  }
  return controller_;
}

void HistoryTab::reset() {
  if (!controller_) return;
  controller_->deleteLater();
  controller_ = nullptr;
  Q_EMIT controllerChanged();
}

SummaryTab::SummaryTab(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {}

QObject* SummaryTab::controller() const {
  return controller_;
}

QObject* SummaryTab::open() {
  if (!controller_ && runtime_.session().journalOpen()) {
    controller_ =
        new SummaryController(runtime_.session().app().store(), runtime_.session().defaults(), this);
    Q_EMIT controllerChanged();
  }
  return controller_;
}

void SummaryTab::reset() {
  if (!controller_) return;
  controller_->deleteLater();
  controller_ = nullptr;
  Q_EMIT controllerChanged();
}

}  // namespace lumeo::gui
