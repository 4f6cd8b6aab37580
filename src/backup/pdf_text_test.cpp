// The report's text set from cached words against pango setting the same
// text: the same lines at the same heights, and the same picture.
#include "backup/pdf_text.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/canvas.h"

namespace lumeo {
namespace {

constexpr double kWidth = 312;

// The block drawn black on white, 4 pixels a point.
Canvas drawn(const PdfTypesetter& type, const PdfTextBlock& block) {
  Canvas canvas(static_cast<int>(kWidth * 4) + 8, static_cast<int>(block.height() * 4) + 8);
  canvas.fillRect(Rect{0, 0, static_cast<double>(canvas.width()), static_cast<double>(canvas.height())},
                  Color(1, 1, 1, 1));
  cairo_scale(canvas.cairoContext(), 4, 4);
  type.draw(canvas, block, Point{1, 1}, Color(0, 0, 0, 1));
  return canvas;
}

// Share of pixels whose grey differs by more than a quarter.
double differingShare(const Canvas& a, const Canvas& b) {
  const Image ia = a.image();
  const Image ib = b.image();
  if (ia.width() != ib.width() || ia.height() != ib.height()) return 1;
  long differing = 0;
  for (std::size_t i = 0; i < ia.pixels().size(); i += 4) {
    differing += std::abs(int(ia.pixels()[i]) - int(ib.pixels()[i])) > 64;
  }
  return static_cast<double>(differing) / (ia.pixels().size() / 4.0);
}

void expectSetAsPangoSetsIt(const std::string& text, const PdfFont& font, bool justify) {
  PdfTypesetter words;
  PdfTypesetter pango;
  pango.setWordCache(false);
  const PdfTextBlock fast = words.layout(text, font, kWidth, TextAlignment::kLeft, justify);
  const PdfTextBlock slow = pango.layout(text, font, kWidth, TextAlignment::kLeft, justify);
  ASSERT_TRUE(fast.setFromWords()) << text;
  ASSERT_FALSE(slow.setFromWords());
  ASSERT_EQ(fast.lines().size(), slow.lines().size()) << text;
  for (std::size_t i = 0; i < fast.lines().size(); ++i) {
    EXPECT_EQ(fast.lines()[i].start, slow.lines()[i].start) << "line " << i << " of " << text;
    EXPECT_NEAR(fast.lines()[i].top, slow.lines()[i].top, 0.01) << i;
    EXPECT_NEAR(fast.lines()[i].bottom, slow.lines()[i].bottom, 0.01) << i;
  }
  EXPECT_NEAR(fast.height(), slow.height(), 0.01);
  EXPECT_LT(differingShare(drawn(words, fast), drawn(pango, slow)), 0.002) << text;
}

TEST(PdfWordSetterTest, BreaksJustifiesAndDrawsAsPangoDoes) {
  const std::string story =
      "Woke up early and went for a run along the river before work. The meeting ran long, and the "
      "afternoon went by in small tasks. Called my sister; we laughed about the trip we took years ago.";
  expectSetAsPangoSetsIt(story, PdfFont::comment(), true);
  expectSetAsPangoSetsIt(story, PdfFont::comment(), false);
  // Paragraphs, an empty one, spaces at a paragraph's start and end, a text
  // ending with a line break (an empty last line), a hyphenated word.
  expectSetAsPangoSetsIt(
      "First paragraph, long enough to wrap onto a second line of the column here.\n\n"
      "   Indented start and spaces at the end   \nA well-known, long-standing habit: "
      "twenty-seven push-ups before breakfast, every single day of the week.\n",
      PdfFont::comment(), true);
  // Latin-1 letters, typographic quotes and dashes, a tag with a value.
  expectSetAsPangoSetsIt(
      "Café au lait — “déjà vu” in Zürich, ½ day off… #sleep:8h #Überstunden "
      "and a naïve façade at São Paulo’s old station.",
      PdfFont::comment(), true);
  expectSetAsPangoSetsIt("November 20, 2026 at 9:30\u202fAM", PdfFont::recordDate(), false);
}

TEST(PdfWordSetterTest, LeavesWhatItCannotSetToPango) {
  PdfTypesetter type;
  for (const std::string& text : {
           std::string("Right to left: \u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd"),
           std::string("Tabs\tbetween\twords"),
           std::string("An emoji \U0001F600 and CJK \u65e5\u672c"),
           std::string("Windows line ends\r\nsecond line"),
           // A word wider than the column is broken inside by pango.
           std::string(200, 'x'),
       }) {
    const PdfTextBlock block = type.layout(text, PdfFont::comment(), kWidth, TextAlignment::kLeft, true);
    EXPECT_FALSE(block.setFromWords()) << text;
    EXPECT_TRUE(block.drawable()) << text;
  }
  // A single line too wide for its box is cut with an ellipsis by pango.
  const PdfTextBlock cut = type.layout(std::string(80, 'w'), PdfFont::levelText(), 80, TextAlignment::kCenter,
                                       false, PdfWrap::kSingleLineTruncatingTail);
  EXPECT_FALSE(cut.setFromWords());
  EXPECT_LE(cut.width(), 80.5);
}

TEST(PdfWordSetterTest, AHugeCommentIsSetWholeAndDrawable) {
  std::string huge;
  int sentences = 0;
  while (huge.size() < 400000) huge += "Sentence " + std::to_string(++sentences) + " of a very long day. ";
  PdfTypesetter type;
  const PdfTextBlock block = type.layout(huge, PdfFont::comment(), kWidth, TextAlignment::kLeft, true);
  ASSERT_TRUE(block.setFromWords());
  EXPECT_TRUE(block.drawable());
  // No line is lost: the lines start in order and the last one holds the end.
  for (std::size_t i = 1; i < block.lines().size(); ++i)
    ASSERT_LT(block.lines()[i - 1].start, block.lines()[i].start) << i;
  EXPECT_NE(huge.substr(block.lines().back().start).find(std::to_string(sentences) + " of a very long day."),
            std::string::npos);
}

}  // namespace
}  // namespace lumeo
