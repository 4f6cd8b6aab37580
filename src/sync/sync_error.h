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
  kSyncErrorCodeDiscontinuousRevisions = 200,
  kSyncErrorCodeMissingDependencies = 201,
  kSyncErrorCodeUnknownModelVersion = 204,
  kSyncErrorCodeSaveOccurredDuringMerge = 207,
  kSyncErrorCodeMissingDataFiles = 210,
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
