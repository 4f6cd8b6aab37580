// What other programs do to the open journal while the window shows it.
// `lumeo add` and `lumeo delete`, the reminder agent and sync write the
// same file; `lumeo backup restore` moves another journal file into place.
// The watch looks a moment after the journal's files change (and every few
// seconds in case a change went unseen, a cheap look): a write is read
// again (GuiSession::catchUpWithJournal), so the lists, charts and map show
// what the file holds; a replaced file is opened afresh and every screen is
// told, as after a restore in the window.
#pragma once

#include <sys/types.h>

#include <QObject>
#include <QTimer>
#include <optional>

class QFileSystemWatcher;

namespace lumeo::gui {

class GuiSession;

class JournalWatch : public QObject {
  Q_OBJECT
 public:
  explicit JournalWatch(GuiSession& session, QObject* parent = nullptr);
  ~JournalWatch() override;

  // Looks at the journal now.
  void check();
  // While true (this window restores the journal itself) the watch looks
  // away; afterwards it takes the file in place as the one it has open.
  void setPaused(bool paused);

 Q_SIGNALS:
  // Another program replaced the journal file; the store is open on the
  // new one and the screens have been told.
  void journalReplaced();

 private:
  void start();
  void watchFiles();
  void changed();
  std::optional<ino_t> journalInode() const;

  GuiSession& session_;
  QFileSystemWatcher* watcher_ = nullptr;
  QTimer settle_;
  QTimer poll_;
  std::optional<ino_t> inode_;
  bool paused_ = false;
};

}  // namespace lumeo::gui
