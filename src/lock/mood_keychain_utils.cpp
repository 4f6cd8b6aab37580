// The keychain rules on the secret-store seam: read first, then add, update
// or leave alone, so that storing an unchanged secret writes nothing.
#include "lock/mood_keychain_utils.h"

#include "platform/log.h"
#include "platform/secret_store.h"

namespace lumeo {

namespace {

Error keychainError(long code, std::string description) {
  return Error(kMoodKeychainUtilsErrorDomain, code, std::move(description));
}

void report(OptionalError* slot, Error error) {
  if (slot) *slot = std::move(error);
}

bool present(const MoodKeychainUtils::Text& text) {
  return text.has_value() && !text->empty();
}

}  // namespace

std::optional<std::string> MoodKeychainUtils::getPasswordForUsername(const Text& username,
                                                                     const Text& andServiceName,
                                                                     OptionalError* error) {
  if (error) error->reset();
  if (!present(username) || !present(andServiceName)) {
    report(error, keychainError(kMoodKeychainUtilsMissingArgument,
                                "a keychain item needs a username and a service"));
    return std::nullopt;
  }
  auto store = SecretStore::shared();
  SecretItemKey key{*andServiceName, *username};
  // Asking for the attributes first tells a missing item (no error) from
  // one that cannot be read.
  SecretStatus status = store->copyMatchingAttributes(key);
  if (status.code == kSecretItemNotFound) return std::nullopt;
  if (!status.ok()) {
    report(error, keychainError(status.code, status.message));
    return std::nullopt;
  }
  std::string data;
  status = store->copyMatchingData(key, data);
  if (status.code == kSecretItemNotFound || (status.ok() && data.empty())) {
    report(error, keychainError(kMoodKeychainUtilsItemWithoutData, "the keychain item holds no password"));
    return std::nullopt;
  }
  if (!status.ok()) {
    report(error, keychainError(status.code, status.message));
    return std::nullopt;
  }
  return data;
}

bool MoodKeychainUtils::storeUsername(const Text& username, const Text& andPassword,
                                      const Text& forServiceName, bool updateExisting, OptionalError* error) {
  if (error) error->reset();
  if (!present(username) || !andPassword || !present(forServiceName)) {
    report(error, keychainError(kMoodKeychainUtilsMissingArgument,
                                "a keychain item needs a username, a password and a service"));
    return false;
  }
  auto store = SecretStore::shared();
  SecretItemKey key{*forServiceName, *username};
  OptionalError readError;
  std::optional<std::string> existing = getPasswordForUsername(username, forServiceName, &readError);
  if (readError && readError->code == kMoodKeychainUtilsItemWithoutData) {
    // An item without a secret is of no use: make it again.
    SecretStatus removed = store->remove(key);
    if (!removed.ok() && removed.code != kSecretItemNotFound) {
      report(error, keychainError(removed.code, removed.message));
      return false;
    }
    readError.reset();
  }
  if (readError) {
    report(error, *readError);
    return false;
  }
  if (existing) {
    if (*existing == *andPassword) return true;
    if (!updateExisting) return true;
    SecretStatus status = store->update(key, *andPassword);
    if (!status.ok()) {
      report(error, keychainError(status.code, status.message));
      return false;
    }
    return true;
  }
  SecretStatus status = store->add(key, *forServiceName, *andPassword);
  if (!status.ok()) {
    report(error, keychainError(status.code, status.message));
    return false;
  }
  return true;
}

bool MoodKeychainUtils::deleteItemForUsername(const Text& username, const Text& andServiceName,
                                              OptionalError* error) {
  if (error) error->reset();
  if (!present(username) || !present(andServiceName)) {
    report(error, keychainError(kMoodKeychainUtilsMissingArgument,
                                "a keychain item needs a username and a service"));
    return false;
  }
  SecretStatus status = SecretStore::shared()->remove(SecretItemKey{*andServiceName, *username});
  if (!status.ok()) {
    report(error, keychainError(status.code, status.message));
    return false;
  }
  return true;
}

}  // namespace lumeo
