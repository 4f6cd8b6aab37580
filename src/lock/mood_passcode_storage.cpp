// The passcode and the recovery key in the keychain, with the settings mark
// that says a lock exists.
#include "lock/mood_passcode_storage.h"

#include "lock/mood_keychain_utils.h"
#include "platform/log.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"

namespace lumeo {

namespace {

bool processUnlocked = false;

bool lockMarked() {
  return MoodPasscodeStorage::defaults().boolForKey(kMoodPassCodeSetKey);
}

std::optional<std::string> readSecret(const char* username, OptionalError* error) {
  if (error) error->reset();
  if (!lockMarked()) return std::nullopt;
  OptionalError failure;
  auto value = MoodKeychainUtils::getPasswordForUsername(username, kMoodKeychainServiceName, &failure);
  if (failure && error) *error = failure;
  if (value && value->empty()) return std::nullopt;
  return value;
}

// Deletes an item; a missing one is no failure.
OptionalError deleteSecret(const char* username) {
  OptionalError failure;
  if (MoodKeychainUtils::deleteItemForUsername(username, kMoodKeychainServiceName, &failure))
    return std::nullopt;
  if (failure && failure->code == kSecretItemNotFound) return std::nullopt;
  return failure;
}

}  // namespace

UserDefaults& MoodPasscodeStorage::defaults() {
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) return app->defaults();
  return *UserDefaults::standard();
}

std::optional<std::string> MoodPasscodeStorage::passCode(OptionalError* error) {
  return readSecret(kMoodPassCodeUsername, error);
}

std::optional<std::string> MoodPasscodeStorage::secretKey(OptionalError* error) {
  return readSecret(kMoodSecretKeyUsername, error);
}

OptionalError MoodPasscodeStorage::setPassCode(const std::string& code) {
  UserDefaults& settings = defaults();
  if (code.empty()) {
    if (auto failure = deleteSecret(kMoodPassCodeUsername)) return failure;
    LUMEO_DROP_ERROR(settings.removeObjectForKey(kMoodPassCodeSetKey));
    settings.synchronize();
    return std::nullopt;
  }
  bool fresh = !settings.boolForKey(kMoodPassCodeSetKey);
  if (fresh) {
    // A recovery key left in the keyring by an earlier lock of this journal
    // must not come back with the new passcode.
    if (auto failure = deleteSecret(kMoodSecretKeyUsername)) return failure;
  }
  OptionalError failure;
  if (!MoodKeychainUtils::storeUsername(kMoodPassCodeUsername, code, kMoodKeychainServiceName, true,
                                        &failure)) {
    return failure;
  }
  if (fresh) {
    LUMEO_DROP_ERROR(settings.setBool(kMoodPassCodeSetKey, true));
    settings.synchronize();
  }
  return std::nullopt;
}

OptionalError MoodPasscodeStorage::setSecretKey(const std::optional<std::string>& key) {
  if (!key || key->empty()) return deleteSecret(kMoodSecretKeyUsername);
  OptionalError failure;
  if (!MoodKeychainUtils::storeUsername(kMoodSecretKeyUsername, *key, kMoodKeychainServiceName, true,
                                        &failure)) {
    return failure;
  }
  return std::nullopt;
}

bool MoodPasscodeStorage::passcodeEnabled(OptionalError* error) {
  OptionalError failure;
  auto code = passCode(&failure);
  if (error) *error = failure;
  if (failure) return true;
  return code.has_value() && !code->empty();
}

bool MoodPasscodeStorage::passCodeUnlocked() {
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) return app->passCodeUnlocked;
  return processUnlocked;
}

void MoodPasscodeStorage::setPassCodeUnlocked(bool unlocked) {
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
    app->passCodeUnlocked = unlocked;
  } else {
    processUnlocked = unlocked;
  }
}

}  // namespace lumeo
