// The per-feature switch over the biometric check, and the one prompt flag
// of the process.
#include "lock/mood_biometric_authentication_facade.h"

#include <atomic>

#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "platform/value.h"
#include "shell/mood_app_delegate.h"

namespace lumeo {

namespace {

std::atomic<bool> promptDisplayed{false};

}  // namespace

MoodBiometricAuthenticationFacade::MoodBiometricAuthenticationFacade(
    std::shared_ptr<BiometricAuthenticator> authenticator, std::shared_ptr<UserDefaults> defaults)
    : authenticationContext_(authenticator ? std::move(authenticator) : BiometricAuthenticator::shared()),
      defaults_(std::move(defaults)) {
  if (!settings().boolForKey(kTouchIDEnabledForThisAppKey)) disableBiometricForThisApp();
}

UserDefaults& MoodBiometricAuthenticationFacade::settings() const {
  if (defaults_) return *defaults_;
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) return app->defaults();
  return *UserDefaults::standard();
}

Error MoodBiometricAuthenticationFacade::authenticationUnavailabilityError() {
  return Error(kCTBiometricsAuthenticationDomain, kCTBiometricsUnavailableCode,
               "Authentication by Biometrics isn't available");
}

std::string MoodBiometricAuthenticationFacade::biometryName() const {
  return authenticationContext_->biometryName();
}

bool MoodBiometricAuthenticationFacade::isAuthenticationAvailable() {
  return authenticationContext_->canEvaluatePolicy();
}

bool MoodBiometricAuthenticationFacade::canDisplayBiometricInputRequest() {
  return authenticationContext_->canEvaluatePolicy();
}

bool MoodBiometricAuthenticationFacade::biometricEnabledForThisApp() const {
  return settings().boolForKey(kTouchIDEnabledForThisAppKey);
}

void MoodBiometricAuthenticationFacade::enableBiometricForThisApp() {
  LUMEO_DROP_ERROR(settings().setBool(kTouchIDEnabledForThisAppKey, true));
  settings().synchronize();
}

void MoodBiometricAuthenticationFacade::disableBiometricForThisApp() {
  LUMEO_DROP_ERROR(settings().setBool(kTouchIDEnabledForThisAppKey, false));
  settings().synchronize();
}

bool MoodBiometricAuthenticationFacade::featureStored(const std::string& feature) const {
  auto features = settings().dictionaryForKey(kCTFeaturesDictionaryKey);
  if (!features) return false;
  auto it = features->find(feature);
  return it != features->end() && it->second.toBool();
}

void MoodBiometricAuthenticationFacade::storeFeature(const std::string& feature, bool enabled) {
  Value::Dictionary features =
      settings().dictionaryForKey(kCTFeaturesDictionaryKey).value_or(Value::Dictionary{});
  features[feature] = Value(enabled);
  LUMEO_DROP_ERROR(settings().setObject(kCTFeaturesDictionaryKey, Value(std::move(features))));
  settings().synchronize();
}

bool MoodBiometricAuthenticationFacade::isAuthenticationEnabledForFeature(const std::string& feature) {
  return isAuthenticationAvailable() && featureStored(feature);
}

void MoodBiometricAuthenticationFacade::enableAuthenticationForFeature(const std::string& feature,
                                                                       SuccessBlock successBlock,
                                                                       FailureBlock failureBlock) {
  if (!isAuthenticationAvailable()) {
    if (failureBlock) failureBlock(authenticationUnavailabilityError());
    return;
  }
  if (!featureStored(feature)) storeFeature(feature, true);
  if (successBlock) successBlock();
}

void MoodBiometricAuthenticationFacade::disableAuthenticationForFeature(const std::string& feature,
                                                                        const std::string& withReason,
                                                                        SuccessBlock successBlock,
                                                                        FailureBlock failureBlock) {
  if (!isAuthenticationAvailable()) {
    if (failureBlock) failureBlock(authenticationUnavailabilityError());
    return;
  }
  if (!featureStored(feature)) {
    if (successBlock) successBlock();
    return;
  }
  // Turning the check off takes the finger that turned it on.
  displayBiometricInputRequestWithReason(
      withReason,
      [this, feature, successBlock] {
        storeFeature(feature, false);
        if (successBlock) successBlock();
      },
      failureBlock);
}

bool MoodBiometricAuthenticationFacade::authenticateForAccessToFeature(const std::string& feature,
                                                                       const std::string& withReason,
                                                                       SuccessBlock successBlock,
                                                                       FailureBlock failureBlock) {
  if (promptDisplayed) return false;
  *inProgress_ = true;
  auto inProgress = inProgress_;
  if (!isAuthenticationAvailable()) {
    DispatchQueue::main().async([inProgress, failureBlock] {
      *inProgress = false;
      if (failureBlock) failureBlock(authenticationUnavailabilityError());
    });
    return true;
  }
  if (!featureStored(feature)) {
    // A feature that does not want biometrics is let through.
    DispatchQueue::main().async([inProgress, successBlock] {
      *inProgress = false;
      if (successBlock) successBlock();
    });
    return true;
  }
  displayBiometricInputRequestWithReason(withReason, std::move(successBlock), std::move(failureBlock));
  return true;
}

void MoodBiometricAuthenticationFacade::displayBiometricInputRequestWithReason(const std::string& reason,
                                                                               SuccessBlock succesBlock,
                                                                               FailureBlock failureBlock) {
  promptDisplayed = true;
  *inProgress_ = true;
  auto inProgress = inProgress_;
  // The reply comes on the authenticator's thread; the blocks run on the
  // main queue, and the reply waits for them, as the platform's does.
  authenticationContext_->evaluatePolicy(reason,
                                         [inProgress, succesBlock, failureBlock](OptionalError error) {
                                           promptDisplayed = false;
                                           DispatchQueue::main().sync([&] {
                                             *inProgress = false;
                                             if (!error) {
                                               if (succesBlock) succesBlock();
                                             } else if (failureBlock) {
                                               failureBlock(*error);
                                             }
                                           });
                                         });
}

void MoodBiometricAuthenticationFacade::displayBiometricInputRequestAfterDelayAtHighThreadWithReason(
    const std::string& reason, SuccessBlock succesBlock, FailureBlock failureBlock) {
  auto context = authenticationContext_;
  auto inProgress = inProgress_;
  DispatchQueue::global().after(0.75, [context, inProgress, reason, succesBlock, failureBlock] {
    promptDisplayed = true;
    context->evaluatePolicy(reason, [inProgress, succesBlock, failureBlock](OptionalError error) {
      promptDisplayed = false;
      DispatchQueue::main().async([inProgress, succesBlock, failureBlock, error] {
        *inProgress = false;
        if (!error) {
          if (succesBlock) succesBlock();
        } else if (failureBlock) {
          failureBlock(*error);
        }
      });
    });
  });
}

void MoodBiometricAuthenticationFacade::cancelBiometricInputRequest() {
  authenticationContext_->cancel();
}

bool MoodBiometricAuthenticationFacade::isBiometricInputRequestDisplayed() {
  return promptDisplayed;
}

}  // namespace lumeo
