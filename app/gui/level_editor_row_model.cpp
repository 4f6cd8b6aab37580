#include "level_editor_row_model.h"

namespace lumeo::gui {

QColor LevelEditorRowModel::toQColor(const Color& color) {
  return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                          static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

Color LevelEditorRowModel::fromQColor(const QColor& color) {
  const QColor rgb = color.toRgb();
  return Color(rgb.redF(), rgb.greenF(), rgb.blueF(), 1);
}

QColor LevelEditorRowModel::readableOn(const QColor& color) {
  const double l = 0.2126 * color.redF() + 0.7152 * color.greenF() + 0.0722 * color.blueF();
  return l > 0.55 ? QColor(0x1e, 0x1c, 0x19) : QColor(Qt::white);
}

void LevelEditorRowModel::setRows(const std::vector<MoodCaptureEditViewController::Row>& rows) {
  beginResetModel();
  rows_ = rows;
  endResetModel();
}

void LevelEditorRowModel::setRowColor(int row, const Color& color) {
  if (row < 0 || row >= static_cast<int>(rows_.size())) return;
  auto& stored = rows_[static_cast<std::size_t>(row)];
  if (stored.levelColor == color) return;
  stored.levelColor = color;
  const QModelIndex at = index(row, 0);
  Q_EMIT dataChanged(at, at, {kColorRole, kTextColorRole});
}

void LevelEditorRowModel::setRowText(int row, const QString& text) {
  if (row < 0 || row >= static_cast<int>(rows_.size())) return;
  rows_[static_cast<std::size_t>(row)].levelText = text.toStdString();
}

int LevelEditorRowModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant LevelEditorRowModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const auto& row = rows_[static_cast<std::size_t>(index.row())];
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
      return readableOn(toQColor(row.levelColor));
    default:
      return {};
  }
}

QHash<int, QByteArray> LevelEditorRowModel::roleNames() const {
  return {{kLevelIndexRole, "levelIndex"},
          {kLevelRole, "level"},
          {kTextRole, "text"},
          {kColorRole, "rowColor"},
          {kTextColorRole, "textColor"}};
}

}  // namespace lumeo::gui
