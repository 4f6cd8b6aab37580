// The lines of the scrollable graph: the fitted mood line with its band
// (GraphLine) and a tag's values joined as they are (GraphTagLine), each
// drawn into a box of the graph's visible range.
#pragma once

#include <array>
#include <vector>

#include "insight/graph_scrollable_area.h"
#include "platform/canvas.h"
#include "platform/color.h"

namespace lumeo {

// The tag lines' colours, given by position: red, orange, yellow, green,
// blue, indigo, violet. Single-precision values widened to double.
extern const std::array<Color, 7> kGraphTagLineColors;
const Color& graphTagLineColor(std::size_t index);

class GraphLine {
 public:
  std::vector<GraphDataObject> pointsArray;
  Color lineColor{1, 1, 1, 1};
  Date startDate;
  Date endDate;
  bool smoothed = true;        // graphSmoothed
  bool increaseWidth = false;  // graphIncreaseWidth

  // The records the line uses: the last one at or before the start, all
  // inside, and the first at or after the end, so that the line runs on
  // past the edges.
  std::vector<GraphDataObject> selectedPoints() const;
  // Draws into (0, 0, width, height) of the canvas. Returns the count of
  // singular values the fit kept (0 without points).
  long draw(Canvas& canvas, double width, double height) const;
};

class GraphTagLine {
 public:
  std::vector<GraphDataPoint> pointsArray;
  Date startDate;
  Date endDate;
  Color lineColor;

  // Positions on the 0..10 by 0..1 scale: y is the value over the largest
  // one, less 0.05, and never below 0.05.
  std::vector<std::pair<double, double>> scaledPoints() const;
  // A polyline 2 points wide; one point draws nothing.
  void draw(Canvas& canvas, double width, double height) const;
};

}  // namespace lumeo
