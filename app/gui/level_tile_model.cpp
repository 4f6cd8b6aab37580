#include "level_tile_model.h"

namespace lumeo::gui {

namespace {

QColor toQColor(const Color& color) {
  return QColor::fromRgbF(color.red, color.green, color.blue, color.alpha);
}

bool sameTiles(const std::vector<MoodCaptureLevelTile>& a, const std::vector<MoodCaptureLevelTile>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].level != b[i].level || a[i].text != b[i].text || !(a[i].color == b[i].color)) return false;
  return true;
}

}  // namespace

void LevelTileModel::setTiles(const std::vector<MoodCaptureLevelTile>& tiles) {
  if (sameTiles(tiles, tiles_)) return;
  beginResetModel();
  tiles_ = tiles;
  endResetModel();
}

int LevelTileModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(tiles_.size());
}

QVariant LevelTileModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const MoodCaptureLevelTile& tile = tiles_[static_cast<std::size_t>(index.row())];
  switch (role) {
    case kLevelRole:
      return static_cast<int>(tile.level);
    case Qt::DisplayRole:
    case kTextRole:
      return QString::fromStdString(tile.text);
    case kColorRole:
      return toQColor(tile.color);
    case kTextColorRole: {
      // WCAG luminance: dark text on light tiles, white on dark ones.
      const QColor c = toQColor(tile.color);
      const double l = 0.2126 * c.redF() + 0.7152 * c.greenF() + 0.0722 * c.blueF();
      return l > 0.55 ? QColor(0x1e, 0x1c, 0x19) : QColor(Qt::white);
    }
    case kShortcutRole:
      // The digit that chooses the tile: 1..9, and 0 for level 10.
      return QString::number(tile.level % 10);
    default:
      return {};
  }
}

QHash<int, QByteArray> LevelTileModel::roleNames() const {
  return {{kLevelRole, "level"},
          {kTextRole, "text"},
          {kColorRole, "tileColor"},
          {kTextColorRole, "textColor"},
          {kShortcutRole, "shortcut"}};
}

}  // namespace lumeo::gui
