// The capture tab. The record is saved before the editor opens, so the level
// is kept whatever happens to the editor; the defaults key marks it as
// unfinished until done or cancel.
#include "capture/mood_capture_view_controller.h"

#include <cmath>

#include "capture/mood_levels_presentation.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_store.h"
#include "store/mood_record.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

MoodCaptureViewController::MoodCaptureViewController(RecordStateServices services,
                                                     std::filesystem::path libraryDirectory,
                                                     std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodCaptureViewController"),
      services_(std::move(services)),
      libraryDirectory_(std::move(libraryDirectory)),
      defaults_(defaults ? std::move(defaults) : UserDefaults::standard()) {
  modelObserver_ = ScopedObserver(NotificationCenter::defaultCenter(), MoodModelHasChangedNotification,
                                  nullptr, [this](const Notification&) { updateColors(); });
}

void MoodCaptureViewController::updateColors() {
  if (!MainLoop::shared().isMainThread()) return;
  tiles_.clear();
  MoodLevelsPresentation levels;
  for (long level = 10; level >= 1; --level) {
    auto presentation = levels.presentationForMoodLevel(level);
    MoodCaptureLevelTile tile;
    tile.level = level;
    if (presentation) {
      tile.text = presentation->text;
      tile.color = presentation->baseColor;
    }
    tiles_.push_back(tile);
  }
}

int MoodCaptureViewController::indexForPosition(double position, double tileHeight) {
  if (!(tileHeight > 0) || !(position >= 0)) return -1;
  double index = std::floor(position / tileHeight);
  return index < 10 ? static_cast<int>(index) : -1;
}

void MoodCaptureViewController::selectMenu(int selectedView) {
  if (selectedView < 0 || selectedView > 9 || !services_.store) return;
  JournalStore& store = *services_.store;
  auto record = store.insertRecordWithDescription();
  if (!record) return;
  record->setMoodLevel(10 - selectedView);
  record->setDate(Date::now());
  // Saved at once: the level is recorded whatever happens next.
  store.saveContext();
  presentEditControllerWithRecord(record, true);
  LUMEO_DROP_ERROR(defaults_->setString(kMoodRecordInCreation, record->objectID().URIRepresentation()));
  defaults_->synchronize();
}

void MoodCaptureViewController::presentEditControllerWithRecord(const std::shared_ptr<MoodRecord>& record,
                                                                bool animated) {
  editor_ = MoodRecordEditViewController::forNewRecord(record, services_, libraryDirectory_);
  auto self = std::dynamic_pointer_cast<MoodCaptureViewController>(shared_from_this());
  editor_->setDelegate(std::weak_ptr<MoodRecordEditViewControllerDelegate>(self));
  presentViewController(editor_, animated);
  if (editorOpened_) editorOpened_(*editor_);
}

void MoodCaptureViewController::checkForRecordBeingCreated() {
  if (!services_.store) return;
  auto uri = defaults_->stringForKey(kMoodRecordInCreation);
  if (!uri || uri->empty()) return;
  auto record = services_.store->recordWithURI(*uri);
  if (!record) return;
  presentEditControllerWithRecord(record, false);
}

namespace {

// Done and cancel both end an edit of an existing record the same way: the
// editor has already applied or restored the record, so it only closes.
class ClosingEditorDelegate : public MoodRecordEditViewControllerDelegate {
 public:
  explicit ClosingEditorDelegate(std::function<void(Screen&)> finished) : finished_(std::move(finished)) {}
  void viewControllerDone(MoodRecordEditViewController& editor) override { finish(editor); }
  void viewControllerDidCancel(MoodRecordEditViewController& editor) override { finish(editor); }

 private:
  void finish(MoodRecordEditViewController& editor) {
    if (finished_) finished_(editor);
  }
  std::function<void(Screen&)> finished_;
};

}  // namespace

std::shared_ptr<Screen> MoodCaptureViewController::editorForExistingRecord(
    const std::shared_ptr<MoodRecord>& record, std::function<void(Screen& editor)> finished) {
  if (!record) return nullptr;
  auto editor = MoodRecordEditViewController::forExistingRecord(record, services_, libraryDirectory_);
  existingEditorDelegate_ = std::make_shared<ClosingEditorDelegate>(std::move(finished));
  editor->setDelegate(existingEditorDelegate_);
  if (editorOpened_) editorOpened_(*editor);
  return editor;
}

void MoodCaptureViewController::viewControllerDone(MoodRecordEditViewController& editor) {
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  if (finishHooks_.userDidSignificantEvent) finishHooks_.userDidSignificantEvent(true);
  // The history tab opens on the new record, unless the passcode keeps it
  // closed; then the user stays on capture.
  auto record = editor.recordInEdit();
  if (record && finishHooks_.selectHistoryRecord) {
    finishHooks_.selectHistoryRecord(record->uniqueIdentifier().value_or(""), kSelectByIdentifierIndex);
  }
  bool mayShowHistory = false;
  if (finishHooks_.mayShowHistory) {
    mayShowHistory = finishHooks_.mayShowHistory();
  } else if (app) {
    auto passcode = app->services().passcode;
    mayShowHistory = !passcode || !passcode->hasPasscode() || app->passCodeUnlocked;
  }
  if (mayShowHistory) {
    if (finishHooks_.showHistoryTab) {
      finishHooks_.showHistoryTab();
    } else if (app && app->tabBarController()) {
      app->tabBarController()->selectTab(MoodTabBarController::kHistoryTab, true);
    }
  }
  dismissViewControllerAnimated(true);
  LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kMoodRecordInCreation));
  defaults_->synchronize();
  editor_.reset();
}

void MoodCaptureViewController::viewControllerDidCancel(MoodRecordEditViewController&) {
  dismissViewControllerAnimated(true);
  LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kMoodRecordInCreation));
  defaults_->synchronize();
  editor_.reset();
}

}  // namespace lumeo
