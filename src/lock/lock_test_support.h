// Test doubles of the lock's tests: an in-memory keychain installed for the
// test, a biometric reader whose answers the test scripts, and a presenter
// of text-field alerts with scripted answers.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lock/text_field_alert.h"
#include "platform/biometric_authenticator.h"
#include "platform/secret_store.h"

namespace lumeo::testing {

// Installs an in-memory secret store for the lifetime of the object.
class ScopedSecretStore {
 public:
  ScopedSecretStore() : store_(std::make_shared<InMemorySecretStore>()) { SecretStore::setShared(store_); }
  ~ScopedSecretStore() { SecretStore::setShared(nullptr); }
  InMemorySecretStore& operator*() { return *store_; }
  InMemorySecretStore* operator->() { return store_.get(); }

 private:
  std::shared_ptr<InMemorySecretStore> store_;
};

// A reader that is there or not; each check waits until the test answers
// it with finish(), and the answer arrives on another thread as a real one.
class ScriptedBiometricAuthenticator : public BiometricAuthenticator {
 public:
  bool available = true;
  int checks = 0;
  std::vector<Reply> pending;

  bool canEvaluatePolicy(OptionalError* error = nullptr) override {
    if (!available && error) *error = Error(kBiometricErrorDomain, kBiometricNotAvailable, "no reader");
    return available;
  }
  void evaluatePolicy(const std::string&, Reply reply) override {
    ++checks;
    pending.push_back(std::move(reply));
  }
  // Answers the oldest waiting check on the calling thread.
  void finish(OptionalError error = std::nullopt) {
    ASSERT_FALSE(pending.empty());
    Reply reply = std::move(pending.front());
    pending.erase(pending.begin());
    reply(std::move(error));
  }
};

class ScriptedTextFieldAlerts : public TextFieldAlertPresenter {
 public:
  struct Shown {
    TextFieldAlertRequest request;
    std::function<void(int, const std::string&)> handler;
  };
  std::vector<Shown> shown;
  std::deque<std::pair<int, std::string>> answers;

  void presentTextFieldAlert(Screen&, const TextFieldAlertRequest& request,
                             std::function<void(int, const std::string&)> handler) override {
    shown.push_back({request, handler});
    if (!answers.empty()) {
      auto [result, text] = answers.front();
      answers.pop_front();
      handler(result, text);
    }
  }
};

}  // namespace lumeo::testing
