// The History tab's adapters on a real journal: the bars' model follows the
// controller row by row (a deletion removes one row, it does not reset the
// list), the detail pane and its tappable tags, the period filter, the
// calendar's recycled months and the gallery handing its page back.
#include "history_controller.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include "browse/browse_test_support.h"
#include "calendar_model.h"
#include "gallery_model.h"
#include "history_model.h"
#include "history_tag_filter_model.h"
#include "platform/notification_center.h"
#include "store/notification_names.h"
#include "tagged_text_layout.h"

namespace lumeo::gui {
namespace {

using testing::BrowseTest;

class HistoryControllerTest : public BrowseTest {
 protected:
  std::unique_ptr<HistoryController> history() {
    auto h = std::make_unique<HistoryController>(*store_, environment());
    h->appear();
    testers_.push_back(
        std::make_unique<QAbstractItemModelTester>(qobject_cast<QAbstractItemModel*>(h->model()),
                                                   QAbstractItemModelTester::FailureReportingMode::Fatal));
    return h;
  }
  static QVariant role(HistoryController& h, int row, int role) {
    auto* model = qobject_cast<QAbstractItemModel*>(h.model());
    return model->data(model->index(row, 0), role);
  }
  std::vector<std::unique_ptr<QAbstractItemModelTester>> testers_;
};

TEST_F(HistoryControllerTest, RowsFollowTheRecordsWithTheirDaysAndTheSelectionFillsTheDetail) {
  add(4, at(2026, 11, 20, 9), "slept badly #sleep:5h");
  add(7, at(2026, 11, 22, 8), "a walk with #anna and #dog");
  add(8, at(2026, 11, 22, 11), "lunch");
  auto h = history();
  ASSERT_EQ(h->count(), 3);
  EXPECT_EQ(role(*h, 0, HistoryModel::LevelRole).toInt(), 4);
  EXPECT_EQ(role(*h, 1, HistoryModel::DayTitleRole).toString(), QStringLiteral("Sun, Today"));
  EXPECT_EQ(role(*h, 0, HistoryModel::DayTitleRole).toString(), QStringLiteral("Fri, November 20, 2026"));
  EXPECT_TRUE(role(*h, 1, HistoryModel::FirstOfDayRole).toBool());
  EXPECT_FALSE(role(*h, 2, HistoryModel::FirstOfDayRole).toBool());
  EXPECT_EQ(role(*h, 1, HistoryModel::CommentRole).toString(), QStringLiteral("a walk with #anna and #dog"));

  EXPECT_FALSE(h->hasDetail());
  QSignalSpy selection(h.get(), &HistoryController::selectionChanged);
  h->select(1);
  EXPECT_GE(selection.count(), 1);
  EXPECT_TRUE(h->hasDetail());
  EXPECT_EQ(h->detailLevel(), 7);
  EXPECT_TRUE(role(*h, 1, HistoryModel::SelectedRole).toBool());
  EXPECT_FALSE(role(*h, 0, HistoryModel::SelectedRole).toBool());
  EXPECT_EQ(h->detailDate(), QStringLiteral("Today, 8:00\u202FAM"));

  // The comment is laid out with a tap target on each tag, and a tap on one
  // opens that tag's history with its records only.
  auto* comment = qobject_cast<TaggedTextLayout*>(h->comment());
  comment->setWidth(300);
  ASSERT_EQ(comment->tags().size(), 2);
  const QVariantMap dog = comment->tags()[1].toMap();
  EXPECT_EQ(dog[QStringLiteral("name")].toString(), QStringLiteral("dog"));
  const QString tapped =
      comment->tagAt(dog[QStringLiteral("x")].toDouble() + dog[QStringLiteral("width")].toDouble() / 2,
                     dog[QStringLiteral("y")].toDouble() + dog[QStringLiteral("height")].toDouble() / 2);
  ASSERT_EQ(tapped, QStringLiteral("dog"));
  EXPECT_TRUE(comment->tagAt(1, 1).isEmpty());
  auto* tagHistory = qobject_cast<HistoryController*>(h->openTag(tapped));
  ASSERT_NE(tagHistory, nullptr);
  EXPECT_EQ(tagHistory->count(), 1);
  EXPECT_EQ(tagHistory->title(), QStringLiteral("#dog"));
  // On a tag's list another tag takes its place on the same page.
  QSignalSpy retitled(tagHistory, &HistoryController::titleChanged);
  EXPECT_EQ(tagHistory->openTag(QStringLiteral("sleep")), nullptr);
  EXPECT_EQ(retitled.count(), 1);
  EXPECT_EQ(tagHistory->title(), QStringLiteral("#sleep"));
  EXPECT_EQ(tagHistory->count(), 1);
  EXPECT_EQ(role(*tagHistory, 0, HistoryModel::LevelRole).toInt(), 4);
  EXPECT_EQ(h->openTag(QStringLiteral("nosuchtag")), nullptr);
}

TEST_F(HistoryControllerTest, DeletingRemovesOneRowAndSelectsTheNeighbour) {
  add(4, at(2026, 11, 20, 9));
  add(7, at(2026, 11, 21, 8));  // alone on its day: its section goes with it
  add(8, at(2026, 11, 22, 11));
  add(9, at(2026, 11, 22, 12));
  auto h = history();
  auto* model = qobject_cast<QAbstractItemModel*>(h->model());
  QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
  QSignalSpy reset(model, &QAbstractItemModel::modelReset);

  h->select(1);
  h->share();  // the share sheet, whose Delete posts the notification
  ASSERT_EQ(chosen_.size(), 1u);
  EXPECT_EQ(chosen_[0].second, 1);  // the tab's sheet: Edit and Delete
  NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification);
  ASSERT_EQ(removed.count(), 1);
  EXPECT_EQ(removed[0][1].toInt(), 1);
  EXPECT_EQ(reset.count(), 0);
  EXPECT_EQ(h->count(), 3);
  EXPECT_EQ(h->selectedIndex(), 1);
  EXPECT_EQ(h->detailLevel(), 8);
  EXPECT_EQ(store_->recordsFrom(at(2000, 1, 1), at(2100, 1, 1)).size(), 3u);

  // A row in the middle of a day, then the last row.
  h->select(2);
  h->share();
  NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification);
  EXPECT_EQ(removed.count(), 2);
  EXPECT_EQ(h->count(), 2);
  EXPECT_EQ(h->selectedIndex(), 1);
  EXPECT_EQ(role(*h, 1, HistoryModel::LevelRole).toInt(), 8);
}

TEST_F(HistoryControllerTest, ThePeriodFilterNarrowsTheListAndClearingRestoresIt) {
  add(4, at(2026, 10, 2, 9));
  add(6, at(2026, 11, 10, 9));
  add(8, at(2026, 11, 20, 9));
  auto h = history();
  h->openPeriodFilter();
  EXPECT_EQ(h->minimumDate(), QDate(2026, 10, 2));
  EXPECT_EQ(h->maximumDate(), QDate(2026, 11, 22));
  h->pickFrom(QDate(2026, 11, 1));
  h->pickTo(QDate(2026, 11, 10));
  h->applyPeriodFilter();
  EXPECT_TRUE(h->filtered());
  ASSERT_EQ(h->count(), 1);
  EXPECT_EQ(role(*h, 0, HistoryModel::LevelRole).toInt(), 6);
  EXPECT_EQ(h->fromLabel(), QStringLiteral("November 1, 2026"));

  // The whole journal counts as no filter.
  h->openPeriodFilter();
  h->pickFrom(QDate(2026, 10, 2));
  h->pickTo(QDate(2026, 11, 22));
  h->applyPeriodFilter();
  EXPECT_FALSE(h->filtered());
  EXPECT_EQ(h->count(), 3);

  h->openPeriodFilter();
  h->pickFrom(QDate(2026, 11, 15));
  h->applyPeriodFilter();
  EXPECT_EQ(h->count(), 1);
  h->clearPeriodFilter();
  EXPECT_FALSE(h->filtered());
  EXPECT_EQ(h->count(), 3);
}

TEST_F(HistoryControllerTest, TheCalendarRecyclesItsMonthsAndOpensADayWithRecords) {
  add(3, at(2026, 11, 3, 9), "#work");
  add(9, at(2026, 11, 3, 18), "#dog");
  add(6, at(2026, 11, 5, 9), "#dog");
  auto h = history();
  h->setCalendarMode(true);
  EXPECT_TRUE(h->calendarMode());
  auto* calendar = qobject_cast<CalendarModel*>(h->calendar());
  ASSERT_NE(calendar, nullptr);
  QAbstractItemModelTester tester(calendar, QAbstractItemModelTester::FailureReportingMode::Fatal);
  calendar->setViewport(340, 600);
  EXPECT_EQ(calendar->monthCount(), 683);  // January 1970 to November 2026
  EXPECT_EQ(calendar->currentMonthTitle(), QStringLiteral("November 2026"));
  EXPECT_EQ(calendar->weekdays().first(), QStringLiteral("S"));

  // The month on screen shows its days; the 3rd has two strip pieces in
  // date order with their own colours.
  int row = -1;
  for (int i = 0; i < calendar->rowCount(); ++i) {
    if (calendar->data(calendar->index(i), CalendarModel::MonthIndexRole).toInt() == 682) row = i;
  }
  ASSERT_GE(row, 0);
  const QVariantList days = calendar->data(calendar->index(row), CalendarModel::DaysRole).toList();
  ASSERT_EQ(days.size(), 30);
  const QVariantMap third = days[2].toMap();
  EXPECT_TRUE(third[QStringLiteral("exists")].toBool());
  EXPECT_EQ(third[QStringLiteral("strip")].toList().size(), 2);
  EXPECT_EQ(third[QStringLiteral("levels")].toString(), QStringLiteral("3, 9"));
  EXPECT_FALSE(days[3].toMap()[QStringLiteral("exists")].toBool());

  // Scrolling through 56 years makes only a screenful of month views.
  for (double offset = calendar->contentHeight(); offset >= 0; offset -= 250) calendar->scrolled(offset);
  EXPECT_LE(calendar->viewsMade(), 6);
  calendar->scrollToCurrentMonth();

  // A day without records opens nothing; one with records its day list.
  QSignalSpy opened(h.get(), &HistoryController::historyOpened);
  for (int i = 0; i < calendar->rowCount(); ++i) {
    if (calendar->data(calendar->index(i), CalendarModel::MonthIndexRole).toInt() == 682) row = i;
  }
  calendar->pressDay(row, 3);
  EXPECT_EQ(opened.count(), 0);
  calendar->pressDay(row, 2);
  ASSERT_EQ(opened.count(), 1);
  auto* day = qobject_cast<HistoryController*>(opened[0][0].value<QObject*>());
  EXPECT_EQ(day->count(), 2);
  EXPECT_FALSE(day->canShowCalendar());

  // The tag filter shows only the chosen tag's records; the list does not
  // filter by tags, and leaving the calendar empties the choice.
  h->openTagFilter();
  auto* tags = qobject_cast<HistoryTagFilterModel*>(h->tagFilter());
  QAbstractItemModelTester tagTester(tags, QAbstractItemModelTester::FailureReportingMode::Fatal);
  ASSERT_EQ(tags->count(), 2);
  int dogRow =
      tags->data(tags->index(0), HistoryTagFilterModel::NameRole).toString() == QStringLiteral("dog") ? 0 : 1;
  h->toggleTag(dogRow);
  EXPECT_TRUE(tags->data(tags->index(dogRow), HistoryTagFilterModel::ChosenRole).toBool());
  h->applyTagFilter();
  EXPECT_TRUE(h->filtered());
  const QVariantList filtered = calendar->data(calendar->index(row), CalendarModel::DaysRole).toList();
  EXPECT_EQ(filtered[2].toMap()[QStringLiteral("levels")].toString(), QStringLiteral("9"));
  h->setCalendarMode(false);
  EXPECT_TRUE(h->core().selectedTags().empty());
  EXPECT_EQ(h->count(), 3);
}

TEST_F(HistoryControllerTest, TheGalleryPagesThroughThePhotosAndSelectsTheLastPageShown) {
  add(4, at(2026, 11, 18, 9), "one", true);
  add(5, at(2026, 11, 19, 9), "no photo");
  add(7, at(2026, 11, 20, 9), "two #dog", true);
  add(8, at(2026, 11, 21, 9), "three", true);
  auto h = history();
  h->select(1);
  h->select(0);
  auto* gallery = qobject_cast<GalleryModel*>(h->openGallery());
  ASSERT_NE(gallery, nullptr);
  QAbstractItemModelTester tester(gallery, QAbstractItemModelTester::FailureReportingMode::Fatal);
  EXPECT_EQ(gallery->count(), 3);
  EXPECT_EQ(gallery->currentIndex(), 0);
  EXPECT_EQ(gallery->title(), QStringLiteral("History"));
  EXPECT_TRUE(gallery->data(gallery->index(0), GalleryModel::ReadyRole).toBool());
  gallery->setPageWidth(400);
  gallery->scrolled(810);
  EXPECT_EQ(gallery->currentIndex(), 2);
  EXPECT_FALSE(gallery->data(gallery->index(0), GalleryModel::AliveRole).toBool());
  EXPECT_EQ(qobject_cast<TaggedTextLayout*>(gallery->comment())->text(), QStringLiteral("three"));
  gallery->scrollEnded();
  EXPECT_EQ(h->selectedIndex(), 3);
  EXPECT_EQ(h->detailLevel(), 8);
}

}  // namespace
}  // namespace lumeo::gui
