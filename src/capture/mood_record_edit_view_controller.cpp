// The record editor. Cancel must undo exactly what the user did in this
// editor, so the editor keeps two states: for a new record the initial one
// is empty (its apply deletes the record), for an existing record it is the
// record as opened (its apply writes the old values back). Date and place
// go to the record directly and are not undone.
#include "capture/mood_record_edit_view_controller.h"

#include <algorithm>

#include "capture/hashtag_grammar.h"
#include "capture/location_helper.h"
#include "capture/mood_tag_editing.h"
#include "capture/record_capture.h"
#include "capture/tag_extraction.h"
#include "capture/tag_unit_buttons.h"
#include "platform/dispatch_queue.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "shell/mood_app_delegate.h"
#include "shell/shell_services.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"

namespace lumeo {

std::shared_ptr<MoodRecordEditViewController> MoodRecordEditViewController::forNewRecord(
    std::shared_ptr<MoodRecord> record, RecordStateServices services,
    std::filesystem::path libraryDirectory) {
  return std::make_shared<MoodRecordEditViewController>(std::move(record), false, std::move(services),
                                                        std::move(libraryDirectory));
}

std::shared_ptr<MoodRecordEditViewController> MoodRecordEditViewController::forExistingRecord(
    std::shared_ptr<MoodRecord> record, RecordStateServices services,
    std::filesystem::path libraryDirectory) {
  return std::make_shared<MoodRecordEditViewController>(std::move(record), true, std::move(services),
                                                        std::move(libraryDirectory));
}

MoodRecordEditViewController::MoodRecordEditViewController(std::shared_ptr<MoodRecord> record, bool editing,
                                                           RecordStateServices services,
                                                           std::filesystem::path libraryDirectory)
    : MoodViewController("MoodRecordEditViewController"),
      recordInEdit_(std::move(record)),
      editing_(editing),
      services_(std::move(services)),
      libraryDirectory_(libraryDirectory),
      suggestions_(*services_.store, libraryDirectory, CompletionSort::kFrequencyThenName) {
  if (recordInEdit_) {
    currentState_ = MoodRecordState(*recordInEdit_, services_.images.get());
    initialState_ = editing_ ? *currentState_ : MoodRecordState();
  }
  // Leaving the application saves what was typed; after a cancel there is
  // no record any more and the save does nothing.
  backgroundObserver_ =
      ScopedObserver(NotificationCenter::defaultCenter(), kApplicationDidEnterBackgroundNotification, nullptr,
                     [this](const Notification&) { LUMEO_DROP_ERROR(saveChanges()); });
}

MoodRecordEditViewController::~MoodRecordEditViewController() = default;

void MoodRecordEditViewController::viewDidLoad() {
  std::string templateText = takeNewRecordTemplate(MoodUserDefaultsOperator::sharedOperator()).value_or("");
  if (currentState_) {
    // Only a record without any comment takes the template, so a template
    // never fills an older record.
    if (currentState_->comment) {
      text_ = *currentState_->comment;
    } else {
      text_ = templateText;
      currentState_->comment = templateText;
    }
    if (!currentState_->date) currentState_->date = Date::now();
  }
  cursor_ = text_.size();
  tagUnits_ = tagUnitButtons();
  if (auto v = view()) {
    v->showText(text_, cursor_);
    if (currentState_) v->showDate(*currentState_->date);
    if (currentState_) v->showThumb(currentState_->thumb);
    v->showTagUnitButtons(tagUnits_);
  }
}

void MoodRecordEditViewController::viewWillAppear() {
  suggestions_.createChildManagedObjectContext();
  // A new record is stamped with where the user is, when the user wants
  // automatic places; an older record keeps the place it has.
  LocationHelper& helper = LocationHelper::sharedInstance();
  if (!recordInEdit_ || editing_ || !helper.isEnabled()) return;
  if (!MoodUserDefaultsOperator::sharedOperator().isMapAutomaticSelectLocation()) return;
  auto self = std::weak_ptr<MoodRecordEditViewController>(
      std::static_pointer_cast<MoodRecordEditViewController>(shared_from_this()));
  helper.setTarget([self] {
    if (auto editor = self.lock()) editor->locationObtained();
  });
  helper.setRecord(recordInEdit_);
  helper.requestLocation();
}

void MoodRecordEditViewController::viewDidAppear() {
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) app->displayRecentBackupMissedAlertIfNeeded();
  locationObtained();
}

void MoodRecordEditViewController::viewDidDisappear() {
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) app->window().setLayerSpeed(1.0);
}

void MoodRecordEditViewController::locationObtained() {
  auto description = recordInEdit_ ? recordInEdit_->moodDescription() : nullptr;
  if (!description) return;
  // Compared as floats, so a coordinate that is -1 up to rounding counts as
  // none.
  auto none = [](double c) {
    return static_cast<float>(c) == static_cast<float>(MoodDescription::kNoCoordinate);
  };
  if (none(description->latitude()) || none(description->longitude())) return;
  if (auto v = view()) v->showMapPreview(description->latitude(), description->longitude(), kMapPreviewSpan);
}

// --- Text ------------------------------------------------------------------------

bool MoodRecordEditViewController::shouldChangeTextInRange(TextRange range, const std::string& replacement) {
  isDeleted_ = range.length > 0 && replacement.empty();
  return true;
}

void MoodRecordEditViewController::textViewDidChange(const std::string& text, std::size_t cursor) {
  text_ = text;
  cursor_ = std::min(cursor, text_.size());
  selectionLength_ = 0;
  checkTagCompletion();
  if (currentState_) currentState_->comment = text_;
  markEdited();
  if (!text_.empty() && !isDeleted_) insertUnitIfOffered();
}

void MoodRecordEditViewController::setSelection(std::size_t location, std::size_t length) {
  cursor_ = std::min(location, text_.size());
  selectionLength_ = std::min(length, text_.size() - cursor_);
  // Touching the text while the picker is open takes the picked date.
  if (isTimeEditing_ && !timePickerCancelled_) timePickerDone(pickedDate_);
}

void MoodRecordEditViewController::insertUnitIfOffered() {
  if (cursor_ == 0 || text_[cursor_ - 1] != ':') return;
  auto name = tagNameForUnitOffer(std::string_view(text_).substr(0, cursor_));
  if (!name || !services_.store) return;
  auto tag = services_.store->tagNamed(*name);
  if (!tag || !tag->tagUnit() || tag->tagUnit()->empty()) return;
  // The number typed next lands between ":" and the unit.
  text_.insert(cursor_, *tag->tagUnit());
  if (currentState_) currentState_->comment = text_;
  if (auto v = view()) v->showText(text_, cursor_);
}

void MoodRecordEditViewController::markEdited() {
  // A new record's typing is not an edit: it still counts as a new record
  // for the backup reminder.
  if (initialState_ && initialState_->existing && currentState_) currentState_->wasEdited = true;
}

// --- Completion ------------------------------------------------------------------------

std::optional<TextRange> MoodRecordEditViewController::rangeOfIncompleteTag() const {
  if (selectionLength_ > 0) return std::nullopt;
  return lumeo::rangeOfIncompleteTag(text_, cursor_);
}

void MoodRecordEditViewController::checkTagCompletion() {
  auto range = rangeOfIncompleteTag();
  if (!range) {
    setCompletionOptions({});
    return;
  }
  auto options = suggestions_.completionOptionsForString(text_.substr(range->location, range->length));
  if (!options.empty() && isTimeEditing_) closeTimePicker();
  setCompletionOptions(std::move(options));
}

void MoodRecordEditViewController::setCompletionOptions(std::vector<std::shared_ptr<MoodTag>> options) {
  if (options.empty() && completionOptions_.empty()) return;
  bool wasEmpty = completionOptions_.empty();
  completionOptions_ = std::move(options);
  auto v = view();
  if (v) v->reloadCompletionList();
  if (completionOptions_.empty()) {
    NotificationCenter::defaultCenter().post(MoodTagEditStartNotification, this, std::any(-1L));
  }
  if (v && wasEmpty != completionOptions_.empty()) v->showCompletionList(!completionOptions_.empty());
}

bool MoodRecordEditViewController::isCompletionRowUsed(std::size_t row) const {
  if (row >= completionOptions_.size()) return false;
  std::string name = completionOptions_[row]->tagName();
  for (const TaggedToken& token : taggedTokensInText(text_)) {
    if (token.tagName == name) return true;
  }
  return false;
}

void MoodRecordEditViewController::didSelectCompletionRow(std::size_t row) {
  if (row >= completionOptions_.size()) return;
  NotificationCenter::defaultCenter().post(MoodTagEditStartNotification, this, std::any(-1L));
  auto range = rangeOfIncompleteTag();
  std::string name = completionOptions_[row]->tagName();
  if (range) {
    // What was typed stays in the user's spelling; only the rest goes in,
    // without a blank after it. The name is counted in bytes of the typed
    // text, which has the same length whenever the match is by prefix.
    std::size_t typed = range->length;
    std::string rest = typed <= name.size() ? name.substr(typed) : std::string();
    text_.insert(cursor_, rest);
    cursor_ += rest.size();
  }
  if (currentState_) currentState_->comment = text_;
  markEdited();
  setCompletionOptions({});
  if (auto v = view()) v->showText(text_, cursor_);
}

// --- Photo --------------------------------------------------------------------------

void MoodRecordEditViewController::imagePicked(const Image& image) {
  if (!currentState_) return;
  auto [w, h] = photoSizeForImageSize(image.orientedWidth(), image.orientedHeight());
  currentState_->photo = imageByScalingToSize(image, w, h);
  markEdited();
  currentState_->thumb = imageByScalingToSize(image, kThumbnailSize, kThumbnailSize);
  if (auto v = view()) v->showThumb(currentState_->thumb);
  LUMEO_DROP_ERROR(saveChanges());
}

void MoodRecordEditViewController::deletePhoto() {
  if (!currentState_) return;
  if (auto v = view()) v->showThumb(std::nullopt);
  currentState_->removePhotoAndThumb();
}

void MoodRecordEditViewController::actionButtonClicked() {
  if (isTimeEditing_) closeTimePicker();
  std::vector<MoodActionItem> items = {{localized("Take Photo..."), 0},
                                       {localized("Choose from Library..."), 2}};
  if (currentState_ && currentState_->thumb) items.push_back({localized("Delete"), kMoodActionDestructive});
  items.push_back({localized("Cancel"), kMoodActionCancel});
  showActionSheet("", "", items, [this](int result) {
    auto v = view();
    if (result == 0 && v) v->showImagePicker(MoodRecordEditView::PickerSource::kCamera);
    if (result == 2 && v) v->showImagePicker(MoodRecordEditView::PickerSource::kPhotoLibrary);
    if (result == kMoodActionDestructive) deletePhoto();
  });
}

// --- Place ---------------------------------------------------------------------------

void MoodRecordEditViewController::locationButtonClicked() {
  auto description = recordInEdit_ ? recordInEdit_->moodDescription() : nullptr;
  if (!description) return;
  // Whole degrees, as the button always compared them.
  if (static_cast<long>(description->latitude()) == -1 && static_cast<long>(description->longitude()) == -1) {
    takeLocation();
    return;
  }
  std::vector<MoodActionItem> items = {{localized("Edit..."), 0},
                                       {localized("Delete"), kMoodActionDestructive},
                                       {localized("Cancel"), kMoodActionCancel}};
  showActionSheet("", "", items, [this](int result) {
    if (result == 0) takeLocation();
    if (result == kMoodActionDestructive) deleteLocation();
  });
}

void MoodRecordEditViewController::takeLocation() {
  auto description = recordInEdit_ ? recordInEdit_->moodDescription() : nullptr;
  if (!description) return;
  if (auto v = view()) v->showLocationChooser(description->latitude(), description->longitude());
}

void MoodRecordEditViewController::deleteLocation() {
  auto description = recordInEdit_ ? recordInEdit_->moodDescription() : nullptr;
  if (!description) return;
  description->setLatitude(MoodDescription::kNoCoordinate);
  description->setLongitude(MoodDescription::kNoCoordinate);
  // A fix arriving later must not put back the place just removed.
  LocationHelper::sharedInstance().setRecord(nullptr);
  if (auto v = view()) v->hideMapPreview();
}

void MoodRecordEditViewController::didMoodLocationViewControllerLocationChanged(double latitude,
                                                                                double longtitude) {
  auto description = recordInEdit_ ? recordInEdit_->moodDescription() : nullptr;
  if (!description) return;
  description->setLatitude(latitude);
  description->setLongitude(longtitude);
  locationObtained();
}

// --- Date ----------------------------------------------------------------------------

void MoodRecordEditViewController::dateButtonClick() {
  timePickerCancelled_ = false;
  auto open = [this] {
    isUnlocked_ = true;
    Date start = recordInEdit_ && recordInEdit_->date() ? *recordInEdit_->date()
                 : currentState_                        ? currentState_->date.value_or(Date::now())
                                                        : Date::now();
    setCompletionOptions({});
    isTimeEditing_ = true;
    pickedDate_ = start;
    if (auto v = view()) v->showTimePicker(start, Date::now());
  };
  if (passcode_ && passcode_->hasPasscode()) {
    passcode_->requestPassCodeFromViewController(*this, true,
                                                 [open](bool granted) {
                                                   if (granted) open();
                                                 },
                                                 {});
  } else {
    open();
  }
}

void MoodRecordEditViewController::timePickerDone(Date picked) {
  if (!isTimeEditing_) return;
  Date now = Date::now();
  if (picked > now) picked = now;
  if (recordInEdit_) recordInEdit_->setDate(picked);
  if (currentState_) currentState_->date = picked;
  if (auto v = view()) v->showDate(picked);
  isTimeEditing_ = false;
  if (auto v = view()) v->hideTimePicker();
}

void MoodRecordEditViewController::timePickerCancel() {
  timePickerCancelled_ = true;
  isTimeEditing_ = false;
  if (auto v = view()) v->hideTimePicker();
}

void MoodRecordEditViewController::closeTimePicker() {
  isTimeEditing_ = false;
  if (auto v = view()) v->hideTimePicker();
}

// --- Ending --------------------------------------------------------------------------

OptionalError MoodRecordEditViewController::saveChanges() {
  if (!recordInEdit_ || !currentState_) return std::nullopt;
  if (isTimeEditing_) closeTimePicker();
  auto error = currentState_->applyToRecord(recordInEdit_, services_);
  // The watch shows the latest records and tags.
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
    if (app->services().watch) app->services().watch->saveData();
  }
  return error;
}

void MoodRecordEditViewController::done() {
  setCompletionOptions({});
  LUMEO_DROP_ERROR(saveChanges());
  if (auto d = delegate_.lock()) d->viewControllerDone(*this);
}

void MoodRecordEditViewController::cancel() {
  showAlert(localized("Attention!"), localized("Your current editing progress will be lost. Are you sure?"),
            localized("Yes"), localized("Cancel"), [this](int result) {
              if (result == 1) confirmCancel();
            });
}

void MoodRecordEditViewController::confirmCancel() {
  setCompletionOptions({});
  currentState_.reset();
  if (initialState_ && recordInEdit_)
    LUMEO_DROP_ERROR(initialState_->applyToRecord(recordInEdit_, services_));
  recordInEdit_.reset();
  if (auto d = delegate_.lock()) d->viewControllerDidCancel(*this);
}

void MoodRecordEditViewController::adoptReplacementRecord(std::shared_ptr<MoodRecord> replacement) {
  if (!replacement || !currentState_) return;
  LocationHelper& helper = LocationHelper::sharedInstance();
  if (recordInEdit_ && helper.record() == recordInEdit_) helper.setRecord(replacement);
  recordInEdit_ = std::move(replacement);
  currentState_->existing = true;
  initialState_ = MoodRecordState();
  editing_ = false;
}

// --- Tag panel -----------------------------------------------------------------------

void MoodRecordEditViewController::tagEdit(const std::shared_ptr<MoodTag>& tag) {
  if (!tag) return;
  editingTag_ = tag;
  isTagEditing_ = true;
  if (auto v = view()) v->showTagPanel(tag->tagName(), tag->tagUnit().value_or(""));
}

void MoodRecordEditViewController::tagEditDone(const std::string& newName, const std::string& unit) {
  if (editingTag_) updateMoodTag(editingTag_->tagName(), newName, editingTag_, unit);
  tagEditCancel();
}

void MoodRecordEditViewController::tagEditCancel() {
  editingTag_.reset();
  isTagEditing_ = false;
  if (auto v = view()) {
    v->setTagUnitField("");
    v->hideTagPanel();
  }
}

void MoodRecordEditViewController::tagButtonClicked(std::size_t index) {
  if (index >= tagUnits_.size()) return;
  if (auto v = view()) v->setTagUnitField(tagUnits_[index]);
}

void MoodRecordEditViewController::updateMoodTag(const std::string& oldName, const std::string& newName,
                                                 const std::shared_ptr<MoodTag>& tag,
                                                 const std::string& unit) {
  if (!services_.store) return;
  auto renamed = lumeo::updateMoodTag(*services_.store, oldName, newName, unit);
  for (auto& option : completionOptions_) {
    if (option == tag) option = renamed;
  }
  if (auto v = view()) v->reloadCompletionList();
  // The suggestions are rebuilt from the word list at the next use.
  suggestions_.dropChildManagedObjectContext();
  checkTagCompletion();
}

void MoodRecordEditViewController::tagDelete(const std::shared_ptr<MoodTag>& tag) {
  if (!tag) return;
  std::string message = localizedStringWithFormat("Are you sure, you want delete tag %@?", tag->tagName());
  std::weak_ptr<MoodTag> weakTag = tag;
  showAlert(localized("Delete"), message, localized("Delete"), localized("Cancel"),
            [this, weakTag](int result) {
              if (result != 1) return;
              if (auto t = weakTag.lock()) removeMoodTag(t);
            });
}

void MoodRecordEditViewController::removeMoodTag(const std::shared_ptr<MoodTag>& tag) {
  if (!tag || !services_.store) return;
  std::string name = tag->tagName();
  if (lumeo::removeMoodTag(*services_.store, tag, name, libraryDirectory_)) {
    suggestions_.dropChildManagedObjectContext();
  }
  completionOptions_.erase(std::remove(completionOptions_.begin(), completionOptions_.end(), tag),
                           completionOptions_.end());
  if (auto v = view()) v->reloadCompletionList();
}

}  // namespace lumeo
