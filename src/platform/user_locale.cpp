// POSIX locale names to ICU locale names, and the user's current one.
#include "platform/user_locale.h"

#include <cstdlib>

namespace lumeo {

std::string icuLocaleFromPosix(std::string_view name) {
  if (name.empty() || name == "C" || name == "POSIX" || name.rfind("C.", 0) == 0) return "en_US_POSIX";
  std::string base(name);
  std::string modifier;
  if (size_t at = base.find('@'); at != std::string::npos) {
    modifier = base.substr(at + 1);
    base.erase(at);
  }
  if (size_t dot = base.find('.'); dot != std::string::npos) base.erase(dot);
  // The script modifiers that glibc uses; currency ones such as "euro" carry
  // nothing for dates and are dropped.
  if (modifier == "latin" || modifier == "cyrillic" || modifier == "devanagari") {
    const std::string script = modifier == "latin" ? "Latn" : modifier == "cyrillic" ? "Cyrl" : "Deva";
    size_t underscore = base.find('_');
    if (underscore == std::string::npos) return base + "_" + script;
    return base.substr(0, underscore) + "_" + script + base.substr(underscore);
  }
  // ICU keywords ("@calendar=japanese") are kept: they are how a user asks
  // for another calendar.
  if (modifier.find('=') != std::string::npos) return base + "@" + modifier;
  return base;
}

std::string userLocaleIdentifier() {
  for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return icuLocaleFromPosix(value);
  }
  return "en_US_POSIX";
}

}  // namespace lumeo
