// The level editor's ten rows as a list model, in the table's order (level
// 10 first): the row's position, its level, its text and colour, and the
// colour that reads on it. A recoloured row changes in place; a rebuilt
// table (open, reset) resets the model.
#pragma once

#include <QString>
#include <vector>

#include "capture/mood_capture_edit_view_controller.h"
#include "list_model.h"

namespace lumeo::gui {

class LevelEditorRowModel : public ListModel {
  Q_OBJECT
 public:
  enum Role { kLevelIndexRole = Qt::UserRole + 1, kLevelRole, kTextRole, kColorRole, kTextColorRole };

  explicit LevelEditorRowModel(QObject* parent = nullptr);

  // All rows anew.
  void setRows(const std::vector<MoodCaptureEditViewController::Row>& rows);
  // One row's colour changed.
  void setRowColor(int row, const Color& color);
  // The user typed in a row; the field has the text already, so only the
  // model's copy follows.
  void setRowText(int row, const QString& text);

  QVariant data(const QModelIndex& index, int role) const override;

 private:
  std::vector<MoodCaptureEditViewController::Row> rows_;
};

}  // namespace lumeo::gui
