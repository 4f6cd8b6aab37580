// The process-wide log level, the line format and the sink that lines go to.
#include "platform/log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace lumeo {

namespace {

// -1 means "not chosen from the environment".
int environmentLevel() {
  const char* v = std::getenv("LUMEO_LOG_LEVEL");
  if (!v || !*v) return -1;
  char* end = nullptr;
  long n = std::strtol(v, &end, 10);
  if (*end != '\0' || n < kLogLevelOff || n > kLogLevelDebug) return -1;
  return static_cast<int>(n);
}

std::atomic<int>& levelSlot() {
  static std::atomic<int> level{[] {
    int env = environmentLevel();
    return env >= 0 ? env : static_cast<int>(kLogLevelError);
  }()};
  return level;
}

// Never destroyed, like the level: worker threads may log while the process
// tears its static objects down.
std::mutex& sinkMutex() {
  static std::mutex& m = *new std::mutex;
  return m;
}

LogSink& sinkSlot() {
  static LogSink& sink = *new LogSink;
  return sink;
}

}  // namespace

int logLevel() {
  return levelSlot().load(std::memory_order_relaxed);
}

void setLogLevel(int level) {
  levelSlot().store(std::clamp(level, static_cast<int>(kLogLevelOff), static_cast<int>(kLogLevelDebug)));
}

void setDefaultLogLevel(int level) {
  if (environmentLevel() < 0) setLogLevel(level);
}

LogSink setLogSink(LogSink sink) {
  std::lock_guard lock(sinkMutex());
  return std::exchange(sinkSlot(), std::move(sink));
}

void logLine(int level, std::string_view function, int line, std::string_view message) {
  if (level <= kLogLevelOff || logLevel() < level) return;
  std::string text;
  text.reserve(function.size() + message.size() + 24);
  text.append(function).append(" line ").append(std::to_string(line)).append(": ").append(message);
  std::lock_guard lock(sinkMutex());
  if (sinkSlot()) {
    sinkSlot()(level, text);
  } else {
    text.push_back('\n');
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
}

std::string shortFunctionName(std::string_view pretty) {
  // Find the parenthesis that opens the parameter list: the first one outside
  // template brackets that is not the name of a call operator.
  std::size_t open = std::string_view::npos;
  int depth = 0;
  for (std::size_t i = 0; i < pretty.size(); ++i) {
    char c = pretty[i];
    if (c == '<') {
      ++depth;
    } else if (c == '>') {
      depth = std::max(0, depth - 1);
    } else if (c == '(' && depth == 0) {
      if (pretty.substr(0, i).ends_with("operator") && i + 1 < pretty.size() && pretty[i + 1] == ')') {
        ++i;
        continue;
      }
      open = i;
      break;
    }
  }
  std::string_view head = pretty.substr(0, open);
  // The return type ends at the last space outside template brackets.
  std::size_t start = 0;
  depth = 0;
  for (std::size_t i = 0; i < head.size(); ++i) {
    char c = head[i];
    if (c == '<') {
      ++depth;
    } else if (c == '>') {
      depth = std::max(0, depth - 1);
    } else if (c == ' ' && depth == 0 && !head.substr(0, i).ends_with("operator")) {
      start = i + 1;
    }
  }
  std::string_view name = head.substr(start);
  while (!name.empty() && (name.front() == '*' || name.front() == '&')) name.remove_prefix(1);
  constexpr std::string_view kNamespace = "lumeo::";
  if (name.starts_with(kNamespace)) name.remove_prefix(kNamespace.size());
  return std::string(name.empty() ? pretty : name);
}

ScopedLogCapture::ScopedLogCapture(int level) : previousLevel_(logLevel()) {
  if (level >= 0) setLogLevel(level);
  previousSink_ = setLogSink([this](int, const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
  });
}

ScopedLogCapture::~ScopedLogCapture() {
  setLogSink(std::move(previousSink_));
  setLogLevel(previousLevel_);
}

std::vector<std::string> ScopedLogCapture::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

bool ScopedLogCapture::contains(std::string_view text) const {
  std::lock_guard lock(mutex_);
  return std::any_of(lines_.begin(), lines_.end(),
                     [&](const std::string& l) { return l.find(text) != std::string::npos; });
}

}  // namespace lumeo
