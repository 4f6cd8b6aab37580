// The tag row's texts, count font and buttons.
#include "capture/mood_tag_table_view_cell.h"

#include "store/mood_tag.h"

namespace lumeo {

double MoodTagTableViewCell::countFontSizeForFrequency(long frequency) {
  if (frequency >= 1000) return 10;
  if (frequency >= 100) return 13;
  return 15;
}

void MoodTagTableViewCell::setMoodTag(const std::shared_ptr<MoodTag>& tag) {
  moodTag_ = tag;
  if (!tag) {
    name_.clear();
    unit_.clear();
    frequency_.clear();
    countFontSize_ = 15;
    return;
  }
  name_ = tag->tagName();
  unit_ = tag->tagUnit().value_or("");
  frequency_ = std::to_string(tag->frequency());
  countFontSize_ = countFontSizeForFrequency(tag->frequency());
}

void MoodTagTableViewCell::firstButtonClicked() {
  auto delegate = delegate_.lock();
  if (auto tag = moodTag_.lock(); delegate && tag) delegate->tagEdit(tag);
}

void MoodTagTableViewCell::deleteButtonClicked() {
  auto delegate = delegate_.lock();
  if (auto tag = moodTag_.lock(); delegate && tag) delegate->tagDelete(tag);
}

}  // namespace lumeo
