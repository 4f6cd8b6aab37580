#include "level_tile_model.h"

#include "qt_convert.h"

namespace lumeo::gui {

namespace {

bool sameTiles(const std::vector<MoodCaptureLevelTile>& a, const std::vector<MoodCaptureLevelTile>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].level != b[i].level || a[i].text != b[i].text || !(a[i].color == b[i].color)) return false;
  return true;
}

}  // namespace

LevelTileModel::LevelTileModel(QObject* parent)
    : ListModel({{kLevelRole, "level"},
                 {kTextRole, "text"},
                 {kColorRole, "tileColor"},
                 {kTextColorRole, "textColor"},
                 {kShortcutRole, "shortcut"}},
                parent) {}

void LevelTileModel::setTiles(const std::vector<MoodCaptureLevelTile>& tiles) {
  if (sameTiles(tiles, tiles_)) return;
  resetRows([this, &tiles] {
    tiles_ = tiles;
    return static_cast<int>(tiles_.size());
  });
}

QVariant LevelTileModel::data(const QModelIndex& index, int role) const {
  const auto row = rowOf(index);
  if (!row) return {};
  const MoodCaptureLevelTile& tile = tiles_[*row];
  switch (role) {
    case kLevelRole:
      return static_cast<int>(tile.level);
    case Qt::DisplayRole:
    case kTextRole:
      return QString::fromStdString(tile.text);
    case kColorRole:
      return toQColor(tile.color);
    case kTextColorRole:
      return textColorOn(toQColor(tile.color));
    case kShortcutRole:
      // The digit that chooses the tile: 1..9, and 0 for level 10.
      return QString::number(tile.level % 10);
    default:
      return {};
  }
}

}  // namespace lumeo::gui
