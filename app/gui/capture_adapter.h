// The capture tab for QML (singleton `Capture`): the level tiles and the
// choice of a level, which makes the record and opens the editor over it.
#pragma once

#include <QObject>

#include "level_tile_model.h"

namespace lumeo::gui {

class GuiRuntime;

class CaptureAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(QAbstractListModel* tiles READ tiles CONSTANT)
 public:
  CaptureAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  QAbstractListModel* tiles() { return &tiles_; }

  // The user chose a level (a tile, or the digits 1..9 and 0 for 10).
  // False when the tab cannot take it now (no journal, a level outside
  // 1..10).
  Q_INVOKABLE bool chooseLevel(int level);
  // The tab is shown: the tiles follow the level table.
  Q_INVOKABLE void appear();

 private:
  GuiRuntime& runtime_;
  LevelTileModel tiles_;
};

}  // namespace lumeo::gui
