// Conversions between our UTF-8 strings and ICU's UTF-16 strings, for the
// platform code built on ICU. Invalid UTF-8 becomes U+FFFD rather than
// failing, so a bad byte in user text never loses the rest of it.
#pragma once

#include <unicode/unistr.h>

#include <string>
#include <string_view>

namespace lumeo {

icu::UnicodeString toUnicode(std::string_view utf8);
std::string fromUnicode(const icu::UnicodeString& text);

}  // namespace lumeo
