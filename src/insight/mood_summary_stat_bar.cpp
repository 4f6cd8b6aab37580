// The average bar's rule.
#include "insight/mood_summary_stat_bar.h"

#include "capture/mood_levels_presentation.h"
#include "platform/localization.h"
#include "platform/string_format.h"

namespace lumeo {

MoodSummaryStatBar::MoodSummaryStatBar(std::string title) : title_(std::move(title)) {
  setMoodLevel(-1);
}

void MoodSummaryStatBar::setMoodLevel(double level) {
  level_ = level;
  if (!(level >= 0)) {  // negative, or not a number
    barHidden_ = true;
    levelText_.clear();
    barLength_ = 0;
    return;
  }
  barHidden_ = false;
  levelText_ = stringWithFormat("%.1lf", level);
  barLength_ = kPointsPerLevel * level;
  barColor_ = MoodLevelsPresentation::defaultMoodLevels().interpolatedColorForMoodLevel(level).value_or(
      Color(1, 1, 1, 1));
}

std::string MoodSummaryStatBar::notEnoughDataText() {
  return localized("Not enough data");
}

}  // namespace lumeo
