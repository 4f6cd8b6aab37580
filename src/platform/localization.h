// User-visible text through the table "Lumeo" (gettext text domain "Lumeo").
// Most keys are the English text itself; a few are upper-case keys such as
// "CAPTURE_ACTION_BUTTON_TITLE", which the English catalogue spells out. A key
// without a translation comes back as it is.
//
// Where the catalogues are: LUMEO_LOCALE_DIR if set, else the build tree's
// locale folder (so a build runs without installing), else the installed
// locale folder; with none of these every key comes back unchanged.
// Which language: LC_ALL, then LC_MESSAGES, then LANG ("de_DE.UTF-8" tries
// de_DE, then de), after any languages the user listed in LANGUAGE, and
// English last, so that upper-case keys always read as English at worst.
//
// Side effects on first use (and on reload): when the program's message
// locale is "C", LC_MESSAGES is set from the environment, or to C.UTF-8 when
// the user's locale is not installed; LANGUAGE is set to the chosen list; the
// default text domain becomes "Lumeo". The front ends call reload() early in
// main(), before starting threads. Lookups are thread-safe.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/string_format.h"

namespace lumeo {

class Localization {
 public:
  static constexpr const char* kTableName = "Lumeo";

  // The translation of `key` in the table, or the key.
  static std::string localizedString(std::string_view key);
  // Reads the catalogue folder and the language from the environment again.
  static void reload();
  // The folder holding <lang>/LC_MESSAGES/Lumeo.mo, if one was found.
  static std::optional<std::filesystem::path> catalogueDirectory();
  // Languages tried in order, English last ("de_DE", "de", "en").
  static std::vector<std::string> languages();
};

// localized("How are you feeling right now?")
inline std::string localized(std::string_view key) {
  return Localization::localizedString(key);
}

// localizedStringWithFormat("Are you sure you want to recover the data from %@?", name):
// the translated format filled with the arguments. Throws FormatError when a
// catalogue's format does not fit the arguments.
template <typename... Args>
std::string localizedStringWithFormat(std::string_view key, const Args&... args) {
  return stringWithFormat(localized(key), args...);
}

}  // namespace lumeo
