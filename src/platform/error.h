// The error value that completions carry: a domain, a code, a description for
// people and free-form details. Tests compare domain and code, never text.
// Both Error and OptionalError are [[nodiscard]]: a function that reports a
// failure through its result cannot have that result dropped by accident.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/value.h"

namespace lumeo {

struct [[nodiscard]] Error {
  std::string domain;
  long code = 0;
  std::string description;
  Value::Dictionary userInfo;

  Error() = default;
  Error(std::string d, long c, std::string desc = {}, Value::Dictionary info = {})
      : domain(std::move(d)), code(c), description(std::move(desc)), userInfo(std::move(info)) {}

  bool is(const std::string& d, long c) const { return domain == d && code == c; }
  std::string toString() const {
    return domain + " " + std::to_string(code) + (description.empty() ? "" : ": " + description);
  }
};

// No error, or the one that happened. A std::optional<Error> in every way,
// except that a call returning one must use it.
class [[nodiscard]] OptionalError : public std::optional<Error> {
 public:
  using std::optional<Error>::optional;
  using std::optional<Error>::operator=;
  OptionalError() = default;
  OptionalError(const std::optional<Error>& other) : std::optional<Error>(other) {}        // NOLINT: implicit
  OptionalError(std::optional<Error>&& other) : std::optional<Error>(std::move(other)) {}  // NOLINT: implicit
};

}  // namespace lumeo
