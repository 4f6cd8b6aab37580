// Quick Test of the window lock, the lock settings and the reminder
// screens: the real QML and adapters on a journal in a temporary folder,
// driven by objectName. `LockRem` adds what these tests look at from the
// outside: the stored passcode and key, the `lumeo` command line on the
// same journal, and the sounds the picker played.
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QQmlEngine>
#include <memory>

#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "lock/mood_passcode_storage.h"
#include "platform/user_defaults.h"
#include "platform/value.h"
#include "reminder_screens.h"
#include "store/settings_keys.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

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
  LockRemFixture(GuiFixture& fixture, std::shared_ptr<RecordingSoundPlayer> player)
      : fixture_(fixture), player_(std::move(player)) {}

  Q_INVOKABLE QString passcode() const {
    return QString::fromStdString(MoodPasscodeStorage::passCode().value_or(""));
  }
  Q_INVOKABLE QString secretKey() const {
    return QString::fromStdString(MoodPasscodeStorage::secretKey().value_or(""));
  }
  // `lumeo --home HOME ARGS... --json` on the test's journal, parsed.
  Q_INVOKABLE QVariant cliJson(const QStringList& arguments) const {
    const QString program = qEnvironmentVariable("LUMEO_CLI");
    QProcess cli;
    cli.setProgram(program);
    cli.setArguments(QStringList{QStringLiteral("--home"), home()} + arguments + QStringList{"--json"});
    cli.start();
    if (!cli.waitForFinished(60000) || cli.exitCode() != 0) {
      qWarning("lumeo %s failed: %s", qPrintable(arguments.join(' ')),
               cli.readAllStandardError().constData());
      return {};
    }
    return QJsonDocument::fromJson(cli.readAllStandardOutput()).toVariant();
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
  QString home() const {
    return QString::fromStdString(fixture_.session().directories().library.parent_path().string());
  }

 private:
  GuiFixture& fixture_;
  std::shared_ptr<RecordingSoundPlayer> player_;
};

}  // namespace lumeo::gui::testing

class Setup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable() {
    fixture_ = std::make_unique<lumeo::gui::testing::GuiFixture>();
    player_ = std::make_shared<lumeo::gui::testing::RecordingSoundPlayer>();
    lumeo::gui::setReminderSoundPlayer(player_);
    extra_ = new lumeo::gui::testing::LockRemFixture(*fixture_, player_);
    fixture_->runtime().addSingleton("LockRem", extra_);
  }
  void qmlEngineAvailable(QQmlEngine* engine) { fixture_->attach(*engine); }
  void cleanupTestCase() {
    if (extra_) extra_->setParent(nullptr);
    delete extra_;
    extra_ = nullptr;
    fixture_.reset();
  }

 private:
  std::unique_ptr<lumeo::gui::testing::GuiFixture> fixture_;
  std::shared_ptr<lumeo::gui::testing::RecordingSoundPlayer> player_;
  lumeo::gui::testing::LockRemFixture* extra_ = nullptr;
};

QUICK_TEST_MAIN_WITH_SETUP(gui_lockrem_quick, Setup)

#include "gui_lockrem_quick_tests.moc"
