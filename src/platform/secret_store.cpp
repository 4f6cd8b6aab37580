// The process's secret store and the in-memory store of the tests.
#include "platform/secret_store.h"

namespace lumeo {

namespace {

std::mutex& sharedMutex() {
  static std::mutex m;
  return m;
}
std::shared_ptr<SecretStore>& sharedSlot() {
  static std::shared_ptr<SecretStore> store;
  return store;
}

}  // namespace

std::shared_ptr<SecretStore> SecretStore::shared() {
  std::lock_guard lock(sharedMutex());
  if (!sharedSlot()) sharedSlot() = std::make_shared<UnavailableSecretStore>();
  return sharedSlot();
}

void SecretStore::setShared(std::shared_ptr<SecretStore> store) {
  std::lock_guard lock(sharedMutex());
  sharedSlot() = std::move(store);
}

std::optional<SecretStatus> InMemorySecretStore::gate(Operation operation, bool needsUnlocked) {
  if (failure_ && failure_->first == operation) {
    SecretStatus status = failure_->second;
    failure_.reset();
    return status;
  }
  if (!available_) return SecretStatus{kSecretNotAvailable, "the secret store is not running"};
  if (needsUnlocked && locked_) return SecretStatus{kSecretInteractionNotAllowed, "the keyring is locked"};
  return std::nullopt;
}

SecretStatus InMemorySecretStore::copyMatchingAttributes(const SecretItemKey& key) {
  std::lock_guard lock(mutex_);
  if (auto status = gate(Operation::kCopyAttributes, false)) return *status;
  if (!items_.count(key)) return {kSecretItemNotFound, "no such item"};
  return SecretStatus::success();
}

SecretStatus InMemorySecretStore::copyMatchingData(const SecretItemKey& key, std::string& data) {
  std::lock_guard lock(mutex_);
  if (auto status = gate(Operation::kCopyData, true)) return *status;
  auto it = items_.find(key);
  if (it == items_.end()) return {kSecretItemNotFound, "no such item"};
  data = it->second.data;
  return SecretStatus::success();
}

SecretStatus InMemorySecretStore::add(const SecretItemKey& key, const std::string& label,
                                      const std::string& data) {
  std::lock_guard lock(mutex_);
  if (auto status = gate(Operation::kAdd, true)) return *status;
  if (items_.count(key)) return {kSecretDuplicateItem, "the item exists already"};
  items_[key] = {label, data};
  ++writes_;
  return SecretStatus::success();
}

SecretStatus InMemorySecretStore::update(const SecretItemKey& key, const std::string& data) {
  std::lock_guard lock(mutex_);
  if (auto status = gate(Operation::kUpdate, true)) return *status;
  auto it = items_.find(key);
  if (it == items_.end()) return {kSecretItemNotFound, "no such item"};
  it->second.data = data;
  ++writes_;
  return SecretStatus::success();
}

SecretStatus InMemorySecretStore::remove(const SecretItemKey& key) {
  std::lock_guard lock(mutex_);
  if (auto status = gate(Operation::kRemove, true)) return *status;
  if (!items_.erase(key)) return {kSecretItemNotFound, "no such item"};
  ++writes_;
  return SecretStatus::success();
}

void InMemorySecretStore::setAvailable(bool available) {
  std::lock_guard lock(mutex_);
  available_ = available;
}
void InMemorySecretStore::setLocked(bool locked) {
  std::lock_guard lock(mutex_);
  locked_ = locked;
}
void InMemorySecretStore::failNext(Operation operation, SecretStatus status) {
  std::lock_guard lock(mutex_);
  failure_ = std::make_pair(operation, std::move(status));
}
std::map<SecretItemKey, InMemorySecretStore::Item> InMemorySecretStore::items() const {
  std::lock_guard lock(mutex_);
  return items_;
}
int InMemorySecretStore::writes() const {
  std::lock_guard lock(mutex_);
  return writes_;
}

}  // namespace lumeo
