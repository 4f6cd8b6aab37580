// The capture tab's ten level tiles as a list model (level 10 first): the
// level, its text and colour from the user's level table, and the colour
// that reads on it.
#pragma once

#include <vector>

#include "capture/mood_capture_view_controller.h"
#include "list_model.h"

namespace lumeo::gui {

class LevelTileModel : public ListModel {
  Q_OBJECT
 public:
  enum Role { kLevelRole = Qt::UserRole + 1, kTextRole, kColorRole, kTextColorRole, kShortcutRole };

  explicit LevelTileModel(QObject* parent = nullptr);

  // Takes the controller's tiles; resets the model only when they changed.
  void setTiles(const std::vector<MoodCaptureLevelTile>& tiles);

  QVariant data(const QModelIndex& index, int role) const override;

 private:
  std::vector<MoodCaptureLevelTile> tiles_;
};

}  // namespace lumeo::gui
