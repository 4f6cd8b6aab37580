// Contexts over a real SQLite file: saving and reading back, hook order,
// relationship upkeep and delete rules, change tracking, child contexts,
// merging a did-save into another context, faults after refresh, and a save
// that fails half-way.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::hookLog;
using testing::sqlCount;
using testing::TestStack;

Date day(int d) {
  return Date::fromTimeIntervalSince1970(1767225600.0 + 86400.0 * d);
}

ManagedObjectPtr addRecord(ManagedObjectContext& c, int level, int d) {
  auto record = c.insertNewObjectForEntityForName("MoodRecord");
  record->setValueForKey("moodLevel", level);
  record->setValueForKey("date", day(d));
  record->setObjectForKey("moodDescription", c.insertNewObjectForEntityForName("MoodDescription"));
  return record;
}

ManagedObjectPtr addTag(ManagedObjectContext& c, const std::string& name) {
  auto tag = c.insertNewObjectForEntityForName("MoodTag");
  tag->setValueForKey("tagName", name);
  return tag;
}

FetchResults fetchAll(ManagedObjectContext& c, const std::string& entity, const std::string& sortKey = {}) {
  FetchRequest r(entity);
  if (!sortKey.empty()) r.setSortDescriptors({SortDescriptor(sortKey)});
  OptionalError error;
  FetchResults results = c.executeFetchRequest(r, error);
  EXPECT_FALSE(error) << error->toString();
  return results;
}

class ContextTest : public ::testing::Test {
 protected:
  void SetUp() override { hookLog().clear(); }
  lumeo::testing::TempDir dir;
  std::string path() const { return (dir / "Model.sqlite").string(); }
};

TEST_F(ContextTest, SavedObjectsComeBackInAnotherCoordinatorWithDefaultsAndLinks) {
  {
    TestStack stack(path());
    auto record = addRecord(*stack.context, 7, 1);
    auto tag = addTag(*stack.context, "sleep");
    record->addObjectForKey("moodTags", tag);
    EXPECT_TRUE(record->objectID().isTemporaryID());
    ASSERT_FALSE(stack.context->save());
    EXPECT_FALSE(record->objectID().isTemporaryID());
    EXPECT_FALSE(stack.context->hasChanges());
  }
  TestStack again(path());
  auto records = fetchAll(*again.context, "MoodRecord");
  ASSERT_EQ(records.size(), 1u);
  auto record = records[0];
  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 7);
  EXPECT_EQ(*record->valueForKey("date").asDate(), day(1));
  EXPECT_EQ(record->valueForKey("uniqueIdentifier").toString().rfind("rec-", 0), 0u);
  auto description = record->objectForKey("moodDescription");
  ASSERT_TRUE(description);
  EXPECT_EQ(description->valueForKey("latitude").toDouble(), -1.0);
  EXPECT_FALSE(description->valueForKey("wasEdited").toBool(true));
  EXPECT_EQ(description->objectForKey("moodRecord")->objectID(), record->objectID());
  auto tags = record->objectsForKey("moodTags");
  ASSERT_EQ(tags.size(), 1u);
  EXPECT_EQ(tags[0]->valueForKey("frequency").toInt(), 1) << "willSave set the count";
  EXPECT_EQ(tags[0]->objectsForKey("moodRecords").size(), 1u);
}

TEST_F(ContextTest, HooksRunInOrderAndAChangeInWillSaveIsSavedInTheSameSave) {
  TestStack stack(path());
  auto record = addRecord(*stack.context, 5, 1);
  auto tag = addTag(*stack.context, "work");
  record->addObjectForKey("moodTags", tag);
  ASSERT_FALSE(stack.context->save());
  ASSERT_GE(hookLog().size(), 2u);
  EXPECT_EQ(hookLog()[0].rfind("awakeFromInsert:MoodRecord:", 0), 0u);
  EXPECT_EQ(hookLog()[1], "awakeFromInsert:MoodDescription");
  // The tag's own change in willSave (frequency 0 -> 1) asks for one more
  // round for the tag, and the second round finds nothing to change.
  EXPECT_EQ(std::count(hookLog().begin(), hookLog().end(), "willSave:MoodTag:work"), 2);
  EXPECT_EQ(sqlCount(path(), "SELECT frequency FROM MoodTag"), 1);

  hookLog().clear();
  EXPECT_FALSE(stack.context->deleteObject(record));
  EXPECT_EQ(hookLog().front().rfind("prepareForDeletion:MoodRecord:", 0), 0u);
  // The cascade reaches the description, which still sees its record.
  EXPECT_EQ(hookLog()[1].rfind("prepareForDeletion:MoodDescription:rec-", 0), 0u);
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodDescription"), 0);
  EXPECT_EQ(sqlCount(path(), "SELECT frequency FROM MoodTag"), 0) << "the nullified tag recounted";
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 0);
}

TEST_F(ContextTest, ChangeTrackingShowsChangedAndCommittedValues) {
  TestStack stack(path());
  auto record = addRecord(*stack.context, 4, 1);
  ASSERT_FALSE(stack.context->save());
  EXPECT_FALSE(record->hasChanges());

  record->setValueForKey("moodLevel", 4);
  EXPECT_TRUE(record->isUpdated()) << "setting an equal value still dirties the object";
  EXPECT_TRUE(record->changedValues().empty());

  record->setValueForKey("moodLevel", 9);
  auto tag = addTag(*stack.context, "run");
  record->addObjectForKey("moodTags", tag);
  auto changed = record->changedValues();
  EXPECT_EQ(changed["moodLevel"].toInt(), 9);
  ASSERT_TRUE(changed["moodTags"].asArray());
  EXPECT_EQ(changed["moodTags"].asArray()->size(), 1u);
  EXPECT_EQ(record->committedValuesForKeys({"moodLevel"})["moodLevel"].toInt(), 4);
  EXPECT_TRUE(record->committedObjectIDsForKey("moodTags").empty());

  auto updated = stack.context->updatedObjects();
  auto inserted = stack.context->insertedObjects();
  EXPECT_EQ(updated.size(), 1u);
  EXPECT_EQ(inserted.size(), 1u);

  stack.context->rollback();
  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 4);
  EXPECT_TRUE(record->objectsForKey("moodTags").empty());
  EXPECT_FALSE(stack.context->hasChanges());
  EXPECT_EQ(tag->managedObjectContext(), nullptr) << "a rolled-back insert leaves the context";
}

TEST_F(ContextTest, InsertedThenDeletedObjectNeverReachesTheStore) {
  TestStack stack(path());
  auto tag = addTag(*stack.context, "gone");
  EXPECT_FALSE(stack.context->deleteObject(tag));
  EXPECT_FALSE(tag->isInserted());
  EXPECT_FALSE(tag->isDeleted());
  EXPECT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodTag"), 0);
}

TEST_F(ContextTest, SaveNotificationsCarryTheObjectSets) {
  TestStack stack(path());
  auto keep = addRecord(*stack.context, 3, 1);
  auto drop = addRecord(*stack.context, 3, 2);
  ASSERT_FALSE(stack.context->save());

  std::vector<std::string> seen;
  std::shared_ptr<const ContextSaveInfo> info;
  ScopedObserver will(NotificationCenter::defaultCenter(), kManagedObjectContextWillSaveNotification,
                      stack.context.get(), [&](const Notification&) { seen.push_back("will"); });
  ScopedObserver did(NotificationCenter::defaultCenter(), kManagedObjectContextDidSaveNotification,
                     stack.context.get(), [&](const Notification& n) {
                       seen.push_back("did");
                       info = ContextSaveInfo::fromNotification(n);
                     });
  keep->setValueForKey("moodLevel", 8);
  EXPECT_FALSE(stack.context->deleteObject(drop));
  auto fresh = addTag(*stack.context, "new");
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(seen, (std::vector<std::string>{"will", "did"}));
  ASSERT_TRUE(info);
  EXPECT_EQ(info->context, stack.context.get());
  ASSERT_EQ(info->insertedObjects.size(), 1u);
  EXPECT_EQ(info->insertedObjects[0], fresh);
  EXPECT_FALSE(info->insertedObjectIDs[0].isTemporaryID());
  EXPECT_EQ(info->updatedObjects.size(), 1u);
  EXPECT_EQ(info->deletedObjects.size(), 2u) << "the record and its cascaded description";
  EXPECT_EQ(drop->managedObjectContext(), nullptr);

  seen.clear();
  EXPECT_FALSE(stack.context->save());
  EXPECT_TRUE(seen.empty()) << "a save with nothing to save posts nothing";
}

TEST_F(ContextTest, PermanentIDsHaveAURIThatLeadsBackToTheObject) {
  TestStack stack(path());
  auto record = addRecord(*stack.context, 6, 3);
  const std::string temporary = record->objectID().URIRepresentation();
  EXPECT_FALSE(stack.coordinator->managedObjectIDForURIRepresentation(temporary));
  ASSERT_FALSE(stack.context->obtainPermanentIDsForObjects({record}));
  const ManagedObjectID permanent = record->objectID();
  EXPECT_FALSE(permanent.isTemporaryID());
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(record->objectID(), permanent) << "the save keeps the obtained ID";

  TestStack other(path());
  auto id = other.coordinator->managedObjectIDForURIRepresentation(permanent.URIRepresentation());
  ASSERT_TRUE(id);
  auto found = other.context->existingObjectWithID(*id);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->valueForKey("moodLevel").toInt(), 6);
  EXPECT_FALSE(other.coordinator->managedObjectIDForURIRepresentation("x-lumeo-og://other/MoodRecord/p1"));
  EXPECT_FALSE(other.coordinator->managedObjectIDForURIRepresentation(
      "x-lumeo-og://" + permanent.storeIdentifier() + "/NoSuchEntity/p1"));
  auto missing = other.coordinator->managedObjectIDForURIRepresentation(
      "x-lumeo-og://" + permanent.storeIdentifier() + "/MoodRecord/p999");
  ASSERT_TRUE(missing);
  EXPECT_FALSE(other.context->existingObjectWithID(*missing));
}

TEST_F(ContextTest, AFailedSaveLeavesTheFileAsBeforeAndKeepsTheChanges) {
  TestStack stack(path());
  auto before = addRecord(*stack.context, 2, 1);
  ASSERT_FALSE(stack.context->save());
  {
    // A constraint of the file that the third write of the next save breaks.
    sqlite3* db = nullptr;
    sqlite3_open(path().c_str(), &db);
    ASSERT_EQ(sqlite3_exec(db,
                           "CREATE TRIGGER refuse BEFORE INSERT ON MoodTag WHEN NEW.tagName = 'boom' "
                           "BEGIN SELECT RAISE(ABORT, 'refused'); END;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
  }
  before->setValueForKey("moodLevel", 9);
  auto record = addRecord(*stack.context, 4, 2);
  auto tag = addTag(*stack.context, "boom");
  record->addObjectForKey("moodTags", tag);
  const ManagedObjectID temporaryID = record->objectID();
  OptionalError error = stack.context->save();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kObjectGraphErrorDomain);
  EXPECT_EQ(error->code, kPersistentStoreSaveError);
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord"), 1);
  EXPECT_EQ(sqlCount(path(), "SELECT moodLevel FROM MoodRecord"), 2);
  EXPECT_TRUE(stack.context->hasChanges());
  EXPECT_TRUE(record->isInserted());
  EXPECT_EQ(record->objectID(), temporaryID) << "the failed save gives back the temporary ID";
  EXPECT_EQ(before->valueForKey("moodLevel").toInt(), 9);

  tag->setValueForKey("tagName", "fine");
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord"), 2);
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 1);
  EXPECT_EQ(record->objectsForKey("moodTags").at(0)->objectID(), tag->objectID());
}

TEST_F(ContextTest, RefreshTurnsObjectsIntoFaultsOrMergesTheStoreUnderLocalChanges) {
  TestStack stack(path());
  auto record = addRecord(*stack.context, 5, 1);
  ASSERT_FALSE(stack.context->save());
  // Another connection changes the row.
  TestStack other(path());
  auto theirs = fetchAll(*other.context, "MoodRecord")[0];
  theirs->setValueForKey("moodLevel", 8);
  theirs->setValueForKey("date", day(9));
  ASSERT_FALSE(other.context->save());

  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 5) << "a loaded object keeps its snapshot";
  stack.context->refreshObject(record, false);
  EXPECT_TRUE(record->isFault());
  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 8) << "the fault fires with the store's values";
  EXPECT_FALSE(record->isFault());

  record->setValueForKey("moodLevel", 1);
  theirs->setValueForKey("date", day(20));
  ASSERT_FALSE(other.context->save());
  stack.context->refreshObject(record, true);
  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 1) << "the local change stays on top";
  EXPECT_EQ(*record->valueForKey("date").asDate(), day(20));
  EXPECT_TRUE(record->isUpdated());
  ASSERT_FALSE(stack.context->save()) << "the refreshed row version lets the save through";
  EXPECT_EQ(sqlCount(path(), "SELECT moodLevel FROM MoodRecord"), 1);

  stack.context->refreshObject(record, false);
  EXPECT_TRUE(record->isFault());
  EXPECT_FALSE(record->hasChanges());
}

TEST_F(ContextTest, AStaleWriteFailsWithAMergeErrorUnlessTheObjectTrumps) {
  TestStack stack(path());
  auto record = addRecord(*stack.context, 5, 1);
  ASSERT_FALSE(stack.context->save());
  TestStack other(path());
  auto theirs = fetchAll(*other.context, "MoodRecord")[0];
  theirs->setValueForKey("moodLevel", 8);
  ASSERT_FALSE(other.context->save());

  record->setValueForKey("moodLevel", 2);
  auto error = stack.context->save();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kObjectGraphErrorDomain, kManagedObjectMergeError));
  EXPECT_EQ(sqlCount(path(), "SELECT moodLevel FROM MoodRecord"), 8);
  stack.context->setMergePolicy(MergePolicy::kObjectTrump);
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT moodLevel FROM MoodRecord"), 2);
}

TEST_F(ContextTest, MergingADidSaveBringsChangesAndDeletesIntoAnotherContext) {
  TestStack stack(path());
  auto first = addRecord(*stack.context, 5, 1);
  auto second = addRecord(*stack.context, 6, 2);
  ASSERT_FALSE(stack.context->save());

  auto background = stack.newContext(ConcurrencyType::kPrivateQueue);
  ScopedObserver merge(
      NotificationCenter::defaultCenter(), kManagedObjectContextDidSaveNotification, background.get(),
      [&](const Notification& n) { stack.context->mergeChangesFromContextDidSaveNotification(n); });
  first->setValueForKey("uniqueIdentifier", "mine");  // an unsaved local change
  background->performBlockAndWait([&] {
    auto records = fetchAll(*background, "MoodRecord", "date");
    ASSERT_EQ(records.size(), 2u);
    records[0]->setValueForKey("moodLevel", 10);
    EXPECT_FALSE(background->deleteObject(records[1]));
    addRecord(*background, 1, 3);
    ASSERT_FALSE(background->save());
  });
  EXPECT_EQ(first->valueForKey("moodLevel").toInt(), 10);
  EXPECT_EQ(first->valueForKey("uniqueIdentifier").toString(), "mine");
  EXPECT_EQ(second->managedObjectContext(), nullptr);
  EXPECT_EQ(fetchAll(*stack.context, "MoodRecord").size(), 2u) << "the inserted record is seen by a fetch";
  ASSERT_FALSE(stack.context->save());
}

TEST_F(ContextTest, AChildSeesItsParentsUnsavedObjectsAndSavesIntoIt) {
  TestStack stack(path());
  auto saved = addRecord(*stack.context, 5, 1);
  ASSERT_FALSE(stack.context->save());
  auto unsavedTag = addTag(*stack.context, "pending");
  saved->setValueForKey("moodLevel", 7);

  auto child = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  child->setParentContext(stack.context);
  auto tags = fetchAll(*child, "MoodTag");
  ASSERT_EQ(tags.size(), 1u);
  EXPECT_EQ(tags[0]->valueForKey("tagName").toString(), "pending");
  auto record = fetchAll(*child, "MoodRecord")[0];
  EXPECT_EQ(record->valueForKey("moodLevel").toInt(), 7) << "the parent's unsaved value";

  record->addObjectForKey("moodTags", tags[0]);
  record->setValueForKey("moodLevel", 3);
  auto childTag = addTag(*child, "from child");
  record->addObjectForKey("moodTags", childTag);
  hookLog().clear();
  ASSERT_FALSE(child->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodTag"), 0) << "a child's save stops at the parent";
  EXPECT_EQ(saved->valueForKey("moodLevel").toInt(), 3);
  EXPECT_EQ(saved->objectsForKey("moodTags").size(), 2u);
  EXPECT_TRUE(unsavedTag->isInserted());
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 2);
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodTag WHERE frequency = 1"), 2);
}

TEST_F(ContextTest, AnUnsavedChildDoesNotDisturbItsParent) {
  TestStack stack(path());
  addTag(*stack.context, "sleep");
  ASSERT_FALSE(stack.context->save());
  auto child = std::make_shared<ManagedObjectContext>(ConcurrencyType::kPrivateQueue);
  child->setParentContext(stack.context);
  child->performBlockAndWait([&] {
    addTag(*child, "suggestion");
    auto request = FetchRequest("MoodTag");
    request.setPredicate(Predicate::predicateWithFormat("tagName like[cd] %@", "s*"));
    EXPECT_EQ(child->countForFetchRequest(request), 2u);
  });
  EXPECT_FALSE(stack.context->hasChanges());
  EXPECT_EQ(fetchAll(*stack.context, "MoodTag").size(), 1u);
}

TEST_F(ContextTest, FetchesSeePendingChangesUnlessAskedNotTo) {
  TestStack stack(path());
  auto a = addRecord(*stack.context, 2, 1);
  auto b = addRecord(*stack.context, 8, 2);
  ASSERT_FALSE(stack.context->save());
  b->setValueForKey("moodLevel", 1);
  addRecord(*stack.context, 3, 3);
  EXPECT_FALSE(stack.context->deleteObject(a));
  FetchRequest low("MoodRecord");
  low.setPredicate(Predicate::predicateWithFormat("moodLevel <= %d", 5));
  low.setSortDescriptors({SortDescriptor("date", false)});
  auto results = stack.context->executeFetchRequest(low);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0]->valueForKey("moodLevel").toInt(), 3);
  EXPECT_EQ(results[1]->objectID(), b->objectID());
  EXPECT_EQ(stack.context->countForFetchRequest(low), 2u);
  low.setIncludesPendingChanges(false);
  EXPECT_EQ(stack.context->countForFetchRequest(low), 1u) << "only the saved record 'a' matches";
}

TEST_F(ContextTest, OrderedRelationshipsKeepTheirOrderAndSubentitiesAreFetchedWithTheirEntity) {
  TestStack stack(path());
  auto playlist = stack.context->insertNewObjectForEntityForName("Playlist");
  auto r1 = addRecord(*stack.context, 1, 1);
  auto r2 = addRecord(*stack.context, 2, 2);
  auto r3 = addRecord(*stack.context, 3, 3);
  playlist->addObjectForKey("items", r1);
  playlist->addObjectForKey("items", r2);
  playlist->insertObjectForKey("items", r3, 0);
  auto entry = stack.context->insertNewObjectForEntityForName("Entry");
  entry->setValueForKey("title", "plain");
  auto photo = stack.context->insertNewObjectForEntityForName("PhotoEntry");
  photo->setValueForKey("title", "picture");
  photo->setValueForKey("pixels", 12);
  ASSERT_FALSE(stack.context->save());

  TestStack again(path());
  auto items = fetchAll(*again.context, "Playlist")[0]->objectsForKey("items");
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0]->valueForKey("moodLevel").toInt(), 3);
  EXPECT_EQ(items[1]->valueForKey("moodLevel").toInt(), 1);
  auto entries = fetchAll(*again.context, "Entry", "title");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]->entity().name(), "PhotoEntry");
  EXPECT_EQ(entries[0]->valueForKey("pixels").toInt(), 12);
  FetchRequest only("Entry");
  only.setIncludesSubentities(false);
  EXPECT_EQ(again.context->countForFetchRequest(only), 1u);
  EXPECT_EQ(fetchAll(*again.context, "PhotoEntry").size(), 1u);
}

}  // namespace
}  // namespace lumeo
