// The drawn moments of a random reminder. The first draw spreads the shots
// over the window in equal slots with a 30-minute minimum gap; every later
// re-draw throws each existing shot uniformly over the whole window with no
// spacing. The difference is deliberate: the first pattern looks even, the
// later ones are a fair sample. Only a shot's time of day is used in the end,
// since its notification repeats daily at that hour and minute.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "platform/date.h"
#include "platform/value.h"

namespace lumeo {

// A uniform source of 32-bit numbers. Draws reduce it with a plain modulo,
// bias and all, so that a given source always gives the same moments.
using RandomSource = std::function<std::uint32_t()>;
// The system's cryptographic source (arc4random).
RandomSource systemRandomSource();

// Keys of the "randomReminder" dictionary.
inline constexpr char kRandomReminderFromTimeKey[] = "fromTime";
inline constexpr char kRandomReminderToTimeKey[] = "toTime";
inline constexpr char kRandomReminderDateAfterWhichRandomizingPossibleKey[] =
    "dateAfterWhichRandomizingPossible";
inline constexpr char kRandomReminderRepeatCountKey[] = "repeatCount";
inline constexpr char kRandomReminderShotArrayKey[] = "shotArray";
inline constexpr char kRandomReminderShotFireDateKey[] = "fireDate";

class MoodRandomReminderShot {
 public:
  explicit MoodRandomReminderShot(Date fireDate) : fireDate_(fireDate) {}
  // nullopt when the dictionary holds no "fireDate" date.
  static std::optional<MoodRandomReminderShot> initFromDictionary(const Value& dictionary);
  Value::Dictionary convertToDictionary() const;

  // A whole second from the earlier to the later date, both ends possible.
  void randomizeFromDate(Date from, Date toDate, const RandomSource& random);
  Date fireDate() const { return fireDate_; }

 private:
  Date fireDate_;
};

class MoodRandomReminder {
 public:
  explicit MoodRandomReminder(RandomSource random = systemRandomSource());
  // Reads the five keys and one shot per element of "shotArray"; draws
  // nothing. Keys of the wrong type read as absent.
  static MoodRandomReminder initFromDictionary(const Value::Dictionary& dictionary,
                                               RandomSource random = systemRandomSource());
  Value::Dictionary convertToDictionary() const;

  // Stores the window (an unset date stands for now) and recomputes when
  // the next re-draw is allowed.
  void setFromTime(std::optional<Date> fromTime, std::optional<Date> toTime);
  void setRepeatCount(std::uint64_t count) { repeatCount_ = count; }

  // The end of the window as it falls today (or tomorrow, when its hour or
  // its minute is less than the start's; the two tests are independent, so
  // 09:30-17:00 counts as ending tomorrow): re-draws wait until then.
  void recalculateDateAfterWhichRandomizingPossible();
  // The first draw, stratified with a minimum gap; may give fewer shots
  // than asked. Moves toTime on by whole days while it lies before fromTime.
  void recreateRandomShots();
  // The later re-draw, when one is due: every stored shot (up to the repeat
  // count) anywhere in the window. The number of shots never changes.
  void randomizeAllShotsIfNeed();
  bool needToRescheduleRelativelyCurrentDate() const;
  // True when `date` is strictly after dateAfterWhichRandomizingPossible.
  bool needRescheduledRelativelyDate(Date date) const;

  std::optional<Date> fromTime() const { return fromTime_; }
  std::optional<Date> toTime() const { return toTime_; }
  std::uint64_t repeatCount() const { return repeatCount_; }
  std::optional<Date> dateAfterWhichRandomizingPossible() const { return dateAfterWhichRandomizingPossible_; }
  const std::vector<MoodRandomReminderShot>& randomReminderShots() const { return shots_; }
  std::vector<MoodRandomReminderShot>& randomReminderShots() { return shots_; }
  void setRandomSource(RandomSource random) { random_ = std::move(random); }

 private:
  RandomSource random_;
  std::optional<Date> fromTime_;
  std::optional<Date> toTime_;
  std::uint64_t repeatCount_ = 0;
  std::optional<Date> dateAfterWhichRandomizingPossible_;
  std::vector<MoodRandomReminderShot> shots_;
};

}  // namespace lumeo
