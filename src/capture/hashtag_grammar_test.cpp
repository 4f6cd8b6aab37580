// The hashtag grammar as a user meets it: what becomes a tag for the store,
// what counts as a number, what the graph table sees, and how rename and
// deletion rewrite a comment.
#include "capture/hashtag_grammar.h"

#include <gtest/gtest.h>

#include <cmath>

#include "capture/mood_third_value.h"
#include "capture/tag_extraction.h"

namespace lumeo {
namespace {

std::optional<std::string> none() {
  return std::nullopt;
}

MoodPreTag plain(std::string name) {
  return MoodPreTag{std::move(name), std::nullopt, std::nullopt};
}
MoodPreTag valued(std::string name, std::string value, std::string unit) {
  return MoodPreTag{std::move(name), std::move(unit), std::move(value)};
}

std::string describe(const std::vector<MoodPreTag>& tags) {
  std::string out;
  for (const auto& t : tags) {
    out += "[" + t.tagName + "|" + t.tagValue.value_or("<none>") + "|" + t.tagUnit.value_or("<none>") + "]";
  }
  return out;
}

struct ExtractionCase {
  const char* text;
  std::vector<MoodPreTag> expected;
};

TEST(FindTagsInText, GrammarTable) {
  const std::vector<ExtractionCase> cases = {
      {"", {}},
      {"no tags at all", {}},
      {"#", {}},
      {"# alone", {}},
      {"#work", {plain("work")}},
      {"at #work today", {plain("work")}},
      {"#sleep:8h", {valued("sleep", "8", "h")}},
      {"#sleep:8.5h", {valued("sleep", "8.5", "h")}},
      {"#sleep:8,5h", {valued("sleep", "8,5", "h")}},
      {"#sleep:8.", {valued("sleep", "8.", "")}},
      {"#speed:12km-h", {valued("speed", "12", "km-h")}},
      {"#weight:70", {valued("weight", "70", "")}},
      // No digit behind ":": the plain tag, and ":.5" stays text.
      {"#x:.5", {plain("x")}},
      // A blank ends the number: empty unit, "h" is text.
      {"#x:5 h", {valued("x", "5", "")}},
      {"#a:b", {plain("a")}},
      {"#a:1,5,7", {valued("a", "1,5", "")}},
      {"#a:1.5.7", {valued("a", "1.5", "")}},
      {"##a", {plain("a")}},
      {"#a,b", {plain("a")}},
      {"#a.b", {plain("a")}},
      {"#1", {plain("1")}},
      {"#сон:8ч", {valued("сон", "8", "ч")}},
      {"#café #naïve", {plain("café"), plain("naïve")}},
      {"#it's #well-being #a_b", {plain("it's"), plain("well-being"), plain("a_b")}},
      {"#sleep:", {plain("sleep")}},
      {"#sleep:h", {plain("sleep")}},
      {"#sleep:8h #sleep:6h", {valued("sleep", "8", "h"), valued("sleep", "6", "h")}},
      {"#Sleep #sleep", {plain("Sleep"), plain("sleep")}},
      {"mail@#x", {plain("x")}},
      {"#x:8|5", {valued("x", "8", "")}},
      {"line\n#one\n#two:3", {plain("one"), valued("two", "3", "")}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(describe(findTagsInText(c.text)), describe(c.expected)) << "text: " << c.text;
  }
}

TEST(DoubleValue, ReadsTheLeadingNumberOnly) {
  const std::vector<std::pair<const char*, double>> cases = {
      {"8", 8},      {"8.5", 8.5}, {"8.", 8},      {".5", 0.5}, {"", 0},    {".", 0},
      {"abc", 0},    {"7h", 7},    {"1.5.7", 1.5}, {" 42", 42}, {"-3", -3}, {"+2.5", 2.5},
      {"1e3", 1000}, {"1e", 1},    {"2E-1", 0.2},  {"0x10", 0}, {"inf", 0}, {"8,5", 8},
  };
  for (const auto& [text, expected] : cases) EXPECT_DOUBLE_EQ(doubleValue(text), expected) << text;
  EXPECT_TRUE(std::isinf(doubleValue(std::string(400, '9'))));
  EXPECT_EQ(doubleValue("0." + std::string(400, '0') + "1"), 0.0);
}

TEST(TagAlphabet, NamesAndPatternFilling) {
  EXPECT_TRUE(isTagName("sleep"));
  EXPECT_TRUE(isTagName("сон"));
  EXPECT_TRUE(isTagName("well-being'_1"));
  EXPECT_FALSE(isTagName(""));
  EXPECT_FALSE(isTagName("a b"));
  EXPECT_FALSE(isTagName("a.b"));
  EXPECT_FALSE(isTagName("a(b"));
  EXPECT_EQ(fillPattern("#%@:x%@", {"a", "b"}), "#a:xb");
  EXPECT_EQ(fillPattern("%@%@", {"a"}), "a%@");
}

TEST(Completion, IncompleteTagEndsAtTheCursor) {
  // A bare "#" is an incomplete tag with an empty name.
  EXPECT_EQ(rangeOfIncompleteTag("#", 1), (TextRange{1, 0}));
  EXPECT_EQ(rangeOfIncompleteTag("I feel #ha", 10), (TextRange{8, 2}));
  EXPECT_EQ(rangeOfIncompleteTag("#сон", 7), (TextRange{1, 6}));
  // The cursor inside a word is not at the end of the match.
  EXPECT_EQ(rangeOfIncompleteTag("#happy", 3), std::nullopt);
  EXPECT_EQ(rangeOfIncompleteTag("#happy ", 7), std::nullopt);
  EXPECT_EQ(rangeOfIncompleteTag("no tag", 6), std::nullopt);
  EXPECT_EQ(rangeOfIncompleteTag("#a", 99), std::nullopt);

  EXPECT_EQ(tagNameForUnitOffer("I slept #sleep:"), "sleep");
  EXPECT_EQ(tagNameForUnitOffer("#sleep:8"), std::nullopt);
  EXPECT_EQ(tagNameForUnitOffer("#sleep: "), std::nullopt);
  EXPECT_EQ(tagNameForUnitOffer(":"), std::nullopt);
}

TEST(TaggedTokens, NameAndValueRanges) {
  const std::string text = "ran #run:5km, slept #sleep: and #mood";
  const auto tokens = taggedTokensInText(text);
  ASSERT_EQ(tokens.size(), 3u);
  EXPECT_EQ(tokens[0].tagName, "run");
  ASSERT_TRUE(tokens[0].valueUnit);
  EXPECT_EQ(text.substr(tokens[0].valueUnit->location, tokens[0].valueUnit->length), "5km");
  // "#sleep:" is one displayed token, but without a digit there is no value.
  EXPECT_EQ(text.substr(tokens[1].token.location, tokens[1].token.length), "#sleep:");
  EXPECT_FALSE(tokens[1].valueUnit);
  EXPECT_EQ(tokens[2].tagName, "mood");
  EXPECT_EQ(text.substr(tokens[2].name.location, tokens[2].name.length), "mood");
  EXPECT_FALSE(tokens[2].valueUnit);
  EXPECT_TRUE(taggedTokensInText("no tokens here #").empty());
}

struct RewriteCase {
  const char* text;
  const char* expected;
};

TEST(RenameTagInText, KeepsWhatFollowsTheName) {
  const std::vector<RewriteCase> cases = {
      {"#sleep", "#rest"},                        // ends the text
      {"good #sleep today", "good #rest today"},  // followed by a blank
      {"#sleep:8h", "#rest:8h"},                  // followed by a colon
      {"#sleep. Then", "#sleep. Then"},           // a full stop is not a boundary
      {"#sleepy #sleep", "#sleepy #rest"},        // a longer name is another tag
      {"#Sleep", "#Sleep"},                       // case-sensitive
      {"#sleep #sleep:6h #sleep", "#rest #rest:6h #rest"},
      {"##sleep", "##rest"},
  };
  for (const auto& c : cases) EXPECT_EQ(renameTagInText(c.text, "sleep", "rest"), c.expected) << c.text;
  EXPECT_EQ(renameTagInText("#сон:8ч", "сон", "sleep"), "#sleep:8ч");
  // Names that cannot be tags never match and never break the pattern.
  EXPECT_EQ(renameTagInText("#a(b #a", "a(b", "x"), "#a(b #a");
  EXPECT_EQ(renameTagInText("#a.b", "a.b", "x"), "#a.b");
}

TEST(RemoveTagFromText, RemovesEveryFormButATagBeforePunctuation) {
  const std::vector<RewriteCase> cases = {
      {"#sleep", ""},  // plain tag ending the text
      {"good #sleep", "good "},
      {"#sleep today", "today"},      // the blank goes with it
      {"#sleep:8h", ""},              // value form at the end
      {"#sleep:8h today", " today"},  // value form anywhere keeps the blank
      {"#sleep: and", " and"},
      {"#sleep. Then", "#sleep. Then"},     // left in the text
      {"#SLEEP today #Sleep:7", "today "},  // case-insensitive
      {"#sleepy stays", "#sleepy stays"},
      {"#sleep #sleep #sleep", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(removeTagFromText(c.text, "sleep"), c.expected) << c.text;
    EXPECT_EQ(removeTagFromText(c.text, "sleep", kTagDeletionPattern), c.expected) << c.text;
  }
  EXPECT_EQ(removeTagFromText("#a*b", "a*b"), "#a*b");
}

TEST(RemoveTagFromText, LongNumbersDoNotFreezeTheRewrite) {
  // With the literal pattern this takes minutes (cubic backtracking).
  const std::string text = "#a:" + std::string(5000, '1') + "! #a:7.5x.";
  EXPECT_EQ(removeTagFromText(text, "a"), "! .");
  const std::string longValue = "#a:" + std::string(20000, '2') + "x #a:3h";
  EXPECT_EQ(graphValuesInComment(longValue, MoodThirdValue{"a", "h", 0, 0, 0}), (std::vector<double>{3}));
}

TEST(ThirdValues, OnePairPerCommentFirstValueCounts) {
  const MoodThirdValueTable table = thirdValuesForComments({
      "#sleep:8h #sleep:6h",     // counts once, with 8
      "#Sleep:7,5H",             // same pair in lowercase, comma read as point
      "#sleep:",                 // plain for the store, but value 0 here
      "#run:5km then #run:3mi",  // two pairs
      "#sleep:45min", "",
      "#work",  // plain tags have no third value
  });
  const auto& values = table.values();
  ASSERT_EQ(values.size(), 5u);
  EXPECT_EQ(values.at("sleep:h"), (MoodThirdValue{"sleep", "h", 7.5, 8, 2}));
  EXPECT_EQ(values.at("sleep:"), (MoodThirdValue{"sleep", "", 0, 0, 1}));
  EXPECT_EQ(values.at("sleep:min"), (MoodThirdValue{"sleep", "min", 45, 45, 1}));
  EXPECT_EQ(values.at("run:km").maxValue, 5);
  EXPECT_EQ(values.at("run:mi").maxValue, 3);
  const auto keys = table.orderedKeys();
  ASSERT_EQ(keys.size(), 5u);
  EXPECT_EQ(tagNameOfThirdValueKey(keys.front()), "run");
  EXPECT_EQ(tagNameOfThirdValueKey(keys.back()), "sleep");
  EXPECT_EQ(tagNameOfThirdValueKey("a:b:c"), "a");
}

TEST(ThirdValues, GraphValuesOfOnePair) {
  const MoodThirdValue hours{"sleep", "h", 0, 0, 0};
  const MoodThirdValue bare{"sleep", "", 0, 0, 0};
  // Every value counts here, not only the first.
  EXPECT_EQ(graphValuesInComment("#Sleep:8h #sleep:6,5h", hours), (std::vector<double>{8, 6.5}));
  // Without unit the value must end at a blank or at the end of the text.
  EXPECT_EQ(graphValuesInComment("#sleep:8", bare), (std::vector<double>{8}));
  EXPECT_EQ(graphValuesInComment("#sleep:8h", bare), (std::vector<double>{}));
  EXPECT_EQ(graphValuesInComment("#сон:8ч", MoodThirdValue{"сон", "ч", 0, 0, 0}), (std::vector<double>{8}));
  for (const char* comment :
       {"#sleep:8h #sleep:6,5h", "#sleep:8", "#sleep:8h", "#sleep:8.5 #sleep:1,", "#sleep:"}) {
    for (const MoodThirdValue& entry : {hours, bare}) {
      EXPECT_EQ(graphValuesInComment(comment, entry),
                graphValuesInComment(comment, entry, kGraphValuesPattern))
          << comment;
    }
  }
}

TEST(ExtractTagsForRecord, OneLinkPerTagLatestSpellingFirstUnit) {
  {
    const auto tags = extractTagsForRecord("#sleep:8h #Sleep:6min");
    ASSERT_EQ(tags.size(), 1u);
    EXPECT_EQ(tags[0].tagName, "Sleep");  // the latest spelling wins
    EXPECT_EQ(tags[0].tagUnit, "h");      // the first unit is kept
    EXPECT_EQ(tags[0].firstValue, "8");
  }
  {
    // An absent unit is replaced by the value form's, an empty one too.
    const auto tags = extractTagsForRecord("#run #run:5 #run:5km #run:3mi");
    ASSERT_EQ(tags.size(), 1u);
    EXPECT_EQ(tags[0].tagUnit, "km");
  }
  {
    // Accents and case fold into one tag; distinct tags keep first-mention order.
    const auto tags = extractTagsForRecord("#Café #work #cafe");
    ASSERT_EQ(tags.size(), 2u);
    EXPECT_EQ(tags[0].tagName, "cafe");
    EXPECT_EQ(tags[1].tagName, "work");
  }
  EXPECT_TRUE(extractTagsForRecord("nothing to see").empty());
  EXPECT_EQ(extractTagsForRecord("#run")[0].tagUnit, none());
  EXPECT_EQ(foldedTagName("Éte"), foldedTagName("ete"));
  EXPECT_EQ(foldedTagName("СОН"), "сон");
}

TEST(ExtractTagsForRecord, UnitOfAStoredTag) {
  const ExtractedTag km = extractTagsForRecord("#run:5km")[0];
  const ExtractedTag plainRun = extractTagsForRecord("#run")[0];
  const ExtractedTag noUnit = extractTagsForRecord("#run:5")[0];
  // The first unit seen stays: #run:5km, then later #run:3mi keeps km.
  EXPECT_EQ(unitAfterApply(std::string("km"), extractTagsForRecord("#run:3mi")[0]), "km");
  // #run first, #run:5km later: the absent unit is filled.
  EXPECT_EQ(unitAfterApply(none(), km), "km");
  EXPECT_EQ(unitAfterApply(std::string(""), km), "km");
  EXPECT_EQ(unitAfterApply(none(), plainRun), none());
  EXPECT_EQ(unitAfterApply(none(), noUnit), "");
  // An empty unit is replaced even by a plain mention's absent one.
  EXPECT_EQ(unitAfterApply(std::string(""), plainRun), none());
}

}  // namespace
}  // namespace lumeo
