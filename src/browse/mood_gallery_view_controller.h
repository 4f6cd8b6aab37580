// The photo gallery: one full-screen page per record of a list, paged
// sideways, with only the pages near the current one alive (the rest are
// recycled), a bottom panel with the record's comment and date, and the
// selection handed back to the list beneath when scrolling stops.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "browse/carousel_photo_view.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodRecord;

class MoodGalleryViewControllerDelegate {
 public:
  virtual ~MoodGalleryViewControllerDelegate() = default;
  virtual std::string titleForMoodGallery() = 0;
  virtual void selectMoodRecord(const std::shared_ptr<MoodRecord>& record) = 0;
  // The share sheet for the record the gallery shows (already selected).
  virtual void chooseAction() = 0;
};

// What the bottom panel shows.
struct MoodGalleryPanel {
  std::string title;      // from the delegate
  std::string backTitle;  // "Back"
  std::string comment;    // tagged text, two lines
  std::string dateText;   // short date and time
  bool editedLabelVisible = false;
  long maxLinesCount = 2;
};

class MoodGalleryViewController : public MoodViewController {
 public:
  // Pages kept alive on each side of the current one.
  static constexpr long kPageRadius = 1;

  MoodGalleryViewController();
  ~MoodGalleryViewController() override;

  void setDelegate(std::weak_ptr<MoodGalleryViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  void setMoodRecords(std::vector<std::shared_ptr<MoodRecord>> records);
  const std::vector<std::shared_ptr<MoodRecord>>& moodRecords() const { return moodRecords_; }
  // Where the records come from when the journal changed (a save here, or
  // another program's write read again): the list that opened the gallery,
  // fetched again. Without a source, or when it answers nothing, the
  // gallery keeps those of its own records that are still there.
  using RecordsSource = std::function<std::optional<std::vector<std::shared_ptr<MoodRecord>>>()>;
  void setRecordsSource(RecordsSource source) { source_ = std::move(source); }
  // Told around a change of the list, so a front end can rebuild its pages.
  void setRecordsChangeHandlers(std::function<void()> willChange, std::function<void()> didChange) {
    willChange_ = std::move(willChange);
    didChange_ = std::move(didChange);
  }
  // After a change of the journal: records that are gone or have lost their
  // photo leave, new ones with a photo join, and the gallery stays on the
  // record it showed, or on its neighbour (the next one, else the one
  // before) when that one went. Always scrolls back to the current record.
  void reloadMoodRecords();
  // Whether a record is still in the journal with a photo to page to.
  static bool showsPhoto(const std::shared_ptr<MoodRecord>& record);
  // Clamped into the list.
  void setCurrentRecord(long index);
  long currentRecord() const { return currentRecord_; }
  std::shared_ptr<MoodRecord> selectedMoodRecord() const;

  // The width of one page (the screen's); the content is one page a record.
  void setPageWidth(double width);
  double pageWidth() const { return pageWidth_; }
  double contentWidth() const { return pageWidth_ * static_cast<double>(moodRecords_.size()); }
  double contentOffset() const { return contentOffset_; }

  // Scrolling: the current page follows the offset and the pages around it
  // are made or recycled.
  void scrollViewDidScroll(double offset);
  // Scrolling stopped: the list beneath selects the record.
  void scrollViewDidEndScrolling() { propagateSelectionToDelegate(); }
  void scrollToCurrentRecord();
  void propagateSelectionToDelegate();
  // One page needs no scrolling.
  bool isScrollEnabled() const { return moodRecords_.size() > 1; }

  // The page views alive, by page index.
  std::vector<long> livePageIndices() const;
  const CarouselPhotoView* pageViewForIndex(long index) const;
  // How many page views were ever made: the pool keeps this small.
  long pageViewsMade() const { return pageViewsMade_; }

  // --- Bottom panel ---------------------------------------------------------------
  void updateViews();
  const MoodGalleryPanel& panel() const { return panel_; }
  bool isBottomViewHidden() const { return bottomHidden_; }
  void setBottomViewHidden(bool hidden, bool animated);
  void toggleBottomViewHidden() { setBottomViewHidden(!bottomHidden_, true); }
  void chooseAction();

 private:
  void updatePhotoViewsWithRadius(long radius);
  void markViewsForReuse(long radius);
  CarouselPhotoView& requireViewForIndex(long index);

  std::weak_ptr<MoodGalleryViewControllerDelegate> delegate_;
  std::vector<std::shared_ptr<MoodRecord>> moodRecords_;
  long currentRecord_ = 0;
  double pageWidth_ = 320;
  double contentOffset_ = 0;
  std::vector<std::unique_ptr<CarouselPhotoView>> pageViews_;
  long pageViewsMade_ = 0;
  MoodGalleryPanel panel_;
  bool bottomHidden_ = false;
  RecordsSource source_;
  std::function<void()> willChange_;
  std::function<void()> didChange_;
  ScopedObserver modelChanged_;
};

}  // namespace lumeo
