#include "tile_layer.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace lumeo::gui {

TileLayer::TileLayer(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setOpaquePainting(true);
}

void TileLayer::setViewport(QObject* viewport) {
  auto* next = qobject_cast<MapViewport*>(viewport);
  if (next == viewport_) return;
  if (viewport_) disconnect(viewport_, nullptr, this, nullptr);
  viewport_ = next;
  if (viewport_) connect(viewport_, &MapViewport::regionChanged, this, &TileLayer::moved);
  Q_EMIT viewportChanged();
  moved();
}

void TileLayer::setSource(QObject* source) {
  auto* next = qobject_cast<TileSource*>(source);
  if (next == source_) return;
  if (source_) disconnect(source_, nullptr, this, nullptr);
  source_ = next;
  if (source_) {
    connect(source_, &TileSource::tileReady, this, [this] { update(); });
    connect(source_, &TileSource::urlTemplateChanged, this, &TileLayer::moved);
  }
  Q_EMIT sourceChanged();
  moved();
}

void TileLayer::setBackground(const QColor& color) {
  if (color == background_) return;
  background_ = color;
  Q_EMIT backgroundChanged();
  update();
}

void TileLayer::setTileOpacity(qreal opacity) {
  if (opacity == tileOpacity_) return;
  tileOpacity_ = opacity;
  Q_EMIT backgroundChanged();
  update();
}

void TileLayer::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickPaintedItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.size() != oldGeometry.size()) moved();
}

void TileLayer::moved() {
  if (source_ && viewport_ && width() > 0 && height() > 0) source_->want(visibleTiles());
  update();
}

int TileLayer::tileZoom() const {
  return std::clamp(static_cast<int>(std::lround(viewport_->zoom())), 0, 19);
}

QList<TileKey> TileLayer::visibleTiles() const {
  QList<TileKey> keys;
  if (!viewport_ || width() <= 0 || height() <= 0) return keys;
  const int z = tileZoom();
  const int n = 1 << z;
  const double tile = kMapWorldWidth / n;
  const double s = viewport_->scale();
  const double left = viewport_->originX(), top = viewport_->originY();
  const double right = left + width() * s, bottom = top + height() * s;
  const int x0 = static_cast<int>(std::floor(left / tile));
  const int x1 = static_cast<int>(std::floor((right - 1e-6) / tile));
  const int y0 = std::max(0, static_cast<int>(std::floor(top / tile)));
  const int y1 = std::min(n - 1, static_cast<int>(std::floor((bottom - 1e-6) / tile)));
  const double cx = (left + right) / 2 / tile, cy = (top + bottom) / 2 / tile;
  struct Candidate {
    double distance;
    TileKey key;
  };
  std::vector<Candidate> found;
  QSet<TileKey> seen;
  for (int ty = y0; ty <= y1; ++ty) {
    for (int tx = x0; tx <= x1; ++tx) {
      const TileKey key{z, ((tx % n) + n) % n, ty};
      if (seen.contains(key)) continue;
      seen.insert(key);
      const double dx = tx + 0.5 - cx, dy = ty + 0.5 - cy;
      found.push_back({dx * dx + dy * dy, key});
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const Candidate& a, const Candidate& b) { return a.distance < b.distance; });
  for (const auto& candidate : found) keys.append(candidate.key);
  return keys;
}

QStringList TileLayer::visibleTilePaths() const {
  QStringList paths;
  for (const TileKey& key : visibleTiles()) paths.append(key.path());
  return paths;
}

void TileLayer::paint(QPainter* painter) {
  painter->fillRect(QRectF(0, 0, width(), height()), background_);
  drawn_ = 0;
  fallback_ = 0;
  if (!viewport_ || !source_) {
    Q_EMIT painted();
    return;
  }
  painter->setRenderHint(QPainter::SmoothPixmapTransform, true);
  painter->setOpacity(tileOpacity_);
  const int z = tileZoom();
  const int n = 1 << z;
  const double tile = kMapWorldWidth / n;
  const double s = viewport_->scale();
  const double left = viewport_->originX(), top = viewport_->originY();
  const int x0 = static_cast<int>(std::floor(left / tile));
  const int x1 = static_cast<int>(std::floor((left + width() * s - 1e-6) / tile));
  const int y0 = std::max(0, static_cast<int>(std::floor(top / tile)));
  const int y1 = std::min(n - 1, static_cast<int>(std::floor((top + height() * s - 1e-6) / tile)));
  for (int ty = y0; ty <= y1; ++ty) {
    for (int tx = x0; tx <= x1; ++tx) {
      // Whole pixels, so that neighbouring tiles leave no seam.
      const double px = std::floor((tx * tile - left) / s), py = std::floor((ty * tile - top) / s);
      const double px2 = std::floor(((tx + 1) * tile - left) / s),
                   py2 = std::floor(((ty + 1) * tile - top) / s);
      const QRectF target(px, py, px2 - px, py2 - py);
      TileKey key{z, ((tx % n) + n) % n, ty};
      QImage image = source_->tile(key);
      if (!image.isNull()) {
        painter->drawImage(target, image);
        ++drawn_;
        continue;
      }
      // A parent tile stands in, its part of the picture scaled up.
      for (int up = 1; up <= kParentLevels && key.z - up >= 0; ++up) {
        const TileKey parent{key.z - up, key.x >> up, key.y >> up};
        const QImage stand = source_->tile(parent);
        if (stand.isNull()) continue;
        const double part = static_cast<double>(stand.width()) / (1 << up);
        const QRectF from((key.x & ((1 << up) - 1)) * part, (key.y & ((1 << up) - 1)) * part, part, part);
        painter->drawImage(target, stand, from);
        ++fallback_;
        break;
      }
    }
  }
  Q_EMIT painted();
}

}  // namespace lumeo::gui
