// Harder paths of contexts: a read-only store that refuses a save, the
// journal's last-holder rule for tags, reset and store-trump merging, and a
// private-queue context saving while another thread reads and merges.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

ManagedObjectPtr newTag(ManagedObjectContext& c, const std::string& name) {
  auto tag = c.insertNewObjectForEntityForName("MoodTag");
  tag->setValueForKey("tagName", name);
  return tag;
}

TEST(ContextEdgeTest, AReadOnlyStoreRefusesTheSaveAndTheContextKeepsEverything) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  {
    testing::TestStack stack(path);
    newTag(*stack.context, "kept");
    ASSERT_FALSE(stack.context->save());
  }
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(testing::makeTestModel());
  OptionalError error;
  ASSERT_TRUE(coordinator->addPersistentStoreWithType(kSQLiteStoreType, path,
                                                      {{kReadOnlyPersistentStoreOption, true}}, error));
  auto context = std::make_shared<ManagedObjectContext>();
  context->setPersistentStoreCoordinator(coordinator);
  auto kept = context->executeFetchRequest(FetchRequest("MoodTag"))[0];
  kept->setValueForKey("tagName", "renamed");
  auto added = newTag(*context, "added");
  error = context->save();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kObjectGraphErrorDomain);
  EXPECT_TRUE(context->hasChanges());
  EXPECT_TRUE(added->isInserted());
  EXPECT_TRUE(added->objectID().isTemporaryID());
  testing::TestStack check(path);
  auto names = check.context->executeFetchRequest(FetchRequest("MoodTag"));
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0]->valueForKey("tagName").toString(), "kept");
}

TEST(ContextEdgeTest, DeletingATagsLastRecordLeavesTheTagWithFrequencyZero) {
  lumeo::testing::TempDir dir;
  testing::TestStack stack((dir / "Model.sqlite").string());
  auto& c = *stack.context;
  auto record = c.insertNewObjectForEntityForName("MoodRecord");
  record->setObjectForKey("moodDescription", c.insertNewObjectForEntityForName("MoodDescription"));
  auto tag = newTag(c, "sleep");
  record->addObjectForKey("moodTags", tag);
  ASSERT_FALSE(c.save());
  EXPECT_EQ(tag->valueForKey("frequency").toInt(), 1);

  // Two explicit deletes, as the journal does.
  EXPECT_FALSE(c.deleteObject(record->objectForKey("moodDescription")));
  EXPECT_FALSE(c.deleteObject(record));
  ASSERT_FALSE(c.save());
  EXPECT_EQ(tag->valueForKey("frequency").toInt(), 0);
  FetchRequest listed("MoodTag");
  listed.setPredicate(Predicate::predicateWithFormat("frequency > 0"));
  EXPECT_EQ(c.countForFetchRequest(listed), 0u);
  FetchRequest completion("MoodTag");
  completion.setPredicate(Predicate::predicateWithFormat("tagName like[cd] %@", "S*"));
  EXPECT_EQ(c.countForFetchRequest(completion), 1u) << "the tag stays for completion";
}

TEST(ContextEdgeTest, ResetForgetsObjectsAndStoreTrumpKeepsTheStoresValue) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  testing::TestStack stack(path);
  auto tag = newTag(*stack.context, "first");
  ASSERT_FALSE(stack.context->save());
  testing::TestStack other(path);
  auto theirs = other.context->executeFetchRequest(FetchRequest("MoodTag"))[0];
  theirs->setValueForKey("tagName", "theirs");
  ASSERT_FALSE(other.context->save());

  tag->setValueForKey("tagName", "mine");
  stack.context->setMergePolicy(MergePolicy::kStoreTrump);
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(tag->valueForKey("tagName").toString(), "theirs");
  EXPECT_FALSE(stack.context->hasChanges());

  stack.context->reset();
  EXPECT_EQ(tag->managedObjectContext(), nullptr);
  EXPECT_TRUE(stack.context->registeredObjects().empty());
  EXPECT_THROW(tag->setValueForKey("tagName", "late"), std::logic_error);
  EXPECT_EQ(stack.context->executeFetchRequest(FetchRequest("MoodTag")).size(), 1u);
}

TEST(ContextEdgeTest, APrivateQueueContextSavesWhileAnotherThreadReadsAndMerges) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  testing::TestStack stack(path);
  auto writer = stack.newContext(ConcurrencyType::kPrivateQueue);
  auto reader = stack.newContext(ConcurrencyType::kConfinement);
  std::atomic<int> merged{0};
  ScopedObserver merge(NotificationCenter::defaultCenter(), kManagedObjectContextDidSaveNotification,
                       writer.get(), [&](const Notification& n) {
                         reader->mergeChangesFromContextDidSaveNotification(n);
                         ++merged;
                       });
  std::promise<void> done;
  writer->performBlock([&] {
    for (int i = 0; i < 20; ++i) {
      newTag(*writer, "t" + std::to_string(i));
      if (auto error = writer->save()) ADD_FAILURE() << error->toString();
    }
    done.set_value();
  });
  // Meanwhile the reader keeps fetching; counts only grow.
  std::size_t last = 0;
  auto finished = done.get_future();
  while (finished.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    const std::size_t n = reader->countForFetchRequest(FetchRequest("MoodTag"));
    EXPECT_GE(n, last);
    last = n;
  }
  EXPECT_EQ(merged.load(), 20);
  EXPECT_EQ(reader->countForFetchRequest(FetchRequest("MoodTag")), 20u);
  FetchRequest high("MoodTag");
  high.setPredicate(Predicate::predicateWithFormat("tagName BEGINSWITH %@", "t1"));
  EXPECT_EQ(reader->executeFetchRequest(high).size(), 11u);
}

TEST(ContextEdgeTest, AChildFetchWithALimitCountsItsOwnUnsavedObjects) {
  lumeo::testing::TempDir dir;
  testing::TestStack stack((dir / "Model.sqlite").string());
  for (int i = 0; i < 5; ++i) newTag(*stack.context, "saved" + std::to_string(i));
  ASSERT_FALSE(stack.context->save());
  auto child = std::make_shared<ManagedObjectContext>();
  child->setParentContext(stack.context);
  newTag(*child, "zz child");
  FetchRequest top("MoodTag");
  top.setSortDescriptors({SortDescriptor("tagName", false)});
  top.setFetchLimit(2);
  auto results = child->executeFetchRequest(top);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0]->valueForKey("tagName").toString(), "zz child");
  EXPECT_EQ(results[1]->valueForKey("tagName").toString(), "saved4");
  auto gone = child->executeFetchRequest(FetchRequest("MoodTag"))[0];
  EXPECT_FALSE(child->deleteObject(gone));
  EXPECT_EQ(child->countForFetchRequest(FetchRequest("MoodTag")), 5u);
  EXPECT_EQ(stack.context->countForFetchRequest(FetchRequest("MoodTag")), 5u);
}

// IDs name their entity by address and are plain values that callers keep
// (a screen's selection, a pending request): one kept after the whole stack
// is gone must still say what it names, and compare and print as before.
TEST(ContextEdgeTest, AnIDOutlivesItsContextCoordinatorAndModel) {
  ManagedObjectID permanent, temporary;
  std::string uri;
  std::weak_ptr<ManagedObjectModel> model;
  {
    testing::TestStack stack;
    model = stack.model;
    auto tag = newTag(*stack.context, "kept");
    temporary = tag->objectID();
    ASSERT_FALSE(stack.context->save());
    permanent = tag->objectID();
    uri = permanent.URIRepresentation();
  }
  // What the IDs point at is still there (before, the model went with the
  // coordinator and the IDs read freed memory).
  EXPECT_FALSE(model.expired());
  EXPECT_EQ(permanent.entityName(), "MoodTag");
  EXPECT_EQ(permanent.entity().name(), "MoodTag");
  EXPECT_EQ(temporary.entityName(), "MoodTag");
  EXPECT_EQ(permanent.URIRepresentation(), uri);
  const ManagedObjectID copy = permanent;
  EXPECT_EQ(copy, permanent);
  EXPECT_NE(temporary, permanent);
  EXPECT_FALSE(permanent < copy || copy < permanent);
}

TEST(ContextEdgeTest, WritingOnlyChangedValuesLeavesEqualOnesClean) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  {
    testing::TestStack stack(path);
    newTag(*stack.context, "sleep")->setValueForKey("tagUnit", "hours");
    ASSERT_FALSE(stack.context->save());
  }
  testing::TestStack stack(path);
  auto& c = *stack.context;
  // A fault: the present value is read from the row before comparing.
  auto tag = c.executeFetchRequest(FetchRequest("MoodTag"))[0];
  c.refreshObject(tag, false);
  ASSERT_TRUE(tag->isFault());
  const EntityDescription& entity = tag->entity();
  const AttributeDescription& name = *entity.attributeNamed("tagName");
  const AttributeDescription& unit = *entity.attributeNamed("tagUnit");
  EXPECT_FALSE(tag->setValueIfChanged(name, Value("sleep")));
  EXPECT_FALSE(tag->setValueIfChanged(unit, Value("hours")));
  EXPECT_FALSE(tag->isFault());
  EXPECT_FALSE(tag->hasChanges());
  EXPECT_FALSE(c.hasChanges());
  // A different value is written and the object is updated.
  EXPECT_TRUE(tag->setValueIfChanged(unit, Value("minutes")));
  EXPECT_TRUE(tag->setValueIfChanged(name, Value()));
  EXPECT_EQ(tag->valueForKey("tagUnit"), Value("minutes"));
  EXPECT_TRUE(tag->isUpdated());
  EXPECT_FALSE(tag->setValueIfChanged(name, Value()));
  // An attribute of another entity is refused, whatever its slot.
  const AttributeDescription& comment = *c.persistentStoreCoordinator()
                                             ->managedObjectModel()
                                             .entityNamed("MoodDescription")
                                             ->attributeNamed("comment");
  EXPECT_THROW(tag->setValueIfChanged(comment, Value("x")), std::invalid_argument);
  ASSERT_FALSE(c.save());
  testing::TestStack check(path);
  auto saved = check.context->executeFetchRequest(FetchRequest("MoodTag"))[0];
  EXPECT_EQ(saved->valueForKey("tagUnit"), Value("minutes"));
  EXPECT_TRUE(saved->valueForKey("tagName").isNull());
}

}  // namespace
}  // namespace lumeo
