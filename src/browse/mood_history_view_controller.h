// The History tab's controller: the records shown (all of them, or a period
// in list mode), the tag filter of the calendar mode, the selected record and
// its detail pane, the share sheet and the deletion of records. The tag and
// day screens are subclasses that change only the fetch, the kind of share
// sheet and how a deletion reaches them. The front end draws the bars
// (MoodHistoryView), the pane and the sheets from what this class says.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "browse/mood_gallery_view_controller.h"
#include "browse/mood_history_filter.h"
#include "browse/mood_history_view.h"
#include "objectgraph/predicate.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class MoodRecord;
class MoodTag;
class UserDefaults;
class MoodGalleryViewController;
class MoodTagHistoryViewController;
class MoodDateHistoryViewController;

// What the detail pane shows for the selected record.
struct MoodHistoryDetail {
  bool hasRecord = false;
  std::string comment;   // through the tagged text view
  std::string dateText;  // short date and time, with relative names
  std::optional<std::string> thumbName;
  // The thumbnail's file; absent when there is none or it is not there
  // (yet: a sync may still bring it, see imageUpdated).
  std::optional<std::filesystem::path> thumbFile;
  bool photoVisible = false;  // photo view, its overlay and its button
  bool editedLabelVisible = false;
  // The tagged text's line limits: with a photo, the first lines leave
  // room for it.
  long maxLinesCount = 100;
  long shortLinesCount = 0;
  double shortLinesIndent = 0;
};

inline constexpr long kMoodHistoryMaxLines = 100;
inline constexpr long kMoodHistoryShortLines = 4;
inline constexpr double kMoodHistoryShortLinesIndent = 116.0;

// The front end's side of the screen; every call is optional.
class MoodHistoryViewControllerView {
 public:
  virtual ~MoodHistoryViewControllerView() = default;
  virtual void showDetail(const MoodHistoryDetail& detail) { (void)detail; }
  // The thumbnail of the shown record arrived (a sync saved it).
  virtual void imageUpdated(const std::filesystem::path& file) { (void)file; }
  virtual void showFilterButton(const std::string& imageName) { (void)imageName; }
  // Calendar mode: the calendar shows only days with these tags (none:
  // all) and is redrawn.
  virtual void reloadCalendar(const std::vector<std::shared_ptr<MoodTag>>& tags) { (void)tags; }
  virtual void scrollCalendarToCurrentMonth() {}
  // The period and tag sheets close.
  virtual void closeSheets() {}
};

// Where the history screens reach the journal and the application. Unset
// members use the running application object.
struct MoodHistoryEnvironment {
  JournalStore* store = nullptr;
  std::shared_ptr<UserDefaults> defaults;
  std::function<void()> saveContext;
  std::function<void()> showCaptureTab;
  std::function<void(const std::shared_ptr<MoodRecord>&, int chooseAction)> chooseActionForRecord;
  std::function<Date()> now;
};

class MoodHistoryViewController : public MoodViewController,
                                  public MoodHistoryViewDelegate,
                                  public MoodGalleryViewControllerDelegate {
 public:
  enum HistoryViewType { kList = 0, kCalendar = 1 };

  using Environment = MoodHistoryEnvironment;

  explicit MoodHistoryViewController(Environment environment = {});
  ~MoodHistoryViewController() override;

  void setView(MoodHistoryViewControllerView* view) { view_ = view; }
  MoodHistoryView& historyView() { return historyView_; }

  // --- Life cycle -------------------------------------------------------------
  // The view exists: changes now reload at once instead of on appearing.
  void viewDidLoad();
  bool isViewLoaded() const { return viewLoaded_; }
  void viewWillAppear();
  void viewWillDisappear();

  // --- Records --------------------------------------------------------------------
  // The fetch's condition; nothing for all records.
  virtual std::optional<Predicate> recordsFilterPredicate();
  // Refetches, regroups, clamps the selection and scrolls to it; with
  // `keepByIdentifier` the scroll follows the selected record's identity.
  void reloadMoodRecords(bool keepByIdentifier);
  const std::vector<std::shared_ptr<MoodRecord>>& moodRecords() const { return moodRecords_; }
  bool dataUpToDate() const { return dataUpToDate_; }

  // --- Selection and the detail pane ------------------------------------------
  // An index into moodRecords, -1 for none, or -2 to refetch and select
  // selectedMoodRecordUniqueIdentifier.
  static constexpr long kSelectByIdentifier = -2;
  void setSelectedMoodRecordIndex(long index);
  long selectedMoodRecordIndex() const { return selectedMoodRecordIndex_; }
  void setSelectedMoodRecordUniqueIdentifier(std::optional<std::string> identifier) {
    selectedMoodRecordUniqueIdentifier_ = std::move(identifier);
  }
  const std::optional<std::string>& selectedMoodRecordUniqueIdentifier() const {
    return selectedMoodRecordUniqueIdentifier_;
  }
  std::shared_ptr<MoodRecord> selectedRecord() const;
  // Reloads if out of date, selects the record and centres it.
  void selectMoodRecord(const std::shared_ptr<MoodRecord>& record) override;
  const MoodHistoryDetail& detail() const { return detail_; }
  // The detail pane for a record (nothing: an empty pane).
  static MoodHistoryDetail detailForRecord(const std::shared_ptr<MoodRecord>& record);

  // --- Actions ----------------------------------------------------------------------
  // The share sheet with Edit and Delete for the selected record.
  void chooseAction() override;
  // The gallery opened from here is titled after this screen.
  std::string titleForMoodGallery() override;
  // 1 on the History tab, 2 on the tag and day screens.
  virtual int chooseActionKind() const { return 1; }
  // A shake asks for the deletion of the selected record.
  void motionEnded(bool shake);
  // The photo's gallery: every shown record with a photo, at the selected
  // one, titled "History". Pushed on the navigation stack when there is one.
  std::shared_ptr<MoodGalleryViewController> photoTouchUpInside();
  // A tag tapped in the comment: that tag's history. Nothing for a name
  // that is no tag.
  virtual std::shared_ptr<Screen> taggedTextViewDidSelectTag(const std::string& tagName);

  // --- Deletion ---------------------------------------------------------------------
  // Deletes the record with its description (and so its pictures), selects
  // its neighbour, and goes to capture when none is left. A record that is
  // not shown here is left alone.
  void deleteRecord(const std::shared_ptr<MoodRecord>& record);
  void deleteCurrentRecord();
  void deleteAllRecords();

  // --- Period filter (list mode) -------------------------------------------------
  MoodHistoryPeriodFilter& filter() { return filter_; }
  bool isFiltered() const { return filter_.isFiltered; }
  // Opens the period sheet: a missing bound makes it the whole journal.
  void openPeriodFilter();
  void setEditingBound(int dateEnum) { filter_.dateEnum = dateEnum; }
  void periodDateSelected(Date picked);
  void filterDoneClicked();
  void filterResetClicked();
  void clearFilter();
  // A restored backup: no filter, and reload.
  void filterReset();

  // --- Tag filter (calendar mode) ---------------------------------------------------
  // All tags, most used first, fetched on first use.
  const std::vector<std::shared_ptr<MoodTag>>& tags();
  const std::vector<std::shared_ptr<MoodTag>>& selectedTags() const { return selectedTags_; }
  void toggleSelectedTag(const std::shared_ptr<MoodTag>& tag);
  void tagFilterDoneClicked();

  // --- List or calendar ---------------------------------------------------------------
  int selectedHistoryViewType() const { return selectedHistoryViewType_; }
  // Stored in the defaults; empties the tag filter and closes the sheets.
  void setSelectedHistoryViewType(int type);
  // The list, without changing the stored choice: for front ends that have
  // no calendar beside the list (the command line).
  void useListMode() { selectedHistoryViewType_ = kList; }
  // A day of the calendar was tapped: its day screen when it has records.
  std::shared_ptr<MoodDateHistoryViewController> didCalendarViewPressed(long year, long month, long day,
                                                                        bool exist);

  // --- Refresh ----------------------------------------------------------------------
  void invalidate();
  void didSyncEnd();

  // MoodHistoryViewDelegate.
  const std::vector<std::shared_ptr<MoodRecord>>& moodHistoryForView(MoodHistoryView& view) override;
  void moodHistoryViewDidChangeSelection(MoodHistoryView& view) override;

 protected:
  // Subclasses hear their deletions under another name.
  MoodHistoryViewController(Environment environment, std::string className, std::string deleteNotification,
                            bool deleteOnlyWhenAsked);

  JournalStore& store() const;
  Date now() const;
  // Pushes on the navigation stack holding this screen, if any.
  void push(const std::shared_ptr<Screen>& screen);
  // "(date >= %@ AND date <= %@)" over the filter's range, if it has one.
  std::optional<Predicate> periodPredicate();
  void performInvalidate();
  void updateDetail();

  Environment env_;
  MoodHistoryViewControllerView* view_ = nullptr;
  MoodHistoryView historyView_;
  std::vector<std::shared_ptr<MoodRecord>> moodRecords_;
  long selectedMoodRecordIndex_ = -1;
  std::optional<std::string> selectedMoodRecordUniqueIdentifier_;
  int selectedHistoryViewType_ = kList;
  MoodHistoryPeriodFilter filter_;
  std::vector<std::shared_ptr<MoodTag>> selectedTags_;
  std::optional<std::vector<std::shared_ptr<MoodTag>>> tags_;
  bool dataUpToDate_ = false;
  bool viewLoaded_ = false;
  MoodHistoryDetail detail_;
  std::optional<std::string> selectedImageName_;
  // The deletion that the share sheet or a shake asked for on this screen.
  bool deletionAsked_ = false;
  bool deleteOnlyWhenAsked_ = false;
  std::vector<ScopedObserver> observers_;
  std::vector<ScopedObserver> syncObservers_;
};

}  // namespace lumeo
