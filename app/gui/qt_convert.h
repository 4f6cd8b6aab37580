// The core's values in Qt: text (UTF-8 std::string), colours and back, and
// the text colour that reads on a level's colour in the lists (the capture
// tiles, the level editor's rows).
#pragma once

#include <QColor>
#include <QString>
#include <string>

#include "platform/color.h"

namespace lumeo::gui {

inline QString q(const std::string& text) {
  return QString::fromStdString(text);
}

QColor toQColor(const Color& color);
// Opaque.
Color fromQColor(const QColor& color);
// Dark text on light colours, white on dark ones.
QColor textColorOn(const QColor& color);

}  // namespace lumeo::gui
