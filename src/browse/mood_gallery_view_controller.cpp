// Gallery paging with a recycled window of pages, and its bottom panel.
#include "browse/mood_gallery_view_controller.h"

#include <algorithm>
#include <cmath>

#include "browse/browse_text.h"
#include "objectgraph/managed_object_context.h"
#include "platform/date_formatter.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/notification_names.h"

namespace lumeo {

MoodGalleryViewController::MoodGalleryViewController()
    : MoodViewController("MoodGalleryViewController"),
      modelChanged_(NotificationCenter::defaultCenter(), MoodModelHasChangedNotification, nullptr,
                    [this](const Notification&) { reloadMoodRecords(); }) {}

MoodGalleryViewController::~MoodGalleryViewController() = default;

void MoodGalleryViewController::setMoodRecords(std::vector<std::shared_ptr<MoodRecord>> records) {
  moodRecords_ = std::move(records);
  pageViews_.clear();
  setCurrentRecord(currentRecord_);
}

bool MoodGalleryViewController::showsPhoto(const std::shared_ptr<MoodRecord>& record) {
  if (!record || record->isDeleted()) return false;
  ManagedObjectContext* context = record->managedObjectContext();
  // A record another program deleted is a fault whose row is gone.
  if (!context || !context->existingObjectWithID(record->objectID())) return false;
  auto description = record->moodDescription();
  return description && !description->photoName().value_or("").empty();
}

void MoodGalleryViewController::reloadMoodRecords() {
  std::optional<std::vector<std::shared_ptr<MoodRecord>>> fetched;
  if (source_) fetched = source_();
  std::vector<std::shared_ptr<MoodRecord>> fresh = fetched ? std::move(*fetched) : moodRecords_;
  std::erase_if(fresh, [](const auto& record) { return !showsPhoto(record); });
  if (fresh == moodRecords_) {
    scrollToCurrentRecord();
    return;
  }
  auto indexIn = [&fresh](const std::shared_ptr<MoodRecord>& record) -> long {
    auto it = std::find(fresh.begin(), fresh.end(), record);
    return it == fresh.end() ? -1 : static_cast<long>(it - fresh.begin());
  };
  // The record shown, else the first one after it that stayed, else the
  // last one before it.
  long next = -1;
  const long count = static_cast<long>(moodRecords_.size());
  for (long i = currentRecord_; next < 0 && i < count; ++i) next = indexIn(moodRecords_[i]);
  for (long i = std::min(currentRecord_, count) - 1; next < 0 && i >= 0; --i) next = indexIn(moodRecords_[i]);
  if (willChange_) willChange_();
  moodRecords_ = std::move(fresh);
  pageViews_.clear();
  const long size = static_cast<long>(moodRecords_.size());
  currentRecord_ = size == 0 ? 0 : std::clamp(next < 0 ? currentRecord_ : next, 0L, size - 1);
  scrollToCurrentRecord();
  if (didChange_) didChange_();
}

void MoodGalleryViewController::setCurrentRecord(long index) {
  long count = static_cast<long>(moodRecords_.size());
  currentRecord_ = count == 0 ? 0 : std::clamp(index, 0L, count - 1);
  scrollToCurrentRecord();
}

std::shared_ptr<MoodRecord> MoodGalleryViewController::selectedMoodRecord() const {
  if (currentRecord_ < 0 || currentRecord_ >= static_cast<long>(moodRecords_.size())) return nullptr;
  return moodRecords_[currentRecord_];
}

void MoodGalleryViewController::setPageWidth(double width) {
  if (width > 0) pageWidth_ = width;
  scrollToCurrentRecord();
}

void MoodGalleryViewController::scrollViewDidScroll(double offset) {
  long count = static_cast<long>(moodRecords_.size());
  contentOffset_ = std::clamp(offset, 0.0, std::max(0.0, contentWidth() - pageWidth_));
  if (count == 0) return;
  long index = static_cast<long>(std::lround(contentOffset_ / pageWidth_));
  index = std::clamp(index, 0L, count - 1);
  if (index != currentRecord_) {
    currentRecord_ = index;
    updateViews();
  }
  updatePhotoViewsWithRadius(kPageRadius);
}

void MoodGalleryViewController::scrollToCurrentRecord() {
  contentOffset_ = pageWidth_ * static_cast<double>(currentRecord_);
  updatePhotoViewsWithRadius(kPageRadius);
  updateViews();
}

void MoodGalleryViewController::propagateSelectionToDelegate() {
  auto delegate = delegate_.lock();
  auto record = selectedMoodRecord();
  if (delegate && record) delegate->selectMoodRecord(record);
}

void MoodGalleryViewController::markViewsForReuse(long radius) {
  for (auto& view : pageViews_) {
    if (view->index >= 0 && std::labs(view->index - currentRecord_) > radius) view->index = -1;
  }
}

CarouselPhotoView& MoodGalleryViewController::requireViewForIndex(long index) {
  for (auto& view : pageViews_) {
    if (view->index == index) return *view;
  }
  CarouselPhotoView* reusable = nullptr;
  for (auto& view : pageViews_) {
    if (view->index < 0) {
      reusable = view.get();
      break;
    }
  }
  if (!reusable) {
    pageViews_.push_back(std::make_unique<CarouselPhotoView>());
    ++pageViewsMade_;
    reusable = pageViews_.back().get();
  }
  reusable->index = index;
  auto description = moodRecords_[index]->moodDescription();
  reusable->setImageName(description ? description->photoName() : std::nullopt);
  return *reusable;
}

void MoodGalleryViewController::updatePhotoViewsWithRadius(long radius) {
  long count = static_cast<long>(moodRecords_.size());
  markViewsForReuse(radius);
  for (long i = std::max(0L, currentRecord_ - radius); i <= std::min(count - 1, currentRecord_ + radius);
       ++i) {
    requireViewForIndex(i);
  }
}

std::vector<long> MoodGalleryViewController::livePageIndices() const {
  std::vector<long> out;
  for (const auto& view : pageViews_) {
    if (view->index >= 0) out.push_back(view->index);
  }
  std::sort(out.begin(), out.end());
  return out;
}

const CarouselPhotoView* MoodGalleryViewController::pageViewForIndex(long index) const {
  for (const auto& view : pageViews_) {
    if (view->index == index) return view.get();
  }
  return nullptr;
}

void MoodGalleryViewController::updateViews() {
  panel_ = MoodGalleryPanel{};
  panel_.backTitle = browseText("Back");
  if (auto delegate = delegate_.lock()) panel_.title = delegate->titleForMoodGallery();
  auto record = selectedMoodRecord();
  if (!record) return;
  if (auto description = record->moodDescription()) {
    panel_.comment = description->comment().value_or("");
    panel_.editedLabelVisible = description->wasEdited();
  }
  if (auto when = record->date()) {
    panel_.dateText = DateFormatter::localizedStringFromDate(*when, DateFormatter::Style::kShort,
                                                             DateFormatter::Style::kShort);
  }
}

void MoodGalleryViewController::setBottomViewHidden(bool hidden, bool animated) {
  (void)animated;
  bottomHidden_ = hidden;
}

void MoodGalleryViewController::chooseAction() {
  auto delegate = delegate_.lock();
  if (!delegate || !selectedMoodRecord()) return;
  propagateSelectionToDelegate();
  delegate->chooseAction();
}

}  // namespace lumeo
