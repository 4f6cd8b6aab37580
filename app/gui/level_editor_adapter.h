// The level editor for QML (singleton `LevelEditor`): the ten levels' texts
// and colours as rows, typing in a row and moving between rows, the colour
// panel with its three gradient colours, the gradient mode, reset and done.
// It is the controller's view (MoodCaptureEditViewDelegate): what the
// controller shows becomes properties and signals; what the user does goes
// to the controller, which holds every rule. The controller lives while the
// screen is open.
#pragma once

#include <QColor>
#include <QObject>
#include <QVariantList>
#include <memory>

#include "level_editor_row_model.h"

namespace lumeo {
class MoodCaptureEditViewController;
class MoodUserDefaultsOperator;
}  // namespace lumeo

namespace lumeo::gui {

class GuiRuntime;
class LevelEditorView;

class LevelEditorAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool active READ active NOTIFY changed)
  Q_PROPERTY(QAbstractListModel* rows READ rows CONSTANT)
  // The row being edited, -1 for none; whether previous and next can move.
  Q_PROPERTY(int currentEdit READ currentEdit NOTIFY changed)
  Q_PROPERTY(bool previousEnabled READ previousEnabled NOTIFY changed)
  Q_PROPERTY(bool nextEnabled READ nextEnabled NOTIFY changed)
  // The colour panel: the gradient's three colours (level 10, the middle,
  // level 1), the one selected, the colour shown in the picker.
  Q_PROPERTY(QVariantList buttonColors READ buttonColors NOTIFY changed)
  Q_PROPERTY(int selectedButton READ selectedButton NOTIFY changed)
  Q_PROPERTY(QColor pickerColor READ pickerColor NOTIFY pickerColorChanged)
  Q_PROPERTY(bool gradientMode READ gradientMode NOTIFY changed)
  Q_PROPERTY(bool panelOpen READ panelOpen NOTIFY changed)

 public:
  LevelEditorAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~LevelEditorAdapter() override;

  bool active() const { return controller_ != nullptr; }
  QAbstractListModel* rows() { return &rows_; }
  int currentEdit() const;
  bool previousEnabled() const { return previousEnabled_; }
  bool nextEnabled() const { return nextEnabled_; }
  QVariantList buttonColors() const { return buttonColors_; }
  int selectedButton() const { return selectedButton_; }
  QColor pickerColor() const { return pickerColor_; }
  bool gradientMode() const;
  bool panelOpen() const { return panelOpen_; }

  // The screen appeared: the table is read and the rows built.
  Q_INVOKABLE void open();
  // A row's text field took the focus, changed, or was left with Return.
  Q_INVOKABLE void startEdit(int row);
  Q_INVOKABLE void editRow(int row, const QString& text);
  Q_INVOKABLE void endEdit(int row);
  Q_INVOKABLE void previousRow();
  Q_INVOKABLE void nextRow();
  // One of the three colour buttons (0 level 10, 1 middle, 2 level 1).
  Q_INVOKABLE void chooseColorButton(int button);
  // The picker's colour changed.
  Q_INVOKABLE void pickColor(const QColor& color);
  Q_INVOKABLE void setGradientMode(bool enabled);
  // Opens or closes the colour panel (narrow windows).
  Q_INVOKABLE void togglePanel();
  // Asks, then puts the shipped levels back at once.
  Q_INVOKABLE void reset();
  // Keeps the table and leaves.
  Q_INVOKABLE void done();
  // Leaves without writing the table.
  Q_INVOKABLE void back();

  MoodCaptureEditViewController* controller() const { return controller_.get(); }

 Q_SIGNALS:
  void changed();
  void pickerColorChanged();
  // The controller moved the focus to a row (previous, next).
  void focusRowRequested(int row);
  void rowRevealRequested(int row);

 private:
  friend class LevelEditorView;
  void closeScreen();
  void tableWritten();

  GuiRuntime& runtime_;
  std::shared_ptr<LevelEditorView> view_;
  std::unique_ptr<MoodUserDefaultsOperator> defaults_;
  std::unique_ptr<MoodCaptureEditViewController> controller_;
  std::unique_ptr<MoodCaptureEditViewController> retired_;
  LevelEditorRowModel rows_;
  bool previousEnabled_ = false;
  bool nextEnabled_ = false;
  QVariantList buttonColors_;
  int selectedButton_ = 1;
  QColor pickerColor_;
  bool panelOpen_ = false;
};

}  // namespace lumeo::gui
