#include "gui_session.h"

#include "capture/mood_capture_view_controller.h"
#include "capture/mood_levels_presentation.h"
#include "capture/mood_record_edit_view_controller.h"
#include "capture/mood_record_state.h"
#include "lock/mood_passcode_gate.h"
#include "map/position_location_service.h"
#include "objectgraph/managed_object_context.h"
#include "platform/biometric_authenticator.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/fprintd_authenticator.h"
#include "platform/linux/geoclue_position_source.h"
#include "platform/linux/pending_request_file.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/linux/secret_service_store.h"
#include "platform/log.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "reminder_desktop.h"
#include "reminders/mood_reminder_scheduler.h"
#include "sample_journal.h"
#include "shell/mood_app_delegate.h"
#include "shell/resources_location.h"
#include "store/journal_store.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"
#include "sync/sync_event_store.h"
#include "sync/sync_journal_capture.h"
#include "sync/sync_save_monitor.h"

namespace lumeo::gui {

GuiSession::GuiSession(SessionOptions options) : options_(std::move(options)) {}

GuiSession::~GuiSession() {
  if (app_) {
    if (splashDone_ && journalError_.empty()) {
      // An open editor keeps what was typed, and its record stays "in
      // creation", so the next start resumes it; the termination step
      // saves, under the writer lock too.
      NotificationCenter::defaultCenter().post(kApplicationDidEnterBackgroundNotification);
      app_->applicationWillTerminate();
    }
    capture_.reset();
    willSave_ = ScopedObserver();
    app_.reset();
  }
  releaseWriterLock();
}

std::filesystem::path GuiSession::storePath() const {
  return directories_.library / kJournalStoreFileName;
}

bool GuiSession::takeWriterLock(double waitSeconds) {
  if (lock_) return true;
  auto lock = JournalLock::acquire(directories_.library, waitSeconds);
  if (auto* error = std::get_if<Error>(&lock)) {
    launchError_ = error->description;
    return false;
  }
  lock_ = std::move(std::get<JournalLock>(lock));
  // Once this device syncs (`lumeo sync folder|webdav` and a first `sync
  // now`, perhaps while the window was open), the saves of this hold are
  // captured. The event log is read afresh for each hold: between two of
  // them, another process's `sync now` may have added to it.
  if (SyncJournalCapture::deviceSyncs(directories_.applicationSupport)) {
    syncCapture_ =
        std::make_unique<SyncJournalCapture>(directories_.library, directories_.applicationSupport);
    if (auto error = syncCapture_->eventStore()->setupError())
      LUMEO_LOG_WARNING("the sync event log cannot be read, saves are not sent to other devices: %@",
                        error->description);
  }
  return true;
}

void GuiSession::releaseWriterLock() {
  if (syncCapture_) {
    std::unique_ptr<SyncJournalCapture> capture = std::move(syncCapture_);
    if (auto error = capture->close())
      LUMEO_LOG_ERROR("the sync events of the last save could not be written: %@", error->description);
  }
  lock_.reset();
}

bool GuiSession::launch() {
  if (options_.home) DataDirectories::setHomeOverride(options_.home);
  directories_ = DataDirectories::current();
  if (!directories_.create()) {
    launchError_ = "Lumeo cannot make its folders under " + directories_.library.parent_path().string();
    return false;
  }
  // From the first read of the settings to the end of the launch's writes.
  if (!takeWriterLock()) return false;
  defaults_ = PlistUserDefaults::installStandard();
  if (options_.sampleJournal) {
    // A throwaway journal to look around in: no welcome first.
    LUMEO_DROP_ERROR(defaults_->setBool(kTutorialCompleted, true));
    LUMEO_DROP_ERROR(defaults_->setBool(kTutorialSyncCompleted, true));
  }
  MoodLevelTableFiles::setCurrent({directories_.library, resourcesDirectory() / kMoodLevelTableFileName});
  MoodAppDelegate::setLevelTextProvider([](long level) {
    auto presentation = MoodLevelsPresentation().presentationForMoodLevel(level);
    return presentation ? presentation->text : std::to_string(level);
  });
  if (options_.desktopServices) {
    std::error_code ec;
    auto journal = std::filesystem::weakly_canonical(directories_.library, ec);
    SecretStore::setShared(std::make_shared<SecretServiceStore>(journal.string()));
    BiometricAuthenticator::setShared(std::make_shared<FprintdAuthenticator>());
  }
  ShellServices services;
  services.passcode = options_.passcode ? options_.passcode : std::make_shared<MoodPasscodeGate>();
  // Where the user is: GeoClue, which names the application to the user's
  // agent by its desktop file.
  if (options_.desktopServices)
    services.location =
        std::make_shared<PositionLocationService>(std::make_shared<GeoCluePositionSource>("org.lumeo.Lumeo"));
  // Reminder passes write the pending-request file that `lumeo agent`
  // delivers from, as the command line's do.
  services.reminders = std::make_shared<MoodReminderScheduler>(
      std::make_shared<FileNotificationCenterService>(directories_.library / kPendingRequestFileName),
      defaults_);
  ApplicationDirectories appDirs{directories_.library, directories_.documents, resourcesDirectory()};
  app_ = std::make_unique<MoodAppDelegate>(appDirs, services, defaults_);
  app_->applicationDidFinishLaunchingWithOptions(LaunchOptions{});
  capture_ = std::make_shared<MoodCaptureViewController>(RecordStateServices::fromSharedDelegate(),
                                                         directories_.library, defaults_);
  app_->setCaptureHooks(capture_);
  return true;
}

void GuiSession::splashFinished() {
  if (!app_ || splashDone_) return;
  if (!takeWriterLock()) {
    journalError_ = launchError_;
    return;
  }
  if (options_.sampleJournal) {
    // The store opens here; a fresh throwaway journal gets its records
    // before the tabs first look at it.
    if (app_->store().storeOpenError() == std::nullopt && app_->store().isKnownEmpty())
      fillSampleJournal(app_->store(), Date::now());
  }
  app_->splash()->iconFadeDidFinish();
  splashDone_ = true;
  if (auto error = app_->store().storeOpenError()) {
    journalError_ = error->description;
  } else {
    app_->applicationDidBecomeActive();
  }
  observeSaves();
  if (journalError_.empty()) {
    if (auto context = app_->managedObjectContext()) catchUp_.remember(*context);
  }
  releaseWriterLock();
  // Reminders are shown by the agent, not by the window: start one for
  // this journal if none runs (after the launch let go of the journal).
  if (options_.desktopServices && !options_.sampleJournal && journalError_.empty())
    ensureReminderAgentRunning(directories_.library, options_.home);
}

void GuiSession::observeSaves() {
  // Each save of the main context runs under the writer lock, on objects
  // read again under it when another process wrote in between: taken when
  // the save starts (unless the action that leads to it took it already),
  // let go at the end of this turn of the main queue, once the save and
  // what it triggers (the backup counter) are written.
  willSave_ =
      ScopedObserver(NotificationCenter::defaultCenter(), kManagedObjectContextWillSaveNotification, nullptr,
                     [this](const Notification& notification) {
                       if (!app_ || notification.sender != app_->managedObjectContext().get()) return;
                       if (lock_) return;
                       if (!holdWriterLockForThisTurn()) {
                         LUMEO_LOG_WARNING("saving without the journal's writer lock: %@", launchError_);
                         return;
                       }
                       // The capture opened with the lock, in the middle of
                       // this notification's delivery: it has this save's
                       // will-save step done for it.
                       if (syncCapture_) syncCapture_->monitor().contextWillSave(notification);
                     });
}

bool GuiSession::holdWriterLockForThisTurn(double waitSeconds) {
  if (lock_) return true;
  if (!takeWriterLock(waitSeconds)) return false;
  std::weak_ptr<bool> alive = alive_;
  DispatchQueue::main().async([this, alive] {
    if (alive.lock()) releaseWriterLock();
  });
  auto context = app_->managedObjectContext();
  const bool behind = context && catchUp_.behind(*context);
  if (behind && beforeReread_) beforeReread_();
  if (context && catchUp_.catchUp(*context)) {
    if (afterReread_) afterReread_();
    LUMEO_LOG_VERBOSE("read the journal again: another process wrote to it");
    // Records another program deleted are now empty objects, and its new
    // ones are in no list yet: every screen fetches again, after the action
    // that took the lock has run.
    DispatchQueue::main().async([alive] {
      if (alive.lock()) NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
    });
  }
  return true;
}

bool GuiSession::prepareToWrite() {
  return prepareToWrite(30);
}

bool GuiSession::prepareToWrite(double waitSeconds) {
  if (!journalOpen()) return false;
  if (!holdWriterLockForThisTurn(waitSeconds)) {
    LUMEO_LOG_WARNING("cannot take the journal's writer lock: %@", launchError_);
    return false;
  }
  return true;
}

bool GuiSession::catchUpWithJournal() {
  if (!journalOpen() || lock_) return false;
  auto context = app_->managedObjectContext();
  if (!context || !catchUp_.behind(*context)) return false;
  // Whoever holds the lock is still writing; its last write brings another look.
  return holdWriterLockForThisTurn(0.2);
}

void GuiSession::enterBackground() {
  if (!app_ || !splashDone_ || inBackground_) return;
  inBackground_ = true;
  app_->applicationWillResignActive();
  NotificationCenter::defaultCenter().post(kApplicationDidEnterBackgroundNotification);
  app_->applicationDidEnterBackground();
}

void GuiSession::enterForeground() {
  if (!app_ || !splashDone_ || !inBackground_) return;
  inBackground_ = false;
  app_->applicationWillEnterForeground();
  app_->applicationDidBecomeActive();
}

}  // namespace lumeo::gui
