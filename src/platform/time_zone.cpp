// Time zones on ICU. The user's zone is rebuilt from TZ at every call rather
// than taken from icu::TimeZone::createDefault(), which ICU caches for the
// life of the process and would miss a change of zone.
#include "platform/time_zone.h"

#include <unicode/simpletz.h>
#include <unicode/timezone.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>

#include "platform/icu_support.h"

namespace lumeo {
namespace {

constexpr int kMillisPerSecond = 1000;
constexpr int kMillisPerHour = 3600 * 1000;

// Reads a POSIX offset "[+-]hh[:mm[:ss]]" in seconds; POSIX counts west of
// GMT as positive.
bool readPosixOffset(const std::string& s, size_t& i, int& seconds) {
  int sign = 1;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    sign = s[i] == '-' ? -1 : 1;
    ++i;
  }
  int parts[3] = {0, 0, 0};
  for (int p = 0; p < 3; ++p) {
    if (p > 0) {
      if (i >= s.size() || s[i] != ':') break;
      ++i;
    }
    size_t start = i;
    while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])) && i - start < 3) ++i;
    if (i == start) return false;
    parts[p] = std::atoi(s.substr(start, i - start).c_str());
  }
  if (parts[0] > 24 || parts[1] > 59 || parts[2] > 59) return false;
  seconds = sign * (parts[0] * 3600 + parts[1] * 60 + parts[2]);
  return true;
}

bool readPosixName(const std::string& s, size_t& i) {
  size_t start = i;
  if (i < s.size() && s[i] == '<') {
    size_t close = s.find('>', i);
    if (close == std::string::npos || close - i < 4) return false;
    i = close + 1;
    return true;
  }
  while (i < s.size() && std::isalpha(static_cast<unsigned char>(s[i]))) ++i;
  return i - start >= 3;
}

struct PosixRule {
  int month = 0;        // 0-based
  int weekInMonth = 0;  // 1..4, or -1 for the last
  int dayOfWeek = 0;    // ICU numbering, 1 is Sunday; 0 with weekInMonth 0 means a fixed day
  int dayOfMonth = 0;
  int timeMillis = 2 * kMillisPerHour;
};

int readNumber(const std::string& s, size_t& i) {
  size_t start = i;
  while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) ++i;
  if (i == start || i - start > 3) return -1;
  return std::atoi(s.substr(start, i - start).c_str());
}

bool readPosixRule(const std::string& s, size_t& i, PosixRule& rule) {
  if (i < s.size() && s[i] == 'M') {
    ++i;
    int m = readNumber(s, i);
    if (m < 1 || m > 12 || i >= s.size() || s[i++] != '.') return false;
    int w = readNumber(s, i);
    if (w < 1 || w > 5 || i >= s.size() || s[i++] != '.') return false;
    int d = readNumber(s, i);
    if (d < 0 || d > 6) return false;
    rule.month = m - 1;
    rule.weekInMonth = w == 5 ? -1 : w;
    rule.dayOfWeek = d + 1;
  } else {
    // "Jn" counts 1..365 without 29 February; "n" counts 0..365 with it. The
    // latter is taken as in a common year, which moves it by a day in leap
    // years; no zone in use today is written that way.
    bool julian = i < s.size() && s[i] == 'J';
    if (julian) ++i;
    int n = readNumber(s, i);
    if (n < 0 || n > 365) return false;
    int dayOfYear = julian ? n : n + 1;
    if (dayOfYear < 1 || dayOfYear > 365) return false;
    static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int month = 0;
    while (dayOfYear > kDays[month]) dayOfYear -= kDays[month++];
    rule.month = month;
    rule.dayOfMonth = dayOfYear;
  }
  if (i < s.size() && s[i] == '/') {
    ++i;
    int seconds = 0;
    if (!readPosixOffset(s, i, seconds) || seconds < 0 || seconds >= 24 * 3600) return false;
    rule.timeMillis = seconds * kMillisPerSecond;
  }
  return true;
}

// A POSIX TZ rule string as an ICU zone, or nullptr if it isn't one.
std::shared_ptr<const icu::TimeZone> zoneFromPosixRule(const std::string& s) {
  size_t i = 0;
  int stdOffset = 0;
  if (!readPosixName(s, i) || !readPosixOffset(s, i, stdOffset)) return nullptr;
  const icu::UnicodeString id = toUnicode(s);
  const int rawMillis = -stdOffset * kMillisPerSecond;
  if (i == s.size()) return std::make_shared<icu::SimpleTimeZone>(rawMillis, id);
  if (!readPosixName(s, i)) return nullptr;
  int dstOffset = stdOffset - 3600;
  if (i < s.size() && s[i] != ',' && !readPosixOffset(s, i, dstOffset)) return nullptr;
  // Without rules the C library falls back to the United States' rules.
  PosixRule start{2, 2, 1, 0, 2 * kMillisPerHour};
  PosixRule end{10, 1, 1, 0, 2 * kMillisPerHour};
  if (i < s.size()) {
    if (s[i++] != ',' || !readPosixRule(s, i, start)) return nullptr;
    if (i >= s.size() || s[i++] != ',' || !readPosixRule(s, i, end)) return nullptr;
    if (i != s.size()) return nullptr;
  }
  const int savingsMillis = (stdOffset - dstOffset) * kMillisPerSecond;
  if (savingsMillis == 0) return std::make_shared<icu::SimpleTimeZone>(rawMillis, id);
  auto dayFields = [](const PosixRule& r, int8_t& inMonth, int8_t& dayOfWeek) {
    inMonth = static_cast<int8_t>(r.dayOfWeek == 0 ? r.dayOfMonth : r.weekInMonth);
    dayOfWeek = static_cast<int8_t>(r.dayOfWeek);
  };
  int8_t startIn = 0, startDow = 0, endIn = 0, endDow = 0;
  dayFields(start, startIn, startDow);
  dayFields(end, endIn, endDow);
  UErrorCode status = U_ZERO_ERROR;
  auto zone = std::make_shared<icu::SimpleTimeZone>(
      rawMillis, id, static_cast<int8_t>(start.month), startIn, startDow, start.timeMillis,
      static_cast<int8_t>(end.month), endIn, endDow, end.timeMillis, savingsMillis, status);
  if (U_FAILURE(status)) return nullptr;
  return zone;
}

// Zones by name. The rules behind a name don't change while we run, so the
// ICU objects (immutable once made, safe to share) are kept; which name is
// the user's is still read from TZ at every call.
std::shared_ptr<const icu::TimeZone> zoneNamed(const std::string& name) {
  if (name.empty()) return nullptr;
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<const icu::TimeZone>> known;
  std::lock_guard<std::mutex> lock(mutex);
  if (auto it = known.find(name); it != known.end()) return it->second;
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(toUnicode(name)));
  // Only real zones are kept, so that names from outside data cannot grow
  // the map beyond the few hundred zones there are.
  if (!zone || *zone == icu::TimeZone::getUnknown()) return nullptr;
  std::shared_ptr<const icu::TimeZone> result(std::move(zone));
  known.emplace(name, result);
  return result;
}

// "/usr/share/zoneinfo/Europe/Berlin" -> "Europe/Berlin".
std::string stripZoneinfoPath(const std::string& path) {
  const std::string marker = "zoneinfo/";
  size_t at = path.rfind(marker);
  if (at == std::string::npos) return path;
  std::string rest = path.substr(at + marker.size());
  // posix/ and right/ hold the same zones with other leap-second handling.
  for (const char* prefix : {"posix/", "right/"}) {
    if (rest.rfind(prefix, 0) == 0) rest = rest.substr(std::char_traits<char>::length(prefix));
  }
  return rest;
}

std::string systemZoneName() {
  char buffer[4096];
  ssize_t n = ::readlink("/etc/localtime", buffer, sizeof buffer - 1);
  if (n > 0) {
    buffer[n] = '\0';
    return stripZoneinfoPath(buffer);
  }
  std::ifstream in("/etc/timezone");
  std::string line;
  if (in && std::getline(in, line)) {
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    return line;
  }
  return {};
}

}  // namespace

TimeZone::TimeZone(std::shared_ptr<const icu::TimeZone> zone, std::string identifier)
    : zone_(std::move(zone)), identifier_(std::move(identifier)) {}

std::optional<TimeZone> TimeZone::fromTZValue(const std::string& raw) {
  std::string value = raw;
  if (!value.empty() && value[0] == ':') value = value.substr(1);
  if (value.empty()) return std::nullopt;
  if (value[0] == '/') value = stripZoneinfoPath(value);
  if (auto zone = zoneNamed(value)) return TimeZone(std::move(zone), value);
  if (auto zone = zoneFromPosixRule(value)) return TimeZone(std::move(zone), value);
  return std::nullopt;
}

TimeZone TimeZone::current() {
  const char* tz = std::getenv("TZ");
  if (tz == nullptr || *tz == '\0') return system();
  if (auto zone = fromTZValue(tz)) return *zone;
  // The C library reads a TZ it cannot understand as UTC; so do we, so that
  // Lumeo and `date` agree.
  return *named("UTC");
}

TimeZone TimeZone::system() {
  const std::string name = systemZoneName();
  if (auto zone = zoneNamed(name)) return TimeZone(std::move(zone), name);
  std::shared_ptr<const icu::TimeZone> host(icu::TimeZone::detectHostTimeZone());
  if (host && *host != icu::TimeZone::getUnknown()) {
    icu::UnicodeString id;
    host->getID(id);
    return TimeZone(std::move(host), fromUnicode(id));
  }
  return *named("UTC");
}

TimeZone TimeZone::gmt() {
  return *named("GMT");
}

std::optional<TimeZone> TimeZone::named(const std::string& identifier) {
  if (auto zone = zoneNamed(identifier)) return TimeZone(std::move(zone), identifier);
  return std::nullopt;
}

TimeZone TimeZone::withSecondsFromGMT(int seconds) {
  const int minutes = std::abs(seconds) / 60;
  char id[16];
  std::snprintf(id, sizeof id, "GMT%c%02d:%02d", seconds < 0 ? '-' : '+', minutes / 60, minutes % 60);
  auto zone = std::make_shared<icu::SimpleTimeZone>(seconds * kMillisPerSecond, toUnicode(id));
  return TimeZone(std::move(zone), id);
}

int TimeZone::secondsFromGMT(Date date) const {
  UErrorCode status = U_ZERO_ERROR;
  int32_t raw = 0, dst = 0;
  zone_->getOffset(date.timeIntervalSince1970() * 1000.0, false, raw, dst, status);
  if (U_FAILURE(status)) return 0;
  return (raw + dst) / kMillisPerSecond;
}

bool TimeZone::isDaylightSavingTime(Date date) const {
  UErrorCode status = U_ZERO_ERROR;
  int32_t raw = 0, dst = 0;
  zone_->getOffset(date.timeIntervalSince1970() * 1000.0, false, raw, dst, status);
  return U_SUCCESS(status) && dst != 0;
}

bool operator==(const TimeZone& a, const TimeZone& b) {
  return a.identifier_ == b.identifier_ && *a.zone_ == *b.zone_;
}

}  // namespace lumeo
