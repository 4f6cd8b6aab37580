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
  // The tag panel's unit buttons, in order; a touch calls tagButtonClicked.
  virtual void showTagUnitButtons(const std::vector<std::string>& units) { (void)units; }
  virtual void setTagUnitField(const std::string& unit) { (void)unit; }
  // The small map under the text: centred on the record's place, with a
  // pin at the centre, `span` degrees across.
  virtual void showMapPreview(double latitude, double longitude, double span) {
    (void)latitude, (void)longitude, (void)span;
  }
  virtual void hideMapPreview() {}
  // Opens the place chooser on the coordinates (-1, -1: none yet). Its
  // "Done" calls didMoodLocationViewControllerLocationChanged.
  virtual void showLocationChooser(double latitude, double longitude) { (void)latitude, (void)longitude; }
  // Opens the camera (front camera, flash off) or the photo library; a
  // picked picture comes back through imagePicked.
  enum class PickerSource { kCamera = 0, kPhotoLibrary = 2 };
  virtual void showImagePicker(PickerSource source) { (void)source; }
};

// Posted by the host when the application enters the background; an open
// editor saves its state then.
inline constexpr char kApplicationDidEnterBackgroundNotification[] =
    "UIApplicationDidEnterBackgroundNotification";

class MoodRecordEditViewController : public MoodViewController {
 public:
  // A new record from a level tile or a resume: Cancel deletes it.
  static std::shared_ptr<MoodRecordEditViewController> forNewRecord(std::shared_ptr<MoodRecord> record,
                                                                    RecordStateServices services,
                                                                    std::filesystem::path libraryDirectory);
  // Any other open of a record: Cancel writes the old values back.
  static std::shared_ptr<MoodRecordEditViewController> forExistingRecord(
      std::shared_ptr<MoodRecord> record, RecordStateServices services,
      std::filesystem::path libraryDirectory);
  MoodRecordEditViewController(std::shared_ptr<MoodRecord> record, bool editing, RecordStateServices services,
                               std::filesystem::path libraryDirectory);
  ~MoodRecordEditViewController() override;

  void setDelegate(std::weak_ptr<MoodRecordEditViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  void setView(std::weak_ptr<MoodRecordEditView> view) { view_ = std::move(view); }
  void setPasscodeGate(std::shared_ptr<PasscodeGate> gate) { passcode_ = std::move(gate); }

  // --- Opening ----------------------------------------------------------------
  // The text: a comment the record has (even an empty one) or else the
  // template, the reminder's before the general one; the reminder's is used
  // up. The date: the record's or now.
  void viewDidLoad();
  // Builds the suggestions; for a new record with automatic places on and
  // location available, asks for the device's position for it.
  void viewWillAppear();
  // Offers the missed-backup alert; shows the map preview of a record that
  // has a place.
  void viewDidAppear();
  // The editor has gone: a reminder slows the window's animations down for
  // the editor's dismissal, and they go back to normal speed here.
  void viewDidDisappear();

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
  // The photo button: take a photo, choose one, delete the one there.
  void actionButtonClicked();

  // --- Place --------------------------------------------------------------------
  // Without a place, opens the chooser at once; with one, offers "Edit...",
  // "Delete" and "Cancel".
  void locationButtonClicked();
  void takeLocation();
  // Writes -1 to both coordinates of the description directly (Cancel does
  // not bring the place back), stops stamping and hides the map.
  void deleteLocation();
  // The chooser's answer; written to the description directly, so a later
  // Cancel keeps it.
  void didMoodLocationViewControllerLocationChanged(double latitude, double longtitude);
  static constexpr double kMapPreviewSpan = 0.05;

  // --- Date ---------------------------------------------------------------------
  // Asks for the passcode, if there is one, then opens the picker on the
  // record's date with now as the latest choice.
  void dateButtonClick();
  // The picked date goes straight into the record (not the state), so
  // Cancel keeps it. A date after now is taken as now.
  void timePickerDone(Date picked);
  void timePickerCancel();
  // The wheel moved; touching the text then takes this date.
  void timePickerValueChanged(Date date) { pickedDate_ = date; }

  // --- Ending -------------------------------------------------------------------
  // Applies the current state to the record and saves. Gives the apply's
  // error (a picture that could not be written); the view ignores it, as
  // the editor has no message for it, but a command line reports it.
  OptionalError saveChanges();
  void done();
  // Asks first; on "Yes" the initial state is applied and the delegate told.
  void cancel();
  void confirmCancel();

  // The record under the editor was deleted elsewhere (another window or
  // program) while the editor was open. `replacement`, a new record not yet
  // saved, takes its place: the working copy (level, text and so tags,
  // pictures) goes into it at the next save, and Cancel deletes it, as for
  // a new record. The caller gives it the date and place it had.
  void adoptReplacementRecord(std::shared_ptr<MoodRecord> replacement);

  // --- Tag panel ----------------------------------------------------------------
  void tagEdit(const std::shared_ptr<MoodTag>& tag);
  void tagEditDone(const std::string& newName, const std::string& unit);
  void tagEditCancel();
  // The unit buttons of the panel (by the user's language) and a touch on
  // the one at `index`, which puts its unit into the unit field.
  const std::vector<std::string>& tagUnits() const { return tagUnits_; }
  void tagButtonClicked(std::size_t index);
  // Asks first, then removeMoodTag.
  void tagDelete(const std::shared_ptr<MoodTag>& tag);
  void removeMoodTag(const std::shared_ptr<MoodTag>& tag);
  void updateMoodTag(const std::string& oldName, const std::string& newName,
                     const std::shared_ptr<MoodTag>& tag, const std::string& unit);

  // --- State, for views and tests -------------------------------------------------
  std::shared_ptr<MoodRecord> recordInEdit() const { return recordInEdit_; }
  const std::optional<MoodRecordState>& initialState() const { return initialState_; }
  const std::optional<MoodRecordState>& currentState() const { return currentState_; }
  // The working state for front ends that change it without a text view or
  // picker (the command line); null after a cancel.
  MoodRecordState* mutableCurrentState() { return currentState_ ? &*currentState_ : nullptr; }
  bool editing() const { return editing_; }
  bool isTimeEditing() const { return isTimeEditing_; }
  bool isTagEditing() const { return isTagEditing_; }
  bool isDeleted() const { return isDeleted_; }

  static constexpr double kPanelAnimationSeconds = 0.4;

 private:
  void markEdited();
  void insertUnitIfOffered();
  void closeTimePicker();
  void locationObtained();
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
  std::vector<std::string> tagUnits_;
  bool isTagEditing_ = false;
  bool isTimeEditing_ = false;
  bool isDeleted_ = false;
  bool isUnlocked_ = false;
  bool timePickerCancelled_ = false;
  Date pickedDate_;
};

}  // namespace lumeo
