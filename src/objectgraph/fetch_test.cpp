// Fetch requests against a real store: sorting on several keys and key
// paths, limits and offsets, batches filled on demand, object-ID and
// dictionary results with min/max, counts and prefetching.
#include <gtest/gtest.h>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

Date day(int d) {
  return Date::fromTimeIntervalSince1970(1767225600.0 + 86400.0 * d);
}

class FetchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack = std::make_unique<testing::TestStack>((dir / "Model.sqlite").string());
    auto& c = *stack->context;
    auto tag = c.insertNewObjectForEntityForName("MoodTag");
    tag->setValueForKey("tagName", "walk");
    // Levels repeat so that a second sort key decides.
    const int levels[] = {3, 7, 3, 9, 7, 1, 3, 8};
    for (int i = 0; i < 8; ++i) {
      auto r = c.insertNewObjectForEntityForName("MoodRecord");
      r->setValueForKey("moodLevel", levels[i]);
      r->setValueForKey("date", day(i));
      r->setValueForKey("uniqueIdentifier", "r" + std::to_string(i));
      auto d = c.insertNewObjectForEntityForName("MoodDescription");
      d->setValueForKey("latitude", static_cast<double>(100 - i));
      r->setObjectForKey("moodDescription", d);
      if (i % 2 == 0) r->addObjectForKey("moodTags", tag);
    }
    ASSERT_FALSE(c.save());
    context = stack->newContext();
  }

  std::vector<std::string> ids(const FetchResults& results) {
    std::vector<std::string> out;
    for (const auto& o : results) out.push_back(o->valueForKey("uniqueIdentifier").toString());
    return out;
  }

  lumeo::testing::TempDir dir;
  std::unique_ptr<testing::TestStack> stack;
  std::shared_ptr<ManagedObjectContext> context;
};

TEST_F(FetchTest, SortsOnSeveralKeysAndKeyPathsWithLimitAndOffset) {
  FetchRequest r("MoodRecord");
  r.setSortDescriptors({SortDescriptor("moodLevel", false), SortDescriptor("date", true)});
  EXPECT_EQ(ids(context->executeFetchRequest(r)),
            (std::vector<std::string>{"r3", "r7", "r1", "r4", "r0", "r2", "r6", "r5"}));
  r.setFetchLimit(3);
  r.setFetchOffset(2);
  EXPECT_EQ(ids(context->executeFetchRequest(r)), (std::vector<std::string>{"r1", "r4", "r0"}));
  EXPECT_EQ(context->countForFetchRequest(r), 3u);

  FetchRequest byPath("MoodRecord");
  byPath.setSortDescriptors({SortDescriptor("moodDescription.latitude")});
  byPath.setFetchLimit(2);
  EXPECT_EQ(ids(context->executeFetchRequest(byPath)), (std::vector<std::string>{"r7", "r6"}));

  // The same order when unsaved changes force the sort into memory.
  auto first = context->executeFetchRequest(FetchRequest("MoodRecord"))[5];
  first->setValueForKey("moodLevel", 10);
  r.setFetchLimit(0);
  r.setFetchOffset(0);
  EXPECT_EQ(ids(context->executeFetchRequest(r)),
            (std::vector<std::string>{"r5", "r3", "r7", "r1", "r4", "r0", "r2", "r6"}));
}

TEST_F(FetchTest, BatchedResultsHoldOnlyTheCurrentBatch) {
  FetchRequest r("MoodRecord");
  r.setSortDescriptors({SortDescriptor("date")});
  r.setFetchBatchSize(3);
  auto results = context->executeFetchRequest(r);
  ASSERT_EQ(results.size(), 8u);
  EXPECT_TRUE(context->registeredObjects().empty()) << "nothing is loaded before it is read";
  std::weak_ptr<ManagedObject> early = results[0];
  EXPECT_EQ(results[1]->valueForKey("uniqueIdentifier").toString(), "r1");
  EXPECT_FALSE(early.expired());
  EXPECT_EQ(results[7]->valueForKey("uniqueIdentifier").toString(), "r7");
  EXPECT_TRUE(early.expired()) << "an earlier batch is let go";
  EXPECT_LE(context->registeredObjects().size(), 3u);
  EXPECT_EQ(ids(results), (std::vector<std::string>{"r0", "r1", "r2", "r3", "r4", "r5", "r6", "r7"}));
}

TEST_F(FetchTest, ObjectIDAndDictionaryResults) {
  FetchRequest idsOnly("MoodRecord");
  idsOnly.setResultType(FetchRequestResultType::kManagedObjectID);
  idsOnly.setPredicate(Predicate::predicateWithFormat("moodLevel == 3"));
  auto found = context->executeFetchRequest(idsOnly);
  EXPECT_EQ(found.objectIDs().size(), 3u);
  EXPECT_TRUE(context->registeredObjects().empty());

  FetchRequest range("MoodRecord");
  range.setResultType(FetchRequestResultType::kDictionary);
  range.setExpressionsToFetch(
      {{"minDate", "min:", "date", AttributeType::kDate}, {"maxDate", "max:", "date", AttributeType::kDate}});
  auto rows = context->executeFetchRequest(range).dictionaries();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(*rows[0]["minDate"].asDate(), day(0));
  EXPECT_EQ(*rows[0]["maxDate"].asDate(), day(7));

  range.setPredicate(Predicate::predicateWithFormat("moodLevel > 100"));
  rows = context->executeFetchRequest(range).dictionaries();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_TRUE(rows[0].empty()) << "no dates when nothing matches";

  FetchRequest columns("MoodRecord");
  columns.setResultType(FetchRequestResultType::kDictionary);
  columns.setPropertiesToFetch({"uniqueIdentifier", "moodDescription.latitude"});
  columns.setSortDescriptors({SortDescriptor("date", false)});
  columns.setFetchLimit(1);
  rows = context->executeFetchRequest(columns).dictionaries();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0]["uniqueIdentifier"].toString(), "r7");
  EXPECT_EQ(rows[0]["moodDescription.latitude"].toDouble(), 93.0);

  // Row by row: the same values in the order asked for, null where a row
  // has none, without a dictionary per row.
  columns.setFetchLimit(0);
  auto all = context->executeFetchRequest(columns).dictionaries();
  std::size_t seen = 0;
  ASSERT_FALSE(context->forEachFetchedRow(columns, [&](const std::vector<Value>& row) {
    ASSERT_EQ(row.size(), 2u);
    ASSERT_LT(seen, all.size());
    EXPECT_EQ(row[0], all[seen]["uniqueIdentifier"]);
    EXPECT_EQ(row[1], all[seen]["moodDescription.latitude"]);
    ++seen;
  }));
  EXPECT_EQ(seen, all.size());
  FetchRequest unknown("MoodRecord");
  unknown.setPropertiesToFetch({"noSuchAttribute"});
  auto rowError = context->forEachFetchedRow(unknown, [](const std::vector<Value>&) {});
  ASSERT_TRUE(rowError);
  EXPECT_EQ(rowError->code, kFetchRequestError);
  EXPECT_TRUE(context->forEachFetchedRow(FetchRequest("NoSuchEntity"), [](const std::vector<Value>&) {}));

  OptionalError error;
  context->executeFetchRequest(FetchRequest("NoSuchEntity"), error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kFetchRequestError);
}

TEST_F(FetchTest, PrefetchingLoadsRelatedObjectsWithTheFetch) {
  FetchRequest r("MoodRecord");
  r.setRelationshipKeyPathsForPrefetching({"moodDescription", "moodTags"});
  auto results = context->executeFetchRequest(r);
  ASSERT_EQ(results.size(), 8u);
  for (const auto& record : results) {
    auto id = record->objectIDForKey("moodDescription");
    ASSERT_TRUE(id);
    auto description = context->objectRegisteredForID(*id);
    ASSERT_TRUE(description) << "kept alive by the results";
    EXPECT_FALSE(description->isFault());
  }
  auto tags = results[0]->objectIDsForRelationshipNamed("moodTags");
  ASSERT_EQ(tags.size(), 1u);
  ASSERT_TRUE(context->objectRegisteredForID(tags[0]));
  EXPECT_EQ(context->objectRegisteredForID(tags[0])->valueForKey("tagName").toString(), "walk");
}

TEST_F(FetchTest, ATagWithManyRecordsTakesOneMoreWithoutLoadingTheRest) {
  FetchRequest r("MoodTag");
  auto tag = context->executeFetchRequest(r)[0];
  auto record = context->insertNewObjectForEntityForName("MoodRecord");
  record->addObjectForKey("moodTags", tag);
  EXPECT_EQ(tag->changedPropertyNames(), std::vector<std::string>{"moodRecords"});
  ASSERT_FALSE(context->save());
  EXPECT_EQ(tag->valueForKey("frequency").toInt(), 5);
  EXPECT_EQ(tag->countForKey("moodRecords"), 5u);
}

}  // namespace
}  // namespace lumeo
