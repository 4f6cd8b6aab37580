// The settings menu for QML (singleton `Settings`): the rows of the menu on
// top of the screen chain, in the controller's order, and a click on one,
// which pushes its screen. The desktop's own row, the colour scheme, is the
// Theme's.
#pragma once

#include <QObject>
#include <QVariantList>

namespace lumeo::gui {

class GuiRuntime;

class SettingsAdapter : public QObject {
  Q_OBJECT
  // [{key, title, image, visible}] of the menu on screen.
  Q_PROPERTY(QVariantList rows READ rows NOTIFY changed)
 public:
  SettingsAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  QVariantList rows() const;
  Q_INVOKABLE void selectRow(int index);
  // The menu appeared: its rows are built.
  Q_INVOKABLE void appear();

 Q_SIGNALS:
  void changed();

 private:
  GuiRuntime& runtime_;
};

}  // namespace lumeo::gui
