// The two draws of random reminders: the worked examples with known random
// numbers, the properties of each draw over many seeds (bounds, the first
// draw's 30-minute gap, the re-draw's uniformity), when a re-draw is due,
// and the round trip through the settings file.
#include "reminders/mood_random_reminder.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/clock.h"
#include "platform/linux/plist_user_defaults.h"
#include "reminders/reminder_test_support.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;
using testing::seededSource;
using testing::sequenceSource;
using testing::wallTime;

class MoodRandomReminderTest : public ::testing::Test {
 protected:
  // Seconds of each shot after `from`.
  static std::vector<double> offsets(const MoodRandomReminder& r, Date from) {
    std::vector<double> out;
    for (const auto& shot : r.randomReminderShots())
      out.push_back(shot.fireDate().timeIntervalSinceDate(from));
    return out;
  }
  static MoodRandomReminder firstDraw(Date from, Date to, std::uint64_t n, RandomSource random) {
    MoodRandomReminder r(std::move(random));
    r.setFromTime(from, to);
    r.setRepeatCount(n);
    r.recreateRandomShots();
    return r;
  }

  ScopedEnvironment env_{{"TZ", "Europe/Berlin"}};
  ScopedSimulatedClock clock_{Date::fromTimeIntervalSince1970(1718013600)};  // 2024-06-10 12:00 +02
};

TEST_F(MoodRandomReminderTest, FirstDrawExamples) {
  Date from = wallTime(2024, 6, 10, 9, 0);
  Date to = wallTime(2024, 6, 10, 21, 0);
  // 12 hours, 4 shots: margin 2700 s, slots of 9450 s; with zero draws
  // each shot opens its slot.
  EXPECT_EQ(offsets(firstDraw(from, to, 4, sequenceSource({0})), from),
            (std::vector<double>{2700, 12150, 21600, 31050}));
  // The last number of each slot.
  EXPECT_EQ(offsets(firstDraw(from, to, 4, sequenceSource({9449})), from),
            (std::vector<double>{12149, 21599, 31049, 40499}));
  // Within 30 minutes of its predecessor a shot is pushed to 30 minutes.
  EXPECT_EQ(offsets(firstDraw(from, to, 4, sequenceSource({9000, 0, 9449, 0})), from),
            (std::vector<double>{11700, 13500, 31049, 32849}));

  // 100 shots asked: every shot is its predecessor plus the gap, and the
  // list ends at the window's end with 24 shots.
  auto many = offsets(firstDraw(from, to, 100, sequenceSource({0})), from);
  ASSERT_EQ(many.size(), 24u);
  EXPECT_EQ(many.front(), 108);
  EXPECT_EQ(many.back(), 108 + 23 * 1800);
}

TEST_F(MoodRandomReminderTest, DegenerateWindows) {
  Date from = wallTime(2024, 6, 10, 10, 0);
  // Equal ends, or ends a whole day apart: no window, normally no shot.
  EXPECT_TRUE(firstDraw(from, from, 3, sequenceSource({5})).randomReminderShots().empty());
  EXPECT_TRUE(firstDraw(from, from.dateByAddingTimeInterval(86400), 3, sequenceSource({4000000000u}))
                  .randomReminderShots()
                  .empty());
  // No count: nothing.
  EXPECT_TRUE(firstDraw(from, wallTime(2024, 6, 10, 18, 0), 0, sequenceSource({777777}))
                  .randomReminderShots()
                  .empty());

  // An end before the start moves on by a day: 22 hours.
  auto wrapped = firstDraw(from, wallTime(2024, 6, 10, 8, 0), 2, sequenceSource({0}));
  EXPECT_EQ(wrapped.toTime(), wallTime(2024, 6, 11, 8, 0));
  EXPECT_EQ(offsets(wrapped, from), (std::vector<double>{9900, 39600}));

  // 26 hours apart: the first draw works on 2 hours, stopping at the real end.
  auto longer = firstDraw(from, from.dateByAddingTimeInterval(26 * 3600), 2, sequenceSource({0}));
  EXPECT_EQ(offsets(longer, from), (std::vector<double>{900, 3600}));
}

TEST_F(MoodRandomReminderTest, FirstDrawPropertiesOverManySeeds) {
  Date from = wallTime(2024, 6, 10, 9, 0);
  Date to = wallTime(2024, 6, 10, 17, 0);
  for (std::uint32_t seed = 1; seed <= 2000; ++seed) {
    std::uint64_t n = 1 + seed % 12;
    auto r = firstDraw(from, to, n, seededSource(seed));
    auto shots = offsets(r, from);
    const double window = 8 * 3600;
    const double share = std::floor(window / static_cast<double>(n));
    const double margin = std::floor(share * 0.25);
    ASSERT_FALSE(shots.empty());
    ASSERT_LE(shots.size(), n);
    // Slots of 30 minutes or more always hold all the shots.
    ASSERT_EQ(shots.size(), n) << "seed " << seed;
    for (std::size_t i = 0; i < shots.size(); ++i) {
      ASSERT_GE(shots[i], margin) << "seed " << seed;
      ASSERT_LT(shots[i], window) << "seed " << seed;
      ASSERT_EQ(shots[i], std::floor(shots[i])) << "whole seconds";
      if (i > 0) {
        ASSERT_GE(shots[i] - shots[i - 1], 1800) << "seed " << seed << " shot " << i;
      }
    }
  }
}

TEST_F(MoodRandomReminderTest, ReDrawIsUniformOverTheWholeWindowBothEndsIncluded) {
  // A 10-second window shows both ends; 10^5 draws over 12 hours show the
  // spread: a chi-square test over 24 equal bins.
  Date from = wallTime(2024, 6, 10, 9, 0);
  MoodRandomReminderShot shot(from);
  auto random = seededSource(42);
  std::vector<int> seen(11, 0);
  for (int i = 0; i < 2000; ++i) {
    shot.randomizeFromDate(from.dateByAddingTimeInterval(10), from, random);
    double at = shot.fireDate().timeIntervalSinceDate(from);
    ASSERT_GE(at, 0);
    ASSERT_LE(at, 10);
    seen[static_cast<std::size_t>(at)]++;
  }
  for (int count : seen) EXPECT_GT(count, 100);

  Date to = wallTime(2024, 6, 10, 21, 0);
  const int kDraws = 100000, kBins = 24;
  std::vector<int> bins(kBins, 0);
  for (int i = 0; i < kDraws; ++i) {
    shot.randomizeFromDate(from, to, random);
    double at = shot.fireDate().timeIntervalSinceDate(from);
    ASSERT_GE(at, 0);
    ASSERT_LE(at, 43200);
    bins[std::min(kBins - 1, static_cast<int>(at / (43201.0 / kBins)))]++;
  }
  double chi = 0, expected = static_cast<double>(kDraws) / kBins;
  for (int b : bins) chi += (b - expected) * (b - expected) / expected;
  EXPECT_LT(chi, 49.7) << "23 degrees of freedom, p = 0.001";
}

TEST_F(MoodRandomReminderTest, ReDrawKeepsTheNumberOfShotsAndWaitsForTheWindowEnd) {
  Date from = wallTime(2024, 6, 10, 9, 30);
  Date to = wallTime(2024, 6, 10, 17, 0);
  auto r = firstDraw(from, to, 3, seededSource(7));
  // 09:30-17:00: 00 < 30, so the window counts as ending tomorrow.
  EXPECT_EQ(r.dateAfterWhichRandomizingPossible(), wallTime(2024, 6, 11, 17, 0));
  EXPECT_FALSE(r.needRescheduledRelativelyDate(wallTime(2024, 6, 11, 17, 0)));
  EXPECT_TRUE(r.needRescheduledRelativelyDate(wallTime(2024, 6, 11, 17, 0, 1)));

  auto before = offsets(r, from);
  r.randomizeAllShotsIfNeed();
  EXPECT_EQ(offsets(r, from), before) << "not due yet";

  // A stored list shorter than its count stays short.
  r.randomReminderShots().pop_back();
  clock_.clock().set(wallTime(2024, 6, 12, 8, 0));
  r.randomizeAllShotsIfNeed();
  ASSERT_EQ(r.randomReminderShots().size(), 2u);
  EXPECT_NE(offsets(r, from), std::vector<double>(before.begin(), before.begin() + 2));
  for (double at : offsets(r, from)) {
    EXPECT_GE(at, 0);
    EXPECT_LE(at, 7.5 * 3600);
  }
  r.recalculateDateAfterWhichRandomizingPossible();
  EXPECT_EQ(r.dateAfterWhichRandomizingPossible(), wallTime(2024, 6, 13, 17, 0));

  // 09:00-17:30 ends today.
  auto plain = firstDraw(wallTime(2024, 6, 10, 9, 0), wallTime(2024, 6, 10, 17, 30), 1, seededSource(1));
  EXPECT_EQ(plain.dateAfterWhichRandomizingPossible(), wallTime(2024, 6, 12, 17, 30))
      << "today is the 12th now";
}

TEST_F(MoodRandomReminderTest, UnsetWindowStandsForNow) {
  MoodRandomReminder r;
  r.setFromTime(std::nullopt, wallTime(2024, 6, 10, 18, 0));
  EXPECT_EQ(r.fromTime(), Date::now());
}

TEST_F(MoodRandomReminderTest, SurvivesTheSettingsFile) {
  testing::TempDir dir;
  auto r = firstDraw(wallTime(2024, 6, 10, 9, 0), wallTime(2024, 6, 10, 21, 0), 5, seededSource(3));
  {
    PlistUserDefaults writer(dir / "defaults.plist");
    ASSERT_FALSE(writer.setObject("randomReminder", Value(r.convertToDictionary())));
  }
  PlistUserDefaults reader(dir / "defaults.plist");
  auto stored = reader.dictionaryForKey("randomReminder");
  ASSERT_TRUE(stored);
  auto back = MoodRandomReminder::initFromDictionary(*stored);
  EXPECT_EQ(back.fromTime(), r.fromTime());
  EXPECT_EQ(back.toTime(), r.toTime());
  EXPECT_EQ(back.repeatCount(), 5u);
  EXPECT_EQ(back.dateAfterWhichRandomizingPossible(), r.dateAfterWhichRandomizingPossible());
  EXPECT_EQ(offsets(back, *r.fromTime()), offsets(r, *r.fromTime()));
  EXPECT_EQ(back.convertToDictionary(), r.convertToDictionary());

  // Damaged shots are left out, the rest is read.
  Value::Dictionary damaged = r.convertToDictionary();
  damaged["shotArray"] = Value(Value::Array{Value("x"), Value(Value::Dictionary{{"fireDate", 3}}),
                                            Value(Value::Dictionary{{"fireDate", *r.fromTime()}})});
  damaged["repeatCount"] = Value("five");
  auto partial = MoodRandomReminder::initFromDictionary(damaged);
  EXPECT_EQ(partial.randomReminderShots().size(), 1u);
  EXPECT_EQ(partial.repeatCount(), 0u);
}

}  // namespace
}  // namespace lumeo
