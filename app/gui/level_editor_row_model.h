// The level editor's ten rows as a list model, in the table's order (level
// 10 first): the row's position, its level, its text and colour, and the
// colour that reads on it. A recoloured row changes in place; a rebuilt
// table (open, reset) resets the model.
#pragma once

#include <QAbstractListModel>
#include <QColor>
#include <vector>

#include "capture/mood_capture_edit_view_controller.h"

namespace lumeo::gui {

class LevelEditorRowModel : public QAbstractListModel {
  Q_OBJECT
 public:
  enum Role { kLevelIndexRole = Qt::UserRole + 1, kLevelRole, kTextRole, kColorRole, kTextColorRole };

  using QAbstractListModel::QAbstractListModel;

  // All rows anew.
  void setRows(const std::vector<MoodCaptureEditViewController::Row>& rows);
  // One row's colour changed.
  void setRowColor(int row, const Color& color);
  // The user typed in a row; the field has the text already, so only the
  // model's copy follows.
  void setRowText(int row, const QString& text);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  static QColor toQColor(const Color& color);
  static Color fromQColor(const QColor& color);
  // Dark text on light colours, white on dark ones.
  static QColor readableOn(const QColor& color);

 private:
  std::vector<MoodCaptureEditViewController::Row> rows_;
};

}  // namespace lumeo::gui
