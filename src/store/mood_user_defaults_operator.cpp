// Typed settings accessors over the user defaults, with each key's default and
// the notifications that some setters send.
#include "store/mood_user_defaults_operator.h"

#include "platform/log.h"
#include "platform/notification_center.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {

std::optional<Value> optionalValue(const std::optional<std::string>& s) {
  if (!s) return std::nullopt;
  return Value(*s);
}

std::optional<Value> optionalValue(const std::optional<Date>& d) {
  if (!d) return std::nullopt;
  return Value(*d);
}

}  // namespace

MoodUserDefaultsOperator& MoodUserDefaultsOperator::sharedOperator() {
  static MoodUserDefaultsOperator shared;
  return shared;
}

MoodUserDefaultsOperator::MoodUserDefaultsOperator(std::shared_ptr<UserDefaults> defaults)
    : defaults_(std::move(defaults)) {}

std::shared_ptr<UserDefaults> MoodUserDefaultsOperator::defaults() const {
  return defaults_ ? defaults_ : UserDefaults::standard();
}

bool MoodUserDefaultsOperator::exists(const char* key) const {
  return !defaults()->objectForKey(key).isNull();
}

OptionalError MoodUserDefaultsOperator::setOptional(const char* key, const std::optional<Value>& value,
                                                    bool synchronize) {
  auto store = defaults();
  OptionalError error = value ? store->setObject(key, *value) : store->removeObjectForKey(key);
  if (synchronize && !error && !store->synchronize()) error = store->lastError();
  return error;
}

// --- Backup reminder -------------------------------------------------------

bool MoodUserDefaultsOperator::isDropboxReminderEnabled() const {
  Value v = defaults()->objectForKey(kMoodDropboxReminderEnabled);
  return v.isNull() ? true : defaults()->boolForKey(kMoodDropboxReminderEnabled);
}
OptionalError MoodUserDefaultsOperator::setIsDropboxReminderEnabled(bool enabled) {
  return defaults()->setBool(kMoodDropboxReminderEnabled, enabled);
}
bool MoodUserDefaultsOperator::isDropboxReminderEnabledExists() const {
  return exists(kMoodDropboxReminderEnabled);
}

bool MoodUserDefaultsOperator::isDropboxSynchronizeEnabled() const {
  return defaults()->boolForKey(kMoodDropboxSynchronizeEnabled);
}
OptionalError MoodUserDefaultsOperator::setIsDropboxSynchronizeEnabled(bool enabled) {
  return defaults()->setBool(kMoodDropboxSynchronizeEnabled, enabled);
}
bool MoodUserDefaultsOperator::isDropboxSynchronizeEnabledExists() const {
  return exists(kMoodDropboxSynchronizeEnabled);
}

std::int64_t MoodUserDefaultsOperator::dropboxCounter() const {
  return defaults()->integerForKey(kMoodDropboxCounter);
}
std::optional<std::int64_t> MoodUserDefaultsOperator::setDropboxCounter(std::int64_t delta) {
  if (!isDropboxReminderEnabled()) return std::nullopt;
  std::int64_t sum = dropboxCounter() + delta;
  LUMEO_DROP_ERROR(defaults()->setInteger(kMoodDropboxCounter, sum));
  return sum;
}
bool MoodUserDefaultsOperator::dropboxCounterExists() const {
  return exists(kMoodDropboxCounter);
}

std::optional<Date> MoodUserDefaultsOperator::lastBackupDate() const {
  return defaults()->dateForKey(kLastBackupDateKey);
}
OptionalError MoodUserDefaultsOperator::setLastBackupDate(std::optional<Date> date) {
  return setOptional(kLastBackupDateKey, optionalValue(date));
}
bool MoodUserDefaultsOperator::lastBackupDateExists() const {
  return exists(kLastBackupDateKey);
}

std::optional<Date> MoodUserDefaultsOperator::recentBackupMissedLastNotificationDate() const {
  return defaults()->dateForKey(kRecentBackupMissedLastNotificationDateKey);
}
OptionalError MoodUserDefaultsOperator::setRecentBackupMissedLastNotificationDate(std::optional<Date> date) {
  return setOptional(kRecentBackupMissedLastNotificationDateKey, optionalValue(date));
}
bool MoodUserDefaultsOperator::recentBackupMissedLastNotificationDateExists() const {
  return exists(kRecentBackupMissedLastNotificationDateKey);
}

// --- Sync --------------------------------------------------------------------

bool MoodUserDefaultsOperator::isSyncingEnabled() const {
  return defaults()->boolForKey(kMoodSyncingEnabled);
}
OptionalError MoodUserDefaultsOperator::setIsSyncingEnabled(bool enabled) {
  return defaults()->setBool(kMoodSyncingEnabled, enabled);
}
bool MoodUserDefaultsOperator::isSyncingEnabledExists() const {
  return exists(kMoodSyncingEnabled);
}

std::optional<std::string> MoodUserDefaultsOperator::syncingService() const {
  return defaults()->stringForKey(kMoodSyncingService);
}
OptionalError MoodUserDefaultsOperator::setSyncingService(std::optional<std::string> service) {
  return setOptional(kMoodSyncingService, optionalValue(service));
}
bool MoodUserDefaultsOperator::syncingServiceExists() const {
  return exists(kMoodSyncingService);
}

// --- Location ------------------------------------------------------------------

bool MoodUserDefaultsOperator::isMapAutomaticSelectLocation() const {
  return defaults()->boolForKey(kIsMapAutomaticSelectLocation);
}
OptionalError MoodUserDefaultsOperator::setIsMapAutomaticSelectLocation(bool automatic) {
  return defaults()->setBool(kIsMapAutomaticSelectLocation, automatic);
}
std::optional<bool> MoodUserDefaultsOperator::isMapAutomaticSelectLocationObject() const {
  if (!exists(kIsMapAutomaticSelectLocation)) return std::nullopt;
  return defaults()->boolForKey(kIsMapAutomaticSelectLocation);
}
OptionalError MoodUserDefaultsOperator::clearIsMapAutomaticSelectLocation() {
  return defaults()->removeObjectForKey(kIsMapAutomaticSelectLocation);
}
bool MoodUserDefaultsOperator::isMapAutomaticSelectLocationExists() const {
  return exists(kIsMapAutomaticSelectLocation);
}

// --- Level colours -------------------------------------------------------------

bool MoodUserDefaultsOperator::gradientColorEnabled() const {
  return defaults()->boolForKey(kMoodGradientEnabled);
}
OptionalError MoodUserDefaultsOperator::setGradientColorEnabled(bool enabled) {
  return defaults()->setBool(kMoodGradientEnabled, enabled);
}
bool MoodUserDefaultsOperator::gradientColorEnabledExists() const {
  return exists(kMoodGradientEnabled);
}

Color MoodUserDefaultsOperator::colorForKey(const char* key, const Color& fallback) const {
  return Color::fromArchive(defaults()->objectForKey(key)).value_or(fallback);
}

Color MoodUserDefaultsOperator::fromColor() const {
  return colorForKey(kMoodGradientFromColor, defaultFromColor());
}
Color MoodUserDefaultsOperator::middleColor() const {
  return colorForKey(kMoodGradientMiddleColor, defaultMiddleColor());
}
Color MoodUserDefaultsOperator::toColor() const {
  return colorForKey(kMoodGradientToColor, defaultToColor());
}
OptionalError MoodUserDefaultsOperator::setFromColor(const Color& color) {
  return defaults()->setObject(kMoodGradientFromColor, color.archived());
}
OptionalError MoodUserDefaultsOperator::setMiddleColor(const Color& color) {
  return defaults()->setObject(kMoodGradientMiddleColor, color.archived());
}
OptionalError MoodUserDefaultsOperator::setToColor(const Color& color) {
  return defaults()->setObject(kMoodGradientToColor, color.archived());
}
bool MoodUserDefaultsOperator::fromColorExists() const {
  return exists(kMoodGradientFromColor);
}
bool MoodUserDefaultsOperator::middleColorExists() const {
  return exists(kMoodGradientMiddleColor);
}
bool MoodUserDefaultsOperator::toColorExists() const {
  return exists(kMoodGradientToColor);
}

// --- Charts --------------------------------------------------------------------

bool MoodUserDefaultsOperator::graphSmoothed() {
  if (!exists(kMoodGraphSmoothed)) {
    // The default is stored the way a user's choice would be, so observers
    // learn of it the same way.
    LUMEO_DROP_ERROR(setGraphSmoothed(true));
    return true;
  }
  return defaults()->boolForKey(kMoodGraphSmoothed);
}
OptionalError MoodUserDefaultsOperator::setGraphSmoothed(bool smoothed) {
  OptionalError error = defaults()->setBool(kMoodGraphSmoothed, smoothed);
  NotificationCenter::defaultCenter().post(MoodGraphSmoothChangedNotification, this);
  return error;
}
bool MoodUserDefaultsOperator::graphSmoothedExists() const {
  return exists(kMoodGraphSmoothed);
}

bool MoodUserDefaultsOperator::graphIncreaseWidth() const {
  return defaults()->boolForKey(kGraphIncreaseWidth);
}
OptionalError MoodUserDefaultsOperator::setGraphIncreaseWidth(bool increase) {
  OptionalError error = defaults()->setBool(kGraphIncreaseWidth, increase);
  NotificationCenter::defaultCenter().post(MoodGraphLineWidthChangedNotification, this);
  return error;
}
bool MoodUserDefaultsOperator::graphIncreaseWidthExists() const {
  return exists(kGraphIncreaseWidth);
}

std::int64_t MoodUserDefaultsOperator::chartType() const {
  return defaults()->integerForKey(kMoodSummaryChartType);
}
OptionalError MoodUserDefaultsOperator::setChartType(std::int64_t type) {
  return defaults()->setInteger(kMoodSummaryChartType, type);
}
bool MoodUserDefaultsOperator::chartTypeExists() const {
  return exists(kMoodSummaryChartType);
}

// --- Reminders -----------------------------------------------------------------

Value::Array MoodUserDefaultsOperator::remindersAlarms() const {
  return defaults()->arrayForKey(kAlarm).value_or(Value::Array{});
}
OptionalError MoodUserDefaultsOperator::setRemindersAlarms(const Value::Array& alarms) {
  return setOptional(kAlarm, Value(alarms), true);
}
bool MoodUserDefaultsOperator::remindersAlarmsExists() const {
  return exists(kAlarm);
}

std::optional<std::string> MoodUserDefaultsOperator::remindersText() const {
  return defaults()->stringForKey(kRemindersTextKey);
}
OptionalError MoodUserDefaultsOperator::setRemindersText(std::optional<std::string> text) {
  return setOptional(kRemindersTextKey, optionalValue(text), true);
}
bool MoodUserDefaultsOperator::remindersTextExists() const {
  return exists(kRemindersTextKey);
}

// --- Templates -----------------------------------------------------------------

std::optional<std::string> MoodUserDefaultsOperator::templateText() const {
  return defaults()->stringForKey(kTemplateKey);
}
OptionalError MoodUserDefaultsOperator::setTemplateText(std::optional<std::string> text) {
  return setOptional(kTemplateKey, optionalValue(text), true);
}
bool MoodUserDefaultsOperator::templateTextExists() const {
  return exists(kTemplateKey);
}

std::optional<std::string> MoodUserDefaultsOperator::reminderTemplateText() const {
  return defaults()->stringForKey(kReminderTemplateKey);
}
OptionalError MoodUserDefaultsOperator::setReminderTemplateText(std::optional<std::string> text) {
  return setOptional(kReminderTemplateKey, optionalValue(text), true);
}
bool MoodUserDefaultsOperator::reminderTemplateTextExists() const {
  return exists(kReminderTemplateKey);
}

}  // namespace lumeo
