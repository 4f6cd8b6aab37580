// The secret store on Linux: the desktop's Secret Service (GNOME Keyring,
// KWallet's bridge, KeePassXC) through libsecret. Items are generic
// passwords of the schema "org.lumeo.Journal" with the attributes "service"
// and "account", labelled with the service name, plus the attribute
// "journal" that holds the journal's folder, so that two journals of one
// user (`--home`) keep separate locks. New items go to the default
// collection (normally the "login" keyring).
//
// There is no fallback: with no Secret Service on the session bus every
// call answers kSecretNotAvailable, and a locked keyring that the user does
// not unlock answers kSecretInteractionNotAllowed (kSecretUserCanceled when
// the unlock prompt was dismissed). Calls are serialised and block the
// calling thread while the service (or its unlock prompt) answers.
#pragma once

#include <mutex>
#include <string>

#include "platform/secret_store.h"

namespace lumeo {

class SecretServiceStore : public SecretStore {
 public:
  explicit SecretServiceStore(std::string journal);

  SecretStatus copyMatchingAttributes(const SecretItemKey& key) override;
  SecretStatus copyMatchingData(const SecretItemKey& key, std::string& data) override;
  SecretStatus add(const SecretItemKey& key, const std::string& label, const std::string& data) override;
  SecretStatus update(const SecretItemKey& key, const std::string& data) override;
  SecretStatus remove(const SecretItemKey& key) override;

  const std::string& journal() const { return journal_; }

 private:
  // A service that restarted since the last call is reached on the second
  // try, after the first dropped the stale connection.
  template <typename F>
  static SecretStatus retried(F once) {
    SecretStatus status = once();
    if (status.code == kSecretNotAvailable) status = once();
    return status;
  }
  SecretStatus copyMatchingAttributesOnce(const SecretItemKey& key);
  SecretStatus copyMatchingDataOnce(const SecretItemKey& key, std::string& data);
  SecretStatus addOnce(const SecretItemKey& key, const std::string& label, const std::string& data);
  SecretStatus updateOnce(const SecretItemKey& key, const std::string& data);
  SecretStatus removeOnce(const SecretItemKey& key);

  std::mutex mutex_;
  std::string journal_;
};

}  // namespace lumeo
