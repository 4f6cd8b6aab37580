// The report's text on pango and cairo.
#include "backup/pdf_text.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace lumeo {

namespace {

// The report's two families: a Helvetica-metric sans for everything set
// upright, and a sans with thin and light italics for the dates, which the
// first family does not have.
constexpr char kSansFamily[] = "TeX Gyre Heros";
constexpr char kLightItalicFamily[] = "Roboto";

PangoFontDescription* describe(const PdfFont& font) {
  PangoFontDescription* description = pango_font_description_new();
  pango_font_description_set_family(description, font.family.c_str());
  pango_font_description_set_weight(description, static_cast<PangoWeight>(font.weight));
  pango_font_description_set_style(description, font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
  pango_font_description_set_absolute_size(description, font.size * PANGO_SCALE);
  return description;
}

std::string validUtf8(const std::string& text) {
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return text;
  gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  std::string out(valid);
  g_free(valid);
  return out;
}

}  // namespace

PdfFont PdfFont::recordDate() {
  return {kLightItalicFamily, 100, true, 14};
}
PdfFont PdfFont::comment() {
  return {kSansFamily, 400, false, 12};
}
PdfFont PdfFont::levelNumber() {
  return {kSansFamily, 700, false, 32};
}
PdfFont PdfFont::levelText() {
  return {kSansFamily, 700, false, 14};
}
PdfFont PdfFont::titlePeriod() {
  return {kLightItalicFamily, 300, true, 24};
}
PdfFont PdfFont::summaryHeading() {
  return {kSansFamily, 700, false, 16};
}
PdfFont PdfFont::explanation() {
  return {kSansFamily, 400, false, 8};
}
PdfFont PdfFont::tagRow() {
  return {kSansFamily, 700, false, 12};
}

void PdfLayoutDeleter::operator()(PangoLayout* layout) const {
  g_object_unref(layout);
}

PdfTypesetter::PdfTypesetter() {
  context_ = pango_font_map_create_context(pango_cairo_font_map_get_default());
  pango_cairo_context_set_resolution(context_, 72.0);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  pango_cairo_context_set_font_options(context_, options);
  cairo_font_options_destroy(options);
  // Glyphs at their own advances, not rounded to whole points: rounding
  // spaces letters unevenly at these sizes, and every rounded advance costs
  // the PDF a position of its own.
  pango_context_set_round_glyph_positions(context_, FALSE);
}

PdfTypesetter::~PdfTypesetter() {
  g_object_unref(context_);
}

PdfLayoutPtr PdfTypesetter::makeLayout(const char* text, std::size_t length, const PdfFont& font,
                                       double width, TextAlignment alignment, bool justify,
                                       PdfWrap wrap) const {
  PdfLayoutPtr owner(pango_layout_new(context_));
  PangoLayout* layout = owner.get();
  PangoFontDescription* description = describe(font);
  pango_layout_set_font_description(layout, description);
  pango_font_description_free(description);
  if (width > 0) {
    pango_layout_set_width(layout, static_cast<int>(width * PANGO_SCALE));
    if (wrap == PdfWrap::kSingleLineTruncatingTail) {
      pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
      pango_layout_set_single_paragraph_mode(layout, TRUE);
    } else {
      pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
    }
  } else if (wrap == PdfWrap::kSingleLineTruncatingTail) {
    pango_layout_set_single_paragraph_mode(layout, TRUE);
  }
  pango_layout_set_alignment(layout, alignment == TextAlignment::kCenter  ? PANGO_ALIGN_CENTER
                                     : alignment == TextAlignment::kRight ? PANGO_ALIGN_RIGHT
                                                                          : PANGO_ALIGN_LEFT);
  pango_layout_set_justify(layout, justify ? TRUE : FALSE);
  pango_layout_set_text(layout, text, static_cast<int>(length));
  return owner;
}

namespace {

// The lines of a layout, shifted by a byte offset and a height.
double appendLines(PangoLayout* layout, std::size_t byteOffset, double yOffset,
                   std::vector<PdfTextBlock::Line>& lines, std::size_t keep) {
  PangoLayoutIter* iter = pango_layout_get_iter(layout);
  double bottom = yOffset;
  std::size_t count = 0;
  do {
    if (count++ == keep) break;
    int y0 = 0;
    int y1 = 0;
    pango_layout_iter_get_line_yrange(iter, &y0, &y1);
    PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
    lines.push_back({byteOffset + static_cast<std::size_t>(line->start_index),
                     yOffset + static_cast<double>(y0) / PANGO_SCALE,
                     yOffset + static_cast<double>(y1) / PANGO_SCALE});
    bottom = lines.back().bottom;
  } while (pango_layout_iter_next_line(iter));
  pango_layout_iter_free(iter);
  return bottom;
}

// Pango measures in 32-bit units of 1/1024 point: a paragraph of a few
// hundred thousand characters overflows them and comes back as one line.
// Longer wrapped texts are therefore laid out in pieces of this many bytes,
// each ending with its last complete line.
constexpr std::size_t kLayoutChunk = 16 * 1024;

}  // namespace

PdfTextBlock PdfTypesetter::layout(const std::string& text, const PdfFont& font, double width,
                                   TextAlignment alignment, bool justify, PdfWrap wrap) const {
  PdfTextBlock block;
  block.text_ = validUtf8(text);
  const std::string& valid = block.text_;
  if (wordCache_ && setFromWords(block, font, width, alignment, justify, wrap)) return block;
  if (valid.size() <= kLayoutChunk || width <= 0 || wrap != PdfWrap::kWordWrap) {
    block.layout_ = makeLayout(valid.data(), valid.size(), font, width, alignment, justify, wrap);
    PangoRectangle logical;
    pango_layout_get_extents(block.layout_.get(), nullptr, &logical);
    block.width_ = static_cast<double>(logical.width) / PANGO_SCALE;
    block.height_ = static_cast<double>(logical.height) / PANGO_SCALE;
    appendLines(block.layout_.get(), 0, 0, block.lines_, SIZE_MAX);
    return block;
  }
  // Line breaking is greedy, so a piece that starts where a line starts
  // breaks into the same lines as the whole text would.
  std::size_t offset = 0;
  double y = 0;
  while (offset < valid.size()) {
    std::size_t end = std::min(valid.size(), offset + kLayoutChunk);
    while (end < valid.size() && end > offset && (static_cast<unsigned char>(valid[end]) & 0xC0) == 0x80)
      --end;
    PdfLayoutPtr piece =
        makeLayout(valid.data() + offset, end - offset, font, width, alignment, justify, wrap);
    const int count = pango_layout_get_line_count(piece.get());
    if (end == valid.size() || count < 2) {
      y = appendLines(piece.get(), offset, y, block.lines_, SIZE_MAX);
      offset = end;
      continue;
    }
    const PangoLayoutLine* last = pango_layout_get_line_readonly(piece.get(), count - 1);
    y = appendLines(piece.get(), offset, y, block.lines_, static_cast<std::size_t>(count - 1));
    offset += static_cast<std::size_t>(last->start_index);
  }
  block.width_ = width;
  block.height_ = y;
  return block;
}

Size PdfTypesetter::measure(const std::string& text, const PdfFont& font, double width) const {
  const PdfTextBlock block = layout(text, font, width);
  return Size{block.width(), block.height()};
}

void PdfTypesetter::draw(Canvas& canvas, const PdfTextBlock& block, Point origin, const Color& color) const {
  if (block.text().empty() || !block.drawable()) return;
  cairo_t* cr = canvas.cairoContext();
  cairo_save(cr);
  cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
  if (block.set_) {
    cairo_set_scaled_font(cr, block.set_->font);
    std::vector<cairo_glyph_t> glyphs;
    std::vector<cairo_text_cluster_t> clusters;
    for (const PdfTextBlock::SetLine& line : block.set_->lines) {
      if (line.glyphs.empty()) continue;
      glyphs.resize(line.glyphs.size());
      for (std::size_t i = 0; i < glyphs.size(); ++i)
        glyphs[i] = {line.glyphs[i], origin.x + line.x[i], origin.y + line.baseline};
      clusters.resize(line.clusters.size());
      for (std::size_t i = 0; i < clusters.size(); ++i)
        clusters[i] = {line.clusters[i].first, line.clusters[i].second};
      cairo_show_text_glyphs(cr, line.text.data(), static_cast<int>(line.text.size()), glyphs.data(),
                             static_cast<int>(glyphs.size()), clusters.data(),
                             static_cast<int>(clusters.size()), static_cast<cairo_text_cluster_flags_t>(0));
    }
    cairo_restore(cr);
    return;
  }
  cairo_move_to(cr, origin.x, origin.y);
  pango_cairo_show_layout(cr, block.layout_.get());
  cairo_restore(cr);
}

void PdfTypesetter::drawInRect(Canvas& canvas, const std::string& text, const Rect& rect, const PdfFont& font,
                               const Color& color, TextAlignment alignment, PdfWrap wrap) const {
  if (text.empty()) return;
  const PdfTextBlock block = layout(text, font, rect.width, alignment, false, wrap);
  // The layout box spans the rect's width, so pango aligns inside it.
  draw(canvas, block, Point{rect.x, rect.y + (rect.height - block.height()) / 2}, color);
}

// --- Text set from cached words --------------------------------------------

namespace {

// Whether a character is one the word setter handles: printable ASCII,
// Latin-1 and Latin Extended-A letters and signs, and the dashes, quotes,
// bullets and ellipsis of general punctuation. Tabs, other spaces, marks,
// right-to-left and CJK text go through pango, which handles them fully.
// The no-break spaces (U+00A0, U+202F before "AM") belong to their word.
bool plainCharacter(gunichar c) {
  return (c >= 0x21 && c <= 0x7E) || (c >= 0xA0 && c <= 0x17F && c != 0xAD) || (c >= 0x2010 && c <= 0x2027) ||
         c == 0x202F;
}

// The length of the UTF-8 sequence a lead byte starts (the text is valid).
std::size_t utf8Length(char lead) {
  const auto b = static_cast<unsigned char>(lead);
  return b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
}

// A break may follow a hyphen between two letters ("well-|known"), as pango
// allows there.
bool breakAfterHyphen(const std::string& text, std::size_t at) {
  if (text[at] != '-' || at == 0 || at + 1 >= text.size()) return false;
  const auto before = static_cast<unsigned char>(text[at - 1]);
  const auto after = static_cast<unsigned char>(text[at + 1]);
  return (std::isalpha(before) || before >= 0x80) && (std::isalpha(after) || after >= 0x80);
}

}  // namespace

struct PdfTypesetter::Word {
  std::vector<unsigned> glyphs;
  std::vector<int> advance;                   // pango units
  std::vector<int> offset;                    // x offsets, pango units
  std::vector<std::pair<int, int>> clusters;  // bytes and glyphs of each cluster, in order
  int width = 0;
  bool usable = true;  // every glyph in the font, none moved off the baseline
};

struct PdfTypesetter::Face {
  PangoItem* item = nullptr;  // a shaping analysis for the font
  cairo_scaled_font_t* scaled = nullptr;
  PangoShapeFlags flags = PANGO_SHAPE_NONE;
  unsigned spaceGlyph = 0;
  int spaceWidth = 0;
  double lineHeight = 0;  // points
  double baseline = 0;
  std::unordered_map<std::string, Word> words;
  ~Face() {
    if (item) pango_item_free(item);
  }
};

PdfTypesetter::Face* PdfTypesetter::face(const PdfFont& font) const {
  const std::string key = font.family + "/" + std::to_string(font.weight) + (font.italic ? "i/" : "/") +
                          std::to_string(font.size);
  auto found = faces_.find(key);
  if (found != faces_.end()) return found->second.get();
  auto made = std::make_unique<Face>();
  PangoAttrList* attrs = pango_attr_list_new();
  PangoFontDescription* description = describe(font);
  pango_attr_list_insert(attrs, pango_attr_font_desc_new(description));
  pango_font_description_free(description);
  GList* items = pango_itemize(context_, "x", 0, 1, attrs, nullptr);
  pango_attr_list_unref(attrs);
  if (items) {
    made->item = static_cast<PangoItem*>(items->data);
    for (GList* rest = items->next; rest; rest = rest->next)
      pango_item_free(static_cast<PangoItem*>(rest->data));
    g_list_free(items);
  }
  Face* face = made.get();
  faces_.emplace(key, std::move(made));
  if (!face->item || !face->item->analysis.font || !PANGO_IS_CAIRO_FONT(face->item->analysis.font))
    return face;
  face->scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(face->item->analysis.font));
  if (pango_context_get_round_glyph_positions(context_)) face->flags = PANGO_SHAPE_ROUND_POSITIONS;
  // Line height and baseline as pango sets them for this font.
  PdfLayoutPtr probe = makeLayout("Ag", 2, font, 0, TextAlignment::kLeft, false, PdfWrap::kWordWrap);
  PangoLayoutIter* iter = pango_layout_get_iter(probe.get());
  int y0 = 0;
  int y1 = 0;
  pango_layout_iter_get_line_yrange(iter, &y0, &y1);
  face->lineHeight = static_cast<double>(y1 - y0) / PANGO_SCALE;
  face->baseline = static_cast<double>(pango_layout_iter_get_baseline(iter) - y0) / PANGO_SCALE;
  pango_layout_iter_free(iter);
  const Word* space = word(*face, " ", 1);
  if (space && space->usable && space->glyphs.size() == 1) {
    face->spaceGlyph = space->glyphs[0];
    face->spaceWidth = space->width;
  } else {
    face->scaled = nullptr;  // no plain setting without a space
  }
  return face;
}

const PdfTypesetter::Word* PdfTypesetter::word(Face& face, const char* text, std::size_t length) const {
  std::string key(text, length);
  auto found = face.words.find(key);
  if (found != face.words.end()) return &found->second;
  // A journal's words repeat; a comment of unique words should not make
  // the cache grow without end.
  if (face.words.size() > 100000) face.words.clear();
  Word made;
  PangoGlyphString* glyphs = pango_glyph_string_new();
  pango_shape_with_flags(text, static_cast<int>(length), text, static_cast<int>(length), &face.item->analysis,
                         glyphs, face.flags);
  for (int i = 0; i < glyphs->num_glyphs; ++i) {
    const PangoGlyphInfo& info = glyphs->glyphs[i];
    if ((info.glyph & PANGO_GLYPH_UNKNOWN_FLAG) || info.glyph == PANGO_GLYPH_EMPTY ||
        info.geometry.y_offset != 0)
      made.usable = false;
    made.glyphs.push_back(info.glyph);
    made.advance.push_back(info.geometry.width);
    made.offset.push_back(info.geometry.x_offset);
    made.width += info.geometry.width;
    if (i == 0 || glyphs->log_clusters[i] != glyphs->log_clusters[i - 1]) {
      made.clusters.push_back({0, 1});
      if (i > 0 && glyphs->log_clusters[i] < glyphs->log_clusters[i - 1]) made.usable = false;
    } else {
      ++made.clusters.back().second;
    }
  }
  // A cluster's text runs to the next cluster's start.
  for (std::size_t c = 0, g = 0; c < made.clusters.size();
       g += static_cast<std::size_t>(made.clusters[c++].second)) {
    const int start = glyphs->log_clusters[g];
    const std::size_t next = g + static_cast<std::size_t>(made.clusters[c].second);
    const int end = next < made.glyphs.size() ? glyphs->log_clusters[next] : static_cast<int>(length);
    made.clusters[c].first = end - start;
  }
  pango_glyph_string_free(glyphs);
  return &face.words.emplace(std::move(key), std::move(made)).first->second;
}

bool PdfTypesetter::setFromWords(PdfTextBlock& block, const PdfFont& font, double width,
                                 TextAlignment alignment, bool justify, PdfWrap wrap) const {
  const std::string& text = block.text_;
  const bool single = wrap == PdfWrap::kSingleLineTruncatingTail;
  if (text.empty()) return false;
  if (!single && (width <= 0 || alignment != TextAlignment::kLeft)) return false;
  if (single && justify) return false;
  // Only plain text: one font, left to right, breaks at spaces.
  // (Not g_utf8_next_char: it reads a table of GLib's, which would make
  // GLib a start-up dependency of the command line.)
  for (const char* p = text.data(); p < text.data() + text.size(); p += utf8Length(*p)) {
    const gunichar c = g_utf8_get_char(p);
    if (c == ' ' || (c == '\n' && !single)) continue;
    if (!plainCharacter(c)) return false;
  }
  Face* f = face(font);
  if (!f->scaled) return false;

  // A token is a word with the spaces after it; a line breaks after one.
  struct Token {
    std::size_t start = 0;
    std::size_t wordLength = 0;
    std::size_t spaces = 0;
    const Word* word = nullptr;
  };
  const int limit = width > 0 ? static_cast<int>(width * PANGO_SCALE) : 0;
  auto set = std::make_shared<PdfTextBlock::Set>();
  set->font = f->scaled;
  double top = 0;
  double widest = 0;
  std::vector<Token> tokens;
  std::size_t paragraph = 0;
  while (true) {
    std::size_t end = text.find('\n', paragraph);
    if (end == std::string::npos) end = text.size();
    tokens.clear();
    // Leading spaces make a token without a word.
    std::size_t at = paragraph;
    while (at < end) {
      Token token;
      token.start = at;
      while (at < end && text[at] != ' ') {
        ++at;
        if (!single && breakAfterHyphen(text, at - 1)) break;
      }
      token.wordLength = at - token.start;
      while (at < end && text[at] == ' ') ++at;
      token.spaces = at - token.start - token.wordLength;
      if (token.wordLength > 0) {
        token.word = word(*f, text.data() + token.start, token.wordLength);
        if (!token.word->usable) return false;
      }
      tokens.push_back(token);
    }
    // Lines: as many tokens as fit, spaces at a line's end hanging over.
    std::size_t first = 0;
    do {
      int x = 0;
      std::size_t last = first;  // one past the line's last token
      int visible = 0;
      while (last < tokens.size()) {
        const Token& t = tokens[last];
        const int wordWidth = t.word ? t.word->width : 0;
        if (limit > 0 && !single && last > first && x + wordWidth > limit) break;
        x += wordWidth;
        visible = x;
        x += static_cast<int>(t.spaces) * f->spaceWidth;
        ++last;
      }
      if (!single && limit > 0 && visible > limit)
        return false;  // a word wider than the line: pango breaks it
      const bool lastOfParagraph = last >= tokens.size();
      // Justified: the room left goes to the spaces between words.
      std::size_t gaps = 0;
      for (std::size_t i = first; i + 1 < last; ++i) gaps += tokens[i].spaces;
      const bool stretch = justify && !lastOfParagraph && gaps > 0 && limit > visible;
      const double extra = stretch ? static_cast<double>(limit - visible) / static_cast<double>(gaps) : 0;
      if (single && limit > 0 && visible > limit) return false;  // pango cuts it with an ellipsis
      double shift = 0;
      if (alignment == TextAlignment::kCenter && limit > 0)
        shift = static_cast<double>(limit - visible) / 2 / PANGO_SCALE;
      if (alignment == TextAlignment::kRight && limit > 0)
        shift = static_cast<double>(limit - visible) / PANGO_SCALE;

      PdfTextBlock::SetLine line;
      line.baseline = top + f->baseline;
      double pen = 0;  // pango units
      const std::size_t lineStart = first < tokens.size() ? tokens[first].start : paragraph;
      for (std::size_t i = first; i < last; ++i) {
        const Token& t = tokens[i];
        if (t.word) {
          const Word& w = *t.word;
          line.text.append(text, t.start, t.wordLength);
          for (std::size_t g = 0; g < w.glyphs.size(); ++g) {
            line.glyphs.push_back(w.glyphs[g]);
            line.x.push_back(shift + (pen + w.offset[g]) / PANGO_SCALE);
            pen += w.advance[g];
          }
          line.clusters.insert(line.clusters.end(), w.clusters.begin(), w.clusters.end());
        }
        // The spaces that end a wrapped line are not drawn.
        if (i + 1 == last && !lastOfParagraph) break;
        for (std::size_t k = 0; k < t.spaces; ++k) {
          line.text.push_back(' ');
          line.glyphs.push_back(f->spaceGlyph);
          line.x.push_back(shift + pen / PANGO_SCALE);
          line.clusters.push_back({1, 1});
          pen += f->spaceWidth + (i + 1 < last ? extra : 0);
        }
      }
      widest = std::max(widest, (stretch ? static_cast<double>(limit) : visible) / PANGO_SCALE);
      block.lines_.push_back({lineStart, top, top + f->lineHeight});
      top += f->lineHeight;
      set->lines.push_back(std::move(line));
      first = last;
    } while (first < tokens.size());
    if (end >= text.size()) break;
    paragraph = end + 1;
  }
  block.set_ = std::move(set);
  block.width_ = limit > 0 && !single ? width : widest;
  block.height_ = top;
  return true;
}

std::vector<std::size_t> pageSplits(const PdfTextBlock& block, double firstHeight, double nextHeight) {
  std::vector<std::size_t> pieces;
  pieces.reserve(32);
  const std::size_t length = block.text().size();
  if (length == 0) return pieces;
  const auto& lines = block.lines();
  std::size_t pieceStart = 0;  // byte offset
  double pageTop = 0;          // block y where the page's first line starts
  double height = firstHeight;
  bool pageHasLine = false;
  for (const PdfTextBlock::Line& line : lines) {
    if (line.bottom - pageTop > height + 1e-6 && (pageHasLine || pieces.empty())) {
      // This line opens the next page. On the first page it may be that
      // nothing fits at all: that page then gets an empty piece.
      pieces.push_back(line.start - pieceStart);
      pieceStart = line.start;
      pageTop = line.top;
      height = nextHeight;
      pageHasLine = false;
    }
    pageHasLine = true;
  }
  pieces.push_back(length - pieceStart);
  return pieces;
}

}  // namespace lumeo
