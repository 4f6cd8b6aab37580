// The reminder list: the global notification text on top, one row per
// reminder below, each with its switch. What the screen reads, when it
// writes the array back, and when it asks for a reminder pass. The list's
// order is a sorted copy of the stored array; it is stored before the
// editor opens, since the editor addresses reminders by their position in
// the stored array.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "platform/value.h"
#include "reminders/mood_reminder.h"
#include "shell/mood_view_controller.h"
#include "shell/presenter.h"

namespace lumeo {

class MoodUserDefaultsOperator;
class ReminderScheduler;

// How a row of the list shows one reminder.
struct MoodRemindersCell {
  bool switchOn = false;
  std::string timeText;  // "09:00 - 17:00" or "20:00", in the short time style
  RGBAColor timeTextColor;

  static MoodRemindersCell setAlarmInfo(const Value& alarm);
  static constexpr RGBAColor kDisabledColor{0.5765, 0.5137, 0.4118, 1};
};

class MoodRemindersViewController : public MoodViewController {
 public:
  MoodRemindersViewController(MoodUserDefaultsOperator& settings, ReminderScheduler& scheduler);

  // On each appearance: a sorted copy of the stored reminders (fixed before
  // periodic, then by start time).
  void loadAlarms();
  const Value::Array& alarmInfoArray() const { return alarmInfoArray_; }
  std::int64_t alarmForTimeEditing() const { return alarmForTimeEditing_; }

  // Section 0: the notification message and a spacer; section 1: reminders.
  std::size_t numberOfRowsInSection(int section) const;
  bool noAlarmsLabelVisible() const { return alarmInfoArray_.empty(); }
  // The global text shown in row 0.
  std::string notificationMessage() const;

  // What selecting a row or pressing add opens.
  struct Destination {
    enum class Kind { kNone, kTextEditor, kReminderEditor } kind = Kind::kNone;
    std::optional<MoodReminder> reminder;  // the editor's reminder; none for a new one
    std::int64_t index = -1;               // -1 for a new reminder
  };
  // Reminder rows open the editor only in editing mode, after the list was
  // stored in its shown order.
  Destination didSelectRow(int section, std::size_t row, bool editing);
  Destination add();

  // A row's switch: the row's dictionary is rewritten from the reminder
  // (which upgrades a legacy dictionary), and the list is saved.
  void settingsCellDidChangeAlarmInfo(const MoodReminder& reminder, std::size_t index);
  // Removes the row; nothing is stored until saveAlarms(). True when the
  // "no reminders" label now fades in.
  bool commitDeleteRow(std::size_t index);
  // Stores the list as it stands and runs a reminder pass.
  void saveAlarms();
  // Done: saves and leaves.
  void done();

  static bool listOrder(const Value& a, const Value& b);

 private:
  void storeAlarms();

  MoodUserDefaultsOperator& settings_;
  ReminderScheduler& scheduler_;
  Value::Array alarmInfoArray_;
  std::int64_t alarmForTimeEditing_ = -1;
};

}  // namespace lumeo
