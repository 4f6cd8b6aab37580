// The lock as the shell sees it: the gate in front of every protected
// action, the stored passcode's existence and removal, and the entry screen
// that becomes the window's root when the application comes back from the
// background.
#pragma once

#include <memory>

#include "shell/shell_services.h"

namespace lumeo {

class MoodBiometricAuthenticationFacade;
class MoodPassInputViewController;

class MoodPasscodeGate : public PasscodeGate {
 public:
  explicit MoodPasscodeGate(std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics = nullptr);

  void requestPassCodeFromViewController(Screen& from, bool animated,
                                         std::function<void(bool granted)> completion,
                                         std::function<void()> afterDismiss) override;
  // A lock is set. An unreadable keychain with the lock's mark set counts
  // as a lock.
  bool hasPasscode() const override;
  // Removes the passcode and its recovery key; keychain failures are
  // logged and the former state stays.
  void deletePasscode() override;
  // Puts a fresh entry screen at the root of the window's navigation stack;
  // its done block brings the main interface back. The screen asks for a
  // fingerprint as it loads when that is switched on.
  void passcodeScreenShown(bool displayInputTouchIDRequest) override;
  bool isBiometricInputRequestDisplayed() const override;

  // The entry screen at the window's root, while it is there.
  std::shared_ptr<MoodPassInputViewController> rootEntryScreen() const { return rootEntryScreen_.lock(); }

 private:
  std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics_;
  std::weak_ptr<MoodPassInputViewController> rootEntryScreen_;
};

}  // namespace lumeo
