// The History tab: fetch, filters, selection, detail pane, actions and
// deletion.
#include "browse/mood_history_view_controller.h"

#include <algorithm>

#include "browse/browse_text.h"
#include "browse/mood_date_history_view_controller.h"
#include "browse/mood_gallery_view_controller.h"
#include "browse/mood_tag_history_view_controller.h"
#include "objectgraph/managed_object_context.h"
#include "platform/date_formatter.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "store/date_all.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

MoodHistoryViewController::MoodHistoryViewController(Environment environment)
    : MoodHistoryViewController(std::move(environment), "MoodHistoryViewController",
                                MoodDeleteRecordNotification, false) {}

MoodHistoryViewController::MoodHistoryViewController(Environment environment, std::string className,
                                                     std::string deleteNotification, bool deleteOnlyWhenAsked)
    : MoodViewController(std::move(className)),
      env_(std::move(environment)),
      deleteOnlyWhenAsked_(deleteOnlyWhenAsked) {
  historyView_.setDelegate(this);
  auto& defaults = env_.defaults ? *env_.defaults : *UserDefaults::standard();
  selectedHistoryViewType_ =
      defaults.integerForKey(kMoodHistorySelectedDefaultIndex) == kCalendar ? kCalendar : kList;
  auto& center = NotificationCenter::defaultCenter();
  observers_.emplace_back(center, SyncImageSaved, nullptr, [this](const Notification& n) {
    const auto* name = std::any_cast<std::string>(&n.object);
    if (!name || !selectedImageName_ || *name != *selectedImageName_) return;
    if (auto images = ImageStore::shared()) {
      if (auto file = images->imageURLForName(*name); file && std::filesystem::exists(*file)) {
        detail_.thumbFile = *file;
        if (view_) view_->imageUpdated(*file);
      }
    }
  });
  observers_.emplace_back(center, MoodModelHasChangedNotification, nullptr,
                          [this](const Notification&) { invalidate(); });
  observers_.emplace_back(center, deleteNotification, nullptr, [this](const Notification&) {
    if (deleteOnlyWhenAsked_ && !deletionAsked_) return;
    deletionAsked_ = false;
    deleteCurrentRecord();
  });
  observers_.emplace_back(center, MoodBackupWasLoadedNotification, nullptr,
                          [this](const Notification&) { filterReset(); });
}

MoodHistoryViewController::~MoodHistoryViewController() = default;

JournalStore& MoodHistoryViewController::store() const {
  if (env_.store) return *env_.store;
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  if (!app) throw std::logic_error("the history needs a journal store");
  return app->store();
}

Date MoodHistoryViewController::now() const {
  return env_.now ? env_.now() : Date::now();
}

void MoodHistoryViewController::push(const std::shared_ptr<Screen>& screen) {
  if (NavigationController* nav = navigationController()) nav->pushViewController(screen, true);
}

// --- Life cycle ----------------------------------------------------------------

void MoodHistoryViewController::viewDidLoad() {
  viewLoaded_ = true;
}

void MoodHistoryViewController::viewWillAppear() {
  if (syncObservers_.empty()) {
    auto& center = NotificationCenter::defaultCenter();
    syncObservers_.emplace_back(center, IDMSyncActivityDidEnd, nullptr,
                                [this](const Notification&) { didSyncEnd(); });
    syncObservers_.emplace_back(center, IDMSyncActivityDidDataMergingEndNotification, nullptr,
                                [this](const Notification&) { invalidate(); });
  }
  if (!dataUpToDate_) reloadMoodRecords(false);
  if (view_) view_->showFilterButton(filter_.filterButtonImageName());
  if (selectedMoodRecordIndex_ >= 0)
    historyView_.scrollToRecordToIndex(selectedMoodRecordIndex_, false, true);
}

void MoodHistoryViewController::viewWillDisappear() {
  syncObservers_.clear();
}

// --- Records ---------------------------------------------------------------------

std::optional<Predicate> MoodHistoryViewController::periodPredicate() {
  auto range = filter_.fetchRange(now());
  if (!range) return std::nullopt;
  return Predicate::predicateWithFormat("date >= %@ AND date <= %@", range->first, range->second);
}

std::optional<Predicate> MoodHistoryViewController::recordsFilterPredicate() {
  if (selectedHistoryViewType_ == kCalendar) {
    // The tags filter the calendar only, the period the list only.
    if (view_) view_->reloadCalendar(selectedTags_);
    return std::nullopt;
  }
  return periodPredicate();
}

void MoodHistoryViewController::reloadMoodRecords(bool keepByIdentifier) {
  FetchRequest request(kMoodRecordEntity);
  if (auto predicate = recordsFilterPredicate()) request.setPredicate(*predicate);
  request.setSortDescriptors({SortDescriptor("date", true)});
  moodRecords_.clear();
  for (const auto& object : store().executeFetch(request)) {
    if (auto record = std::dynamic_pointer_cast<MoodRecord>(object))
      moodRecords_.push_back(std::move(record));
  }
  historyView_.reloadMoodRecords(keepByIdentifier);
  if (selectedMoodRecordIndex_ >= 0) {
    long count = static_cast<long>(moodRecords_.size());
    setSelectedMoodRecordIndex(std::min(selectedMoodRecordIndex_, count - 1));
  }
  if (selectedMoodRecordIndex_ >= 0) {
    if (keepByIdentifier && selectedMoodRecordUniqueIdentifier_) {
      historyView_.scrollToRecordToUniqueIdentifier(*selectedMoodRecordUniqueIdentifier_, false, true);
    } else {
      historyView_.scrollToRecordToIndex(selectedMoodRecordIndex_, false, true);
    }
  }
  dataUpToDate_ = true;
}

const std::vector<std::shared_ptr<MoodRecord>>& MoodHistoryViewController::moodHistoryForView(
    MoodHistoryView&) {
  return moodRecords_;
}

void MoodHistoryViewController::moodHistoryViewDidChangeSelection(MoodHistoryView& view) {
  setSelectedMoodRecordIndex(view.selectedRecordIndex());
}

// --- Selection and detail ----------------------------------------------------------

std::shared_ptr<MoodRecord> MoodHistoryViewController::selectedRecord() const {
  if (selectedMoodRecordIndex_ < 0 || selectedMoodRecordIndex_ >= static_cast<long>(moodRecords_.size()))
    return nullptr;
  return moodRecords_[selectedMoodRecordIndex_];
}

void MoodHistoryViewController::setSelectedMoodRecordIndex(long index) {
  if (index == kSelectByIdentifier) {
    reloadMoodRecords(true);
    index = -1;
    if (selectedMoodRecordUniqueIdentifier_) {
      for (std::size_t i = 0; i < moodRecords_.size(); ++i) {
        if (moodRecords_[i]->uniqueIdentifier() == selectedMoodRecordUniqueIdentifier_) {
          index = static_cast<long>(i);
          break;
        }
      }
    }
    if (index < 0) return;  // not shown here: the selection stays as it was
  }
  if (index < -1 || index >= static_cast<long>(moodRecords_.size())) index = -1;
  selectedMoodRecordIndex_ = index;
  auto record = selectedRecord();
  selectedMoodRecordUniqueIdentifier_ = record ? record->uniqueIdentifier() : std::nullopt;
  if (historyView_.selectedRecordIndex() != index) historyView_.setSelectedRecordWithIndex(index, false);
  updateDetail();
}

MoodHistoryDetail MoodHistoryViewController::detailForRecord(const std::shared_ptr<MoodRecord>& record) {
  MoodHistoryDetail detail;
  if (!record) return detail;
  detail.hasRecord = true;
  auto description = record->moodDescription();
  if (description) {
    detail.comment = description->comment().value_or("");
    detail.editedLabelVisible = description->wasEdited();
    auto thumb = description->thumbName();
    if (thumb && !thumb->empty()) {
      detail.thumbName = thumb;
      detail.photoVisible = true;
      if (auto images = ImageStore::shared()) {
        auto file = images->imageURLForName(thumb);
        std::error_code ec;
        if (file && std::filesystem::exists(*file, ec)) detail.thumbFile = file;
      }
    }
  }
  if (auto when = record->date()) {
    DateFormatter formatter;
    formatter.setDateStyle(DateFormatter::Style::kShort);
    formatter.setTimeStyle(DateFormatter::Style::kShort);
    formatter.setDoesRelativeDateFormatting(true);
    detail.dateText = capitalizedFirstLetter(formatter.stringFromDate(*when));
  }
  detail.maxLinesCount = kMoodHistoryMaxLines;
  if (detail.photoVisible) {
    detail.shortLinesCount = kMoodHistoryShortLines;
    detail.shortLinesIndent = kMoodHistoryShortLinesIndent;
  }
  return detail;
}

void MoodHistoryViewController::updateDetail() {
  detail_ = detailForRecord(selectedRecord());
  selectedImageName_ = detail_.thumbName;
  if (view_) view_->showDetail(detail_);
}

void MoodHistoryViewController::selectMoodRecord(const std::shared_ptr<MoodRecord>& record) {
  if (!dataUpToDate_) reloadMoodRecords(false);
  auto it = std::find(moodRecords_.begin(), moodRecords_.end(), record);
  if (it == moodRecords_.end()) return;
  long index = static_cast<long>(it - moodRecords_.begin());
  setSelectedMoodRecordIndex(index);
  historyView_.scrollToRecordToIndex(index, true, true);
}

// --- Actions -------------------------------------------------------------------------

void MoodHistoryViewController::chooseAction() {
  auto record = selectedRecord();
  if (!record) return;
  deletionAsked_ = true;
  if (env_.chooseActionForRecord) {
    env_.chooseActionForRecord(record, chooseActionKind());
  } else if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
    app->chooseActionForRecord(record, chooseActionKind(), 0);
  }
}

void MoodHistoryViewController::motionEnded(bool shake) {
  if (!shake || !selectedRecord()) return;
  deletionAsked_ = true;
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate())
    app->moodDeleteActivityChosen(chooseActionKind());
}

std::shared_ptr<MoodGalleryViewController> MoodHistoryViewController::photoTouchUpInside() {
  auto selected = selectedRecord();
  if (!selected) return nullptr;
  std::vector<std::shared_ptr<MoodRecord>> withPhotos;
  long current = 0;
  for (const auto& record : moodRecords_) {
    auto description = record->moodDescription();
    if (!description || description->photoName().value_or("").empty()) continue;
    if (record == selected) current = static_cast<long>(withPhotos.size());
    withPhotos.push_back(record);
  }
  if (withPhotos.empty()) return nullptr;
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setDelegate(std::dynamic_pointer_cast<MoodGalleryViewControllerDelegate>(weak_from_this().lock()));
  gallery->setMoodRecords(withPhotos);
  gallery->setCurrentRecord(current);
  // After a change of the journal the gallery pages through the photos of
  // this list as fetched again.
  std::weak_ptr<Screen> weak = weak_from_this();
  gallery->setRecordsSource([weak]() -> std::optional<std::vector<std::shared_ptr<MoodRecord>>> {
    auto self = std::dynamic_pointer_cast<MoodHistoryViewController>(weak.lock());
    if (!self) return std::nullopt;
    if (!self->dataUpToDate_) self->reloadMoodRecords(false);
    std::vector<std::shared_ptr<MoodRecord>> photos;
    for (const auto& record : self->moodRecords_) {
      auto description = record->moodDescription();
      if (description && !description->photoName().value_or("").empty()) photos.push_back(record);
    }
    return photos;
  });
  push(gallery);
  return gallery;
}

std::string MoodHistoryViewController::titleForMoodGallery() {
  return browseText("History");
}

std::shared_ptr<Screen> MoodHistoryViewController::taggedTextViewDidSelectTag(const std::string& tagName) {
  auto tag = store().tagNamed(tagName);
  if (!tag) return nullptr;
  MoodTagHistoryViewController::Environment env = env_;
  auto screen = std::make_shared<MoodTagHistoryViewController>(tag, env);
  push(screen);
  return screen;
}

// --- Deletion -----------------------------------------------------------------------

void MoodHistoryViewController::deleteRecord(const std::shared_ptr<MoodRecord>& target) {
  // A copy: the caller's reference may point into the list that shrinks.
  std::shared_ptr<MoodRecord> record = target;
  auto it = std::find(moodRecords_.begin(), moodRecords_.end(), record);
  if (!record || it == moodRecords_.end()) return;
  long index = static_cast<long>(it - moodRecords_.begin());
  historyView_.deselectRecordWithIndex(index, false);
  historyView_.scrollToRecordToIndex(index, false, false);
  historyView_.beginUpdate();
  moodRecords_.erase(it);
  historyView_.deleteRecordAtIndex(index);
  JournalStore& journal = store();
  LUMEO_DROP_ERROR(journal.deleteRecord(record));
  // The save posts the change notification, which refetches the list while
  // the update is open.
  if (env_.saveContext) {
    env_.saveContext();
  } else {
    journal.saveContext();
  }
  if (journal.lastSaveError()) {
    // Nothing may look deleted that is still in the file.
    if (auto context = journal.managedObjectContext()) context->rollback();
    historyView_.endUpdate();
    reloadMoodRecords(false);
    return;
  }
  if (!dataUpToDate_) reloadMoodRecords(false);
  historyView_.endUpdate();
  long count = static_cast<long>(moodRecords_.size());
  long next = std::min(index, count - 1);
  setSelectedMoodRecordIndex(next);
  if (next >= 0) historyView_.scrollToRecordToIndex(next, true, false);
  if (count == 0) {
    if (env_.showCaptureTab) {
      env_.showCaptureTab();
    } else if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
      if (auto tabs = app->tabBarController()) tabs->selectTab(MoodTabBarController::kCaptureTab, true);
    }
  }
}

void MoodHistoryViewController::deleteCurrentRecord() {
  if (auto record = selectedRecord()) deleteRecord(record);
}

void MoodHistoryViewController::deleteAllRecords() {
  while (!moodRecords_.empty()) {
    std::size_t before = moodRecords_.size();
    deleteRecord(moodRecords_.back());
    if (moodRecords_.size() >= before) break;  // a failed save: stop, nothing lost
  }
}

// --- Period filter -------------------------------------------------------------------

void MoodHistoryViewController::openPeriodFilter() {
  filter_.startDateSelected(store().getFirstDate(), now());
}

void MoodHistoryViewController::periodDateSelected(Date picked) {
  filter_.dateSelected(picked, now());
}

void MoodHistoryViewController::filterDoneClicked() {
  filter_.filterDoneClicked();
  if (view_) {
    view_->showFilterButton(filter_.filterButtonImageName());
    view_->closeSheets();
  }
  reloadMoodRecords(false);
}

void MoodHistoryViewController::filterResetClicked() {
  clearFilter();
  if (view_) {
    view_->showFilterButton(filter_.filterButtonImageName());
    view_->closeSheets();
  }
  reloadMoodRecords(false);
}

void MoodHistoryViewController::clearFilter() {
  filter_.clearFilter();
}

void MoodHistoryViewController::filterReset() {
  clearFilter();
  selectedTags_.clear();
  tags_.reset();
  if (view_) view_->showFilterButton(filter_.filterButtonImageName());
  if (viewLoaded_) {
    reloadMoodRecords(false);
  } else {
    dataUpToDate_ = false;
  }
}

// --- Tag filter ------------------------------------------------------------------------

const std::vector<std::shared_ptr<MoodTag>>& MoodHistoryViewController::tags() {
  if (!tags_) tags_ = store().tagsByFrequency();
  return *tags_;
}

void MoodHistoryViewController::toggleSelectedTag(const std::shared_ptr<MoodTag>& tag) {
  if (!tag) return;
  auto it = std::find(selectedTags_.begin(), selectedTags_.end(), tag);
  if (it == selectedTags_.end()) {
    selectedTags_.push_back(tag);
  } else {
    selectedTags_.erase(it);
  }
}

void MoodHistoryViewController::tagFilterDoneClicked() {
  if (selectedTags_.empty()) {
    clearFilter();
  } else {
    filter_.isFiltered = true;
  }
  if (view_) {
    view_->showFilterButton(filter_.filterButtonImageName());
    view_->closeSheets();
  }
  reloadMoodRecords(false);
}

// --- List or calendar ---------------------------------------------------------------------

void MoodHistoryViewController::setSelectedHistoryViewType(int type) {
  type = type == kCalendar ? kCalendar : kList;
  auto defaults = env_.defaults ? env_.defaults : UserDefaults::standard();
  LUMEO_DROP_ERROR(defaults->setInteger(kMoodHistorySelectedDefaultIndex, type));
  defaults->synchronize();
  bool changed = type != selectedHistoryViewType_;
  selectedHistoryViewType_ = type;
  selectedTags_.clear();
  if (view_) view_->closeSheets();
  if (type == kCalendar && view_) view_->scrollCalendarToCurrentMonth();
  if (changed) reloadMoodRecords(false);
}

std::shared_ptr<MoodDateHistoryViewController> MoodHistoryViewController::didCalendarViewPressed(long year,
                                                                                                 long month,
                                                                                                 long day,
                                                                                                 bool exist) {
  if (!exist) return nullptr;
  auto screen = std::make_shared<MoodDateHistoryViewController>(dateByYear(year, month, day), env_);
  push(screen);
  return screen;
}

// --- Refresh ---------------------------------------------------------------------------------

void MoodHistoryViewController::invalidate() {
  if (!MainLoop::shared().isMainThread()) {
    std::weak_ptr<Screen> weak = weak_from_this();
    DispatchQueue::main().async([weak] {
      if (auto self = std::static_pointer_cast<MoodHistoryViewController>(weak.lock()))
        self->performInvalidate();
    });
    return;
  }
  performInvalidate();
}

void MoodHistoryViewController::performInvalidate() {
  selectedMoodRecordIndex_ = -1;
  historyView_.setSelectedRecordWithIndex(-1, false);
  if (!filter_.isFiltered) {
    filter_.dateFrom.reset();
    filter_.dateTo.reset();
  }
  tags_.reset();
  if (viewLoaded_) {
    reloadMoodRecords(false);
  } else {
    dataUpToDate_ = false;
    moodRecords_.clear();
  }
  updateDetail();
}

void MoodHistoryViewController::didSyncEnd() {
  reloadMoodRecords(true);
  store().requestDates([this](Date first, Date last) { filter_.requestDates(first, last, now()); });
}

}  // namespace lumeo
