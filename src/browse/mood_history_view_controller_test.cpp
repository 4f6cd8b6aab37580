// The History tab on a real journal: what the period filter lets through,
// grouping into days with their headers, selection (by index, by identity,
// after a sync), the detail pane, deletion with its neighbour and its files,
// the list and calendar modes with the tag filter, and the tag and day
// screens built on the same controller.
#include "browse/mood_history_view_controller.h"

#include <gtest/gtest.h>

#include "browse/browse_test_support.h"
#include "browse/mood_date_history_view_controller.h"
#include "browse/mood_tag_history_view_controller.h"
#include "objectgraph/managed_object_context.h"
#include "platform/notification_center.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {
namespace {

using testing::BrowseTest;

std::vector<long> levels(const MoodHistoryViewController& screen) {
  std::vector<long> out;
  for (const auto& record : screen.moodRecords()) out.push_back(record->moodLevel());
  return out;
}

class HistoryTest : public BrowseTest {
 protected:
  // Three days: 20 November (levels 1, 2), 21 November (3) and today (4, 5).
  void addThreeDays() {
    add(1, at(2026, 11, 20, 9), "walk #walk");
    add(2, at(2026, 11, 20, 18), "#work all day");
    add(3, at(2026, 11, 21, 10), "#sleep:8h");
    add(4, at(2026, 11, 22, 8), "#work again");
    add(5, at(2026, 11, 22, 11));
  }
};

TEST_F(HistoryTest, PeriodFilterOrdersBoundsTakesWholeDaysAndFollowsToday) {
  addThreeDays();
  auto history = screen();
  EXPECT_EQ(levels(*history), (std::vector<long>{1, 2, 3, 4, 5}));

  // From after To: the fetch swaps them.
  history->filter().dateFrom = at(2026, 11, 21);
  history->filter().dateTo = at(2026, 11, 20);
  history->filter().isFiltered = true;
  history->reloadMoodRecords(false);
  EXPECT_EQ(levels(*history), (std::vector<long>{1, 2}));

  // One bound alone is that whole day.
  history->filter().dateFrom.reset();
  history->filter().dateTo = at(2026, 11, 20, 13);
  history->reloadMoodRecords(false);
  EXPECT_EQ(levels(*history), (std::vector<long>{1, 2}));
  history->filter().dateFrom = at(2026, 11, 21, 23, 59);
  history->filter().dateTo.reset();
  history->reloadMoodRecords(false);
  EXPECT_EQ(levels(*history), (std::vector<long>{3}));

  // In the picker, From cannot pass To nor To pass From, and To ends its day.
  history->clearFilter();
  history->openPeriodFilter();
  EXPECT_TRUE(history->filter().isFilteredOnToday);
  EXPECT_EQ(history->filter().toLabel(), "Today");
  EXPECT_EQ(history->filter().fromLabel(), "November 20, 2026");
  history->setEditingBound(MoodHistoryPeriodFilter::kEditingTo);
  history->periodDateSelected(at(2026, 11, 21, 15));
  EXPECT_EQ(history->filter().dateTo, at(2026, 11, 21).dateByAddingTimeInterval(86399));
  EXPECT_FALSE(history->filter().isFilteredOnToday);
  EXPECT_EQ(history->filter().toLabel(), "November 21, 2026");
  history->setEditingBound(MoodHistoryPeriodFilter::kEditingFrom);
  history->periodDateSelected(at(2026, 11, 22, 9));
  EXPECT_EQ(history->filter().dateFrom, at(2026, 11, 21));
  history->filterDoneClicked();
  EXPECT_TRUE(history->isFiltered());
  EXPECT_EQ(history->filter().filterButtonImageName(), "FilterBlack");
  EXPECT_EQ(levels(*history), (std::vector<long>{3}));

  // A filter on today follows the clock past midnight.
  history->setEditingBound(MoodHistoryPeriodFilter::kEditingTo);
  history->periodDateSelected(at(2026, 11, 22));
  EXPECT_TRUE(history->filter().isFilteredOnToday);
  history->filterDoneClicked();
  add(6, at(2026, 11, 23, 1));
  clock_.clock().advance(86400);
  history->reloadMoodRecords(false);
  EXPECT_EQ(levels(*history), (std::vector<long>{3, 4, 5, 6}));
}

TEST_F(HistoryTest, TheWholeRangeIsNoFilterAndClearResetsEverything) {
  addThreeDays();
  auto history = screen();
  history->openPeriodFilter();
  EXPECT_FALSE(history->filter().isClearEnabled());
  history->filterDoneClicked();
  EXPECT_FALSE(history->isFiltered());
  EXPECT_FALSE(history->filter().dateFrom.has_value());
  EXPECT_EQ(history->filter().filterButtonImageName(), "filterEmpty");
  EXPECT_EQ(history->moodRecords().size(), 5u);

  history->openPeriodFilter();
  history->setEditingBound(MoodHistoryPeriodFilter::kEditingFrom);
  history->periodDateSelected(at(2026, 11, 22));
  history->filterDoneClicked();
  EXPECT_EQ(levels(*history), (std::vector<long>{4, 5}));
  // A restored backup drops the filter.
  NotificationCenter::defaultCenter().post(MoodBackupWasLoadedNotification);
  EXPECT_FALSE(history->isFiltered());
  EXPECT_EQ(history->moodRecords().size(), 5u);
}

TEST_F(HistoryTest, RecordsAreGroupedByDayWithWeekdayAndRelativeDateHeaders) {
  addThreeDays();
  auto history = screen();
  MoodHistoryView& view = history->historyView();
  EXPECT_EQ(view.moodRecordGroups(), (std::vector<long>{0, 2, 3}));
  EXPECT_EQ(view.numberOfRowsInSection(0), 2);
  EXPECT_EQ(view.numberOfRowsInSection(2), 2);
  EXPECT_EQ(view.indexForSection(2, 1), 4);
  EXPECT_EQ(view.indexForSection(2, 2), -1);
  EXPECT_EQ(view.sectionAndRowForIndex(3), std::make_pair(2L, 0L));
  EXPECT_EQ(view.sectionHeaderTitle(0), "Fri, November 20, 2026");
  EXPECT_EQ(view.sectionHeaderTitle(1), "Sat, Yesterday");
  EXPECT_EQ(view.sectionHeaderTitle(2), "Sun, Today");
  EXPECT_FALSE(view.isSliderHidden());
}

TEST_F(HistoryTest, DeletingTheOnlyRecordOfADayRemovesItsSectionAndSelectsTheNeighbour) {
  addThreeDays();
  auto history = screen();
  std::vector<std::string> changes;
  MoodHistoryViewUpdates updates;
  updates.deleteSection = [&](long section) { changes.push_back("section " + std::to_string(section)); };
  updates.deleteRow = [&](long section, long row) {
    changes.push_back("row " + std::to_string(section) + "." + std::to_string(row));
  };
  updates.reloadData = [&] { changes.push_back("reload"); };
  history->historyView().setUpdates(updates);

  history->setSelectedMoodRecordIndex(2);  // 21 November, alone on its day
  auto doomed = history->selectedRecord();
  history->chooseAction();
  ASSERT_EQ(chosen_.size(), 1u);
  EXPECT_EQ(chosen_[0].first, doomed);
  EXPECT_EQ(chosen_[0].second, 1);
  NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification);

  EXPECT_EQ(changes, (std::vector<std::string>{"section 1"}));
  EXPECT_EQ(levels(*history), (std::vector<long>{1, 2, 4, 5}));
  EXPECT_EQ(history->historyView().moodRecordGroups(), (std::vector<long>{0, 2}));
  EXPECT_EQ(history->selectedMoodRecordIndex(), 2);
  EXPECT_EQ(history->selectedRecord()->moodLevel(), 4);
  EXPECT_EQ(history->historyView().selectedRecordIndex(), 2);
  EXPECT_EQ(store_->recordsSortedByDate().size(), 4u);

  // A day with two records loses a row only.
  changes.clear();
  history->deleteRecord(history->moodRecords()[0]);
  EXPECT_EQ(changes, (std::vector<std::string>{"row 0.0"}));
  EXPECT_EQ(captureShown_, 0);
}

TEST_F(HistoryTest, DeletingTheLastRecordLeavesNoFilesAndGoesToCapture) {
  add(7, at(2026, 11, 21, 9), "#walk with a photo", true);
  add(8, at(2026, 11, 22, 9), "another", true);
  EXPECT_EQ(imageFiles(), 4u);
  auto history = screen();
  history->setSelectedMoodRecordIndex(1);
  history->deleteCurrentRecord();
  EXPECT_EQ(imageFiles(), 2u);
  EXPECT_EQ(history->selectedMoodRecordIndex(), 0);
  EXPECT_EQ(captureShown_, 0);
  history->deleteAllRecords();
  EXPECT_TRUE(history->moodRecords().empty());
  EXPECT_EQ(history->selectedMoodRecordIndex(), -1);
  EXPECT_FALSE(history->detail().hasRecord);
  EXPECT_TRUE(history->historyView().isSliderHidden());
  EXPECT_EQ(captureShown_, 1);
  EXPECT_EQ(imageFiles(), 0u);
  EXPECT_TRUE(store_->allDescriptions().empty());
}

TEST_F(HistoryTest, ARecordNotShownIsNeverDeleted) {
  addThreeDays();
  auto history = screen();
  history->filter().dateFrom = at(2026, 11, 22);
  history->filter().isFiltered = true;
  history->reloadMoodRecords(false);
  auto hidden = store_->recordsSortedByDate().front();
  history->deleteRecord(hidden);
  history->deleteRecord(nullptr);
  EXPECT_EQ(store_->recordsSortedByDate().size(), 5u);
  // Nothing selected: the delete notification deletes nothing.
  history->setSelectedMoodRecordIndex(-1);
  NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification);
  EXPECT_EQ(store_->recordsSortedByDate().size(), 5u);
}

TEST_F(HistoryTest, SelectionIsClampedAfterASyncAndFoundAgainByIdentity) {
  addThreeDays();
  auto history = screen();
  history->setSelectedMoodRecordIndex(4);
  std::string identity = *history->selectedMoodRecordUniqueIdentifier();

  // A sync removed two records behind the screen's back.
  auto records = store_->recordsSortedByDate();
  EXPECT_FALSE(store_->deleteRecord(records[3]));
  EXPECT_FALSE(store_->deleteRecord(records[4]));
  EXPECT_FALSE(store_->managedObjectContext()->save());
  NotificationCenter::defaultCenter().post(IDMSyncActivityDidEnd);
  EXPECT_EQ(history->moodRecords().size(), 3u);
  EXPECT_EQ(history->selectedMoodRecordIndex(), 2);

  // The capture tab asks for a new record by identity (-2).
  auto made = add(9, at(2026, 11, 20, 12));
  history->setSelectedMoodRecordUniqueIdentifier(made->uniqueIdentifier());
  history->setSelectedMoodRecordIndex(MoodHistoryViewController::kSelectByIdentifier);
  EXPECT_EQ(history->selectedRecord(), made);
  EXPECT_EQ(history->selectedMoodRecordIndex(), 1);
  // An identity not in the list leaves the selection alone.
  history->setSelectedMoodRecordUniqueIdentifier(identity);
  history->setSelectedMoodRecordIndex(MoodHistoryViewController::kSelectByIdentifier);
  EXPECT_EQ(history->selectedRecord(), made);
}

TEST_F(HistoryTest, DetailPaneMakesRoomForThePhoto) {
  auto plain = add(3, at(2026, 11, 22, 8, 5), "no picture #walk");
  auto pictured = add(6, at(2026, 11, 20, 8, 5), "with a picture", true);
  pictured->moodDescription()->setWasEdited(true);
  store_->saveContext();
  auto history = screen();
  history->setSelectedMoodRecordIndex(1);
  MoodHistoryDetail detail = history->detail();
  EXPECT_TRUE(detail.hasRecord);
  EXPECT_EQ(detail.comment, "no picture #walk");
  EXPECT_EQ(detail.dateText, "Today, 8:05\u202fAM");
  EXPECT_FALSE(detail.photoVisible);
  EXPECT_EQ(detail.shortLinesCount, 0);
  EXPECT_EQ(detail.maxLinesCount, 100);
  EXPECT_FALSE(detail.editedLabelVisible);

  history->setSelectedMoodRecordIndex(0);
  detail = history->detail();
  EXPECT_TRUE(detail.photoVisible);
  ASSERT_TRUE(detail.thumbFile.has_value());
  EXPECT_TRUE(std::filesystem::exists(*detail.thumbFile));
  EXPECT_EQ(detail.shortLinesCount, 4);
  EXPECT_EQ(detail.shortLinesIndent, 116.0);
  EXPECT_TRUE(detail.editedLabelVisible);
  EXPECT_EQ(detail.dateText, "11/20/26, 8:05\u202fAM");

  // A thumbnail still on its way: the pane waits for the sync's file.
  std::filesystem::path file = *detail.thumbFile;
  std::filesystem::path kept = dir_ / "kept.jpg";
  std::filesystem::rename(file, kept);
  history->setSelectedMoodRecordIndex(0);
  EXPECT_TRUE(history->detail().photoVisible);
  EXPECT_FALSE(history->detail().thumbFile.has_value());
  std::filesystem::rename(kept, file);
  NotificationCenter::defaultCenter().post(SyncImageSaved, nullptr,
                                           *pictured->moodDescription()->thumbName());
  EXPECT_EQ(history->detail().thumbFile, file);
}

TEST_F(HistoryTest, TagFilterWorksOnlyInTheCalendarAndIsEmptiedOnLeavingIt) {
  addThreeDays();
  struct View : MoodHistoryViewControllerView {
    std::vector<std::vector<std::shared_ptr<MoodTag>>> calendarTags;
    int closed = 0;
    int toCurrentMonth = 0;
    void reloadCalendar(const std::vector<std::shared_ptr<MoodTag>>& tags) override {
      calendarTags.push_back(tags);
    }
    void closeSheets() override { ++closed; }
    void scrollCalendarToCurrentMonth() override { ++toCurrentMonth; }
  } view;
  auto history = screen();
  history->setView(&view);
  ASSERT_EQ(history->tags().size(), 3u);
  EXPECT_EQ(history->tags().front()->tagName(), "work");  // most used first

  // List mode: a tag selection changes nothing.
  history->toggleSelectedTag(history->tags().front());
  history->tagFilterDoneClicked();
  EXPECT_EQ(history->moodRecords().size(), 5u);
  EXPECT_TRUE(view.calendarTags.empty());

  history->setSelectedHistoryViewType(MoodHistoryViewController::kCalendar);
  EXPECT_EQ(defaults_->integerForKey(kMoodHistorySelectedDefaultIndex), 1);
  EXPECT_TRUE(history->selectedTags().empty());
  EXPECT_EQ(view.toCurrentMonth, 1);
  history->toggleSelectedTag(history->tags().front());
  history->tagFilterDoneClicked();
  EXPECT_TRUE(history->isFiltered());
  ASSERT_FALSE(view.calendarTags.empty());
  EXPECT_EQ(view.calendarTags.back().size(), 1u);
  EXPECT_EQ(history->moodRecords().size(), 5u);  // the calendar filters, not the list

  // The period filter does not reach the calendar's list either.
  history->filter().dateFrom = at(2026, 11, 22);
  history->reloadMoodRecords(false);
  EXPECT_EQ(history->moodRecords().size(), 5u);

  history->setSelectedHistoryViewType(MoodHistoryViewController::kList);
  EXPECT_TRUE(history->selectedTags().empty());
  EXPECT_GE(view.closed, 2);

  // The next screen starts in the mode last chosen.
  history->setSelectedHistoryViewType(MoodHistoryViewController::kCalendar);
  auto again = screen();
  EXPECT_EQ(again->selectedHistoryViewType(), MoodHistoryViewController::kCalendar);
}

TEST_F(HistoryTest, ChangesRefreshAtOnceWhenLoadedAndOnAppearingOtherwise) {
  addThreeDays();
  auto loaded = screen();
  auto hidden = std::make_shared<MoodHistoryViewController>(environment());
  hidden->viewWillAppear();
  EXPECT_EQ(hidden->moodRecords().size(), 5u);
  add(6, at(2026, 11, 22, 11, 30));
  EXPECT_EQ(loaded->moodRecords().size(), 6u);
  EXPECT_FALSE(hidden->dataUpToDate());
  EXPECT_TRUE(hidden->moodRecords().empty());
  hidden->viewWillAppear();
  EXPECT_EQ(hidden->moodRecords().size(), 6u);
}

TEST_F(HistoryTest, TagAndDayScreensFetchTheirRecordsAndDeleteOnlyWhenAsked) {
  addThreeDays();
  auto history = screen();
  auto work = store_->tagNamed("work");
  auto tagScreen = screen<MoodTagHistoryViewController>(work);
  EXPECT_EQ(levels(*tagScreen), (std::vector<long>{2, 4}));
  EXPECT_EQ(tagScreen->title(), "#work");
  EXPECT_EQ(tagScreen->titleForMoodGallery(), "Tag");
  // With a period, the tag within it.
  tagScreen->filter().dateFrom = at(2026, 11, 22);
  tagScreen->filter().isFiltered = true;
  tagScreen->reloadMoodRecords(false);
  EXPECT_EQ(levels(*tagScreen), (std::vector<long>{4}));
  tagScreen->clearFilter();
  tagScreen->reloadMoodRecords(false);

  // Tapping another tag switches the screen; the same tag does nothing.
  tagScreen->setSelectedMoodRecordIndex(0);
  EXPECT_EQ(tagScreen->taggedTextViewDidSelectTag("walk"), nullptr);
  EXPECT_EQ(tagScreen->moodTag()->tagName(), "walk");
  EXPECT_EQ(levels(*tagScreen), (std::vector<long>{1}));
  tagScreen->setSelectedMoodRecordIndex(0);
  tagScreen->setMoodTag(store_->tagNamed("walk"));
  EXPECT_EQ(tagScreen->selectedMoodRecordIndex(), 0);

  auto dayScreen = history->didCalendarViewPressed(2026, 11, 20, true);
  ASSERT_NE(dayScreen, nullptr);
  screens_.push_back(dayScreen);
  dayScreen->viewDidLoad();
  dayScreen->viewWillAppear();
  EXPECT_EQ(levels(*dayScreen), (std::vector<long>{1, 2}));
  EXPECT_EQ(dayScreen->title(), "November 20, 2026");
  EXPECT_EQ(history->didCalendarViewPressed(2026, 11, 19, false), nullptr);

  // The day screen asked; the tag screen did not. One record goes.
  dayScreen->setSelectedMoodRecordIndex(1);
  history->setSelectedMoodRecordIndex(4);
  dayScreen->chooseAction();
  EXPECT_EQ(chosen_.back().second, 2);
  NotificationCenter::defaultCenter().post(MoodTagDeleteRecordNotification);
  EXPECT_EQ(levels(*dayScreen), (std::vector<long>{1}));
  EXPECT_EQ(levels(*tagScreen), (std::vector<long>{1}));
  EXPECT_EQ(history->moodRecords().size(), 4u);
  EXPECT_EQ(captureShown_, 0);

  // The last record of a tag: its list is empty.
  tagScreen->setSelectedMoodRecordIndex(0);
  tagScreen->chooseAction();
  NotificationCenter::defaultCenter().post(MoodTagDeleteRecordNotification);
  EXPECT_TRUE(tagScreen->moodRecords().empty());
  EXPECT_EQ(store_->recordsSortedByDate().size(), 3u);
}

TEST_F(HistoryTest, PhotoTapOpensTheGalleryOfShownPhotosAtTheSelectedOne) {
  add(1, at(2026, 11, 20, 9), "first", true);
  add(2, at(2026, 11, 20, 10), "none");
  auto third = add(3, at(2026, 11, 21, 9), "third #walk", true);
  auto history = screen();
  history->setSelectedMoodRecordIndex(2);
  auto gallery = history->photoTouchUpInside();
  ASSERT_NE(gallery, nullptr);
  EXPECT_EQ(gallery->moodRecords().size(), 2u);
  EXPECT_EQ(gallery->selectedMoodRecord(), third);
  EXPECT_EQ(gallery->panel().title, "History");
  EXPECT_EQ(gallery->panel().backTitle, "Back");
  EXPECT_EQ(gallery->panel().comment, "third #walk");

  // Paging back and stopping selects that record in the list beneath.
  gallery->scrollViewDidScroll(10);
  gallery->scrollViewDidEndScrolling();
  EXPECT_EQ(history->selectedMoodRecordIndex(), 0);

  // A tag tapped in the comment opens that tag's history.
  auto tagScreen =
      std::dynamic_pointer_cast<MoodTagHistoryViewController>(history->taggedTextViewDidSelectTag("WALK"));
  ASSERT_NE(tagScreen, nullptr);
  EXPECT_EQ(tagScreen->moodTag()->tagName(), "walk");
  EXPECT_EQ(history->taggedTextViewDidSelectTag("nosuchtag"), nullptr);
}

}  // namespace
}  // namespace lumeo
