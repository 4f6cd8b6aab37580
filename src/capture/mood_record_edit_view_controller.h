// The record editor's logic: the pair of states that decides what Cancel
// does, the text with its cursor (tag completion, the unit offered after
// "#name:"), pictures, the date picker, save, done and cancel, and the tag
// panel that renames or deletes a tag across the journal. The view shows
// what the controller says through MoodRecordEditView.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/mood_record_state.h"
#include "capture/regular_expression.h"
#include "capture/suggested_tags.h"
#include "platform/date.h"
#include "platform/image.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodRecord;
class MoodTag;
class MoodRecordEditViewController;
class PasscodeGate;

// Gets the editor's end: the record is then applied (done) or restored
// (cancel), and the editor may be dismissed.
class MoodRecordEditViewControllerDelegate {
 public:
  virtual ~MoodRecordEditViewControllerDelegate() = default;
  virtual void viewControllerDone(MoodRecordEditViewController& editor) = 0;
  virtual void viewControllerDidCancel(MoodRecordEditViewController& editor) = 0;
};

// What the view must show when the controller changes it.
class MoodRecordEditView {
 public:
  virtual ~MoodRecordEditView() = default;
  // The text and the cursor (a byte offset) after the controller changed
  // them (a template, an inserted unit or completion).
  virtual void showText(const std::string& text, std::size_t cursor) { (void)text, (void)cursor; }
  virtual void reloadCompletionList() {}
  virtual void showCompletionList(bool visible) { (void)visible; }
  virtual void showThumb(const std::optional<Image>& thumb) { (void)thumb; }
  virtual void showTimePicker(Date date, Date maximum) { (void)date, (void)maximum; }
  virtual void hideTimePicker() {}
  virtual void showDate(Date date) { (void)date; }
  virtual void showTagPanel(const std::string& name, const std::string& unit) { (void)name, (void)unit; }
  virtual void hideTagPanel() {}
};

// Posted by the host when the application enters the background; an open
// editor saves its state then.
inline constexpr char kApplicationDidEnterBackgroundNotification[] = "UIApplicationDidEnterBackgroundNotification";

class MoodRecordEditViewController : public MoodViewController {
 public:
  // A new record from a level tile or a resume: Cancel deletes it.
  static std::shared_ptr<MoodRecordEditViewController> forNewRecord(std::shared_ptr<MoodRecord> record,
                                                                    RecordStateServices services,
                                                                    std::filesystem::path libraryDirectory);
  // Any other open of a record: Cancel writes the old values back.
  static std::shared_ptr<MoodRecordEditViewController> forExistingRecord(std::shared_ptr<MoodRecord> record,
                                                                         RecordStateServices services,
                                                                         std::filesystem::path libraryDirectory);
  MoodRecordEditViewController(std::shared_ptr<MoodRecord> record, bool editing, RecordStateServices services,
                               std::filesystem::path libraryDirectory);
  ~MoodRecordEditViewController() override;

  void setDelegate(std::weak_ptr<MoodRecordEditViewControllerDelegate> delegate) { delegate_ = std::move(delegate); }
  void setView(std::weak_ptr<MoodRecordEditView> view) { view_ = std::move(view); }
  void setPasscodeGate(std::shared_ptr<PasscodeGate> gate) { passcode_ = std::move(gate); }

  // --- Opening ----------------------------------------------------------------
  // The text: a comment the record has (even an empty one) or else the
  // template, the reminder's before the general one; the reminder's is used
  // up. The date: the record's or now.
  void viewDidLoad();
  void viewWillAppear();

  // --- Text -------------------------------------------------------------------
  // Decides whether the coming change is a deletion; every change is
  // accepted.
  bool shouldChangeTextInRange(TextRange range, const std::string& replacement);
  // The view's text changed; `cursor` is where the caret stands.
  void textViewDidChange(const std::string& text, std::size_t cursor);
  // The caret moved or a range was selected.
  void setSelection(std::size_t location, std::size_t length);
  const std::string& text() const { return text_; }
  std::size_t cursor() const { return cursor_; }

  // --- Completion --------------------------------------------------------------
  std::optional<TextRange> rangeOfIncompleteTag() const;
  void checkTagCompletion();
  void setCompletionOptions(std::vector<std::shared_ptr<MoodTag>> options);
  const std::vector<std::shared_ptr<MoodTag>>& completionOptions() const { return completionOptions_; }
  // Whether the offer in `row` is used in the text already (shown lighter).
  bool isCompletionRowUsed(std::size_t row) const;
  // Takes the offer: the rest of its name goes in at the cursor.
  void didSelectCompletionRow(std::size_t row);
  SuggestedTags& suggestions() { return suggestions_; }

  // --- Photo --------------------------------------------------------------------
  // A picked picture: the photo within 640 × 860 and the 264 × 264
  // thumbnail; saved at once.
  void imagePicked(const Image& image);
  void deletePhoto();

  // --- Date ---------------------------------------------------------------------
  // Asks for the passcode, if there is one, then opens the picker on the
  // record's date with now as the latest choice.
  void dateButtonClick();
  // The picked date goes straight into the record (not the state), so
  // Cancel keeps it. A date after now is taken as now.
  void timePickerDone(Date picked);
  void timePickerCancel();

  // --- Ending -------------------------------------------------------------------
  void saveChanges();
  void done();
  // Asks first; on "Yes" the initial state is applied and the delegate told.
  void cancel();
  void confirmCancel();

  // --- Tag panel ----------------------------------------------------------------
  void tagEdit(const std::shared_ptr<MoodTag>& tag);
  void tagEditDone(const std::string& newName, const std::string& unit);
  void tagEditCancel();
  // Asks first, then removeMoodTag.
  void tagDelete(const std::shared_ptr<MoodTag>& tag);
  void removeMoodTag(const std::shared_ptr<MoodTag>& tag);
  void updateMoodTag(const std::string& oldName, const std::string& newName, const std::shared_ptr<MoodTag>& tag,
                     const std::string& unit);

  // --- State, for views and tests -------------------------------------------------
  std::shared_ptr<MoodRecord> recordInEdit() const { return recordInEdit_; }
  const std::optional<MoodRecordState>& initialState() const { return initialState_; }
  const std::optional<MoodRecordState>& currentState() const { return currentState_; }
  bool editing() const { return editing_; }
  bool isTimeEditing() const { return isTimeEditing_; }
  bool isTagEditing() const { return isTagEditing_; }
  bool isDeleted() const { return isDeleted_; }

  static constexpr double kPanelAnimationSeconds = 0.4;

 private:
  void markEdited();
  void insertUnitIfOffered();
  void closeTimePicker();
  std::shared_ptr<MoodRecordEditView> view() const { return view_.lock(); }

  std::shared_ptr<MoodRecord> recordInEdit_;
  std::optional<MoodRecordState> initialState_;
  std::optional<MoodRecordState> currentState_;
  bool editing_ = false;
  RecordStateServices services_;
  std::filesystem::path libraryDirectory_;
  SuggestedTags suggestions_;
  std::weak_ptr<MoodRecordEditViewControllerDelegate> delegate_;
  std::weak_ptr<MoodRecordEditView> view_;
  std::shared_ptr<PasscodeGate> passcode_;
  ScopedObserver backgroundObserver_;

  std::string text_;
  std::size_t cursor_ = 0;
  std::size_t selectionLength_ = 0;
  std::vector<std::shared_ptr<MoodTag>> completionOptions_;
  std::shared_ptr<MoodTag> editingTag_;
  bool isTagEditing_ = false;
  bool isTimeEditing_ = false;
  bool isDeleted_ = false;
  bool isUnlocked_ = false;
  bool timePickerCancelled_ = false;
};

}  // namespace lumeo
