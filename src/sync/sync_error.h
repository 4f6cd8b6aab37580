// The sync engine's error domain, its codes and the exception that marks a
// programming-level failure inside the engine. A merge catches the exception
// and reports it as code -1 with the reason in the error's user info.
#pragma once

#include <stdexcept>
#include <string>
#include <variant>

#include "platform/error.h"

namespace lumeo {

inline constexpr char kSyncErrorDomain[] = "SyncErrorDomain";
inline constexpr char kSyncExceptionName[] = "SyncException";
// User-info key of the reason of a wrapped exception.
inline constexpr char kLocalizedFailureReasonErrorKey[] = "NSLocalizedFailureReason";

enum SyncErrorCode : long {
  kSyncErrorCodeUnknown = -1,
  kSyncErrorCodeCancelled = 101,
  kSyncErrorCodeMultipleErrors = 102,
  kSyncErrorCodeFileCoordinatorTimedOut = 106,  // the cloud did not answer in time
  kSyncErrorCodeFileAccessFailed = 107,         // a file could not be read, moved, copied or removed
  kSyncErrorCodeDiscontinuousRevisions = 200,
  kSyncErrorCodeMissingDependencies = 201,
  kSyncErrorCodeUnknownModelVersion = 204,
  kSyncErrorCodeSaveOccurredDuringMerge = 207,
  kSyncErrorCodeMissingDataFiles = 210,
  kSyncErrorCodeServerError = 1001,                // the cloud service failed or is not there
  kSyncErrorCodeCloudNotConnected = 1002,          // an operation before connect, or signed out
  kSyncErrorCodeCloudAuthenticationFailed = 1003,  // the cloud does not know or refused the user
};

// A value or the error that kept it from being made.
template <class T>
using SyncResult = std::variant<T, Error>;

inline Error syncError(long code, std::string description) {
  return Error(kSyncErrorDomain, code, std::move(description));
}

// "SyncException": thrown for failed fetches and malformed event data.
class SyncException : public std::runtime_error {
 public:
  explicit SyncException(const std::string& reason) : std::runtime_error(reason) {}
  std::string name() const { return kSyncExceptionName; }
  std::string reason() const { return what(); }
};

// Code -1 with the exception's reason, as a merge reports it.
inline Error errorForSyncException(const std::string& reason) {
  Error error(kSyncErrorDomain, kSyncErrorCodeUnknown, reason);
  error.userInfo[kLocalizedFailureReasonErrorKey] = Value(reason);
  return error;
}

}  // namespace lumeo
