// The scrollable graph for QML: the core's MoodSummaryGraphViewController
// (records, tag series, the chosen lines, the settings) and its
// GraphScrollableArea (the visible range, zoom and pan limits). Pinching
// and the scroll wheel zoom through the area's own pinch rule; dragging
// pans by the range's span as the area allows. The picture is the core's
// renderGraph, served at the item's size.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <memory>

namespace lumeo {
class JournalStore;
class UserDefaults;
class MoodSummaryGraphViewController;
class MoodGraphSettingsViewController;
class GraphScrollableArea;
}  // namespace lumeo

namespace lumeo::gui {

class GraphController : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool empty READ empty CONSTANT)
  Q_PROPERTY(QString source READ source NOTIFY graphChanged)
  Q_PROPERTY(QVariantList series READ series NOTIFY seriesChanged)
  Q_PROPERTY(QVariantList settings READ settings NOTIFY seriesChanged)
  Q_PROPERTY(QString zoomText READ zoomText NOTIFY zoomChanged)
  Q_PROPERTY(bool zooming READ zooming NOTIFY zoomChanged)
  Q_PROPERTY(int zoomRate READ zoomRate NOTIFY graphChanged)
  Q_PROPERTY(bool canMoveLeft READ canMoveLeft NOTIFY graphChanged)
  Q_PROPERTY(bool canMoveRight READ canMoveRight NOTIFY graphChanged)
  Q_PROPERTY(QString rangeText READ rangeText NOTIFY graphChanged)

 public:
  GraphController(JournalStore& store, std::shared_ptr<UserDefaults> defaults = nullptr,
                  QObject* parent = nullptr);
  ~GraphController() override;

  bool empty() const;
  QString source() const;
  // {key, range, count, selected, color}
  QVariantList series() const;
  // {key, title, on}: "Smooth" and "Increase width".
  QVariantList settings() const;
  QString zoomText() const;
  bool zooming() const { return zooming_; }
  int zoomRate() const;
  bool canMoveLeft() const;
  bool canMoveRight() const;
  QString rangeText() const;

  // The graph item's size in points.
  Q_INVOKABLE void setViewSize(double width, double height);
  Q_INVOKABLE bool toggleSeries(const QString& key);
  Q_INVOKABLE bool setSetting(const QString& key, bool on);
  // A pinch in progress (scale > 1 zooms in), and its end.
  Q_INVOKABLE void pinch(double scale);
  Q_INVOKABLE void pinchEnd();
  // One notch of the scroll wheel: positive zooms in.
  Q_INVOKABLE void wheel(int notches);
  Q_INVOKABLE bool moveLeft();
  Q_INVOKABLE bool moveRight();
  // The page closed: the graph goes.
  Q_INVOKABLE void close() { deleteLater(); }

 Q_SIGNALS:
  // The picture, its range or the zoom changed.
  void graphChanged();
  // The chosen series or the settings changed.
  void seriesChanged();
  void zoomChanged();

 private:
  struct Bridge;
  void rebuildArea();
  void changed();

  std::unique_ptr<MoodSummaryGraphViewController> graph_;
  std::unique_ptr<MoodGraphSettingsViewController> settings_;
  std::unique_ptr<GraphScrollableArea> area_;
  std::shared_ptr<Bridge> bridge_;
  double width_ = 640;
  double height_ = 360;
  bool zooming_ = false;
  int revision_ = 0;
  QString key_;
};

}  // namespace lumeo::gui
