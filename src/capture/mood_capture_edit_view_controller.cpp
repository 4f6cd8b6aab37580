// Logic of the level label and colour screen.
#include "capture/mood_capture_edit_view_controller.h"

#include <algorithm>
#include <cmath>
#include <system_error>

#include "platform/canvas.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "platform/notification_center.h"
#include "platform/user_defaults.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

MoodCaptureEditViewController::MoodCaptureEditViewController(MoodLevelTableFiles files,
                                                             MoodUserDefaultsOperator& defaults,
                                                             std::function<void()> saveWatchData)
    : files_(std::move(files)), defaults_(defaults), saveWatchData_(std::move(saveWatchData)) {}

void MoodCaptureEditViewController::viewDidLoad() {
  levels_ = moodLevelTable(files_);
  buildRows();
  if (defaults_.gradientColorEnabled()) {
    buttonColors_ = {defaults_.fromColor(), defaults_.middleColor(), defaults_.toColor()};
    showColorButtons();
    gradient(gradientColors());
  } else {
    // Without the mode the panel starts from the default colours, and the
    // rows keep the colours of the table.
    LUMEO_DROP_ERROR(defaults_.setFromColor(MoodUserDefaultsOperator::defaultFromColor()));
    LUMEO_DROP_ERROR(defaults_.setMiddleColor(MoodUserDefaultsOperator::defaultMiddleColor()));
    LUMEO_DROP_ERROR(defaults_.setToColor(MoodUserDefaultsOperator::defaultToColor()));
    buttonColors_ = {MoodUserDefaultsOperator::defaultFromColor(),
                     MoodUserDefaultsOperator::defaultMiddleColor(),
                     MoodUserDefaultsOperator::defaultToColor()};
    showColorButtons();
  }
  simulateColorButtonSelectedEvent(1);
  if (auto d = delegate()) d->updateSegmentButtons(isPreviousEnabled(), isNextEnabled());
  initialized_ = true;
}

void MoodCaptureEditViewController::viewDidAppear() {
  auto defaults = UserDefaults::standard();
  if (defaults->boolForKey(kIsFirstOpenCaptureEdit)) return;
  panelPosition_ = colorViewMin_;
  panelOpen_ = true;
  if (auto d = delegate()) {
    d->moveColorPanel(panelPosition_, kPanelAnimationSeconds);
    d->setRowListScrollEnabled(false);
  }
  LUMEO_DROP_ERROR(defaults->setBool(kIsFirstOpenCaptureEdit, true));
}

void MoodCaptureEditViewController::buildRows() {
  rows_.clear();
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    const MoodLevelPresentation p = presentationFromTableEntry(levels_[i]);
    rows_.push_back(Row{static_cast<int>(i), p.text, p.baseColor});
  }
  if (auto d = delegate()) d->reloadRows();
}

void MoodCaptureEditViewController::moodCaptureStartEditView(int levelIndex) {
  if (levelIndex < 0 || levelIndex >= static_cast<int>(rows_.size())) return;
  if (auto d = delegate()) d->scrollRowIntoView(levelIndex);
  // Moving from one row to another keeps what was typed in the first.
  if (currentEdit_ != kNoEdit && currentEdit_ != levelIndex) updateLevel(currentEdit_);
  currentEdit_ = levelIndex;
  isEdit_ = true;
  if (auto d = delegate()) d->updateSegmentButtons(isPreviousEnabled(), isNextEnabled());
}

void MoodCaptureEditViewController::setRowText(int levelIndex, const std::string& text) {
  if (levelIndex < 0 || levelIndex >= static_cast<int>(rows_.size())) return;
  rows_[static_cast<std::size_t>(levelIndex)].levelText = text;
}

void MoodCaptureEditViewController::moodCaptureEndEditView(int levelIndex) {
  if (auto d = delegate()) d->scrollBack();
  updateLevel(levelIndex);
  currentEdit_ = kNoEdit;
  isEdit_ = false;
}

bool MoodCaptureEditViewController::isPreviousEnabled() const {
  return currentEdit_ > 0;
}

bool MoodCaptureEditViewController::isNextEnabled() const {
  return currentEdit_ != kNoEdit && currentEdit_ < static_cast<int>(rows_.size()) - 1;
}

void MoodCaptureEditViewController::previousRow() {
  if (!isPreviousEnabled()) return;
  const int target = currentEdit_ - 1;
  if (auto d = delegate()) d->focusRow(target);
  moodCaptureStartEditView(target);
}

void MoodCaptureEditViewController::nextRow() {
  if (!isNextEnabled()) return;
  const int target = currentEdit_ + 1;
  if (auto d = delegate()) d->focusRow(target);
  moodCaptureStartEditView(target);
}

void MoodCaptureEditViewController::updateLevel(int levelIndex) {
  if (levelIndex < 0 || levelIndex >= static_cast<int>(rows_.size()) ||
      levelIndex >= static_cast<int>(levels_.size())) {
    return;
  }
  const Row& row = rows_[static_cast<std::size_t>(levelIndex)];
  levels_[static_cast<std::size_t>(levelIndex)] = tableEntryFromPresentation(row.levelText, row.levelColor);
}

void MoodCaptureEditViewController::done() {
  if (isEdit_) {
    for (std::size_t i = 0; i < rows_.size(); ++i) updateLevel(static_cast<int>(i));
    postModelChanged();
  }
  saveChange();
  if (auto d = delegate()) d->close();
}

void MoodCaptureEditViewController::saveChange() {
  // The table on disk is replaced whole or not at all; a failed write keeps
  // the previous table and is only logged, as the screen has no way to
  // offer a retry.
  if (auto error = writeMoodLevelTable(files_, levels_)) {
    LUMEO_LOG_WARNING("Could not save the level table: %@", error->toString());
  }
  if (saveWatchData_) saveWatchData_();
}

void MoodCaptureEditViewController::reset() {
  auto d = delegate();
  if (!d) return;
  d->showActionSheet(localized("All mood labels and colors will be reset to default values. Continue?"),
                     {{localized("Reset"), kResetResult}, {localized("Cancel"), kCancelResult}},
                     whileAlive(lifetime_.owner(), [this](int result) {
                       if (result == kResetResult) resetToShippedLevels();
                     }));
}

void MoodCaptureEditViewController::resetToShippedLevels() {
  const std::filesystem::path user = files_.applicationNewCaptionURL();
  if (!user.empty()) {
    std::error_code ignored;
    std::filesystem::remove(user, ignored);
  }
  rows_.clear();
  LUMEO_DROP_ERROR(defaults_.setGradientColorEnabled(false));
  levels_ = shippedMoodLevelTable(files_);
  buildRows();
  startGradient();
  postModelChanged();
}

void MoodCaptureEditViewController::postModelChanged() {
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification, this);
}

void MoodCaptureEditViewController::showColorButtons() {
  if (auto d = delegate()) d->colorButtonsChanged(selectedTag_, buttonColors_);
}

std::vector<Color> MoodCaptureEditViewController::gradientColors() const {
  return {buttonColors_[0], buttonColors_[1], buttonColors_[2]};
}

void MoodCaptureEditViewController::selectColor(int tag) {
  if (tag < 0 || tag > 2) return;
  LUMEO_DROP_ERROR(defaults_.setGradientColorEnabled(true));
  selectedTag_ = tag;
  showColorButtons();
  if (auto d = delegate()) d->showPickerColor(buttonColors_[static_cast<std::size_t>(tag)]);
  gradient(gradientColors());
}

void MoodCaptureEditViewController::simulateColorButtonSelectedEvent(int tag) {
  if (tag < 0 || tag > 2) return;
  selectedTag_ = tag;
  showColorButtons();
  if (auto d = delegate()) d->showPickerColor(buttonColors_[static_cast<std::size_t>(tag)]);
}

void MoodCaptureEditViewController::colorPickerDidChangeSelection(const Color& color) {
  if (initialized_) LUMEO_DROP_ERROR(defaults_.setGradientColorEnabled(true));
  buttonColors_[static_cast<std::size_t>(selectedTag_)] = color;
  switch (selectedTag_) {
    case 0:
      LUMEO_DROP_ERROR(defaults_.setFromColor(color));
      break;
    case 1:
      LUMEO_DROP_ERROR(defaults_.setMiddleColor(color));
      break;
    default:
      LUMEO_DROP_ERROR(defaults_.setToColor(color));
      break;
  }
  showColorButtons();
  if (defaults_.gradientColorEnabled()) gradient(gradientColors());
}

void MoodCaptureEditViewController::gradient(const std::vector<Color>& colors) {
  isEdit_ = true;
  Canvas canvas(kGradientWidth, kGradientHeight);
  canvas.fillLinearGradient(Rect{0, 0, kGradientWidth, kGradientHeight}, Point{kGradientSampleX, 0},
                            Point{kGradientSampleX, kGradientHeight}, colors);
  auto d = delegate();
  for (std::size_t i = 0; i < rows_.size() && i < static_cast<std::size_t>(kMoodLevelCount); ++i) {
    Color sample = canvas.pixelAt(kGradientSampleX, kGradientSampleStep * static_cast<int>(i));
    sample.alpha = 1;
    rows_[i].levelColor = sample;
    if (d) d->rowColorChanged(static_cast<int>(i));
  }
}

void MoodCaptureEditViewController::startGradient() {
  if (!defaults_.gradientColorEnabled()) return;
  gradient({defaults_.fromColor(), defaults_.toColor()});
}

void MoodCaptureEditViewController::setGradientMode(bool enabled) {
  if (enabled) {
    selectColor(selectedTag_);
    return;
  }
  LUMEO_DROP_ERROR(defaults_.setGradientColorEnabled(false));
  // The rows' colours are what "Done" writes, so they are now the table's.
  isEdit_ = true;
}

bool MoodCaptureEditViewController::gradientMode() const {
  return defaults_.gradientColorEnabled();
}

void MoodCaptureEditViewController::setColorPanelRange(double colorViewMin, double colorViewMax) {
  colorViewMin_ = std::min(colorViewMin, colorViewMax);
  colorViewMax_ = std::max(colorViewMin, colorViewMax);
  panelPosition_ = colorViewMax_;
}

void MoodCaptureEditViewController::panBegan(double distanceFromHandle) {
  panning_ = std::abs(distanceFromHandle) <= kPanelHandleReach;
  panStart_ = panelPosition_;
}

void MoodCaptureEditViewController::panMoved(double translation) {
  if (!panning_) return;
  panelPosition_ = std::clamp(panStart_ + translation, colorViewMin_, colorViewMax_);
  if (auto d = delegate()) d->moveColorPanel(panelPosition_, 0);
}

void MoodCaptureEditViewController::panEnded() {
  if (!panning_) return;
  panning_ = false;
  const double middle = (colorViewMin_ + colorViewMax_) / 2;
  panelOpen_ = panelPosition_ < middle;
  panelPosition_ = panelOpen_ ? colorViewMin_ : colorViewMax_;
  if (auto d = delegate()) {
    d->moveColorPanel(panelPosition_, kPanelAnimationSeconds);
    d->setRowListScrollEnabled(!isColorPanelOpen());
  }
}

}  // namespace lumeo
