// DateFormatter on ICU's SimpleDateFormat. The ICU object is made lazily and
// thrown away whenever a setting changes, so that setters stay cheap.
#include "platform/date_formatter.h"

#include <unicode/datefmt.h>
#include <unicode/dtptngen.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/calendar.h"
#include "platform/clock.h"
#include "platform/icu_support.h"
#include "platform/user_locale.h"

namespace lumeo {
namespace {

icu::DateFormat::EStyle icuStyle(DateFormatter::Style style, bool relative) {
  icu::DateFormat::EStyle s = icu::DateFormat::kNone;
  switch (style) {
    case DateFormatter::Style::kNone:
      return icu::DateFormat::kNone;
    case DateFormatter::Style::kShort:
      s = icu::DateFormat::kShort;
      break;
    case DateFormatter::Style::kMedium:
      s = icu::DateFormat::kMedium;
      break;
    case DateFormatter::Style::kLong:
      s = icu::DateFormat::kLong;
      break;
    case DateFormatter::Style::kFull:
      s = icu::DateFormat::kFull;
      break;
  }
  return relative ? static_cast<icu::DateFormat::EStyle>(s | icu::DateFormat::kRelative) : s;
}

// Building an ICU formatter loads locale data and costs far more than
// formatting a date: `lumeo list` made a new DateFormatter for every row
// and spent a third of its time building them. So every thread keeps the
// formatters it built, by everything that shapes one. ICU formatters are
// not thread-safe, hence one cache per thread. A DateFormatter remembers
// the stamp of the cache its pointer came from; the stamp is unique across
// threads and changes when the cache is emptied, so a pointer from another
// thread or from before a clear is never used.
struct FormatterCache {
  std::uint64_t stamp;
  std::unordered_map<std::string, std::unique_ptr<icu::DateFormat>> formatters;
};

std::uint64_t nextStamp() {
  static std::atomic<std::uint64_t> counter{1};
  return counter++;
}

FormatterCache& threadCache() {
  thread_local FormatterCache cache{nextStamp(), {}};
  return cache;
}

// A program uses a handful of patterns; more than this means settings that
// keep changing, and the old formatters are dropped.
constexpr std::size_t kMaxCachedFormatters = 64;

// Days since 1970-01-01 to a proleptic Gregorian date (Howard Hinnant's
// civil-from-days).
void civilFromDays(std::int64_t days, std::int64_t& year, int& month, int& day) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shifted = (5 * dayOfYear + 2) / 153;
  day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
  month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
  year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

void appendPadded(std::string& out, std::int64_t value, int width) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value > 0);
  for (int i = n; i < width; ++i) out += '0';
  while (n > 0) out += digits[--n];
}

// The machine-readable patterns that the command line and the files use
// ("yyyy-MM-dd HH:mm") in the POSIX locale, written without ICU: a listing
// prints one per row, and ICU's general formatter costs about twenty times
// as much per date. Only the fields yyyy, MM, dd, HH, mm and ss, literal
// punctuation and quoted text; years 1583 to 9999, where the Gregorian
// calendar holds and four digits suffice. Anything else returns nullopt and
// goes to ICU, which gives the same text for these.
std::optional<std::string> formatNumericPattern(const std::string& pattern, Date date, const TimeZone& zone) {
  const double millis = date.timeIntervalSince1970() * 1000.0;
  // 1583-01-01 and 10000-01-01, with a day's margin for the zone offset.
  if (!(millis >= -12212553600000.0 + 86400000.0 && millis < 253402300800000.0 - 86400000.0)) {
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t raw = 0, dst = 0;
  zone.icuZone().getOffset(millis, false, raw, dst, status);
  if (U_FAILURE(status)) return std::nullopt;
  const double local = std::floor(millis + raw + dst);
  const auto days = static_cast<std::int64_t>(std::floor(local / 86400000.0));
  const auto secondOfDay = static_cast<std::int64_t>(local - static_cast<double>(days) * 86400000.0) / 1000;
  std::int64_t year = 0;
  int month = 0, day = 0;
  civilFromDays(days, year, month, day);

  std::string out;
  out.reserve(pattern.size() + 4);
  for (std::size_t i = 0; i < pattern.size();) {
    const char c = pattern[i];
    if (c == '\'') {
      // Quoted text; '' is a quote mark, inside quotes or out.
      if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {
        out += '\'';
        i += 2;
        continue;
      }
      for (++i;; ++i) {
        if (i >= pattern.size()) return std::nullopt;
        if (pattern[i] != '\'') {
          out += pattern[i];
        } else if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {
          out += '\'';
          ++i;
        } else {
          ++i;
          break;
        }
      }
      continue;
    }
    if (!std::isalpha(static_cast<unsigned char>(c))) {
      if (static_cast<unsigned char>(c) >= 0x80) return std::nullopt;
      out += c;
      ++i;
      continue;
    }
    std::size_t run = 1;
    while (i + run < pattern.size() && pattern[i + run] == c) ++run;
    i += run;
    if (c == 'y' && run == 4) {
      appendPadded(out, year, 4);
    } else if (run != 2) {
      return std::nullopt;
    } else if (c == 'M') {
      appendPadded(out, month, 2);
    } else if (c == 'd') {
      appendPadded(out, day, 2);
    } else if (c == 'H') {
      appendPadded(out, secondOfDay / 3600, 2);
    } else if (c == 'm') {
      appendPadded(out, secondOfDay / 60 % 60, 2);
    } else if (c == 's') {
      appendPadded(out, secondOfDay % 60, 2);
    } else {
      return std::nullopt;
    }
  }
  return out;
}

}  // namespace

DateFormatter::DateFormatter() : locale_(userLocaleIdentifier()), zone_(TimeZone::current()) {}

DateFormatter::DateFormatter(std::string pattern) : DateFormatter() {
  pattern_ = std::move(pattern);
}

DateFormatter::DateFormatter(const DateFormatter& other)
    : pattern_(other.pattern_),
      dateStyle_(other.dateStyle_),
      timeStyle_(other.timeStyle_),
      relative_(other.relative_),
      locale_(other.locale_),
      zone_(other.zone_) {}

DateFormatter& DateFormatter::operator=(const DateFormatter& other) {
  if (this != &other) {
    pattern_ = other.pattern_;
    dateStyle_ = other.dateStyle_;
    timeStyle_ = other.timeStyle_;
    relative_ = other.relative_;
    locale_ = other.locale_;
    zone_ = other.zone_;
    formatter_ = nullptr;
  }
  return *this;
}

DateFormatter::~DateFormatter() = default;

void DateFormatter::setDateFormat(std::string pattern) {
  pattern_ = std::move(pattern);
  dateStyle_ = timeStyle_ = Style::kNone;
  formatter_ = nullptr;
}

void DateFormatter::setDateStyle(Style style) {
  dateStyle_ = style;
  pattern_.clear();
  formatter_ = nullptr;
}

void DateFormatter::setTimeStyle(Style style) {
  timeStyle_ = style;
  pattern_.clear();
  formatter_ = nullptr;
}

void DateFormatter::setDoesRelativeDateFormatting(bool relative) {
  relative_ = relative;
  formatter_ = nullptr;
}

void DateFormatter::setLocale(const std::string& identifier) {
  locale_ = icuLocaleFromPosix(identifier);
  formatter_ = nullptr;
}

void DateFormatter::setTimeZone(const TimeZone& zone) {
  zone_ = zone;
  formatter_ = nullptr;
}

// ICU picks "Today" and "Yesterday" by the system's clock. Under a
// simulated clock the date near the simulated today is moved by the whole
// days between the two todays, so the names follow the clock that the rest
// of Lumeo uses; a date farther away is shown as it is.
Date DateFormatter::dateForRelativeNames(Date date) const {
  auto clock = Clock::current();
  if (!clock || !clock->isSimulated()) return date;
  Calendar calendar("en_US_POSIX", zone_);
  const Date simulatedToday = calendar.startOfDay(clock->now());
  const double realSeconds =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const Date realToday = calendar.startOfDay(Date::fromTimeIntervalSince1970(realSeconds));
  const auto away =
      calendar.componentsFromDate(CalendarUnit::kDay, simulatedToday, calendar.startOfDay(date)).day;
  if (!away || *away < -2 || *away > 2) return date;
  const auto shift = calendar.componentsFromDate(CalendarUnit::kDay, simulatedToday, realToday).day;
  if (!shift || *shift == 0) return date;
  return calendar.dateByAddingUnit(CalendarUnit::kDay, *shift, date).value_or(date);
}

icu::DateFormat* DateFormatter::formatter() const {
  FormatterCache& cache = threadCache();
  if (formatter_ && stamp_ == cache.stamp) return formatter_;
  formatter_ = nullptr;
  if (pattern_.empty() && dateStyle_ == Style::kNone && timeStyle_ == Style::kNone) return nullptr;

  std::string key = pattern_.empty()
                        ? "s" + std::to_string(static_cast<int>(dateStyle_)) +
                              std::to_string(static_cast<int>(timeStyle_)) + (relative_ ? "r" : "a")
                        : "p" + pattern_;
  key += '\x1f';
  key += locale_;
  key += '\x1f';
  key += zone_.identifier();
  if (auto it = cache.formatters.find(key); it != cache.formatters.end()) {
    formatter_ = it->second.get();
    stamp_ = cache.stamp;
    return formatter_;
  }

  const icu::Locale locale = icuDateLocale(locale_);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateFormat> made;
  if (!pattern_.empty()) {
    made = std::make_unique<icu::SimpleDateFormat>(toUnicode(pattern_), locale, status);
  } else {
    made.reset(icu::DateFormat::createDateTimeInstance(icuStyle(dateStyle_, relative_),
                                                       icuStyle(timeStyle_, false), locale));
  }
  if (!made || U_FAILURE(status)) return nullptr;
  made->setTimeZone(zone_.icuZone());
  // Strict: no guessing at what a partly matching text meant.
  made->setLenient(false);
  made->setBooleanAttribute(UDAT_PARSE_ALLOW_WHITESPACE, false, status);
  made->setBooleanAttribute(UDAT_PARSE_ALLOW_NUMERIC, false, status);
  made->setBooleanAttribute(UDAT_PARSE_PARTIAL_LITERAL_MATCH, false, status);
  made->setBooleanAttribute(UDAT_PARSE_MULTIPLE_PATTERNS_FOR_MATCH, false, status);
  if (cache.formatters.size() >= kMaxCachedFormatters) {
    cache.formatters.clear();
    cache.stamp = nextStamp();
  }
  formatter_ = made.get();
  stamp_ = cache.stamp;
  cache.formatters.emplace(std::move(key), std::move(made));
  return formatter_;
}

std::string DateFormatter::stringFromDate(Date date) const {
  if (!pattern_.empty() && locale_ == "en_US_POSIX") {
    if (auto text = formatNumericPattern(pattern_, date, zone_)) return *std::move(text);
  }
  icu::DateFormat* f = formatter();
  if (f == nullptr) return {};
  if (relative_ && pattern_.empty() && dateStyle_ != Style::kNone) {
    Date shifted = dateForRelativeNames(date);
    if (shifted != date) {
      // Only a relative name may come from the moved date; where the
      // locale has none for it, the true date is written.
      icu::UnicodeString named, plain;
      f->format(shifted.timeIntervalSince1970() * 1000.0, named);
      std::unique_ptr<icu::DateFormat> absolute(icu::DateFormat::createDateTimeInstance(
          icuStyle(dateStyle_, false), icuStyle(timeStyle_, false), icuDateLocale(locale_)));
      if (absolute) {
        absolute->setTimeZone(zone_.icuZone());
        absolute->format(shifted.timeIntervalSince1970() * 1000.0, plain);
        if (named != plain) return fromUnicode(named);
      }
    }
  }
  icu::UnicodeString out;
  f->format(date.timeIntervalSince1970() * 1000.0, out);
  return fromUnicode(out);
}

std::optional<Date> DateFormatter::dateFromString(const std::string& text) const {
  icu::DateFormat* f = formatter();
  if (f == nullptr || text.empty()) return std::nullopt;
  const icu::UnicodeString input = toUnicode(text);
  // ICU skips leading white space even in strict mode; a text that starts
  // with a space the pattern doesn't have is not the whole text matching.
  if (u_isUWhiteSpace(input.char32At(0))) {
    auto* simple = dynamic_cast<icu::SimpleDateFormat*>(f);
    icu::UnicodeString pattern;
    if (simple != nullptr) simple->toPattern(pattern);
    if (pattern.isEmpty() || !u_isUWhiteSpace(pattern.char32At(0))) return std::nullopt;
  }
  icu::ParsePosition position(0);
  const UDate millis = f->parse(input, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) return std::nullopt;
  return Date::fromTimeIntervalSince1970(millis / 1000.0);
}

std::string DateFormatter::localizedStringFromDate(Date date, Style dateStyle, Style timeStyle) {
  DateFormatter formatter;
  formatter.setDateStyle(dateStyle);
  formatter.setTimeStyle(timeStyle);
  return formatter.stringFromDate(date);
}

std::string DateFormatter::patternForStyles(Style dateStyle, Style timeStyle,
                                            const std::string& localeIdentifier) {
  if (dateStyle == Style::kNone && timeStyle == Style::kNone) return {};
  const icu::Locale locale = icuDateLocale(icuLocaleFromPosix(localeIdentifier));
  std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icuStyle(dateStyle, false), icuStyle(timeStyle, false), locale));
  auto* simple = dynamic_cast<icu::SimpleDateFormat*>(format.get());
  if (simple == nullptr) return {};
  icu::UnicodeString pattern;
  simple->toPattern(pattern);
  return fromUnicode(pattern);
}

std::string DateFormatter::dateFormatFromTemplate(const std::string& skeleton,
                                                  const std::string& localeIdentifier) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale = icuDateLocale(icuLocaleFromPosix(localeIdentifier));
  std::unique_ptr<icu::DateTimePatternGenerator> generator(
      icu::DateTimePatternGenerator::createInstance(locale, status));
  if (U_FAILURE(status)) return {};
  const icu::UnicodeString pattern = generator->getBestPattern(toUnicode(skeleton), status);
  if (U_FAILURE(status)) return {};
  return fromUnicode(pattern);
}

}  // namespace lumeo
