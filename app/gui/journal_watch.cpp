#include "journal_watch.h"

#include <sys/stat.h>

#include <QFileInfo>
#include <QFileSystemWatcher>

#include "gui_runtime.h"
#include "gui_session.h"
#include "platform/notification_center.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_store.h"
#include "store/notification_names.h"

namespace lumeo::gui {

namespace {

// How long the files must be quiet before a look: a command's writes come
// in a burst, and the look is taken once.
constexpr int kSettleMilliseconds = 150;
// The look without a sign from the files: a query on the open connection.
constexpr int kPollMilliseconds = 2000;

const GuiRegistration kJournalWatch(40, [](GuiRuntime& runtime) {
  runtime.addSingleton("JournalWatch", new JournalWatch(runtime.session(), &runtime));
});

}  // namespace

JournalWatch::JournalWatch(GuiSession& session, QObject* parent) : QObject(parent), session_(session) {
  settle_.setSingleShot(true);
  settle_.setInterval(kSettleMilliseconds);
  connect(&settle_, &QTimer::timeout, this, &JournalWatch::check);
  // The journal opens after the splash; until then the poll waits for it.
  poll_.setInterval(200);
  connect(&poll_, &QTimer::timeout, this, [this] {
    if (!watcher_) {
      start();
    } else {
      check();
    }
  });
  poll_.start();
}

JournalWatch::~JournalWatch() = default;

std::optional<ino_t> JournalWatch::journalInode() const {
  struct stat st {};
  if (::stat(session_.storePath().c_str(), &st) != 0) return std::nullopt;
  return st.st_ino;
}

void JournalWatch::start() {
  if (watcher_ || !session_.journalOpen()) return;
  inode_ = journalInode();
  watcher_ = new QFileSystemWatcher(this);
  // The folder tells of files that come and go (a restore's renames, the
  // write-ahead log made again); the files tell of writes.
  watcher_->addPath(QString::fromStdString(session_.directories().library.string()));
  connect(watcher_, &QFileSystemWatcher::directoryChanged, this, &JournalWatch::changed);
  connect(watcher_, &QFileSystemWatcher::fileChanged, this, &JournalWatch::changed);
  watchFiles();
  poll_.setInterval(kPollMilliseconds);
}

// A watched file that was removed or renamed drops out of the watch; the
// ones that stand there now are added again.
void JournalWatch::watchFiles() {
  const QString store = QString::fromStdString(session_.storePath().string());
  for (const QString& file : {store, store + QStringLiteral("-wal")}) {
    if (QFileInfo::exists(file) && !watcher_->files().contains(file)) watcher_->addPath(file);
  }
}

void JournalWatch::changed() {
  settle_.start();
}

void JournalWatch::setPaused(bool paused) {
  paused_ = paused;
  if (!paused) inode_ = journalInode();
}

void JournalWatch::check() {
  if (!watcher_ || paused_ || !session_.journalOpen()) return;
  watchFiles();
  const auto inode = journalInode();
  if (inode && inode != inode_) {
    inode_ = inode;
    // Another program restored the journal: let go of the old file, open
    // the new one and tell every screen, as a restore here does.
    JournalStore& store = session_.app().store();
    store.applicationDropLinks();
    store.managedObjectContext();
    NotificationCenter::defaultCenter().post(MoodBackupWasLoadedNotification);
    NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
    Q_EMIT journalReplaced();
    return;
  }
  session_.catchUpWithJournal();
}

}  // namespace lumeo::gui
