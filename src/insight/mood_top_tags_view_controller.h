// The summary's tag pages: one lists the tags that go with good moods, the
// other (negativeFilter) those that go with bad ones, each with a carousel
// of the photos of records on the same side of the scale. A tag's side is
// the side of its average level; the list is ordered by average, the
// strongest first, and the PDF report keeps only the eight heaviest tags.
// All arithmetic is on exact integers (sums and counts of whole levels), so
// that a tag whose average is exactly 5 is always negative.
//
// The controller holds the page's state and rules; a front end renders it
// through the view delegate. Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/color.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"
#include "store/attributed_string.h"

namespace lumeo {

class JournalStore;
class MoodRecord;
class MoodTag;
class UserDefaults;

// After a layout change of one side, the other side follows through
// updateSwipe. One name for each side.
inline constexpr char MoodTopTagsPositiveSwipeChangedNotification[] =
    "MoodTopTagsPositiveSwipeChangedNotification";
inline constexpr char MoodTopTagsNegativeSwipeChangedNotification[] =
    "MoodTopTagsNegativeSwipeChangedNotification";

// A tag's figures: the sum of its records' levels and their number.
struct RankedTag {
  std::shared_ptr<MoodTag> tag;  // null in figures made by hand
  std::string tagName;
  long long sum = 0;
  long long frequency = 0;
  double average() const {
    return frequency < 1 ? 0.0 : static_cast<double>(sum) / static_cast<double>(frequency);
  }
};

// Negative when sum ≤ 5 × frequency: an average of exactly 5 is negative.
bool isNegativeTag(long long sum, long long frequency);
// 2 × sum − 11 × frequency: twice the distance of each record from the
// scale's midpoint 5.5, summed. Extreme and frequent tags weigh most.
long long tagWeight(long long sum, long long frequency);

// The tags of one side in the page's order: by weight (the strongest
// first), then by average (highest first for positive, lowest first for
// negative). Tags that tie keep the order of their names.
std::vector<RankedTag> rankTopTags(std::vector<RankedTag> tags, bool negativeFilter);
// The report's variant: as rankTopTags, but more than 8 tags are first cut
// to the 8 of the highest weight (lowest on the negative side).
std::vector<RankedTag> rankTopTagsForPDF(std::vector<RankedTag> tags, bool negativeFilter);
inline constexpr std::size_t kPDFTopTagsLimit = 8;

// One row of the list.
struct TopTagRow {
  std::shared_ptr<MoodTag> tag;
  std::string tagName;
  double average = 0;
  long frequency = 0;
  AttributedString label;       // "#Name 7.5", the name in bold
  AttributedString countLabel;  // "#Name 12"
  Color color;                  // the average's interpolated level colour
};

class MoodTopTagsViewController;

class MoodTopTagsViewDelegate {
 public:
  virtual ~MoodTopTagsViewDelegate() = default;
  // Rows, carousel or texts changed; read them from the controller.
  virtual void topTagsUpdated(MoodTopTagsViewController& controller) = 0;
  // The carousel moves to an item (without animation when `animated` is false).
  virtual void scrollCarouselToItem(long index, bool animated) { (void)index, (void)animated; }
  // A tap on the centre photo: the gallery with all photos of the side.
  virtual void pushGallery(const std::vector<std::shared_ptr<MoodRecord>>& records, long index) {
    (void)records, (void)index;
  }
  // A tap on a row: the tag's history.
  virtual void pushTagHistory(const std::shared_ptr<MoodTag>& tag) { (void)tag; }
  // The layout moved (raised or not), over `seconds`.
  virtual void swipeLayoutChanged(bool raised, double seconds) { (void)raised, (void)seconds; }
};

class MoodTopTagsViewController : public MoodViewController {
 public:
  // Carousel settings.
  static constexpr int kCarouselType = 7;
  static constexpr int kCarouselVisibleItems = 9;
  // Row font size on the base screen; the device's modifier is added.
  static constexpr double kRowFontSize = 15;
  // The swipe between the two layouts.
  static constexpr double kSwipeStartLimit = 240;
  static constexpr double kSwipeStartLimitRaised = 140;
  static constexpr double kSwipeVelocityLimit = 600;
  static constexpr double kSwipeRaiseDistance = 77;
  static constexpr double kSwipeVelocitySeconds = 0.25;
  static constexpr double kSwipePositionSeconds = 0.5;

  MoodTopTagsViewController(JournalStore& store, bool negativeFilter,
                            std::shared_ptr<UserDefaults> defaults = nullptr);
  ~MoodTopTagsViewController() override;

  void setDelegate(std::weak_ptr<MoodTopTagsViewDelegate> delegate) { delegate_ = std::move(delegate); }
  void setFontSizeModifier(double modifier) { fontSizeModifier_ = modifier; }

  bool negativeFilter() const { return negativeFilter_; }
  bool dataUpToDate() const { return dataUpToDate_; }

  // --- Life cycle ---------------------------------------------------------
  // Writes "swipeUp" as false when absent.
  void viewDidLoad();
  // Reloads when stale, then applies "swipeViewHidden" and the layout.
  void viewWillAppear();
  void viewDidAppear() { onScreen_ = true; }
  void viewDidDisappear() { onScreen_ = false; }

  // --- Data -----------------------------------------------------------------
  void reloadMoodRecords();
  void reloadPhotoRecords();
  void reloadTopTags();
  void invalidate();
  // The tags on this page's side.
  std::vector<std::shared_ptr<MoodTag>> filterTagsByAverage(
      const std::vector<std::shared_ptr<MoodTag>>& tags) const;
  // The report's tag list of one side, from the journal.
  static std::vector<RankedTag> tagArrayForPDF(JournalStore& store, bool negativeFilter);

  const std::vector<RankedTag>& topTags() const { return topTags_; }
  const std::vector<TopTagRow>& rows() const { return rows_; }
  const std::vector<std::shared_ptr<MoodRecord>>& recordsWithPhotos() const { return recordsWithPhotos_; }
  long currentCarouselIndex() const { return carouselIndex_; }

  // "Positive" or "Negative".
  std::string titleForMoodGallery() const;
  // The empty-state texts; nothing when there is something to show.
  std::optional<std::string> emptyTagsText() const;
  std::optional<std::string> emptyPhotosText() const;

  // --- Actions --------------------------------------------------------------
  // Reloads if needed and moves the carousel to the record, if it is there.
  void selectMoodRecord(const std::shared_ptr<MoodRecord>& record);
  // A tap on a carousel item: the centre opens the gallery, another one
  // comes to the centre.
  void carouselDidSelectItemAtIndex(long index);
  void didSelectRowAtIndex(std::size_t index);

  // --- Swipe ----------------------------------------------------------------
  bool isUpped() const { return isUpped_; }
  bool swipeHintHidden() const { return swipeHintHidden_; }
  // A pan starting at `y` (points from the top) takes over when it starts
  // above the limit; returns whether it did.
  bool panBegan(double y);
  // The pan ended, having moved `dy` points (negative: up) at `velocityY`
  // points a second (negative: up).
  void panEnded(double dy, double velocityY);
  // Reads "swipeUp" and applies it (the other side changed it).
  void updateSwipe();

 private:
  void setUpped(bool upped, double seconds);
  void notifyView();

  JournalStore& store_;
  bool negativeFilter_;
  std::shared_ptr<UserDefaults> defaults_;
  std::weak_ptr<MoodTopTagsViewDelegate> delegate_;
  double fontSizeModifier_ = 0;
  std::vector<RankedTag> topTags_;
  std::vector<TopTagRow> rows_;
  std::vector<std::shared_ptr<MoodRecord>> recordsWithPhotos_;
  long carouselIndex_ = -1;
  bool dataUpToDate_ = false;
  bool viewLoaded_ = false;
  bool onScreen_ = false;
  bool isUpped_ = false;
  bool swipeHintHidden_ = false;
  bool panActive_ = false;
  std::vector<ScopedObserver> observers_;
};

}  // namespace lumeo
