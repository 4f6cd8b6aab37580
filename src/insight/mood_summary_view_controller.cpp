// The Insight tab's container.
#include "insight/mood_summary_view_controller.h"

namespace lumeo {

MoodSummaryViewController::MoodSummaryViewController(JournalStore& store,
                                                     std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodSummaryViewController"),
      total_(std::make_shared<MoodSummaryTotalViewController>(store, defaults)),
      positive_(std::make_shared<MoodTopTagsViewController>(store, false, defaults)),
      negative_(std::make_shared<MoodTopTagsViewController>(store, true, defaults)) {
  total_->connectCards();
  total_->viewDidLoad();
  positive_->viewDidLoad();
  negative_->viewDidLoad();
}

void MoodSummaryViewController::appear(int page) {
  switch (page) {
    case kTotalPage:
      total_->viewWillAppear();
      total_->viewDidAppear();
      break;
    case kPositivePage:
      positive_->viewWillAppear();
      positive_->viewDidAppear();
      break;
    case kNegativePage:
      negative_->viewWillAppear();
      negative_->viewDidAppear();
      break;
  }
}

void MoodSummaryViewController::disappear(int page) {
  switch (page) {
    case kTotalPage:
      total_->viewDidDisappear();
      break;
    case kPositivePage:
      positive_->viewDidDisappear();
      break;
    case kNegativePage:
      negative_->viewDidDisappear();
      break;
  }
}

void MoodSummaryViewController::selectPage(int page) {
  if (page < kTotalPage || page > kNegativePage) return;
  if (visible_ && page != selected_) disappear(selected_);
  const bool changed = page != selected_;
  selected_ = page;
  if (visible_ && changed) appear(page);
}

void MoodSummaryViewController::viewWillAppear() {
  visible_ = true;
  appear(selected_);
}

void MoodSummaryViewController::viewDidDisappear() {
  visible_ = false;
  disappear(selected_);
}

}  // namespace lumeo
