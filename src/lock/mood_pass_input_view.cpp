// The passcode field.
#include "lock/mood_pass_input_view.h"

namespace lumeo {

void MoodPassInputView::insertText(const std::string& text) {
  std::string next = (passCode_ + text).substr(0, kPassCodeLength);
  if (next == passCode_) return;
  passCode_ = next;
  if (valueChanged_) valueChanged_();
}

void MoodPassInputView::deleteBackward() {
  if (!passCode_.empty()) passCode_.pop_back();
  if (valueChanged_) valueChanged_();
}

std::array<double, 4> MoodPassInputView::symbolPositions(double scale) {
  if (scale > 1) return {25.5, 87, 148.5, 210};
  return {25, 87, 148, 210};
}

}  // namespace lumeo
