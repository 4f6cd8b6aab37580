// The journal's entities and store stack on a real SQLite file: defaults and
// identities, the tag figures, the lookups and fetches, saveContext's
// always-steps, and a store file that is no database.
#include "store/journal_store.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <limits>
#include <map>

#include "objectgraph/managed_object_context.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

Date day(int n, double hour = 12) {
  return Date::fromTimeIntervalSince1970(1700000000.0 + n * 86400.0 + hour * 3600);
}

class JournalStoreTest : public ::testing::Test {
 protected:
  JournalStoreTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        store_(std::make_unique<JournalStore>(locations(), defaults_)) {}

  JournalStore::Locations locations() const { return {dir_ / "Library", dir_ / "Documents"}; }

  std::shared_ptr<MoodRecord> add(long level, Date date, const std::vector<std::string>& tags = {},
                                  JournalStore* store = nullptr) {
    JournalStore& s = store ? *store : *store_;
    auto record = s.insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(date);
    for (const auto& name : tags) {
      auto tag = s.tagNamed(name);
      if (!tag) {
        tag = s.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
    }
    return record;
  }

  void reopen() { store_ = std::make_unique<JournalStore>(locations(), defaults_); }

  testing::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<JournalStore> store_;
};

TEST_F(JournalStoreTest, NewRecordAndDescriptionHaveModelDefaultsAndIdentities) {
  auto record = store_->insertRecordWithDescription();
  auto description = record->moodDescription();
  ASSERT_TRUE(description);
  EXPECT_EQ(description->latitude(), -1);
  EXPECT_EQ(description->longitude(), -1);
  EXPECT_FALSE(description->wasEdited());
  EXPECT_FALSE(description->hasPosition());
  ASSERT_TRUE(record->uniqueIdentifier());
  ASSERT_TRUE(description->uniqueIdentifier());
  EXPECT_EQ(record->uniqueIdentifier()->size(), 36u);
  EXPECT_NE(*record->uniqueIdentifier(), *description->uniqueIdentifier());
  EXPECT_EQ(description->moodRecord(), record);

  // An identifier that came with the object (as sync inserts them) stays.
  description->setUniqueIdentifier("FROM-ANOTHER-DEVICE");
  description->awakeFromInsert();
  EXPECT_EQ(description->uniqueIdentifier(), "FROM-ANOTHER-DEVICE");

  record->setDate(day(0));
  record->setMoodLevel(7);
  store_->saveContext();
  ASSERT_FALSE(store_->lastSaveError());
  std::string id = *record->uniqueIdentifier();
  reopen();
  auto again = store_->allRecords();
  ASSERT_EQ(again.size(), 1u);
  EXPECT_EQ(again[0]->uniqueIdentifier(), id);
  EXPECT_EQ(again[0]->moodLevel(), 7);
  EXPECT_EQ(again[0]->moodDescription()->latitude(), -1);
}

TEST_F(JournalStoreTest, TagOutlivesItsLastRecordWithFrequencyZero) {
  auto first = add(4, day(0), {"sleep"});
  auto second = add(8, day(1), {"sleep"});
  store_->saveContext();
  auto tag = store_->tagNamed("sleep");
  ASSERT_TRUE(tag);
  EXPECT_EQ(tag->frequency(), 2);

  EXPECT_FALSE(store_->deleteRecord(first));
  store_->saveContext();
  EXPECT_EQ(tag->frequency(), 1);

  EXPECT_FALSE(store_->deleteRecord(second));
  store_->saveContext();
  ASSERT_FALSE(store_->lastSaveError());
  reopen();
  tag = store_->tagNamed("sleep");
  ASSERT_TRUE(tag) << "a tag is deleted only by the editor's tag deletion";
  EXPECT_EQ(tag->frequency(), 0);
  EXPECT_TRUE(store_->usedTags().empty()) << "left out of frequency > 0 lists";
  ASSERT_EQ(store_->completionTags("sl").size(), 1u) << "still offered in completion";
  EXPECT_TRUE(store_->allDescriptions().empty()) << "descriptions go with their records";
}

TEST_F(JournalStoreTest, AverageAndCachedLevelSum) {
  auto empty = store_->managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
  empty->setTagName("unused");
  EXPECT_EQ(empty->averageMoodLevel(), 0);
  EXPECT_EQ(empty->frequency(), 0);

  auto a = add(4, day(0), {"walk"});
  add(9, day(1), {"walk"});
  store_->saveContext();
  auto tag = store_->tagNamed("walk");
  EXPECT_DOUBLE_EQ(tag->averageMoodLevel(), 6.5);
  EXPECT_EQ(tag->cachedLevelSum(), 13);

  // The cached sum is not kept up to date: only a reader that clears it
  // sees the change; the average always clears it.
  a->setMoodLevel(6);
  EXPECT_EQ(tag->cachedLevelSum(), 13);
  EXPECT_DOUBLE_EQ(tag->averageMoodLevel(), 7.5);
  tag->setCachedLevelSum(std::nullopt);
  EXPECT_EQ(tag->cachedLevelSum(), 15);

  // Recomputing the sum also corrects a wrong stored count.
  tag->setFrequency(9);
  tag->setCachedLevelSum(std::nullopt);
  tag->cachedLevelSum();
  EXPECT_EQ(tag->frequency(), 2);
}

TEST_F(JournalStoreTest, TagLookupFoldsCaseAndAccentsAndTakesTheNameLiterally) {
  add(5, day(0), {"Sleep"});
  add(5, day(0), {"café"});
  store_->saveContext();
  auto sleep = store_->tagNamed("Sleep");
  ASSERT_TRUE(sleep);
  EXPECT_EQ(store_->tagNamed("SLEEP"), sleep);
  EXPECT_EQ(store_->tagNamed("sleep"), sleep);
  EXPECT_EQ(store_->tagNamed("CAFE"), store_->tagNamed("café"));
  // A name is literal: * and ? match only themselves, so a lookup (and the
  // rename or deletion that follows it) never reaches another tag.
  EXPECT_FALSE(store_->tagNamed("sl*"));
  EXPECT_FALSE(store_->tagNamed("s?eep"));
  EXPECT_FALSE(store_->tagNamed("*"));
  EXPECT_TRUE(store_->tagsNamedLike("?leep").empty());
  EXPECT_EQ(store_->tagsNamedLike("SLEEP").size(), 1u);
  EXPECT_FALSE(store_->tagNamed("sle"));
  EXPECT_FALSE(store_->tagWithExactName("sleep")) << "== is exact";
  EXPECT_EQ(store_->tagWithExactName("Sleep"), sleep);
  EXPECT_EQ(store_->tagSelf(sleep), sleep);
}

TEST_F(JournalStoreTest, TagIdentityIsItsNameSoARenameChangesIt) {
  add(5, day(0), {"run"});
  store_->saveContext();
  auto tag = store_->tagNamed("run");
  EXPECT_EQ(tag->uniqueIdentifier(), "run");
  tag->setTagName("running");
  EXPECT_EQ(tag->uniqueIdentifier(), "running");
}

TEST_F(JournalStoreTest, SaveContextAlwaysRemovesCachedPdfAndPosts) {
  int posts = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodModelHasChangedNotification, nullptr,
                          [&](const Notification&) { ++posts; });
  // No context yet at all.
  EXPECT_FALSE(defaults_->setString(kCreatedPDF, "report.pdf"));
  store_->saveContext();
  EXPECT_EQ(posts, 1);
  EXPECT_FALSE(defaults_->stringForKey(kCreatedPDF));

  // A context with nothing to save.
  store_->managedObjectContext();
  EXPECT_FALSE(defaults_->setString(kCreatedPDF, "report.pdf"));
  store_->saveContext();
  EXPECT_EQ(posts, 2);
  EXPECT_FALSE(defaults_->stringForKey(kCreatedPDF));
}

TEST_F(JournalStoreTest, FirstDateAndDateRange) {
  EXPECT_FALSE(store_->getFirstDate());
  bool called = false;
  store_->requestDates([&](Date, Date) { called = true; });
  EXPECT_FALSE(called) << "no records, no block";

  add(5, day(3));
  add(5, day(1));
  add(5, day(7));
  store_->saveContext();
  EXPECT_EQ(store_->getFirstDate(), day(1));
  store_->requestDates([&](Date min, Date max) {
    called = true;
    EXPECT_EQ(min, day(1));
    EXPECT_EQ(max, day(7));
  });
  EXPECT_TRUE(called);
}

TEST_F(JournalStoreTest, DateFetchesAreInclusiveAndOrdered) {
  for (int i = 0; i < 6; ++i) add(i + 1, day(i));
  store_->saveContext();
  auto range = store_->recordsFrom(day(1), day(3));
  ASSERT_EQ(range.size(), 3u);
  EXPECT_EQ(range.front()->date(), day(1));
  EXPECT_EQ(range.back()->date(), day(3));
  auto newest = store_->newestRecordsFrom(Date::distantPast(), Date::distantFuture(), 2);
  ASSERT_EQ(newest.size(), 2u);
  EXPECT_EQ(newest[0]->date(), day(5));
  EXPECT_EQ(newest[1]->date(), day(4));
  EXPECT_EQ(store_->recordsSortedByDate().front()->moodLevel(), 1);
  EXPECT_TRUE(store_->hasAnyRecord());
}

// The charts' reading: the same dates and levels whether they come from the
// file in one query (nothing unsaved) or through the records (something
// unsaved, which must count): inclusive bounds, oldest first, undated
// records left out.
TEST_F(JournalStoreTest, DatedLevelsReadTheSavedFileAndCountUnsavedChanges) {
  using DL = JournalStore::DatedLevel;
  for (int i = 5; i >= 0; --i) add(i + 1, day(i));
  add(9, day(2)).get()->setDate(std::nullopt);
  store_->saveContext();
  ASSERT_FALSE(store_->managedObjectContext()->hasChanges());
  const std::vector<DL> all = {{day(0), 1}, {day(1), 2}, {day(2), 3}, {day(3), 4}, {day(4), 5}, {day(5), 6}};
  EXPECT_EQ(store_->datedLevels(), all);
  EXPECT_EQ(store_->datedLevels(day(1), day(3)), (std::vector<DL>{{day(1), 2}, {day(2), 3}, {day(3), 4}}));
  EXPECT_TRUE(store_->datedLevels(day(6), day(9)).empty());

  // Unsaved: a new record, a changed level, a deleted record.
  add(10, day(1, 18));
  auto records = store_->recordsFrom(day(0), day(5));
  ASSERT_EQ(records.size(), 7u);
  records[0]->setMoodLevel(7);
  ASSERT_FALSE(store_->managedObjectContext()->deleteObject(records[6]));
  ASSERT_TRUE(store_->managedObjectContext()->hasChanges());
  const std::vector<DL> changed = {{day(0), 7}, {day(1), 2}, {day(1, 18), 10},
                                   {day(2), 3}, {day(3), 4}, {day(4), 5}};
  EXPECT_EQ(store_->datedLevels(), changed);
  store_->saveContext();
  EXPECT_EQ(store_->datedLevels(), changed);
  reopen();
  EXPECT_EQ(store_->datedLevels(), changed);
}

TEST_F(JournalStoreTest, TagAndPhotoAndPlaceFetches) {
  auto a = add(3, day(0), {"work"});
  auto b = add(8, day(1), {"walk", "sun"});
  auto c = add(9, day(2), {"walk"});
  a->moodDescription()->setPhotoName("a.jpg");
  c->moodDescription()->setPhotoName("c.jpg");
  b->moodDescription()->setLatitude(52.5);
  b->moodDescription()->setLongitude(13.4);
  c->moodDescription()->setLatitude(48.1);
  c->moodDescription()->setLongitude(11.6);
  store_->saveContext();

  auto walk = store_->tagNamed("walk");
  auto work = store_->tagNamed("work");
  EXPECT_EQ(store_->recordsWithTag(walk).size(), 2u);
  EXPECT_EQ(store_->recordsFromWithTag(day(2), day(3), walk).size(), 1u);
  EXPECT_EQ(store_->recordsFromWithAnyTag(day(0), day(2), {walk, work}).size(), 3u);
  ASSERT_EQ(store_->recordsWithPhoto(false).size(), 1u);
  EXPECT_EQ(store_->recordsWithPhoto(false)[0]->moodLevel(), 3);
  EXPECT_EQ(store_->recordsWithPhoto(true)[0]->moodLevel(), 9);
  EXPECT_EQ(store_->locatedRecordsFrom(day(0), day(5), {}).size(), 2u);
  EXPECT_EQ(store_->locatedRecordsFrom(day(0), day(5), {"sun"}).size(), 1u);
  EXPECT_EQ(store_->locatedRecordsFrom(day(0), day(5), {"sun", "walk"}).size(), 2u);
  EXPECT_EQ(store_->locatedRecordsFrom(day(2), day(5), {"sun"}).size(), 0u);
  EXPECT_EQ(store_->usedTagsFrom(day(1), day(1)).size(), 2u);
  EXPECT_EQ(store_->tagsContaining("W").size(), 2u);
  EXPECT_EQ(store_->tagsContaining("").size(), 3u);
  auto byFrequency = store_->tagsByFrequency(1);
  ASSERT_EQ(byFrequency.size(), 1u);
  EXPECT_EQ(byFrequency[0], walk);
  EXPECT_EQ(store_->suggestedTags("w", 10).front(), walk);
  EXPECT_EQ(store_->imageNamesInUse(), (std::set<std::string>{"a.jpg", "c.jpg"}));
}

TEST_F(JournalStoreTest, RemoveCoordinatesClearsEveryPositionAndSaves) {
  auto a = add(5, day(0));
  a->moodDescription()->setLatitude(1);
  a->moodDescription()->setLongitude(2);
  store_->saveContext();
  store_->removeCoordinates();
  reopen();
  EXPECT_TRUE(store_->locatedDescriptions().empty());
  EXPECT_EQ(store_->allDescriptions().front()->latitude(), -1);
}

// SQLite keeps a NaN as NULL. A half-missing place must come back as no
// place at all, not as -1 for the missing half beside a real number.
TEST_F(JournalStoreTest, AMissingOrNaNCoordinateReadsBackAsNoPlaceForBoth) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  auto nanLatitude = add(1, day(0));
  nanLatitude->moodDescription()->setLatitude(nan);
  nanLatitude->moodDescription()->setLongitude(30);
  auto bothNaN = add(2, day(1));
  bothNaN->moodDescription()->setLatitude(nan);
  bothNaN->moodDescription()->setLongitude(nan);
  auto halfMinusOne = add(3, day(2));  // -1 is a number: the pair stays as it is
  halfMinusOne->moodDescription()->setLatitude(-1);
  halfMinusOne->moodDescription()->setLongitude(30);
  auto located = add(4, day(3));
  located->moodDescription()->setLatitude(52.5);
  located->moodDescription()->setLongitude(13.4);

  const auto expectNoPlace = [](const MoodDescription& d, const char* when) {
    EXPECT_FALSE(d.hasPosition()) << when;
    EXPECT_EQ(d.latitude(), -1) << when;
    EXPECT_EQ(d.longitude(), -1) << when;
  };
  expectNoPlace(*nanLatitude->moodDescription(), "in memory");
  expectNoPlace(*bothNaN->moodDescription(), "in memory");
  store_->saveContext();
  ASSERT_FALSE(store_->lastSaveError());

  // What the file holds, and a NULL written into it by hand.
  reopen();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(store_->storeURL().c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "UPDATE MoodDescription SET longitude = NULL WHERE _pk = "
                         "(SELECT moodDescription FROM MoodRecord WHERE moodLevel = 4)",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);

  std::map<long, std::shared_ptr<MoodDescription>> byLevel;
  for (const auto& d : store_->allDescriptions()) byLevel[d->moodRecord()->moodLevel()] = d;
  ASSERT_EQ(byLevel.size(), 4u);
  expectNoPlace(*byLevel[1], "NaN latitude, from the file");
  expectNoPlace(*byLevel[2], "both NaN, from the file");
  expectNoPlace(*byLevel[4], "NULL longitude, from the file");
  EXPECT_EQ(byLevel[3]->latitude(), -1);
  EXPECT_EQ(byLevel[3]->longitude(), 30);
  EXPECT_TRUE(store_->locatedDescriptions().empty());
}
TEST_F(JournalStoreTest, DeletingADescriptionRemovesPhotoThenThumbnail) {
  std::vector<std::string> removed;
  auto record = add(5, day(0));
  store_->saveContext();
  MoodDescription::setImageFileRemover([&](const std::string& name) { removed.push_back(name); });
  record->moodDescription()->setPhotoName("p.jpg");
  record->moodDescription()->setThumbName("t.jpg");
  EXPECT_FALSE(store_->deleteRecord(record));
  MoodDescription::setImageFileRemover(nullptr);
  EXPECT_EQ(removed, (std::vector<std::string>{"p.jpg", "t.jpg"}));
}

TEST_F(JournalStoreTest, StoreLivesInLibraryInDeleteJournalModeAndMovesFromDocuments) {
  std::filesystem::create_directories(dir_ / "Documents");
  {
    JournalStore old(JournalStore::Locations{dir_ / "Documents", {}}, defaults_);
    auto record = old.insertRecordWithDescription();
    record->setMoodLevel(6);
    record->setDate(day(0));
    old.saveContext();
  }
  int stops = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodStopMigrationNotification, nullptr,
                          [&](const Notification&) { ++stops; });
  EXPECT_EQ(store_->storeURL(), dir_ / "Library" / "Model.sqlite");
  ASSERT_EQ(store_->allRecords().size(), 1u) << "moved from the documents directory";
  EXPECT_EQ(stops, 1);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "Documents" / "Model.sqlite"));

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((dir_ / "Library" / "Model.sqlite").c_str(), &db), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA journal_mode", -1, &statement, nullptr);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "delete");
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

// Under the usual umask 022 SQLite makes the store file 0644; the journal is
// the user's alone, and so are the rollback files SQLite makes beside it.
TEST_F(JournalStoreTest, StoreFilesArePrivateWhateverTheUmask) {
  const mode_t previous = ::umask(022);
  auto modeOf = [](const std::filesystem::path& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 0777;
  };
  add(5, day(0));
  store_->saveContext();
  const auto file = dir_ / "Library" / "Model.sqlite";
  EXPECT_EQ(modeOf(file), 0600u);

  // A rollback journal exists while a write transaction is open.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN IMMEDIATE; CREATE TABLE probe(x); INSERT INTO probe VALUES (1);", nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  std::filesystem::path journal = file;
  journal += "-journal";
  EXPECT_TRUE(std::filesystem::exists(journal));
  EXPECT_EQ(modeOf(journal), 0600u);
  sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(db);

  // A store that an earlier version left readable is tightened at opening.
  store_.reset();
  std::filesystem::permissions(file,
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                                   std::filesystem::perms::group_read | std::filesystem::perms::others_read);
  reopen();
  EXPECT_TRUE(store_->hasAnyRecord());
  EXPECT_EQ(modeOf(file), 0600u);
  ::umask(previous);
}

TEST_F(JournalStoreTest, AFileThatIsNoDatabaseGivesEmptyFetchesAndStaysUntouched) {
  std::filesystem::create_directories(dir_ / "Library");
  std::string junk = "this is not a database, just some text that a user put here\n";
  testing::writeFile(dir_ / "Library" / "Model.sqlite", junk);
  int stops = 0;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodStopMigrationNotification, nullptr,
                          [&](const Notification&) { ++stops; });
  EXPECT_FALSE(store_->hasAnyRecord());
  EXPECT_TRUE(store_->storeOpenError());
  EXPECT_FALSE(store_->hasStore());
  EXPECT_EQ(stops, 1) << "posted whether or not the store opened";
  store_->saveContext();
  EXPECT_EQ(testing::readFile(dir_ / "Library" / "Model.sqlite"), junk);
}

TEST_F(JournalStoreTest, DropLinksRebuildsTheStackOnNextAccess) {
  add(5, day(0));
  store_->saveContext();
  auto before = store_->managedObjectContext();
  store_->applicationDropLinks();
  auto after = store_->managedObjectContext();
  EXPECT_NE(before, after);
  EXPECT_EQ(store_->allRecords().size(), 1u);
}

TEST_F(JournalStoreTest, RecordsAreFoundByRowNumberAndURI) {
  auto record = add(5, day(0));
  store_->saveContext();
  std::int64_t row = record->objectID().primaryKey();
  ASSERT_GT(row, 0);
  EXPECT_EQ(store_->recordWithRowNumber(row), record);
  EXPECT_EQ(store_->recordWithURI(record->objectID().URIRepresentation()), record);
  EXPECT_FALSE(store_->recordWithRowNumber(row + 100));
  EXPECT_FALSE(store_->recordWithURI("x-lumeo-og://nothing/MoodRecord/p1"));
  EXPECT_FALSE(store_->deleteRecord(record));
  store_->saveContext();
  EXPECT_FALSE(store_->recordWithRowNumber(row));
  // The command line names records by row number: a deleted record's number
  // is never handed to a later one, also not after reopening.
  reopen();
  auto later = add(6, day(1));
  store_->saveContext();
  EXPECT_GT(later->objectID().primaryKey(), row);
}

TEST(MoodTagLabel, ShowsLowerCaseNamesCapitalisedWithTheirFigure) {
  EXPECT_EQ(MoodTag::displayName("sleep"), "Sleep");
  EXPECT_EQ(MoodTag::displayName("éte"), "Éte");
  EXPECT_EQ(MoodTag::displayName("iPhone"), "iPhone");
  EXPECT_EQ(MoodTag::displayName("SLEEP"), "SLEEP");
}

TEST_F(JournalStoreTest, LabelRunsCarryWeightKerningAndText) {
  add(6, day(0), {"sleep"});
  add(7, day(1), {"sleep"});
  store_->saveContext();
  auto tag = store_->tagNamed("sleep");
  AttributedString average = tag->attributedStringWithFontFize(14);
  EXPECT_EQ(average.string(), "#Sleep 6.5");
  ASSERT_EQ(average.runs.size(), 4u);
  EXPECT_EQ(average.runs[0].kern, 1.0);
  EXPECT_EQ(average.runs[1].weight, FontWeight::kBold);
  EXPECT_EQ(average.runs[2].text, " ");
  EXPECT_EQ(average.runs[2].kern, 7.0);
  for (const auto& run : average.runs) {
    EXPECT_EQ(run.pointSize, 14);
    EXPECT_EQ(run.red + run.green + run.blue + run.alpha, 4) << "white";
  }
  AttributedString count = tag->attributedStringByCountWithFontFize(10);
  EXPECT_EQ(count.string(), "#Sleep 2");
  EXPECT_EQ(count.runs[1].weight, FontWeight::kRegular);
}

}  // namespace
}  // namespace lumeo
