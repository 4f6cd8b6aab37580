// The four-digit field of the passcode screen: it holds the digits typed so
// far (at most four), shows one symbol per place, and tells its owner each
// time the digits change.
#pragma once

#include <array>
#include <functional>
#include <string>

namespace lumeo {

class MoodPassInputView {
 public:
  static constexpr std::size_t kPassCodeLength = 4;

  const std::string& passCode() const { return passCode_; }
  // Replaces the digits without an event (a new stage starts empty).
  void setPassCode(const std::string& code) { passCode_ = code.substr(0, kPassCodeLength); }

  // Appends, keeps the first four characters, and sends the value-changed
  // event only when that changed the digits: a fifth digit is dropped
  // silently.
  void insertText(const std::string& text);
  // Removes the last digit and sends the event.
  void deleteBackward();
  bool hasText() const { return !passCode_.empty(); }

  // The value-changed event's handler.
  void setValueChangedHandler(std::function<void()> handler) { valueChanged_ = std::move(handler); }

  // The x positions of the four symbols ("symbol7") on a screen of `scale`.
  static std::array<double, 4> symbolPositions(double scale);

 private:
  std::string passCode_;
  std::function<void()> valueChanged_;
};

}  // namespace lumeo
