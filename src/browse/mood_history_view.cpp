// Grouping, headers, selection and deletion of the history bars.
#include "browse/mood_history_view.h"

#include <unicode/unistr.h>

#include <algorithm>

#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "store/mood_record.h"

namespace lumeo {

namespace {

// Each word with an upper-case first letter and the rest in lower case, as
// the headers show weekday and date.
std::string capitalized(const std::string& text) {
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
  u.toTitle(nullptr);
  std::string out;
  u.toUTF8String(out);
  return out;
}

}  // namespace

const std::vector<std::shared_ptr<MoodRecord>>* MoodHistoryView::records() const {
  if (!delegate_) return nullptr;
  return &delegate_->moodHistoryForView(const_cast<MoodHistoryView&>(*this));
}

void MoodHistoryView::reloadMoodRecords(bool force) {
  removeDateFormatter();
  moodRecordGroups_.clear();
  const auto* list = records();
  recordCount_ = list ? static_cast<long>(list->size()) : 0;
  if (list) {
    Calendar calendar = Calendar::current();
    std::optional<DateComponents> previous;
    for (std::size_t i = 0; i < list->size(); ++i) {
      auto when = (*list)[i]->date().value_or(Date());
      DateComponents c =
          calendar.components(CalendarUnit::kYear | CalendarUnit::kMonth | CalendarUnit::kDay, when);
      if (!previous || previous->year != c.year || previous->month != c.month || previous->day != c.day) {
        moodRecordGroups_.push_back(static_cast<long>(i));
      }
      previous = c;
    }
  }
  headerCache_.assign(moodRecordGroups_.size(), std::string());
  if (makingUpdates_ && !force) return;
  if (updates_.reloadData) updates_.reloadData();
}

long MoodHistoryView::numberOfRowsInSection(long section) const {
  if (section < 0 || section >= numberOfSections()) return 0;
  long start = moodRecordGroups_[section];
  long end = section + 1 < numberOfSections() ? moodRecordGroups_[section + 1] : recordCount_;
  return end - start;
}

long MoodHistoryView::indexForSection(long section, long row) const {
  if (row < 0 || row >= numberOfRowsInSection(section)) return -1;
  return moodRecordGroups_[section] + row;
}

std::pair<long, long> MoodHistoryView::sectionAndRowForIndex(long index) const {
  if (index < 0 || index >= recordCount_ || moodRecordGroups_.empty()) return {-1, -1};
  auto it = std::upper_bound(moodRecordGroups_.begin(), moodRecordGroups_.end(), index);
  long section = static_cast<long>(it - moodRecordGroups_.begin()) - 1;
  return {section, index - moodRecordGroups_[section]};
}

std::string MoodHistoryView::dateFormat(Date date) {
  DateFormatter weekday("EE");
  DateFormatter longDate;
  longDate.setDateStyle(DateFormatter::Style::kLong);
  longDate.setTimeStyle(DateFormatter::Style::kNone);
  longDate.setDoesRelativeDateFormatting(true);
  return capitalized(weekday.stringFromDate(date)) + ", " + capitalized(longDate.stringFromDate(date));
}

std::string MoodHistoryView::sectionHeaderTitle(long section) {
  if (section < 0 || section >= numberOfSections()) return {};
  if (headerCache_.size() != moodRecordGroups_.size()) headerCache_.assign(moodRecordGroups_.size(), {});
  std::string& cached = headerCache_[section];
  if (cached.empty()) {
    const auto* list = records();
    long index = moodRecordGroups_[section];
    if (!list || index >= static_cast<long>(list->size())) return {};
    cached = dateFormat((*list)[index]->date().value_or(Date()));
  }
  return cached;
}

long MoodHistoryView::indexOfIdentifier(const std::string& identifier) const {
  const auto* list = records();
  if (!list) return -1;
  for (std::size_t i = 0; i < list->size(); ++i) {
    if ((*list)[i]->uniqueIdentifier() == identifier) return static_cast<long>(i);
  }
  return -1;
}

void MoodHistoryView::setSelectedRecordWithIndex(long index, bool animated) {
  if (index < -1 || index >= recordCount_) index = -1;
  selectedRecordIndex_ = index;
  selectedRecordUniqueIdentifier_.reset();
  if (index >= 0) {
    const auto* list = records();
    if (list && index < static_cast<long>(list->size())) {
      selectedRecordUniqueIdentifier_ = (*list)[index]->uniqueIdentifier();
    }
  }
  if (updates_.selectionChanged) updates_.selectionChanged(selectedRecordIndex_, animated);
}

void MoodHistoryView::setSelectedRecordWithUniqueIdentifier(const std::string& identifier, bool animated) {
  long index = indexOfIdentifier(identifier);
  if (index >= 0) setSelectedRecordWithIndex(index, animated);
}

void MoodHistoryView::deselectRecordWithIndex(long index, bool animated) {
  if (index != selectedRecordIndex_) return;
  selectedRecordIndex_ = -1;
  selectedRecordUniqueIdentifier_.reset();
  if (updates_.selectionChanged) updates_.selectionChanged(-1, animated);
}

void MoodHistoryView::scrollToRecordToIndex(long index, bool animated, bool toMiddle) {
  if (index < 0 || index >= recordCount_) return;
  if (updates_.scrollToIndex) updates_.scrollToIndex(index, animated, toMiddle);
}

void MoodHistoryView::scrollToRecordToUniqueIdentifier(const std::string& identifier, bool animated,
                                                       bool toMiddle) {
  scrollToRecordToIndex(indexOfIdentifier(identifier), animated, toMiddle);
}

void MoodHistoryView::didSelectRowAtIndex(long index) {
  if (index < 0 || index >= recordCount_) return;
  setSelectedRecordWithIndex(index, true);
  if (delegate_) delegate_->moodHistoryViewDidChangeSelection(*this);
}

bool MoodHistoryView::deleteRecordAtIndex(long index) {
  auto [section, row] = sectionAndRowForIndex(index);
  if (section < 0) return false;
  bool wholeSection = numberOfRowsInSection(section) == 1;
  // Regroup on the delegate's shortened list without redrawing: the row
  // change below is the redraw.
  bool wasUpdating = makingUpdates_;
  makingUpdates_ = true;
  reloadMoodRecords(false);
  makingUpdates_ = wasUpdating;
  if (wholeSection) {
    if (updates_.deleteSection) updates_.deleteSection(section);
  } else if (updates_.deleteRow) {
    updates_.deleteRow(section, row);
  }
  if (selectedRecordIndex_ >= recordCount_) selectedRecordIndex_ = -1;
  return wholeSection;
}

double MoodHistoryView::autoscrollSpeedForTrackFraction(double fraction, double maximumSpeed) {
  constexpr double kLow = 0.2;
  constexpr double kHigh = 0.7999999970197678;  // 0.8 in single precision
  if (fraction < kLow) {
    double depth = (kLow - std::max(0.0, fraction)) / kLow;
    return -maximumSpeed * depth * depth;
  }
  if (fraction > kHigh) {
    double depth = (std::min(1.0, fraction) - kHigh) / (1.0 - kHigh);
    return maximumSpeed * depth * depth;
  }
  return 0;
}

}  // namespace lumeo
