// Capture and integration between journal replicas: what a save event holds,
// how concurrent changes resolve, and how a merge fails without touching
// the journal.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "objectgraph/object_graph_error.h"
#include "platform/clock.h"
#include "platform/image.h"
#include "platform/log.h"
#include "sync/sync_error.h"
#include "sync/sync_event_builder.h"
#include "sync/sync_revision_manager.h"
#include "sync/sync_test_replica.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::SyncReplica;
using testing::TempDir;

std::string fileBytes(const std::filesystem::path& path) {
  return testing::readFile(path);
}

class SyncPairTest : public ::testing::Test {
 protected:
  SyncPairTest() : a_(dir_ / "a"), b_(dir_ / "b") {}
  void exchange() {
    testing::deliverAll(a_, b_);
    testing::deliverAll(b_, a_);
  }
  void mergeBoth() {
    SyncMergeResult ra = a_.merge();
    ASSERT_TRUE(ra.succeeded && !ra.error) << (ra.error ? ra.error->toString() : "no reason");
    SyncMergeResult rb = b_.merge();
    ASSERT_TRUE(rb.succeeded && !rb.error) << (rb.error ? rb.error->toString() : "no reason");
  }
  // Latest save event of a replica, its changes by entity.
  std::vector<std::shared_ptr<SyncObjectChange>> lastEventChanges(SyncReplica& r, const std::string& entity) {
    std::vector<std::shared_ptr<SyncObjectChange>> out;
    auto context = r.events().managedObjectContext();
    context->performBlockAndWait([&] {
      auto events = SyncStoreModificationEvent::fetchNonBaselineEvents(*context);
      for (const auto& change : events.back()->objectChanges()) {
        if (change->nameOfEntity() == entity) out.push_back(change);
      }
    });
    return out;
  }

  ScopedSimulatedClock clock_{Date::fromTimeIntervalSinceReferenceDate(1000)};
  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  SyncReplica a_;
  SyncReplica b_;
};

TEST_F(SyncPairTest, ASaveBecomesOneEventThatTheOtherReplicaReplays) {
  auto record = a_.addRecord(7, "good day #walk");
  record->addMoodTagsObject(a_.tagNamed("walk", true));
  a_.save();

  auto context = a_.events().managedObjectContext();
  context->performBlockAndWait([&] {
    auto events = SyncStoreModificationEvent::fetchNonBaselineEvents(*context);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]->type(), kSyncEventTypeSave);
    EXPECT_EQ(events[0]->globalCount(), 0);
    EXPECT_EQ(events[0]->eventRevision()->revisionNumber(), 0);
    EXPECT_EQ(events[0]->objectChanges().size(), 3u);
  });
  EXPECT_TRUE(a_.events().incompleteEventIdentifiers().empty());

  exchange();
  mergeBoth();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_NE(b_.dump().find("tag walk unit=<nil> frequency=1 records=1 levelSum=7"), std::string::npos)
      << b_.dump();
}

TEST_F(SyncPairTest, ConcurrentEditsResolveByGlobalCountThenTimestampThenStore) {
  a_.addRecord(5, "shared")->setUniqueIdentifier("R");
  a_.save();
  exchange();
  mergeBoth();

  // Equal global counts: the later timestamp wins, whoever saved first.
  clock_.clock().set(Date::fromTimeIntervalSinceReferenceDate(2000));
  b_.recordWithIdentifier("R")->setMoodLevel(8);
  b_.save();
  clock_.clock().set(Date::fromTimeIntervalSinceReferenceDate(1500));
  a_.recordWithIdentifier("R")->setMoodLevel(2);
  a_.save();
  exchange();
  mergeBoth();
  EXPECT_EQ(a_.recordWithIdentifier("R")->moodLevel(), 8);
  EXPECT_EQ(b_.recordWithIdentifier("R")->moodLevel(), 8);

  // A higher global count wins over a later timestamp.
  exchange();
  mergeBoth();
  a_.addRecord(1, "bump");
  a_.save();
  a_.recordWithIdentifier("R")->setMoodLevel(3);
  a_.save();
  clock_.clock().set(Date::fromTimeIntervalSinceReferenceDate(9000));
  b_.recordWithIdentifier("R")->setMoodLevel(9);
  b_.save();
  exchange();
  mergeBoth();
  EXPECT_EQ(a_.recordWithIdentifier("R")->moodLevel(), 3);
  EXPECT_EQ(b_.dump(), a_.dump());

  // All equal: the higher store identifier wins, in plain string order.
  exchange();
  mergeBoth();
  clock_.clock().set(Date::fromTimeIntervalSinceReferenceDate(10000));
  a_.recordWithIdentifier("R")->setMoodLevel(4);
  a_.save();
  b_.recordWithIdentifier("R")->setMoodLevel(6);
  b_.save();
  exchange();
  mergeBoth();
  long expected = *a_.events().persistentStoreIdentifier() > *b_.events().persistentStoreIdentifier() ? 4 : 6;
  EXPECT_EQ(a_.recordWithIdentifier("R")->moodLevel(), expected);
  EXPECT_EQ(b_.recordWithIdentifier("R")->moodLevel(), expected);
}

// A merge reads the events with plain queries when the event store has no
// unsaved changes, and through the object graph when it has; both must
// replay the same events in the same order.
TEST_F(SyncPairTest, AMergeOverUnsavedEventStoreChangesReplaysTheSame) {
  a_.addRecord(5, "first #walk")->setUniqueIdentifier("R");
  a_.save();
  clock_.clock().set(Date::fromTimeIntervalSinceReferenceDate(1500));
  a_.recordWithIdentifier("R")->setMoodLevel(2);
  a_.save();
  b_.addRecord(7, "other")->setUniqueIdentifier("S");
  b_.save();
  exchange();

  auto context = b_.events().managedObjectContext();
  context->performBlockAndWait([&] {
    auto file = context->insertNewObject<SyncDataFile>(kSyncDataFileEntity);
    file->setFilename("unsaved");
  });
  SyncMergeResult rb = b_.merge();
  ASSERT_TRUE(rb.succeeded && !rb.error) << (rb.error ? rb.error->toString() : "no reason");
  SyncMergeResult ra = a_.merge();
  ASSERT_TRUE(ra.succeeded && !ra.error) << (ra.error ? ra.error->toString() : "no reason");
  EXPECT_EQ(b_.recordWithIdentifier("R")->moodLevel(), 2);
  EXPECT_EQ(a_.dump(), b_.dump());
}

TEST_F(SyncPairTest, ADeleteFirstInOrderWinsOverALaterUpdate) {
  a_.addRecord(5, "doomed")->setUniqueIdentifier("R");
  a_.save();
  exchange();
  mergeBoth();

  clock_.clock().advance(1);
  auto doomed = a_.recordWithIdentifier("R");
  ASSERT_FALSE(a_.context().deleteObject(doomed->moodDescription()));
  ASSERT_FALSE(a_.context().deleteObject(doomed));
  a_.save();
  clock_.clock().advance(1);
  b_.recordWithIdentifier("R")->setMoodLevel(9);
  b_.recordWithIdentifier("R")->moodDescription()->setComment("edited late");
  b_.save();
  exchange();
  mergeBoth();
  EXPECT_EQ(a_.recordWithIdentifier("R"), nullptr);
  EXPECT_EQ(b_.recordWithIdentifier("R"), nullptr);
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(b_.dump().find("ORPHAN"), std::string::npos);
}

TEST_F(SyncPairTest, ACommentOnlyUpdateStillCarriesThePhotoAndTheThumbnailIsRemade) {
  auto record = a_.addRecord(6, "with photo");
  auto photo = Image::filled(40, 30, Color(0.8, 0.2, 0.1, 1));
  auto photoName = std::get<std::string>(a_.images().writeNewImage(photo));
  auto thumbName = std::get<std::string>(a_.images().writeNewImage(Image::filled(10, 10, Color(0, 0, 1, 1))));
  auto d = record->moodDescription();
  d->setPhotoName(photoName);
  d->setPhotoChecksum(*a_.images().checksumForName(photoName));
  d->setThumbName(thumbName);
  d->setThumbChecksum(*a_.images().checksumForName(thumbName));
  a_.save();

  d = a_.records().front()->moodDescription();
  d->setComment("only the comment changed");
  a_.save();
  auto changes = lastEventChanges(a_, "MoodDescription");
  ASSERT_EQ(changes.size(), 1u);
  auto context = a_.events().managedObjectContext();
  context->performBlockAndWait([&] {
    EXPECT_EQ(changes[0]->type(), kSyncObjectChangeTypeUpdate);
    auto value = changes[0]->propertyChangeValueForPropertyName("photoData");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->filename, photoName);
    EXPECT_TRUE(value->value.isNull());
    EXPECT_FALSE(changes[0]->propertyChangeValueForPropertyName("photoName"));
  });
  EXPECT_EQ(fileBytes(a_.events().pathToDataFileDirectory() / photoName),
            fileBytes(*a_.images().imageURLForName(photoName)));

  exchange();
  mergeBoth();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(fileBytes(*b_.images().imageURLForName(photoName)),
            fileBytes(*a_.images().imageURLForName(photoName)));
  auto thumb = Image::readFile(*b_.images().imageURLForName(thumbName));
  ASSERT_TRUE(std::holds_alternative<Image>(thumb));
  EXPECT_EQ(std::get<Image>(thumb).width(), kThumbnailSize);
}

TEST_F(SyncPairTest, ADescriptionWithoutPhotoCarriesNoPhotoDataAndAMissingFileTravelsByName) {
  a_.addRecord(3, "no photo");
  a_.save();
  auto changes = lastEventChanges(a_, "MoodDescription");
  auto context = a_.events().managedObjectContext();
  context->performBlockAndWait(
      [&] { EXPECT_FALSE(changes[0]->propertyChangeValueForPropertyName("photoData")); });

  a_.records().front()->moodDescription()->setPhotoName(std::string("0123456789abcdef01234567.jpg"));
  a_.save();
  changes = lastEventChanges(a_, "MoodDescription");
  context->performBlockAndWait([&] {
    auto value = changes[0]->propertyChangeValueForPropertyName("photoData");
    ASSERT_TRUE(value);
    EXPECT_FALSE(value->filename);
    EXPECT_EQ(value->value, Value("0123456789abcdef01234567.jpg"));
  });
}

TEST_F(SyncPairTest, ClearingAToOneStoresNoRelatedIdentifier) {
  auto record = a_.addRecord(4, "x");
  a_.save();
  record = a_.records().front();
  auto description = record->moodDescription();
  record->setMoodDescription(nullptr);
  a_.save();
  auto changes = lastEventChanges(a_, "MoodRecord");
  ASSERT_EQ(changes.size(), 1u);
  auto context = a_.events().managedObjectContext();
  context->performBlockAndWait([&] {
    auto value = changes[0]->propertyChangeValueForPropertyName("moodDescription");
    ASSERT_TRUE(value);
    EXPECT_FALSE(value->relatedIdentifier);
    EXPECT_FALSE(value->archive()["relatedIdentifier"].asString());
  });
}

TEST_F(SyncPairTest, ASaveDuringAMergeFailsItWith207AndLeavesOnlyTheAppsSave) {
  a_.addRecord(5, "from a")->setUniqueIdentifier("FROM-A");
  a_.save();
  exchange();
  b_.addRecord(2, "b's own")->setUniqueIdentifier("FROM-B");
  b_.hooks().shouldSaveBlock = [&](ManagedObjectContext&, ManagedObjectContext&) {
    b_.save();
    return true;
  };
  SyncMergeResult result = b_.merge();
  b_.hooks().shouldSaveBlock = nullptr;
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kSyncErrorDomain, 207));
  EXPECT_NE(b_.recordWithIdentifier("FROM-B"), nullptr);
  EXPECT_EQ(b_.recordWithIdentifier("FROM-A"), nullptr);
  EXPECT_TRUE(b_.events().incompleteEventIdentifiers().empty());

  // The next merge picks up both.
  ASSERT_TRUE(b_.merge().succeeded);
  EXPECT_NE(b_.recordWithIdentifier("FROM-A"), nullptr);
}

TEST_F(SyncPairTest, AnEventListOfThisStoreAloneWritesNothing) {
  a_.addRecord(5, "mine");
  a_.save();
  std::string before = fileBytes(a_.storePath());
  SyncMergeResult result = a_.merge();
  EXPECT_TRUE(result.succeeded && !result.error);
  EXPECT_EQ(fileBytes(a_.storePath()), before);
  EXPECT_EQ(a_.events().lastMergeRevisionSaved(), -1);
}

// Holds the journal's write lock from a second connection while the merge
// saves, so that the save fails with a store error other than a conflict.
struct WriteLock {
  explicit WriteLock(const std::filesystem::path& path) {
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  }
  void release() {
    if (db) {
      sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
      sqlite3_close(db);
    }
    db = nullptr;
  }
  ~WriteLock() { release(); }
  sqlite3* db = nullptr;
};

TEST_F(SyncPairTest, AFailedSaveIsRetriedOnlyWhenTheDelegateRepairsIt) {
  a_.addRecord(5, "from a");
  a_.save();
  exchange();
  b_.integrator().setPersistentStoreOptions(
      {{kSQLitePragmasOption, Value(Value::Dictionary{{"busy_timeout", Value("20")}})}});
  std::unique_ptr<WriteLock> lock;
  b_.hooks().shouldSaveBlock = [&](ManagedObjectContext&, ManagedObjectContext&) {
    lock = std::make_unique<WriteLock>(b_.storePath());
    return true;
  };
  int calls = 0;
  b_.hooks().failedSaveBlock = [&](ManagedObjectContext&, const Error&, ManagedObjectContext&) {
    ++calls;
    lock->release();
    return false;
  };
  std::string before = fileBytes(b_.storePath());
  SyncMergeResult declined = b_.merge();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(declined.succeeded);
  EXPECT_FALSE(declined.error);
  EXPECT_EQ(b_.records().size(), 0u);

  // Answering true with a repair in the child retries and records the repair.
  b_.hooks().failedSaveBlock = [&](ManagedObjectContext& merge, const Error&, ManagedObjectContext& child) {
    lock->release();
    FetchRequest request(kMoodRecordEntity);
    for (const auto& record : child.executeFetchRequest(request))
      record->setValueForKey("moodLevel", Value(10));
    (void)merge;
    return true;
  };
  SyncMergeResult repaired = b_.merge();
  EXPECT_TRUE(repaired.succeeded) << (repaired.error ? repaired.error->toString() : "");
  ASSERT_EQ(b_.records().size(), 1u);
  EXPECT_EQ(b_.records().front()->moodLevel(), 10);
  EXPECT_EQ(b_.events().lastMergeRevisionSaved(), 0);
}

TEST_F(SyncPairTest, AConflictUnderneathFailsWith133020WithoutAskingTheDelegate) {
  a_.addRecord(5, "shared")->setUniqueIdentifier("R");
  a_.save();
  exchange();
  mergeBoth();
  a_.recordWithIdentifier("R")->setMoodLevel(1);
  a_.save();
  exchange();
  b_.hooks().shouldSaveBlock = [&](ManagedObjectContext&, ManagedObjectContext&) {
    sqlite3* db = nullptr;
    sqlite3_open(b_.storePath().c_str(), &db);
    sqlite3_exec(db, "UPDATE MoodRecord SET moodLevel = 3, _opt = _opt + 1", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    return true;
  };
  bool asked = false;
  b_.hooks().failedSaveBlock = [&](ManagedObjectContext&, const Error&, ManagedObjectContext&) {
    asked = true;
    return true;
  };
  SyncMergeResult result = b_.merge();
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kObjectGraphErrorDomain, kManagedObjectMergeError))
      << result.error->toString();
  EXPECT_FALSE(asked);
}

TEST_F(SyncPairTest, TheDelegateCanDeclineAndItsRepairsBecomeTheMergeEvent) {
  a_.addRecord(5, "from a");
  a_.save();
  exchange();
  b_.hooks().shouldSaveBlock = [](ManagedObjectContext&, ManagedObjectContext&) { return false; };
  SyncMergeResult declined = b_.merge();
  ASSERT_TRUE(declined.error);
  EXPECT_TRUE(declined.error->is(kSyncErrorDomain, 101));

  b_.hooks().shouldSaveBlock = [](ManagedObjectContext&, ManagedObjectContext& child) {
    FetchRequest request(kMoodDescriptionEntity);
    for (const auto& d : child.executeFetchRequest(request)) d->setValueForKey("comment", Value("repaired"));
    return true;
  };
  ASSERT_TRUE(b_.merge().succeeded);
  b_.hooks().shouldSaveBlock = nullptr;
  auto changes = lastEventChanges(b_, "MoodDescription");
  ASSERT_EQ(changes.size(), 1u);
  testing::deliverAll(b_, a_);
  ASSERT_TRUE(a_.merge().succeeded);
  EXPECT_EQ(a_.records().front()->moodDescription()->comment(), "repaired");
}

// --- Bad input: the merge fails with a clear error and the journal's bytes stay.

class SyncBadInputTest : public SyncPairTest {
 protected:
  void SetUp() override {
    a_.addRecord(5, "from a");
    a_.save();
    testing::deliverAll(a_, b_);
    journalBefore_ = fileBytes(b_.storePath());
  }
  void expectFailureLeavingJournal(long code) {
    SyncMergeResult result = b_.merge();
    ASSERT_TRUE(result.error);
    EXPECT_TRUE(result.error->is(kSyncErrorDomain, code)) << result.error->toString();
    EXPECT_EQ(fileBytes(b_.storePath()), journalBefore_);
    EXPECT_TRUE(b_.events().incompleteEventIdentifiers().empty());
  }
  // Rewrites the changes that `a` made, in b's event store.
  void editChanges(const std::function<void(SyncObjectChange&)>& edit) {
    auto context = b_.events().managedObjectContext();
    context->performBlockAndWait([&] {
      for (const auto& o : context->executeFetchRequest(FetchRequest(kSyncObjectChangeEntity))) {
        edit(static_cast<SyncObjectChange&>(*o));
      }
      ASSERT_FALSE(context->save());
    });
  }
  std::string journalBefore_;
};

TEST_F(SyncBadInputTest, ValuesOfTheWrongTypeFailTheMerge) {
  editChanges([](SyncObjectChange& change) {
    if (change.nameOfEntity() != "MoodRecord") return;
    auto values = *change.propertyChangeValues();
    for (auto& v : values) {
      if (v.propertyName == "moodLevel") v.value = Value("seven");
    }
    change.setPropertyChangeValues(values);
  });
  expectFailureLeavingJournal(-1);
}

TEST_F(SyncBadInputTest, ArchivesWithUnknownFieldsOrWrongShapesFailTheMerge) {
  editChanges([](SyncObjectChange& change) {
    Value::Array values = *change.valueForKey("propertyChangeValues").asArray();
    values.front().asDictionary()->emplace("surprise", Value(1));
    change.setValueForKey("propertyChangeValues", Value(values));
  });
  expectFailureLeavingJournal(-1);
  editChanges(
      [](SyncObjectChange& change) { change.setValueForKey("propertyChangeValues", Value("not an array")); });
  expectFailureLeavingJournal(-1);
}

TEST_F(SyncBadInputTest, EventsNamingAnEntityTheModelLacksFailWith204) {
  editChanges([](SyncObjectChange& change) {
    if (change.nameOfEntity() == "MoodTag" || change.nameOfEntity() == "MoodRecord")
      change.setNameOfEntity("MoodPlanet");
  });
  expectFailureLeavingJournal(204);
}

TEST_F(SyncBadInputTest, ARevisionBeyondTwoToTheSixtySecondFailsWith200) {
  auto context = b_.events().managedObjectContext();
  context->performBlockAndWait([&] {
    for (const auto& o : context->executeFetchRequest(FetchRequest(kSyncEventRevisionEntity))) {
      o->setValueForKey("revisionNumber", Value(static_cast<long long>((std::int64_t{1} << 62) + 5)));
    }
    ASSERT_FALSE(context->save());
  });
  expectFailureLeavingJournal(200);
}

TEST_F(SyncBadInputTest, ABrokenEventStoreOrMetadataFileFailsTheMerge) {
  auto home = b_.home() / "Application Support" / "MainStore";
  testing::writeFile(home / "store.plist", "<plist><dict><key>oops");
  SyncEventStore broken("MainStore", b_.home() / "Application Support");
  ASSERT_TRUE(broken.setupError());
  SyncEventIntegrator integrator(
      b_.storePath(), testing::sharedJournalModel(),
      std::make_shared<SyncEventStore>("MainStore", b_.home() / "Application Support"));
  SyncMergeResult result = integrator.mergeEvents();
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->domain, kSyncErrorDomain);
  EXPECT_EQ(fileBytes(b_.storePath()), journalBefore_);
}

TEST(SyncImportTest, AnArchiveOfTheWrongShapeAddsNothing) {
  TempDir dir;
  ScopedLogCapture quiet(kLogLevelOff);
  SyncReplica r(dir / "r");
  SyncArchivedEvent bad;
  bad.event = Value(Value::Dictionary{{"uniqueIdentifier", Value("E")}, {"type", Value(200)}});
  OptionalError error = syncImportEvent(r.events(), bad);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kSyncErrorDomain, -1));
  auto context = r.events().managedObjectContext();
  context->performBlockAndWait(
      [&] { EXPECT_EQ(context->countForFetchRequest(FetchRequest(kSyncStoreModificationEventEntity)), 0u); });
}

// --- Capture of values: the inline limit, and repointed global identifiers.

TEST(SyncCaptureTest, DataUpTo10000BytesStaysInlineAndLongerGoesToAFile) {
  TempDir dir;
  auto model = std::make_shared<ManagedObjectModel>();
  model->addEntity("Blob").addAttribute("bytes", AttributeType::kBinary);
  model->finalize();
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
  coordinator->addPersistentStoreWithType(kInMemoryStoreType, {});
  ManagedObjectContext context;
  context.setPersistentStoreCoordinator(coordinator);
  SyncEventStore store("ens", dir.path());
  ASSERT_FALSE(store.prepareNewEventStore());
  SyncEventBuilder builder(store);
  for (std::size_t size : {std::size_t{10000}, std::size_t{10001}}) {
    auto blob = context.insertNewObjectForEntityForName("Blob");
    blob->setValueForKey("bytes", Value(Value::Data(size, 1)));
    auto values = builder.propertyChangesForObject(*blob, {"bytes"}, false, true);
    ASSERT_EQ(values.size(), 1u);
    if (size == 10000) {
      EXPECT_FALSE(values[0].filename);
      EXPECT_EQ(values[0].value.asData()->size(), 10000u);
    } else {
      ASSERT_TRUE(values[0].filename);
      EXPECT_TRUE(values[0].value.isNull());
      EXPECT_EQ(store.dataForFile(*values[0].filename)->size(), 10001u);
      EXPECT_EQ(values[0].attributeValueForAttributeDescription(
                    *model->entityNamed("Blob")->attributeNamed("bytes"), &store),
                Value(Value::Data(10001, 1)));
    }
  }
}

TEST_F(SyncPairTest, InsertingUnderAnExistingGlobalIdentifierRepointsItsRow) {
  a_.tagNamed("sleep", true);
  a_.save();
  std::optional<std::string> firstURI;
  auto context = a_.events().managedObjectContext();
  auto rowURI = [&] {
    std::optional<std::string> uri;
    context->performBlockAndWait([&] {
      auto rows =
          SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings({"sleep"}, {"MoodTag"}, *context);
      ASSERT_TRUE(rows[0]);
      uri = rows[0]->storeURI();
    });
    return uri;
  };
  firstURI = rowURI();
  ASSERT_FALSE(a_.context().deleteObject(a_.tagNamed("sleep", false)));
  a_.save();
  a_.tagNamed("sleep", true);
  a_.save();
  EXPECT_NE(rowURI(), firstURI);
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncGlobalIdentifierEntity);
    EXPECT_EQ(context->countForFetchRequest(request), 1u);
  });
}

}  // namespace
}  // namespace lumeo
