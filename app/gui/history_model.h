// The History tab's bars as a list model: one row per record, oldest first,
// as the history controller holds them. Everything a row shows is read on
// demand from that row's record (its day's title from the day grouping by a
// binary search), so a journal of 100,000 records costs nothing until rows
// are on screen, and flicking touches only the rows that show.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "capture/mood_levels_presentation.h"
#include "list_model.h"
#include "platform/date_formatter.h"

namespace lumeo {
class MoodHistoryViewController;
class MoodRecord;
}  // namespace lumeo

namespace lumeo::gui {

class HistoryModel : public ListModel {
  Q_OBJECT

 public:
  enum Role {
    LevelRole = Qt::UserRole + 1,
    LevelTextRole,
    ColorRole,
    TimeRole,
    DayTitleRole,
    FirstOfDayRole,
    CommentRole,
    HasPhotoRole,
    SelectedRole,
  };

  explicit HistoryModel(MoodHistoryViewController& controller, QObject* parent = nullptr);

  QVariant data(const QModelIndex& index, int role) const override;

  // The controller's list changed as a whole.
  void reset();
  // One row went (the controller's list has already lost it).
  void removeRecordAt(long index);
  // The selected row moved.
  void selectionChanged(long oldIndex, long newIndex);
  // The level table or the locale changed.
  void refreshLooks();

 private:
  MoodHistoryViewController& controller_;
  // The rows as the view last heard of them: the controller's list loses a
  // record before it says which row went, and the view must see the old
  // rows until the removal is announced. Pointers only: the records are
  // the controller's.
  std::vector<std::shared_ptr<MoodRecord>> rows_;
  // What a row shows of its record's description, read once per row: each
  // read of the description is a query on the journal file. Only rows
  // that were shown are here, and the cache is dropped when it grows past
  // a few screens or the rows change.
  struct Extras {
    QString comment;
    bool hasPhoto = false;
  };
  const Extras& extras(const MoodRecord* record) const;
  mutable std::unordered_map<const MoodRecord*, Extras> extras_;
  MoodLevelsPresentation levels_;
  DateFormatter timeFormatter_;
};

}  // namespace lumeo::gui
