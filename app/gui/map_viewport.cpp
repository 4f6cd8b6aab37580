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

QtMapView::QtMapView() {
  rect_ = fitted(kMapRectWorld);
}

double QtMapView::zoom() const {
  return 20.0 - std::log2(std::max(scale(), 1e-12));
}

MapRect QtMapView::fitted(MapRect rect) const {
  const double centerX = rect.midX();
  double centerY = rect.midY();
  double w = std::max(rect.size.width, 1e-9);
  double h = std::max(rect.size.height, 1e-9);
  const double aspect = width_ / height_;
  if (w / h < aspect) {
    w = h * aspect;
  } else {
    h = w / aspect;
  }
  // No closer than the tiles go, no wider than the world.
  const double minWidth = width_ * std::pow(2.0, 20.0 - kMaxZoom);
  if (w < minWidth) {
    w = minWidth;
    h = w / aspect;
  }
  if (w > kMapWorldWidth) {
    w = kMapWorldWidth;
    h = w / aspect;
  }
  // The centre stays on the world vertically.
  centerY = std::clamp(centerY, 0.0, kMapWorldWidth);
  double x = std::fmod(centerX - w / 2, kMapWorldWidth);
  if (x < 0) x += kMapWorldWidth;
  return MapRectMake(x, centerY - h / 2, w, h);
}

void QtMapView::setSize(double width, double height) {
  if (width <= 0 || height <= 0) return;
  if (width == width_ && height == height_) return;
  const double s = scale();
  const double cx = rect_.midX(), cy = rect_.midY();
  width_ = width;
  height_ = height;
  if (fit_) {
    fitMapRect(*fit_);
    return;
  }
  setVisibleMapRect(MapRectMake(cx - width * s / 2, cy - height * s / 2, width * s, height * s), false);
}

void QtMapView::fitMapRect(MapRect rect) {
  setVisibleMapRect(rect, false);
  fit_ = rect;
}

void QtMapView::setVisibleMapRect(MapRect rect, bool animated, bool notify) {
  fit_.reset();
  const MapRect next = fitted(rect);
  if (next == rect_) return;
  auto delegate = notify ? delegate_.lock() : nullptr;
  if (delegate) delegate->regionWillChange(*this, animated);
  rect_ = next;
  if (onRegionChanged) onRegionChanged();
  if (delegate) delegate->regionDidChange(*this, animated);
}

CoordinateRegion QtMapView::region() const {
  return CoordinateRegionForMapRect(rect_);
}

// A region's centre stays its centre: on Mercator's plane the middle of
// its corners lies a little off it, which would move a chosen place.
namespace {
MapRect centredOn(MapRect rect, LocationCoordinate2D center) {
  const MapPoint point = MapPointForCoordinate(center);
  return MapRectMake(point.x - rect.size.width / 2, point.y - rect.size.height / 2, rect.size.width,
                     rect.size.height);
}
}  // namespace

CoordinateRegion QtMapView::regionThatFits(CoordinateRegion region) const {
  CoordinateRegion fits = CoordinateRegionForMapRect(fitted(MapRectForCoordinateRegion(region)));
  fits.center = region.center;
  return fits;
}

void QtMapView::setRegion(CoordinateRegion region, bool animated) {
  if (!std::isfinite(region.center.latitude) || !std::isfinite(region.center.longitude)) return;
  setVisibleMapRect(centredOn(MapRectForCoordinateRegion(region), region.center), animated);
}

LocationCoordinate2D QtMapView::centerCoordinate() const {
  return CoordinateForMapPoint({rect_.midX(), rect_.midY()});
}

void QtMapView::setCenterCoordinate(LocationCoordinate2D center, bool animated) {
  const MapPoint point = MapPointForCoordinate(center);
  setVisibleMapRect(MapRectMake(point.x - rect_.size.width / 2, point.y - rect_.size.height / 2,
                                rect_.size.width, rect_.size.height),
                    animated);
}

LocationCoordinate2D QtMapView::convertPointToCoordinate(ViewPoint point) const {
  return CoordinateForMapPoint({rect_.minX() + point.x * rect_.size.width / width_,
                                rect_.minY() + point.y * rect_.size.height / height_});
}

ViewPoint QtMapView::convertCoordinateToPoint(LocationCoordinate2D coordinate) const {
  const MapPoint point = MapPointForCoordinate(coordinate);
  double dx = point.x - rect_.minX();
  if (dx < 0) dx += kMapWorldWidth;
  if (dx > rect_.size.width && dx - kMapWorldWidth > -rect_.size.width) dx -= kMapWorldWidth;
  return {dx * width_ / rect_.size.width, (point.y - rect_.minY()) * height_ / rect_.size.height};
}

void QtMapView::addAnnotations(const MapAnnotationList& annotations) {
  std::vector<AnnotationViewPtr> added;
  auto delegate = delegate_.lock();
  for (const MapAnnotationPtr& annotation : annotations) {
    if (!annotation || views_.count(annotation.get())) continue;
    AnnotationViewPtr view = delegate ? delegate->viewForAnnotation(*this, annotation) : nullptr;
    if (!view) view = std::make_shared<AnnotationView>(annotation);
    view->setAnnotation(annotation);
    annotations_.push_back(annotation);
    views_.emplace(annotation.get(), view);
    added.push_back(view);
    if (onAnnotationAdded) onAnnotationAdded(annotation);
  }
  if (delegate && !added.empty()) delegate->didAddAnnotationViews(*this, added);
}

void QtMapView::removeAnnotations(const MapAnnotationList& annotations) {
  for (const MapAnnotationPtr& annotation : annotations) {
    if (!annotation || !views_.count(annotation.get())) continue;
    deselectAnnotation(annotation, false);
    if (onAnnotationRemoved) onAnnotationRemoved(annotation);
    views_.erase(annotation.get());
    std::erase(annotations_, annotation);
  }
}

void QtMapView::selectAnnotation(const MapAnnotationPtr& annotation, bool) {
  auto it = views_.find(annotation.get());
  if (it == views_.end()) return;
  if (std::find(selected_.begin(), selected_.end(), annotation) != selected_.end()) return;
  for (const MapAnnotationPtr& other : MapAnnotationList(selected_)) deselectAnnotation(other, false);
  selected_.push_back(annotation);
  if (auto delegate = delegate_.lock()) delegate->didSelectAnnotationView(*this, it->second);
}

void QtMapView::deselectAnnotation(const MapAnnotationPtr& annotation, bool) {
  auto found = std::find(selected_.begin(), selected_.end(), annotation);
  if (found == selected_.end()) return;
  selected_.erase(found);
  auto it = views_.find(annotation.get());
  if (it == views_.end()) return;
  if (auto delegate = delegate_.lock()) delegate->didDeselectAnnotationView(*this, it->second);
}

AnnotationViewPtr QtMapView::viewForAnnotation(const MapAnnotationPtr& annotation) const {
  auto it = views_.find(annotation.get());
  return it == views_.end() ? nullptr : it->second;
}

void QtMapView::addOverlay(const MapOverlayPtr& overlay) {
  if (overlay && std::find(overlays_.begin(), overlays_.end(), overlay) == overlays_.end())
    overlays_.push_back(overlay);
}

void QtMapView::removeOverlays(const std::vector<MapOverlayPtr>& overlays) {
  for (const MapOverlayPtr& overlay : overlays) std::erase(overlays_, overlay);
}

void QtMapView::animate(double, std::function<void()> animations, std::function<void()> completion) {
  if (animations) animations();
  if (completion) completion();
}

// --- MapPinModel ---------------------------------------------------------------

int MapPinModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QHash<int, QByteArray> MapPinModel::roleNames() const {
  return {{MapXRole, "mapX"},         {MapYRole, "mapY"},       {CountRole, "count"},
          {UniqueRole, "unique"},     {PictureRole, "picture"}, {TitleRole, "title"},
          {SubtitleRole, "subtitle"}, {LevelsRole, "levels"},   {OpacityRole, "pinOpacity"}};
}

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
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const Row& row = rows_[static_cast<std::size_t>(index.row())];
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
  const int at = static_cast<int>(rows_.size());
  beginInsertRows({}, at, at);
  Row row;
  row.annotation = annotation;
  row.view = view;
  read(row);
  rows_.push_back(std::move(row));
  endInsertRows();
}

void MapPinModel::remove(const MapAnnotationPtr& annotation) {
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    if (rows_[i].annotation != annotation) continue;
    beginRemoveRows({}, static_cast<int>(i), static_cast<int>(i));
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
    return;
  }
}

void MapPinModel::clear() {
  if (rows_.empty()) return;
  beginResetModel();
  rows_.clear();
  endResetModel();
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
    const QModelIndex at = index(static_cast<int>(i));
    Q_EMIT dataChanged(at, at);
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
  const double s = std::pow(2.0, 20.0 - zoom);
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
  const MapRect rect = view_->visibleMapRect();
  double dx = mapX - rect.minX();
  if (dx < 0) dx += kMapWorldWidth;
  if (dx > rect.size.width && dx - kMapWorldWidth > -rect.size.width) dx -= kMapWorldWidth;
  return dx / view_->scale();
}

void MapViewport::refreshPins() {
  pins_.refresh();
}

}  // namespace lumeo::gui
