// One average bar of the summary ("Total", "Last week", "Last month") as
// state: hidden with its not-enough-data label for a negative level, else a
// bar whose length grows with the level, the level printed with one
// decimal and the bar coloured by the level's interpolated colour.
#pragma once

#include <string>

#include "platform/color.h"

namespace lumeo {

class MoodSummaryStatBar {
 public:
  // Bar length per level on the base screen size, in points.
  static constexpr double kPointsPerLevel = 20.0;

  explicit MoodSummaryStatBar(std::string title = {});

  // −1 (any negative value) hides the bar and shows the not-enough-data
  // label. A bar starts that way.
  void setMoodLevel(double level);

  const std::string& title() const { return title_; }
  double moodLevel() const { return level_; }
  bool barHidden() const { return barHidden_; }
  bool notEnoughDataLabelVisible() const { return barHidden_; }
  // "%.1lf" of the level; empty while hidden.
  const std::string& levelText() const { return levelText_; }
  double barLength() const { return barLength_; }
  const Color& barColor() const { return barColor_; }
  // The text of the not-enough-data label.
  static std::string notEnoughDataText();

 private:
  std::string title_;
  double level_ = -1;
  bool barHidden_ = true;
  std::string levelText_;
  double barLength_ = 0;
  Color barColor_;
};

}  // namespace lumeo
