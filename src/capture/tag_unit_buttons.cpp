// Unit rows by language. The preferred language comes from the same list
// the text catalogue uses, so the panel's units follow the language the
// rest of the interface speaks.
#include "capture/tag_unit_buttons.h"

#include <cstdlib>

#include "platform/localization.h"
#include "platform/user_locale.h"

namespace lumeo {

namespace {

std::string_view languagePart(std::string_view name) {
  return name.substr(0, name.find_first_of("_-.@"));
}

}  // namespace

std::vector<std::string> tagUnitsForLanguage(std::string_view preferred, std::string_view locale) {
  static const std::vector<std::string> kDefault = {"in",  "ft", "yd", "ml", "mm", "cm", "m",  "km",
                                                    "gal", "ml", "l",  "lb", "mg", "g",  "kg", "h"};
  static const std::vector<std::string> kCanadianFrench = {"po",  "pi", "yd", "ml", "mm", "cm", "m",  "km",
                                                           "gal", "ml", "l",  "lb", "mg", "g",  "kg", "h"};
  static const std::vector<std::string> kRussian = {"с",  "мн", "ч",  "мл", "л", "см", "м",
                                                    "км", "г",  "мг", "кг", "т", "ед"};
  std::string_view language = languagePart(preferred);
  if (language == "ru") return kRussian;
  if (language == "fr") {
    // "fr_CA.UTF-8" and "fr_CA@euro" are the Canadian locale too; "fr_CAX"
    // is not.
    bool canadian = locale.substr(0, 5) == "fr_CA" &&
                    (locale.size() == 5 || locale[5] == '.' || locale[5] == '@' || locale[5] == '_');
    return canadian ? kCanadianFrench : kDefault;
  }
  return kDefault;
}

std::string preferredLanguage() {
  auto languages = Localization::languages();
  return languages.empty() ? std::string("en") : languages.front();
}

std::string tagUnitLocaleIdentifier() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return icuLocaleFromPosix(value);
  }
  return "en_US_POSIX";
}

std::vector<std::string> tagUnitButtons() {
  return tagUnitsForLanguage(preferredLanguage(), tagUnitLocaleIdentifier());
}

}  // namespace lumeo
