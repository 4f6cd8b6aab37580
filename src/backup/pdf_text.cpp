// The report's text on pango and cairo.
#include "backup/pdf_text.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>

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

PdfTextBlock PdfTypesetter::layout(const std::string& text, const PdfFont& font, double width,
                                   TextAlignment alignment, bool justify, PdfWrap wrap) const {
  PdfTextBlock block;
  block.text_ = validUtf8(text);
  block.layout_.reset(pango_layout_new(context_));
  PangoLayout* layout = block.layout_.get();
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
  pango_layout_set_text(layout, block.text_.data(), static_cast<int>(block.text_.size()));

  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  block.width_ = static_cast<double>(logical.width) / PANGO_SCALE;
  block.height_ = static_cast<double>(logical.height) / PANGO_SCALE;

  PangoLayoutIter* iter = pango_layout_get_iter(layout);
  do {
    int y0 = 0;
    int y1 = 0;
    pango_layout_iter_get_line_yrange(iter, &y0, &y1);
    PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
    block.lines_.push_back({static_cast<std::size_t>(line->start_index),
                            static_cast<double>(y0) / PANGO_SCALE, static_cast<double>(y1) / PANGO_SCALE});
  } while (pango_layout_iter_next_line(iter));
  pango_layout_iter_free(iter);
  return block;
}

Size PdfTypesetter::measure(const std::string& text, const PdfFont& font, double width) const {
  const PdfTextBlock block = layout(text, font, width);
  return Size{block.width(), block.height()};
}

void PdfTypesetter::draw(Canvas& canvas, const PdfTextBlock& block, Point origin, const Color& color) const {
  if (block.text().empty()) return;
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
