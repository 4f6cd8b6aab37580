// Revision vectors: comparison, store-wise reduction, equality.
#include "sync/sync_revision.h"

#include <gtest/gtest.h>

#include <random>

namespace lumeo {
namespace {

SyncRevisionSet set(std::initializer_list<std::pair<const char*, long long>> items) {
  SyncRevisionSet s;
  for (const auto& [store, number] : items) s.addRevision(SyncRevision(store, number, number * 10));
  return s;
}

TEST(SyncRevisionTest, ComparesWithinAStoreByNumberAndAcrossStoresByGlobalCount) {
  EXPECT_EQ(SyncRevision("A", 1, 9).compare(SyncRevision("A", 2, 0)), -1);
  EXPECT_EQ(SyncRevision("A", 1, 9).compare(SyncRevision("B", 2, 0)), 1);
  EXPECT_EQ(SyncRevision("A", 3, 5).compare(SyncRevision("B", 0, 5)), 0);
  // Equality goes by the unique text: a different global count is another revision.
  EXPECT_NE(SyncRevision("A", 1, 1), SyncRevision("A", 1, 2));
  EXPECT_EQ(SyncRevision("A", 1, 2).uniqueIdentifier(), "2_1_A");
  EXPECT_EQ(SyncRevision().revisionNumber(), -1);
  EXPECT_EQ(SyncRevision("A", 4).globalCount(), -1);
}

TEST(SyncRevisionSetTest, ConcurrentSetsCompareAsEqualButAreNotEqual) {
  SyncRevisionSet a = set({{"A", 1}, {"B", 2}});
  SyncRevisionSet b = set({{"A", 2}, {"B", 1}});
  EXPECT_EQ(a.compare(b), 0);
  EXPECT_FALSE(a.isEqualToRevisionSet(b));
  EXPECT_TRUE(a.isEqualToRevisionSet(set({{"A", 1}, {"B", 2}})));
  EXPECT_EQ(SyncRevisionSet().compare(SyncRevisionSet()), 0);
  EXPECT_TRUE(SyncRevisionSet().isEqualToRevisionSet(SyncRevisionSet()));
}

TEST(SyncRevisionSetTest, AMissingStoreMakesTheSetSmaller) {
  SyncRevisionSet small = set({{"A", 1}});
  SyncRevisionSet big = set({{"A", 1}, {"B", 0}});
  EXPECT_EQ(small.compare(big), -1);
  EXPECT_EQ(big.compare(small), 1);
  EXPECT_EQ(set({{"A", 0}, {"B", 5}}).compare(set({{"A", 3}, {"B", 5}})), -1);
  // Global counts are not compared.
  SyncRevisionSet g;
  g.addRevision(SyncRevision("A", 1, 999));
  EXPECT_EQ(g.compare(small), 0);
  EXPECT_TRUE(g.isEqualToRevisionSet(small));
}

TEST(SyncRevisionSetTest, StoreWiseMinimumAndMaximumReduceNumbersSeparately) {
  SyncRevisionSet min = set({{"A", 5}}).revisionSetByTakingStoreWiseMinimumWithRevisionSet(set({{"B", 3}}));
  EXPECT_TRUE(min.isEqualToRevisionSet(set({{"A", 5}, {"B", 3}})));

  SyncRevisionSet x;
  x.addRevision(SyncRevision("A", 4, 1));
  SyncRevisionSet y;
  y.addRevision(SyncRevision("A", 2, 7));
  SyncRevisionSet lo = x.revisionSetByTakingStoreWiseMinimumWithRevisionSet(y);
  SyncRevisionSet hi = x.revisionSetByTakingStoreWiseMaximumWithRevisionSet(y);
  EXPECT_EQ(lo.revisionForPersistentStoreIdentifier("A")->revisionNumber(), 2);
  EXPECT_EQ(lo.revisionForPersistentStoreIdentifier("A")->globalCount(), 1);
  EXPECT_EQ(hi.revisionForPersistentStoreIdentifier("A")->revisionNumber(), 4);
  EXPECT_EQ(hi.revisionForPersistentStoreIdentifier("A")->globalCount(), 7);

  SyncRevisionSet folded = SyncRevisionSet::revisionSetByTakingStoreWiseMaximumOfRevisionSets(
      {set({{"A", 1}}), set({{"A", 3}, {"C", 0}}), set({{"B", 2}})});
  EXPECT_TRUE(folded.isEqualToRevisionSet(set({{"A", 3}, {"B", 2}, {"C", 0}})));
  EXPECT_EQ(SyncRevisionSet::revisionSetByTakingStoreWiseMaximumOfRevisionSets({}).numberOfRevisions(), 0u);
}

TEST(SyncRevisionSetTest, AddingReplacesAndIncrementStartsAtZero) {
  SyncRevisionSet s;
  s.addRevision(SyncRevision("A", 1, 1));
  s.addRevision(SyncRevision("A", 5, 1));
  EXPECT_EQ(s.numberOfRevisions(), 1u);
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("A")->revisionNumber(), 5);
  s.incrementRevisionForStoreWithIdentifier("A");
  s.incrementRevisionForStoreWithIdentifier("B");
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("A")->revisionNumber(), 6);
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("A")->globalCount(), -1);
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("B")->revisionNumber(), 0);
  s.removeRevisionForPersistentStoreIdentifier("Z");
  s.removeRevisionForPersistentStoreIdentifier("B");
  EXPECT_EQ(s.persistentStoreIdentifiers(), std::set<std::string>{"A"});
  EXPECT_NE(s.description().find("Store: A, Global Count: -1, Revision: 6\n"), std::string::npos);
}

TEST(SyncRevisionSetTest, KeepsStoresInOrderWhateverTheOrderOfAdding) {
  SyncRevisionSet s;
  for (const char* store : {"M", "B", "Z", "A", "Q"}) s.addRevision(SyncRevision(store, 1, 1));
  s.addRevision(SyncRevision("Q", 7, 2));  // replaces in the middle
  std::vector<std::string> stores;
  for (const auto& r : s.revisions()) stores.push_back(r.persistentStoreIdentifier());
  EXPECT_EQ(stores, (std::vector<std::string>{"A", "B", "M", "Q", "Z"}));
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("Q")->revisionNumber(), 7);
  EXPECT_EQ(s.revisionForPersistentStoreIdentifier("C"), nullptr);
  s.removeRevision(SyncRevision("M", 1, 2));  // another global count: not this revision
  EXPECT_TRUE(s.hasRevisionForPersistentStoreIdentifier("M"));
  s.removeRevision(SyncRevision("M", 1, 1));
  EXPECT_FALSE(s.hasRevisionForPersistentStoreIdentifier("M"));
  s.incrementRevisionForStoreWithIdentifier("C");
  stores.clear();
  for (const auto& r : s) stores.push_back(r.persistentStoreIdentifier());
  EXPECT_EQ(stores, (std::vector<std::string>{"A", "B", "C", "Q", "Z"}));
}

TEST(SyncRevisionSetTest, TakingTheMaximumInPlaceGivesTheSameAsTheNewSet) {
  // Random sets over a few stores, folded both ways from a fixed seed.
  std::mt19937 rng(7);
  auto randomSet = [&] {
    SyncRevisionSet s;
    for (const char* store : {"A", "B", "C", "D"}) {
      if (rng() % 2)
        s.addRevision(SyncRevision(store, std::int64_t(rng() % 9) - 1, std::int64_t(rng() % 9) - 1));
    }
    return s;
  };
  SyncRevisionSet folded;
  SyncRevisionSet inPlace;
  for (int i = 0; i < 200; ++i) {
    SyncRevisionSet next = randomSet();
    folded = folded.revisionSetByTakingStoreWiseMaximumWithRevisionSet(next);
    inPlace.takeStoreWiseMaximumWithRevisionSet(next);
    ASSERT_EQ(inPlace.revisions(), folded.revisions()) << "after set " << i;
  }
}

}  // namespace
}  // namespace lumeo
