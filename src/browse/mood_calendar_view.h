// The calendar mode of the History tab: every month from January 1970 to
// now in one scrolling column, with month and header views recycled as they
// scroll in and out. A month fetches its records once when it comes into
// view; a day shows a picture, its number and a strip with one piece per
// record in date order, each in its own level's colour (no averaging).
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "browse/mood_calendar_layout.h"
#include "platform/color.h"
#include "platform/date.h"

namespace lumeo {

class JournalStore;
class MoodRecord;
class MoodTag;
class MoodLevelsPresentation;

// The looks of a day.
inline constexpr Color kMoodDayEmptyBackground = Color(0xf8 / 255.0, 0xf8 / 255.0, 0xf8 / 255.0);
inline constexpr Color kMoodDayEmptyNumber = Color(0x64 / 255.0, 0x64 / 255.0, 0x64 / 255.0);
inline constexpr Color kMoodDayNumber = Color(1, 1, 1);
// The tile of a day whose records have no picture (a white strip across).
inline constexpr Color kMoodDayNoPhotoTile = Color(0xce / 255.0, 0x51 / 255.0, 0x23 / 255.0);
// Today's highlight: defined, never shown (the check for today is off).
inline constexpr Color kMoodDayTodayBackground = Color(0x2f / 255.0, 0x80 / 255.0, 0xed / 255.0);
inline constexpr Color kMoodCalendarWeekdayColor = Color(0xb4 / 255.0, 0xb4 / 255.0, 0xb4 / 255.0);

struct MoodDayStripPiece {
  double x = 0;  // from the strip's left, in points
  double width = 0;
  Color color;
  long level = 0;
};

class MoodDayView {
 public:
  enum class Look { kEmpty, kNoPhoto, kPhoto };

  long year = 0;
  long month = 0;
  long day = 0;  // zero-based: shown as day + 1
  bool hidden = false;
  MoodDayPlacement placement;
  Rect frame;  // in the month view

  // The day's records in date order, coloured by `levels`.
  void setRecords(std::vector<std::shared_ptr<MoodRecord>> records, const MoodLevelsPresentation& levels);
  const std::vector<std::shared_ptr<MoodRecord>>& records() const { return records_; }
  // The record whose thumbnail shows: the first with one, else the first.
  const std::shared_ptr<MoodRecord>& pictureRecord() const { return pictureRecord_; }
  Look look() const { return look_; }
  std::optional<Color> background() const;
  Color numberColor() const { return look_ == Look::kEmpty ? kMoodDayEmptyNumber : kMoodDayNumber; }
  // The thumbnail's file for kPhoto; absent when the file is not there.
  const std::optional<std::filesystem::path>& imageFile() const { return imageFile_; }
  const std::vector<MoodDayStripPiece>& strip() const { return strip_; }
  bool exists() const { return !records_.empty(); }
  // Never true: the highlight of today stays off.
  static bool checkCurrentDate() { return false; }

  // The tap: year, month, the day (one-based) and whether it has records.
  std::function<void(long year, long month, long day, bool exist)> pressed;
  void buttonPressed() const {
    if (pressed) pressed(year, month, day + 1, exists());
  }

 private:
  void updateDayView();

  std::vector<std::shared_ptr<MoodRecord>> records_;
  std::shared_ptr<MoodRecord> pictureRecord_;
  Look look_ = Look::kEmpty;
  std::optional<std::filesystem::path> imageFile_;
  std::vector<MoodDayStripPiece> strip_;
};

class MoodCalendarMonthView {
 public:
  MoodCalendarMonthView(JournalStore& store, MoodCalendarMetrics metrics);

  long year() const { return year_; }
  long month() const { return month_; }
  void setTags(std::vector<std::shared_ptr<MoodTag>> tags) { tags_ = std::move(tags); }
  // Fetches the month's records (with any of the tags, when there are any)
  // and lays out and fills the 31 day views.
  void setYearMonth(long year, long month);
  // The 31 day views, made once and reused.
  const std::vector<MoodDayView>& dayViews() const { return days_; }
  std::vector<MoodDayView>& dayViews() { return days_; }
  long numberOfDays() const { return numberOfDays_; }
  // The weekday headings: the first letter of each weekday's name in upper
  // case, from the calendar's first weekday.
  static std::vector<std::string> weekdayHeadings();
  std::function<void(long year, long month, long day, bool exist)> dayPressed;

 private:
  JournalStore& store_;
  MoodCalendarMetrics metrics_;
  long year_ = 0;
  long month_ = 0;
  long numberOfDays_ = 0;
  std::vector<std::shared_ptr<MoodTag>> tags_;
  std::vector<MoodDayView> days_;
};

class MoodCalendarViewDelegate {
 public:
  virtual ~MoodCalendarViewDelegate() = default;
  virtual void didCalendarViewPressed(long year, long month, long day, bool exist) = 0;
  virtual void didCalendarViewCurrentMonthIndexChanged(long index) = 0;
};

class MoodCalendarView {
 public:
  // All months up to the one of `now`, in a viewport of that height.
  MoodCalendarView(JournalStore& store, MoodCalendarMetrics metrics, double viewportHeight, Date now);

  void setDelegate(MoodCalendarViewDelegate* delegate) { delegate_ = delegate; }
  const MoodCalendarLayout& layout() const { return layout_; }

  long currentMonthIndex() const { return currentMonthIndex_; }
  void setCurrentMonthIndex(long index);
  long lastMonthIndex() const { return layout_.monthCount() - 1; }
  // "November 2026": the month button's text.
  std::string monthButtonTitle() const;
  // "November 2026": a header's title.
  static std::string headerByMonthIndex(long index);

  // Refreshes the visible months with these tags (none: all records).
  void setTags(std::vector<std::shared_ptr<MoodTag>> tags) { tags_ = std::move(tags); }
  void reload();

  // --- Scrolling --------------------------------------------------------------------
  double contentOffset() const { return offset_; }
  void scrollViewDidScroll(double offset);
  void scrollViewWillBeginDragging();
  void scrollViewDidEndDragging(bool willDecelerate);
  void scrollViewDidEndDecelerating();
  // Pages to the visible month with the greatest visible height.
  void checkCurrentIndex();
  void scrollToMonthIndex(long index, bool animated);
  // The month picker's choice, clamped to the current month.
  void monthPicked(long year, long month);

  // The views in use: month view for a month index, header title of one.
  MoodCalendarMonthView* monthViewForIndex(long index);
  std::optional<std::string> headerTitleForIndex(long index) const;
  std::vector<long> visibleMonths() const;
  const MoodCalendarRecycler& monthRecycler() const { return months_; }
  const MoodCalendarRecycler& headerRecycler() const { return headers_; }

  // --- Header opening ---------------------------------------------------------------
  long openedIndex() const { return openedIndex_; }
  // Opens the header of a month (closing an open one first), or closes it
  // with -1. The views below move by the height difference over 0.25 s
  // (type 1), 0.125 s (type 2) or at once (type 0): the returned duration.
  double updateCalendarHeader(long monthIndex, int animationType);

 private:
  void setUpViews(const std::vector<std::pair<long, long>>& months,
                  const std::vector<std::pair<long, long>>& headers);

  JournalStore& store_;
  MoodCalendarMetrics metrics_;
  double viewportHeight_;
  MoodCalendarLayout layout_;
  MoodCalendarViewDelegate* delegate_ = nullptr;
  long currentMonthIndex_ = 0;
  long openedIndex_ = -1;
  double offset_ = 0;
  std::vector<std::shared_ptr<MoodTag>> tags_;
  MoodCalendarRecycler months_;
  MoodCalendarRecycler headers_;
  std::vector<std::unique_ptr<MoodCalendarMonthView>> monthViews_;  // by view number
  std::vector<std::string> headerTitles_;                           // by view number
};

}  // namespace lumeo
