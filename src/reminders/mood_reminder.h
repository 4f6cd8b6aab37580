// One reminder to record a mood and its dictionary form, which is the only
// form in which reminders persist: an array of these dictionaries under the
// settings key "alarm", copied as it stands into backups. Also the catalogue
// of reminder sounds and how a dictionary's sound is resolved.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/value.h"
#include "reminders/mood_random_reminder.h"

namespace lumeo {

// Keys of a reminder dictionary. Their spelling is on users' disks.
inline constexpr char kReminderOnKey[] = "on";
inline constexpr char kReminderSoundFilenameKey[] = "kSoundFilenameKey";
inline constexpr char kReminderIsPeriodicKey[] = "isPeriodic";
inline constexpr char kReminderIsRandomKey[] = "isRandom";
inline constexpr char kReminderTimeFromKey[] = "timeFrom";
inline constexpr char kReminderTimeToKey[] = "timeTo";
inline constexpr char kReminderCountKey[] = "reminderCount";
inline constexpr char kReminderTextKey[] = "reminderText";
inline constexpr char kReminderTemplateTextKey[] = "templateText";
inline constexpr char kReminderRandomReminderKey[] = "randomReminder";
// Read only: the fixed time and the sound code of dictionaries written by
// old versions. Never written, so a rewrite upgrades the dictionary.
inline constexpr char kReminderLegacyDateKey[] = "date";
inline constexpr char kReminderLegacySoundKey[] = "sound";
// Lumeo's own option, written only when on, so that older readers, which
// ignore unknown keys, see the reminder as it always was: remind only when no
// record was made since the reminder's previous moment.
inline constexpr char kReminderOnlyIfNothingRecordedKey[] = "onlyIfNothingRecorded";

// The name that stands for the desktop's own notification sound, which
// "Default.mp3" turns into when a notification is made.
inline constexpr char kSystemDefaultSoundName[] = "UILocalNotificationDefaultSoundName";
inline constexpr char kDefaultReminderSound[] = "Default.mp3";
// The global notification text that the application seeds on first start.
inline constexpr char kDefaultRemindersText[] = "How are you feeling right now?";

class MoodReminder {
 public:
  bool isEnabled = false;
  bool isRandom = false;  // meaningful only when periodic
  bool isPeriodic = false;
  // Only the hour and minute count; the day is whatever day it was edited on.
  std::optional<Date> timeFrom;
  std::optional<Date> timeTo;
  std::optional<std::string> soundFilename;
  std::int64_t reminderCount = 0;
  std::optional<std::string> reminderText;
  std::optional<std::string> templateText;
  std::optional<MoodRandomReminder> randomReminder;
  bool onlyIfNothingRecorded = false;

  // Reads a reminder dictionary. Keys of the wrong type read as absent; a
  // value that is not a dictionary gives nothing (the caller skips it).
  // Periodic: "isRandom", the sound as stored, and the drawn moments when
  // random. Fixed: the sound as stored, never random, and a legacy "date"
  // overrides "timeFrom".
  static std::optional<MoodReminder> dictionaryToReminder(const Value& dictionary);

  // The dictionary form; an unset field leaves its key out. "randomReminder"
  // is written only for a periodic random reminder that has one.
  Value::Dictionary reminderToDictionary() const;

  // The sound file a dictionary names: "kSoundFilenameKey", else the legacy
  // "sound" code, else none. With `replacesDefaultSoundOnSystemSound`, a
  // dictionary naming "Default.mp3" gets the desktop's own sound
  // (kSystemDefaultSoundName) instead; one naming no sound plays the file
  // "Default.mp3" either way. Other names pass unchecked.
  static std::string soundFilenameFromDict(const Value::Dictionary& dictionary,
                                           bool replacesDefaultSoundOnSystemSound);
};

// The order of stored reminder dictionaries: fixed reminders before
// periodic ones (a numeric "isPeriodic" that is true), periodic ones by
// "timeFrom", fixed ones by the date under `fixedDateKey`. A missing date
// compares equal, so that a stable sort keeps the stored order for such
// pairs.
bool reminderDictionaryPrecedes(const Value& a, const Value& b, const char* fixedDateKey);

class UserDefaults;

// What the application does for reminders at every launch, for front ends
// that run without the application object (the delivery agent): seeds the
// global text if none is stored, and registers the three factory reminders
// (10:00, 15:00 and 20:00 today, only the evening one on, in the old
// {"date", "on"} form) as the fallback of "alarm".
void prepareReminderSettings(UserDefaults& defaults);

// The catalogue of reminder sounds, in the order of the sound list.
class MoodReminderUtil {
 public:
  static const std::vector<std::string>& reminderSoundFilenames();
  // nullopt when the index is outside the catalogue.
  static std::optional<std::string> soundFilenameAtIndex(std::int64_t index);
  // -1 when the name is not in the catalogue.
  static std::int64_t indexOfSoundFilename(const std::string& name);
  // The sound a legacy "sound" code names.
  static std::string soundFilenameForLegacyCode(std::int64_t code);
  // "Boat horn.mp3" -> the localised "Boat horn".
  static std::string displayNameOfSoundFilename(const std::string& name);
};

}  // namespace lumeo
