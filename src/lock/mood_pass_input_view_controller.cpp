// The passcode entry screen and the gate.
#include "lock/mood_pass_input_view_controller.h"

#include "lock/lock_text.h"
#include "lock/mood_biometric_authentication_facade.h"
#include "lock/mood_passcode_storage.h"
#include "lock/text_field_alert.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

namespace {

constexpr double kShakeStepSeconds = 0.1;
constexpr int kShakeIterations = 6;
constexpr double kShakeMagnitude = 30;
constexpr int kRecoveryEvery = 5;

// Wraps a callback of `screen` so that it does nothing once the screen is
// gone (an animation or an alert may outlive it). A screen that is not
// owned by a shared pointer is kept alive by its caller.
template <typename F>
auto whileAlive(Screen& screen, F f) {
  std::weak_ptr<Screen> weak = screen.weak_from_this();
  bool owned = !weak.expired();
  return [weak, owned, f](auto&&... args) {
    if (owned && weak.expired()) return;
    f(std::forward<decltype(args)>(args)...);
  };
}

}  // namespace

MoodPassInputViewController::MoodPassInputViewController(
    std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics)
    : MoodViewController("MoodPassInputViewController"), biometrics_(std::move(biometrics)) {
  labels_ = {lockText("Enter current passcode"), lockText("Enter new passcode"),
             lockText("Enter new passcode again")};
  // Each field answers to the check of its own stage.
  views_[0].setValueChangedHandler([this] { checkOldPassCode(); });
  views_[1].setValueChangedHandler([this] { checkNewPassCode(); });
  views_[2].setValueChangedHandler([this] { checkRepeatPassCode(); });
}

MoodPassInputViewController::~MoodPassInputViewController() = default;

void MoodPassInputViewController::setScreenView(std::shared_ptr<MoodPassInputScreenView> view) {
  view_ = std::move(view);
}

std::string MoodPassInputViewController::title() const {
  return titleText.empty() ? lockText("Unlock") : titleText;
}

void MoodPassInputViewController::setStageLabel(int stage, const std::string& text) {
  labels_.at(stage) = text;
  if (view_) view_->stageLabelChanged(stage, text);
}

void MoodPassInputViewController::setChangeCodeStage(int stage, bool animated) {
  changeCodeStage_ = stage;
  if (view_) view_->slideToStage(stage, animated);
  input_ = &views_.at(stage);
  input_->setPassCode("");
}

void MoodPassInputViewController::viewDidLoad() {
  if (mustAskInputBiometric()) {
    preparing_ = true;
    if (view_) view_->showPreparing();
    askInputBiometricIfCan();
  } else if (view_) {
    view_->showKeypad(false);
  }
}

void MoodPassInputViewController::viewWillAppear(bool animated) {
  (void)animated;
  // Setting a first passcode has no stage for the current one.
  bool exists = MoodPasscodeStorage::passcodeEnabled();
  setChangeCodeStage(changeCodeMode && !exists ? 1 : 0, false);
}

void MoodPassInputViewController::number(const std::string& digit) {
  input_->insertText(digit);
}

void MoodPassInputViewController::back() {
  input_->deleteBackward();
}

void MoodPassInputViewController::cancel() {
  if (cancelBlock) cancelBlock();
}

void MoodPassInputViewController::checkOldPassCode() {
  const std::string entered = views_[0].passCode();
  if (entered.size() != MoodPassInputView::kPassCodeLength) return;
  std::string stored = MoodPasscodeStorage::passCode().value_or("");
  if (entered == stored) {
    if (changeCodeMode) {
      setChangeCodeStage(1, true);
    } else if (doneBlock) {
      doneBlock();
    }
  } else {
    shakeView(kShakeIterations, kShakeMagnitude);
    if (!entered.empty() && !stored.empty()) {
      setStageLabel(0, lockText("Pass code didn't match. Try again."));
      ++tryOldCount;
    }
  }
  if (tryOldCount >= 1 && tryOldCount % kRecoveryEvery == 0 &&
      !MoodPasscodeStorage::secretKey().value_or("").empty()) {
    tryOldCount = 0;
    presentRecoveryAlert();
  }
}

void MoodPassInputViewController::checkNewPassCode() {
  const std::string entered = views_[1].passCode();
  if (entered.size() != MoodPassInputView::kPassCodeLength) return;
  if (entered == MoodPasscodeStorage::passCode().value_or("")) {
    // The same code again is no change.
    shakeView(kShakeIterations, kShakeMagnitude);
    setStageLabel(1, lockText("Enter new passcode"));
    return;
  }
  setChangeCodeStage(2, true);
}

void MoodPassInputViewController::checkRepeatPassCode() {
  const std::string entered = views_[2].passCode();
  if (entered.size() != MoodPassInputView::kPassCodeLength) return;
  if (entered == views_[1].passCode()) {
    lastStoreError_ = MoodPasscodeStorage::setPassCode(entered);
    if (lastStoreError_) {
      // The keyring refused: the old passcode (or none) stands, and the
      // user hears why instead of believing the new one was kept.
      shakeView(kShakeIterations, kShakeMagnitude);
      setChangeCodeStage(1, true);
      showAlert(lockText("Pass Code"), lastStoreError_->description, lockText("OK"));
      return;
    }
    MoodPasscodeStorage::setPassCodeUnlocked(true);
    if (doneBlock) doneBlock();
    return;
  }
  shakeView(kShakeIterations, kShakeMagnitude);
  setChangeCodeStage(1, true);
  setStageLabel(1, lockText("Pass code didn't match. Try again."));
}

void MoodPassInputViewController::shakeView(int iterations, double magnitude) {
  double x = iterations < 1 ? 0 : magnitude;
  auto next = whileAlive(*this, [this, iterations, magnitude] {
    if (iterations >= 1) {
      shakeView(iterations - 1, magnitude * -0.8);
    } else {
      input_->setPassCode("");  // the shake also wipes the wrong digits
    }
  });
  if (view_) {
    view_->translateInput(x, kShakeStepSeconds, next);
  } else {
    next();
  }
}

bool MoodPassInputViewController::mustAskInputBiometric() {
  if (changeCodeMode) return false;
  if (!biometrics_) biometrics_ = std::make_shared<MoodBiometricAuthenticationFacade>();
  return biometrics_->biometricEnabledForThisApp() && MoodPasscodeStorage::passcodeEnabled() &&
         biometrics_->isAuthenticationAvailable();
}

void MoodPassInputViewController::askInputBiometricIfCan() {
  if (!biometrics_) biometrics_ = std::make_shared<MoodBiometricAuthenticationFacade>();
  biometrics_->authenticateForAccessToFeature(kPasscodeEnabledFeature, lockText("UNLOCK_APPLICATION"),
                                              whileAlive(*this,
                                                         [this] {
                                                           preparing_ = false;
                                                           if (doneBlock) doneBlock();
                                                         }),
                                              whileAlive(*this, [this](const Error&) {
                                                // A failed or cancelled check falls back to the code.
                                                preparing_ = false;
                                                if (view_) view_->showKeypad(true);
                                              }));
}

void MoodPassInputViewController::presentRecoveryAlert() {
  TextFieldAlertRequest request;
  request.title = lockText("Password recovery key");
  request.message =
      lockText("Please enter your password recovery key so that we can provide you with your password");
  request.placeholder = lockText("Password recovery key");
  request.actions = {{lockText("Cancel"), AlertActionStyle::kCancel, std::nullopt, 0},
                     {lockText("Done"), AlertActionStyle::kDefault, std::nullopt, 1}};
  TextFieldAlertPresenter::shared().presentTextFieldAlert(
      *this, request, whileAlive(*this, [this](int result, const std::string& text) {
        if (result != 1) return;
        auto key = MoodPasscodeStorage::secretKey();
        if (key && !key->empty() && text == *key) {
          // The lock does not open: the user reads the code and types it.
          showAlert(lockText("Pass Code"), MoodPasscodeStorage::passCode().value_or(""), lockText("OK"));
        } else {
          showAlert(lockText("Password recovery key"),
                    lockText("You entered the wrong password recovery key"), lockText("OK"));
        }
      }));
}

void MoodPassInputViewController::requestPassCodeFromViewController(Screen& presenter, bool animated,
                                                                    GateCompletion completion,
                                                                    Block afterDismiss) {
  OptionalError readError;
  bool enabled = MoodPasscodeStorage::passcodeEnabled(&readError);
  if (readError) {
    if (presenter.isMoodViewController()) {
      static_cast<MoodViewController&>(presenter).showAlert(lockText("Pass Code"), readError->description,
                                                            lockText("OK"));
    }
    if (completion) completion(false, false);
    return;
  }
  if (!enabled || MoodPasscodeStorage::passCodeUnlocked()) {
    if (completion) completion(true, true);
    return;
  }
  auto screen = std::make_shared<MoodPassInputViewController>();
  std::weak_ptr<MoodPassInputViewController> weak = screen;
  screen->cancelBlock = [weak, completion, afterDismiss] {
    if (completion) completion(false, false);
    if (auto s = weak.lock()) s->dismissViewControllerAnimated(true);
    if (afterDismiss) afterDismiss();
  };
  screen->doneBlock = [weak, completion, afterDismiss] {
    MoodPasscodeStorage::setPassCodeUnlocked(true);
    if (completion) completion(true, false);
    after(0.5, [weak, afterDismiss] {
      if (auto s = weak.lock()) s->dismissViewControllerAnimated(true);
      if (afterDismiss) afterDismiss();
    });
  };
  if (!animated) screen->currentPassHide = true;
  presenter.presentViewController(screen, animated);
  screen->viewDidLoad();
  screen->viewWillAppear(animated);
}

}  // namespace lumeo
