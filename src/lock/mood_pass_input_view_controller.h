// The passcode entry screen's logic: three fields side by side for the
// current code (stage 0), a new code (1) and the new code again (2), the
// shake that wipes a wrong code, the recovery alert after every fifth wrong
// code, and the biometric shortcut when the screen loads. The screen draws
// through a MoodPassInputScreenView, which the GUI provides; without one
// the animations end at once.
//
// requestPassCodeFromViewController is the one gate in front of every
// protected action.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "lock/mood_pass_input_view.h"
#include "platform/error.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodBiometricAuthenticationFacade;

// What the entry screen draws. Every call is optional to implement.
class MoodPassInputScreenView {
 public:
  virtual ~MoodPassInputScreenView() = default;
  // Slides the row of fields to show `stage`'s field (over 0.5 seconds when
  // animated).
  virtual void slideToStage(int stage, bool animated) {
    (void)stage;
    (void)animated;
  }
  // Moves the current field to `x` over `seconds`, then calls `done`.
  virtual void translateInput(double x, double seconds, std::function<void()> done) {
    (void)x;
    (void)seconds;
    done();
  }
  // The label above `stage`'s field changed.
  virtual void stageLabelChanged(int stage, const std::string& text) {
    (void)stage;
    (void)text;
  }
  // Keypad and content hidden, the activity indicator shown.
  virtual void showPreparing() {}
  // The keypad shown (in a 0.25-second animation when animated).
  virtual void showKeypad(bool animated) { (void)animated; }
};

class MoodPassInputViewController : public MoodViewController {
 public:
  using Block = std::function<void()>;
  // passed, withoutAsking: (true, true) when nothing had to be asked.
  using GateCompletion = std::function<void(bool passed, bool withoutAsking)>;

  // A biometric facade for the shortcut; without one, the process's.
  explicit MoodPassInputViewController(
      std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics = nullptr);
  ~MoodPassInputViewController() override;

  // --- State --------------------------------------------------------------
  bool changeCodeMode = false;
  int tryOldCount = 0;  // wrong codes in a row
  std::string titleText;
  Block doneBlock;
  Block cancelBlock;
  bool currentPassHide = false;

  int changeCodeStage() const { return changeCodeStage_; }
  void setChangeCodeStage(int stage, bool animated);
  MoodPassInputView& input() { return *input_; }
  MoodPassInputView& oldPassInputView() { return views_[0]; }
  MoodPassInputView& anewPassInputView() { return views_[1]; }
  MoodPassInputView& againPassInputView() { return views_[2]; }
  // The title ("Unlock" unless titleText says otherwise) and each stage's label.
  std::string title() const;
  const std::string& stageLabel(int stage) const { return labels_.at(stage); }
  bool isPreparing() const { return preparing_; }
  // The error of the last failed attempt to store a new passcode.
  const OptionalError& lastStoreError() const { return lastStoreError_; }

  void setScreenView(std::shared_ptr<MoodPassInputScreenView> view);

  // --- Life cycle ---------------------------------------------------------
  void viewDidLoad();
  void viewWillAppear(bool animated);

  // --- Keypad ---------------------------------------------------------------
  void number(const std::string& digit);
  void back();
  void cancel();

  // --- Checks, on each change of the stage's field --------------------------
  void checkOldPassCode();
  void checkNewPassCode();
  void checkRepeatPassCode();

  void shakeView(int iterations, double magnitude);
  bool mustAskInputBiometric();
  void askInputBiometricIfCan();
  void presentRecoveryAlert();

  // The gate: answers at once with (true, true) when no passcode exists or
  // the application is unlocked; otherwise presents an entry screen over
  // `presenter` and answers when the user is through with it. A keychain
  // that cannot be read while a lock is set answers (false, false) with an
  // alert, so that an error never opens the journal.
  static void requestPassCodeFromViewController(Screen& presenter, bool animated, GateCompletion completion,
                                                Block afterDismiss);

 private:
  void setStageLabel(int stage, const std::string& text);

  std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics_;
  std::shared_ptr<MoodPassInputScreenView> view_;
  std::array<MoodPassInputView, 3> views_;
  std::array<std::string, 3> labels_;
  MoodPassInputView* input_ = &views_[0];
  int changeCodeStage_ = 0;
  bool preparing_ = false;
  OptionalError lastStoreError_;
};

}  // namespace lumeo
