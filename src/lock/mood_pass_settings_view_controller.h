// The lock settings: enable, disable or change the passcode, the biometric
// switch (only where a reader can be used) and the recovery key switch.
// Rows are keyed by identifiers and rebuilt after each change.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodBiometricAuthenticationFacade;
class MoodPassInputViewController;

inline constexpr char kEnablePasscodeRow[] = "kEnablePasscodeRow";
inline constexpr char kDisablePasscodeRow[] = "kDisablePasscodeRow";
inline constexpr char kChangePasscodeRow[] = "kChangePasscodeRow";
inline constexpr char kBiometricRow[] = "kBiometricRow";
inline constexpr char kSecretKeyRow[] = "kSecretKeyRow";

class MoodPassSettingsViewController : public MoodViewController {
 public:
  explicit MoodPassSettingsViewController(
      std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics = nullptr);

  // Rebuilds the rows from the stored state.
  void loadPassSettingsItems();
  const std::vector<std::string>& items() const { return items_; }

  std::string labelForRow(const std::string& row) const;
  // False for a greyed row.
  bool rowEnabled(const std::string& row) const;
  // The state of a row's switch (biometric and recovery key rows).
  bool switchOnForRow(const std::string& row) const;

  // A tap on a row (enable, disable, change): presents the entry screen.
  void selectRow(const std::string& row);
  // The user moved a row's switch.
  void switchChanged(const std::string& row, bool on);

  // The entry screen that a row put up, while it is up.
  std::shared_ptr<MoodPassInputViewController> entryScreen() const { return entryScreen_.lock(); }
  // The error of the last change that the keychain refused.
  const OptionalError& lastError() const { return lastError_; }

  // The largest font size from `size` down to max(size - 15, 0.5) at which
  // `widthAtSize` fits `maxWidth`, found by bisection to within 0.5 points.
  static double newFontSize(double size, const std::function<double(double size)>& widthAtSize,
                            double maxWidth);

 private:
  void presentEntryScreen(bool changeCodeMode, const std::string& title, std::function<void()> onDone);
  void reportFailure(const OptionalError& error);

  std::shared_ptr<MoodBiometricAuthenticationFacade> biometrics_;
  std::vector<std::string> items_;
  bool passcodeSet_ = false;
  bool biometricOn_ = false;
  bool secretKeyOn_ = false;
  std::weak_ptr<MoodPassInputViewController> entryScreen_;
  OptionalError lastError_;
};

}  // namespace lumeo
