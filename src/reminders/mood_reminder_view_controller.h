// The editor of one reminder: a fixed time, or a window with a count and a
// random switch; its own text, template and sound. Saving always turns the
// reminder on, makes a fresh draw for a random one, puts it into the stored
// array at its index (or appends it) and runs a reminder pass. Cancelling
// stores nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/date.h"
#include "reminders/mood_random_reminder.h"
#include "reminders/mood_reminder.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodUserDefaultsOperator;
class ReminderScheduler;

class MoodReminderViewController : public MoodViewController {
 public:
  static constexpr const char* kReminderTextPlaceholder = "Enter your reminder message";
  static constexpr const char* kTemplateTextPlaceholder = "Create your template for this reminder";
  static constexpr std::int64_t kMinimumCount = 1;
  static constexpr std::int64_t kMaximumCount = 100;

  // Which date the time picker edits.
  enum RemindType { kFixedTime = 0, kWindowStart = 1, kWindowEnd = 2 };

  // `reminder` none and `index` -1: a new reminder.
  MoodReminderViewController(MoodUserDefaultsOperator& settings, ReminderScheduler& scheduler,
                             std::optional<MoodReminder> reminder, std::int64_t index,
                             RandomSource random = systemRandomSource());

  void viewDidLoad();
  // Clamps the count into the stepper's range, 1...100.
  void updateControlsValues();

  // Today at the hour (10 for the start, 18 for the end), rounded.
  static Date startTime(int hour);
  // Back to the last multiple of five minutes, seconds kept.
  static Date roundDate(Date date);

  void periodicValueChanged(bool periodic);
  void randomSwitchValueChanged(bool random);
  void fromButtonClick();
  void toButtonClick();
  void timePickerValueChanged(Date date);
  void stepperValueChanged(std::int64_t count);
  void setReminderText(const std::string& text) { reminderText_ = text; }
  void setTemplateText(const std::string& text) { templateText_ = text; }
  // What the two text views hold (loaded from the reminder by viewDidLoad).
  const std::string& reminderText() const { return reminderText_; }
  const std::string& templateText() const { return templateText_; }

  void saveClick();
  void cancelClick();

  MoodReminder& reminder() { return reminder_; }
  const MoodReminder& reminder() const { return reminder_; }
  std::int64_t index() const { return index_; }
  RemindType remindType() const { return remindType_; }
  bool pickerVisible() const { return pickerVisible_; }
  // The date the picker shows.
  std::optional<Date> pickerDate() const;
  std::string countLabel() const;
  bool left() const { return left_; }
  // Called when the editor leaves (saved or cancelled).
  void setLeaveHandler(std::function<void()> handler) { onLeave_ = std::move(handler); }

  // The order of the stored array that the save works on: fixed before
  // periodic, fixed reminders by their legacy "date", periodic ones by
  // "timeFrom"; pairs without the key keep their stored order.
  static bool saveOrder(const Value& a, const Value& b);

 private:
  void leave();

  MoodUserDefaultsOperator& settings_;
  ReminderScheduler& scheduler_;
  MoodReminder reminder_;
  bool hadReminder_;
  std::int64_t index_;
  RandomSource random_;
  RemindType remindType_ = kFixedTime;
  bool pickerVisible_ = false;
  std::string reminderText_;
  std::string templateText_;
  bool left_ = false;
  std::function<void()> onLeave_;
};

}  // namespace lumeo
