#include "reminder_desktop.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QAudioOutput>
#include <QCoreApplication>
#include <QFileInfo>
#include <QMediaPlayer>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include "platform/log.h"
#include "reminder_screens.h"

namespace lumeo::gui {

bool reminderAgentRunning(const std::filesystem::path& library) {
  // The agent keeps an exclusive lock on this file while it runs; taking it
  // for a moment says whether one does. The file itself means nothing.
  const std::string file = (library / "agent.lock").string();
  int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0;
  if (!held) ::flock(fd, LOCK_UN);
  ::close(fd);
  return held;
}

QString lumeoProgram() {
  const QString dir = QCoreApplication::applicationDirPath();
  for (const QString& candidate : {dir + QStringLiteral("/lumeo"), dir + QStringLiteral("/../cli/lumeo")}) {
    QFileInfo info(candidate);
    if (info.isFile() && info.isExecutable()) return info.canonicalFilePath();
  }
  return QStandardPaths::findExecutable(QStringLiteral("lumeo"));
}

bool ensureReminderAgentRunning(const std::filesystem::path& library,
                                const std::optional<std::filesystem::path>& home) {
  if (reminderAgentRunning(library)) return true;
  const QString program = lumeoProgram();
  if (program.isEmpty()) {
    LUMEO_LOG_WARNING("No lumeo program to start the reminder agent with; reminders are not shown");
    return false;
  }
  QStringList arguments;
  if (home) arguments << QStringLiteral("--home") << QString::fromStdString(home->string());
  arguments << QStringLiteral("agent");
  QProcess agent;
  agent.setProgram(program);
  agent.setArguments(arguments);
  // The agent outlives the window; its messages go to the journal's log
  // like the command line's, not to this terminal.
  agent.setStandardOutputFile(QProcess::nullDevice());
  agent.setStandardErrorFile(QProcess::nullDevice());
  if (!agent.startDetached()) {
    LUMEO_LOG_WARNING("The reminder agent could not be started: %@", agent.errorString().toStdString());
    return false;
  }
  return true;
}

namespace {

// One media player, made at the first preview: QtMultimedia's start-up
// costs nothing until a sound is picked.
class QtReminderSoundPlayer : public ReminderSoundPlayer {
 public:
  void play(const std::filesystem::path& file) override {
    if (!player_) {
      player_ = new QMediaPlayer(QCoreApplication::instance());
      auto* output = new QAudioOutput(player_);
      player_->setAudioOutput(output);
      QObject::connect(player_, &QMediaPlayer::errorOccurred, player_,
                       [](QMediaPlayer::Error, const QString& message) {
                         LUMEO_LOG_WARNING("The sound could not be played: %@", message.toStdString());
                       });
    }
    player_->stop();
    player_->setSource(QUrl::fromLocalFile(QString::fromStdString(file.string())));
    player_->play();
  }
  void stop() override {
    if (player_) player_->stop();
  }

 private:
  QPointer<QMediaPlayer> player_;
};

}  // namespace

void installReminderSoundPreview() {
  setReminderSoundPlayer(std::make_shared<QtReminderSoundPlayer>());
}

}  // namespace lumeo::gui
