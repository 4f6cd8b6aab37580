// The command line's date reader. ISO texts are read by hand, field by field,
// because ICU's patterns cannot say "seconds optional, zone optional"; locale
// forms go through the locale's own patterns in strict mode.
#include "platform/user_date_parser.h"

#include <array>
#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "platform/date_formatter.h"

namespace lumeo {
namespace {

struct Cursor {
  std::string_view s;
  size_t i = 0;
  bool done() const { return i == s.size(); }
  bool peek(char c) const { return i < s.size() && s[i] == c; }
  bool take(char c) {
    if (!peek(c)) return false;
    ++i;
    return true;
  }
  // Exactly n digits.
  std::optional<int> digits(size_t n) {
    if (s.size() - i < n) return std::nullopt;
    int v = 0;
    for (size_t k = 0; k < n; ++k) {
      const char c = s[i + k];
      if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
      v = v * 10 + (c - '0');
    }
    i += n;
    return v;
  }
};

bool isLeapYear(int y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysInMonth(int year, int month) {
  static constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// ICU's newer English patterns put a narrow no-break space before "AM"/"PM"
// and no-break spaces elsewhere; nobody types those, so both the pattern and
// the text use plain spaces.
std::string plainSpaces(std::string_view s) {
  static constexpr std::string_view kNarrowNoBreak = "\u202F";
  static constexpr std::string_view kNoBreak = "\u00A0";
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    if (s.substr(i, kNarrowNoBreak.size()) == kNarrowNoBreak) {
      out.push_back(' ');
      i += kNarrowNoBreak.size();
    } else if (s.substr(i, kNoBreak.size()) == kNoBreak) {
      out.push_back(' ');
      i += kNoBreak.size();
    } else {
      out.push_back(s[i++]);
    }
  }
  return out;
}

// Reads the fields of `text` by a locale pattern in GMT, then builds the
// instant from those fields in the calendar's zone. Going through the fields
// lets a day whose midnight a daylight-saving change skips still parse.
std::optional<Date> parseWithPattern(const std::string& text, const std::string& pattern,
                                     const Calendar& calendar, const Calendar& gmtCalendar) {
  if (pattern.empty()) return std::nullopt;
  DateFormatter formatter(pattern);
  formatter.setLocale(calendar.localeIdentifier());
  formatter.setTimeZone(TimeZone::gmt());
  const auto instant = formatter.dateFromString(text);
  if (!instant) return std::nullopt;
  const DateComponents fields = gmtCalendar.components(CalendarUnit::kEra | kYearToSecond, *instant);
  return calendar.dateFromComponents(fields);
}

// The patterns tried, in order, for a locale. ICU's locale data never
// changes while we run, so each thread keeps the list per locale.
const std::vector<std::string>& localePatterns(const std::string& locale) {
  thread_local std::map<std::string, std::vector<std::string>> cache;
  auto it = cache.find(locale);
  if (it != cache.end()) return it->second;
  using Style = DateFormatter::Style;
  static constexpr std::array<std::pair<Style, Style>, 8> kForms = {{
      {Style::kShort, Style::kNone},
      {Style::kMedium, Style::kNone},
      {Style::kShort, Style::kShort},
      {Style::kShort, Style::kMedium},
      {Style::kMedium, Style::kShort},
      {Style::kMedium, Style::kMedium},
      {Style::kLong, Style::kNone},
      {Style::kLong, Style::kShort},
  }};
  std::vector<std::string> patterns;
  for (const auto& [dateStyle, timeStyle] : kForms) {
    std::string pattern = plainSpaces(DateFormatter::patternForStyles(dateStyle, timeStyle, locale));
    if (!pattern.empty()) patterns.push_back(std::move(pattern));
  }
  return cache.emplace(locale, std::move(patterns)).first->second;
}

}  // namespace

std::optional<Date> parseIsoUserDate(std::string_view text, const Calendar& calendar) {
  Cursor c{trim(text)};
  const auto year = c.digits(4);
  if (!year || !c.take('-')) return std::nullopt;
  const auto month = c.digits(2);
  if (!month || *month < 1 || *month > 12 || !c.take('-')) return std::nullopt;
  const auto day = c.digits(2);
  if (!day || *day < 1 || *day > daysInMonth(*year, *month)) return std::nullopt;
  DateComponents fields;
  fields.year = *year;
  fields.month = *month;
  fields.day = *day;
  std::optional<int> offsetSeconds;
  double fraction = 0;
  if (!c.done()) {
    if (!c.take('T') && !c.take(' ')) return std::nullopt;
    const auto hour = c.digits(2);
    if (!hour || *hour > 23 || !c.take(':')) return std::nullopt;
    const auto minute = c.digits(2);
    if (!minute || *minute > 59) return std::nullopt;
    fields.hour = *hour;
    fields.minute = *minute;
    if (c.take(':')) {
      const auto second = c.digits(2);
      if (!second || *second > 59) return std::nullopt;
      fields.second = *second;
      if (c.take('.') || c.take(',')) {
        double scale = 0.1;
        size_t start = c.i;
        while (!c.done() && std::isdigit(static_cast<unsigned char>(c.s[c.i]))) {
          fraction += (c.s[c.i] - '0') * scale;
          scale /= 10;
          ++c.i;
        }
        if (c.i == start) return std::nullopt;
      }
    }
    if (c.take('Z') || c.take('z')) {
      offsetSeconds = 0;
    } else if (c.peek('+') || c.peek('-')) {
      const int sign = c.s[c.i] == '-' ? -1 : 1;
      ++c.i;
      const auto hours = c.digits(2);
      if (!hours || *hours > 18) return std::nullopt;
      int minutes = 0;
      if (!c.done()) {
        c.take(':');
        const auto m = c.digits(2);
        if (!m || *m > 59) return std::nullopt;
        minutes = *m;
      }
      offsetSeconds = sign * (*hours * 3600 + minutes * 60);
    }
  }
  if (!c.done()) return std::nullopt;
  // ISO dates are Gregorian whatever calendar the user reads dates in.
  Calendar gregorian("en_US_POSIX@calendar=gregorian",
                     offsetSeconds ? TimeZone::withSecondsFromGMT(*offsetSeconds) : calendar.timeZone());
  const auto date = gregorian.dateFromComponents(fields);
  if (!date) return std::nullopt;
  return date->dateByAddingTimeInterval(fraction);
}

std::optional<Date> parseUserDate(std::string_view text, const Calendar& calendar) {
  if (auto iso = parseIsoUserDate(text, calendar)) return iso;
  const std::string input = plainSpaces(trim(text));
  // Every short, medium and long form writes the day and year in digits, so
  // a text without any is refused before the costly locale patterns.
  if (input.find_first_of("0123456789") == std::string::npos) return std::nullopt;
  Calendar gmtCalendar = calendar;
  gmtCalendar.setTimeZone(TimeZone::gmt());
  for (const std::string& pattern : localePatterns(calendar.localeIdentifier())) {
    if (auto date = parseWithPattern(input, pattern, calendar, gmtCalendar)) return date;
  }
  return std::nullopt;
}

std::optional<Date> parseUserDate(std::string_view text) {
  return parseUserDate(text, Calendar::current());
}

}  // namespace lumeo
