// The fixture of the lock's controller tests: a launched application object
// on a real store, with the lock's gate, an in-memory keychain, a scripted
// fingerprint reader and scripted alerts.
#pragma once

#include "lock/lock_test_support.h"
#include "lock/mood_biometric_authentication_facade.h"
#include "lock/mood_pass_input_view_controller.h"
#include "lock/mood_passcode_gate.h"
#include "lock/mood_passcode_storage.h"
#include "shell/shell_test_support.h"
#include "store/settings_keys.h"

namespace lumeo::testing {

class LockTest : public ShellTest {
 protected:
  LockTest() {
    alerts_ = std::make_shared<ScriptedTextFieldAlerts>();
    TextFieldAlertPresenter::setShared(alerts_);
    reader_ = std::make_shared<ScriptedBiometricAuthenticator>();
    facade_ = std::make_shared<MoodBiometricAuthenticationFacade>(reader_, defaults_);
    gate_ = std::make_shared<MoodPasscodeGate>(facade_);
    services_.passcode = gate_;
    EXPECT_FALSE(defaults_->setBool(kTutorialCompleted, true));
    EXPECT_FALSE(defaults_->setBool(kTutorialSyncCompleted, true));
  }
  ~LockTest() override { TextFieldAlertPresenter::setShared(nullptr); }

  MoodAppDelegate& ready() {
    seedRecord();  // a journal in use: no first-start clean-up
    return launch();
  }

  void setPasscode(const std::string& code, const std::string& key = {}) {
    ASSERT_FALSE(MoodPasscodeStorage::setPassCode(code));
    if (!key.empty()) {
      ASSERT_FALSE(MoodPasscodeStorage::setSecretKey(key));
    }
  }

  static void type(MoodPassInputViewController& screen, const std::string& digits) {
    for (char c : digits) screen.number(std::string(1, c));
  }

  // The entry screen that the gate put over `screen`.
  static std::shared_ptr<MoodPassInputViewController> entryOver(Screen& screen) {
    return std::dynamic_pointer_cast<MoodPassInputViewController>(screen.presentedViewController());
  }

  ScopedSecretStore keychain_;
  std::shared_ptr<ScriptedTextFieldAlerts> alerts_;
  std::shared_ptr<ScriptedBiometricAuthenticator> reader_;
  std::shared_ptr<MoodBiometricAuthenticationFacade> facade_;
  std::shared_ptr<MoodPasscodeGate> gate_;
};

}  // namespace lumeo::testing
