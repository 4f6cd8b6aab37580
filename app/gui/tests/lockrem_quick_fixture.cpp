// What the Quick Tests of the window lock, the lock settings and the
// reminder screens (lockrem_quick/) add to `Fixture`: `LockRem` shows what
// these tests look at from the outside, the stored passcode and key and the
// sounds the picker played, and stores a reminder past the screens.
#include <memory>

#include "gui_session.h"
#include "gui_test_support.h"
#include "lock/mood_passcode_storage.h"
#include "platform/user_defaults.h"
#include "platform/value.h"
#include "reminder_screens.h"
#include "store/settings_keys.h"

namespace lumeo::gui::testing {

// Remembers what the sound picker asked to play.
class RecordingSoundPlayer : public ReminderSoundPlayer {
 public:
  QStringList played;
  int stops = 0;
  void play(const std::filesystem::path& file) override {
    played.append(QString::fromStdString(file.filename().string()));
  }
  void stop() override { ++stops; }
};

class LockRemFixture : public QObject {
  Q_OBJECT
 public:
  explicit LockRemFixture(GuiFixture& fixture)
      : fixture_(fixture), player_(std::make_shared<RecordingSoundPlayer>()) {
    setReminderSoundPlayer(player_);
  }

  Q_INVOKABLE QString passcode() const {
    return QString::fromStdString(MoodPasscodeStorage::passCode().value_or(""));
  }
  Q_INVOKABLE QString secretKey() const {
    return QString::fromStdString(MoodPasscodeStorage::secretKey().value_or(""));
  }
  // Adds a window reminder of `count` moments from now to an hour later,
  // past the screens (as an older version or a restore would store it).
  Q_INVOKABLE void storeWindowReminder(int count) {
    const Value current = fixture_.session().defaults()->objectForKey(kAlarm);
    Value::Array alarms = current.asArray() ? *current.asArray() : Value::Array{};
    Date now = Date::now();
    alarms.push_back(Value(Value::Dictionary{{"on", Value(true)},
                                             {"isPeriodic", Value(std::int64_t{1})},
                                             {"isRandom", Value(std::int64_t{0})},
                                             {"timeFrom", Value(now)},
                                             {"timeTo", Value(now.dateByAddingTimeInterval(3600))},
                                             {"reminderCount", Value(std::int64_t{count})}}));
    (void)fixture_.session().defaults()->setObject(kAlarm, Value(alarms));
    fixture_.session().defaults()->synchronize();
  }
  Q_INVOKABLE QStringList soundsPlayed() const { return player_->played; }
  Q_INVOKABLE void clearSounds() { player_->played.clear(); }

 private:
  GuiFixture& fixture_;
  std::shared_ptr<RecordingSoundPlayer> player_;
};

const FixtureSingleton kLockRem("LockRem", [](GuiFixture& fixture) { return new LockRemFixture(fixture); });

}  // namespace lumeo::gui::testing

#include "lockrem_quick_fixture.moc"
