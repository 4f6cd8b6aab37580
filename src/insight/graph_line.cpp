// Drawing of the graph's mood line and tag lines. Both place a point at
// x = 10 · (t − start) / (span + 0.02) on the fit's 0..10 scale, so the
// mood line's neighbours just outside the range land just outside the box.
#include "insight/graph_line.h"

#include <algorithm>
#include <cmath>

#include "insight/mood_draw_chart.h"
#include "insight/spline_fit.h"

namespace lumeo {

const std::array<Color, 7> kGraphTagLineColors = {
    Color(1, 0, 0, 1),
    Color(1, 0.49803921580314636, 0, 1),
    Color(1, 1, 0, 1),
    Color(0, 1, 0, 1),
    Color(0, 0, 1, 1),
    Color(0.29411765933036804, 0, 0.5098039507865906, 1),
    Color(0.5607843399047852, 0, 1, 1),
};

const Color& graphTagLineColor(std::size_t index) {
  return kGraphTagLineColors[index % kGraphTagLineColors.size()];
}

namespace {

double scaledX(Date t, Date start, double span) {
  return 10.0 * t.timeIntervalSinceDate(start) / (span + 0.02);
}

}  // namespace

std::vector<GraphDataObject> GraphLine::selectedPoints() const {
  std::vector<GraphDataObject> out;
  const GraphDataObject* before = nullptr;
  const GraphDataObject* after = nullptr;
  for (const GraphDataObject& o : pointsArray) {
    if (o.time <= startDate && (!before || o.time >= before->time)) before = &o;
    if (o.time >= endDate && (!after || o.time < after->time)) after = &o;
  }
  if (before) out.push_back(*before);
  for (const GraphDataObject& o : pointsArray) {
    if (o.time > startDate && o.time < endDate) out.push_back(o);
  }
  // A record at exactly the end is both "inside or at" and the first after
  // it; it is taken once.
  if (after && after != before) out.push_back(*after);
  std::stable_sort(out.begin(), out.end(),
                   [](const GraphDataObject& a, const GraphDataObject& b) { return a.time < b.time; });
  return out;
}

long GraphLine::draw(Canvas& canvas, double width, double height) const {
  const std::vector<GraphDataObject> points = selectedPoints();
  if (points.empty()) return 0;
  const double W = width;
  const double H = height;
  const double span = endDate.timeIntervalSinceDate(startDate);
  std::vector<double> xs;
  std::vector<double> ys;
  for (const GraphDataObject& p : points) {
    xs.push_back(scaledX(p.time, startDate, span));
    ys.push_back((static_cast<double>(p.level) - 0.5) / 10.0);
  }
  const SplineBand band = splineBand(static_cast<long>(xs.size()), xs.data(), ys.data(), 14);

  canvas.saveState();
  canvas.translate(0, H);
  canvas.scale(1, -1);
  const Color shade(0, 0, 0, 0.05);
  const bool white = lineColor == Color(1, 1, 1, 1);
  if (white) {
    Path upper;
    Path lower;
    upper.moveTo({-100, H + 100});
    lower.moveTo({-100, -100});
    for (int k = 0; k < kSplineGridPoints; ++k) {
      const double x = W / 10.0 * band.x[k];
      upper.lineTo({x, H * (band.curve[k] + band.halfWidth[k])});
      lower.lineTo({x, H * (band.curve[k] - band.halfWidth[k])});
    }
    upper.lineTo({W + 100, H + 100});
    upper.closePath();
    lower.lineTo({W + 100, -100});
    lower.closePath();
    const double edge = increaseWidth ? 0.4 : 0.2;
    canvas.fillPath(upper, shade);
    canvas.fillPath(lower, shade);
    canvas.strokePath(upper, lineColor, edge, LineJoin::kRound);
    canvas.strokePath(lower, lineColor, edge, LineJoin::kRound);
  }

  Path line;
  double lineWidth = 1.0;
  if (smoothed) {
    lineWidth = increaseWidth ? 2.0 : 1.0;
    line.moveTo({0, H * band.curve[0]});
    for (int k = 1; k < kSplineGridPoints; ++k) line.lineTo({W / 10.0 * band.x[k], H * band.curve[k]});
  } else {
    std::vector<std::pair<double, double>> sorted;
    for (std::size_t i = 0; i < xs.size(); ++i) sorted.emplace_back(xs[i], ys[i]);
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 0; i < sorted.size(); ++i) {
      const Point p{W / 10.0 * sorted[i].first, H * sorted[i].second};
      if (i == 0) {
        line.moveTo(p);
      } else {
        line.lineTo(p);
      }
    }
  }
  canvas.strokePath(line, lineColor, lineWidth, LineJoin::kRound);
  std::vector<Point> centres;
  for (std::size_t i = 0; i < xs.size(); ++i) centres.push_back({W / 10.0 * xs[i], H * ys[i]});
  canvas.fillPath(recordDotsPath(std::move(centres), 2.0), lineColor);
  canvas.restoreState();
  return band.count;
}

std::vector<std::pair<double, double>> GraphTagLine::scaledPoints() const {
  std::vector<std::pair<double, double>> out;
  double largest = 0;
  for (const GraphDataPoint& p : pointsArray) largest = std::max(largest, p.value);
  const double span = endDate.timeIntervalSinceDate(startDate);
  for (const GraphDataPoint& p : pointsArray) {
    // All values 0 (or none above): the floor, rather than 0 / 0.
    const double ratio = largest > 0 ? p.value / largest : 0.0;
    out.emplace_back(scaledX(p.time, startDate, span), std::max(ratio - 0.05, 0.05));
  }
  return out;
}

void GraphTagLine::draw(Canvas& canvas, double width, double height) const {
  const auto points = scaledPoints();
  if (points.size() < 2) return;  // a polyline of one move draws nothing
  Path path;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Point p{width / 10.0 * points[i].first, height - height * points[i].second};
    if (i == 0) {
      path.moveTo(p);
    } else {
      path.lineTo(p);
    }
  }
  canvas.strokePath(path, lineColor, 2.0, LineJoin::kRound);
}

}  // namespace lumeo
