// UTF-8 to UTF-16 and back through ICU's own converters.
#include "platform/icu_support.h"

namespace lumeo {

icu::UnicodeString toUnicode(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
}

std::string fromUnicode(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

icu::Locale icuDateLocale(const std::string& identifier) {
  icu::Locale locale = icu::Locale::createFromName(identifier.c_str());
  UErrorCode status = U_ZERO_ERROR;
  char calendar[64] = {0};
  const int32_t length = locale.getKeywordValue("calendar", calendar, sizeof calendar, status);
  if (U_FAILURE(status) || length == 0) {
    status = U_ZERO_ERROR;
    locale.setKeywordValue("calendar", "gregorian", status);
  }
  return locale;
}

}  // namespace lumeo
