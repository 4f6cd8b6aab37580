// The tagged text: which ranges get which colour and spacing, how lines
// break around tags, how the last allowed line is cut, which tags get tap
// targets and what a tap reports; bad input (a megabyte, ten thousand tags,
// invalid UTF-8); a golden picture; and the tag row's count font.
#include "capture/mood_tagged_text_view.h"

#include <gtest/gtest.h>

#include "capture/mood_tag_table_view_cell.h"
#include "testing/golden_image.h"

namespace lumeo {
namespace {

const Color kBlack(0, 0, 0);

std::string rangeText(const TaggedAttributedText& t, std::size_t location, std::size_t length) {
  return t.text.substr(location, length);
}

TEST(TaggedTextAttributes, TokensGetHashNameValueAndSpacing) {
  TaggedAttributedText t = attributeTaggedText("Slept #sleep:8h and #walk, #mood: fine", kBlack);
  ASSERT_EQ(t.tags.size(), 3u);
  EXPECT_EQ(t.tags[0].name, "sleep");
  EXPECT_EQ(rangeText(t, t.tags[0].location, t.tags[0].length), "#sleep:8h");
  EXPECT_EQ(t.tags[1].name, "walk");
  // A value tag without a number: the token is whole, without value colour.
  EXPECT_EQ(t.tags[2].name, "mood");
  EXPECT_EQ(rangeText(t, t.tags[2].location, t.tags[2].length), "#mood:");

  std::vector<std::string> coloured, spaced;
  int transparent = 0;
  for (const auto& run : t.runs) {
    std::string text = rangeText(t, run.location, run.length);
    if (run.color && run.color->alpha == 0) ++transparent;
    if (run.color == kTaggedTextValueColor) coloured.push_back("value " + text);
    if (run.color == kTaggedTextNameColor) coloured.push_back("name " + text);
    if (run.letterSpacing > 0)
      spaced.push_back(text + "=" + std::to_string(static_cast<int>(run.letterSpacing)));
  }
  EXPECT_EQ(transparent, 3);
  EXPECT_EQ(coloured, (std::vector<std::string>{"name sleep", "value 8h", "name walk", "name mood"}));
  EXPECT_EQ(spaced, (std::vector<std::string>{"#=5", "h=3", "#=5", "k=3", "#=5", ":=3"}));

  EXPECT_TRUE(attributeTaggedText("no tags here, # alone", kBlack).tags.empty());
  EXPECT_EQ(t.tagAt(t.tags[1].location)->name, "walk");
  EXPECT_EQ(t.tagAt(t.tags[1].end()), nullptr);
  EXPECT_EQ(t.tagAt(0), nullptr);
}

class TaggedTextLayout : public ::testing::Test {
 protected:
  MoodTaggedTextView view;
  std::vector<std::string> selected;

  void SetUp() override {
    view.setDelegate([this](const std::string& name) { selected.push_back(name); });
  }
  std::string lineText(std::size_t i) const {
    const auto& line = view.lines().at(i);
    return view.taggedText().substr(line.location, line.length);
  }
};

TEST_F(TaggedTextLayout, TextWithoutTokensGetsNoButtons) {
  view.setBounds({200, 0});
  view.setTaggedText("A quiet evening with a book and tea, nothing else to say.");
  EXPECT_GE(view.lines().size(), 2u);
  EXPECT_TRUE(view.visibleButtons().empty());
  EXPECT_TRUE(view.visibleTags().empty());
  EXPECT_GT(view.textHeight(), 30);
}

TEST_F(TaggedTextLayout, ATagMovesWholeToTheNextLine) {
  view.setBounds({150, 0});
  view.setTaggedText("aaaa bbbb cc #longtagname end");
  ASSERT_GE(view.lines().size(), 2u);
  // The break fell inside the tag, so the line ends before its "#".
  for (std::size_t i = 0; i < view.lines().size(); ++i) {
    std::string line = lineText(i);
    if (line.find("#long") != std::string::npos) {
      EXPECT_EQ(line.rfind("#longtagname", 0), 0u) << line;
    }
  }
  ASSERT_EQ(view.visibleTags(), (std::vector<std::string>{"longtagname"}));
  // Its button sits at the start of its own line.
  EXPECT_NEAR(view.visibleButtons()[0].frame.x, 0, 0.5);
  EXPECT_GT(view.visibleButtons()[0].frame.y, 0);
}

TEST_F(TaggedTextLayout, ATagLongerThanALineBreaksInside) {
  view.setBounds({120, 0});
  view.setTaggedText("#" + std::string(40, 'x') + " end");
  ASSERT_GE(view.lines().size(), 3u);
  EXPECT_EQ(lineText(0).rfind("#xxxx", 0), 0u);
  EXPECT_LT(view.lines()[0].length, 20u);
  EXPECT_EQ(view.visibleTags().front(), std::string(40, 'x'));
  // Every piece of the tag on screen taps as the tag.
  for (const auto& name : view.visibleTags()) EXPECT_EQ(name, std::string(40, 'x'));
}

TEST_F(TaggedTextLayout, ShortFirstLinesLeaveRoomForThePhoto) {
  std::string text;
  for (int i = 0; i < 30; ++i) text += "word ";
  view.setBounds({300, 0});
  view.setTaggedText(text);
  std::size_t wide = view.lines()[0].length;
  view.setShortLinesIndent(116);
  view.setShortLinesCount(4);
  ASSERT_GE(view.lines().size(), 6u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(view.lines()[i].availableWidth, 184);
    EXPECT_LE(view.lines()[i].width, 184.5);
  }
  EXPECT_EQ(view.lines()[4].availableWidth, 300);
  EXPECT_LT(view.lines()[0].length, wide);
}

TEST_F(TaggedTextLayout, TheLastAllowedLineEndsInDotsAndTagsBeyondHaveNoButtons) {
  view.setBounds({200, 0});
  view.setMaxLinesCount(2);
  view.setTaggedText("First #one then a long stretch of words with #two in it and #three at the end, #four");
  ASSERT_EQ(view.lines().size(), 2u);
  EXPECT_TRUE(view.lines()[1].truncated);
  EXPECT_LE(view.lines()[1].width, 200.5);
  for (const auto& name : view.visibleTags()) EXPECT_NE(name, "four");
  EXPECT_EQ(view.visibleTags().front(), "one");
  // A short text is not cut.
  view.setTaggedText("Short #one");
  EXPECT_EQ(view.lines().size(), 1u);
  EXPECT_FALSE(view.lines()[0].truncated);
}

TEST_F(TaggedTextLayout, ATagCutByTheDotsTapsUpToTheRightEdge) {
  view.setBounds({160, 0});
  view.setMaxLinesCount(1);
  view.setTaggedText("Some words #averyveryverylongtagname");
  ASSERT_EQ(view.lines().size(), 1u);
  ASSERT_TRUE(view.lines()[0].truncated);
  ASSERT_EQ(view.visibleTags(), (std::vector<std::string>{"averyveryverylongtagname"}));
  const Rect& f = view.visibleButtons()[0].frame;
  EXPECT_NEAR(f.x + f.width, 160, 0.01);
}

TEST_F(TaggedTextLayout, ATapGivesTheBareNameAndMissesGiveNothing) {
  view.setBounds({320, 0});
  view.setTaggedText("Ran #running:5km with #friends");
  ASSERT_EQ(view.visibleTags(), (std::vector<std::string>{"running", "friends"}));
  const Rect& f = view.visibleButtons()[0].frame;
  EXPECT_EQ(view.tagAtPoint({f.x + f.width / 2, f.y + f.height / 2}), "running");
  EXPECT_EQ(view.tagAtPoint({1, 1}), std::nullopt);
  view.tagButtonPressed(1);
  view.tagButtonPressed(2);
  view.tagButtonPressed(-1);
  EXPECT_EQ(selected, (std::vector<std::string>{"running", "friends"}));
  // Buttons are reused when the text changes.
  view.setTaggedText("plain");
  EXPECT_TRUE(view.visibleButtons().empty());
  EXPECT_EQ(view.reusableButtonCount(), 2u);
}

TEST_F(TaggedTextLayout, BadInputIsShownNotFatal) {
  view.setBounds({320, 0});
  // A megabyte: only the lines that show are laid out.
  std::string big;
  while (big.size() < (1u << 20)) big += "so much text #tag ";
  view.setTaggedText(big);
  EXPECT_EQ(view.lines().size(), 100u);
  EXPECT_TRUE(view.lines().back().truncated);

  std::string many;
  for (int i = 0; i < 10000; ++i) many += "#t" + std::to_string(i) + " ";
  view.setTaggedText(many);
  EXPECT_EQ(view.attributedText().tags.size(), 10000u);
  EXPECT_EQ(view.lines().size(), 100u);
  EXPECT_LT(view.visibleTags().size(), 1000u);

  view.setTaggedText("bad \xff\xfe bytes #tag \xc3");
  EXPECT_EQ(view.visibleTags(), (std::vector<std::string>{"tag"}));
  Canvas canvas = view.renderImage(1);
  EXPECT_GT(canvas.height(), 0);

  view.setTaggedText("");
  EXPECT_TRUE(view.lines().empty());
  EXPECT_EQ(view.textHeight(), 0);
  view.setTaggedText("\n\n#a\n");
  EXPECT_EQ(view.visibleTags(), (std::vector<std::string>{"a"}));
}

TEST_F(TaggedTextLayout, RendersLikeTheGolden) {
  view.setBounds({300, 0});
  view.setShortLinesCount(2);
  view.setShortLinesIndent(116);
  view.setTaggedText(
      "Slept well #sleep:8h and went for a long walk #walk:5km with #friends. Then lunch at #work, "
      "#coffee:2 cups and an early night #reading");
  Canvas canvas = view.renderImage(2);
  testing::expectMatchesGolden(canvas, "browse/tagged_text.png");
}

TEST(MoodTagTableViewCell, CountFontShrinksWithFrequency) {
  EXPECT_EQ(MoodTagTableViewCell::countFontSizeForFrequency(1), 15);
  EXPECT_EQ(MoodTagTableViewCell::countFontSizeForFrequency(99), 15);
  EXPECT_EQ(MoodTagTableViewCell::countFontSizeForFrequency(100), 13);
  EXPECT_EQ(MoodTagTableViewCell::countFontSizeForFrequency(999), 13);
  EXPECT_EQ(MoodTagTableViewCell::countFontSizeForFrequency(1000), 10);
}

}  // namespace
}  // namespace lumeo
