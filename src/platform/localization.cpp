// Finds the compiled catalogues, picks the user's languages and looks keys up
// through gettext.
#include "platform/localization.h"

#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace lumeo {

namespace {

#ifndef LUMEO_BUILD_LOCALE_DIR
#define LUMEO_BUILD_LOCALE_DIR ""
#endif
#ifndef LUMEO_INSTALL_LOCALE_DIR
#define LUMEO_INSTALL_LOCALE_DIR "/usr/local/share/locale"
#endif

struct State {
  std::mutex mutex;
  bool loaded = false;
  std::optional<std::filesystem::path> directory;
  std::vector<std::string> languages;
  // LANGUAGE as the user set it, and the value this file put in its place,
  // so that a reload starts from the user's list and not from ours.
  std::string userLanguage;
  std::optional<std::string> ourLanguage;
};

State& state() {
  static State s;
  return s;
}

std::string env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

// A folder counts only if it holds at least one catalogue of our table.
bool holdsCatalogues(const std::filesystem::path& dir) {
  std::error_code ec;
  if (dir.empty() || !std::filesystem::is_directory(dir, ec)) return false;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
    if (std::filesystem::exists(
            entry.path() / "LC_MESSAGES" / (std::string(Localization::kTableName) + ".mo"), ec)) {
      return true;
    }
  }
  return false;
}

std::optional<std::filesystem::path> findDirectory() {
  for (const std::string& candidate : {env("LUMEO_LOCALE_DIR"), std::string(LUMEO_BUILD_LOCALE_DIR),
                                       std::string(LUMEO_INSTALL_LOCALE_DIR)}) {
    if (holdsCatalogues(candidate)) return std::filesystem::path(candidate);
  }
  return std::nullopt;
}

void addLanguage(std::vector<std::string>& list, const std::string& language) {
  if (language.empty() || language == "C" || language == "POSIX") return;
  for (const auto& l : list) {
    if (l == language) return;
  }
  list.push_back(language);
}

// "de_DE.UTF-8@euro" adds de_DE, then de.
void addLocale(std::vector<std::string>& list, std::string locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  addLanguage(list, locale);
  addLanguage(list, locale.substr(0, locale.find('_')));
}

std::vector<std::string> chooseLanguages(const std::string& userList) {
  std::vector<std::string> list;
  for (std::size_t start = 0; start < userList.size();) {
    std::size_t end = userList.find(':', start);
    if (end == std::string::npos) end = userList.size();
    addLocale(list, userList.substr(start, end - start));
    start = end + 1;
  }
  std::string locale = env("LC_ALL");
  if (locale.empty()) locale = env("LC_MESSAGES");
  if (locale.empty()) locale = env("LANG");
  addLocale(list, locale);
  addLanguage(list, "en");
  return list;
}

// gettext ignores LANGUAGE while the message locale is "C"; C.UTF-8 is
// always there and lets LANGUAGE decide.
void ensureMessageLocale() {
  const char* current = std::setlocale(LC_MESSAGES, nullptr);
  auto isPlainC = [](const char* name) {
    return !name || !std::strcmp(name, "C") || !std::strcmp(name, "POSIX");
  };
  if (!isPlainC(current)) return;
  if (isPlainC(std::setlocale(LC_MESSAGES, ""))) std::setlocale(LC_MESSAGES, "C.UTF-8");
}

// Caller holds the mutex.
void load(State& s) {
  std::string language = env("LANGUAGE");
  if (s.ourLanguage && language == *s.ourLanguage) {
    language = s.userLanguage;
  } else {
    s.userLanguage = language;
  }
  s.directory = findDirectory();
  s.languages = chooseLanguages(language);
  s.loaded = true;
  if (!s.directory) return;
  ensureMessageLocale();
  std::string joined;
  for (const auto& l : s.languages) joined += (joined.empty() ? "" : ":") + l;
  setenv("LANGUAGE", joined.c_str(), 1);
  s.ourLanguage = joined;
  bindtextdomain(Localization::kTableName, s.directory->c_str());
  bind_textdomain_codeset(Localization::kTableName, "UTF-8");
  // Setting the text domain also tells gettext to forget the translations it
  // cached for the previous language list.
  textdomain(Localization::kTableName);
}

State& loadedState() {
  State& s = state();
  std::lock_guard lock(s.mutex);
  if (!s.loaded) load(s);
  return s;
}

}  // namespace

std::string Localization::localizedString(std::string_view key) {
  State& s = loadedState();
  std::string k(key);
  // Under the lock so that a lookup never meets a reload halfway through
  // changing LANGUAGE; gettext answers from its cache, so this stays cheap.
  std::lock_guard lock(s.mutex);
  if (!s.directory || k.empty()) return k;
  return dgettext(kTableName, k.c_str());
}

void Localization::reload() {
  State& s = state();
  std::lock_guard lock(s.mutex);
  load(s);
}

std::optional<std::filesystem::path> Localization::catalogueDirectory() {
  State& s = loadedState();
  std::lock_guard lock(s.mutex);
  return s.directory;
}

std::vector<std::string> Localization::languages() {
  State& s = loadedState();
  std::lock_guard lock(s.mutex);
  return s.languages;
}

}  // namespace lumeo
