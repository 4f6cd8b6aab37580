// The backup screen for QML (singleton `Backup`) and what the application
// does when a restore replaces its journal.
//
// The screen has two rows: "Back up now" writes the journal's archive to a
// file the user chooses (the desktop's "Files" destination), and "Restore
// from archive…" asks the core's question and restores from a chosen
// archive through MoodDropboxHelper, which keeps the previous journal aside
// and puts everything back on any failure. Results and errors go through
// the Presenter.
//
// A restore takes the journal's writer lock, as every other write of the
// window and of the command line does, so no other program writes while
// the files are swapped. It waits a few seconds for a writer that holds
// the lock; one that keeps it longer gets "The journal is busy…" and
// nothing is restored.
//
// When a restore replaces the journal (from this screen, or from
// `lumeo backup restore` while the window is open: JournalWatch sees the
// file replaced) the tabs are rebuilt on the new journal:
// MoodBackupWasLoadedNotification drops the History and Summary adapters
// and QML makes the tabs afresh.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>
#include <optional>

#include "platform/notification_center.h"

namespace lumeo {
class MoodViewController;
}

namespace lumeo::gui {

class GuiRuntime;

class BackupAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool busy READ busy NOTIFY changed)
  // The archive name a backup gets ("<device>_<ddMMyyyy_HHmm>.backup").
  Q_PROPERTY(QString suggestedName READ suggestedName NOTIFY changed)
  // "Backup completed!" or "Restore completed!" after the last one, else "".
  Q_PROPERTY(QString result READ result NOTIFY changed)
  // Counts the journals this window has shown; a restore adds one.
  Q_PROPERTY(int journalGeneration READ journalGeneration NOTIFY journalReplaced)

 public:
  explicit BackupAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~BackupAdapter() override;

  bool busy() const { return busy_; }
  QString suggestedName() const;
  QString result() const { return result_; }
  int journalGeneration() const { return generation_; }

  // Writes the archive to `file` (replacing what is there, as the save
  // dialog confirmed). Returns "" or why it failed (also shown as an alert).
  Q_INVOKABLE QString backUpTo(const QUrl& file);
  // Asks "Are you sure you want to recover the data from …?" and, on Yes,
  // restores from the archive.
  Q_INVOKABLE void restoreFrom(const QUrl& file);
  // The restore itself, without the question. Returns "" or why it failed.
  Q_INVOKABLE QString restoreNow(const QUrl& file);

  // How long a restore waits for another writer to let go of the journal.
  static constexpr double kLockWaitSeconds = 10;
  void setLockWaitSeconds(double seconds) { lockWait_ = seconds; }

 Q_SIGNALS:
  void changed();
  // The tabs are about to be rebuilt: QML lets go of their screens.
  void aboutToReplaceJournal();
  // The journal was replaced: QML makes the tabs again.
  void journalReplaced();

 private:
  void rebuildTabs();

  GuiRuntime& runtime_;
  std::shared_ptr<MoodViewController> screen_;
  ScopedObserver backupLoaded_;
  double lockWait_ = kLockWaitSeconds;
  bool busy_ = false;
  QString result_;
  int generation_ = 0;
};

}  // namespace lumeo::gui
