// Day views, month views with their fetch, and the scrolling calendar.
#include "browse/mood_calendar_view.h"

#include <unicode/unistr.h>

#include <algorithm>

#include "browse/browse_text.h"
#include "capture/mood_levels_presentation.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "store/date_all.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace lumeo {

namespace {

bool hasThumb(const MoodRecord& record) {
  auto description = record.moodDescription();
  return description && description->thumbName().has_value();
}

std::string upperFirstLetter(const std::string& text) {
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
  if (u.isEmpty()) return {};
  icu::UnicodeString first(u, 0, u.moveIndex32(0, 1));
  first.toUpper();
  std::string out;
  first.toUTF8String(out);
  return out;
}

}  // namespace

// --- Day -------------------------------------------------------------------------------

void MoodDayView::setRecords(std::vector<std::shared_ptr<MoodRecord>> records,
                             const MoodLevelsPresentation& levels) {
  strip_.clear();
  records_ = std::move(records);
  pictureRecord_ = nullptr;
  for (const auto& record : records_) {
    if (hasThumb(*record)) {
      pictureRecord_ = record;
      break;
    }
  }
  if (!pictureRecord_ && !records_.empty()) pictureRecord_ = records_.front();
  updateDayView();
  if (records_.empty()) return;
  double piece = frame.width / static_cast<double>(records_.size());
  for (std::size_t i = 0; i < records_.size(); ++i) {
    MoodDayStripPiece p;
    p.x = piece * static_cast<double>(i);
    p.width = piece;
    p.level = records_[i]->moodLevel();
    p.color =
        levels.interpolatedColorForMoodLevel(static_cast<double>(p.level)).value_or(Color(0.5, 0.5, 0.5));
    strip_.push_back(p);
  }
}

void MoodDayView::updateDayView() {
  imageFile_.reset();
  if (!pictureRecord_) {
    look_ = Look::kEmpty;
    return;
  }
  if (!hasThumb(*pictureRecord_)) {
    look_ = Look::kNoPhoto;
    return;
  }
  look_ = Look::kPhoto;
  if (auto images = ImageStore::shared()) {
    auto file = images->imageURLForName(pictureRecord_->moodDescription()->thumbName());
    std::error_code ec;
    if (file && std::filesystem::exists(*file, ec)) imageFile_ = file;
  }
}

std::optional<Color> MoodDayView::background() const {
  if (look_ == Look::kEmpty) return kMoodDayEmptyBackground;
  return std::nullopt;  // clear: the picture or the tile shows
}

// --- Month ------------------------------------------------------------------------------

MoodCalendarMonthView::MoodCalendarMonthView(JournalStore& store, MoodCalendarMetrics metrics)
    : store_(store), metrics_(metrics), days_(31) {
  for (std::size_t d = 0; d < days_.size(); ++d) {
    days_[d].day = static_cast<long>(d);
    days_[d].pressed = [this](long y, long m, long day, bool exist) {
      if (dayPressed) dayPressed(y, m, day, exist);
    };
  }
}

std::vector<std::string> MoodCalendarMonthView::weekdayHeadings() {
  Calendar calendar = Calendar::current();
  std::vector<std::string> symbols = calendar.weekdaySymbols();
  std::vector<std::string> out;
  int first = calendar.firstWeekday();
  for (int i = 0; i < 7 && symbols.size() == 7; ++i)
    out.push_back(upperFirstLetter(symbols[(first - 1 + i) % 7]));
  return out;
}

void MoodCalendarMonthView::setYearMonth(long year, long month) {
  year_ = year;
  month_ = month;
  Date first = dateByYear(year, month, 1);
  // Through the end of the month's last day.
  Date last = theMonthEnd(first).dateByAddingTimeInterval(86399.0);
  Calendar calendar = Calendar::current();
  auto range = calendar.rangeOfUnit(CalendarUnit::kDay, CalendarUnit::kMonth, first);
  numberOfDays_ = range ? range->length : monthFacts(year, month).days;
  auto records =
      tags_.empty() ? store_.recordsFrom(first, last) : store_.recordsFromWithAnyTag(first, last, tags_);
  MoodLevelsPresentation levels;
  int weekdayOfFirst = static_cast<int>(calendar.component(CalendarUnit::kWeekday, first));
  int firstWeekday = calendar.firstWeekday();
  auto next = records.begin();
  for (auto& view : days_) {
    long d = view.day;
    view.placement = placementOfDay(weekdayOfFirst, firstWeekday, d);
    double step = metrics_.daySize + metrics_.space;
    view.frame = Rect{static_cast<double>(view.placement.column) * step,
                      metrics_.weekdaysHeight + static_cast<double>(view.placement.row) * step,
                      metrics_.daySize, metrics_.daySize};
    view.year = year;
    view.month = month;
    view.hidden = d >= numberOfDays_;
    std::vector<std::shared_ptr<MoodRecord>> ofDay;
    if (!view.hidden) {
      Date dayStart = dateByYear(year, month, d + 1);
      Date dayEnd = dayStart.dateByAddingTimeInterval(86399.0);
      // The records come sorted: each day takes its run of them.
      while (next != records.end() && (*next)->date().value_or(Date()) < dayStart) ++next;
      while (next != records.end() && (*next)->date().value_or(Date()) <= dayEnd) ofDay.push_back(*next++);
    }
    view.setRecords(std::move(ofDay), levels);
  }
}

// --- Calendar ----------------------------------------------------------------------------------

MoodCalendarView::MoodCalendarView(JournalStore& store, MoodCalendarMetrics metrics, double viewportHeight,
                                   Date now)
    : store_(store), metrics_(metrics), viewportHeight_(viewportHeight) {
  long current = monthFrom1970(now);
  layout_ = MoodCalendarLayout::build(current, Calendar::current().firstWeekday(), metrics_, viewportHeight_);
  currentMonthIndex_ = std::max(0L, current);
}

std::string MoodCalendarView::headerByMonthIndex(long index) {
  auto [year, month] = yearMonthForMonthIndex(index);
  return monthFullStringDescription(dateByYear(year, month, 1)) + " " + std::to_string(year);
}

std::string MoodCalendarView::monthButtonTitle() const {
  auto [year, month] = yearMonthForMonthIndex(currentMonthIndex_);
  DateFormatter formatter("MMMM yyyy");
  return capitalizedFirstLetter(formatter.stringFromDate(dateByYear(year, month, 1)));
}

void MoodCalendarView::setCurrentMonthIndex(long index) {
  index = std::clamp(index, 0L, std::max(0L, lastMonthIndex()));
  if (index == currentMonthIndex_) return;
  currentMonthIndex_ = index;
  if (delegate_) delegate_->didCalendarViewCurrentMonthIndexChanged(index);
}

void MoodCalendarView::setUpViews(const std::vector<std::pair<long, long>>& months,
                                  const std::vector<std::pair<long, long>>& headers) {
  for (auto [index, view] : months) {
    if (view >= static_cast<long>(monthViews_.size())) {
      monthViews_.push_back(std::make_unique<MoodCalendarMonthView>(store_, metrics_));
      monthViews_.back()->dayPressed = [this](long y, long m, long d, bool exist) {
        if (delegate_) delegate_->didCalendarViewPressed(y, m, d, exist);
      };
    }
    auto [year, month] = yearMonthForMonthIndex(index);
    MoodCalendarMonthView& monthView = *monthViews_[static_cast<std::size_t>(view)];
    monthView.setTags(tags_);
    monthView.setYearMonth(year, month);
  }
  for (auto [index, view] : headers) {
    if (view >= static_cast<long>(headerTitles_.size()))
      headerTitles_.resize(static_cast<std::size_t>(view) + 1);
    headerTitles_[static_cast<std::size_t>(view)] = headerByMonthIndex(index);
  }
}

void MoodCalendarView::scrollViewDidScroll(double offset) {
  offset_ = std::clamp(offset, 0.0, std::max(0.0, layout_.contentHeight() - viewportHeight_));
  std::vector<std::pair<long, long>> months, headers;
  months_.update(layout_.visibleMonths(offset_, viewportHeight_), &months);
  headers_.update(layout_.visibleHeaders(offset_, viewportHeight_), &headers);
  setUpViews(months, headers);
}

void MoodCalendarView::reload() {
  for (auto [index, view] : months_.viewsInUse()) {
    auto [year, month] = yearMonthForMonthIndex(index);
    MoodCalendarMonthView& monthView = *monthViews_[static_cast<std::size_t>(view)];
    monthView.setTags(tags_);
    monthView.setYearMonth(year, month);
  }
}

void MoodCalendarView::scrollViewWillBeginDragging() {
  if (openedIndex_ >= 0) updateCalendarHeader(-1, 1);
}

void MoodCalendarView::scrollViewDidEndDragging(bool willDecelerate) {
  if (!willDecelerate) checkCurrentIndex();
}

void MoodCalendarView::scrollViewDidEndDecelerating() {
  checkCurrentIndex();
}

void MoodCalendarView::checkCurrentIndex() {
  long best = layout_.monthWithGreatestVisibleHeight(offset_, viewportHeight_);
  if (best >= 0) setCurrentMonthIndex(best);
  scrollViewDidScroll(layout_.offsetForMonth(currentMonthIndex_));
}

void MoodCalendarView::scrollToMonthIndex(long index, bool animated) {
  (void)animated;
  setCurrentMonthIndex(index);
  scrollViewDidScroll(layout_.offsetForMonth(currentMonthIndex_));
}

void MoodCalendarView::monthPicked(long year, long month) {
  scrollToMonthIndex(std::min(monthIndexFrom1970(year, month), lastMonthIndex()), true);
}

MoodCalendarMonthView* MoodCalendarView::monthViewForIndex(long index) {
  auto it = months_.viewsInUse().find(index);
  if (it == months_.viewsInUse().end()) return nullptr;
  return monthViews_[static_cast<std::size_t>(it->second)].get();
}

std::optional<std::string> MoodCalendarView::headerTitleForIndex(long index) const {
  auto it = headers_.viewsInUse().find(index);
  if (it == headers_.viewsInUse().end()) return std::nullopt;
  return headerTitles_[static_cast<std::size_t>(it->second)];
}

std::vector<long> MoodCalendarView::visibleMonths() const {
  std::vector<long> out;
  for (const auto& entry : months_.viewsInUse()) out.push_back(entry.first);
  return out;
}

double MoodCalendarView::updateCalendarHeader(long monthIndex, int animationType) {
  double duration = animationType == 1 ? 0.25 : animationType == 2 ? 0.125 : 0.0;
  if (openedIndex_ >= 0) {
    layout_.shiftBelowHeader(openedIndex_, -metrics_.openedHeaderExtra);
    openedIndex_ = -1;
  }
  if (monthIndex >= 0 && monthIndex < layout_.monthCount()) {
    layout_.shiftBelowHeader(monthIndex, metrics_.openedHeaderExtra);
    openedIndex_ = monthIndex;
  }
  scrollViewDidScroll(offset_);
  return duration;
}

}  // namespace lumeo
