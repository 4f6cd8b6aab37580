// Contexts holding many objects at once: a to-many set that outgrows plain
// scans across batched saves, and large fetches that must still hand out one
// object per ID, keep unsaved changes, and let go of objects nobody holds.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::sqlCount;
using testing::TestStack;

Date minute(int m) {
  return Date::fromTimeIntervalSince1970(1767225600.0 + 60.0 * m);
}

FetchResults recordsByDate(ManagedObjectContext& context) {
  FetchRequest request("MoodRecord");
  request.setSortDescriptors({SortDescriptor("date")});
  return context.executeFetchRequest(request);
}

class ContextScaleTest : public ::testing::Test {
 protected:
  lumeo::testing::TempDir dir;
  std::string path() const { return (dir / "Scale.sqlite").string(); }
};

TEST_F(ContextScaleTest, ALargeTagSetSurvivesBatchedSavesRemovalsAndARollback) {
  constexpr int kRecords = 300;  // well past the length where sets get an index
  {
    TestStack stack(path());
    auto tag = stack.context->insertNewObjectForEntityForName("MoodTag");
    tag->setValueForKey("tagName", "sleep");
    std::vector<ManagedObjectPtr> records;
    for (int i = 0; i < kRecords; ++i) {
      auto record = stack.context->insertNewObjectForEntityForName("MoodRecord");
      record->setValueForKey("date", minute(i));
      record->addObjectForKey("moodTags", tag);
      records.push_back(record);
      if ((i + 1) % 50 == 0) {
        ASSERT_FALSE(stack.context->save());
      }
    }
    EXPECT_EQ(tag->countForKey("moodRecords"), static_cast<std::size_t>(kRecords));
    EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), kRecords);
    EXPECT_EQ(sqlCount(path(), "SELECT frequency FROM MoodTag"), kRecords);

    // Adding a member twice changes nothing; a removal after the saves
    // reaches the file, and re-adding one is found again.
    records[10]->addObjectForKey("moodTags", tag);
    records[20]->removeObjectForKey("moodTags", tag);
    tag->removeObjectForKey("moodRecords", records[30]);
    tag->addObjectForKey("moodRecords", records[30]);
    ASSERT_FALSE(stack.context->save());
    EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), kRecords - 1);

    // A rolled-back removal leaves the set as saved.
    records[40]->removeObjectForKey("moodTags", tag);
    EXPECT_EQ(tag->countForKey("moodRecords"), static_cast<std::size_t>(kRecords - 2));
    stack.context->rollback();
    EXPECT_EQ(tag->countForKey("moodRecords"), static_cast<std::size_t>(kRecords - 1));
    EXPECT_EQ(records[40]->countForKey("moodTags"), 1u);
  }
  TestStack again(path());
  FetchRequest request("MoodTag");
  auto tags = again.context->executeFetchRequest(request);
  ASSERT_EQ(tags.size(), 1u);
  EXPECT_EQ(tags[0]->countForKey("moodRecords"), static_cast<std::size_t>(kRecords - 1));
  EXPECT_EQ(tags[0]->valueForKey("frequency").toInt(), kRecords - 1);
}

TEST_F(ContextScaleTest, LargeFetchesGiveOneObjectPerIdKeepChangesAndLetGoOfDroppedObjects) {
  constexpr int kRecords = 2000;
  TestStack stack(path());
  for (int i = 0; i < kRecords; ++i) {
    auto record = stack.context->insertNewObjectForEntityForName("MoodRecord");
    record->setValueForKey("date", minute(i));
    record->setValueForKey("moodLevel", 1 + i % 10);
  }
  ASSERT_FALSE(stack.context->save());
  auto reader = stack.newContext();

  std::vector<std::weak_ptr<ManagedObject>> seen;
  {
    auto first = recordsByDate(*reader);
    ASSERT_EQ(first.size(), static_cast<std::size_t>(kRecords));
    first[5]->setValueForKey("moodLevel", 99);  // unsaved
    auto second = recordsByDate(*reader);
    ASSERT_EQ(second.size(), first.size());
    for (std::size_t i = 0; i < first.size(); ++i) {
      ASSERT_EQ(first[i].get(), second[i].get()) << "one object per ID, at " << i;
      seen.push_back(first[i]);
    }
    EXPECT_EQ(second[5]->valueForKey("moodLevel").toInt(), 99) << "a fetch keeps unsaved changes";
    EXPECT_EQ(second[6]->valueForKey("moodLevel").toInt(), 7);
    EXPECT_EQ(reader->objectRegisteredForID(second[1999]->objectID()).get(), second[1999].get());
    const auto ids = second.objectIDs();
    ASSERT_EQ(ids.size(), second.size());
    EXPECT_EQ(ids[0], first[0]->objectID());
    EXPECT_EQ(ids[1999], first[1999]->objectID());
    FetchRequest idsOnly("MoodRecord");
    idsOnly.setSortDescriptors({SortDescriptor("date")});
    idsOnly.setResultType(FetchRequestResultType::kManagedObjectID);
    EXPECT_EQ(reader->executeFetchRequest(idsOnly).objectIDs(), ids);
  }
  // Only the changed object is held, by the context.
  std::size_t alive = 0;
  for (const auto& weak : seen) alive += weak.expired() ? 0 : 1;
  EXPECT_EQ(alive, 1u);
  EXPECT_EQ(reader->registeredObjects().size(), 1u);

  // Objects made anew after the others went read the store again.
  auto third = recordsByDate(*reader);
  ASSERT_EQ(third.size(), static_cast<std::size_t>(kRecords));
  EXPECT_EQ(third[5]->valueForKey("moodLevel").toInt(), 99);
  EXPECT_TRUE(third[5]->hasChanges());
  for (int i : {0, 6, 1000, 1999}) {
    EXPECT_EQ(third[i]->valueForKey("moodLevel").toInt(), 1 + i % 10);
    EXPECT_EQ(*third[i]->valueForKey("date").asDate(), minute(i));
  }
  reader->reset();
  EXPECT_TRUE(reader->registeredObjects().empty());
  EXPECT_EQ(third[0]->managedObjectContext(), nullptr);
}

// Adding a member the file already holds to a set that is not loaded is a
// no-op, and a removal after it must still reach the file, whether the set
// was loaded in between or not.
TEST_F(ContextScaleTest, ARemovalAfterAddingAnAlreadySavedMemberReachesTheFile) {
  TestStack stack(path());
  for (const char* name : {"loaded", "unloaded"}) {
    auto tag = stack.context->insertNewObjectForEntityForName("MoodTag");
    tag->setValueForKey("tagName", name);
    auto record = stack.context->insertNewObjectForEntityForName("MoodRecord");
    record->setValueForKey("date", minute(1));
    record->addObjectForKey("moodTags", tag);
  }
  ASSERT_FALSE(stack.context->save());
  ASSERT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 2);

  for (bool loadInBetween : {true, false}) {
    auto context = stack.newContext();
    const std::string name = loadInBetween ? "loaded" : "unloaded";
    FetchRequest request("MoodTag");
    request.setPredicate(Predicate::predicateWithFormat("tagName == %@", name));
    auto tags = context->executeFetchRequest(request);
    ASSERT_EQ(tags.size(), 1u);
    FetchRequest records("MoodRecord");
    records.setPredicate(Predicate::predicateWithFormat("ANY moodTags.tagName == %@", name));
    auto found = context->executeFetchRequest(records);
    ASSERT_EQ(found.size(), 1u);
    ManagedObjectPtr member = found[0];
    tags[0]->addObjectForKey("moodRecords", member);
    if (loadInBetween) {
      EXPECT_EQ(tags[0]->countForKey("moodRecords"), 1u);
    }
    tags[0]->removeObjectForKey("moodRecords", member);
    EXPECT_EQ(tags[0]->countForKey("moodRecords"), 0u);
    ASSERT_FALSE(context->save());
  }
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 0);
}

// Adding, removing and adding again a member that the file does not hold,
// through the side of the pair whose set is not loaded, must leave it a
// member in the file (a sync merge does this when events add and remove one
// tag of a record in turn).
TEST_F(ContextScaleTest, AnAdditionAfterARemovalFromAnUnloadedSetReachesTheFile) {
  TestStack stack(path());
  auto tag = stack.context->insertNewObjectForEntityForName("MoodTag");
  tag->setValueForKey("tagName", "walk");
  auto record = stack.context->insertNewObjectForEntityForName("MoodRecord");
  record->setValueForKey("date", minute(1));
  ASSERT_FALSE(stack.context->save());

  auto context = stack.newContext();
  auto tags = context->executeFetchRequest(FetchRequest("MoodTag"));
  auto records = context->executeFetchRequest(FetchRequest("MoodRecord"));
  ASSERT_EQ(tags.size(), 1u);
  ASSERT_EQ(records.size(), 1u);
  tags[0]->addObjectForKey("moodRecords", records[0]);
  tags[0]->removeObjectForKey("moodRecords", records[0]);
  tags[0]->addObjectForKey("moodRecords", records[0]);
  EXPECT_EQ(tags[0]->countForKey("moodRecords"), 1u);
  ASSERT_FALSE(context->save());
  EXPECT_EQ(sqlCount(path(), "SELECT COUNT(*) FROM MoodRecord_moodTags"), 1);
}

}  // namespace
}  // namespace lumeo
