#include "qt_convert.h"

namespace lumeo::gui {

QColor toQColor(const Color& color) {
  return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                          static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

Color fromQColor(const QColor& color) {
  const QColor rgb = color.toRgb();
  return Color(rgb.redF(), rgb.greenF(), rgb.blueF(), 1);
}

QColor textColorOn(const QColor& color) {
  const double l = 0.2126 * color.redF() + 0.7152 * color.greenF() + 0.0722 * color.blueF();
  return l > 0.55 ? QColor(0x1e, 0x1c, 0x19) : QColor(Qt::white);
}

}  // namespace lumeo::gui
