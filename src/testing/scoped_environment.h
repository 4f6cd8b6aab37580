// Sets environment variables for one test and puts the old values back when
// the object goes out of scope. Date and locale code reads TZ, LANG, LC_* at
// every call, so this is how a test runs "in Tokyo" or "in Germany".
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumeo::testing {

class ScopedEnvironment {
 public:
  ScopedEnvironment() = default;
  // Sets each name to its value; a nullopt value unsets the name.
  ScopedEnvironment(std::initializer_list<std::pair<std::string, std::optional<std::string>>> values) {
    for (const auto& [name, value] : values) set(name, value);
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) apply(it->first, it->second);
  }

  void set(const std::string& name, const std::optional<std::string>& value) {
    const char* old = std::getenv(name.c_str());
    saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    apply(name, value);
  }

 private:
  static void apply(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }

  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace lumeo::testing
