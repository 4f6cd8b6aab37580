// Conversions between our UTF-8 strings and ICU's UTF-16 strings, for the
// platform code built on ICU. Invalid UTF-8 becomes U+FFFD rather than
// failing, so a bad byte in user text never loses the rest of it.
#pragma once

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <string>
#include <string_view>

namespace lumeo {

icu::UnicodeString toUnicode(std::string_view utf8);
std::string fromUnicode(const icu::UnicodeString& text);

// The ICU locale for dates: the named one, in the Gregorian calendar unless
// the name asks for another ("th_TH@calendar=buddhist"). Linux has no
// setting for the calendar system apart from the locale, and its C library
// writes Gregorian dates in every locale, so Lumeo does too.
icu::Locale icuDateLocale(const std::string& identifier);

}  // namespace lumeo
