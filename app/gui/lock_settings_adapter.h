// The lock settings for QML (singleton `LockSettings`): the rows of
// MoodPassSettingsViewController on top of the screen chain (enable,
// disable or change the passcode, the fingerprint switch where a reader
// with an enrolled finger exists, the recovery key switch), a tap on a
// row and a switch moved. The entry screens the rows open, the recovery
// key alert and the keyring's errors go through the shell's screens and
// the Presenter, as everywhere else.
#pragma once

#include <QObject>
#include <QVariantList>
#include <memory>

namespace lumeo {
class MoodPassSettingsViewController;
}

namespace lumeo::gui {

class GuiRuntime;

class LockSettingsAdapter : public QObject {
  Q_OBJECT
  // [{key, label, enabled, hasSwitch, switchOn}], in the controller's order.
  Q_PROPERTY(QVariantList rows READ rows NOTIFY changed)
  Q_PROPERTY(bool passcodeSet READ passcodeSet NOTIFY changed)

 public:
  LockSettingsAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  QVariantList rows() const;
  bool passcodeSet() const;

  // The screen appeared (or came back from an entry screen): rows again.
  Q_INVOKABLE void appear();
  Q_INVOKABLE void selectRow(const QString& key);
  Q_INVOKABLE void setSwitch(const QString& key, bool on);

 Q_SIGNALS:
  void changed();

 private:
  MoodPassSettingsViewController* controller() const;
  void refreshShell();

  GuiRuntime& runtime_;
};

}  // namespace lumeo::gui
