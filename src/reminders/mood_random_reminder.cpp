// The two draws of a random reminder, with the arithmetic kept exactly as the
// stored reminders of earlier versions were drawn: truncations, a
// single-precision quarter, and a modulo that gives its dividend back when
// the divisor is zero.
#include "reminders/mood_random_reminder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/calendar.h"

namespace lumeo {

namespace {

const Date* dateIn(const Value::Dictionary& dictionary, const char* key) {
  auto it = dictionary.find(key);
  return it == dictionary.end() ? nullptr : it->second.asDate();
}

// r mod m, where a zero divisor leaves r as it is (as a division by zero
// that yields 0 would).
std::int64_t modulo(std::uint32_t r, std::int64_t m) {
  if (m == 0) return r;
  return static_cast<std::int64_t>(r) % m;
}

}  // namespace

RandomSource systemRandomSource() {
  return [] { return static_cast<std::uint32_t>(::arc4random()); };
}

// --- Shot -------------------------------------------------------------------

std::optional<MoodRandomReminderShot> MoodRandomReminderShot::initFromDictionary(const Value& dictionary) {
  const Value::Dictionary* d = dictionary.asDictionary();
  if (!d) return std::nullopt;
  const Date* fire = dateIn(*d, kRandomReminderShotFireDateKey);
  if (!fire) return std::nullopt;
  return MoodRandomReminderShot(*fire);
}

Value::Dictionary MoodRandomReminderShot::convertToDictionary() const {
  return {{kRandomReminderShotFireDateKey, Value(fireDate_)}};
}

void MoodRandomReminderShot::randomizeFromDate(Date from, Date toDate, const RandomSource& random) {
  double a = from.timeIntervalSinceReferenceDate();
  double b = toDate.timeIntervalSinceReferenceDate();
  auto low = static_cast<std::int64_t>(std::trunc(std::min(a, b)));
  auto high = static_cast<std::int64_t>(std::trunc(std::max(a, b) + 1.0));
  std::int64_t seconds = low + modulo(random(), high - low);
  fireDate_ = Date::fromTimeIntervalSinceReferenceDate(static_cast<double>(seconds));
}

// --- Reminder ---------------------------------------------------------------

MoodRandomReminder::MoodRandomReminder(RandomSource random) : random_(std::move(random)) {
  if (!random_) random_ = systemRandomSource();
}

MoodRandomReminder MoodRandomReminder::initFromDictionary(const Value::Dictionary& dictionary,
                                                          RandomSource random) {
  MoodRandomReminder reminder(std::move(random));
  if (const Date* d = dateIn(dictionary, kRandomReminderFromTimeKey)) reminder.fromTime_ = *d;
  if (const Date* d = dateIn(dictionary, kRandomReminderToTimeKey)) reminder.toTime_ = *d;
  if (const Date* d = dateIn(dictionary, kRandomReminderDateAfterWhichRandomizingPossibleKey)) {
    reminder.dateAfterWhichRandomizingPossible_ = *d;
  }
  auto count = dictionary.find(kRandomReminderRepeatCountKey);
  if (count != dictionary.end() && count->second.isNumber()) {
    reminder.repeatCount_ = static_cast<std::uint64_t>(std::max<std::int64_t>(0, count->second.toInt()));
  }
  auto shots = dictionary.find(kRandomReminderShotArrayKey);
  if (shots != dictionary.end()) {
    if (const Value::Array* array = shots->second.asArray()) {
      for (const Value& element : *array) {
        if (auto shot = MoodRandomReminderShot::initFromDictionary(element)) reminder.shots_.push_back(*shot);
      }
    }
  }
  return reminder;
}

Value::Dictionary MoodRandomReminder::convertToDictionary() const {
  Value::Dictionary d;
  if (fromTime_) d[kRandomReminderFromTimeKey] = Value(*fromTime_);
  if (toTime_) d[kRandomReminderToTimeKey] = Value(*toTime_);
  if (dateAfterWhichRandomizingPossible_) {
    d[kRandomReminderDateAfterWhichRandomizingPossibleKey] = Value(*dateAfterWhichRandomizingPossible_);
  }
  d[kRandomReminderRepeatCountKey] = Value(static_cast<long long>(repeatCount_));
  Value::Array shots;
  for (const auto& shot : shots_) shots.push_back(Value(shot.convertToDictionary()));
  d[kRandomReminderShotArrayKey] = Value(std::move(shots));
  return d;
}

void MoodRandomReminder::setFromTime(std::optional<Date> fromTime, std::optional<Date> toTime) {
  fromTime_ = fromTime ? *fromTime : Date::now();
  toTime_ = toTime ? *toTime : Date::now();
  recalculateDateAfterWhichRandomizingPossible();
}

void MoodRandomReminder::recalculateDateAfterWhichRandomizingPossible() {
  Calendar calendar = Calendar::current();
  Date from = fromTime_.value_or(Date::now());
  Date to = toTime_.value_or(Date::now());
  std::int64_t fromHour = calendar.component(CalendarUnit::kHour, from);
  std::int64_t fromMinute = calendar.component(CalendarUnit::kMinute, from);
  std::int64_t toHour = calendar.component(CalendarUnit::kHour, to);
  std::int64_t toMinute = calendar.component(CalendarUnit::kMinute, to);
  DateComponents at = calendar.components(kYearToSecond, Date::now());
  at.hour = toHour;
  at.minute = toMinute;
  at.second = 0;
  // Independent on purpose: 09:30-17:00 counts as ending tomorrow.
  if (toHour < fromHour || toMinute < fromMinute) at.day = *at.day + 1;
  dateAfterWhichRandomizingPossible_ = calendar.dateFromComponents(at);
}

void MoodRandomReminder::recreateRandomShots() {
  shots_.clear();
  double from = fromTime_.value_or(Date::now()).timeIntervalSince1970();
  double to = toTime_.value_or(Date::now()).timeIntervalSince1970();
  while (from > to) to += 86400;
  toTime_ = Date::fromTimeIntervalSince1970(to);

  const std::int64_t window = static_cast<std::int64_t>(std::trunc(std::fabs(to - from))) % 86400;
  const auto n = static_cast<std::int64_t>(repeatCount_);
  const std::int64_t share = n == 0 ? 0 : window / n;
  const auto margin = static_cast<std::int64_t>(static_cast<float>(share) * 0.25f);
  const std::int64_t slot = n == 0 ? 0 : (window - 2 * margin) / n;
  const double start = from + static_cast<double>(margin);

  double t = std::trunc(start + static_cast<double>(modulo(random_(), slot)));
  std::int64_t i = 0;
  do {
    if (!(to > t)) break;
    shots_.emplace_back(Date::fromTimeIntervalSince1970(t));
    auto draw = [&] {
      return std::trunc(start + static_cast<double>((i + 1) * slot) +
                        static_cast<double>(modulo(random_(), slot)));
    };
    double candidate = draw();
    const double slotEnd = start + static_cast<double>((i + 2) * slot);
    for (int draws = 1; candidate > slotEnd && draws < 10; ++draws) candidate = draw();
    t = candidate - t >= 1800 ? candidate : t + 1800;
    ++i;
  } while (i < n);
}

void MoodRandomReminder::randomizeAllShotsIfNeed() {
  const bool due = needToRescheduleRelativelyCurrentDate();
  if (!due) return;
  Date from = fromTime_.value_or(Date::now());
  Date to = toTime_.value_or(Date::now());
  for (std::uint64_t i = 0; i < repeatCount_ && i < shots_.size(); ++i) {
    shots_[i].randomizeFromDate(from, to, random_);
  }
}

bool MoodRandomReminder::needToRescheduleRelativelyCurrentDate() const {
  return needRescheduledRelativelyDate(Date::now());
}

bool MoodRandomReminder::needRescheduledRelativelyDate(Date date) const {
  if (!dateAfterWhichRandomizingPossible_) return true;
  return date > *dateAfterWhichRandomizingPossible_;
}

}  // namespace lumeo
