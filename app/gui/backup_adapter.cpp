#include "backup_adapter.h"

#include <QFileInfo>
#include <filesystem>

#include "backup/mood_dropbox_helper.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "history_tab.h"
#include "journal_watch.h"
#include "platform/clock.h"
#include "platform/linux/data_directories.h"
#include "platform/localization.h"
#include "qt_convert.h"
#include "shell/mood_app_delegate.h"
#include "shell/mood_view_controller.h"
#include "store/journal_store.h"
#include "store/notification_names.h"

namespace lumeo::gui {

namespace {

MoodDropboxHelper helperFor(GuiSession& session) {
  BackupEnvironment environment = MoodDropboxHelper::sharedHelper().environment();
  environment.library = session.directories().library;
  environment.store = &session.app().store();
  environment.temporary = session.directories().temporary;
  environment.defaults = session.defaults();
  return MoodDropboxHelper(std::move(environment));
}

const GuiRegistration kBackup(41, [](GuiRuntime& runtime) {
  runtime.addSingleton("Backup", new BackupAdapter(runtime, &runtime));
  runtime.addScreen(QStringLiteral("MoodBackupViewController"), QStringLiteral("BackupScreen.qml"));
});

}  // namespace

BackupAdapter::BackupAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent),
      runtime_(runtime),
      screen_(std::make_shared<MoodViewController>("MoodBackupViewController")) {
  backupLoaded_ = ScopedObserver(NotificationCenter::defaultCenter(), MoodBackupWasLoadedNotification,
                                 nullptr, [this](const Notification&) { rebuildTabs(); });
}

BackupAdapter::~BackupAdapter() = default;

void BackupAdapter::rebuildTabs() {
  Q_EMIT aboutToReplaceJournal();
  for (const char* tab : {"History", "Summary"}) {
    if (auto* lazy = qobject_cast<LazyTab*>(runtime_.singleton(QString::fromLatin1(tab)))) lazy->reset();
  }
  ++generation_;
  Q_EMIT journalReplaced();
}

QString BackupAdapter::suggestedName() const {
  if (!runtime_.session().journalOpen()) return QStringLiteral("journal.backup");
  return q(helperFor(runtime_.session()).archiveName(false, Date::now()));
}

QString BackupAdapter::backUpTo(const QUrl& file) {
  if (busy_ || !runtime_.session().journalOpen()) return {};
  if (!file.isLocalFile()) return q(localized("Choose a file on this computer."));
  const std::filesystem::path target = file.toLocalFile().toStdString();
  busy_ = true;
  result_.clear();
  Q_EMIT changed();
  runtime_.session().app().saveContext();
  // The archive is made beside the chosen file under its own hidden name
  // and renamed into place whole.
  auto made = helperFor(runtime_.session()).createBackupInFolder(target.parent_path(), false);
  QString error;
  if (auto* failure = std::get_if<Error>(&made)) {
    error = q(failure->description);
  } else {
    std::error_code ec;
    std::filesystem::rename(std::get<std::filesystem::path>(made), target, ec);
    if (ec) {
      std::filesystem::remove(std::get<std::filesystem::path>(made), ec);
      error = q(localized("The archive could not be written there."));
    }
  }
  busy_ = false;
  if (error.isEmpty()) {
    result_ = q(localized("Backup completed!"));
  } else {
    screen_->showAlert(localized("Attention!"), error.toStdString(), localized("OK"));
  }
  Q_EMIT changed();
  return error;
}

void BackupAdapter::restoreFrom(const QUrl& file) {
  if (busy_ || !file.isLocalFile()) return;
  std::string name = QFileInfo(file.toLocalFile()).fileName().toStdString();
  name = name.substr(0, name.find('.'));
  screen_->showAlert("",
                     localizedStringWithFormat("Are you sure you want to recover the data from %@?", name),
                     localized("Yes"), localized("Cancel"), [this, file](int result) {
                       if (result == 1) restoreNow(file);
                     });
}

QString BackupAdapter::restoreNow(const QUrl& file) {
  if (busy_ || !runtime_.session().journalOpen()) return {};
  GuiSession& session = runtime_.session();
  // The writer lock for this turn of the main queue: no other program
  // writes between the save below and the end of the swap, and none has
  // its journal swapped away in the middle of a command.
  if (!session.prepareToWrite(lockWait_)) {
    const std::string busy = localized(
        "The journal is busy: another program is changing it. Nothing was restored; try again in a moment.");
    screen_->showAlert(localized("Attention!"), busy, localized("OK"));
    return q(busy);
  }
  busy_ = true;
  result_.clear();
  Q_EMIT changed();
  auto* watch = qobject_cast<JournalWatch*>(runtime_.singleton(QStringLiteral("JournalWatch")));
  if (watch) watch->setPaused(true);
  // What the window has not saved yet goes into the previous journal, which
  // the restore keeps aside.
  session.app().saveContext();
  auto restored = helperFor(session).restore(file.toLocalFile().toStdString());
  if (watch) watch->setPaused(false);
  busy_ = false;
  QString error;
  if (auto* failure = std::get_if<Error>(&restored)) {
    error = q(failure->description);
    screen_->showAlert(localized("Attention!"), failure->description, localized("OK"));
  } else {
    result_ = q(localized("Restore completed!"));
  }
  Q_EMIT changed();
  return error;
}

}  // namespace lumeo::gui
