// The system's biometric check (a fingerprint reader on Linux) as one narrow
// seam: whether a check can run, and one check with a single reply. What a
// successful check unlocks is not this seam's business.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/error.h"

namespace lumeo {

// Why a check did not pass. The codes follow the platform's own numbering.
inline constexpr char kBiometricErrorDomain[] = "LumeoBiometricErrorDomain";
enum BiometricErrorCode : long {
  kBiometricAuthenticationFailed = -1,  // the finger did not match
  kBiometricUserCancel = -2,            // the check was cancelled
  kBiometricSystemCancel = -4,          // the reader went away or the service failed
  kBiometricNotAvailable = -6,          // no reader, or no service that drives one
  kBiometricNotEnrolled = -7,           // a reader, but no finger enrolled on it
};

class BiometricAuthenticator {
 public:
  using Reply = std::function<void(OptionalError error)>;

  virtual ~BiometricAuthenticator() = default;

  // True when a check can run now: a reader exists and the user has enrolled
  // a finger on it. Otherwise false, with the reason in `error` when given.
  // Blocks while it asks the system; any thread.
  virtual bool canEvaluatePolicy(OptionalError* error = nullptr) = 0;
  // Runs one check and calls `reply` exactly once, on a thread of the
  // authenticator's own (never inside this call): no error on a match,
  // otherwise an error of kBiometricErrorDomain. `localizedReason` says
  // what the check is for, where the system shows it.
  virtual void evaluatePolicy(const std::string& localizedReason, Reply reply) = 0;
  // Ends a running check; its reply then carries kBiometricUserCancel.
  // Does nothing when no check runs. Any thread.
  virtual void cancel() {}
  // What settings call the check on this system ("Fingerprint").
  virtual std::string biometryName() const { return "Fingerprint"; }

  // The process's authenticator; until a front end installs one, a machine
  // without biometrics.
  static std::shared_ptr<BiometricAuthenticator> shared();
  static void setShared(std::shared_ptr<BiometricAuthenticator> authenticator);
};

// A machine without a reader: never available.
class NoBiometricAuthenticator : public BiometricAuthenticator {
 public:
  bool canEvaluatePolicy(OptionalError* error = nullptr) override {
    if (error) *error = Error(kBiometricErrorDomain, kBiometricNotAvailable, "No fingerprint reader");
    return false;
  }
  void evaluatePolicy(const std::string&, Reply reply) override;
};

}  // namespace lumeo
