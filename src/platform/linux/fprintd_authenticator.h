// The biometric check on Linux: fprintd over the system bus
// (net.reactivated.Fprint). A check claims the default reader, starts a
// verification against any enrolled finger, waits for the final
// VerifyStatus signal and releases the reader again. The check is available
// only when a default reader exists and the user has enrolled a finger on it.
//
// The bus is DBUS_SYSTEM_BUS_ADDRESS when set, else the system bus, or the
// address given to the constructor; each authenticator has its own
// connection, so tests can point one at a private bus.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/biometric_authenticator.h"

namespace lumeo {

class FprintdAuthenticator : public BiometricAuthenticator {
 public:
  // `busAddress` empty: DBUS_SYSTEM_BUS_ADDRESS, else the system bus's socket.
  // `username` empty: the user running Lumeo (fprintd's own default).
  explicit FprintdAuthenticator(std::string busAddress = {}, std::string username = {},
                                double verifyTimeoutSeconds = 60);
  ~FprintdAuthenticator() override;  // cancels a running check and waits for it

  bool canEvaluatePolicy(OptionalError* error = nullptr) override;
  void evaluatePolicy(const std::string& localizedReason, Reply reply) override;
  void cancel() override;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace lumeo
