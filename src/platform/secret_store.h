// The store of small secrets (the passcode and its recovery key): generic
// password items found by a service name and an account, with the four
// operations a keychain offers: copy, add, update and delete. Lumeo never
// keeps a secret anywhere else; a front end installs the system's store
// (the Secret Service on Linux) and tests an in-memory one.
//
// Every operation answers with a status code as the keychain spells them, so
// that callers can tell "no such item" from "the store cannot be reached".
// Operations block the calling thread (a store may ask the user to unlock a
// locked keyring) and may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace lumeo {

enum SecretStatusCode : long {
  kSecretSuccess = 0,
  kSecretUserCanceled = -128,             // the user declined to unlock
  kSecretParam = -50,                     // a missing service or account
  kSecretNotAvailable = -25291,           // no secret store on this system
  kSecretAuthFailed = -25293,             // the store refused the request
  kSecretDuplicateItem = -25299,          // add: the item exists already
  kSecretItemNotFound = -25300,           // no item with that service and account
  kSecretInteractionNotAllowed = -25308,  // the keyring is locked
};

// The outcome of one operation: a code from SecretStatusCode and, when it is
// not a success, a text for people that says what went wrong.
struct SecretStatus {
  long code = kSecretSuccess;
  std::string message;

  bool ok() const { return code == kSecretSuccess; }
  static SecretStatus success() { return {}; }
};

// Names one item.
struct SecretItemKey {
  std::string service;
  std::string account;
  friend auto operator<=>(const SecretItemKey&, const SecretItemKey&) = default;
};

class SecretStore {
 public:
  virtual ~SecretStore() = default;

  // Success when the item exists (its secret is not read, so a locked
  // keyring need not be unlocked), kSecretItemNotFound when it does not.
  virtual SecretStatus copyMatchingAttributes(const SecretItemKey& key) = 0;
  // The item's secret bytes into `data`. kSecretItemNotFound when there is
  // no item; an item without a secret gives success with empty data.
  virtual SecretStatus copyMatchingData(const SecretItemKey& key, std::string& data) = 0;
  // Makes a new item; kSecretDuplicateItem (and nothing changed) when one
  // exists. `label` is what keyring managers show for it.
  virtual SecretStatus add(const SecretItemKey& key, const std::string& label, const std::string& data) = 0;
  // Replaces the secret of an existing item; kSecretItemNotFound when none.
  virtual SecretStatus update(const SecretItemKey& key, const std::string& data) = 0;
  // Removes the item; kSecretItemNotFound when there was none.
  virtual SecretStatus remove(const SecretItemKey& key) = 0;

  // The process's store. Until a front end installs one, a store that
  // answers kSecretNotAvailable to everything: without a secret store,
  // secrets are refused, never kept in the clear.
  static std::shared_ptr<SecretStore> shared();
  // Installs the process's store; nullptr goes back to the unavailable one.
  static void setShared(std::shared_ptr<SecretStore> store);
};

// A store that has nothing and keeps nothing: every call answers
// kSecretNotAvailable with `reason` as its message.
class UnavailableSecretStore : public SecretStore {
 public:
  explicit UnavailableSecretStore(std::string reason = "no secret store is installed")
      : reason_(std::move(reason)) {}
  SecretStatus copyMatchingAttributes(const SecretItemKey&) override { return fail(); }
  SecretStatus copyMatchingData(const SecretItemKey&, std::string&) override { return fail(); }
  SecretStatus add(const SecretItemKey&, const std::string&, const std::string&) override { return fail(); }
  SecretStatus update(const SecretItemKey&, const std::string&) override { return fail(); }
  SecretStatus remove(const SecretItemKey&) override { return fail(); }

 private:
  SecretStatus fail() const { return {kSecretNotAvailable, reason_}; }
  std::string reason_;
};

// Items in memory, for tests: a store that can also be locked, taken away,
// or made to fail one chosen operation.
class InMemorySecretStore : public SecretStore {
 public:
  struct Item {
    std::string label;
    std::string data;
  };
  enum class Operation { kCopyAttributes, kCopyData, kAdd, kUpdate, kRemove };

  SecretStatus copyMatchingAttributes(const SecretItemKey& key) override;
  SecretStatus copyMatchingData(const SecretItemKey& key, std::string& data) override;
  SecretStatus add(const SecretItemKey& key, const std::string& label, const std::string& data) override;
  SecretStatus update(const SecretItemKey& key, const std::string& data) override;
  SecretStatus remove(const SecretItemKey& key) override;

  // While unavailable every call answers kSecretNotAvailable; while locked
  // reading secrets and writing answer kSecretInteractionNotAllowed.
  void setAvailable(bool available);
  void setLocked(bool locked);
  // The next call of `operation` answers `status` and changes nothing.
  void failNext(Operation operation, SecretStatus status);

  std::map<SecretItemKey, Item> items() const;
  // Number of calls that changed the items (add, update, remove).
  int writes() const;

 private:
  std::optional<SecretStatus> gate(Operation operation, bool needsUnlocked);

  mutable std::mutex mutex_;
  std::map<SecretItemKey, Item> items_;
  bool available_ = true;
  bool locked_ = false;
  std::optional<std::pair<Operation, SecretStatus>> failure_;
  int writes_ = 0;
};

}  // namespace lumeo
