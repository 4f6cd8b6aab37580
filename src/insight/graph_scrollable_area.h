// The scrollable graph's data and range: which stretch of the journal is
// visible, how far it can be zoomed and panned, and where the axis labels
// go. The picture itself is drawn by GraphLine and GraphTagLine; this class
// holds no pixels, so that the GUI's gestures and `lumeo graph` share it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/canvas.h"
#include "platform/date.h"

namespace lumeo {

class MoodRecord;
class GraphScrollableArea;

// A record on the graph.
struct GraphDataObject {
  Date time;
  long level = 0;
  std::shared_ptr<MoodRecord> record;  // may be null for data made by hand
};

// One value of a tag line.
struct GraphDataPoint {
  Date time;
  double value = 0;
  friend bool operator==(const GraphDataPoint&, const GraphDataPoint&) = default;
};

// One tag line as the area keeps it: its points in time order and colour.
struct GraphTagSeries {
  std::string key;  // "sleep:h"
  std::vector<GraphDataPoint> points;
  Color color;
};

class GraphScrollableAreaDelegate {
 public:
  virtual ~GraphScrollableAreaDelegate() = default;
  virtual void graphScrollableViewDidChangeZoomRate(GraphScrollableArea&, long zoomRate) { (void)zoomRate; }
  virtual void graphScrollableViewDidStartUpdateZoomRate(GraphScrollableArea&) {}
  virtual void graphScrollableViewDidEndUpdateZoomRate(GraphScrollableArea&) {}
  virtual void graphScrollableViewDidStartRedraw(GraphScrollableArea&) {}
  virtual void graphScrollableViewDidEndRedraw(GraphScrollableArea&) {}
  virtual void graphScrollableViewWillUpdateFrame(GraphScrollableArea&, const Rect& frame) { (void)frame; }
};

// An axis label with its grid line.
struct GraphAxisLabel {
  double x = 0;  // points from the left edge of the view
  Date date;
  std::string text;  // empty when left out for crowding
};

class GraphScrollableArea {
 public:
  static constexpr double kMinimumZoomRate = 10.0;
  // Seconds from a limit within which a pan counts as having reached it.
  static constexpr double kLimitTolerance = 60.0;
  // Points of the view's width that the axis margin takes.
  static constexpr double kWidthMargin = 28.0;
  // A label closer than this to the previous one is left out.
  static constexpr double kLabelSpacing = 3.0;

  // The records in date order; the range runs from the start of the first
  // record's day to the end of the last one's (one day at least).
  GraphScrollableArea(std::vector<GraphDataObject> objects, double viewWidth);

  void setDelegate(std::weak_ptr<GraphScrollableAreaDelegate> delegate) { delegate_ = std::move(delegate); }

  const std::vector<GraphDataObject>& objectsArray() const { return objects_; }
  const std::vector<GraphTagSeries>& tagsArray() const { return tags_; }
  void updateTags(std::vector<GraphTagSeries> tags);

  Date startDate() const { return Date::fromTimeIntervalSince1970(static_cast<double>(startUNIXDate_)); }
  Date endDate() const { return Date::fromTimeIntervalSince1970(static_cast<double>(endUNIXDate_)); }
  std::int64_t startUNIXDate() const { return startUNIXDate_; }
  std::int64_t endUNIXDate() const { return endUNIXDate_; }
  Date minimumDate() const { return minimumDate_; }
  Date maximumDate() const { return maximumDate_; }
  long numberOfDays() const { return numberOfDays_; }
  double minimumZoomRate() const { return kMinimumZoomRate; }
  double maximumZoomRate() const { return static_cast<double>(numberOfDays_); }
  long zoomRate() const { return zoomRate_; }
  long newZoomRate() const { return newZoomRate_; }
  double viewWidth() const { return viewWidth_; }
  bool empty() const { return objects_.empty(); }

  // Points per day at the current zoom, and the whole days that fit in a
  // width (less the margin).
  double dayInterval() const;
  long numberOfDaysInWidth(double width) const;

  // Adjusts the frame and recomputes the start from the end date.
  void reload();
  // The visible range ends at the newest record's day.
  void scrollToRecentObjects();
  // Shows exactly this range (a command line's --from/--to); false when it
  // is empty or reversed.
  bool setVisibleRange(Date from, Date to);

  // Pans by the range's own span, stopping at the limits; false when
  // already there (within 60 seconds).
  bool canMoveLeft() const;
  bool canMoveRight() const;
  bool tryMoveLeft();
  bool tryMoveRight();

  // A pinch: the zoom the gesture would give, clamped to the limits, and
  // the text shown meanwhile ("%ld days").
  void pinchChanged(double scale);
  std::string zoomText() const;
  // The pinch ended: a changed zoom is applied when within the limits.
  void pinchEnded();
  // Accepts a zoom within the limits; false otherwise.
  bool setZoomRate(long rate);

  // The axis: the unit step (1 days, 2 months, 3 quarters, 4 years) for the
  // visible span, and the labels across `width` points.
  static int axisUnitStep(long spanDays);
  std::vector<GraphAxisLabel> axisLabels(Canvas& measure, const Font& font, double width) const;

 private:
  void recalculateStartDate();

  std::vector<GraphDataObject> objects_;
  std::vector<GraphTagSeries> tags_;
  std::weak_ptr<GraphScrollableAreaDelegate> delegate_;
  Date minimumDate_;
  Date maximumDate_;
  std::int64_t startUNIXDate_ = 0;
  std::int64_t endUNIXDate_ = 0;
  long numberOfDays_ = 1;
  long zoomRate_ = 1;
  long newZoomRate_ = 1;
  double viewWidth_ = 0;
};

}  // namespace lumeo
