// The sound picker of a reminder: one row per catalogue sound, a check at
// the reminder's sound (row 0 when it is not in the catalogue). A tap sets
// the sound on the editor's reminder at once and plays it, except row 0,
// which is the desktop's own sound and has no preview.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "reminders/mood_reminder.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodUserDefaultsOperator;
class ReminderScheduler;

// Plays a sound file for the preview. The front end's; the default is mute.
class ReminderSoundPlayer {
 public:
  virtual ~ReminderSoundPlayer() = default;
  virtual void play(const std::filesystem::path& file) { (void)file; }
  virtual void stop() {}
};

class MoodReminderSoundViewController : public MoodViewController {
 public:
  // `soundsDirectory` holds the catalogue's files.
  MoodReminderSoundViewController(MoodReminder& reminder, std::filesystem::path soundsDirectory,
                                  std::shared_ptr<ReminderSoundPlayer> player = nullptr);

  std::size_t numberOfRows() const;
  // The localised name without extension.
  std::string titleForRow(std::size_t row) const;
  std::size_t checkedRow() const;
  void didSelectRow(std::size_t row);

 private:
  MoodReminder& reminder_;
  std::filesystem::path soundsDirectory_;
  std::shared_ptr<ReminderSoundPlayer> player_;
};

// The global notification text. Each change is stored at once; Return
// also runs a reminder pass and leaves, while the back button leaves
// without one (the pending notifications keep the old text until the
// next pass).
class MoodNotificationTextEditViewController : public MoodViewController {
 public:
  MoodNotificationTextEditViewController(MoodUserDefaultsOperator& settings, ReminderScheduler& scheduler);
  std::string text() const;
  void textViewDidChange(const std::string& text);
  void returnPressed();
  void backButtonClicked() { left_ = true; }
  bool left() const { return left_; }

 private:
  MoodUserDefaultsOperator& settings_;
  ReminderScheduler& scheduler_;
  bool left_ = false;
};

}  // namespace lumeo
