// The tree's annotation set against a standard map through long runs of
// adds and removes: removal closes gaps in the probe runs and moves entries,
// and a wrong step there loses an annotation or keeps a stale position.
#include "map/geo_map_tree_entry_table.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_map>

namespace lumeo {
namespace {

TEST(GeoMapTreeEntryTableTest, AgreesWithAStandardMapThroughRandomAddsAndRemoves) {
  std::mt19937 random(7);
  std::vector<MapAnnotationPtr> pool;
  for (int i = 0; i < 3000; ++i)
    pool.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{0, 0}));

  GeoMapTreeEntryTable table;
  std::unordered_map<const MapAnnotation*, std::pair<double, double>> expected;
  auto check = [&] {
    ASSERT_EQ(table.size(), expected.size());
    for (const auto& [annotation, position] : expected) {
      const GeoMapTreeEntryTable::Entry* entry = table.find(annotation);
      ASSERT_NE(entry, nullptr);
      EXPECT_EQ(entry->annotation.get(), annotation);
      EXPECT_EQ(entry->x, position.first);
      EXPECT_EQ(entry->y, position.second);
    }
    std::size_t listed = 0;
    table.forEach([&](const GeoMapTreeEntryTable::Entry& entry) {
      EXPECT_TRUE(expected.count(entry.annotation.get()));
      ++listed;
    });
    EXPECT_EQ(listed, expected.size());
  };

  // Grow to most of the pool, shrink to a few, grow again: probe runs wrap
  // around the end of the index and removals shift whole runs back.
  for (int phase = 0; phase < 3; ++phase) {
    double addShare = phase == 1 ? 0.2 : 0.8;
    for (int step = 0; step < 20000; ++step) {
      const MapAnnotationPtr& annotation = pool[random() % pool.size()];
      bool present = expected.count(annotation.get()) != 0;
      if (std::uniform_real_distribution<double>(0, 1)(random) < addShare) {
        double x = step, y = -step;
        EXPECT_EQ(table.insert(annotation, x, y), !present);
        if (!present) expected[annotation.get()] = {x, y};
      } else {
        EXPECT_EQ(table.erase(annotation.get()), present);
        expected.erase(annotation.get());
      }
      if (step % 2500 == 0) check();
    }
    check();
  }

  // The table holds the references: what it still lists stays alive.
  std::weak_ptr<MapAnnotation> watched = table.at(0).annotation;
  const MapAnnotation* raw = watched.lock().get();
  pool.clear();
  EXPECT_FALSE(watched.expired());
  EXPECT_TRUE(table.erase(raw));
  EXPECT_TRUE(watched.expired());
}

TEST(GeoMapTreeEntryTableTest, ReservingKeepsWhatIsThereAndAnEmptiedTableStartsOver) {
  GeoMapTreeEntryTable table;
  std::vector<MapAnnotationPtr> annotations;
  for (int i = 0; i < 100; ++i) {
    annotations.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{0, 0}));
    table.insertAbsent(annotations.back(), i, i);
  }
  table.reserve(100000);
  for (int i = 0; i < 100; ++i) {
    const GeoMapTreeEntryTable::Entry* entry = table.find(annotations[static_cast<std::size_t>(i)].get());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->x, i);
  }
  for (const MapAnnotationPtr& annotation : annotations) EXPECT_TRUE(table.erase(annotation.get()));
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.find(annotations.front().get()), nullptr);
  EXPECT_FALSE(table.erase(annotations.front().get()));
  EXPECT_TRUE(table.insert(annotations.front(), 5, 6));
  EXPECT_EQ(table.find(annotations.front().get())->y, 6);
}

}  // namespace
}  // namespace lumeo
