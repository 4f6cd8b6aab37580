// Applying the editor's state to records of a real SQLite journal: the tag
// links that come from the comment, the pictures that move to new files,
// the delete of a cancelled new record and the backup reminder's count.
#include "capture/mood_record_state.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "objectgraph/managed_object_context.h"
#include "platform/color.h"
#include "platform/user_defaults.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class MoodRecordStateTest : public ::testing::Test {
 protected:
  MoodRecordStateTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        images_(std::make_shared<ImageStore>(dir_ / "Library")) {
    open();
  }

  void open() {
    store_ = std::make_unique<JournalStore>(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
                                            defaults_);
  }

  RecordStateServices services() {
    return {store_.get(), images_, [this](long delta) { counter_ += delta; }};
  }

  std::shared_ptr<MoodRecord> newRecord(long level) {
    auto record = store_->insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(Date::fromTimeIntervalSince1970(1700000000));
    store_->saveContext();
    return record;
  }

  // Applies `comment` the way the editor's done does for a new record.
  std::shared_ptr<MoodRecord> recordWithComment(const std::string& comment, long level = 6) {
    auto record = newRecord(level);
    MoodRecordState state(*record, images_.get());
    state.comment = comment;
    EXPECT_FALSE(state.applyToRecord(record, services()));
    return record;
  }

  static std::vector<std::string> tagNames(const MoodRecord& record) {
    std::vector<std::string> names;
    for (const auto& tag : record.moodTags()) names.push_back(tag->tagName());
    std::sort(names.begin(), names.end());
    return names;
  }

  std::size_t fileCount() { return images_->allStoredImageNames().size(); }

  testing::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<ImageStore> images_;
  std::unique_ptr<JournalStore> store_;
  long counter_ = 0;
};

TEST_F(MoodRecordStateTest, CommentTagsBecomeOneLinkPerTagAndSurviveReopening) {
  auto record = recordWithComment("Slept #sleep:8h then #Work, and #sleep:6h again ##a #x:.5");
  EXPECT_EQ(tagNames(*record), (std::vector<std::string>{"Work", "a", "sleep", "x"}));
  auto sleep = store_->tagNamed("sleep");
  ASSERT_TRUE(sleep);
  EXPECT_EQ(sleep->tagUnit(), "h");
  EXPECT_EQ(sleep->frequency(), 1);
  EXPECT_EQ(store_->tagNamed("work")->tagUnit(), std::nullopt);

  // A later spelling renames the tag for everyone; no second row appears.
  auto second = recordWithComment("#work from home");
  EXPECT_EQ(store_->tagsNamedLike("work").size(), 1u);
  EXPECT_EQ(store_->tagNamed("WORK")->tagName(), "work");
  EXPECT_EQ(store_->tagNamed("work")->frequency(), 2);

  auto uri = record->objectID().URIRepresentation();
  open();
  auto reread = store_->recordWithURI(uri);
  ASSERT_TRUE(reread);
  EXPECT_EQ(tagNames(*reread), (std::vector<std::string>{"a", "sleep", "work", "x"}));
  EXPECT_EQ(reread->moodDescription()->comment(),
            "Slept #sleep:8h then #Work, and #sleep:6h again ##a #x:.5");
}

TEST_F(MoodRecordStateTest, UnitIsTakenOnceAndKeptAfterwards) {
  recordWithComment("#run");
  EXPECT_EQ(store_->tagNamed("run")->tagUnit(), std::nullopt);
  recordWithComment("#run:5");  // a value without unit gives ""
  EXPECT_EQ(store_->tagNamed("run")->tagUnit(), "");
  recordWithComment("#run:5km");
  EXPECT_EQ(store_->tagNamed("run")->tagUnit(), "km");
  recordWithComment("#run:3mi and #run");
  EXPECT_EQ(store_->tagNamed("run")->tagUnit(), "km");
  // Cyrillic names are ordinary tags.
  recordWithComment("#сон:8ч");
  ASSERT_TRUE(store_->tagNamed("СОН"));
  EXPECT_EQ(store_->tagNamed("сон")->tagUnit(), "ч");
}

TEST_F(MoodRecordStateTest, ReapplyingRebuildsLinksFromTheText) {
  auto record = recordWithComment("#a #b");
  MoodRecordState state(*record, images_.get());
  state.comment = "only #b now";
  ASSERT_FALSE(state.applyToRecord(record, services()));
  EXPECT_EQ(tagNames(*record), (std::vector<std::string>{"b"}));
  EXPECT_EQ(store_->tagNamed("a")->frequency(), 0);  // the row stays, unused
  state.comment = "no tags";
  ASSERT_FALSE(state.applyToRecord(record, services()));
  EXPECT_TRUE(record->moodTags().empty());
  // An absent comment (nothing typed, no template) also clears the links.
  state.comment.reset();
  ASSERT_FALSE(state.applyToRecord(record, services()));
  EXPECT_EQ(record->moodDescription()->comment(), std::nullopt);
}

TEST_F(MoodRecordStateTest, PicturesGetNewFilesAtEveryApplyAndAbsentOnesClearTheirNames) {
  auto record = newRecord(7);
  MoodRecordState state(*record, images_.get());
  state.photo = Image::filled(40, 30, Color::fromRGB255(200, 30, 30));
  state.thumb = Image::filled(26, 26, Color::fromRGB255(30, 200, 30));
  ASSERT_FALSE(state.applyToRecord(record, services()));
  auto description = record->moodDescription();
  auto firstPhoto = description->photoName();
  auto firstThumb = description->thumbName();
  ASSERT_TRUE(firstPhoto && firstThumb);
  EXPECT_EQ(description->photoChecksum(), images_->checksumForName(firstPhoto));
  EXPECT_EQ(description->photoChecksum()->size(), 32u);
  EXPECT_EQ(fileCount(), 2u);

  // The same pictures again: new names, the old files gone.
  ASSERT_FALSE(state.applyToRecord(record, services()));
  EXPECT_NE(description->photoName(), firstPhoto);
  EXPECT_NE(description->thumbName(), firstThumb);
  EXPECT_FALSE(images_->imageURLForName(firstPhoto).has_value() &&
               std::filesystem::exists(*images_->imageURLForName(firstPhoto)));
  EXPECT_EQ(fileCount(), 2u);

  // A state read back from the record carries the pictures' pixels.
  MoodRecordState reread(*record, images_.get());
  ASSERT_TRUE(reread.photo);
  EXPECT_EQ(reread.photo->width(), 40);
  EXPECT_EQ(reread.photo->height(), 30);

  reread.removePhotoAndThumb();
  ASSERT_FALSE(reread.applyToRecord(record, services()));
  EXPECT_EQ(description->photoName(), std::nullopt);
  EXPECT_EQ(description->thumbName(), std::nullopt);
  EXPECT_EQ(description->photoChecksum(), "");
  EXPECT_EQ(description->thumbChecksum(), "");
  EXPECT_EQ(fileCount(), 0u);

  // An empty state has nothing to remove: it holds no record's pictures.
  MoodRecordState empty;
  empty.photo = Image::filled(2, 2, Color::fromRGB255(0, 0, 0));
  empty.removePhotoAndThumb();
  EXPECT_TRUE(empty.photo.has_value());
}

TEST_F(MoodRecordStateTest, AFailedSaveKeepsThePicturesTheStoreStillNames) {
  auto record = newRecord(7);
  MoodRecordState state(*record, images_.get());
  state.photo = Image::filled(40, 30, Color::fromRGB255(200, 30, 30));
  state.thumb = Image::filled(26, 26, Color::fromRGB255(30, 200, 30));
  ASSERT_FALSE(state.applyToRecord(record, services()));
  const auto savedPhoto = record->moodDescription()->photoName();
  ASSERT_TRUE(savedPhoto);

  // The disk refuses the next write to descriptions (a trigger stands in
  // for a full disk): the saved row still names the first photo, so its
  // file must survive the failed apply.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((dir_ / "Library" / "Model.sqlite").c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "CREATE TRIGGER refuse BEFORE UPDATE ON \"MoodDescription\" "
                         "BEGIN SELECT RAISE(ABORT, 'disk full'); END;",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);

  state.photo = Image::filled(40, 30, Color::fromRGB255(10, 10, 200));
  EXPECT_FALSE(state.applyToRecord(record, services()));
  EXPECT_TRUE(store_->managedObjectContext()->hasChanges());
  auto path = images_->imageURLForName(savedPhoto);
  ASSERT_TRUE(path);
  EXPECT_TRUE(std::filesystem::exists(*path));
}

TEST_F(MoodRecordStateTest, EmptyStateDeletesTheRecordAndItsPictures) {
  auto record = newRecord(3);
  MoodRecordState withPhoto(*record, images_.get());
  withPhoto.photo = Image::filled(10, 10, Color::fromRGB255(1, 2, 3));
  ASSERT_FALSE(withPhoto.applyToRecord(record, services()));
  ASSERT_EQ(fileCount(), 1u);

  EXPECT_FALSE(MoodRecordState().applyToRecord(record, services()));
  EXPECT_FALSE(store_->hasAnyRecord());
  EXPECT_TRUE(store_->allDescriptions().empty());
  EXPECT_EQ(fileCount(), 0u);
  EXPECT_EQ(counter_, 2);  // the cancel's delete counts as well
}

TEST_F(MoodRecordStateTest, EditedStatesDoNotCountAndTheDateIsNeverWritten) {
  auto record = newRecord(5);
  Date original = *record->date();
  MoodRecordState state(*record, images_.get());
  EXPECT_TRUE(state.existing);
  EXPECT_EQ(state.date, original);
  state.date = Date::fromTimeIntervalSince1970(1);
  state.moodLevel = 9;
  state.wasEdited = true;
  ASSERT_FALSE(state.applyToRecord(record, services()));
  EXPECT_EQ(counter_, 0);
  EXPECT_EQ(record->moodLevel(), 9);
  EXPECT_TRUE(record->moodDescription()->wasEdited());
  EXPECT_EQ(record->date(), original);

  // No record, or no journal: nothing happens.
  EXPECT_FALSE(state.applyToRecord(nullptr, services()));
  EXPECT_FALSE(state.applyToRecord(record, RecordStateServices{}));
}

TEST_F(MoodRecordStateTest, AMegabyteCommentIsStoredWholeWithOneLinkPerTag) {
  // About 1 MB of text with ten thousand tag mentions over 100 names.
  std::string comment;
  for (int i = 0; comment.size() < (1u << 20); ++i) {
    comment += "Walked by the river, slept #sleep:7.5h and met #friend" + std::to_string(i % 100) +
               " for coffee; the evening was quiet and long, as evenings are. ";
  }
  auto record = recordWithComment(comment);
  EXPECT_EQ(record->moodTags().size(), 101u);
  EXPECT_EQ(store_->tagNamed("sleep")->tagUnit(), "h");
  EXPECT_EQ(store_->tagNamed("friend42")->frequency(), 1);

  auto uri = record->objectID().URIRepresentation();
  open();
  auto reread = store_->recordWithURI(uri);
  ASSERT_TRUE(reread);
  EXPECT_EQ(reread->moodDescription()->comment(), comment);
  EXPECT_EQ(reread->moodTags().size(), 101u);
}

}  // namespace
}  // namespace lumeo
