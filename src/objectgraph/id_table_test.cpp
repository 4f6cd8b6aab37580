// The flat ID tables under the object registry and to-many indexes: churn
// against a reference map (removals that shift runs back, equal row numbers
// in several tables, temporary IDs), and IdList keeping its index in step
// through growth, commits, remapping and removal.
#include "objectgraph/id_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "objectgraph/object_state.h"
#include "objectgraph/test_model.h"

namespace lumeo {
namespace {

class IdTableTest : public ::testing::Test {
 protected:
  testing::TestStack stack;
  const EntityDescription& records = *stack.model->entityNamed("MoodRecord");
  const EntityDescription& tags = *stack.model->entityNamed("MoodTag");
  const EntityDescription& photos = *stack.model->entityNamed("PhotoEntry");
  const EntityDescription& entries = *stack.model->entityNamed("Entry");
  const std::string* store = ManagedObjectID::internStoreIdentifier("STORE-A");
  ManagedObjectID record(std::int64_t pk) const { return ManagedObjectID::makePermanent(records, store, pk); }
  ManagedObjectID tag(std::int64_t pk) const { return ManagedObjectID::makePermanent(tags, store, pk); }
};

TEST_F(IdTableTest, ChurnAgreesWithAReferenceMap) {
  // Keys crowd a few hundred row numbers of two tables, so runs collide,
  // wrap around the end of the array and are shifted back on removal.
  IdTable<int> table;
  std::map<std::pair<int, std::int64_t>, int> reference;
  std::mt19937 rng(11);
  for (int step = 0; step < 20000; ++step) {
    const bool isTag = rng() % 2;
    const std::int64_t pk = 1 + static_cast<std::int64_t>(rng() % 300);
    const ManagedObjectID id = isTag ? tag(pk) : record(pk);
    const auto key = std::make_pair(isTag ? 1 : 0, pk);
    switch (rng() % 3) {
      case 0:
        EXPECT_EQ(table.insert(id, step), reference.count(key) == 0);
        reference[key] = step;
        break;
      case 1:
        EXPECT_EQ(table.erase(id), reference.erase(key) == 1);
        break;
      default: {
        const int* found = table.find(id);
        auto it = reference.find(key);
        ASSERT_EQ(found != nullptr, it != reference.end()) << "step " << step;
        if (found) {
          EXPECT_EQ(*found, it->second);
        }
      }
    }
    ASSERT_EQ(table.size(), reference.size());
  }
  std::size_t visited = 0;
  table.forEach([&](const ManagedObjectID& id, int value) {
    ++visited;
    const auto key = std::make_pair(&id.entity() == &tags ? 1 : 0, id.primaryKey());
    EXPECT_EQ(reference.at(key), value);
  });
  EXPECT_EQ(visited, reference.size());
}

TEST_F(IdTableTest, KeysFollowIdEqualityAcrossAChainAndTellTemporaryFromPermanent) {
  IdTable<int> table;
  // A to-one column names the destination (Entry) while the row is a
  // PhotoEntry: both are one ID.
  ASSERT_TRUE(table.insert(ManagedObjectID::makePermanent(photos, store, 5), 1));
  EXPECT_TRUE(table.contains(ManagedObjectID::makePermanent(entries, store, 5)));
  EXPECT_FALSE(table.contains(
      ManagedObjectID::makePermanent(entries, ManagedObjectID::internStoreIdentifier("B"), 5)));
  const ManagedObjectID temporary = ManagedObjectID::makeTemporary(records);
  EXPECT_FALSE(table.contains(temporary));
  table.insert(temporary, 2);
  EXPECT_EQ(*table.find(temporary), 2);
  EXPECT_FALSE(table.contains(record(-temporary.rawKey())));
  EXPECT_FALSE(table.insert(ManagedObjectID(), 3)) << "the null ID marks free slots";
  EXPECT_EQ(table.size(), 2u);
  EXPECT_TRUE(table.eraseIf(temporary, [](int v) { return v == 2; }));
  EXPECT_FALSE(
      table.eraseIf(ManagedObjectID::makePermanent(entries, store, 5), [](int v) { return v == 7; }));
  EXPECT_EQ(table.size(), 1u);
  table.clear();
  EXPECT_FALSE(table.contains(ManagedObjectID::makePermanent(photos, store, 5)));
}

TEST_F(IdTableTest, IdListKeepsItsIndexInStepThroughCommitsRemapsAndRemovals) {
  IdList current, committed;
  std::vector<ManagedObjectID> temporaries;
  for (int i = 1; i <= 100; ++i) current.add(record(i));
  for (int i = 0; i < 30; ++i) {
    temporaries.push_back(ManagedObjectID::makeTemporary(records));
    EXPECT_TRUE(current.add(temporaries.back()));
  }
  EXPECT_FALSE(current.add(record(50))) << "already a member, found through the index";
  EXPECT_TRUE(current.contains(temporaries[3]));

  // A save gives the new members row numbers.
  std::map<std::int64_t, ManagedObjectID> permanent;
  for (std::size_t i = 0; i < temporaries.size(); ++i) permanent[temporaries[i].rawKey()] = record(1000 + i);
  int offered = 0;
  current.remapIDs(
      [&](ManagedObjectID& id) {
        ++offered;
        auto it = permanent.find(id.rawKey());
        if (it == permanent.end()) return false;
        id = it->second;
        return true;
      },
      true);
  EXPECT_EQ(offered, 30) << "permanent IDs are not offered";
  EXPECT_FALSE(current.contains(temporaries[3]));
  EXPECT_TRUE(current.contains(record(1003)));
  EXPECT_EQ(current.items()[103], record(1003)) << "order kept";
  current.remapIDs(
      [&](ManagedObjectID&) {
        ADD_FAILURE() << "no temporary IDs left";
        return false;
      },
      true);

  // Commit once whole, then by appending the tail only.
  committed.becomeCopyOf(current);
  EXPECT_EQ(committed.items(), current.items());
  current.add(record(5000));
  committed.becomeCopyOf(current);
  EXPECT_EQ(committed.items(), current.items());
  EXPECT_TRUE(committed.contains(record(5000)));
  // After a removal the committed list is no prefix any more.
  EXPECT_TRUE(current.remove(record(7)));
  EXPECT_FALSE(current.contains(record(7)));
  committed.becomeCopyOf(current);
  EXPECT_EQ(committed.items(), current.items());
  EXPECT_FALSE(committed.contains(record(7)));
  EXPECT_TRUE(committed.contains(record(8)));

  current.insertAt(record(1), 0);
  EXPECT_EQ(current.items().front(), record(1));
  EXPECT_EQ(std::count(current.items().begin(), current.items().end(), record(1)), 1);
  current.clear();
  EXPECT_FALSE(current.contains(record(8)));
}

}  // namespace
}  // namespace lumeo
