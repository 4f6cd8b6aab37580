// The tag pages' ranking, photo list, texts and swipe state.
#include "insight/mood_top_tags_view_controller.h"

#include <algorithm>

#include "capture/mood_levels_presentation.h"
#include "platform/dispatch_queue.h"
#include "platform/localization.h"
#include "platform/user_defaults.h"
#include "store/journal_store.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

bool isNegativeTag(long long sum, long long frequency) {
  return sum <= 5 * frequency;
}

long long tagWeight(long long sum, long long frequency) {
  return 2 * sum - 11 * frequency;
}

namespace {

std::vector<RankedTag> sideOf(std::vector<RankedTag> tags, bool negativeFilter) {
  std::erase_if(tags,
                [&](const RankedTag& t) { return isNegativeTag(t.sum, t.frequency) != negativeFilter; });
  // The store returns tags in no order; names make ties come out the same
  // way every time.
  std::stable_sort(tags.begin(), tags.end(),
                   [](const RankedTag& a, const RankedTag& b) { return a.tagName < b.tagName; });
  return tags;
}

void sortByWeight(std::vector<RankedTag>& tags, long long direction) {
  std::stable_sort(tags.begin(), tags.end(), [direction](const RankedTag& a, const RankedTag& b) {
    return (tagWeight(b.sum, b.frequency) - tagWeight(a.sum, a.frequency)) * direction < 0;
  });
}

// By average without division: sum(b)·freq(a) against freq(b)·sum(a).
void sortByAverage(std::vector<RankedTag>& tags, long long direction) {
  std::stable_sort(tags.begin(), tags.end(), [direction](const RankedTag& a, const RankedTag& b) {
    return (b.sum * a.frequency - b.frequency * a.sum) * direction < 0;
  });
}

std::vector<RankedTag> figuresOf(const std::vector<std::shared_ptr<MoodTag>>& tags) {
  std::vector<RankedTag> out;
  out.reserve(tags.size());
  for (const auto& tag : tags) {
    if (!tag) continue;
    // Fresh sums: the cached one may predate the last change.
    tag->setCachedLevelSum(std::nullopt);
    RankedTag ranked;
    ranked.tag = tag;
    ranked.tagName = tag->tagName();
    ranked.sum = tag->cachedLevelSum();
    ranked.frequency = tag->frequency();
    out.push_back(std::move(ranked));
  }
  return out;
}

}  // namespace

std::vector<RankedTag> rankTopTags(std::vector<RankedTag> tags, bool negativeFilter) {
  const long long direction = negativeFilter ? -1 : 1;
  tags = sideOf(std::move(tags), negativeFilter);
  sortByWeight(tags, direction);
  sortByAverage(tags, direction);
  return tags;
}

std::vector<RankedTag> rankTopTagsForPDF(std::vector<RankedTag> tags, bool negativeFilter) {
  const long long direction = negativeFilter ? -1 : 1;
  tags = sideOf(std::move(tags), negativeFilter);
  if (tags.size() > kPDFTopTagsLimit) {
    sortByWeight(tags, direction);
    tags.resize(kPDFTopTagsLimit);
  }
  sortByAverage(tags, direction);
  return tags;
}

MoodTopTagsViewController::MoodTopTagsViewController(JournalStore& store, bool negativeFilter,
                                                     std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodTopTagsViewController"),
      store_(store),
      negativeFilter_(negativeFilter),
      defaults_(defaults ? std::move(defaults) : UserDefaults::standard()) {
  for (const char* name : {IDMSyncActivityDidDataMergingEndNotification, IDMSyncActivityDidEnd,
                           MoodModelHasChangedNotification}) {
    observers_.emplace_back(NotificationCenter::defaultCenter(), name, nullptr,
                            [this](const Notification&) { invalidate(); });
  }
  // The other side's layout change.
  observers_.emplace_back(NotificationCenter::defaultCenter(),
                          negativeFilter_ ? MoodTopTagsPositiveSwipeChangedNotification
                                          : MoodTopTagsNegativeSwipeChangedNotification,
                          nullptr, [this](const Notification&) { updateSwipe(); });
}

MoodTopTagsViewController::~MoodTopTagsViewController() = default;

void MoodTopTagsViewController::viewDidLoad() {
  viewLoaded_ = true;
  if (defaults_ && defaults_->objectForKey(kSwipeUp).isNull()) (void)defaults_->setBool(kSwipeUp, false);
}

void MoodTopTagsViewController::viewWillAppear() {
  viewLoaded_ = true;
  if (!dataUpToDate_) reloadMoodRecords();
  swipeHintHidden_ = defaults_ && defaults_->boolForKey(kSwipeViewHidden);
  updateSwipe();
}

void MoodTopTagsViewController::reloadMoodRecords() {
  reloadPhotoRecords();
  reloadTopTags();
  dataUpToDate_ = true;
}

void MoodTopTagsViewController::reloadPhotoRecords() {
  recordsWithPhotos_ = store_.recordsWithPhoto(!negativeFilter_);
  carouselIndex_ = recordsWithPhotos_.empty() ? -1 : static_cast<long>(recordsWithPhotos_.size()) - 1;
  if (auto delegate = delegate_.lock()) delegate->scrollCarouselToItem(carouselIndex_, false);
}

void MoodTopTagsViewController::reloadTopTags() {
  topTags_ = rankTopTags(figuresOf(store_.usedTags()), negativeFilter_);
  rows_.clear();
  const double fontSize = kRowFontSize + fontSizeModifier_;
  const MoodLevelsPresentation levels = MoodLevelsPresentation::defaultMoodLevels();
  for (const RankedTag& ranked : topTags_) {
    TopTagRow row;
    row.tag = ranked.tag;
    row.tagName = ranked.tagName;
    row.average = ranked.average();
    row.frequency = static_cast<long>(ranked.frequency);
    if (ranked.tag) {
      row.label = ranked.tag->attributedStringWithFontFize(fontSize);
      row.countLabel = ranked.tag->attributedStringByCountWithFontFize(fontSize);
    }
    row.color = levels.interpolatedColorForMoodLevel(row.average).value_or(Color(1, 1, 1, 1));
    rows_.push_back(std::move(row));
  }
  notifyView();
}

void MoodTopTagsViewController::invalidate() {
  if (!MainLoop::shared().isMainThread()) return;
  if (viewLoaded_ && onScreen_) {
    reloadMoodRecords();
  } else {
    dataUpToDate_ = false;
  }
}

std::vector<std::shared_ptr<MoodTag>> MoodTopTagsViewController::filterTagsByAverage(
    const std::vector<std::shared_ptr<MoodTag>>& tags) const {
  std::vector<std::shared_ptr<MoodTag>> out;
  for (const auto& tag : tags) {
    if (!tag) continue;
    tag->setCachedLevelSum(std::nullopt);
    const long long sum = tag->cachedLevelSum();
    if (isNegativeTag(sum, tag->frequency()) == negativeFilter_) out.push_back(tag);
  }
  return out;
}

std::vector<RankedTag> MoodTopTagsViewController::tagArrayForPDF(JournalStore& store, bool negativeFilter) {
  return rankTopTagsForPDF(figuresOf(store.usedTags()), negativeFilter);
}

std::string MoodTopTagsViewController::titleForMoodGallery() const {
  return localized(negativeFilter_ ? "Negative" : "Positive");
}

std::optional<std::string> MoodTopTagsViewController::emptyTagsText() const {
  if (!topTags_.empty()) return std::nullopt;
  return localizedStringWithFormat("No tags are associated\nwith %@ mood",
                                   localized(negativeFilter_ ? "negative" : "positive"));
}

std::optional<std::string> MoodTopTagsViewController::emptyPhotosText() const {
  if (!recordsWithPhotos_.empty()) return std::nullopt;
  return localizedStringWithFormat("No photos attached\nto %@ mood records",
                                   localized(negativeFilter_ ? "negative" : "positive"));
}

void MoodTopTagsViewController::selectMoodRecord(const std::shared_ptr<MoodRecord>& record) {
  if (!dataUpToDate_) reloadMoodRecords();
  if (!record) return;
  for (std::size_t i = 0; i < recordsWithPhotos_.size(); ++i) {
    if (recordsWithPhotos_[i] == record || recordsWithPhotos_[i]->objectID() == record->objectID()) {
      carouselIndex_ = static_cast<long>(i);
      if (auto delegate = delegate_.lock()) delegate->scrollCarouselToItem(carouselIndex_, true);
      return;
    }
  }
}

void MoodTopTagsViewController::carouselDidSelectItemAtIndex(long index) {
  if (index < 0 || index >= static_cast<long>(recordsWithPhotos_.size())) return;
  if (index == carouselIndex_) {
    if (auto delegate = delegate_.lock()) delegate->pushGallery(recordsWithPhotos_, index);
    return;
  }
  carouselIndex_ = index;
  if (auto delegate = delegate_.lock()) delegate->scrollCarouselToItem(index, true);
}

void MoodTopTagsViewController::didSelectRowAtIndex(std::size_t index) {
  if (index >= rows_.size() || !rows_[index].tag) return;
  if (auto delegate = delegate_.lock()) delegate->pushTagHistory(rows_[index].tag);
}

bool MoodTopTagsViewController::panBegan(double y) {
  panActive_ = y < (isUpped_ ? kSwipeStartLimitRaised : kSwipeStartLimit);
  return panActive_;
}

void MoodTopTagsViewController::panEnded(double dy, double velocityY) {
  if (!panActive_) return;
  panActive_ = false;
  if (velocityY > kSwipeVelocityLimit || velocityY < -kSwipeVelocityLimit) {
    setUpped(velocityY < 0, kSwipeVelocitySeconds);  // upward raises
  } else {
    setUpped(-dy > kSwipeRaiseDistance, kSwipePositionSeconds);
  }
}

void MoodTopTagsViewController::setUpped(bool upped, double seconds) {
  isUpped_ = upped;
  if (defaults_) {
    (void)defaults_->setBool(kSwipeUp, upped);
    // Once raised, the hint has done its job for good.
    if (upped) (void)defaults_->setBool(kSwipeViewHidden, true);
  }
  if (upped) swipeHintHidden_ = true;
  if (auto delegate = delegate_.lock()) delegate->swipeLayoutChanged(upped, seconds);
  NotificationCenter::defaultCenter().post(negativeFilter_ ? MoodTopTagsNegativeSwipeChangedNotification
                                                           : MoodTopTagsPositiveSwipeChangedNotification,
                                           this);
}

void MoodTopTagsViewController::updateSwipe() {
  const bool upped = defaults_ && defaults_->boolForKey(kSwipeUp);
  if (defaults_ && defaults_->boolForKey(kSwipeViewHidden)) swipeHintHidden_ = true;
  if (upped == isUpped_) return;
  isUpped_ = upped;
  if (auto delegate = delegate_.lock()) delegate->swipeLayoutChanged(upped, 0);
}

void MoodTopTagsViewController::notifyView() {
  if (auto delegate = delegate_.lock()) delegate->topTagsUpdated(*this);
}

}  // namespace lumeo
