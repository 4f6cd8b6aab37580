// Baselines and rebasing: which baselines survive consolidation, what a
// rebase folds into the baseline, and when a rebase is due.
#include <gtest/gtest.h>

#include "objectgraph/fetch_request.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "sync/sync_baseline_consolidator.h"
#include "sync/sync_event_migrator.h"
#include "sync/sync_rebaser.h"
#include "sync/sync_test_replica.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::SyncReplica;
using testing::TempDir;

struct ChangeSpec {
  std::int16_t type;
  std::string object;
  std::string comment;  // empty: no values (a delete)
  std::vector<std::string> tagsAdded = {};
  std::vector<std::string> tagsRemoved = {};
};

class SyncBaselineTest : public ::testing::Test {
 protected:
  SyncBaselineTest() {
    store_ = std::make_shared<SyncEventStore>("MainStore", dir_.path());
    EXPECT_FALSE(store_->prepareNewEventStore());
    self_ = *store_->persistentStoreIdentifier();
  }

  ManagedObjectContext& context() { return *store_->managedObjectContext(); }

  // An event made directly in the store, saved.
  std::string makeEvent(std::int16_t type, std::int64_t globalCount, double timestamp,
                        const std::string& store, std::int64_t revision,
                        std::map<std::string, std::int64_t> others, const std::vector<ChangeSpec>& changes) {
    std::string identifier;
    context().performBlockAndWait([&] {
      auto event = context().insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
      identifier = event->uniqueIdentifier();
      event->setType(type);
      event->setGlobalCount(globalCount);
      event->setTimestamp(timestamp);
      SyncRevisionSet set;
      set.addRevision(SyncRevision(store, revision));
      for (const auto& [other, number] : others) set.addRevision(SyncRevision(other, number));
      event->setRevisionSet(set, store);
      for (const auto& spec : changes) {
        auto rows = SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(
            {spec.object}, {"MoodDescription"}, context());
        auto global = rows[0];
        if (!global) {
          global = context().insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
          global->setGlobalIdentifier(spec.object);
          global->setNameOfEntity("MoodDescription");
        }
        auto change = context().insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
        change->setType(spec.type);
        change->setNameOfEntity("MoodDescription");
        change->setGlobalIdentifier(global);
        if (spec.type != kSyncObjectChangeTypeDelete) {
          std::vector<SyncPropertyChangeValue> values;
          if (!spec.comment.empty()) {
            SyncPropertyChangeValue comment(kSyncPropertyChangeTypeAttribute, "comment");
            comment.value = Value(spec.comment);
            values.push_back(comment);
          }
          if (!spec.tagsAdded.empty() || !spec.tagsRemoved.empty()) {
            SyncPropertyChangeValue tags(kSyncPropertyChangeTypeToManyRelationship, "moodTags");
            tags.addedIdentifiers = std::set<std::string>(spec.tagsAdded.begin(), spec.tagsAdded.end());
            tags.removedIdentifiers = std::set<std::string>(spec.tagsRemoved.begin(), spec.tagsRemoved.end());
            values.push_back(tags);
          }
          change->setPropertyChangeValues(values);
        }
        change->setStoreModificationEvent(event);
      }
      EXPECT_FALSE(context().save());
    });
    return identifier;
  }

  struct BaselineView {
    std::string identifier;
    std::int64_t globalCount = 0;
    std::string revisions;
    std::map<std::string, std::string> comments;  // object -> comment
    std::map<std::string, std::set<std::string>> tags;
    std::size_t changes = 0;
  };

  std::vector<BaselineView> baselines() {
    std::vector<BaselineView> out;
    context().performBlockAndWait([&] {
      for (const auto& event : SyncBaselineConsolidator::baselinesByDecreasingRecency(context())) {
        BaselineView view;
        view.identifier = event->uniqueIdentifier();
        view.globalCount = event->globalCount();
        for (const auto& r : event->revisionSet().revisions())
          view.revisions += r.persistentStoreIdentifier() + ":" + std::to_string(r.revisionNumber()) + " ";
        for (const auto& change : event->objectChanges()) {
          ++view.changes;
          EXPECT_EQ(change->type(), kSyncObjectChangeTypeInsert);
          std::string object = change->globalIdentifier()->globalIdentifier();
          if (auto v = change->propertyChangeValueForPropertyName("comment"))
            view.comments[object] = v->value.toString();
          if (auto v = change->propertyChangeValueForPropertyName("moodTags")) {
            view.tags[object] = v->addedIdentifiers.value_or(std::set<std::string>{});
            EXPECT_TRUE(!v->removedIdentifiers || v->removedIdentifiers->empty());
          }
        }
        out.push_back(view);
      }
    });
    return out;
  }

  std::size_t nonBaselineEventCount() {
    std::size_t n = 0;
    context().performBlockAndWait(
        [&] { n = SyncStoreModificationEvent::fetchNonBaselineEvents(context()).size(); });
    return n;
  }

  ScopedSimulatedClock clock_{Date::fromTimeIntervalSinceReferenceDate(5000)};
  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  std::shared_ptr<SyncEventStore> store_;
  std::string self_;
};

TEST_F(SyncBaselineTest, OfTwoBaselinesWithEqualRevisionsTheOlderGoesAndNothingIsMerged) {
  std::string older = makeEvent(kSyncEventTypeBaseline, 3, 100, "S1", 4, {{"S2", 2}}, {{100, "x", "old"}});
  std::string newer = makeEvent(kSyncEventTypeBaseline, 3, 200, "S1", 4, {{"S2", 2}}, {{100, "x", "new"}});
  SyncBaselineConsolidator consolidator(store_);
  EXPECT_TRUE(consolidator.baselineNeedsConsolidation());
  ASSERT_FALSE(consolidator.consolidateBaseline());
  auto left = baselines();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].identifier, newer);
  EXPECT_EQ(left[0].comments["x"], "new");
  EXPECT_FALSE(consolidator.baselineNeedsConsolidation());
}

TEST_F(SyncBaselineTest, ACoveredBaselineGoesWhicheverIsMoreRecent) {
  // The covering baseline is the less recent one by global count.
  std::string covering = makeEvent(kSyncEventTypeBaseline, 2, 100, "S1", 9, {{"S2", 5}}, {{100, "x", "all"}});
  makeEvent(kSyncEventTypeBaseline, 7, 300, "S2", 5, {{"S1", 3}}, {{100, "x", "part"}});
  ASSERT_FALSE(SyncBaselineConsolidator(store_).consolidateBaseline());
  auto left = baselines();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].identifier, covering);
}

TEST_F(SyncBaselineTest, ConcurrentBaselinesBecomeOneUnderANewIdentifier) {
  std::string a = makeEvent(kSyncEventTypeBaseline, 8, 100, "S1", 6, {},
                            {{100, "x", "x from S1", {"walk"}}, {100, "y", "only in S1"}});
  std::string b = makeEvent(kSyncEventTypeBaseline, 5, 200, "S2", 3, {},
                            {{100, "x", "x from S2", {"run"}}, {100, "z", "only in S2"}});
  ASSERT_FALSE(SyncBaselineConsolidator(store_).consolidateBaseline());
  auto left = baselines();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_NE(left[0].identifier, a);
  EXPECT_NE(left[0].identifier, b);
  EXPECT_EQ(left[0].globalCount, 8);  // the most recent one's count stays
  std::string expected = "S1:6 S2:3 " + self_ + ":0 ";
  if (self_ < "S1") expected = self_ + ":0 S1:6 S2:3 ";
  EXPECT_EQ(left[0].revisions, expected);
  EXPECT_EQ(left[0].changes, 3u);
  EXPECT_EQ(left[0].comments["x"], "x from S1");  // the most recent wins
  EXPECT_EQ(left[0].comments["y"], "only in S1");
  EXPECT_EQ(left[0].comments["z"], "only in S2");
  EXPECT_EQ(left[0].tags["x"], (std::set<std::string>{"run", "walk"}));
}

TEST_F(SyncBaselineTest, ARebaseWithNothingMakesAnEmptyBaselineAtRevisionZero) {
  SyncRebaser rebaser(store_);
  auto should = rebaser.shouldRebase();
  ASSERT_TRUE(std::holds_alternative<bool>(should));
  EXPECT_TRUE(std::get<bool>(should));  // no baseline
  ASSERT_FALSE(rebaser.rebase());
  auto left = baselines();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].changes, 0u);
  EXPECT_EQ(left[0].globalCount, 0);
  EXPECT_EQ(left[0].revisions, self_ + ":0 ");
  EXPECT_EQ(store_->baselineRevision(), 0);
}

TEST_F(SyncBaselineTest, FoldingKeepsTheLatestValuesAndDropsWhatWasDeleted) {
  std::string base = makeEvent(kSyncEventTypeBaseline, 0, 0, self_, 0, {},
                               {{100, "kept", "first", {"a", "b"}}, {100, "gone", "doomed"}});
  makeEvent(
      kSyncEventTypeSave, 1, 10, self_, 1, {},
      {{100, "brief", "inserted"}, {200, "kept", "second", {"c"}, {"a"}}, {200, "never", "stray update"}});
  makeEvent(kSyncEventTypeSave, 2, 20, self_, 2, {}, {{300, "brief", ""}, {300, "gone", ""}});
  SyncRebaser rebaser(store_);
  EXPECT_EQ(rebaser.globalCountForNewBaseline(), 2);
  ASSERT_FALSE(rebaser.rebase());
  auto left = baselines();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].identifier, base);  // a rebase keeps the identifier
  EXPECT_EQ(left[0].globalCount, 2);
  EXPECT_EQ(left[0].revisions, self_ + ":2 ");
  // An insert then a delete leaves nothing; an update of an object the
  // baseline lacks goes with its event.
  EXPECT_EQ(left[0].changes, 1u);
  EXPECT_EQ(left[0].comments["kept"], "second");
  EXPECT_EQ(left[0].tags["kept"], (std::set<std::string>{"b", "c"}));
  EXPECT_EQ(nonBaselineEventCount(), 0u);
}

TEST_F(SyncBaselineTest, EventsThatAnotherStoreMayStillAnswerStayOut) {
  makeEvent(kSyncEventTypeBaseline, 0, 0, self_, 0, {{"OTHER", -1}}, {});
  makeEvent(kSyncEventTypeSave, 1, 10, "OTHER", 0, {{self_, 0}}, {{100, "o", "from other"}});
  makeEvent(kSyncEventTypeSave, 2, 20, self_, 1, {{"OTHER", 0}}, {{100, "m", "mine"}});
  makeEvent(kSyncEventTypeSave, 5, 30, self_, 2, {{"OTHER", 0}}, {{200, "m", "mine later"}});
  SyncRebaser rebaser(store_);
  // OTHER's newest is at count 1: newer events of this store stay.
  EXPECT_EQ(rebaser.globalCountForNewBaseline(), 1);
  ASSERT_FALSE(rebaser.rebase());
  EXPECT_EQ(nonBaselineEventCount(), 2u);
  auto left = baselines();
  EXPECT_EQ(left[0].comments["o"], "from other");
  EXPECT_EQ(left[0].comments.count("m"), 0u);

  // Events the baseline covers are deleted; later ones stay.
  makeEvent(kSyncEventTypeSave, 1, 9, "OTHER", 0, {}, {});  // a late copy of a covered event
  ASSERT_FALSE(rebaser.deleteEventsPreceedingBaseline());
  EXPECT_EQ(nonBaselineEventCount(), 2u);
}

TEST_F(SyncBaselineTest, FiftyOneEventsCallForARebaseFiftyWithFourHundredNinetyNineChangesDoNot) {
  makeEvent(kSyncEventTypeBaseline, 0, 0, self_, 0, {}, {{100, "x", "start"}});
  // 49 events with 498 updates in all: compaction near 1, but 50 events
  // and 499 changes are not too many.
  for (int i = 1; i <= 49; ++i) {
    std::vector<ChangeSpec> changes;
    int n = i <= 8 ? 11 : 10;  // 8 × 11 + 41 × 10 = 498
    for (int k = 0; k < n; ++k) changes.push_back({200, "x", "edit " + std::to_string(i)});
    makeEvent(kSyncEventTypeSave, i, i, self_, i, {}, changes);
  }
  SyncRebaser rebaser(store_);
  auto compaction = rebaser.estimateEventStoreCompactionFollowingRebase();
  ASSERT_TRUE(std::holds_alternative<float>(compaction));
  EXPECT_GT(std::get<float>(compaction), 0.9f);
  EXPECT_FALSE(std::get<bool>(rebaser.shouldRebase()));
  rebaser.forceRebase = true;
  EXPECT_TRUE(std::get<bool>(rebaser.shouldRebase()));
  rebaser.forceRebase = false;

  // One change more, still 50 events: enough changes and compaction.
  makeEvent(kSyncEventTypeSave, 50, 50, self_, 50, {}, {});
  EXPECT_TRUE(std::get<bool>(rebaser.shouldRebase()));  // 51 events
}

TEST_F(SyncBaselineTest, FiveHundredChangesAreEnoughWhenARebaseRemovesMoreThanHalf) {
  makeEvent(kSyncEventTypeBaseline, 0, 0, self_, 0, {}, {{100, "x", "start"}});
  for (int i = 1; i <= 10; ++i) {
    std::vector<ChangeSpec> changes(i == 1 ? 50 : 49, ChangeSpec{200, "x", "edit"});
    makeEvent(kSyncEventTypeSave, i, i, self_, i, {}, changes);
  }
  // 1 + 50 + 9 × 49 = 492 changes: not enough yet.
  SyncRebaser rebaser(store_);
  EXPECT_FALSE(std::get<bool>(rebaser.shouldRebase()));
  makeEvent(kSyncEventTypeSave, 11, 11, self_, 11, {},
            std::vector<ChangeSpec>(8, ChangeSpec{200, "x", "edit"}));
  EXPECT_TRUE(std::get<bool>(rebaser.shouldRebase()));  // 500 changes, 12 events
  // A baseline that does not know every store is due at once.
  makeEvent(kSyncEventTypeSave, 12, 12, "NEWCOMER", 0, {}, {});
  EXPECT_EQ(SyncRebaser::compaction(0, 0, 0, 0), 1.0f);
  EXPECT_EQ(SyncRebaser::compaction(10, 0, 0, 0), 0.0f);
  EXPECT_FLOAT_EQ(SyncRebaser::compaction(10, 5, 20, 5), 1.0f - 10.0f / 19.0f);
}

TEST_F(SyncBaselineTest, BaselinesThatComeFromAnUnknownModelAreNotTouched) {
  std::string a = makeEvent(kSyncEventTypeBaseline, 1, 1, "S1", 1, {}, {{100, "x", "a"}});
  makeEvent(kSyncEventTypeBaseline, 2, 2, "S2", 1, {}, {{100, "y", "b"}});
  // A change of an entity this build's journal does not have.
  context().performBlockAndWait([&] {
    auto event = SyncStoreModificationEvent::fetchStoreModificationEventWithUniqueIdentifier(a, context());
    event->objectChanges()[0]->setNameOfEntity("MoodSpaceship");
    EXPECT_FALSE(context().save());
  });
  SyncBaselineConsolidator consolidator(store_);
  SyncEnsembleHooks hooks;
  hooks.managedObjectModel = testing::sharedJournalModel();
  consolidator.setEnsemble(&hooks);
  auto error = consolidator.consolidateBaseline();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kSyncErrorCodeUnknownModelVersion);
  EXPECT_EQ(baselines().size(), 2u);
}

}  // namespace
}  // namespace lumeo
