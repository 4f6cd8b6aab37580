// The logic of the history bars: the records of the list grouped by day into
// sections, the section headers, the selected record (by index or by
// identifier) and the row and section changes of a deletion. The front end
// draws the bars from what this class says and tells it what the user
// touched; the controller fills it through the delegate.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"

namespace lumeo {

class MoodRecord;
class MoodHistoryView;

class MoodHistoryViewDelegate {
 public:
  virtual ~MoodHistoryViewDelegate() = default;
  // The records to show, ascending by date.
  virtual const std::vector<std::shared_ptr<MoodRecord>>& moodHistoryForView(MoodHistoryView& view) = 0;
  virtual void moodHistoryViewDidChangeSelection(MoodHistoryView& view) = 0;
};

// What the drawing side must do when the logic changes; all optional.
struct MoodHistoryViewUpdates {
  // Redraw every section.
  std::function<void()> reloadData;
  // Remove one row, or a whole section when its last row went.
  std::function<void(long section, long row)> deleteRow;
  std::function<void(long section)> deleteSection;
  // Bring the record at `index` into view, centred when `toMiddle`.
  std::function<void(long index, bool animated, bool toMiddle)> scrollToIndex;
  // The selection changed to `index` (-1: none).
  std::function<void(long index, bool animated)> selectionChanged;
};

class MoodHistoryView {
 public:
  // The bars start this far from the grid lines.
  static constexpr double kGridLinesViewPosShift = 25.0;

  MoodHistoryView() { moodRecordGroups_.reserve(64); }

  void setDelegate(MoodHistoryViewDelegate* delegate) { delegate_ = delegate; }
  void setUpdates(MoodHistoryViewUpdates updates) { updates_ = std::move(updates); }

  // Regroups the delegate's records by calendar day. While an update is
  // open and `force` is false, the table is not redrawn.
  void reloadMoodRecords(bool force);

  // Index in the record list of the first record of each day.
  const std::vector<long>& moodRecordGroups() const { return moodRecordGroups_; }
  long numberOfSections() const { return static_cast<long>(moodRecordGroups_.size()); }
  long numberOfRowsInSection(long section) const;
  // Record index of a row, and the section and row of a record index; -1
  // (or {-1, -1}) when out of range.
  long indexForSection(long section, long row) const;
  std::pair<long, long> sectionAndRowForIndex(long index) const;
  // "Sun, Today": the weekday ("EE") and the long date with relative
  // names, both capitalised. The formatter is made once and dropped by
  // removeDateFormatter (on a change of locale, zone or day).
  std::string sectionHeaderTitle(long section);
  static std::string dateFormat(Date date);
  void removeDateFormatter() { headerCache_.clear(); }
  // The slider is hidden when there is nothing to slide over.
  bool isSliderHidden() const { return moodRecordGroups_.empty(); }

  // --- Selection ------------------------------------------------------------
  long selectedRecordIndex() const { return selectedRecordIndex_; }
  const std::optional<std::string>& selectedRecordUniqueIdentifier() const {
    return selectedRecordUniqueIdentifier_;
  }
  void setSelectedRecordWithIndex(long index, bool animated);
  void setSelectedRecordWithUniqueIdentifier(const std::string& identifier, bool animated);
  void deselectRecordWithIndex(long index, bool animated);
  void scrollToRecordToIndex(long index, bool animated, bool toMiddle);
  void scrollToRecordToUniqueIdentifier(const std::string& identifier, bool animated, bool toMiddle);
  // The user touched a bar: select it and tell the delegate.
  void didSelectRowAtIndex(long index);

  // --- Updates --------------------------------------------------------------
  void beginUpdate() { makingUpdates_ = true; }
  void endUpdate() { makingUpdates_ = false; }
  bool makingUpdates() const { return makingUpdates_; }
  // Removes the row of the record at `index` (the delegate's list has
  // already lost it), or its section when it was the last of its day.
  // Returns true when a whole section went.
  bool deleteRecordAtIndex(long index);

  // --- Continuous selection on the slider --------------------------------------
  // Autoscroll speed for a touch at `fraction` (0..1) along the track: 0
  // in the middle, growing with the square of the distance into the outer
  // fifth at either end; negative toward the start.
  static double autoscrollSpeedForTrackFraction(double fraction, double maximumSpeed);

 private:
  const std::vector<std::shared_ptr<MoodRecord>>* records() const;
  long indexOfIdentifier(const std::string& identifier) const;

  MoodHistoryViewDelegate* delegate_ = nullptr;
  MoodHistoryViewUpdates updates_;
  std::vector<long> moodRecordGroups_;
  long recordCount_ = 0;
  long selectedRecordIndex_ = -1;
  std::optional<std::string> selectedRecordUniqueIdentifier_;
  bool makingUpdates_ = false;
  std::vector<std::string> headerCache_;
};

}  // namespace lumeo
