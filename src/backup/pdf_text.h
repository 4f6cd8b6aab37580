// Text of the PDF report, set with pango: the report's font roles, blocks of
// wrapped and justified text that know where their lines fall, and the
// split of a long comment into the pieces that fill successive pages.
// Layouts use 72 units per inch and unhinted metrics, so that a point of
// text is a point of the page and a comment measures the same on every
// machine that has the fonts. Not thread-safe: one typesetter per thread.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/canvas.h"
#include "platform/color.h"

typedef struct _PangoContext PangoContext;
typedef struct _PangoLayout PangoLayout;
typedef struct _cairo_scaled_font cairo_scaled_font_t;

namespace lumeo {

// A face of the report: a fontconfig family with weight and slant. The
// families are free look-alikes of the report's design faces, embedded in
// every PDF (see docs/pdf-report.md).
struct PdfFont {
  std::string family;
  int weight = 400;  // CSS weights: 100 thin, 300 light, 400 regular, 700 bold
  bool italic = false;
  double size = 12;

  PdfFont withSize(double newSize) const {
    PdfFont f = *this;
    f.size = newSize;
    return f;
  }
  // The report's roles.
  static PdfFont recordDate();      // 14, thin italic
  static PdfFont comment();         // 12, regular; set justified
  static PdfFont levelNumber();     // 32, bold
  static PdfFont levelText();       // 14 and smaller, bold
  static PdfFont titlePeriod();     // 24, light italic
  static PdfFont summaryHeading();  // 16, bold
  static PdfFont explanation();     // 8, regular
  static PdfFont tagRow();          // 12, bold
};

enum class PdfWrap {
  kSingleLineTruncatingTail,  // one line, cut with "…" at the rect's width
  kWordWrap,                  // lines broken between words (inside a word only if it must)
};

struct PdfLayoutDeleter {
  void operator()(PangoLayout* layout) const;
};
using PdfLayoutPtr = std::unique_ptr<PangoLayout, PdfLayoutDeleter>;

// One laid-out text. Byte offsets refer to text(), which is the input with
// invalid UTF-8 replaced by U+FFFD.
class PdfTextBlock {
 public:
  struct Line {
    std::size_t start = 0;  // byte offset of the line's first character
    double top = 0;         // from the block's top, in points
    double bottom = 0;
  };

  const std::string& text() const { return text_; }
  double width() const { return width_; }
  double height() const { return height_; }
  const std::vector<Line>& lines() const { return lines_; }
  // Whether draw() can show the block in one piece: false for a text too
  // long for pango to lay out in one (see PdfTypesetter::layout), which is
  // drawn page by page instead.
  bool drawable() const { return layout_ != nullptr || set_ != nullptr; }
  // Whether the block was set from cached words rather than by pango.
  bool setFromWords() const { return set_ != nullptr; }

  // Lines set from shaped words: the glyphs of each line with their text
  // and clusters, so that the PDF keeps the text for search and copy.
  struct SetLine {
    std::string text;
    std::vector<double> x;  // per glyph, from the block's left edge
    std::vector<unsigned> glyphs;
    std::vector<std::pair<int, int>> clusters;  // bytes, glyphs
    double baseline = 0;
  };
  struct Set {
    cairo_scaled_font_t* font = nullptr;  // owned by the typesetter's font
    std::vector<SetLine> lines;
  };

 private:
  friend class PdfTypesetter;
  std::string text_;
  double width_ = 0;
  double height_ = 0;
  std::vector<Line> lines_;
  PdfLayoutPtr layout_;
  std::shared_ptr<const Set> set_;
};

class PdfTypesetter {
 public:
  PdfTypesetter();
  ~PdfTypesetter();
  PdfTypesetter(const PdfTypesetter&) = delete;
  PdfTypesetter& operator=(const PdfTypesetter&) = delete;

  // Plain text (Latin letters, digits, punctuation, spaces, line breaks)
  // is set from words shaped once and kept, which gives the lines, widths
  // and justification pango gives at a fraction of its cost; anything else
  // goes through pango. False sends everything through pango (for tests
  // that compare the two).
  void setWordCache(bool enabled) { wordCache_ = enabled; }

  // Lays `text` out at `width` points (wrapping and, with `justify`, set
  // flush on both sides except each paragraph's last line); a width of 0 or
  // less lays it out on one line per paragraph. A wrapped text of more than
  // 16 KB is measured piece by piece and has lines but no layout to draw.
  PdfTextBlock layout(const std::string& text, const PdfFont& font, double width,
                      TextAlignment alignment = TextAlignment::kLeft, bool justify = false,
                      PdfWrap wrap = PdfWrap::kWordWrap) const;
  // The size the text needs; its natural width for one line.
  Size measure(const std::string& text, const PdfFont& font, double width = 0) const;

  // Draws a block with its top left at `origin` (nothing for a block
  // without a layout).
  void draw(Canvas& canvas, const PdfTextBlock& block, Point origin, const Color& color) const;
  // One line in `rect`, aligned horizontally and centred vertically; with
  // kSingleLineTruncatingTail it is cut to the rect's width.
  void drawInRect(Canvas& canvas, const std::string& text, const Rect& rect, const PdfFont& font,
                  const Color& color, TextAlignment alignment,
                  PdfWrap wrap = PdfWrap::kSingleLineTruncatingTail) const;

 private:
  PdfLayoutPtr makeLayout(const char* text, std::size_t length, const PdfFont& font, double width,
                          TextAlignment alignment, bool justify, PdfWrap wrap) const;

  struct Face;
  struct Word;
  Face* face(const PdfFont& font) const;
  const Word* word(Face& face, const char* text, std::size_t length) const;
  bool setFromWords(PdfTextBlock& block, const PdfFont& font, double width, TextAlignment alignment,
                    bool justify, PdfWrap wrap) const;

  PangoContext* context_ = nullptr;
  bool wordCache_ = true;
  mutable std::map<std::string, std::unique_ptr<Face>> faces_;
};

// How a laid-out text divides into pages: the byte length of each page's
// piece, the first piece filling `firstHeight` points and every later one
// `nextHeight`. Pieces end at line starts, so each piece laid out again at
// the same width breaks into the same lines. A line taller than a whole
// page still gets a page of its own. An empty text gives no pieces; when
// not even one line fits into `firstHeight`, the first piece is empty (0).
std::vector<std::size_t> pageSplits(const PdfTextBlock& block, double firstHeight, double nextHeight);

}  // namespace lumeo
