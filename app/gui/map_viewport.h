// The map on screen as the core sees it (QtMapView: the core's headless
// map with a size that follows the item and the tiles' closest zoom) and as
// QML sees it (MapViewport: the rectangle's origin and scale, pan and zoom,
// and the pins in a model). The Web-Mercator arithmetic is the core's
// (map/headless_map_view.h).
//
// A gesture (drag, wheel, pinch, keys) tells the delegate regionWillChange
// at its first step and regionDidChange once it has rested for a moment, so
// the clustering runs once per gesture, not once per frame.
#pragma once

#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "list_model.h"
#include "map/headless_map_view.h"

namespace lumeo::gui {

// The MapView of a window: a size that follows the item, a scale limited to
// what the tiles can show, and a fit that lasts while the window lays
// itself out.
class QtMapView : public lumeo::HeadlessMapView {
 public:
  static constexpr double kMaxZoom = 19.0;

  QtMapView() : HeadlessMapView(400, 400, kMaxZoom) {}

  // Keeps the centre and the scale, or, after fitMapRect and before any
  // other move, fits that rectangle again.
  void setSize(double width, double height) override;
  // Shows all of `rect`, also after the map's size changes (the window
  // still laying itself out), until the map is moved otherwise.
  void fitMapRect(MapRect rect);
  void setVisibleMapRect(MapRect rect, bool animated = false, bool notify = true) override;

 private:
  std::optional<MapRect> fit_;
};

// The pins on the map: one row per annotation the map shows.
class MapPinModel : public ListModel {
  Q_OBJECT
 public:
  enum Role {
    MapXRole = Qt::UserRole + 1,  // the coordinate in map points
    MapYRole,
    CountRole,
    UniqueRole,   // one place
    PictureRole,  // image://lumeo/mappin/...
    TitleRole,
    SubtitleRole,
    LevelsRole,  // the moods, ascending, as a list
    OpacityRole,
  };
  explicit MapPinModel(QObject* parent = nullptr);

  QVariant data(const QModelIndex& index, int role) const override;

  void add(const lumeo::MapAnnotationPtr& annotation, const lumeo::AnnotationViewPtr& view);
  void remove(const lumeo::MapAnnotationPtr& annotation);
  void clear();
  // Reads every row again and tells QML of what changed (a pin the engine
  // reused gets new members and may move).
  void refresh();
  lumeo::MapAnnotationPtr annotationAt(int row) const;

 private:
  struct Row {
    lumeo::MapAnnotationPtr annotation;
    lumeo::AnnotationViewPtr view;
    double mapX = 0, mapY = 0;
    qsizetype count = 0;
    bool unique = false;
    QString picture;
    double opacity = 1;
  };
  void read(Row& row) const;
  std::vector<Row> rows_;
};

// The QML side of one map: its rectangle, gestures, and pins.
class MapViewport : public QObject {
  Q_OBJECT
  // The visible rectangle's top left in map points and its scale (map
  // points per view point); QML places tiles and pins from these.
  Q_PROPERTY(double originX READ originX NOTIFY regionChanged)
  Q_PROPERTY(double originY READ originY NOTIFY regionChanged)
  Q_PROPERTY(double scale READ scale NOTIFY regionChanged)
  Q_PROPERTY(double zoom READ zoom NOTIFY regionChanged)
  Q_PROPERTY(double centerLatitude READ centerLatitude NOTIFY regionChanged)
  Q_PROPERTY(double centerLongitude READ centerLongitude NOTIFY regionChanged)
  Q_PROPERTY(double worldWidth READ worldWidth CONSTANT)
  Q_PROPERTY(QObject* pins READ pins CONSTANT)
  Q_PROPERTY(int pinCount READ pinCount NOTIFY pinsChanged)

 public:
  explicit MapViewport(QObject* parent = nullptr);
  ~MapViewport() override;

  std::shared_ptr<QtMapView> mapView() const { return view_; }

  double originX() const { return view_->visibleMapRect().minX(); }
  double originY() const { return view_->visibleMapRect().minY(); }
  double scale() const { return view_->scale(); }
  double zoom() const { return view_->zoom(); }
  double centerLatitude() const { return view_->centerCoordinate().latitude; }
  double centerLongitude() const { return view_->centerCoordinate().longitude; }
  double worldWidth() const { return lumeo::kMapWorldWidth; }
  QObject* pins() { return &pins_; }
  int pinCount() const { return pins_.rowCount(); }
  MapPinModel& pinModel() { return pins_; }

  Q_INVOKABLE void setSize(double width, double height);
  // A drag by (dx, dy) view points: the map follows the pointer.
  Q_INVOKABLE void panBy(double dx, double dy);
  // Zooms by `factor` (2 is one level in) keeping the point (x, y) of the
  // view where it is.
  Q_INVOKABLE void zoomBy(double factor, double x, double y);
  Q_INVOKABLE void zoomIn() { zoomBy(2, view_->width() / 2, view_->height() / 2); }
  Q_INVOKABLE void zoomOut() { zoomBy(0.5, view_->width() / 2, view_->height() / 2); }
  Q_INVOKABLE void centerOn(double latitude, double longitude, double zoom);
  // The coordinate under a view point: {latitude, longitude}.
  Q_INVOKABLE QVariantMap coordinateAt(double x, double y) const;
  // The view point of a coordinate: {x, y}.
  Q_INVOKABLE QVariantMap pointFor(double latitude, double longitude) const;
  // The x of a map point in the view, taking the copy of the world nearest
  // the visible rectangle.
  Q_INVOKABLE double viewX(double mapX) const;
  // Ends the gesture now (tests, and before a click is read).
  Q_INVOKABLE void settle();

  void refreshPins();

 Q_SIGNALS:
  void regionChanged();
  void pinsChanged();
  // The region came to rest after a change (a gesture ended, the core moved
  // the map).
  void settled();

 private:
  void gestureStep(const lumeo::MapRect& rect);

  std::shared_ptr<QtMapView> view_;
  MapPinModel pins_;
  QTimer rest_;
  bool inGesture_ = false;
};

}  // namespace lumeo::gui
