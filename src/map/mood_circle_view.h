// The picture of one map pin: a white disc with the cluster's moods on it,
// either as a pie (one equal slice per mood, in ascending level order, each
// in its level's colour) or as one circle in the colour of the average
// level, and the number of records in white bold over it. Drawn on a Canvas
// so that the GUI, the command line and the tests show the same pixels.
#pragma once

#include <cstddef>
#include <vector>

#include "capture/mood_levels_presentation.h"
#include "platform/canvas.h"

namespace lumeo {

class MoodCircleView {
 public:
  // The pin's size in points; the GUI scales it with the screen.
  static constexpr double kSize = 40.0;
  // The white rim around the moods.
  static constexpr double kRim = 2.5;
  static constexpr double kCountFontSize = 12.0;

  // Levels in ascending order (moodsArrayForClusterAnnotation gives them so).
  std::vector<long> moodArray;
  // The records in the pin; usually moodArray's size.
  std::size_t count = 0;
  bool averageCircle = false;

  // Draws into `rect` of the canvas, without antialiasing, as the pins have
  // always looked. An empty mood list draws only the rim and the count.
  void drawRect(Canvas& canvas, const Rect& rect, const MoodLevelsPresentation& levels) const;
  // The pin alone on a transparent square of kSize × scale pixels.
  Image image(const MoodLevelsPresentation& levels, double scale = 1.0) const;
};

}  // namespace lumeo
