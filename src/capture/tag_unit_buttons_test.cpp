// The tag panel's unit row: the table by language and locale, and the way
// the first preferred language and the locale are read from the environment
// (LANGUAGE first, then LC_ALL, LC_MESSAGES, LANG).
#include "capture/tag_unit_buttons.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/localization.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

const std::vector<std::string> kDefault = {"in",  "ft", "yd", "ml", "mm", "cm", "m",  "km",
                                           "gal", "ml", "l",  "lb", "mg", "g",  "kg", "h"};
const std::vector<std::string> kCanadian = {"po",  "pi", "yd", "ml", "mm", "cm", "m",  "km",
                                            "gal", "ml", "l",  "lb", "mg", "g",  "kg", "h"};
const std::vector<std::string> kRussian = {"с",  "мн", "ч",  "мл", "л", "см", "м",
                                           "км", "г",  "мг", "кг", "т", "ед"};

TEST(TagUnitButtonsTest, RowByLanguageAndLocale) {
  struct Case {
    const char* language;
    const char* locale;
    const std::vector<std::string>* expected;
  };
  const Case cases[] = {
      {"en", "en_US", &kDefault},       {"fr", "fr_CA", &kCanadian},
      {"fr_CA", "fr_CA", &kCanadian},   {"fr-CA", "fr_CA.UTF-8", &kCanadian},
      {"fr", "fr_CA@euro", &kCanadian}, {"fr", "fr_FR", &kDefault},  // French elsewhere: the default row
      {"fr", "fr_CAT", &kDefault},                                   // not Canada
      {"fr_CA", "en_CA", &kDefault},  // the locale decides, not the language's region
      {"en", "fr_CA", &kDefault},     // a Canadian locale alone is not French
      {"ru", "en_US", &kRussian},       {"ru_RU", "ru_RU", &kRussian},
      {"de", "de_DE", &kDefault},       {"", "", &kDefault},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(tagUnitsForLanguage(c.language, c.locale), *c.expected) << c.language << " / " << c.locale;
  }
  // The doubled "ml" stays in both Latin rows.
  EXPECT_EQ(std::count(kDefault.begin(), kDefault.end(), "ml"), 2);
}

TEST(TagUnitButtonsTest, FirstPreferredLanguageAndLocaleComeFromTheEnvironment) {
  struct Case {
    std::optional<std::string> language, all, messages, lang;
    const std::vector<std::string>* expected;
    const char* why;
  };
  const std::optional<std::string> none;
  const Case cases[] = {
      {none, none, none, "fr_CA.UTF-8", &kCanadian, "LANG alone"},
      {none, none, none, "fr_FR.UTF-8", &kDefault, "French in France"},
      {"ru:en", none, none, "en_US.UTF-8", &kRussian, "LANGUAGE comes first"},
      {"fr", none, none, "fr_CA.UTF-8", &kCanadian, "French preferred, Canadian locale"},
      {"de:ru", none, none, "ru_RU.UTF-8", &kDefault, "only the first language counts"},
      {none, "ru_RU.UTF-8", "fr_CA.UTF-8", "en_US.UTF-8", &kRussian, "LC_ALL over LC_MESSAGES and LANG"},
      {none, none, "fr_CA.UTF-8", "en_US.UTF-8", &kCanadian, "LC_MESSAGES over LANG"},
      {"fr", none, "fr_CA.UTF-8", "fr_FR.UTF-8", &kCanadian, "the locale from LC_MESSAGES"},
      {"", "", "", "", &kDefault, "nothing set"},
      {none, "C", none, "ru_RU.UTF-8", &kDefault, "the C locale is English"},
  };
  for (const Case& c : cases) {
    testing::ScopedEnvironment env{
        {"LANGUAGE", c.language}, {"LC_ALL", c.all}, {"LC_MESSAGES", c.messages}, {"LANG", c.lang}};
    Localization::reload();
    EXPECT_EQ(tagUnitButtons(), *c.expected)
        << c.why << ": preferred " << preferredLanguage() << ", locale " << tagUnitLocaleIdentifier();
  }
  Localization::reload();
}

}  // namespace
}  // namespace lumeo
