// Slices start at angle 0 (three o'clock) and go clockwise, as y grows
// downward. Arcs are polygons fine enough that no step shows at pin size.
#include "map/mood_circle_view.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace lumeo {

namespace {

constexpr int kArcSteps = 180;  // segments of a full circle

void addSlice(Path& path, Point centre, double radius, double from, double to) {
  path.moveTo(centre);
  const int steps =
      std::max(1, static_cast<int>(std::ceil((to - from) / (2 * std::numbers::pi) * kArcSteps)));
  for (int i = 0; i <= steps; ++i) {
    const double angle = from + (to - from) * i / steps;
    path.lineTo({centre.x + radius * std::cos(angle), centre.y + radius * std::sin(angle)});
  }
  path.closePath();
}

}  // namespace

void MoodCircleView::drawRect(Canvas& canvas, const Rect& rect, const MoodLevelsPresentation& levels) const {
  cairo_t* cr = canvas.cairoContext();
  cairo_save(cr);
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);

  const double side = std::min(rect.width, rect.height);
  const Point centre{rect.x + rect.width / 2, rect.y + rect.height / 2};
  const double scale = side / kSize;
  const Color white(1, 1, 1, 1);

  Path rim;
  rim.addEllipseInRect({centre.x - side / 2, centre.y - side / 2, side, side});
  canvas.fillPath(rim, white);

  const double radius = side / 2 - kRim * scale;
  if (!moodArray.empty()) {
    if (averageCircle) {
      double sum = 0;
      for (long level : moodArray) sum += static_cast<double>(level);
      const double average = sum / static_cast<double>(moodArray.size());
      Path circle;
      circle.addEllipseInRect({centre.x - radius, centre.y - radius, 2 * radius, 2 * radius});
      canvas.fillPath(circle, levels.interpolatedColorForMoodLevel(average).value_or(Color(0.5, 0.5, 0.5)));
    } else {
      const double step = 2 * std::numbers::pi / static_cast<double>(moodArray.size());
      for (std::size_t i = 0; i < moodArray.size(); ++i) {
        Path slice;
        if (moodArray.size() == 1) {
          slice.addEllipseInRect({centre.x - radius, centre.y - radius, 2 * radius, 2 * radius});
        } else {
          addSlice(slice, centre, radius, step * static_cast<double>(i), step * static_cast<double>(i + 1));
        }
        auto presentation = levels.presentationForMoodLevel(moodArray[i]);
        canvas.fillPath(slice, presentation ? presentation->baseColor : Color(0.5, 0.5, 0.5));
      }
    }
  }

  // The count, scaled down until it fits inside the moods.
  const std::string text = std::to_string(count);
  Font font;
  font.bold = true;
  font.pointSize = kCountFontSize * scale;
  const double room = radius * 2 * 0.8;
  const Size size = canvas.textSize(text, font);
  if (size.width > room && size.width > 0) font.pointSize *= room / size.width;
  cairo_restore(cr);
  canvas.drawTextInRect(text, {centre.x - radius, centre.y - radius, 2 * radius, 2 * radius}, font, white);
}

Image MoodCircleView::image(const MoodLevelsPresentation& levels, double scale) const {
  const int pixels = static_cast<int>(std::lround(kSize * scale));
  Canvas canvas(pixels, pixels);
  drawRect(canvas, {0, 0, static_cast<double>(pixels), static_cast<double>(pixels)}, levels);
  return canvas.image();
}

}  // namespace lumeo
