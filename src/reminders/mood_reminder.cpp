// Reading and writing reminder dictionaries, old forms included, and the
// sound catalogue.
#include "reminders/mood_reminder.h"

#include <algorithm>

#include "platform/calendar.h"
#include "platform/localization.h"
#include "platform/user_defaults.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {

const Value* member(const Value::Dictionary& d, const char* key) {
  auto it = d.find(key);
  return it == d.end() ? nullptr : &it->second;
}

bool boolIn(const Value::Dictionary& d, const char* key) {
  const Value* v = member(d, key);
  return v && v->isNumber() && v->toBool();
}

std::optional<Date> dateIn(const Value::Dictionary& d, const char* key) {
  const Value* v = member(d, key);
  if (!v || !v->asDate()) return std::nullopt;
  return *v->asDate();
}

std::optional<std::string> stringIn(const Value::Dictionary& d, const char* key) {
  const Value* v = member(d, key);
  if (!v || !v->asString()) return std::nullopt;
  return *v->asString();
}

// The sound as the dictionary names it, before any replacement.
std::optional<std::string> storedSound(const Value::Dictionary& d) {
  if (auto name = stringIn(d, kReminderSoundFilenameKey)) return name;
  const Value* code = member(d, kReminderLegacySoundKey);
  if (code && code->isNumber()) return MoodReminderUtil::soundFilenameForLegacyCode(code->toInt());
  return std::nullopt;
}

}  // namespace

std::optional<MoodReminder> MoodReminder::dictionaryToReminder(const Value& value) {
  const Value::Dictionary* dp = value.asDictionary();
  if (!dp) return std::nullopt;
  const Value::Dictionary& d = *dp;
  MoodReminder r;
  r.isEnabled = boolIn(d, kReminderOnKey);
  r.isPeriodic = boolIn(d, kReminderIsPeriodicKey);
  r.timeFrom = dateIn(d, kReminderTimeFromKey);
  r.timeTo = dateIn(d, kReminderTimeToKey);
  if (const Value* count = member(d, kReminderCountKey); count && count->isNumber()) {
    r.reminderCount = count->toInt();
  }
  r.reminderText = stringIn(d, kReminderTextKey);
  r.templateText = stringIn(d, kReminderTemplateTextKey);
  r.onlyIfNothingRecorded = boolIn(d, kReminderOnlyIfNothingRecordedKey);
  r.soundFilename = soundFilenameFromDict(d, false);
  if (r.isPeriodic) {
    r.isRandom = boolIn(d, kReminderIsRandomKey);
    if (r.isRandom) {
      const Value* random = member(d, kReminderRandomReminderKey);
      if (random && random->asDictionary()) {
        r.randomReminder = MoodRandomReminder::initFromDictionary(*random->asDictionary());
      }
    }
  } else {
    r.isRandom = false;
    if (auto date = dateIn(d, kReminderLegacyDateKey)) r.timeFrom = date;
  }
  return r;
}

Value::Dictionary MoodReminder::reminderToDictionary() const {
  Value::Dictionary d;
  d[kReminderOnKey] = Value(isEnabled);
  if (soundFilename) d[kReminderSoundFilenameKey] = Value(*soundFilename);
  d[kReminderIsPeriodicKey] = Value(isPeriodic ? 1 : 0);
  d[kReminderIsRandomKey] = Value(isRandom ? 1 : 0);
  if (timeFrom) d[kReminderTimeFromKey] = Value(*timeFrom);
  if (timeTo) d[kReminderTimeToKey] = Value(*timeTo);
  d[kReminderCountKey] = Value(static_cast<long long>(reminderCount));
  if (reminderText) d[kReminderTextKey] = Value(*reminderText);
  if (templateText) d[kReminderTemplateTextKey] = Value(*templateText);
  if (isPeriodic && isRandom && randomReminder) {
    d[kReminderRandomReminderKey] = Value(randomReminder->convertToDictionary());
  }
  if (onlyIfNothingRecorded) d[kReminderOnlyIfNothingRecordedKey] = Value(true);
  return d;
}

std::string MoodReminder::soundFilenameFromDict(const Value::Dictionary& dictionary,
                                                bool replacesDefaultSoundOnSystemSound) {
  std::optional<std::string> name = storedSound(dictionary);
  if (name && *name == kDefaultReminderSound) {
    return replacesDefaultSoundOnSystemSound ? kSystemDefaultSoundName : kDefaultReminderSound;
  }
  // No sound at all plays the file, even with the replacement asked for:
  // only a dictionary that names "Default.mp3" gets the desktop's sound.
  if (!name) return kDefaultReminderSound;
  return *name;
}

void prepareReminderSettings(UserDefaults& defaults) {
  if (defaults.objectForKey(kRemindersTextKey).isNull()) {
    (void)defaults.setString(kRemindersTextKey, localized(kDefaultRemindersText));
  }
  Calendar calendar = Calendar::current();
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  Value::Array alarms;
  for (int hour : {10, 15, 20}) {
    DateComponents at = today;
    at.hour = hour;
    at.minute = 0;
    at.second = 0;
    Date date = calendar.dateFromComponents(at).value_or(Date::now());
    alarms.push_back(
        Value(Value::Dictionary{{kReminderLegacyDateKey, Value(date)}, {kReminderOnKey, Value(hour == 20)}}));
  }
  defaults.registerDefaults({{kAlarm, Value(std::move(alarms))}});
}

// --- Catalogue ----------------------------------------------------------------

const std::vector<std::string>& MoodReminderUtil::reminderSoundFilenames() {
  static const std::vector<std::string> names = {
      "Default.mp3",  "Atmosphere.mp3", "Boat horn.mp3",      "Cordless phone.mp3", "Doorbell.mp3",
      "Gong big.mp3", "Gong small.mp3", "Pendulum clock.mp3", "Rooster.mp3",        "Beep 1.mp3",
      "Beep 2.mp3",   "Click 1.mp3",    "Click 2.mp3",        "Click 3.mp3",        "Click 4.mp3",
  };
  return names;
}

std::optional<std::string> MoodReminderUtil::soundFilenameAtIndex(std::int64_t index) {
  const auto& names = reminderSoundFilenames();
  if (index < 0 || index >= static_cast<std::int64_t>(names.size())) return std::nullopt;
  return names[static_cast<std::size_t>(index)];
}

std::int64_t MoodReminderUtil::indexOfSoundFilename(const std::string& name) {
  const auto& names = reminderSoundFilenames();
  auto it = std::find(names.begin(), names.end(), name);
  return it == names.end() ? -1 : static_cast<std::int64_t>(it - names.begin());
}

std::string MoodReminderUtil::soundFilenameForLegacyCode(std::int64_t code) {
  // The old codes predate the catalogue and follow their own order.
  switch (code) {
    case 1:
      return "Boat horn.mp3";
    case 2:
      return "Doorbell.mp3";
    case 3:
      return "Gong big.mp3";
    case 4:
      return "Gong small.mp3";
    case 5:
      return "Pendulum clock.mp3";
    case 6:
      return "Rooster.mp3";
    case 7:
      return "Atmosphere.mp3";
    case 8:
      return "Cordless phone.mp3";
    default:
      return kDefaultReminderSound;
  }
}

std::string MoodReminderUtil::displayNameOfSoundFilename(const std::string& name) {
  auto dot = name.rfind('.');
  return localized(dot == std::string::npos ? name : name.substr(0, dot));
}

bool reminderDictionaryPrecedes(const Value& a, const Value& b, const char* fixedDateKey) {
  auto periodic = [](const Value& alarm) {
    const Value& v = alarm[kReminderIsPeriodicKey];
    return v.isNumber() && v.toBool();
  };
  bool pa = periodic(a), pb = periodic(b);
  if (pa != pb) return !pa;
  const char* key = pa ? "timeFrom" : fixedDateKey;
  const Date* x = a[key].asDate();
  const Date* y = b[key].asDate();
  return x && y && *x < *y;
}

}  // namespace lumeo
