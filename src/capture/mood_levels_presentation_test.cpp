// Level labels and colours: which table is in effect, the mapping from level
// to table position, the colour of fractional levels, and the shipped
// resources themselves.
#include "capture/mood_levels_presentation.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <set>

#include "capture/shipped_resources.h"
#include "platform/property_list.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

// Ten levels whose red component is the level itself, so mixes are easy to check.
Value::Array rampTable(std::size_t count = 10) {
  Value::Array table;
  for (std::size_t i = 0; i < count; ++i) {
    const double level = 10.0 - static_cast<double>(i);
    table.push_back(Value(Value::Dictionary{
        {"color1", Value(Value::Array{Value(level * 10), Value(0), Value(255)})},
        {"text", Value("L" + std::to_string(static_cast<int>(level)))},
    }));
  }
  return table;
}

double relativeLuminance(const Color& c) {
  auto lin = [](double v) { return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
  return 0.2126 * lin(c.red) + 0.7152 * lin(c.green) + 0.0722 * lin(c.blue);
}

TEST(MoodLevelsPresentation, ShippedTableHasTenReadableLevels) {
  const MoodLevelsPresentation shipped(MoodLevelTableFiles{});
  ASSERT_EQ(shipped.levels().size(), 10u);
  std::set<std::string> labels;
  for (const auto& level : shipped.levels()) {
    EXPECT_FALSE(level.text.empty());
    labels.insert(level.text);
    // White labels on the tiles need a contrast of at least 4.5 : 1.
    EXPECT_GE(1.05 / (relativeLuminance(level.baseColor) + 0.05), 4.5) << level.text;
    EXPECT_EQ(level.baseColor.alpha, 1.0);
  }
  EXPECT_EQ(labels.size(), 10u);

  auto words = parsePropertyList(shippedEmotionsList());
  ASSERT_TRUE(std::holds_alternative<Value>(words));
  const Value::Array* list = std::get<Value>(words).asArray();
  ASSERT_NE(list, nullptr);
  EXPECT_GE(list->size(), 90u);
  std::set<std::string> unique;
  for (const Value& w : *list) {
    ASSERT_TRUE(w.asString());
    unique.insert(*w.asString());
  }
  EXPECT_EQ(unique.size(), list->size());
}

TEST(MoodLevelsPresentation, LevelToTablePosition) {
  const MoodLevelsPresentation p(rampTable());
  EXPECT_EQ(p.presentationForMoodLevel(11), std::nullopt);
  EXPECT_EQ(p.presentationForMoodLevel(10)->text, "L10");
  EXPECT_EQ(p.presentationForMoodLevel(1)->text, "L1");
  EXPECT_EQ(p.presentationForMoodLevel(0), std::nullopt);
  EXPECT_EQ(p.presentationForMoodLevel(-3), std::nullopt);
  EXPECT_EQ(p.presentationForMoodLevel(LONG_MIN), std::nullopt);
  EXPECT_EQ(p.presentationForMoodLevel(LONG_MAX), std::nullopt);
  // A short table has no entries for the low levels.
  const MoodLevelsPresentation shortTable(rampTable(3));
  EXPECT_EQ(shortTable.presentationForMoodLevel(8)->text, "L8");
  EXPECT_EQ(shortTable.presentationForMoodLevel(7), std::nullopt);
  EXPECT_EQ(shortTable.interpolatedColorForMoodLevel(5), std::nullopt);
  EXPECT_TRUE(shortTable.interpolatedColorForMoodLevel(9.5));
}

TEST(MoodLevelsPresentation, FractionalLevelColors) {
  const MoodLevelsPresentation p(rampTable());
  const std::vector<std::pair<double, double>> cases = {
      {9.5, 95}, {9.25, 92.5}, {1.0, 10}, {1.5, 15},    {0, 10},   {-7, 10},
      {10, 100}, {12, 100},    {5, 50},   {5.75, 57.5}, {0.5, 10},
  };
  for (const auto& [level, red] : cases) {
    auto c = p.interpolatedColorForMoodLevel(level);
    ASSERT_TRUE(c) << level;
    EXPECT_NEAR(c->red * 255, red, 1e-9) << level;
    EXPECT_NEAR(c->blue, 1.0, 1e-12);
    EXPECT_NEAR(c->alpha, 1.0, 1e-12);
  }
  auto rgb = p.interpolatedRGBForMoodLevel(9.5);
  ASSERT_TRUE(rgb);
  EXPECT_FLOAT_EQ((*rgb)[0], static_cast<float>(95.0 / 255));
  EXPECT_FLOAT_EQ((*rgb)[3], 1.0f);
  EXPECT_EQ(p.interpolatedColorForMoodLevel(std::nan("")), std::nullopt);
}

TEST(MoodLevelsPresentation, UserTableReplacesTheShippedOneWhole) {
  testing::TempDir library;
  const MoodLevelTableFiles files{library.path(), {}};
  EXPECT_EQ(files.applicationNewCaptionURL(), library / "mood.plist");
  EXPECT_EQ(MoodLevelTableFiles{}.applicationNewCaptionURL(), std::filesystem::path());

  const auto shipped = MoodLevelsPresentation(files).levels();
  Value::Array mine = rampTable(4);
  ASSERT_FALSE(writeMoodLevelTable(files, mine));
  // No merging: four levels, the rest are simply missing.
  EXPECT_EQ(MoodLevelsPresentation(files).levels().size(), 4u);
  EXPECT_EQ(MoodLevelsPresentation(files).presentationForMoodLevel(10)->text, "L10");

  // A damaged file does not wipe the labels: the shipped table stands in.
  testing::writeFile(library / "mood.plist", "<plist><array><dict>");
  EXPECT_EQ(MoodLevelsPresentation(files).levels(), shipped);
  testing::writeFile(library / "mood.plist", "<?xml version=\"1.0\"?><plist><string>x</string></plist>");
  EXPECT_EQ(MoodLevelsPresentation(files).levels(), shipped);

  // A shipped table from a file, as an installation may provide.
  ASSERT_FALSE(writePropertyListFile(library / "custom.plist", Value(rampTable())));
  std::filesystem::remove(library / "mood.plist");
  const MoodLevelTableFiles custom{library.path(), library / "custom.plist"};
  EXPECT_EQ(MoodLevelsPresentation(custom).presentationForMoodLevel(3)->text, "L3");

  // The process-wide files are what a plain instance reads, with no cache.
  MoodLevelTableFiles::setCurrent(files);
  EXPECT_EQ(MoodLevelsPresentation::defaultMoodLevels().levels(), shipped);
  ASSERT_FALSE(writeMoodLevelTable(files, rampTable()));
  EXPECT_EQ(MoodLevelsPresentation::colorsMoodLevels().presentationForMoodLevel(1)->text, "L1");
  MoodLevelTableFiles::setCurrent({});
}

TEST(MoodLevelsPresentation, EditedColorsKeepTheirFractions) {
  testing::TempDir library;
  const MoodLevelTableFiles files{library.path(), {}};
  Value::Array table = rampTable();
  table[0] = tableEntryFromPresentation("Sunny", Color::fromRGB255(189, 178.5, 0.5));
  table[1] = tableEntryFromPresentation("Bright", Color(0.123456789, 1.0 / 3, 2.0 / 3));
  ASSERT_FALSE(writeMoodLevelTable(files, table));
  const auto read = std::get<Value>(readPropertyListFile(files.applicationNewCaptionURL()));
  const Value& color = (*read.asArray())[0]["color1"];
  ASSERT_TRUE(color.asArray());
  EXPECT_NEAR((*color.asArray())[1].toDouble(), 178.5, 1e-9);
  EXPECT_NEAR((*color.asArray())[2].toDouble(), 0.5, 1e-9);
  const MoodLevelsPresentation p(files);
  EXPECT_EQ(p.presentationForMoodLevel(10)->text, "Sunny");
  EXPECT_NEAR(p.presentationForMoodLevel(9)->baseColor.red, 0.123456789, 1e-9);
  EXPECT_NEAR(p.presentationForMoodLevel(9)->baseColor.green, 1.0 / 3, 1e-9);

  // Entries that lack a colour or a text read as black and empty.
  const MoodLevelPresentation odd =
      presentationFromTableEntry(Value(Value::Dictionary{{"color1", Value(Value::Array{Value(255)})}}));
  EXPECT_EQ(odd.text, "");
  EXPECT_EQ(odd.baseColor, Color(1, 0, 0));
}

}  // namespace
}  // namespace lumeo
