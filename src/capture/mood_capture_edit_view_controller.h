// The screen where the user renames the ten levels and recolours them, one
// by one or all at once from a three-colour gradient. This is its logic: the
// working copy of the table, row editing, done and reset, and the gradient
// sampling. The view draws rows and the colour panel and reports touches.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "capture/mood_levels_presentation.h"
#include "platform/color.h"
#include "platform/value.h"
#include "shell/callback_guard.h"

namespace lumeo {

class MoodUserDefaultsOperator;

// What the controller asks of its view. Every call has a default that does
// nothing, so a view implements only what it shows.
class MoodCaptureEditViewDelegate {
 public:
  virtual ~MoodCaptureEditViewDelegate() = default;
  // The rows were rebuilt (load, reset): show all of them anew.
  virtual void reloadRows() {}
  // A row's colour changed (the gradient).
  virtual void rowColorChanged(int levelIndex) { (void)levelIndex; }
  virtual void scrollRowIntoView(int levelIndex) { (void)levelIndex; }
  virtual void scrollBack() {}
  // Puts the keyboard focus into a row's text field.
  virtual void focusRow(int levelIndex) { (void)levelIndex; }
  virtual void updateSegmentButtons(bool previousEnabled, bool nextEnabled) {
    (void)previousEnabled;
    (void)nextEnabled;
  }
  // The colour panel: which button is selected, each button's colour, and
  // the colour shown in the circle.
  virtual void colorButtonsChanged(int selectedTag, const std::array<Color, 3>& colors) {
    (void)selectedTag;
    (void)colors;
  }
  virtual void showPickerColor(const Color& color) { (void)color; }
  // Slides the colour panel to a position (see the panel drag below).
  virtual void moveColorPanel(double position, double animationSeconds) {
    (void)position;
    (void)animationSeconds;
  }
  virtual void setRowListScrollEnabled(bool enabled) { (void)enabled; }
  // An action sheet; `handler` gets the chosen item's result (4 reset, 5 cancel).
  struct SheetItem {
    std::string title;
    int result = 0;
  };
  virtual void showActionSheet(const std::string& title, const std::vector<SheetItem>& items,
                               std::function<void(int)> handler) {
    (void)title;
    (void)items;
    (void)handler;
  }
  // Leave the screen.
  virtual void close() {}
};

class MoodCaptureEditViewController {
 public:
  static constexpr int kNoEdit = -1;
  static constexpr int kResetResult = 4;
  static constexpr int kCancelResult = 5;
  // The gradient is drawn over 320 × 480 and sampled at x = 160, y = 53 i,
  // so the samples never reach the very end of the gradient.
  static constexpr int kGradientWidth = 320;
  static constexpr int kGradientHeight = 480;
  static constexpr int kGradientSampleX = 160;
  static constexpr int kGradientSampleStep = 53;
  static constexpr double kPanelAnimationSeconds = 0.4;
  static constexpr double kPanelHandleReach = 35;

  struct Row {
    int levelIndex = 0;  // position in the table: 0 is level 10
    std::string levelText;
    Color levelColor;
  };

  // `defaults` holds the gradient settings; `saveWatchData` sends the table
  // to the watch after every done.
  MoodCaptureEditViewController(MoodLevelTableFiles files, MoodUserDefaultsOperator& defaults,
                                std::function<void()> saveWatchData = {});

  void setDelegate(std::weak_ptr<MoodCaptureEditViewDelegate> delegate) { delegate_ = std::move(delegate); }

  // --- Life cycle -----------------------------------------------------------
  void viewDidLoad();
  // The first time ever, the colour panel slides open by itself.
  void viewDidAppear();

  // --- Rows -------------------------------------------------------------------
  void moodCaptureStartEditView(int levelIndex);
  // The view's text field changed.
  void setRowText(int levelIndex, const std::string& text);
  // The return key of a row.
  void moodCaptureEndEditView(int levelIndex);
  void previousRow();
  void nextRow();
  bool isPreviousEnabled() const;
  bool isNextEnabled() const;
  void updateLevel(int levelIndex);

  // --- Done and reset -----------------------------------------------------------
  void done();
  void reset();
  // The reset itself, after the user confirmed it.
  void resetToShippedLevels();

  // --- Colour panel -------------------------------------------------------------
  void selectColor(int tag);
  void simulateColorButtonSelectedEvent(int tag);
  void colorPickerDidChangeSelection(const Color& color);
  // Fills the rows' colours by sampling a vertical gradient through `colors`.
  void gradient(const std::vector<Color>& colors);
  // After a reset: a gradient over the from and to colours, if the mode is on.
  void startGradient();
  // A switch for the gradient mode, for front ends that show it as one. On
  // is what choosing the selected colour button does: the mode starts and
  // the rows take the gradient's colours. Off ends the mode and leaves every
  // row with the colour it shows now, which "Done" then keeps; the next
  // colour chosen starts the mode again.
  void setGradientMode(bool enabled);
  bool gradientMode() const;

  // Dragging the panel by its handle. The panel moves between
  // `colorViewMin` (open) and `colorViewMax` (closed); a drag must begin
  // within 35 points of the handle and ends snapped to the nearer end.
  void setColorPanelRange(double colorViewMin, double colorViewMax);
  void panBegan(double distanceFromHandle);
  void panMoved(double translation);
  void panEnded();
  double colorPanelPosition() const { return panelPosition_; }
  bool isColorPanelOpen() const { return panelOpen_; }

  // --- State, for views and tests -------------------------------------------------
  const Value::Array& levels() const { return levels_; }
  const std::vector<Row>& rows() const { return rows_; }
  int currentEdit() const { return currentEdit_; }
  bool isEdit() const { return isEdit_; }
  int selectedColorTag() const { return selectedTag_; }
  const std::array<Color, 3>& buttonColors() const { return buttonColors_; }

 private:
  void buildRows();
  void saveChange();
  void postModelChanged();
  void showColorButtons();
  std::vector<Color> gradientColors() const;
  std::shared_ptr<MoodCaptureEditViewDelegate> delegate() const { return delegate_.lock(); }

  MoodLevelTableFiles files_;
  MoodUserDefaultsOperator& defaults_;
  std::function<void()> saveWatchData_;
  std::weak_ptr<MoodCaptureEditViewDelegate> delegate_;

  Value::Array levels_;
  std::vector<Row> rows_;
  int currentEdit_ = kNoEdit;
  bool isEdit_ = false;
  bool initialized_ = false;
  int selectedTag_ = 1;
  std::array<Color, 3> buttonColors_;

  double colorViewMin_ = 0;
  double colorViewMax_ = 0;
  double panelPosition_ = 0;
  double panStart_ = 0;
  bool panning_ = false;
  bool panelOpen_ = false;
  // Guards the reset sheet's handler: an answer after this screen is gone
  // is dropped.
  LifetimeToken lifetime_;
};

}  // namespace lumeo
