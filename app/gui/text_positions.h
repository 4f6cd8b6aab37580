// Text positions between QML and the core: QML counts UTF-16 code units,
// the core counts bytes of UTF-8.
#pragma once

#include <QString>
#include <algorithm>
#include <string>

namespace lumeo::gui {

// Byte offset in the UTF-8 form of `text` of the UTF-16 position `position`.
inline std::size_t utf8Offset(const QString& text, int position) {
  position = std::clamp(position, 0, static_cast<int>(text.size()));
  return static_cast<std::size_t>(QStringView(text).left(position).toUtf8().size());
}

// The UTF-16 position of the byte offset `offset` of `utf8`.
inline int utf16Position(const std::string& utf8, std::size_t offset) {
  offset = std::min(offset, utf8.size());
  return static_cast<int>(QString::fromUtf8(utf8.data(), static_cast<qsizetype>(offset)).size());
}

}  // namespace lumeo::gui
