#include "map_viewport.h"

#include <algorithm>
#include <cmath>

#include "map/geo_map_cluster_annotation.h"
#include "map/mood_map_view_controller.h"

namespace lumeo::gui {

namespace {

// How long a gesture must rest before the map counts as moved.
constexpr int kRestMilliseconds = 180;

QString pictureFor(const MapClusterAnnotationView& view) {
  QString levels;
  for (long level : view.moodArray) {
    if (!levels.isEmpty()) levels += '-';
    levels += QString::number(level);
  }
  return QStringLiteral("image://lumeo/mappin/%1/%2/%3")
      .arg(view.averageDrawing ? QStringLiteral("average") : QStringLiteral("pie"))
      .arg(view.count)
      .arg(levels.isEmpty() ? QStringLiteral("none") : levels);
}

}  // namespace

// --- QtMapView ---------------------------------------------------------------

void QtMapView::setSize(double width, double height) {
  if (!fit_) {
    HeadlessMapView::setSize(width, height);
    return;
  }
  const MapRect fit = *fit_;
  if (takeSize(width, height)) fitMapRect(fit);
}

void QtMapView::fitMapRect(MapRect rect) {
  setVisibleMapRect(rect, false);
  fit_ = rect;
}

void QtMapView::setVisibleMapRect(MapRect rect, bool animated, bool notify) {
  fit_.reset();
  HeadlessMapView::setVisibleMapRect(rect, animated, notify);
}

// --- MapPinModel ---------------------------------------------------------------

MapPinModel::MapPinModel(QObject* parent)
    : ListModel({{MapXRole, "mapX"},
                 {MapYRole, "mapY"},
                 {CountRole, "count"},
                 {UniqueRole, "unique"},
                 {PictureRole, "picture"},
                 {TitleRole, "title"},
                 {SubtitleRole, "subtitle"},
                 {LevelsRole, "levels"},
                 {OpacityRole, "pinOpacity"}},
                parent) {}

void MapPinModel::read(Row& row) const {
  const MapPoint point = MapPointForCoordinate(row.annotation->coordinate());
  row.mapX = point.x;
  row.mapY = point.y;
  row.opacity = row.view ? row.view->alpha() : 1.0;
  if (auto view = std::dynamic_pointer_cast<MapClusterAnnotationView>(row.view)) {
    row.count = static_cast<qsizetype>(view->count);
    row.unique = view->uniqueLocation;
    row.picture = pictureFor(*view);
  } else {
    row.count = 1;
    row.unique = true;
    row.picture.clear();
  }
}

QVariant MapPinModel::data(const QModelIndex& index, int role) const {
  const auto at = rowOf(index);
  if (!at) return {};
  const Row& row = rows_[*at];
  switch (role) {
    case MapXRole:
      return row.mapX;
    case MapYRole:
      return row.mapY;
    case CountRole:
      return row.count;
    case UniqueRole:
      return row.unique;
    case PictureRole:
      return row.picture;
    case OpacityRole:
      return row.opacity;
    case TitleRole:
      return QString::fromStdString(row.annotation->title());
    case SubtitleRole:
      return QString::fromStdString(row.annotation->subtitle());
    case LevelsRole: {
      QVariantList levels;
      if (auto view = std::dynamic_pointer_cast<MapClusterAnnotationView>(row.view)) {
        for (long level : view->moodArray) levels.append(static_cast<int>(level));
      }
      return levels;
    }
    default:
      return {};
  }
}

void MapPinModel::add(const MapAnnotationPtr& annotation, const AnnotationViewPtr& view) {
  Row row;
  row.annotation = annotation;
  row.view = view;
  read(row);
  insertRowAt(count(), [this, &row] { rows_.push_back(std::move(row)); });
}

void MapPinModel::remove(const MapAnnotationPtr& annotation) {
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    if (rows_[i].annotation != annotation) continue;
    removeRowAt(static_cast<int>(i),
                [this, i] { rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i)); });
    return;
  }
}

void MapPinModel::clear() {
  if (rows_.empty()) return;
  resetRows([this] {
    rows_.clear();
    return 0;
  });
}

void MapPinModel::refresh() {
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    Row next = rows_[i];
    read(next);
    Row& row = rows_[i];
    if (next.mapX == row.mapX && next.mapY == row.mapY && next.count == row.count &&
        next.unique == row.unique && next.picture == row.picture && next.opacity == row.opacity)
      continue;
    row = std::move(next);
    rowsChanged(static_cast<int>(i), static_cast<int>(i));
  }
}

MapAnnotationPtr MapPinModel::annotationAt(int row) const {
  if (row < 0 || static_cast<std::size_t>(row) >= rows_.size()) return nullptr;
  return rows_[static_cast<std::size_t>(row)].annotation;
}

// --- MapViewport -----------------------------------------------------------------

MapViewport::MapViewport(QObject* parent) : QObject(parent), view_(std::make_shared<QtMapView>()) {
  rest_.setSingleShot(true);
  rest_.setInterval(kRestMilliseconds);
  connect(&rest_, &QTimer::timeout, this, &MapViewport::settle);
  view_->onRegionChanged = [this] { Q_EMIT regionChanged(); };
  view_->onAnnotationAdded = [this](const MapAnnotationPtr& annotation) {
    pins_.add(annotation, view_->viewForAnnotation(annotation));
    Q_EMIT pinsChanged();
  };
  view_->onAnnotationRemoved = [this](const MapAnnotationPtr& annotation) {
    pins_.remove(annotation);
    Q_EMIT pinsChanged();
  };
}

MapViewport::~MapViewport() {
  view_->onRegionChanged = nullptr;
  view_->onAnnotationAdded = nullptr;
  view_->onAnnotationRemoved = nullptr;
}

void MapViewport::setSize(double width, double height) {
  view_->setSize(width, height);
}

void MapViewport::gestureStep(const MapRect& rect) {
  if (!inGesture_) {
    inGesture_ = true;
    if (auto delegate = view_->delegate()) delegate->regionWillChange(*view_, false);
  }
  view_->setVisibleMapRect(rect, false, false);
  rest_.start();
}

void MapViewport::settle() {
  rest_.stop();
  if (!inGesture_) return;
  inGesture_ = false;
  if (auto delegate = view_->delegate()) delegate->regionDidChange(*view_, false);
  Q_EMIT settled();
}

void MapViewport::panBy(double dx, double dy) {
  const MapRect rect = view_->visibleMapRect();
  const double s = view_->scale();
  gestureStep(MapRectMake(rect.minX() - dx * s, rect.minY() - dy * s, rect.size.width, rect.size.height));
}

void MapViewport::zoomBy(double factor, double x, double y) {
  if (!(factor > 0) || !std::isfinite(factor)) return;
  const MapRect rect = view_->visibleMapRect();
  const double s = view_->scale();
  const double next = s / factor;
  // The map point under (x, y) stays under it.
  const double px = rect.minX() + x * s;
  const double py = rect.minY() + y * s;
  gestureStep(MapRectMake(px - x * next, py - y * next, view_->width() * next, view_->height() * next));
}

void MapViewport::centerOn(double latitude, double longitude, double zoom) {
  if (!std::isfinite(latitude) || !std::isfinite(longitude) || !std::isfinite(zoom)) return;
  const MapPoint point = MapPointForCoordinate({std::clamp(latitude, -85.0, 85.0), longitude});
  const double s = HeadlessMapView::scaleForZoom(zoom);
  const double w = view_->width() * s, h = view_->height() * s;
  view_->setVisibleMapRect(MapRectMake(point.x - w / 2, point.y - h / 2, w, h), false);
}

QVariantMap MapViewport::coordinateAt(double x, double y) const {
  const LocationCoordinate2D c = view_->convertPointToCoordinate({x, y});
  return {{QStringLiteral("latitude"), c.latitude}, {QStringLiteral("longitude"), c.longitude}};
}

QVariantMap MapViewport::pointFor(double latitude, double longitude) const {
  const ViewPoint p = view_->convertCoordinateToPoint({latitude, longitude});
  return {{QStringLiteral("x"), p.x}, {QStringLiteral("y"), p.y}};
}

double MapViewport::viewX(double mapX) const {
  return view_->viewXForMapX(mapX);
}

void MapViewport::refreshPins() {
  pins_.refresh();
}

}  // namespace lumeo::gui
