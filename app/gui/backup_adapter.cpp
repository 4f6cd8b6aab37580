#include "backup_adapter.h"

#include <sys/stat.h>

#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimer>
#include <filesystem>

#include "backup/mood_dropbox_helper.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "history_tab.h"
#include "platform/clock.h"
#include "platform/linux/data_directories.h"
#include "platform/localization.h"
#include "shell/mood_app_delegate.h"
#include "shell/mood_view_controller.h"
#include "store/journal_store.h"
#include "store/notification_names.h"

namespace lumeo::gui {

namespace {

QString q(const std::string& text) {
  return QString::fromStdString(text);
}

bool journalOpen(GuiRuntime& runtime) {
  GuiSession& session = runtime.session();
  return session.launched() && session.splashDone() && session.journalError().empty();
}

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
  // The journal opens after the splash; watching starts once it has.
  auto* poll = new QTimer(this);
  poll->setInterval(200);
  connect(poll, &QTimer::timeout, this, [this, poll] {
    if (!journalOpen(runtime_)) return;
    poll->stop();
    poll->deleteLater();
    watchJournal();
  });
  poll->start();
}

BackupAdapter::~BackupAdapter() = default;

std::optional<ino_t> BackupAdapter::journalInode() const {
  struct stat st {};
  if (::stat(runtime_.session().storePath().c_str(), &st) != 0) return std::nullopt;
  return st.st_ino;
}

// A restore moves a new journal file into place: the folder changes and the
// file is another one. Writes of other programs (lumeo add) keep the file.
void BackupAdapter::watchJournal() {
  inode_ = journalInode();
  watcher_ = new QFileSystemWatcher(this);
  watcher_->addPath(QString::fromStdString(runtime_.session().directories().library.string()));
  connect(watcher_, &QFileSystemWatcher::directoryChanged, this, [this] { journalFolderChanged(); });
}

void BackupAdapter::journalFolderChanged() {
  if (busy_) return;
  const auto inode = journalInode();
  if (!inode || inode == inode_) return;
  inode_ = inode;
  // Another program restored the journal: let go of the old file, open the
  // new one and tell every screen, as a restore here does.
  JournalStore& store = runtime_.session().app().store();
  store.applicationDropLinks();
  store.managedObjectContext();
  NotificationCenter::defaultCenter().post(MoodBackupWasLoadedNotification);
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
}

void BackupAdapter::rebuildTabs() {
  Q_EMIT aboutToReplaceJournal();
  if (auto* history = qobject_cast<HistoryTab*>(runtime_.singleton(QStringLiteral("History"))))
    history->reset();
  if (auto* summary = qobject_cast<SummaryTab*>(runtime_.singleton(QStringLiteral("Summary"))))
    summary->reset();
  ++generation_;
  Q_EMIT journalReplaced();
}

QString BackupAdapter::suggestedName() const {
  if (!journalOpen(runtime_)) return QStringLiteral("journal.backup");
  return q(helperFor(runtime_.session()).archiveName(false, Date::now()));
}

QString BackupAdapter::backUpTo(const QUrl& file) {
  if (busy_ || !journalOpen(runtime_)) return {};
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
  if (busy_ || !journalOpen(runtime_)) return {};
  busy_ = true;
  result_.clear();
  Q_EMIT changed();
  // What the window has not saved yet goes into the previous journal, which
  // the restore keeps aside.
  runtime_.session().app().saveContext();
  auto restored = helperFor(runtime_.session()).restore(file.toLocalFile().toStdString());
  inode_ = journalInode();
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
