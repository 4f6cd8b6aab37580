#include "lock_settings_adapter.h"

#include "gui_runtime.h"
#include "lock/mood_pass_settings_view_controller.h"
#include "main_queue_pump.h"
#include "qt_presenter.h"
#include "shell/mood_settings_view_controller.h"
#include "shell_adapter.h"

namespace lumeo::gui {

namespace {
constexpr const char* kClassName = "MoodPassSettingsViewController";
}  // namespace

LockSettingsAdapter::LockSettingsAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime) {
  // The rows change after the entry screen's delayed close, which runs on
  // the main queue.
  connect(&runtime.pump(), &MainQueuePump::drained, this, &LockSettingsAdapter::changed);
  // An answered alert may have changed what the screen shows (after its
  // handler ran).
  connect(&runtime.presenter(), &QtPresenter::currentChanged, this, &LockSettingsAdapter::changed,
          Qt::QueuedConnection);
}

MoodPassSettingsViewController* LockSettingsAdapter::controller() const {
  auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell")));
  Screen* screen = shell ? shell->findScreen(QString::fromLatin1(kClassName)) : nullptr;
  // A plain screen of that name (no maker registered) has no rows.
  return dynamic_cast<MoodPassSettingsViewController*>(screen);
}

void LockSettingsAdapter::refreshShell() {
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell"))))
    shell->refresh();
  Q_EMIT changed();
}

QVariantList LockSettingsAdapter::rows() const {
  QVariantList out;
  MoodPassSettingsViewController* settings = controller();
  if (!settings) return out;
  for (const std::string& key : settings->items()) {
    const bool hasSwitch = key == kBiometricRow || key == kSecretKeyRow;
    out.append(QVariantMap{{"key", QString::fromStdString(key)},
                           {"label", QString::fromStdString(settings->labelForRow(key))},
                           {"enabled", settings->rowEnabled(key)},
                           {"hasSwitch", hasSwitch},
                           {"switchOn", hasSwitch && settings->switchOnForRow(key)}});
  }
  return out;
}

bool LockSettingsAdapter::passcodeSet() const {
  MoodPassSettingsViewController* settings = controller();
  return settings && !settings->items().empty() && settings->items().front() != kEnablePasscodeRow;
}

void LockSettingsAdapter::appear() {
  if (MoodPassSettingsViewController* settings = controller()) settings->loadPassSettingsItems();
  Q_EMIT changed();
}

void LockSettingsAdapter::selectRow(const QString& key) {
  if (MoodPassSettingsViewController* settings = controller()) settings->selectRow(key.toStdString());
  refreshShell();
}

void LockSettingsAdapter::setSwitch(const QString& key, bool on) {
  if (MoodPassSettingsViewController* settings = controller()) settings->switchChanged(key.toStdString(), on);
  refreshShell();
}

static const GuiRegistration kLockSettings(30, [](GuiRuntime& runtime) {
  runtime.addSingleton("LockSettings", new LockSettingsAdapter(runtime, &runtime));
  runtime.addScreen(QString::fromLatin1(kClassName), QStringLiteral("LockSettingsScreen.qml"));
  // The settings menu's "Pass Code" row opens the real lock settings.
  MoodSettingsViewController::registerScreenMaker(
      kClassName, [] { return std::make_shared<MoodPassSettingsViewController>(); });
});

}  // namespace lumeo::gui
