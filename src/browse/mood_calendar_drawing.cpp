// The month picture on cairo, with pango for the letters.
#include "browse/mood_calendar_drawing.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

#include "platform/image.h"
#include "store/image_store.h"

namespace lumeo {

namespace {

constexpr double kMargin = 10;
constexpr double kTitleHeight = 34;
constexpr double kStripHeight = 7;
constexpr Color kTitleColor(0.2, 0.2, 0.2);

enum class Align { kLeft, kCenter };

void drawLabel(cairo_t* cr, const std::string& text, double x, double y, double width, double size,
               const Color& color, bool bold, Align align) {
  PangoLayout* layout = pango_cairo_create_layout(cr);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(pango_layout_get_context(layout), options);
  cairo_font_options_destroy(options);
  pango_layout_context_changed(layout);
  PangoFontDescription* font = pango_font_description_from_string(bold ? "DejaVu Sans Bold" : "DejaVu Sans");
  pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
  if (align == Align::kCenter) {
    pango_layout_set_width(layout, static_cast<int>(width * PANGO_SCALE));
    pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
  }
  cairo_save(cr);
  cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
  cairo_move_to(cr, x, y);
  pango_cairo_show_layout(cr, layout);
  cairo_restore(cr);
  g_object_unref(layout);
}

void drawTile(Canvas& canvas, const MoodDayView& day, double x, double y, double size) {
  cairo_t* cr = canvas.cairoContext();
  Rect tile{x, y, size, size};
  bool pictured = false;
  if (day.look() == MoodDayView::Look::kPhoto && day.imageFile()) {
    if (auto images = ImageStore::shared()) {
      auto read = Image::readFile(*day.imageFile(), static_cast<int>(size), static_cast<int>(size));
      if (auto* image = std::get_if<Image>(&read)) {
        canvas.drawImage(*image, tile);
        pictured = true;
      }
    }
  }
  if (!pictured && day.look() != MoodDayView::Look::kEmpty) {
    // No picture, or its file is gone: the orange tile with a white strip.
    canvas.fillRect(tile, kMoodDayNoPhotoTile);
    canvas.fillRect({x, y + size * 0.42, size, size * 0.12}, Color(1, 1, 1, 0.9));
  }
  if (day.look() == MoodDayView::Look::kEmpty) canvas.fillRect(tile, kMoodDayEmptyBackground);
  // The strip: one equal piece a record, in date order.
  for (const auto& piece : day.strip()) {
    double scaleX = size / std::max(1.0, day.frame.width);
    canvas.fillRect({x + piece.x * scaleX, y + size - kStripHeight, piece.width * scaleX, kStripHeight},
                    piece.color);
  }
  drawLabel(cr, std::to_string(day.day + 1), x + 3, y + 2, size, 12, day.numberColor(), true, Align::kLeft);
}

}  // namespace

Canvas drawCalendarMonth(const MoodCalendarMonthView& month, const MoodCalendarMetrics& metrics,
                         const std::string& title, double scale) {
  scale = scale > 0 ? scale : 1;
  const double step = metrics.daySize + metrics.space;
  long rows = 0;
  bool leftOfGrid = false;
  for (const auto& day : month.dayViews()) {
    if (day.hidden) continue;
    rows = std::max(rows, day.placement.row + 1);
    if (day.placement.column < 0) leftOfGrid = true;
  }
  const double gutter = leftOfGrid ? step : 0;
  const double width = 2 * kMargin + gutter + 7 * step - metrics.space;
  const double height = kMargin + kTitleHeight + metrics.heightForRows(rows) + kMargin - metrics.space;
  Canvas canvas(static_cast<int>(std::ceil(width * scale)), static_cast<int>(std::ceil(height * scale)));
  canvas.scale(scale, scale);
  canvas.fillRect({0, 0, width, height}, Color(1, 1, 1));
  cairo_t* cr = canvas.cairoContext();
  const double gridX = kMargin + gutter;
  drawLabel(cr, title, gridX, kMargin, 7 * step, 20, kTitleColor, true, Align::kLeft);
  const double gridTop = kMargin + kTitleHeight;
  auto headings = MoodCalendarMonthView::weekdayHeadings();
  for (std::size_t i = 0; i < headings.size(); ++i) {
    drawLabel(cr, headings[i], gridX + static_cast<double>(i) * step, gridTop, metrics.daySize, 13,
              kMoodCalendarWeekdayColor, false, Align::kCenter);
  }
  for (const auto& day : month.dayViews()) {
    if (day.hidden) continue;
    drawTile(canvas, day, gridX + day.frame.x, gridTop + day.frame.y, metrics.daySize);
  }
  return canvas;
}

}  // namespace lumeo
