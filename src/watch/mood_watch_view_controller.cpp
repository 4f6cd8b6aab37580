#include "watch/mood_watch_view_controller.h"

#include "platform/localization.h"
#include "watch/mood_watch_helper.h"

namespace lumeo {

std::vector<std::string> MoodWatchViewController::rowTitles() {
  return {localized("Skip dictation step"), localized("Skip hashtags step")};
}

bool MoodWatchViewController::isRowOn(int row) const {
  MoodWatchHelper& helper = MoodWatchHelper::sharedHelper();
  if (row == kSkipDictationRow) return helper.skipDictation();
  if (row == kSkipHashtagsRow) return helper.skipHashtags();
  return false;
}

void MoodWatchViewController::switchChanged(int row, bool on) {
  MoodWatchHelper& helper = MoodWatchHelper::sharedHelper();
  if (row == kSkipDictationRow) {
    helper.setSkipDictation(on);
  } else if (row == kSkipHashtagsRow) {
    helper.setSkipHashtags(on);
  } else {
    return;
  }
  helper.saveSteps();
}

}  // namespace lumeo
