// The report's text on pango and cairo.
#include "backup/pdf_text.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
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
  if (block.text().empty() || !block.layout()) return;
  cairo_t* cr = canvas.cairoContext();
  cairo_save(cr);
  cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
  cairo_move_to(cr, origin.x, origin.y);
  pango_cairo_show_layout(cr, block.layout());
  cairo_restore(cr);
}

void PdfTypesetter::drawInRect(Canvas& canvas, const std::string& text, const Rect& rect, const PdfFont& font,
                               const Color& color, TextAlignment alignment, PdfWrap wrap) const {
  if (text.empty()) return;
  const PdfTextBlock block = layout(text, font, rect.width, alignment, false, wrap);
  // The layout box spans the rect's width, so pango aligns inside it.
  draw(canvas, block, Point{rect.x, rect.y + (rect.height - block.height()) / 2}, color);
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
