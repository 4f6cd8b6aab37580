// The biometric check behind a small interface with a per-feature switch.
// The application-wide switch lives in the settings under
// "TouchIDEnabledForThisAppKey", the features' switches in the dictionary
// "CTFeaturesDictionaryKey"; the one feature in use is "PasscodeEnabled".
// The facade does not know what a passcode is.
//
// Threads: every request starts on the main thread; success and failure
// blocks run on the main queue. The prompt flag is process-wide, since two
// facades may live at once and only one prompt can be up.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/biometric_authenticator.h"
#include "platform/error.h"
#include "store/settings_keys.h"

namespace lumeo {

class UserDefaults;

inline constexpr char kCTFeaturesDictionaryKey[] = "CTFeaturesDictionaryKey";
inline constexpr char kPasscodeEnabledFeature[] = "PasscodeEnabled";
inline constexpr char kCTBiometricsAuthenticationDomain[] = "CTBiometricsAuthenticationDomain";
inline constexpr long kCTBiometricsUnavailableCode = 1000;

class MoodBiometricAuthenticationFacade {
 public:
  using SuccessBlock = std::function<void()>;
  using FailureBlock = std::function<void(const Error& error)>;

  // Without an authenticator, the process's one; without defaults, the
  // application object's (or the standard ones). Stores false for the
  // application-wide switch unless a true value is stored.
  explicit MoodBiometricAuthenticationFacade(std::shared_ptr<BiometricAuthenticator> authenticator = nullptr,
                                             std::shared_ptr<UserDefaults> defaults = nullptr);

  bool isAuthenticationAvailable();
  bool canDisplayBiometricInputRequest();
  bool biometricEnabledForThisApp() const;
  void enableBiometricForThisApp();
  void disableBiometricForThisApp();

  bool isAuthenticationEnabledForFeature(const std::string& feature);
  void enableAuthenticationForFeature(const std::string& feature, SuccessBlock successBlock,
                                      FailureBlock failureBlock);
  void disableAuthenticationForFeature(const std::string& feature, const std::string& withReason,
                                       SuccessBlock successBlock, FailureBlock failureBlock);
  // Returns false without calling either block when a prompt is up already;
  // otherwise true, and exactly one block runs later on the main queue. A
  // feature not enabled for biometrics passes without a prompt.
  bool authenticateForAccessToFeature(const std::string& feature, const std::string& withReason,
                                      SuccessBlock successBlock, FailureBlock failureBlock);
  void displayBiometricInputRequestWithReason(const std::string& reason, SuccessBlock succesBlock,
                                              FailureBlock failureBlock);
  // The same after 0.75 seconds, started from a background queue.
  void displayBiometricInputRequestAfterDelayAtHighThreadWithReason(const std::string& reason,
                                                                    SuccessBlock succesBlock,
                                                                    FailureBlock failureBlock);
  // Ends a prompt that is up (the user walked away); its failure block runs.
  void cancelBiometricInputRequest();

  bool isAuthenticationInProgress() const { return *inProgress_; }
  // True while the system's prompt is up, in any facade.
  static bool isBiometricInputRequestDisplayed();

  static Error authenticationUnavailabilityError();
  // What the settings row is called on this system ("Fingerprint").
  std::string biometryName() const;

 private:
  UserDefaults& settings() const;
  bool featureStored(const std::string& feature) const;
  void storeFeature(const std::string& feature, bool enabled);

  std::shared_ptr<BiometricAuthenticator> authenticationContext_;
  std::shared_ptr<UserDefaults> defaults_;
  // Shared with the replies, which may outlive this object.
  std::shared_ptr<bool> inProgress_ = std::make_shared<bool>(false);
};

}  // namespace lumeo
