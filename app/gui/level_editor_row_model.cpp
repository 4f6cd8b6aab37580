#include "level_editor_row_model.h"

#include "qt_convert.h"

namespace lumeo::gui {

LevelEditorRowModel::LevelEditorRowModel(QObject* parent)
    : ListModel({{kLevelIndexRole, "levelIndex"},
                 {kLevelRole, "level"},
                 {kTextRole, "text"},
                 {kColorRole, "rowColor"},
                 {kTextColorRole, "textColor"}},
                parent) {}

void LevelEditorRowModel::setRows(const std::vector<MoodCaptureEditViewController::Row>& rows) {
  resetRows([this, &rows] {
    rows_ = rows;
    return static_cast<int>(rows_.size());
  });
}

void LevelEditorRowModel::setRowColor(int row, const Color& color) {
  if (row < 0 || row >= count()) return;
  auto& stored = rows_[static_cast<std::size_t>(row)];
  if (stored.levelColor == color) return;
  stored.levelColor = color;
  rowsChanged(row, row, {kColorRole, kTextColorRole});
}

void LevelEditorRowModel::setRowText(int row, const QString& text) {
  if (row < 0 || row >= count()) return;
  rows_[static_cast<std::size_t>(row)].levelText = text.toStdString();
}

QVariant LevelEditorRowModel::data(const QModelIndex& index, int role) const {
  const auto at = rowOf(index);
  if (!at) return {};
  const auto& row = rows_[*at];
  switch (role) {
    case kLevelIndexRole:
      return row.levelIndex;
    case kLevelRole:
      // The table runs from level 10 down.
      return kMoodLevelCount - row.levelIndex;
    case Qt::DisplayRole:
    case kTextRole:
      return QString::fromStdString(row.levelText);
    case kColorRole:
      return toQColor(row.levelColor);
    case kTextColorRole:
      return textColorOn(toQColor(row.levelColor));
    default:
      return {};
  }
}

}  // namespace lumeo::gui
