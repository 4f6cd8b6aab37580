// Text lookup through the compiled catalogues: English for the upper-case
// keys, the key itself when nothing translates it, the user's language when
// a catalogue exists for it and English where that catalogue is silent.
#include "platform/localization.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class LocalizationTest : public ::testing::Test {
 protected:
  static constexpr const char* kVariables[] = {"LANG", "LC_ALL", "LC_MESSAGES", "LANGUAGE",
                                               "LUMEO_LOCALE_DIR"};

  void SetUp() override {
    for (const char* name : kVariables) {
      if (const char* v = std::getenv(name)) saved_[name] = v;
      unsetenv(name);
    }
    setenv("LANG", "en_US.UTF-8", 1);
    Localization::reload();
  }

  void TearDown() override {
    for (const char* name : kVariables) {
      auto it = saved_.find(name);
      if (it != saved_.end()) {
        setenv(name, it->second.c_str(), 1);
      } else {
        unsetenv(name);
      }
    }
    Localization::reload();
  }

  // Compiles a catalogue of `lang` with msgfmt into a locale folder of the test.
  void writeCatalogue(const std::string& lang, const std::string& entries) {
    std::filesystem::path dir = temp_.path() / "locale" / lang / "LC_MESSAGES";
    std::filesystem::create_directories(dir);
    std::filesystem::path po = temp_.path() / (lang + ".po");
    testing::writeFile(
        po, "msgid \"\"\nmsgstr \"\"\n\"Content-Type: text/plain; charset=UTF-8\\n\"\n\n" + entries);
    std::string command =
        "msgfmt --check-format --check-domain -o '" + (dir / "Lumeo.mo").string() + "' '" + po.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }

  testing::TempDir temp_;
  std::map<std::string, std::string> saved_;
};

TEST_F(LocalizationTest, EnglishCatalogueSpellsOutTheUpperCaseKeys) {
  ASSERT_TRUE(Localization::catalogueDirectory().has_value()) << "the build should have compiled en.po";
  for (const char* key :
       {"CAPTURE_ACTION_BUTTON_TITLE", "RECENT_BACKUP_MISSED_ALERT", "UNLOCK_APPLICATION", "Alert backup"}) {
    std::string text = localized(key);
    EXPECT_NE(text, key);
    EXPECT_FALSE(text.empty()) << key;
  }
  EXPECT_EQ(localized("CAPTURE_ACTION_BUTTON_TITLE"), "Record my mood");
}

TEST_F(LocalizationTest, KeysWithoutTranslationComeBackUnchanged) {
  EXPECT_EQ(localized("How are you feeling right now?"), "How are you feeling right now?");
  EXPECT_EQ(localized("Backup can't be found"), "Backup can't be found");
  EXPECT_EQ(localized(""), "");  // not the catalogue's header
  EXPECT_EQ(localized("Remind me at %@ — 100%"), "Remind me at %@ — 100%");
}

TEST_F(LocalizationTest, LanguageComesFromTheLocaleVariablesWithEnglishLast) {
  setenv("LANG", "de_DE.UTF-8", 1);
  Localization::reload();
  EXPECT_EQ(Localization::languages(), (std::vector<std::string>{"de_DE", "de", "en"}));

  setenv("LC_MESSAGES", "pt_BR.UTF-8@latin", 1);
  Localization::reload();
  EXPECT_EQ(Localization::languages(), (std::vector<std::string>{"pt_BR", "pt", "en"}));

  setenv("LC_ALL", "C", 1);
  Localization::reload();
  EXPECT_EQ(Localization::languages(), std::vector<std::string>{"en"});

  unsetenv("LC_ALL");
  setenv("LANGUAGE", "fr:de", 1);
  Localization::reload();
  EXPECT_EQ(Localization::languages(), (std::vector<std::string>{"fr", "de", "pt_BR", "pt", "en"}));
  // A reload starts from the user's LANGUAGE, not from the list it set.
  setenv("LC_MESSAGES", "it_IT.UTF-8", 1);
  Localization::reload();
  EXPECT_EQ(Localization::languages(), (std::vector<std::string>{"fr", "de", "it_IT", "it", "en"}));
}

TEST_F(LocalizationTest, UserLanguageWinsAndEnglishFillsItsGaps) {
  writeCatalogue("en",
                 "msgid \"CAPTURE_ACTION_BUTTON_TITLE\"\nmsgstr \"Record\"\n\n"
                 "msgid \"UNLOCK_APPLICATION\"\nmsgstr \"Unlock\"\n");
  writeCatalogue("de",
                 "msgid \"CAPTURE_ACTION_BUTTON_TITLE\"\nmsgstr \"Stimmung erfassen\"\n\n"
                 "msgid \"How are you feeling right now?\"\nmsgstr \"Wie fühlst du dich gerade?\"\n");
  setenv("LUMEO_LOCALE_DIR", (temp_.path() / "locale").c_str(), 1);
  setenv("LANG", "de_AT.UTF-8", 1);
  Localization::reload();
  EXPECT_EQ(Localization::catalogueDirectory(), temp_.path() / "locale");
  EXPECT_EQ(localized("CAPTURE_ACTION_BUTTON_TITLE"), "Stimmung erfassen");
  EXPECT_EQ(localized("How are you feeling right now?"), "Wie fühlst du dich gerade?");
  EXPECT_EQ(localized("UNLOCK_APPLICATION"), "Unlock");
  EXPECT_EQ(localized("Cancel"), "Cancel");

  // A language without a catalogue reads English.
  setenv("LANG", "fr_FR.UTF-8", 1);
  Localization::reload();
  EXPECT_EQ(localized("CAPTURE_ACTION_BUTTON_TITLE"), "Record");
  EXPECT_EQ(localized("How are you feeling right now?"), "How are you feeling right now?");
}

TEST_F(LocalizationTest, AFolderWithoutCataloguesIsPassedOver) {
  std::filesystem::create_directories(temp_.path() / "empty" / "de" / "LC_MESSAGES");
  setenv("LUMEO_LOCALE_DIR", (temp_.path() / "empty").c_str(), 1);
  Localization::reload();
  ASSERT_TRUE(Localization::catalogueDirectory().has_value());
  EXPECT_NE(*Localization::catalogueDirectory(), temp_.path() / "empty");
  EXPECT_EQ(localized("CAPTURE_ACTION_BUTTON_TITLE"), "Record my mood");
}

}  // namespace
}  // namespace lumeo
