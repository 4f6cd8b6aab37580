// Location keys and the grouping of a cell's annotations by them.
#include "map/geohash.h"

#include <gtest/gtest.h>

#include "map/geo_map_cluster_utility.h"

namespace lumeo {
namespace {

TEST(GeohashTest, KnownKeys) {
  EXPECT_EQ(geohashForCoordinate({57.64911, 10.40744}), "u4pruydqq");
  EXPECT_EQ(geohashForCoordinate({42.6, -5.6}, 5), "ezs42");
  EXPECT_EQ(geohashForCoordinate({-90, -180}), "000000000");
  EXPECT_EQ(geohashForCoordinate({89.9999999, 179.9999999}), "zzzzzzzzz");
  // The packed bits carry the same key as the text.
  EXPECT_EQ(geohashStringForBits(geohashBitsForCoordinate({57.64911, 10.40744})), "u4pruydqq");
}

TEST(GeohashTest, NearbyPointsShareAKeyAndDistantOnesDoNot) {
  // Nine characters are cells of a few metres.
  EXPECT_EQ(geohashForCoordinate({48.858370, 2.294481}), geohashForCoordinate({48.858371, 2.294482}));
  EXPECT_NE(geohashForCoordinate({48.858370, 2.294481}), geohashForCoordinate({48.858470, 2.294481}));
}

MapAnnotationList at(std::initializer_list<LocationCoordinate2D> coordinates) {
  MapAnnotationList list;
  for (auto c : coordinates) list.push_back(std::make_shared<PointAnnotation>(c));
  return list;
}

TEST(GeohashTest, GroupingStopsOnceTheLimitOfLocationsIsExceeded) {
  MapAnnotationList threeAtOnePoint = at({{1, 1}, {1, 1}, {1, 1}});
  EXPECT_FALSE(groupAnnotationsByLocation(threeAtOnePoint, 0).has_value());
  auto one = groupAnnotationsByLocation(threeAtOnePoint, 2);
  ASSERT_TRUE(one.has_value());
  ASSERT_EQ(one->size(), 1u);
  EXPECT_EQ((*one)[0].size(), 3u);

  MapAnnotationList two = at({{2, 2}, {1, 1}, {2, 2}});
  auto split = groupAnnotationsByLocation(two, 2);
  ASSERT_TRUE(split.has_value());
  ASSERT_EQ(split->size(), 2u);
  // Groups come in the order their locations first appear.
  EXPECT_EQ((*split)[0].size(), 2u);
  EXPECT_EQ((*split)[0][0], two[0]);
  EXPECT_EQ((*split)[1][0], two[1]);

  EXPECT_FALSE(groupAnnotationsByLocation(at({{1, 1}, {2, 2}, {3, 3}}), 2).has_value());
  EXPECT_TRUE(groupAnnotationsByLocation(at({{1, 1}, {2, 2}, {3, 3}}), 3).has_value());
}

TEST(GeohashTest, GroupingManyLocationsKeepsEveryMemberOnce) {
  // Past the linear scan the grouping switches to a hash index.
  MapAnnotationList many;
  for (int i = 0; i < 100; ++i) {
    for (int copy = 0; copy <= i % 3; ++copy)
      many.push_back(std::make_shared<PointAnnotation>(LocationCoordinate2D{i * 0.01, 0}));
  }
  auto groups = groupAnnotationsByLocation(many, SIZE_MAX);
  ASSERT_TRUE(groups.has_value());
  ASSERT_EQ(groups->size(), 100u);
  std::size_t total = 0;
  for (std::size_t i = 0; i < groups->size(); ++i) {
    EXPECT_EQ((*groups)[i].size(), i % 3 + 1);
    for (const auto& member : (*groups)[i])
      EXPECT_EQ(member->coordinate().latitude, (*groups)[i][0]->coordinate().latitude);
    total += (*groups)[i].size();
  }
  EXPECT_EQ(total, many.size());
}

}  // namespace
}  // namespace lumeo
