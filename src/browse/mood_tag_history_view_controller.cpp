// One tag's history.
#include "browse/mood_tag_history_view_controller.h"

#include "browse/browse_text.h"
#include "store/journal_store.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"

namespace lumeo {

MoodTagHistoryViewController::MoodTagHistoryViewController(std::shared_ptr<MoodTag> tag,
                                                           Environment environment)
    : MoodHistoryViewController(std::move(environment), "MoodTagHistoryViewController",
                                MoodTagDeleteRecordNotification, true),
      moodTag_(std::move(tag)) {
  // The tag screen is always a list.
  selectedHistoryViewType_ = kList;
}

void MoodTagHistoryViewController::setMoodTag(std::shared_ptr<MoodTag> tag) {
  if (!tag || tag == moodTag_) return;
  moodTag_ = std::move(tag);
  selectedMoodRecordIndex_ = -1;
  reloadMoodRecords(false);
  updateDetail();
}

std::string MoodTagHistoryViewController::title() const {
  return moodTag_ ? "#" + moodTag_->tagName() : std::string();
}

std::optional<Predicate> MoodTagHistoryViewController::recordsFilterPredicate() {
  if (!moodTag_) return Predicate::falsePredicate();
  auto range = filter_.fetchRange(now());
  if (!range) return Predicate::predicateWithFormat("ANY moodTags == %@", ManagedObjectPtr(moodTag_));
  return Predicate::predicateWithFormat("(date >= %@ AND date <= %@) AND ANY moodTags == %@", range->first,
                                        range->second, ManagedObjectPtr(moodTag_));
}

std::string MoodTagHistoryViewController::titleForMoodGallery() {
  return browseText("Tag");
}

std::shared_ptr<Screen> MoodTagHistoryViewController::taggedTextViewDidSelectTag(const std::string& tagName) {
  auto tag = store().tagNamed(tagName);
  if (tag) setMoodTag(tag);
  return nullptr;
}

}  // namespace lumeo
