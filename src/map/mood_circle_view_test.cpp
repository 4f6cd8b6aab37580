// The pin pictures: golden PNGs of pies with 1, 2, 3 and 10 moods and of an
// average circle, plus the rules a golden alone would not explain (slices
// in ascending order from three o'clock, clockwise; the average's colour).
// LUMEO_UPDATE_GOLDENS=1 writes the goldens instead of comparing.
#include "map/mood_circle_view.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace lumeo {
namespace {

std::filesystem::path goldenPath(const std::string& name) {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  return (dir ? std::filesystem::path(dir) : std::filesystem::path(".")) / "testdata" / "map" / name;
}

void writePng(const Image& image, const std::filesystem::path& path) {
  auto png = image.pngData();
  ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(png));
  const auto& bytes = std::get<std::vector<std::uint8_t>>(png);
  std::filesystem::create_directories(path.parent_path());
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

// A pixel differs when a channel is off by more than 40/255; the count's
// text may move by a pixel between font versions, so up to 2% may differ.
void expectMatchesGolden(const Image& actual, const std::string& name) {
  const auto path = goldenPath(name);
  if (std::getenv("LUMEO_UPDATE_GOLDENS")) {
    writePng(actual, path);
    return;
  }
  auto golden = Image::readFile(path);
  ASSERT_TRUE(std::holds_alternative<Image>(golden)) << "no golden " << path;
  const Image& expected = std::get<Image>(golden);
  ASSERT_EQ(expected.width(), actual.width());
  ASSERT_EQ(expected.height(), actual.height());
  const auto& a = actual.pixels();
  const auto& e = expected.pixels();
  std::size_t differing = 0;
  for (std::size_t p = 0; p < a.size(); p += 4) {
    for (int c = 0; c < 4; ++c) {
      if (std::abs(static_cast<int>(a[p + c]) - static_cast<int>(e[p + c])) > 40) {
        ++differing;
        break;
      }
    }
  }
  if (differing > a.size() / 4 / 50) {
    writePng(actual, std::filesystem::path(name.substr(0, name.size() - 4) + ".actual.png"));
    ADD_FAILURE() << name << ": " << differing << " pixels differ";
  }
}

MoodCircleView pie(std::vector<long> moods, bool average = false) {
  MoodCircleView view;
  view.count = moods.size();
  view.moodArray = std::move(moods);
  view.averageCircle = average;
  return view;
}

class MoodCircleViewTest : public ::testing::Test {
 protected:
  MoodLevelsPresentation levels = MoodLevelsPresentation::defaultMoodLevels();
  Color colorOf(long level) { return levels.presentationForMoodLevel(level)->baseColor; }
  static void expectColor(const Image& image, int x, int y, const Color& color) {
    const std::size_t p = (static_cast<std::size_t>(y) * image.width() + x) * 4;
    const auto& px = image.pixels();
    EXPECT_NEAR(px[p + 0] / 255.0, color.red, 0.02) << x << "," << y;
    EXPECT_NEAR(px[p + 1] / 255.0, color.green, 0.02) << x << "," << y;
    EXPECT_NEAR(px[p + 2] / 255.0, color.blue, 0.02) << x << "," << y;
  }
};

TEST_F(MoodCircleViewTest, PiesAndTheAverageCircleMatchTheirGoldens) {
  expectMatchesGolden(pie({7}).image(levels, 2), "pie_1.png");
  expectMatchesGolden(pie({2, 9}).image(levels, 2), "pie_2.png");
  expectMatchesGolden(pie({1, 5, 10}).image(levels, 2), "pie_3.png");
  expectMatchesGolden(pie({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}).image(levels, 2), "pie_10.png");
  expectMatchesGolden(pie({1, 5, 10}, true).image(levels, 2), "average_3.png");
}

TEST_F(MoodCircleViewTest, SlicesRunClockwiseFromThreeOClockInTheGivenOrder) {
  // Two moods: the first slice is the lower half (0 to 180 degrees, y down),
  // the second the upper half. Test points avoid the count in the middle.
  const Image image = pie({2, 9}).image(levels, 4);  // 160 px
  expectColor(image, 80, 140, colorOf(2));
  expectColor(image, 80, 20, colorOf(9));
  // Four moods: quarters clockwise from three o'clock.
  const Image quarters = pie({1, 4, 6, 10}).image(levels, 4);
  expectColor(quarters, 115, 115, colorOf(1));  // lower right
  expectColor(quarters, 45, 115, colorOf(4));   // lower left
  expectColor(quarters, 45, 45, colorOf(6));    // upper left
  expectColor(quarters, 115, 45, colorOf(10));  // upper right
  // The rim is white and the corners stay transparent.
  expectColor(image, 80, 2, Color(1, 1, 1));
  EXPECT_EQ(image.pixels()[3], 0);
}

TEST_F(MoodCircleViewTest, TheAverageCircleTakesTheColourOfTheMeanLevel) {
  const Image image = pie({1, 5, 10}, true).image(levels, 4);
  expectColor(image, 80, 25, *levels.interpolatedColorForMoodLevel(16.0 / 3.0));
  expectColor(image, 25, 80, *levels.interpolatedColorForMoodLevel(16.0 / 3.0));
}

}  // namespace
}  // namespace lumeo
