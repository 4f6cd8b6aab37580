// Texts of the browsing screens, looked up in the "Lumeo" table.
#include "browse/browse_text.h"

#include <unicode/unistr.h>

#include "shell/shell_text.h"

namespace lumeo {

std::string browseText(const std::string& key) {
  return shellText(key);
}

std::string capitalizedFirstLetter(const std::string& text) {
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
  if (u.isEmpty()) return text;
  int32_t end = u.moveIndex32(0, 1);
  icu::UnicodeString first(u, 0, end);
  first.toUpper();
  u.replace(0, end, first);
  std::string out;
  u.toUTF8String(out);
  return out;
}

}  // namespace lumeo
