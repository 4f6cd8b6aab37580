// The error value that completions carry: a domain, a code, a description for
// people and free-form details. Tests compare domain and code, never text.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/value.h"

namespace lumeo {

struct Error {
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

using OptionalError = std::optional<Error>;

}  // namespace lumeo
