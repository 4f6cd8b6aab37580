// The event store: metadata rules, revisions of this store, data files,
// incomplete events, and the revision manager's choice and checks of events.
#include "sync/sync_event_store.h"

#include <gtest/gtest.h>

#include "objectgraph/fetch_request.h"
#include "platform/log.h"
#include "sync/sync_error.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_revision_manager.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::TempDir;

class EventStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = std::make_unique<SyncEventStore>("ens", dir_.path());
    ASSERT_FALSE(store_->prepareNewEventStore());
    context_ = store_->managedObjectContext();
  }

  // An event of `store` with its own revision `number`, made directly.
  SyncEventPtr makeEvent(const std::string& store, std::int64_t number, std::int64_t globalCount,
                         std::int16_t type = kSyncEventTypeSave, double timestamp = 0,
                         SyncRevisionSet others = SyncRevisionSet()) {
    SyncEventPtr event;
    context_->performBlockAndWait([&] {
      event = context_->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
      event->setType(type);
      event->setGlobalCount(globalCount);
      event->setTimestamp(timestamp);
      others.addRevision(SyncRevision(store, number));
      event->setRevisionSet(others, store);
      ASSERT_FALSE(context_->save());
    });
    return event;
  }

  std::vector<std::int64_t> numbers(const std::vector<SyncEventPtr>& events) {
    std::vector<std::int64_t> out;
    context_->performBlockAndWait([&] {
      for (const auto& e : events) out.push_back(e->eventRevision()->revisionNumber());
    });
    return out;
  }

  std::string self() { return *store_->persistentStoreIdentifier(); }

  TempDir dir_;
  std::unique_ptr<SyncEventStore> store_;
  std::shared_ptr<ManagedObjectContext> context_;
};

TEST(EventStoreMetadataTest, ReadsAbsentAndPartialMetadataByItsRules) {
  TempDir dir;
  SyncEventStore absent("ens", dir.path());
  EXPECT_FALSE(absent.persistentStoreIdentifier());
  EXPECT_FALSE(absent.containsEventData());
  EXPECT_TRUE(absent.verifiesStoreRegistrationInCloud());
  EXPECT_FALSE(absent.setupError());
  EXPECT_EQ(absent.lastRevisionSaved(), -1);

  std::filesystem::create_directories(dir.path() / "ens");
  testing::writeFile(dir.path() / "ens" / "store.plist",
                     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                     "<key>persistentStoreIdentifier</key><string>STORE-1</string></dict></plist>\n");
  SyncEventStore partial("ens", dir.path());
  EXPECT_EQ(partial.persistentStoreIdentifier(), "STORE-1");
  EXPECT_FALSE(partial.verifiesStoreRegistrationInCloud());
  EXPECT_TRUE(partial.containsEventData());
  EXPECT_TRUE(partial.incompleteEventIdentifiers().empty());
  EXPECT_TRUE(std::filesystem::is_directory(dir.path() / "ens" / "data"));
  EXPECT_TRUE(std::filesystem::is_directory(dir.path() / "ens" / "newdata"));
}

TEST(EventStoreMetadataTest, RefusesAMetadataFileOrDatabaseThatIsNotOneAndChangesNothing) {
  TempDir dir;
  std::filesystem::create_directories(dir.path() / "ens");
  testing::writeFile(dir.path() / "ens" / "store.plist", "not a property list");
  SyncEventStore bad("ens", dir.path());
  ASSERT_TRUE(bad.setupError());
  EXPECT_EQ(bad.setupError()->domain, kSyncErrorDomain);
  EXPECT_FALSE(bad.containsEventData());
  EXPECT_EQ(testing::readFile(dir.path() / "ens" / "store.plist"), "not a property list");

  TempDir other;
  {
    SyncEventStore good("ens", other.path());
    ASSERT_FALSE(good.prepareNewEventStore());
  }
  testing::writeFile(other.path() / "ens" / "events.sqlite", std::string(4096, 'x'));
  ScopedLogCapture quiet(kLogLevelOff);
  SyncEventStore notSQLite("ens", other.path());
  ASSERT_TRUE(notSQLite.setupError());
  EXPECT_FALSE(notSQLite.containsEventData());
  EXPECT_EQ(testing::readFile(other.path() / "ens" / "events.sqlite"), std::string(4096, 'x'));
}

TEST_F(EventStoreTest, KeepsIncompleteIdentifiersOnDiskAndRemovesTheirEventsAfterACrash) {
  store_->registerIncompleteEventIdentifier("E1", true);
  store_->registerIncompleteEventIdentifier("E2", false);
  EXPECT_EQ(store_->incompleteMandatoryEventIdentifiers(), std::vector<std::string>{"E1"});
  SyncEventPtr partial = makeEvent(self(), 0, 0, kSyncEventTypeIncomplete);
  context_->performBlockAndWait([&] {
    partial->setUniqueIdentifier("E1");
    ASSERT_FALSE(context_->save());
  });
  makeEvent(self(), 1, 1);
  store_.reset();

  SyncEventStore reopened("ens", dir_.path());
  EXPECT_EQ(reopened.incompleteEventIdentifiers().size(), 2u);
  EXPECT_EQ(reopened.removeIncompleteEvents(), std::vector<std::string>{"E1"});
  EXPECT_TRUE(reopened.incompleteEventIdentifiers().empty());
  auto context = reopened.managedObjectContext();
  context->performBlockAndWait(
      [&] { EXPECT_EQ(context->countForFetchRequest(FetchRequest(kSyncStoreModificationEventEntity)), 1u); });
}

TEST_F(EventStoreTest, LastRevisionsIgnoreUnsavedAndIncompleteEvents) {
  EXPECT_EQ(store_->lastRevisionSaved(), -1);
  makeEvent(self(), 0, 0);
  makeEvent(self(), 1, 1, kSyncEventTypeMerge);
  makeEvent(self(), 2, 2, kSyncEventTypeIncomplete);
  makeEvent("other", 7, 3);
  EXPECT_EQ(store_->lastSaveRevisionSaved(), 0);
  EXPECT_EQ(store_->lastMergeRevisionSaved(), 1);
  EXPECT_EQ(store_->lastRevisionSaved(), 1);
  context_->performBlockAndWait([&] {
    auto pending = context_->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
    SyncRevisionSet set;
    set.addRevision(SyncRevision(self(), 9));
    pending->setType(kSyncEventTypeSave);
    pending->setRevisionSet(set, self());
  });
  EXPECT_EQ(store_->lastRevisionSaved(), 1);
  EXPECT_EQ(store_->baselineRevision(), -1);
}

TEST_F(EventStoreTest, DataFilesMoveFromNewDataOnFirstReadAndUnreferencedOnesGo) {
  Value::Data inline10000(10000, 7);
  auto name = store_->storeDataInFile(inline10000);
  ASSERT_TRUE(name);
  EXPECT_EQ(store_->dataForFile(*name), inline10000);

  testing::writeFile(dir_.path() / "incoming", "photo bytes");
  ASSERT_TRUE(store_->importDataFile(dir_.path() / "incoming"));
  EXPECT_TRUE(store_->newlyImportedDataFilenames().count("incoming"));
  EXPECT_FALSE(store_->previouslyReferencedDataFilenames().count("incoming"));
  auto read = store_->dataForFile("incoming");
  ASSERT_TRUE(read);
  EXPECT_EQ(std::string(read->begin(), read->end()), "photo bytes");
  EXPECT_TRUE(store_->previouslyReferencedDataFilenames().count("incoming"));
  EXPECT_FALSE(store_->newlyImportedDataFilenames().count("incoming"));
  EXPECT_EQ(store_->allDataFilenames().size(), 2u);
  {
    ScopedLogCapture quiet(kLogLevelOff);
    EXPECT_FALSE(store_->dataForFile("missing"));
    EXPECT_FALSE(store_->dataForFile("../escape"));
  }

  // Only a data file row that hangs on a change keeps its file.
  SyncEventPtr event = makeEvent(self(), 0, 0);
  context_->performBlockAndWait([&] {
    auto change = context_->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
    change->setType(kSyncObjectChangeTypeInsert);
    change->setStoreModificationEvent(event);
    SyncPropertyChangeValue value(kSyncPropertyChangeTypeAttribute, "photoData");
    value.filename = "incoming";
    change->setPropertyChangeValues(std::vector<SyncPropertyChangeValue>{value});
    ASSERT_FALSE(context_->save());
  });
  store_->removeUnreferencedDataFiles();
  EXPECT_EQ(store_->previouslyReferencedDataFilenames(), std::set<std::string>{"incoming"});
}

TEST_F(EventStoreTest, ADeleteMayHaveNoValuesAndAnythingElseMustHaveThem) {
  context_->performBlockAndWait([&] {
    auto change = context_->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
    change->setType(kSyncObjectChangeTypeDelete);
    EXPECT_FALSE(change->validatePropertyChangeValues());
    change->setType(kSyncObjectChangeTypeInsert);
    OptionalError error = change->validatePropertyChangeValues();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(kSyncErrorDomain, -1));
    context_->rollback();
  });
}

TEST_F(EventStoreTest, GlobalIdentifiersAreFoundByStringAndEntityTogether) {
  context_->performBlockAndWait([&] {
    for (const char* entity : {"MoodRecord", "MoodTag"}) {
      auto row = context_->insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
      row->setGlobalIdentifier("same");
      row->setNameOfEntity(entity);
      row->setStoreURI(std::string("uri-") + entity);
    }
    ASSERT_FALSE(context_->save());
    auto found = SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(
        {"same", "same", "none"}, {"MoodTag", "MoodRecord", "MoodTag"}, *context_);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0]->storeURI(), "uri-MoodTag");
    EXPECT_EQ(found[1]->storeURI(), "uri-MoodRecord");
    EXPECT_EQ(found[2], nullptr);
    auto byURI =
        SyncGlobalIdentifier::fetchGlobalIdentifiersForObjectURIs({"uri-MoodRecord", "nothing"}, *context_);
    EXPECT_EQ(byURI[0]->nameOfEntity(), "MoodRecord");
    EXPECT_EQ(byURI[1], nullptr);
  });
}

// --- Choosing events ---------------------------------------------------------------

TEST_F(EventStoreTest, ContinuityFailsOnAGapButNotOnARepeatOrALateStart) {
  SyncRevisionManager manager(*store_);
  auto check = [&](std::vector<std::int64_t> revisions) {
    std::vector<SyncEventPtr> events;
    std::int64_t gc = 0;
    for (auto n : revisions) events.push_back(makeEvent("B" + std::to_string(revisions.size()), n, gc++));
    return manager.checkIntegrationPrequisitesForEvents(events);
  };
  OptionalError gap = check({3, 4, 6});
  ASSERT_TRUE(gap);
  EXPECT_TRUE(gap->is(kSyncErrorDomain, 200));
  EXPECT_FALSE(check({3, 3, 4}));
  EXPECT_FALSE(check({9}));
}

TEST_F(EventStoreTest, ARevisionBeyondTwoToTheSixtySecondIsRefused) {
  SyncRevisionManager manager(*store_);
  SyncEventPtr huge = makeEvent("B", (std::int64_t{1} << 62) + 1, 0);
  OptionalError error = manager.checkIntegrationPrequisitesForEvents({huge});
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kSyncErrorDomain, 200));
}

TEST_F(EventStoreTest, MissingDependencyFailsWith201UntilTheEventArrives) {
  SyncRevisionManager manager(*store_);
  SyncRevisionSet knew;
  knew.addRevision(SyncRevision("C", 4));
  SyncEventPtr dependent = makeEvent("B", 0, 5, kSyncEventTypeSave, 0, knew);
  OptionalError missing = manager.checkIntegrationPrequisitesForEvents({dependent});
  ASSERT_TRUE(missing);
  EXPECT_TRUE(missing->is(kSyncErrorDomain, 201));
  makeEvent("C", 4, 4);
  EXPECT_FALSE(manager.checkIntegrationPrequisitesForEvents({dependent}));
}

TEST_F(EventStoreTest, OrdersByGlobalCountThenTimestampThenStoreIdentifier) {
  SyncEventPtr b = makeEvent("b", 0, 1, kSyncEventTypeSave, 5);
  SyncEventPtr a = makeEvent("a", 0, 1, kSyncEventTypeSave, 5);
  SyncEventPtr late = makeEvent("A", 0, 1, kSyncEventTypeSave, 9);
  SyncEventPtr first = makeEvent("z", 0, 0, kSyncEventTypeSave, 99);
  std::vector<SyncEventPtr> sorted;
  context_->performBlockAndWait([&] {
    sorted = SyncRevisionManager::sortStoreModificationEvents({late, b, a, first});
  });
  EXPECT_EQ(sorted, (std::vector<SyncEventPtr>{first, a, b, late}));
}

TEST_F(EventStoreTest, UncommittedAreAllEventsUntilAMergeThenThoseAfterIt) {
  SyncRevisionManager manager(*store_);
  EXPECT_TRUE(std::get<std::vector<SyncEventPtr>>(manager.fetchUncommittedStoreModificationEvents()).empty());
  makeEvent(self(), 0, 0);
  makeEvent("B", 0, 1);
  makeEvent("B", 1, 2);
  makeEvent("C", 0, 2, kSyncEventTypeIncomplete);
  auto all = std::get<std::vector<SyncEventPtr>>(manager.fetchUncommittedStoreModificationEvents());
  EXPECT_EQ(numbers(all), (std::vector<std::int64_t>{0, 0, 1}));

  SyncRevisionSet merged;
  merged.addRevision(SyncRevision("B", 0));
  makeEvent(self(), 1, 3, kSyncEventTypeMerge, 0, merged);
  makeEvent("B", 2, 4);
  auto after = std::get<std::vector<SyncEventPtr>>(manager.fetchUncommittedStoreModificationEvents());
  EXPECT_EQ(numbers(after), (std::vector<std::int64_t>{1, 2}));

  // With them, everything B:1 did not know (this store's events), and then
  // what those did not know: this store's first event never saw B:0.
  auto closure = std::get<std::vector<SyncEventPtr>>(
      manager.recursivelyFetchStoreModificationEventsConcurrentWithEvents(after));
  EXPECT_EQ(numbers(closure), (std::vector<std::int64_t>{0, 0, 1, 1, 2}));
  EXPECT_TRUE(std::get<std::vector<SyncEventPtr>>(
                  manager.recursivelyFetchStoreModificationEventsConcurrentWithEvents({}))
                  .empty());
}

TEST_F(EventStoreTest, ABaselineWithoutThisStoreGivesBaselineRevisionMinusOne) {
  SyncRevisionSet others;
  others.addRevision(SyncRevision("B", 3));
  makeEvent("B", 3, 3, kSyncEventTypeBaseline);
  EXPECT_EQ(store_->baselineRevision(), -1);
  EXPECT_TRUE(store_->currentBaselineIdentifier());
  makeEvent(self(), 2, 4, kSyncEventTypeBaseline, 1, others);
  EXPECT_EQ(store_->baselineRevision(), 2);
}

}  // namespace
}  // namespace lumeo
