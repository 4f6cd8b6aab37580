// Lumeo's diagnostic log. One process-wide level decides what is written:
// 1 errors, 2 warnings, 3 verbose, 4 debug (failures that the program drops on
// purpose), 0 nothing. Each line reads "<function> line <n>: <message>" and goes
// to standard error or to an installed sink. Safe to use from any thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/string_format.h"

namespace lumeo {

enum LogLevel : int {
  kLogLevelOff = 0,
  kLogLevelError = 1,
  kLogLevelWarning = 2,
  kLogLevelVerbose = 3,
  kLogLevelDebug = 4,
};

// The level at start is LUMEO_LOG_LEVEL when that holds a number from 0 to 4,
// else kLogLevelError.
int logLevel();
// Sets the level, clamped to 0...4.
void setLogLevel(int level);
// Sets the level unless LUMEO_LOG_LEVEL chose one: what the application calls
// at launch, so that a user can still turn the log up or down from outside.
void setDefaultLogLevel(int level);

// Receives every written line (without a trailing newline) with its level.
// Called under the logger's lock: a sink must not log.
using LogSink = std::function<void(int level, const std::string& line)>;
// Installs a sink in place of standard error; an empty sink restores stderr.
// Returns the sink that was installed before.
LogSink setLogSink(LogSink sink);

// Writes one line if `level` is enabled.
void logLine(int level, std::string_view function, int line, std::string_view message);

// "Class::method" out of a compiler's pretty function name: drops the return
// type, the parameter list and the lumeo:: namespace, so that log lines stay short.
std::string shortFunctionName(std::string_view prettyFunction);

namespace detail {
template <typename... Args>
void logFormatted(int level, const char* function, int line, std::string_view format, const Args&... args) {
  std::string message;
  if constexpr (sizeof...(Args) == 0) {
    message = std::string(format);
  } else {
    try {
      message = stringWithFormat(format, args...);
    } catch (const FormatError& e) {
      message = std::string(format) + " [bad log format: " + e.what() + "]";
    }
  }
  logLine(level, shortFunctionName(function), line, message);
}
}  // namespace detail

// Collects the lines logged while it lives (tests). Sets the level for its
// lifetime when one is given; restores the level and the previous sink after.
class ScopedLogCapture {
 public:
  explicit ScopedLogCapture(int level = -1);
  ~ScopedLogCapture();
  ScopedLogCapture(const ScopedLogCapture&) = delete;
  ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

  std::vector<std::string> lines() const;
  // True when some captured line contains `text`.
  bool contains(std::string_view text) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  LogSink previousSink_;
  int previousLevel_;
};

}  // namespace lumeo

// LUMEO_LOG_ERROR("Could not open %@: %d", path, code). The message is only
// formatted when the level is enabled.
#define LUMEO_LOG(level, ...)                                                             \
  do {                                                                                    \
    if (::lumeo::logLevel() >= (level)) {                                                 \
      ::lumeo::detail::logFormatted((level), __PRETTY_FUNCTION__, __LINE__, __VA_ARGS__); \
    }                                                                                     \
  } while (0)
#define LUMEO_LOG_ERROR(...) LUMEO_LOG(::lumeo::kLogLevelError, __VA_ARGS__)
#define LUMEO_LOG_WARNING(...) LUMEO_LOG(::lumeo::kLogLevelWarning, __VA_ARGS__)
#define LUMEO_LOG_VERBOSE(...) LUMEO_LOG(::lumeo::kLogLevelVerbose, __VA_ARGS__)
#define LUMEO_LOG_DEBUG(...) LUMEO_LOG(::lumeo::kLogLevelDebug, __VA_ARGS__)

// Drops the error of a call on purpose (a failure the program goes on
// without, such as a settings write the next write retries), logging it at
// debug level: LUMEO_DROP_ERROR(defaults.setBool(key, true)).
#define LUMEO_DROP_ERROR(...)                                                                  \
  do {                                                                                         \
    if (::lumeo::OptionalError lumeoDroppedError_ = (__VA_ARGS__)) {                           \
      LUMEO_LOG_DEBUG("dropped: %@", static_cast<const ::lumeo::Error&>(*lumeoDroppedError_)); \
    }                                                                                          \
  } while (0)
