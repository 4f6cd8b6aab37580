// Turns dates into text and back, by a pattern ("yyyy-MM-dd'T'HH:mm",
// "MMMM") or by the locale's styles, in a locale and a time zone. Parsing is
// strict: the whole text must match, or the result is nullopt.
#pragma once

#include <unicode/uversion.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/time_zone.h"

U_NAMESPACE_BEGIN
class DateFormat;
U_NAMESPACE_END

namespace lumeo {

// Not thread-safe: use one formatter per thread (they are cheap to copy and
// to make). The ICU formatters behind them are built once per thread for
// each pattern or style, locale and zone and shared by every DateFormatter
// of that thread with the same settings; changing a setting switches to the
// ICU formatter of the new settings on the next use.
class DateFormatter {
 public:
  enum class Style { kNone, kShort, kMedium, kLong, kFull };

  // In the user's locale and zone as they are when the formatter is made.
  // With neither a pattern nor a style, it formats to "" and parses nothing.
  DateFormatter();
  explicit DateFormatter(std::string pattern);
  DateFormatter(const DateFormatter& other);
  DateFormatter& operator=(const DateFormatter& other);
  ~DateFormatter();

  // Unicode date pattern (ICU syntax). Setting it clears the styles.
  void setDateFormat(std::string pattern);
  const std::string& dateFormat() const { return pattern_; }
  // Styles are used when no pattern is set; setting one clears the pattern.
  void setDateStyle(Style style);
  void setTimeStyle(Style style);
  // "Today", "Yesterday" and the like in place of near dates (with a style).
  void setDoesRelativeDateFormatting(bool relative);
  // An ICU or POSIX locale name ("en_US", "de_DE.UTF-8").
  void setLocale(const std::string& identifier);
  const std::string& localeIdentifier() const { return locale_; }
  void setTimeZone(const TimeZone& zone);
  const TimeZone& timeZone() const { return zone_; }

  std::string stringFromDate(Date date) const;
  // The instant the text names, or nullopt unless the whole text matches the
  // pattern or style with valid values (no 30 February, no trailing text).
  // Fields missing from the pattern take their values from 1 January 1970,
  // 00:00:00 in the formatter's zone.
  std::optional<Date> dateFromString(const std::string& text) const;

  // A formatted date in the user's locale and zone, by styles.
  static std::string localizedStringFromDate(Date date, Style dateStyle, Style timeStyle);
  // The pattern that the locale's styles stand for ("M/d/yy, h:mm a" for
  // short date and short time in en_US); "" when both are kNone.
  static std::string patternForStyles(Style dateStyle, Style timeStyle, const std::string& localeIdentifier);
  // The locale's pattern for a skeleton of fields: "yMMMd" gives "MMM d, y"
  // in en_US and "d. MMM y" in de_DE.
  static std::string dateFormatFromTemplate(const std::string& skeleton, const std::string& localeIdentifier);

 private:
  icu::DateFormat* formatter() const;
  Date dateForRelativeNames(Date date) const;

  std::string pattern_;
  Style dateStyle_ = Style::kNone;
  Style timeStyle_ = Style::kNone;
  bool relative_ = false;
  std::string locale_;
  TimeZone zone_;
  // This thread's shared ICU formatter for the settings, while `stamp_`
  // matches the thread's cache (see formatter()).
  mutable icu::DateFormat* formatter_ = nullptr;
  mutable std::uint64_t stamp_ = 0;
};

}  // namespace lumeo
