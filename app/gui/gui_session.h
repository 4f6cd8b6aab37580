// One run of the desktop application on one journal: the data folders, the
// application object and its launch sequence, the capture tab's controller,
// and the journal's writer lock, which the GUI holds only while it launches
// and while it saves, so the command line and the reminder agent can write
// between the GUI's saves. On a device that syncs, the saves made under the
// lock become sync events, written before the lock goes.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "journal_catch_up.h"
#include "platform/linux/data_directories.h"
#include "platform/notification_center.h"
#include "store/journal_lock.h"

namespace lumeo {
class MoodAppDelegate;
class MoodCaptureViewController;
class PasscodeGate;
class SyncJournalCapture;
class UserDefaults;
}  // namespace lumeo

namespace lumeo::gui {

struct SessionOptions {
  // All files under this folder (--home); otherwise LUMEO_HOME or the XDG
  // folders.
  std::optional<std::filesystem::path> home;
  // Fill an empty journal with sample records at launch (the throwaway
  // journal of "Explore with sample data" and of the screenshots).
  bool sampleJournal = false;
  // The passcode gate; the lock's own (on the shared keychain) when unset.
  std::shared_ptr<PasscodeGate> passcode;
  // Put the desktop's keyring (Secret Service) and fingerprint reader
  // (fprintd) behind the lock. Tests install their own and say false.
  bool desktopServices = true;
};

class GuiSession {
 public:
  explicit GuiSession(SessionOptions options);
  ~GuiSession();  // the termination step: saves
  GuiSession(const GuiSession&) = delete;
  GuiSession& operator=(const GuiSession&) = delete;

  // The launch up to the splash: folders, settings, application object,
  // capture tab. False, with launchError(), when the folders cannot be made
  // or another writer keeps the journal for longer than the wait.
  bool launch();
  // The splash's icon has faded in: opens the store, builds the tabs and
  // resumes an unfinished record. Afterwards journalError() says whether the
  // store could be opened.
  void splashFinished();
  bool splashDone() const { return splashDone_; }

  const std::string& launchError() const { return launchError_; }
  // Why the journal cannot be opened ("" when it is open): a file that is
  // not a journal, an unreadable file. Nothing has been written to it.
  const std::string& journalError() const { return journalError_; }
  // Launched, past the splash, and the store open.
  bool journalOpen() const { return app_ && splashDone_ && journalError_.empty(); }

  MoodAppDelegate& app() { return *app_; }
  bool launched() const { return app_ != nullptr; }
  std::shared_ptr<MoodCaptureViewController> capture() const { return capture_; }
  std::shared_ptr<UserDefaults> defaults() const { return defaults_; }
  const DataDirectories& directories() const { return directories_; }
  std::filesystem::path storePath() const;

  // A user's action is about to change the journal: takes the writer lock
  // until the end of this turn of the main queue and, if another process
  // wrote since the GUI last held it, reads the main context's objects
  // again, so the change starts from what the file holds and its save is
  // not refused. False (and nothing taken) without an open journal or when
  // another writer keeps the lock for the whole wait.
  bool prepareToWrite();
  // The same for a write that must not wait long (a restore): takes the
  // lock, waiting at most `waitSeconds` for another writer. False when the
  // journal is not open or stays busy; launchError() then says why.
  bool prepareToWrite(double waitSeconds);

  // Another program may have written the journal (the journal watch saw
  // its files change): if the file moved since the GUI last looked, reads
  // the main context's objects again under the writer lock and tells every
  // screen that the journal changed, so a record deleted elsewhere leaves
  // the lists, charts and map and one added elsewhere joins them. Waits
  // only a moment for the lock; when another writer holds it, nothing
  // happens and the next look tries again. True when the GUI read again.
  bool catchUpWithJournal();

  // Told just before and just after the main context's objects are read
  // again because another program wrote, within the action that took the
  // lock: the editor notes its record's date and place first, and then
  // looks whether the record is still in the journal.
  void setRereadObservers(std::function<void()> before, std::function<void()> after) {
    beforeReread_ = std::move(before);
    afterReread_ = std::move(after);
  }

  // The window was hidden or shown again: the background and foreground
  // steps (save, lock on the way back).
  void enterBackground();
  void enterForeground();

 private:
  // Takes the lock and, on a device that syncs, opens the event log that
  // captures the saves made while the lock is held.
  bool takeWriterLock(double waitSeconds = 30);
  // Writes and closes the event log of this hold, then lets go of the lock.
  void releaseWriterLock();
  // The lock for the rest of this turn of the main queue, the context read
  // again if the file moved (and the screens told so).
  bool holdWriterLockForThisTurn(double waitSeconds = 30);
  void observeSaves();

  SessionOptions options_;
  DataDirectories directories_;
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<MoodAppDelegate> app_;
  std::shared_ptr<MoodCaptureViewController> capture_;
  std::optional<JournalLock> lock_;
  // Open only while the lock is held: another process's `sync now` changes
  // the event log between the GUI's writes.
  std::unique_ptr<SyncJournalCapture> syncCapture_;
  JournalCatchUp catchUp_;
  std::function<void()> beforeReread_;
  std::function<void()> afterReread_;
  ScopedObserver willSave_;
  std::string launchError_;
  std::string journalError_;
  bool splashDone_ = false;
  bool inBackground_ = false;
  // Blocks posted to the main queue check it: they may run after the session.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace lumeo::gui
