// Hex text and the archived form of colours, including the damaged archives
// that must fall back to a default instead of giving a wrong colour.
#include "platform/color.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace lumeo {
namespace {

TEST(ColorTest, HexTextRoundTripsAndRejectsMalformedText) {
  auto c = Color::fromHex("#E93700");
  ASSERT_TRUE(c);
  EXPECT_EQ(*c, Color::fromRGB255(233, 55, 0));
  EXPECT_EQ(c->toHex(), "#E93700");
  EXPECT_EQ(Color::fromHex("e93700"), c) << "the # and the case are optional";

  auto translucent = Color::fromHex("#00000080");
  ASSERT_TRUE(translucent);
  EXPECT_NEAR(translucent->alpha, 128 / 255.0, 1e-12);
  EXPECT_EQ(translucent->toHex(), "#00000080");

  for (const char* bad : {"", "#", "#12345", "#1234567", "#GG0000", "#12 456", "##123456"}) {
    EXPECT_FALSE(Color::fromHex(bad)) << bad;
  }
  // Fractional components (the middle default has 178.5 and 0.5) round to
  // the nearest step, and stray values clamp.
  EXPECT_EQ(Color::fromRGB255(189, 178.5, 0.5).toHex(), "#BDB301");
  EXPECT_EQ(Color(1.5, -0.2, 0.5).toHex(), "#FF0080");
}

TEST(ColorTest, ArchiveRoundTripsExactly) {
  Color c = Color::fromRGB255(189, 178.5, 0.5, 0.25);
  auto back = Color::fromArchive(c.archived());
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, c);
  EXPECT_EQ(c.archived()["red"], Value(189 / 255.0));
}

TEST(ColorTest, DamagedArchivesReadAsNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(Color::fromArchive(Value()));
  EXPECT_FALSE(Color::fromArchive(Value("red")));
  EXPECT_FALSE(Color::fromArchive(Value::Array{Value(1.0), Value(0.0), Value(0.0)}));
  EXPECT_FALSE(Color::fromArchive(Value::Dictionary{{"red", 1.0}, {"green", 0.0}}));
  EXPECT_FALSE(Color::fromArchive(Value::Dictionary{{"red", "1"}, {"green", 0.0}, {"blue", 0.0}}));
  EXPECT_FALSE(Color::fromArchive(Value::Dictionary{{"red", nan}, {"green", 0.0}, {"blue", 0.0}}));
  EXPECT_FALSE(
      Color::fromArchive(Value::Dictionary{{"red", 1.0}, {"green", 0.0}, {"blue", 0.0}, {"alpha", "x"}}));

  // Missing alpha is opaque; integers count as numbers; stray values clamp.
  auto c = Color::fromArchive(Value::Dictionary{{"red", 2}, {"green", 0}, {"blue", -1.0}});
  ASSERT_TRUE(c);
  EXPECT_EQ(*c, Color(1, 0, 0, 1));
}

}  // namespace
}  // namespace lumeo
