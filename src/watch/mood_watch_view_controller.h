// The watch's settings screen: two switches that let the watch skip its
// dictation step and its hashtag step. A change goes to the watch at once.
#pragma once

#include <string>
#include <vector>

#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodWatchViewController : public MoodViewController {
 public:
  static constexpr int kSkipDictationRow = 0;
  static constexpr int kSkipHashtagsRow = 1;

  MoodWatchViewController() : MoodViewController("MoodWatchViewController") {}

  // The rows' localised labels, in order.
  static std::vector<std::string> rowTitles();
  bool isRowOn(int row) const;
  // A switch changed: stores the value and sends the steps to the watch.
  void switchChanged(int row, bool on);
};

}  // namespace lumeo
