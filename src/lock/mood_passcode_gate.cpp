// The shell's passcode gate on the lock's controllers.
#include "lock/mood_passcode_gate.h"

#include "lock/mood_biometric_authentication_facade.h"
#include "lock/mood_pass_input_view_controller.h"
#include "lock/mood_passcode_storage.h"
#include "platform/log.h"
#include "shell/mood_app_delegate.h"

namespace lumeo {

MoodPasscodeGate::MoodPasscodeGate(std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics)
    : biometrics_(std::move(biometrics)) {}

void MoodPasscodeGate::requestPassCodeFromViewController(Screen& from, bool animated,
                                                         std::function<void(bool granted)> completion,
                                                         std::function<void()> afterDismiss) {
  MoodPassInputViewController::requestPassCodeFromViewController(
      from, animated,
      [completion](bool passed, bool) {
        if (completion) completion(passed);
      },
      std::move(afterDismiss));
}

bool MoodPasscodeGate::hasPasscode() const {
  return MoodPasscodeStorage::passcodeEnabled();
}

void MoodPasscodeGate::deletePasscode() {
  if (auto error = MoodPasscodeStorage::setPassCode("")) {
    LUMEO_LOG_ERROR("the old passcode could not be deleted: %@", error->toString());
    return;
  }
  if (auto error = MoodPasscodeStorage::setSecretKey(std::nullopt)) {
    LUMEO_LOG_ERROR("the old recovery key could not be deleted: %@", error->toString());
  }
}

void MoodPasscodeGate::passcodeScreenShown(bool displayInputTouchIDRequest) {
  // The argument does not matter: the new screen asks for a finger itself
  // as it loads.
  (void)displayInputTouchIDRequest;
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  if (!app) return;
  auto root = app->window().rootViewController();
  if (!root || !root->isNavigationController()) return;
  auto screen = std::make_shared<MoodPassInputViewController>(biometrics_);
  // No cancel block: the whole-window lock cannot be cancelled.
  screen->doneBlock = [] {
    if (MoodAppDelegate* a = MoodAppDelegate::sharedDelegate())
      a->switchWindowRootToMainNavigationController();
  };
  std::static_pointer_cast<NavigationController>(root)->setViewControllers({screen});
  rootEntryScreen_ = screen;
  screen->viewDidLoad();
  screen->viewWillAppear(false);
}

bool MoodPasscodeGate::isBiometricInputRequestDisplayed() const {
  return MoodBiometricAuthenticationFacade::isBiometricInputRequestDisplayed();
}

}  // namespace lumeo
