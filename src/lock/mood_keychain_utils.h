// Generic-password items of the keychain, by username (the item's account)
// and service name, on the process's SecretStore. The lock keeps its two
// secrets here under the service "LumeoJournal".
//
// Errors come back in the optional slot (callers that do not care pass
// nothing) with the domain "MoodKeychainUtilsErrorDomain": the store's own
// status code (kSecretNotAvailable, kSecretInteractionNotAllowed, ... from
// platform/secret_store.h), kMoodKeychainUtilsItemWithoutData for an item
// that exists but holds no secret, kMoodKeychainUtilsMissingArgument for a
// missing username, password or service. The description says what went
// wrong in words a user can act on.
#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace lumeo {

inline constexpr char kMoodKeychainUtilsErrorDomain[] = "MoodKeychainUtilsErrorDomain";
inline constexpr long kMoodKeychainUtilsItemWithoutData = -1999;
inline constexpr long kMoodKeychainUtilsMissingArgument = -2000;

// The service name of Lumeo's items.
inline constexpr char kMoodKeychainServiceName[] = "LumeoJournal";

class MoodKeychainUtils {
 public:
  using Text = std::optional<std::string>;

  // The item's password; nothing (and no error) when there is no item.
  static std::optional<std::string> getPasswordForUsername(const Text& username, const Text& andServiceName,
                                                           OptionalError* error = nullptr);
  // Stores the password: an equal stored password is left alone (nothing is
  // written), a different one is replaced only with `updateExisting`, and a
  // missing item is added with the service name as its label. An item
  // without a secret is deleted and added again. False with the error when
  // the store refused; the stored state is then what it was.
  static bool storeUsername(const Text& username, const Text& andPassword, const Text& forServiceName,
                            bool updateExisting, OptionalError* error = nullptr);
  // Deletes the item; a missing item is reported with the store's
  // kSecretItemNotFound in the slot, and nothing else happens.
  static bool deleteItemForUsername(const Text& username, const Text& andServiceName,
                                    OptionalError* error = nullptr);
};

}  // namespace lumeo
