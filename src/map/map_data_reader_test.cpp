// The Map tab's reader on a real journal: which records become pins (both
// coordinates set and plausible, the date range only with both ends, any of
// the chosen tags), batches of 500 paced 0.1 s apart on virtual time, and a
// stop that drops what was not yet delivered.
#include "map/map_data_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "map/map_test_support.h"
#include "platform/clock.h"

namespace lumeo {
namespace {

class Collector : public MapDataReaderDelegate {
 public:
  void dataReaderAddAnnotations(MapDataReader&, const MoodMapPointAnnotationList& annotations) override {
    batches.push_back(annotations);
    times.push_back(Clock::current()->now());
  }
  void dataReaderDidFinish(MapDataReader&) override { ++finished; }
  std::size_t total() const {
    std::size_t n = 0;
    for (const auto& b : batches) n += b.size();
    return n;
  }
  std::vector<MoodMapPointAnnotationList> batches;
  std::vector<Date> times;
  int finished = 0;
};

class MapDataReaderTest : public ::testing::Test {
 protected:
  MapDataReaderTest()
      : reader(MapDataReader::create(journal.store())), collector(std::make_shared<Collector>()) {
    reader->setDelegate(collector);
  }
  void readAll() {
    collector->batches.clear();
    collector->finished = 0;
    reader->startReadingMoodData();
    ASSERT_TRUE(testing::runUntilSettled([&] { return collector->finished > 0; }));
  }
  testing::MapJournal journal;
  std::shared_ptr<MapDataReader> reader;
  std::shared_ptr<Collector> collector;
};

TEST_F(MapDataReaderTest, OnlyRecordsWithBothCoordinatesAndAPlausiblePositionBecomePins) {
  journal.add(3, -1, 10);  // no latitude
  journal.add(4, 10, -1);  // no longitude
  journal.add(5, -1, -1);
  journal.add(7, 95, 10);
  journal.add(8, 10, 200);
  journal.add(9, 48.2, 16.37);
  journal.add(2, -33.9, -1.5);  // -1 in a coordinate's decimals is a real place
  journal.save();
  readAll();
  ASSERT_EQ(collector->total(), 2u);
  std::vector<long> levels;
  for (const auto& pin : collector->batches[0]) levels.push_back(pin->moodLevel());
  std::sort(levels.begin(), levels.end());
  EXPECT_EQ(levels, (std::vector<long>{2, 9}));
  for (const auto& pin : collector->batches[0]) EXPECT_EQ(pin->title(), std::to_string(pin->moodLevel()));
  EXPECT_EQ(reader->skippedCount(), 2u);
}

TEST_F(MapDataReaderTest, AnEmptyJournalFinishesWithoutABatch) {
  journal.add(5, -1, -1);
  journal.save();
  readAll();
  EXPECT_TRUE(collector->batches.empty());
  EXPECT_FALSE(reader->isReading());
}

TEST_F(MapDataReaderTest, DatesFilterOnlyWithBothEndsAndTagsMatchAny) {
  const Date day = Date::fromTimeIntervalSince1970(1'700'000'000);
  journal.add(1, 1, 1, {"work"}, day.dateByAddingTimeInterval(-86400 * 10));
  journal.add(2, 2, 2, {"home"}, day);
  journal.add(3, 3, 3, {"gym", "work"}, day.dateByAddingTimeInterval(3600));
  journal.add(4, 4, 4, {}, day.dateByAddingTimeInterval(7200));
  journal.save();

  reader->setStartDate(day.dateByAddingTimeInterval(-60));
  readAll();
  EXPECT_EQ(collector->total(), 4u) << "a start date alone does not filter";

  collector->batches.clear();
  reader->setEndDate(day.dateByAddingTimeInterval(3 * 3600));
  readAll();
  EXPECT_EQ(collector->total(), 3u);

  collector->batches.clear();
  reader->setTagsSet({"WORK", "home"});
  readAll();
  EXPECT_EQ(collector->total(), 1u) << "tag names compare exactly; only #home matches in range";

  collector->batches.clear();
  reader->setTagsSet({"work", "home"});
  readAll();
  EXPECT_EQ(collector->total(), 2u);
}

TEST_F(MapDataReaderTest, FiveHundredAndOneRecordsArriveInTwoPacedBatches) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1'700'000'000));
  for (int i = 0; i < 501; ++i) journal.add(1 + i % 10, 10 + i * 0.01, 20);
  journal.save();
  readAll();
  ASSERT_EQ(collector->batches.size(), 2u);
  EXPECT_EQ(collector->batches[0].size(), 500u);
  EXPECT_EQ(collector->batches[1].size(), 1u);
  EXPECT_GE(collector->times[1].timeIntervalSinceDate(collector->times[0]),
            MapDataReader::kBatchPause - 1e-6);
}

TEST_F(MapDataReaderTest, StoppingDropsBatchesNotYetDelivered) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1'700'000'000));
  for (int i = 0; i < 1600; ++i) journal.add(5, 10, 20 + i * 0.001);
  journal.save();
  reader->startReadingMoodData();
  ASSERT_TRUE(testing::runUntilSettled([&] { return !collector->batches.empty(); }));
  reader->stopReadingData();
  MainLoop::shared().runFor(2);
  EXPECT_EQ(collector->batches.size(), 1u);
  EXPECT_EQ(collector->finished, 0);

  // A new read starts from the beginning and delivers everything.
  collector->batches.clear();
  readAll();
  EXPECT_EQ(collector->total(), 1600u);
  EXPECT_EQ(collector->batches.size(), 4u);
}

}  // namespace
}  // namespace lumeo
