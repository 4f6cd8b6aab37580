// The typed settings: what a fresh install reads, which reads and writes send
// notifications, the keys' exact spellings on disk, and the few accessors
// with rules of their own (backup counter, colours, location mode).
#include "store/mood_user_defaults_operator.h"

#include <gtest/gtest.h>

#include <set>

#include "platform/notification_center.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {
namespace {

class MoodUserDefaultsOperatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = UserDefaults::standard();
    storage_ = std::make_shared<InMemoryUserDefaultsStorage>();
    defaults_ = std::make_shared<UserDefaults>(storage_);
    UserDefaults::setStandard(defaults_);
  }
  void TearDown() override { UserDefaults::setStandard(previous_); }

  // Counts posts of `name` while the returned observer lives.
  ScopedObserver count(const char* name, int& counter) {
    return ScopedObserver(NotificationCenter::defaultCenter(), name, nullptr,
                          [&counter](const Notification&) { ++counter; });
  }

  MoodUserDefaultsOperator& op() { return MoodUserDefaultsOperator::sharedOperator(); }

  std::shared_ptr<UserDefaults> previous_;
  std::shared_ptr<InMemoryUserDefaultsStorage> storage_;
  std::shared_ptr<UserDefaults> defaults_;
};

TEST_F(MoodUserDefaultsOperatorTest, FreshInstallReadsEveryDefaultWithoutWriting) {
  EXPECT_TRUE(op().isDropboxReminderEnabled()) << "on before the user made any choice";
  EXPECT_FALSE(op().isDropboxReminderEnabledExists());
  EXPECT_FALSE(op().isDropboxSynchronizeEnabled());
  EXPECT_EQ(op().dropboxCounter(), 0);
  EXPECT_FALSE(op().lastBackupDate());
  EXPECT_FALSE(op().recentBackupMissedLastNotificationDate());
  EXPECT_FALSE(op().isSyncingEnabled());
  EXPECT_FALSE(op().syncingService());
  EXPECT_FALSE(op().isMapAutomaticSelectLocation());
  EXPECT_FALSE(op().isMapAutomaticSelectLocationObject());
  EXPECT_FALSE(op().gradientColorEnabled());
  EXPECT_EQ(op().fromColor(), Color(233 / 255.0, 55 / 255.0, 0, 1));
  EXPECT_EQ(op().middleColor(), Color(189 / 255.0, 178.5 / 255.0, 0.5 / 255.0, 1));
  EXPECT_EQ(op().toColor(), Color(133 / 255.0, 134 / 255.0, 110 / 255.0, 1));
  EXPECT_FALSE(op().fromColorExists());
  EXPECT_FALSE(op().graphIncreaseWidth());
  EXPECT_EQ(op().chartType(), 0);
  EXPECT_TRUE(op().remindersAlarms().empty());
  EXPECT_FALSE(op().remindersAlarmsExists());
  EXPECT_FALSE(op().remindersText());
  EXPECT_FALSE(op().remindersTextExists());
  EXPECT_FALSE(op().templateText());
  EXPECT_FALSE(op().reminderTemplateText());

  EXPECT_EQ(storage_->writeCount(), 0);
  EXPECT_TRUE(defaults_->persistentDomain().empty());
}

TEST_F(MoodUserDefaultsOperatorTest, FirstReadOfGraphSmoothedStoresTrueAndTellsObserversOnce) {
  int smoothPosts = 0;
  int widthPosts = 0;
  auto smooth = count(MoodGraphSmoothChangedNotification, smoothPosts);
  auto width = count(MoodGraphLineWidthChangedNotification, widthPosts);

  EXPECT_FALSE(op().graphSmoothedExists());
  EXPECT_TRUE(op().graphSmoothed());
  EXPECT_EQ(smoothPosts, 1);
  EXPECT_EQ(storage_->load().at("MoodGraphSmoothed"), Value(true));

  EXPECT_TRUE(op().graphSmoothed());
  EXPECT_EQ(smoothPosts, 1) << "only the first read stores the default";

  EXPECT_FALSE(op().setGraphSmoothed(false));
  EXPECT_FALSE(op().graphSmoothed());
  EXPECT_EQ(smoothPosts, 2);
  EXPECT_EQ(widthPosts, 0);
}

TEST_F(MoodUserDefaultsOperatorTest, LineWidthSetterTellsObserversEachTime) {
  int widthPosts = 0;
  int smoothPosts = 0;
  auto width = count(MoodGraphLineWidthChangedNotification, widthPosts);
  auto smooth = count(MoodGraphSmoothChangedNotification, smoothPosts);
  EXPECT_FALSE(op().setGraphIncreaseWidth(true));
  EXPECT_TRUE(op().graphIncreaseWidth());
  EXPECT_FALSE(op().setGraphIncreaseWidth(true));
  EXPECT_EQ(widthPosts, 2);
  EXPECT_EQ(smoothPosts, 0);
}

TEST_F(MoodUserDefaultsOperatorTest, SettersStoreUnderTheKeysUsersAlreadyHave) {
  EXPECT_FALSE(op().setIsDropboxReminderEnabled(false));
  EXPECT_FALSE(op().setIsDropboxSynchronizeEnabled(true));
  EXPECT_FALSE(op().setLastBackupDate(Date::fromTimeIntervalSince1970(10)));
  EXPECT_FALSE(op().setRecentBackupMissedLastNotificationDate(Date::fromTimeIntervalSince1970(20)));
  EXPECT_FALSE(op().setIsSyncingEnabled(true));
  EXPECT_FALSE(op().setSyncingService(std::string("iCloud")));
  EXPECT_FALSE(op().setIsMapAutomaticSelectLocation(true));
  EXPECT_FALSE(op().setGradientColorEnabled(true));
  EXPECT_FALSE(op().setFromColor(Color(1, 0, 0)));
  EXPECT_FALSE(op().setMiddleColor(Color(0, 1, 0)));
  EXPECT_FALSE(op().setToColor(Color(0, 0, 1)));
  EXPECT_FALSE(op().setGraphSmoothed(true));
  EXPECT_FALSE(op().setGraphIncreaseWidth(true));
  EXPECT_FALSE(op().setChartType(4));
  EXPECT_FALSE(op().setRemindersAlarms({Value::Dictionary{{"on", true}}}));
  EXPECT_FALSE(op().setRemindersText(std::string("How are you feeling right now?")));
  EXPECT_FALSE(op().setTemplateText(std::string("#work ")));
  EXPECT_FALSE(op().setReminderTemplateText(std::string("")));
  EXPECT_FALSE(op().setIsDropboxReminderEnabled(true));
  op().setDropboxCounter(1);

  std::set<std::string> keys;
  for (const auto& [key, value] : storage_->load()) keys.insert(key);
  EXPECT_EQ(keys,
            (std::set<std::string>{
                "MoodDropboxReminderEnabled", "MoodDropboxSynchronizeEnabled", "MoodDropboxCounter",
                "kLastBackupDateKey", "kRecentBackupMissedLastNotificationDateKey", "MoodSyncingEnabled",
                "MoodSyncingService", "kIsMapAutomaticSelectLocation", "MoodGradientEnabled",
                "MoodGradientFromColor", "MoodGradientMiddleColor", "MoodGradientToColor",
                "MoodGraphSmoothed", "kGraphIncreaseWidth", "kMoodSummaryChartType", "alarm",
                "kRemindersTextKey", "kTemplateKey", "kReminderTemplateKey"}));

  // Typed values read back; the empty hand-over text is a value, not absence.
  EXPECT_EQ(op().chartType(), 4);
  EXPECT_EQ(op().syncingService(), "iCloud");
  EXPECT_EQ(op().reminderTemplateText(), "");
  EXPECT_TRUE(op().reminderTemplateTextExists());
  EXPECT_EQ(op().remindersAlarms().size(), 1u);
  EXPECT_EQ(op().lastBackupDate(), Date::fromTimeIntervalSince1970(10));
  EXPECT_EQ(storage_->load().at("kMoodSummaryChartType").type(), Value::Type::kInteger);
  EXPECT_EQ(storage_->load().at("MoodGraphSmoothed").type(), Value::Type::kBool);

  // Clearing optional settings removes their keys.
  EXPECT_FALSE(op().setSyncingService(std::nullopt));
  EXPECT_FALSE(op().setLastBackupDate(std::nullopt));
  EXPECT_FALSE(op().syncingServiceExists());
  EXPECT_FALSE(op().lastBackupDateExists());
}

TEST_F(MoodUserDefaultsOperatorTest, BackupCounterCountsOnlyWhileTheReminderIsOn) {
  EXPECT_EQ(op().setDropboxCounter(1), 1) << "on by default";
  EXPECT_EQ(op().setDropboxCounter(9), 10);
  EXPECT_FALSE(op().setIsDropboxReminderEnabled(false));
  EXPECT_FALSE(op().setDropboxCounter(1));
  EXPECT_EQ(op().dropboxCounter(), 10);
  EXPECT_FALSE(op().setIsDropboxReminderEnabled(true));
  EXPECT_EQ(op().setDropboxCounter(1), 11);
}

TEST_F(MoodUserDefaultsOperatorTest, GradientColoursRoundTripAndDamagedOnesFallBackToDefaults) {
  const Color picked(0.2, 0.4, 0.6, 1);
  EXPECT_FALSE(op().setMiddleColor(picked));
  EXPECT_EQ(op().middleColor(), picked);
  EXPECT_TRUE(op().middleColorExists());

  EXPECT_FALSE(defaults_->setString(kMoodGradientFromColor, "not a colour"));
  EXPECT_FALSE(defaults_->setObject(kMoodGradientToColor, Value::Dictionary{{"red", 1.0}}));
  EXPECT_EQ(op().fromColor(), MoodUserDefaultsOperator::defaultFromColor());
  EXPECT_EQ(op().toColor(), MoodUserDefaultsOperator::defaultToColor());
}

TEST_F(MoodUserDefaultsOperatorTest, LocationModeDistinguishesOffFromNeverSet) {
  EXPECT_FALSE(op().setIsMapAutomaticSelectLocation(false));
  EXPECT_EQ(op().isMapAutomaticSelectLocationObject(), false) << "a choice of off is kept";
  EXPECT_TRUE(op().isMapAutomaticSelectLocationExists());
  EXPECT_FALSE(op().clearIsMapAutomaticSelectLocation());
  EXPECT_FALSE(op().isMapAutomaticSelectLocationObject());
  EXPECT_FALSE(op().isMapAutomaticSelectLocation());
}

TEST_F(MoodUserDefaultsOperatorTest, RegisteredFactoryRemindersCountAsPresent) {
  Value::Array factory{Value::Dictionary{{"on", true}}, Value::Dictionary{{"on", false}},
                       Value::Dictionary{{"on", true}}};
  defaults_->registerDefaults({{kAlarm, factory}});
  EXPECT_TRUE(op().remindersAlarmsExists());
  EXPECT_EQ(op().remindersAlarms(), factory);
  EXPECT_EQ(storage_->writeCount(), 0);
}

TEST_F(MoodUserDefaultsOperatorTest, SharedOperatorFollowsTheCurrentStandardStore) {
  EXPECT_FALSE(op().setTemplateText(std::string("first store")));
  auto other = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  UserDefaults::setStandard(other);
  EXPECT_FALSE(op().templateText());
  EXPECT_FALSE(op().setTemplateText(std::string("second store")));
  EXPECT_EQ(defaults_->stringForKey(kTemplateKey), "first store");

  MoodUserDefaultsOperator bound(defaults_);
  EXPECT_EQ(bound.templateText(), "first store");
}

}  // namespace
}  // namespace lumeo
