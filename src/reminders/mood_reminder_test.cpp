// Reminder dictionaries as stored by this and by older versions, the sound
// resolution with its one asymmetry, and the catalogue.
#include "reminders/mood_reminder.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "reminders/reminder_test_support.h"
#include "testing/scoped_environment.h"

namespace lumeo {
namespace {

using testing::ScopedEnvironment;
using testing::wallTime;

class MoodReminderTest : public ::testing::Test {
 protected:
  ScopedEnvironment env_{{"TZ", "Europe/Berlin"}};
  ScopedSimulatedClock clock_{Date::fromTimeIntervalSince1970(1718013600)};  // 2024-06-10 12:00 +02
};

TEST_F(MoodReminderTest, FactoryDictionaryReadsAsFixedReminder) {
  Date date = wallTime(2024, 6, 10, 20, 0);
  auto r = MoodReminder::dictionaryToReminder(Value(Value::Dictionary{{"date", date}, {"on", true}}));
  ASSERT_TRUE(r);
  EXPECT_TRUE(r->isEnabled);
  EXPECT_FALSE(r->isPeriodic);
  EXPECT_FALSE(r->isRandom);
  EXPECT_EQ(r->timeFrom, date);
  EXPECT_FALSE(r->timeTo);
  EXPECT_EQ(r->reminderCount, 0);
  EXPECT_FALSE(r->reminderText);
  EXPECT_FALSE(r->templateText);
  EXPECT_EQ(r->soundFilename, "Default.mp3");
  EXPECT_FALSE(r->randomReminder);
}

TEST_F(MoodReminderTest, LegacyDateWinsOnlyForFixedReminders) {
  Date legacy = wallTime(2024, 6, 10, 8, 0);
  Date from = wallTime(2024, 6, 10, 9, 0);
  Value::Dictionary d{{"date", legacy}, {"timeFrom", from}, {"isPeriodic", 0}, {"on", true}};
  EXPECT_EQ(MoodReminder::dictionaryToReminder(Value(d))->timeFrom, legacy);
  d["isPeriodic"] = 1;
  EXPECT_EQ(MoodReminder::dictionaryToReminder(Value(d))->timeFrom, from);
}

TEST_F(MoodReminderTest, FixedReminderIsNeverRandomAndDropsItsDraw) {
  MoodRandomReminder drawn;
  Value::Dictionary d{{"isPeriodic", 0},
                      {"isRandom", 1},
                      {"timeFrom", wallTime(2024, 6, 10, 9, 0)},
                      {"randomReminder", Value(drawn.convertToDictionary())}};
  auto r = MoodReminder::dictionaryToReminder(Value(d));
  EXPECT_FALSE(r->isRandom);
  EXPECT_FALSE(r->randomReminder);
  EXPECT_EQ(r->reminderToDictionary().count("randomReminder"), 0u);
}

TEST_F(MoodReminderTest, WrongTypesReadAsAbsentAndNonDictionariesAreRefused) {
  Value::Dictionary d{{"on", "yes"},
                      {"isPeriodic", "1"},
                      {"timeFrom", "09:00"},
                      {"reminderCount", "4"},
                      {"reminderText", 5},
                      {"templateText", Value::Array{}},
                      {"kSoundFilenameKey", 3},
                      {"randomReminder", "none"}};
  auto r = MoodReminder::dictionaryToReminder(Value(d));
  ASSERT_TRUE(r);
  EXPECT_FALSE(r->isEnabled);
  EXPECT_FALSE(r->isPeriodic);
  EXPECT_FALSE(r->timeFrom);
  EXPECT_EQ(r->reminderCount, 0);
  EXPECT_FALSE(r->reminderText);
  EXPECT_FALSE(r->templateText);
  EXPECT_EQ(r->soundFilename, "Default.mp3");
  EXPECT_FALSE(MoodReminder::dictionaryToReminder(Value("alarm")));
  EXPECT_FALSE(MoodReminder::dictionaryToReminder(Value()));
}

TEST_F(MoodReminderTest, WritingKeepsWhatIsSetAndNeverWritesLegacyKeys) {
  MoodReminder r;
  r.isEnabled = false;
  r.isPeriodic = true;
  r.isRandom = false;
  r.timeFrom = wallTime(2024, 6, 10, 9, 0);
  r.timeTo = wallTime(2024, 6, 10, 17, 0);
  r.reminderCount = 3;
  r.soundFilename = "Gong big.mp3";
  r.randomReminder = MoodRandomReminder();
  Value::Dictionary d = r.reminderToDictionary();
  EXPECT_EQ(d.count("randomReminder"), 0u) << "not random";
  EXPECT_EQ(d.at("timeTo"), Value(*r.timeTo));
  EXPECT_EQ(d.at("reminderCount").toInt(), 3);
  EXPECT_EQ(d.at("isPeriodic"), Value(1));
  EXPECT_EQ(d.at("isRandom"), Value(0));
  EXPECT_EQ(d.at("on"), Value(false));
  EXPECT_EQ(d.count("date") + d.count("sound") + d.count("reminderText") + d.count("templateText"), 0u);
  EXPECT_EQ(d.count("onlyIfNothingRecorded"), 0u) << "older readers see nothing new while the option is off";

  r.onlyIfNothingRecorded = true;
  r.isRandom = true;
  r.reminderText = "Time to check in";
  Value::Dictionary back = r.reminderToDictionary();
  EXPECT_EQ(back.at("onlyIfNothingRecorded"), Value(true));
  ASSERT_EQ(back.count("randomReminder"), 1u);
  auto again = MoodReminder::dictionaryToReminder(Value(back));
  EXPECT_TRUE(again->onlyIfNothingRecorded);
  EXPECT_TRUE(again->isRandom);
  EXPECT_EQ(again->reminderText, "Time to check in");
  EXPECT_EQ(again->reminderToDictionary(), back);
}

TEST_F(MoodReminderTest, ToggledLegacyReminderIsUpgraded) {
  Date date = wallTime(2024, 6, 10, 15, 0);
  auto r = MoodReminder::dictionaryToReminder(
      Value(Value::Dictionary{{"date", date}, {"on", false}, {"sound", 2}}));
  r->isEnabled = true;
  Value::Dictionary d = r->reminderToDictionary();
  EXPECT_EQ(d.at("timeFrom"), Value(date));
  EXPECT_EQ(d.at("kSoundFilenameKey"), Value("Doorbell.mp3"));
  EXPECT_EQ(d.count("date") + d.count("sound"), 0u);
}

TEST(MoodReminderSoundTest, ResolutionTable) {
  struct Case {
    Value::Dictionary dictionary;
    bool replace;
    std::string expected;
  };
  const Case cases[] = {
      {{{"kSoundFilenameKey", "Rooster.mp3"}, {"sound", 1}}, false, "Rooster.mp3"},
      {{{"sound", 1}}, false, "Boat horn.mp3"},
      {{{"sound", 7}}, true, "Atmosphere.mp3"},
      {{{"sound", 8}}, true, "Cordless phone.mp3"},
      {{{"sound", 9}}, false, "Default.mp3"},
      {{{"sound", 0}}, false, "Default.mp3"},
      {{{"sound", 0}}, true, kSystemDefaultSoundName},
      {{{"kSoundFilenameKey", "Default.mp3"}}, true, kSystemDefaultSoundName},
      {{{"kSoundFilenameKey", "Default.mp3"}}, false, "Default.mp3"},
      {{}, true, "Default.mp3"},  // no sound named: the file, not the desktop's sound
      {{}, false, "Default.mp3"},
      {{{"kSoundFilenameKey", "Whistle.ogg"}}, true, "Whistle.ogg"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MoodReminder::soundFilenameFromDict(c.dictionary, c.replace), c.expected)
        << Value(c.dictionary).toString() << " replace " << c.replace;
  }
}

TEST(MoodReminderSoundTest, Catalogue) {
  const auto& names = MoodReminderUtil::reminderSoundFilenames();
  ASSERT_EQ(names.size(), 15u);
  EXPECT_EQ(names.front(), "Default.mp3");
  EXPECT_EQ(names[8], "Rooster.mp3");
  EXPECT_EQ(names.back(), "Click 4.mp3");
  EXPECT_EQ(MoodReminderUtil::soundFilenameAtIndex(2), "Boat horn.mp3");
  EXPECT_FALSE(MoodReminderUtil::soundFilenameAtIndex(-1));
  EXPECT_FALSE(MoodReminderUtil::soundFilenameAtIndex(15));
  EXPECT_EQ(MoodReminderUtil::indexOfSoundFilename("Click 1.mp3"), 11);
  EXPECT_EQ(MoodReminderUtil::indexOfSoundFilename("Whistle.ogg"), -1);
  EXPECT_EQ(MoodReminderUtil::displayNameOfSoundFilename("Boat horn.mp3"), "Boat horn");
}

}  // namespace
}  // namespace lumeo
