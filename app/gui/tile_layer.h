// The map's tiles under the pins: the tiles of the zoom nearest the map's
// scale, each where the viewport puts it; a tile still loading is drawn
// from the nearest parent tile at hand, scaled up. Asks the source for the
// visible tiles whenever the map moves, and for nothing else.
#pragma once

#include <QColor>
#include <QPointer>
#include <QQuickPaintedItem>

#include "map_viewport.h"
#include "tile_source.h"

namespace lumeo::gui {

class TileLayer : public QQuickPaintedItem {
  Q_OBJECT
  Q_PROPERTY(QObject* viewport READ viewport WRITE setViewport NOTIFY viewportChanged)
  Q_PROPERTY(QObject* source READ source WRITE setSource NOTIFY sourceChanged)
  // Under missing tiles.
  Q_PROPERTY(QColor background READ background WRITE setBackground NOTIFY backgroundChanged)
  // The tiles' opacity over the background (a dark theme dims them).
  Q_PROPERTY(qreal tileOpacity READ tileOpacity WRITE setTileOpacity NOTIFY backgroundChanged)
  // Tiles drawn in the last frame, and those drawn from a parent instead.
  Q_PROPERTY(int drawnTiles READ drawnTiles NOTIFY painted)
  Q_PROPERTY(int fallbackTiles READ fallbackTiles NOTIFY painted)

 public:
  static constexpr int kTileSize = 256;
  // How many zoom levels up a missing tile looks for a stand-in.
  static constexpr int kParentLevels = 6;

  explicit TileLayer(QQuickItem* parent = nullptr);

  QObject* viewport() const { return viewport_; }
  void setViewport(QObject* viewport);
  QObject* source() const { return source_; }
  void setSource(QObject* source);
  QColor background() const { return background_; }
  void setBackground(const QColor& color);
  qreal tileOpacity() const { return tileOpacity_; }
  void setTileOpacity(qreal opacity);
  int drawnTiles() const { return drawn_; }
  int fallbackTiles() const { return fallback_; }

  // The tiles the map shows now, nearest the centre first.
  QList<TileKey> visibleTiles() const;
  Q_INVOKABLE QStringList visibleTilePaths() const;

  void paint(QPainter* painter) override;

 Q_SIGNALS:
  void viewportChanged();
  void sourceChanged();
  void backgroundChanged();
  void painted();

 protected:
  void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;

 private:
  int tileZoom() const;
  void moved();

  QPointer<MapViewport> viewport_;
  QPointer<TileSource> source_;
  QColor background_{0xe9, 0xe6, 0xdf};
  qreal tileOpacity_ = 1.0;
  int drawn_ = 0;
  int fallback_ = 0;
};

}  // namespace lumeo::gui
