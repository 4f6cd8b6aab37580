// Typed access to the journal's settings: one getter, setter and presence
// test per key, with each key's default and side effects in one place. The
// shared operator works on whatever UserDefaults::standard() is at the time of
// the call, so a test that installs its own store is seen at once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/color.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/user_defaults.h"
#include "platform/value.h"

namespace lumeo {

// Setters write through to the store (see UserDefaults) but don't synchronize,
// except the reminder settings, whose setters do. They return the store's
// error, which callers may drop: the value still shows in this process.
class MoodUserDefaultsOperator {
 public:
  // The process-wide operator around UserDefaults::standard().
  static MoodUserDefaultsOperator& sharedOperator();

  // An operator bound to one store; nullptr means the standard store, looked
  // up at each call.
  explicit MoodUserDefaultsOperator(std::shared_ptr<UserDefaults> defaults = nullptr);

  // --- Backup reminder -----------------------------------------------------
  // True until the user turns it off: an absent key reads as true, so the
  // reminder is on from the first launch, before any choice.
  bool isDropboxReminderEnabled() const;
  OptionalError setIsDropboxReminderEnabled(bool enabled);
  bool isDropboxReminderEnabledExists() const;

  bool isDropboxSynchronizeEnabled() const;
  OptionalError setIsDropboxSynchronizeEnabled(bool enabled);
  bool isDropboxSynchronizeEnabledExists() const;

  // Records applied since install; 0 when absent.
  std::int64_t dropboxCounter() const;
  // Adds `delta` to the stored counter if the backup reminder is enabled and
  // returns the new value; nothing (and no change) when it is disabled. The
  // caller decides about the backup alert at multiples of 10.
  std::optional<std::int64_t> setDropboxCounter(std::int64_t delta);
  bool dropboxCounterExists() const;

  std::optional<Date> lastBackupDate() const;
  OptionalError setLastBackupDate(std::optional<Date> date);  // nothing removes the key
  bool lastBackupDateExists() const;

  std::optional<Date> recentBackupMissedLastNotificationDate() const;
  OptionalError setRecentBackupMissedLastNotificationDate(std::optional<Date> date);
  bool recentBackupMissedLastNotificationDateExists() const;

  // --- Sync ----------------------------------------------------------------
  bool isSyncingEnabled() const;
  OptionalError setIsSyncingEnabled(bool enabled);
  bool isSyncingEnabledExists() const;

  std::optional<std::string> syncingService() const;
  OptionalError setSyncingService(std::optional<std::string> service);  // nothing removes the key
  bool syncingServiceExists() const;

  // --- Location ------------------------------------------------------------
  bool isMapAutomaticSelectLocation() const;
  OptionalError setIsMapAutomaticSelectLocation(bool automatic);
  // The stored choice, or nothing when it was never set (or was cleared).
  std::optional<bool> isMapAutomaticSelectLocationObject() const;
  OptionalError clearIsMapAutomaticSelectLocation();
  bool isMapAutomaticSelectLocationExists() const;

  // --- Level colours -------------------------------------------------------
  bool gradientColorEnabled() const;
  OptionalError setGradientColorEnabled(bool enabled);
  bool gradientColorEnabledExists() const;

  // The gradient's colours; a missing or unreadable value gives the default.
  Color fromColor() const;
  Color middleColor() const;
  Color toColor() const;
  OptionalError setFromColor(const Color& color);
  OptionalError setMiddleColor(const Color& color);
  OptionalError setToColor(const Color& color);
  bool fromColorExists() const;
  bool middleColorExists() const;
  bool toColorExists() const;

  static Color defaultFromColor() { return Color::fromRGB255(233, 55, 0); }
  static Color defaultMiddleColor() { return Color::fromRGB255(189, 178.5, 0.5); }
  static Color defaultToColor() { return Color::fromRGB255(133, 134, 110); }

  // --- Charts --------------------------------------------------------------
  // Smoothing is on by default. The first read on a fresh install stores true
  // through setGraphSmoothed, so the change notification goes out then too.
  bool graphSmoothed();
  // Stores and posts MoodGraphSmoothChangedNotification.
  OptionalError setGraphSmoothed(bool smoothed);
  bool graphSmoothedExists() const;

  bool graphIncreaseWidth() const;
  // Stores and posts MoodGraphLineWidthChangedNotification.
  OptionalError setGraphIncreaseWidth(bool increase);
  bool graphIncreaseWidthExists() const;

  // The summary period; 0 when absent.
  std::int64_t chartType() const;
  OptionalError setChartType(std::int64_t type);
  bool chartTypeExists() const;

  // --- Reminders (these setters synchronize) --------------------------------
  // The reminder dictionaries; the factory list is registered at launch, so
  // this reads it until the user saves a list of their own.
  Value::Array remindersAlarms() const;
  OptionalError setRemindersAlarms(const Value::Array& alarms);
  bool remindersAlarmsExists() const;

  std::optional<std::string> remindersText() const;
  OptionalError setRemindersText(std::optional<std::string> text);
  bool remindersTextExists() const;

  // --- Templates -----------------------------------------------------------
  std::optional<std::string> templateText() const;
  OptionalError setTemplateText(std::optional<std::string> text);
  bool templateTextExists() const;

  // The template of the reminder the user last acted on, or "".
  std::optional<std::string> reminderTemplateText() const;
  OptionalError setReminderTemplateText(std::optional<std::string> text);
  bool reminderTemplateTextExists() const;

 private:
  std::shared_ptr<UserDefaults> defaults() const;
  bool exists(const char* key) const;
  OptionalError setOptional(const char* key, const std::optional<Value>& value, bool synchronize = false);
  Color colorForKey(const char* key, const Color& fallback) const;

  std::shared_ptr<UserDefaults> defaults_;
};

}  // namespace lumeo
