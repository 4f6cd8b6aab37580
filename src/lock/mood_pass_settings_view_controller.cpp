// The lock settings.
#include "lock/mood_pass_settings_view_controller.h"

#include <algorithm>

#include "lock/lock_text.h"
#include "lock/mood_biometric_authentication_facade.h"
#include "lock/mood_pass_input_view_controller.h"
#include "lock/mood_passcode_storage.h"
#include "lock/text_field_alert.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

MoodPassSettingsViewController::MoodPassSettingsViewController(
    std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics)
    : MoodViewController("MoodPassSettingsViewController"), biometrics_(std::move(biometrics)) {
  if (!biometrics_) biometrics_ = std::make_shared<MoodBiometricAuthenticationFacade>();
  loadPassSettingsItems();
}

void MoodPassSettingsViewController::loadPassSettingsItems() {
  passcodeSet_ = MoodPasscodeStorage::passcodeEnabled();
  secretKeyOn_ = passcodeSet_ && !MoodPasscodeStorage::secretKey().value_or("").empty();
  biometricOn_ = biometrics_->biometricEnabledForThisApp();
  items_.clear();
  if (!passcodeSet_) {
    items_.push_back(kEnablePasscodeRow);
    return;
  }
  items_.push_back(kDisablePasscodeRow);
  items_.push_back(kChangePasscodeRow);
  if (biometrics_->isAuthenticationAvailable()) items_.push_back(kBiometricRow);
  items_.push_back(kSecretKeyRow);
}

std::string MoodPassSettingsViewController::labelForRow(const std::string& row) const {
  if (row == kEnablePasscodeRow) return lockText("Enable password");
  if (row == kDisablePasscodeRow) return lockText("Disable password");
  if (row == kChangePasscodeRow) return lockText("Change password");
  if (row == kBiometricRow) return lockText(biometrics_->biometryName());
  if (row == kSecretKeyRow) return lockText("Password recovery key");
  return row;
}

bool MoodPassSettingsViewController::rowEnabled(const std::string& row) const {
  if (row == kChangePasscodeRow) return passcodeSet_;
  return true;
}

bool MoodPassSettingsViewController::switchOnForRow(const std::string& row) const {
  if (row == kBiometricRow) return biometricOn_;
  if (row == kSecretKeyRow) return secretKeyOn_;
  return false;
}

void MoodPassSettingsViewController::reportFailure(const OptionalError& error) {
  lastError_ = error;
  if (error) showAlert(lockText("Pass Code"), error->description, lockText("OK"));
}

void MoodPassSettingsViewController::presentEntryScreen(bool changeCodeMode, const std::string& title,
                                                        std::function<void()> onDone) {
  auto screen = std::make_shared<MoodPassInputViewController>(biometrics_);
  screen->changeCodeMode = changeCodeMode;
  screen->titleText = title;
  std::weak_ptr<MoodPassInputViewController> weakScreen = screen;
  std::weak_ptr<Screen> weakSelf = weak_from_this();
  screen->cancelBlock = [weakScreen] {
    if (auto s = weakScreen.lock()) s->dismissViewControllerAnimated(true);
  };
  screen->doneBlock = [this, weakScreen, weakSelf, onDone] {
    // The user sees the last symbol filled before the screen goes.
    after(1.0, [this, weakScreen, weakSelf, onDone] {
      if (auto s = weakScreen.lock()) s->dismissViewControllerAnimated(true);
      if (weakSelf.expired()) return;
      if (onDone) onDone();
      loadPassSettingsItems();
    });
  };
  entryScreen_ = screen;
  presentViewController(screen, true);
  screen->viewDidLoad();
  screen->viewWillAppear(true);
}

void MoodPassSettingsViewController::selectRow(const std::string& row) {
  if (!rowEnabled(row)) return;
  if (row == kEnablePasscodeRow || row == kChangePasscodeRow) {
    presentEntryScreen(true, lockText("Pass Code"), nullptr);
  } else if (row == kDisablePasscodeRow) {
    presentEntryScreen(false, lockText("Disable"), [this] {
      // The passcode goes first: should the keyring fail half-way, a key
      // without a passcode is harmless, a passcode without its key is not
      // what the user asked for but still opens with the code.
      if (auto error = MoodPasscodeStorage::setPassCode("")) {
        reportFailure(error);
        return;
      }
      reportFailure(MoodPasscodeStorage::setSecretKey(std::nullopt));
    });
  }
}

void MoodPassSettingsViewController::switchChanged(const std::string& row, bool on) {
  if (row == kBiometricRow) {
    if (on) {
      biometrics_->enableBiometricForThisApp();
      biometrics_->enableAuthenticationForFeature(kPasscodeEnabledFeature, nullptr, nullptr);
    } else {
      // The passcode stays in force; only the shortcut goes.
      biometrics_->disableBiometricForThisApp();
    }
    loadPassSettingsItems();
    return;
  }
  if (row != kSecretKeyRow) return;
  if (!on) {
    reportFailure(MoodPasscodeStorage::setSecretKey(std::nullopt));
    loadPassSettingsItems();
    return;
  }
  secretKeyOn_ = true;
  TextFieldAlertRequest request;
  request.title = lockText("Password recovery key");
  request.message =
      lockText("Enter the password recovery key to recover if you forget the password in the future");
  request.placeholder = lockText("Password recovery key");
  request.actions = {{lockText("Cancel"), AlertActionStyle::kCancel, std::nullopt, 0},
                     {lockText("Save"), AlertActionStyle::kDefault, std::nullopt, 1}};
  request.resultsNeedingText = {1};
  std::weak_ptr<Screen> weak = weak_from_this();
  bool owned = !weak.expired();
  TextFieldAlertPresenter::shared().presentTextFieldAlert(
      *this, request, [this, weak, owned](int result, const std::string& text) {
        if (owned && weak.expired()) return;
        if (result == 1 && !text.empty()) reportFailure(MoodPasscodeStorage::setSecretKey(text));
        // Cancel turns the switch back off; a refused save leaves it as the
        // keychain says.
        loadPassSettingsItems();
      });
}

double MoodPassSettingsViewController::newFontSize(double size,
                                                   const std::function<double(double)>& widthAtSize,
                                                   double maxWidth) {
  if (widthAtSize(size) <= maxWidth) return size;
  double low = std::max(size - 15, 0.5);
  double high = size;
  while (high - low > 0.5) {
    double middle = (low + high) / 2;
    if (widthAtSize(middle) > maxWidth) {
      high = middle;
    } else {
      low = middle;
    }
  }
  return low;
}

}  // namespace lumeo
