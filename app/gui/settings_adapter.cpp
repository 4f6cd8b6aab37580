#include "settings_adapter.h"

#include "gui_runtime.h"
#include "main_queue_pump.h"
#include "shell/mood_settings_view_controller.h"
#include "shell_adapter.h"

namespace lumeo::gui {

namespace {

MoodSettingsViewController* menu(GuiRuntime& runtime) {
  auto* shell = qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
  Screen* screen = shell ? shell->findScreen(QStringLiteral("MoodSettingsViewController")) : nullptr;
  return static_cast<MoodSettingsViewController*>(screen);
}

}  // namespace

SettingsAdapter::SettingsAdapter(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &SettingsAdapter::changed);
}

void SettingsAdapter::appear() {
  if (auto* settings = menu(runtime_)) settings->loadSections();
  Q_EMIT changed();
}

QVariantList SettingsAdapter::rows() const {
  QVariantList out;
  auto* settings = menu(runtime_);
  if (!settings) return out;
  const auto& rows = settings->rows();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    // Filler rows and rows of height 0 (a watch that is not paired) are
    // not shown on the desktop.
    const bool visible = !rows[i].key.empty() && settings->heightForRow(i) > 0;
    out.append(QVariantMap{{"key", QString::fromStdString(rows[i].key)},
                           {"title", QString::fromStdString(rows[i].title)},
                           {"image", QString::fromStdString(rows[i].image)},
                           {"visible", visible}});
  }
  return out;
}

void SettingsAdapter::selectRow(int index) {
  auto* settings = menu(runtime_);
  if (!settings || index < 0 || static_cast<std::size_t>(index) >= settings->rows().size()) return;
  settings->didSelectRow(static_cast<std::size_t>(index));
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell"))))
    shell->refresh();
}

static const GuiRegistration kSettings(0, [](GuiRuntime& runtime) {
  runtime.addSingleton("Settings", new SettingsAdapter(runtime, &runtime));
  runtime.addScreen(QStringLiteral("MoodSettingsViewController"), QStringLiteral("SettingsScreen.qml"));
});

}  // namespace lumeo::gui
