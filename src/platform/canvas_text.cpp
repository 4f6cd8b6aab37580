// Text on the canvas through pango, so that every script and every locale's
// weekday and month names are shaped and rendered. Layouts use 72 units per
// inch, so that a font's point size is its size in canvas units, and hinting
// of metrics is off, so that text measures the same at every scale.
#include <cairo.h>
#include <pango/pangocairo.h>

#include <memory>

#include "platform/canvas.h"

namespace lumeo {

namespace {

struct LayoutDeleter {
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};
using LayoutPtr = std::unique_ptr<PangoLayout, LayoutDeleter>;

LayoutPtr makeLayout(cairo_t* cr, const std::string& text, const Font& font) {
  LayoutPtr layout(pango_cairo_create_layout(cr));
  PangoContext* context = pango_layout_get_context(layout.get());
  pango_cairo_context_set_resolution(context, 72.0);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  pango_cairo_context_set_font_options(context, options);
  cairo_font_options_destroy(options);
  pango_layout_context_changed(layout.get());

  PangoFontDescription* description = pango_font_description_new();
  pango_font_description_set_family(description, font.family.empty() ? "Sans" : font.family.c_str());
  pango_font_description_set_weight(description, font.bold    ? PANGO_WEIGHT_BOLD
                                                 : font.light ? PANGO_WEIGHT_LIGHT
                                                              : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_absolute_size(description, font.pointSize * PANGO_SCALE);
  pango_layout_set_font_description(layout.get(), description);
  pango_font_description_free(description);
  // pango replaces invalid UTF-8 by itself only in some versions; a NUL or a
  // broken sequence must not drop the whole label.
  gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  pango_layout_set_text(layout.get(), valid, -1);
  g_free(valid);
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  return layout;
}

Size layoutSize(PangoLayout* layout) {
  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  return Size{static_cast<double>(logical.width) / PANGO_SCALE,
              static_cast<double>(logical.height) / PANGO_SCALE};
}

}  // namespace

Size Canvas::textSize(const std::string& text, const Font& font) const {
  LayoutPtr layout = makeLayout(cr_, text, font);
  return layoutSize(layout.get());
}

void Canvas::drawText(const std::string& text, Point origin, const Font& font, const Color& color) {
  if (text.empty()) return;
  LayoutPtr layout = makeLayout(cr_, text, font);
  cairo_save(cr_);
  cairo_set_source_rgba(cr_, color.red, color.green, color.blue, color.alpha);
  cairo_move_to(cr_, origin.x, origin.y);
  pango_cairo_show_layout(cr_, layout.get());
  cairo_restore(cr_);
}

void Canvas::drawTextInRect(const std::string& text, const Rect& rect, const Font& font, const Color& color,
                            TextAlignment alignment) {
  if (text.empty()) return;
  LayoutPtr layout = makeLayout(cr_, text, font);
  const Size size = layoutSize(layout.get());
  double x = rect.x;
  if (alignment == TextAlignment::kCenter) x = rect.x + (rect.width - size.width) / 2;
  if (alignment == TextAlignment::kRight) x = rect.x + rect.width - size.width;
  const double y = rect.y + (rect.height - size.height) / 2;
  cairo_save(cr_);
  cairo_set_source_rgba(cr_, color.red, color.green, color.blue, color.alpha);
  cairo_move_to(cr_, x, y);
  pango_cairo_show_layout(cr_, layout.get());
  cairo_restore(cr_);
}

}  // namespace lumeo
