// The gallery on a real journal: one page per record with a small window of
// live pages recycled while paging, the selection handed back to the list
// when scrolling stops, the bottom panel, and pictures that a sync brings
// later; and the carousel item's indicator and fade.
#include "browse/mood_gallery_view_controller.h"

#include <gtest/gtest.h>

#include "browse/browse_test_support.h"
#include "browse/carousel_photo_view.h"
#include "objectgraph/managed_object_context.h"
#include "platform/notification_center.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/notification_names.h"

namespace lumeo {
namespace {

using testing::BrowseTest;

class GalleryTest : public BrowseTest {
 protected:
  struct Delegate : MoodGalleryViewControllerDelegate {
    std::string title = "History";
    std::vector<std::shared_ptr<MoodRecord>> selected;
    int actions = 0;
    std::string titleForMoodGallery() override { return title; }
    void selectMoodRecord(const std::shared_ptr<MoodRecord>& record) override { selected.push_back(record); }
    void chooseAction() override { ++actions; }
  };

  std::vector<std::shared_ptr<MoodRecord>> addPhotos(int count) {
    std::vector<std::shared_ptr<MoodRecord>> records;
    for (int i = 0; i < count; ++i) {
      records.push_back(
          add(1 + i % 10, at(2026, 11, 1 + i % 20, 9 + i / 20), "photo " + std::to_string(i), true));
    }
    return records;
  }
};

TEST_F(GalleryTest, PagingKeepsAFewPagesAliveAndHandsTheSelectionBack) {
  auto records = addPhotos(30);
  auto delegate = std::make_shared<Delegate>();
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setDelegate(delegate);
  gallery->setPageWidth(300);
  gallery->setMoodRecords(records);
  gallery->setCurrentRecord(12);
  EXPECT_EQ(gallery->contentOffset(), 3600);
  EXPECT_EQ(gallery->livePageIndices(), (std::vector<long>{11, 12, 13}));
  EXPECT_EQ(gallery->panel().comment, "photo 12");
  EXPECT_EQ(gallery->panel().title, "History");
  EXPECT_EQ(gallery->panel().backTitle, "Back");
  EXPECT_EQ(gallery->panel().dateText, "11/13/26, 9:00\u202fAM");
  EXPECT_EQ(gallery->panel().maxLinesCount, 2);

  // Swipe to the end and back: the pages follow, and few are ever made.
  for (double offset = 3600; offset <= 29 * 300; offset += 37) gallery->scrollViewDidScroll(offset);
  gallery->scrollViewDidScroll(29 * 300);
  EXPECT_EQ(gallery->currentRecord(), 29);
  EXPECT_EQ(gallery->livePageIndices(), (std::vector<long>{28, 29}));
  for (double offset = 29 * 300; offset >= 0; offset -= 53) gallery->scrollViewDidScroll(offset);
  gallery->scrollViewDidScroll(-40);  // bounced past the start
  EXPECT_EQ(gallery->currentRecord(), 0);
  EXPECT_LE(gallery->pageViewsMade(), 4);
  const CarouselPhotoView* page = gallery->pageViewForIndex(0);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->imageName(), records[0]->moodDescription()->photoName());
  EXPECT_FALSE(page->isIndicatorAnimating());

  gallery->scrollViewDidEndScrolling();
  ASSERT_EQ(delegate->selected.size(), 1u);
  EXPECT_EQ(delegate->selected[0], records[0]);
  gallery->chooseAction();
  EXPECT_EQ(delegate->actions, 1);
  EXPECT_EQ(delegate->selected.size(), 2u);

  // A save elsewhere brings the view back to the current record.
  gallery->scrollViewDidScroll(140);
  store_->saveContext();
  EXPECT_EQ(gallery->contentOffset(), 0);

  gallery->toggleBottomViewHidden();
  EXPECT_TRUE(gallery->isBottomViewHidden());
  gallery->toggleBottomViewHidden();
  EXPECT_FALSE(gallery->isBottomViewHidden());
}

TEST_F(GalleryTest, ASingleRecordIsOnePageWithoutScrolling) {
  auto records = addPhotos(1);
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setMoodRecords(records);
  gallery->setCurrentRecord(5);
  EXPECT_EQ(gallery->currentRecord(), 0);
  EXPECT_FALSE(gallery->isScrollEnabled());
  EXPECT_EQ(gallery->contentWidth(), gallery->pageWidth());
  EXPECT_EQ(gallery->livePageIndices(), (std::vector<long>{0}));
  gallery->scrollViewDidScroll(500);
  EXPECT_EQ(gallery->currentRecord(), 0);
  EXPECT_EQ(gallery->panel().title, "");  // no delegate, no title

  auto empty = std::make_shared<MoodGalleryViewController>();
  empty->setMoodRecords({});
  empty->scrollViewDidScroll(100);
  empty->chooseAction();
  EXPECT_EQ(empty->selectedMoodRecord(), nullptr);
  EXPECT_TRUE(empty->livePageIndices().empty());
}

TEST_F(GalleryTest, APhotoStillOnItsWayShowsTheIndicatorUntilSyncSavesIt) {
  auto records = addPhotos(2);
  std::string name = *records[1]->moodDescription()->photoName();
  auto file = images_->imageURLForName(name);
  std::filesystem::path kept = dir_ / "kept.jpg";
  std::filesystem::rename(*file, kept);

  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setMoodRecords(records);
  gallery->setCurrentRecord(1);
  const CarouselPhotoView* page = gallery->pageViewForIndex(1);
  ASSERT_NE(page, nullptr);
  EXPECT_TRUE(page->isIndicatorAnimating());
  EXPECT_FALSE(page->image().has_value());

  // Another picture arriving changes nothing; this one shows.
  NotificationCenter::defaultCenter().post(SyncImageSaved, nullptr, std::string("other.jpg"));
  EXPECT_TRUE(page->isIndicatorAnimating());
  std::filesystem::rename(kept, *file);
  NotificationCenter::defaultCenter().post(SyncImageSaved, nullptr, name);
  EXPECT_FALSE(page->isIndicatorAnimating());
  ASSERT_TRUE(page->image().has_value());
  EXPECT_EQ(page->image()->width(), 64);
}

// Another program (a second connection to the same file) deletes and adds
// records while the gallery is open; the window reads the journal again and
// says the model changed, as the desktop app does.
TEST_F(GalleryTest, FollowsDeletionsAndAdditionsOfTheJournal) {
  auto records = addPhotos(4);
  auto noPhoto = add(5, at(2026, 11, 10, 12), "words only");
  int changes = 0;
  auto source = [this]() -> std::optional<std::vector<std::shared_ptr<MoodRecord>>> {
    return store_->recordsSortedByDate();
  };
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setPageWidth(100);
  gallery->setMoodRecords(records);
  gallery->setRecordsSource(source);
  gallery->setRecordsChangeHandlers([&changes] { ++changes; }, [&changes] { ++changes; });
  gallery->setCurrentRecord(2);
  auto shown = gallery->selectedMoodRecord();
  ASSERT_EQ(shown, records[2]);

  auto otherProgram = [this](const std::function<void(JournalStore&)>& write) {
    JournalStore other({dir_ / "Library", dir_ / "Documents"}, defaults_);
    write(other);
    ASSERT_FALSE(other.lastSaveError());
    auto context = store_->managedObjectContext();
    for (const auto& object : context->registeredObjects()) context->refreshObject(object, false);
    NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
  };
  const auto rowOf = [](const std::shared_ptr<MoodRecord>& r) { return r->objectID().primaryKey(); };

  // A record before the shown one goes: the same photo stays on screen.
  otherProgram([&](JournalStore& other) {
    ASSERT_FALSE(other.deleteRecord(other.recordWithRowNumber(rowOf(records[0]))));
    other.saveContext();
  });
  EXPECT_EQ(changes, 2);
  ASSERT_EQ(gallery->moodRecords().size(), 3u);
  EXPECT_EQ(gallery->selectedMoodRecord(), shown);
  EXPECT_EQ(gallery->currentRecord(), 1);
  EXPECT_EQ(gallery->contentOffset(), 100);
  EXPECT_EQ(gallery->panel().comment, "photo 2");

  // The shown one goes: its neighbour takes the page, none is left of it.
  otherProgram([&](JournalStore& other) {
    ASSERT_FALSE(other.deleteRecord(other.recordWithRowNumber(rowOf(shown))));
    other.saveContext();
  });
  ASSERT_EQ(gallery->moodRecords().size(), 2u);
  EXPECT_EQ(gallery->selectedMoodRecord(), records[3]);
  EXPECT_EQ(gallery->panel().comment, "photo 3");
  EXPECT_EQ(gallery->livePageIndices(), (std::vector<long>{0, 1}));
  EXPECT_FALSE(gallery->pageViewForIndex(1)->imageName().value_or("").empty());

  // One with a photo joins; the one without stays out; the page stays.
  otherProgram([&](JournalStore& other) {
    auto added = other.insertRecordWithDescription();
    added->setMoodLevel(8);
    added->setDate(at(2026, 11, 21, 8));
    added->moodDescription()->setComment(std::string("from the terminal"));
    added->moodDescription()->setPhotoName(records[1]->moodDescription()->photoName());
    other.saveContext();
  });
  ASSERT_EQ(gallery->moodRecords().size(), 3u);
  EXPECT_EQ(gallery->selectedMoodRecord(), records[3]);
  EXPECT_EQ(gallery->moodRecords().back()->moodDescription()->comment(), std::string("from the terminal"));
  EXPECT_EQ(std::count(gallery->moodRecords().begin(), gallery->moodRecords().end(), noPhoto), 0);

  // The last record shown goes: the one before it is shown; then all go.
  gallery->setCurrentRecord(2);
  store_->saveContext();  // nothing changed: the same list, no rebuild
  EXPECT_EQ(changes, 6);
  otherProgram([&](JournalStore& other) {
    ASSERT_FALSE(other.deleteRecord(other.recordWithRowNumber(rowOf(gallery->selectedMoodRecord()))));
    other.saveContext();
  });
  EXPECT_EQ(gallery->selectedMoodRecord(), records[3]);
  otherProgram([&](JournalStore& other) {
    for (const auto& record : other.allRecords()) ASSERT_FALSE(other.deleteRecord(record));
    other.saveContext();
  });
  EXPECT_TRUE(gallery->moodRecords().empty());
  EXPECT_EQ(gallery->selectedMoodRecord(), nullptr);
  EXPECT_EQ(gallery->panel().comment, "");
  EXPECT_TRUE(gallery->livePageIndices().empty());
}

TEST_F(GalleryTest, WithoutASourceKeepsItsOwnRecordsThatRemain) {
  auto records = addPhotos(3);
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setMoodRecords(records);
  gallery->setCurrentRecord(1);
  ASSERT_FALSE(store_->deleteRecord(records[1]));
  store_->saveContext();
  ASSERT_EQ(gallery->moodRecords().size(), 2u);
  EXPECT_EQ(gallery->selectedMoodRecord(), records[2]);
  // A photo removed from a record takes it out of the gallery too.
  records[2]->moodDescription()->setPhotoName(std::nullopt);
  store_->saveContext();
  ASSERT_EQ(gallery->moodRecords().size(), 1u);
  EXPECT_EQ(gallery->selectedMoodRecord(), records[0]);
}

TEST(CarouselPhotoView, FadesWithDistanceFromTheCentre) {
  CarouselPhotoView view;
  EXPECT_TRUE(view.isIndicatorAnimating());
  view.setImage(Image::filled(4, 4, Color(1, 0, 0)));
  EXPECT_FALSE(view.isIndicatorAnimating());
  view.setImage(std::nullopt);
  EXPECT_TRUE(view.isIndicatorAnimating());
  view.setOffset(0);
  EXPECT_DOUBLE_EQ(view.alpha(), 1);
  view.setOffset(-0.5);
  EXPECT_DOUBLE_EQ(view.alpha(), 0.65);
  view.setOffset(3);
  EXPECT_DOUBLE_EQ(view.alpha(), 0.3);
}

}  // namespace
}  // namespace lumeo
