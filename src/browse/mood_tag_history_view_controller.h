// The history of one tag: the History tab's list and detail pane over the
// records holding the tag (within a period, if one is set). Tapping another
// tag in a comment switches this screen to that tag; its gallery is titled
// "Tag"; its share sheet offers Edit only, and its deletions arrive under
// their own notification, which only the screen that asked acts on.
#pragma once

#include <memory>

#include "browse/mood_history_view_controller.h"

namespace lumeo {

class MoodTagHistoryViewController : public MoodHistoryViewController {
 public:
  MoodTagHistoryViewController(std::shared_ptr<MoodTag> tag, Environment environment = {});

  const std::shared_ptr<MoodTag>& moodTag() const { return moodTag_; }
  // Another tag refetches; the same tag does nothing.
  void setMoodTag(std::shared_ptr<MoodTag> tag);
  // The screen's title: the tag's text.
  std::string title() const;

  std::optional<Predicate> recordsFilterPredicate() override;
  int chooseActionKind() const override { return 2; }
  std::string titleForMoodGallery() override;
  // Another tag replaces this screen's tag; the same one does nothing.
  std::shared_ptr<Screen> taggedTextViewDidSelectTag(const std::string& tagName) override;

 private:
  std::shared_ptr<MoodTag> moodTag_;
};

}  // namespace lumeo
