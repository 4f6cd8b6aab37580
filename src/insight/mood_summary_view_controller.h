// The Insight tab: a container of three pages chosen by a button group,
// the averages and charts, the positive tags and the negative tags.
#pragma once

#include <memory>

#include "insight/mood_summary_total_view_controller.h"
#include "insight/mood_top_tags_view_controller.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodSummaryViewController : public MoodViewController {
 public:
  enum Page { kTotalPage = 0, kPositivePage = 1, kNegativePage = 2 };

  MoodSummaryViewController(JournalStore& store, std::shared_ptr<UserDefaults> defaults = nullptr);

  MoodSummaryTotalViewController& total() { return *total_; }
  MoodTopTagsViewController& positive() { return *positive_; }
  MoodTopTagsViewController& negative() { return *negative_; }
  std::shared_ptr<MoodSummaryTotalViewController> totalController() const { return total_; }

  int selectedPage() const { return selected_; }
  // The button group: shows the page (the old one disappears, the new one
  // appears and reloads if stale). Out-of-range indexes are ignored.
  void selectPage(int page);
  void viewWillAppear();
  void viewDidDisappear();

 private:
  void appear(int page);
  void disappear(int page);

  std::shared_ptr<MoodSummaryTotalViewController> total_;
  std::shared_ptr<MoodTopTagsViewController> positive_;
  std::shared_ptr<MoodTopTagsViewController> negative_;
  int selected_ = kTotalPage;
  bool visible_ = false;
};

}  // namespace lumeo
