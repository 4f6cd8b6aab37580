// The process's biometric authenticator.
#include "platform/biometric_authenticator.h"

#include <thread>

namespace lumeo {

namespace {

std::mutex& sharedMutex() {
  static std::mutex m;
  return m;
}
std::shared_ptr<BiometricAuthenticator>& sharedSlot() {
  static std::shared_ptr<BiometricAuthenticator> authenticator;
  return authenticator;
}

}  // namespace

std::shared_ptr<BiometricAuthenticator> BiometricAuthenticator::shared() {
  std::lock_guard lock(sharedMutex());
  if (!sharedSlot()) sharedSlot() = std::make_shared<NoBiometricAuthenticator>();
  return sharedSlot();
}

void BiometricAuthenticator::setShared(std::shared_ptr<BiometricAuthenticator> authenticator) {
  std::lock_guard lock(sharedMutex());
  sharedSlot() = std::move(authenticator);
}

void NoBiometricAuthenticator::evaluatePolicy(const std::string&, Reply reply) {
  // The reply never comes inside the call, as with a real reader.
  std::thread([reply = std::move(reply)] {
    if (reply) reply(Error(kBiometricErrorDomain, kBiometricNotAvailable, "No fingerprint reader"));
  }).detach();
}

}  // namespace lumeo
