// Launch, the splash hand-over, the foreground cycle and termination of the
// application object. The order of the steps in each entry is deliberate;
// the comments say where it matters.
#include "shell/mood_app_delegate.h"

#include <set>
#include <system_error>

#include "objectgraph/managed_object_context.h"
#include "platform/calendar.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/resources_location.h"
#include "shell/shell_text.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {
MoodAppDelegate* gSharedDelegate = nullptr;
}  // namespace

namespace {

// The launch clean-up of the image store: files that no description names
// are removed.
class JournalImageStoreCleaner : public ImageStoreCleaner {
 public:
  void clearImageStore() override {
    MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
    auto images = ImageStore::shared();
    if (!app || !images || !app->store().hasStore()) return;
    images->clearImageStore([app] { return app->store().imageNamesInUse(); });
  }
};

}  // namespace

void ShellServices::fillDefaults() {
  if (!passcode) passcode = std::make_shared<AlwaysGrantedPasscodeGate>();
  if (!sync) sync = std::make_shared<SyncService>();
  if (!reminders) reminders = std::make_shared<ReminderScheduler>();
  if (!cloudLink) cloudLink = std::make_shared<CloudLinkService>();
  if (!location) location = std::make_shared<LocationService>();
  if (!watch) watch = std::make_shared<WatchService>();
  if (!capture) capture = std::make_shared<CaptureHooks>();
  if (!imageStore) imageStore = std::make_shared<JournalImageStoreCleaner>();
  if (!application) application = std::make_shared<ApplicationHost>();
}

MoodAppDelegate::MoodAppDelegate(ApplicationDirectories directories, ShellServices services,
                                 std::shared_ptr<UserDefaults> defaults)
    : directories_(std::move(directories)),
      services_(std::move(services)),
      defaults_(defaults ? std::move(defaults) : UserDefaults::standard()) {
  if (directories_.resources.empty()) directories_.resources = resourcesDirectory();
  services_.fillDefaults();
  store_ = std::make_unique<JournalStore>(
      JournalStore::Locations{directories_.library, directories_.documents}, defaults_);
  // Part of the context's making: the sync manager gets every new main
  // context, and every save of it starts a sync attempt.
  store_->setContextCreatedHandler([this](const std::shared_ptr<ManagedObjectContext>& context) {
    services_.sync->setManagedObjectContext(context);
    services_.sync->setStorePath(store_->storeURL());
    services_.sync->setup();
    observeSavesForSync(context);
  });
  gSharedDelegate = this;
  // The image store of this journal: the one descriptions write to and
  // delete from.
  imageStore_ = std::make_shared<ImageStore>(directories_.library);
  ImageStore::setShared(imageStore_);
  if (!remindersTextExists()) setRemindersText(shellText("How are you feeling right now?"));
}

MoodAppDelegate::~MoodAppDelegate() {
  if (gSharedDelegate == this) gSharedDelegate = nullptr;
  if (ImageStore::shared() == imageStore_) ImageStore::setShared(nullptr);
}

MoodAppDelegate* MoodAppDelegate::sharedDelegate() {
  return gSharedDelegate;
}

void MoodAppDelegate::observeSavesForSync(const std::shared_ptr<ManagedObjectContext>& context) {
  std::weak_ptr<SyncService> sync = services_.sync;
  // Observers of dropped contexts are pruned here; the observation lives as
  // long as its context.
  saveObservers_.emplace_back(NotificationCenter::defaultCenter(), kManagedObjectContextDidSaveNotification,
                              context.get(), [sync](const Notification&) {
                                if (auto s = sync.lock()) s->synchronizeWithCompletion(nullptr);
                              });
}

// --- Launch -------------------------------------------------------------

bool MoodAppDelegate::applicationDidFinishLaunchingWithOptions(const LaunchOptions& options) {
  // No keys for places, sign-in, social or analytics services: Lumeo on Linux
  // talks to none of them and collects no analytics. The keyboard height is
  // tracked by the front end's toolkit.
  trackingConfigured = false;

  // The cloud link is set up first, so that a redirect URL arriving with
  // this launch finds it ready.
  services_.cloudLink->setupWithAppKey(services_.cloudLink->appKey());

  // Backup reminders are on until the user turns them off.
  if (defaults_->objectForKey(kMoodDropboxReminderEnabled).isNull()) setDropboxReminderEnabled(true);

  // A launch by a reminder: remember it for the splash's completion, and
  // keep its template text for the editor that the reminder opens (an
  // ordinary launch clears any left from before).
  bool launchedFromNotification = options.localNotification.has_value();
  cleanImageStoreAtLaunch_ = options.cleanImageStore;
  std::string templateText;
  if (options.localNotification) {
    templateText = (*options.localNotification).userInfo.count("template")
                       ? options.localNotification->userInfo.at("template").toString()
                       : std::string();
  }
  setReminderTemplateText(templateText);

  // The splash covers the window while the store opens.
  splash_ = std::make_shared<MoodSplashViewController>(*defaults_);

  // Reminders need permission for a badge, a sound and an alert (7 = all
  // three).
  services_.application->requestNotificationAuthorization(7);

  // The first-start test runs before the splash is shown; it is the first
  // touch of the store, so on this path the store opens here.
  handleFirstStart();

  // The splash holds the application object weakly: the completion may
  // outlive a torn-down delegate in tests.
  splash_->setCompletion([launchedFromNotification] {
    if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate())
      app->splashCompleted(launchedFromNotification);
  });
  window_.setRootViewController(splash_);
  window_.makeKeyAndVisible();

  // The user's copy of the feeling words, from the shipped list on the
  // first launch; the editor's suggestions and tag deletion work on it.
  copyEmotionsIfNeeded();

  // Automatic place selection follows the location permission.
  if (services_.location->isEnabled()) {
    if (defaults_->objectForKey(kIsMapAutomaticSelectLocation).isNull()) setMapAutomaticSelectLocation(true);
  } else {
    LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kIsMapAutomaticSelectLocation));
  }
  return true;
}

void MoodAppDelegate::handleFirstStart() {
  if (!defaults_->objectForKey(kMoodFirstStart).isNull()) return;
  // Data restored or kept from an older install is no first start: the test
  // repeats at the next launch and the key stays unset. Neither is a store
  // that could not be opened or read (a damaged file, a foreign file under
  // its name, a disk error): that journal may well hold records, and taking
  // it for a new one would delete the passcode and the cloud links that
  // belong to it.
  if (!store_->isKnownEmpty()) {
    if (auto error = store_->storeOpenError()) {
      LUMEO_LOG_DEBUG("the journal store could not be opened, so this is no first start: %@", *error);
    }
    return;
  }
  // Keychain entries and cloud links outlive a reinstall; a fresh journal
  // starts without them.
  if (services_.passcode->hasPasscode()) services_.passcode->deletePasscode();
  services_.cloudLink->unlinkAndResetClients();
  LUMEO_DROP_ERROR(defaults_->setBool(kMoodFirstStart, true));
  defaults_->synchronize();
}

void MoodAppDelegate::copyEmotionsIfNeeded() {
  std::error_code ec;
  std::filesystem::path target = directories_.library / "emotions.plist";
  if (std::filesystem::exists(target, ec)) return;
  std::filesystem::path source = directories_.resources / "emotions.plist";
  if (!std::filesystem::exists(source, ec)) {
    // An installation without its data files: the journal works, only the
    // editor offers no feeling words until one is in place.
    LUMEO_LOG_WARNING("No feeling words to copy: %@ is missing", source);
    return;
  }
  std::filesystem::create_directories(directories_.library, ec);
  // Copy under a temporary name first, so that a crash never leaves half a
  // list that the next start would take for the user's own.
  std::filesystem::path partial = target;
  partial += ".partial";
  if (std::filesystem::copy_file(source, partial, std::filesystem::copy_options::overwrite_existing, ec)) {
    std::filesystem::rename(partial, target, ec);
  }
  if (ec) std::filesystem::remove(partial, ec);
}

void MoodAppDelegate::registerDefaultAlarms() {
  Calendar calendar = Calendar::current();
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  Value::Array alarms;
  const int hours[] = {10, 15, 20};
  const bool on[] = {false, false, true};
  for (int i = 0; i < 3; ++i) {
    DateComponents at = today;
    at.hour = hours[i];
    Date date = calendar.dateFromComponents(at).value_or(Date::now());
    alarms.push_back(Value(Value::Dictionary{{"date", Value(date)}, {"on", Value(on[i])}}));
  }
  defaults_->registerDefaults({{kAlarm, Value(alarms)}});
}

void MoodAppDelegate::splashCompleted(bool launchedFromNotification) {
  // Usually the first touch of the context: the store opens (or is
  // converted) here, behind the splash.
  auto context = store_->managedObjectContext();
  services_.sync->setManagedObjectContext(context);
  services_.sync->setStorePath(store_->storeURL());
  services_.sync->setup();
  services_.sync->synchronizeWithCompletion(nullptr);
  // A second observer of the same saves; the sync manager tolerates the
  // doubled requests.
  if (context) observeSavesForSync(context);
  // Image files no description names any more are removed while the
  // splash still covers the window.
  if (cleanImageStoreAtLaunch_) services_.imageStore->clearImageStore();
  // The tabs inside the main navigation stack.
  MoodTabBarController::Environment env;
  env.passcode = services_.passcode;
  env.watch = services_.watch;
  env.defaults = defaults_;
  env.hasRecords = [this] { return store_->hasAnyRecord(); };
  tabBarController_ = std::make_shared<MoodTabBarController>(std::move(env));
  navigationController_ =
      std::make_shared<NavigationController>(tabBarController_, "MoodPortraitOnlyNavigationController");
  navigationController_->setNavigationBarHidden(true);
  window_.setRootViewController(navigationController_);
  tabBarController_->viewDidLoad();
  // The cover that fades out is drawn by the front end on "root".
  // Three reminders a day are the fallback until the user sets any; only
  // the evening one is on.
  registerDefaultAlarms();
  // The reminders are planned again from the stored alarms (the clock or
  // time zone may have changed while the application was not running), and
  // a record whose capture was cut short by the last run is resumed.
  services_.reminders->rescheduleReminders(false);
  services_.capture->checkForRecordBeingCreated();
  // A launch by a reminder ends on the capture screen.
  if (launchedFromNotification) showMoodCaptureControllerAfterInactiveState(true);
}

// --- Foreground cycle -------------------------------------------------

void MoodAppDelegate::applicationWillResignActive() {
  sendLocalNotificationDrop();
}

void MoodAppDelegate::sendLocalNotificationDrop() {
  if (!isDropboxOperationStarted) return;
  services_.application->presentLocalNotificationNow(
      shellText("Operation could not continue in background. Cancelled."), false);
  NotificationCenter::defaultCenter().post(MoodBackgroundEndedNotification);
  isDropboxOperationStarted = false;
}

void MoodAppDelegate::applicationDidEnterBackground() {
  // Save and sync under a background task; the block only hands over to
  // the main context.
  auto application = services_.application;
  auto sync = services_.sync;
  unsigned long task = application->beginBackgroundTask(nullptr);
  std::weak_ptr<ManagedObjectContext> weakContext = store_->managedObjectContext();
  DispatchQueue::global().async([weakContext, application, sync, task] {
    auto context = weakContext.lock();
    auto saveAndSync = [weakContext, application, sync, task] {
      if (auto c = weakContext.lock()) {
        if (c->hasChanges()) LUMEO_DROP_ERROR(c->save());  // a raw save: no refresh signal
      }
      sync->synchronizeWithCompletion(
          [application, task](OptionalError) { application->endBackgroundTask(task); });
    };
    if (context) {
      context->performBlock(saveAndSync);
    } else {
      DispatchQueue::main().async(saveAndSync);
    }
  });

  // Leaving the application locks the journal again.
  passCodeUnlocked = false;
  // The user went to link a cloud account and will come straight back.
  if (isDropboxTryConnect) {
    isDropboxTryConnect = false;
    return;
  }

  // Walk the presented screens and close the ones that must not survive a
  // trip to the background. The chain is collected first, because each
  // dismissal cuts it.
  // Whether any screen was closed; only then may the passcode screen go up.
  bool dismissed = false;
  // Whether the settings or graph screens were among them: closing those
  // brings the user back to the tabs, whose gate asks for the passcode on
  // the way back in, so no passcode screen is put up for them.
  bool settingsGone = false;
  // Help is open: the user comes back to it and nothing else changes.
  bool helpOpen = false;
  // A backup, restore or export is running in an open screen: leave it be.
  bool longJobOpen = false;
  std::vector<std::shared_ptr<Screen>> chain = screensPresentedOverMainInterface();
  for (const auto& p : chain) {
    const std::string& cls = p->className();
    if (cls == "MoodSettingsViewController") {
      settingsController_ = p;
      p->dismissViewControllerAnimated(false);
      dismissed = settingsGone = true;
    } else if (p->isNavigationController()) {
      auto stack = std::static_pointer_cast<NavigationController>(p)->viewControllers();
      for (const auto& c : stack) {
        const std::string& child = c->className();
        if (child == "MoodSettingsViewController") {
          settingsController_ = c;
          c->dismissViewControllerAnimated(false);
          dismissed = settingsGone = true;
        } else if (child == "MoodHelpViewController") {
          helpOpen = true;
        } else if (child == "MoodBackupViewController" || child == "MoodExportViewController") {
          longJobOpen = backupOrrestoreStarted;
        } else if (child == "MoodSummaryGraphViewController" || cls == "MoodGraphSettingsViewController") {
          // The second test looks at the presented screen, not the child,
          // as it always has.
          c->dismissViewControllerAnimated(false);
          dismissed = settingsGone = true;
        } else if (cls == "MoodPassInputViewController") {
          c->dismissViewControllerAnimated(false);
          dismissed = true;
        }
      }
    } else if (cls == "MoodPassInputViewController") {
      p->dismissViewControllerAnimated(false);
      dismissed = true;
    }
  }
  // Help or a running backup: the user comes back to where they were.
  if (helpOpen || longJobOpen) return;
  // Otherwise the application opens again on the capture tab.
  if (tabBarController_) tabBarController_->selectTab(MoodTabBarController::kCaptureTab, false);
  // Something was closed, so the user was inside the journal: lock it
  // behind the passcode screen, unless it was settings or graphs (see
  // above), the biometric prompt is already up, or the passcode screen is
  // already the root.
  if (!dismissed) return;
  if (!settingsGone && !services_.passcode->isBiometricInputRequestDisplayed() && !isPasscodeScreenRoot()) {
    switchWindowRootVConPasscodeInputNavigationControllerWithDisplayInputTouchIDRequest(false);
  }
}

void MoodAppDelegate::applicationWillEnterForeground() {
  NotificationCenter::defaultCenter().post(MoodBackgroundEndedNotification);
  if (isPasscodeScreenRoot())
    switchWindowRootVConPasscodeInputNavigationControllerWithDisplayInputTouchIDRequest(true);
}

void MoodAppDelegate::applicationDidBecomeActive() {
  services_.application->setApplicationIconBadgeNumber(0);
  services_.sync->synchronizeWithCompletion(nullptr);
  if (!services_.location->isEnabled())
    LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kIsMapAutomaticSelectLocation));
}

void MoodAppDelegate::applicationWillTerminate() {
  saveContext();
}

// The presented screens in front of the main interface, bottom first. The
// interface is the main navigation stack, but what covers it is mostly
// presented from inside it: the tabs present the settings, the passcode
// entry of the tab gate and the help; a tab's own screen presents what it
// opens. All of them cover the whole interface, as a presentation from the
// stack's root would, so the walk takes every such chain.
std::vector<std::shared_ptr<Screen>> MoodAppDelegate::screensPresentedOverMainInterface() const {
  std::vector<std::shared_ptr<Screen>> chain;
  // A presented navigation stack is a presentation context of its own:
  // what its screens present covers it in turn.
  std::function<void(const Screen*)> collect = [&chain, &collect](const Screen* host) {
    if (!host) return;
    for (auto p = host->presentedViewController(); p; p = p->presentedViewController()) {
      chain.push_back(p);
      if (p->isNavigationController()) {
        for (const auto& child : std::static_pointer_cast<NavigationController>(p)->viewControllers())
          collect(child.get());
      }
    }
  };
  if (!navigationController_) return chain;
  collect(navigationController_.get());
  for (const auto& screen : navigationController_->viewControllers()) collect(screen.get());
  if (tabBarController_) {
    for (const auto& tab : tabBarController_->controllers()) collect(tab.get());
  }
  return chain;
}

// --- Passcode screen as root --------------------------------------------

bool MoodAppDelegate::isPasscodeScreenRoot() const {
  auto root = window_.rootViewController();
  if (!root) return false;
  if (root->className() == "MoodPassInputViewController") return true;
  if (root->isNavigationController()) {
    const auto& stack = std::static_pointer_cast<NavigationController>(root)->viewControllers();
    return !stack.empty() && stack.front()->className() == "MoodPassInputViewController";
  }
  return false;
}

void MoodAppDelegate::switchWindowRootVConPasscodeInputNavigationControllerWithDisplayInputTouchIDRequest(
    bool displayTouchID) {
  // Without a passcode there is nothing to ask for.
  if (!services_.passcode->hasPasscode()) return;
  if (!isPasscodeScreenRoot()) {
    mainNavigationController_ = window_.rootViewController();
    auto input = std::make_shared<MoodViewController>("MoodPassInputViewController");
    window_.setRootViewController(std::make_shared<NavigationController>(input));
  }
  services_.passcode->passcodeScreenShown(displayTouchID);
}

void MoodAppDelegate::switchWindowRootToMainNavigationController() {
  if (!mainNavigationController_) return;
  window_.setRootViewController(mainNavigationController_);
  mainNavigationController_.reset();
  passCodeUnlocked = true;
}

// --- Store ----------------------------------------------------------

void MoodAppDelegate::removeCoordinates() {
  if (MoodAppDelegate* app = sharedDelegate()) app->store().removeCoordinates();
}

// --- Typed settings -------------------------------------------------------

bool MoodAppDelegate::isDropboxReminderEnabled() const {
  return defaults_->boolForKey(kMoodDropboxReminderEnabled);
}
void MoodAppDelegate::setDropboxReminderEnabled(bool enabled) {
  LUMEO_DROP_ERROR(defaults_->setBool(kMoodDropboxReminderEnabled, enabled));
  defaults_->synchronize();
}
bool MoodAppDelegate::isDropboxSynchronizeEnabled() const {
  return defaults_->boolForKey(kMoodDropboxSynchronizeEnabled);
}
void MoodAppDelegate::setDropboxSynchronizeEnabled(bool enabled) {
  LUMEO_DROP_ERROR(defaults_->setBool(kMoodDropboxSynchronizeEnabled, enabled));
  defaults_->synchronize();
}
long MoodAppDelegate::dropboxCounter() const {
  return static_cast<long>(defaults_->integerForKey(kMoodDropboxCounter));
}
bool MoodAppDelegate::isSyncingEnabled() const {
  return defaults_->boolForKey(kMoodSyncingEnabled);
}
void MoodAppDelegate::setSyncingEnabled(bool enabled) {
  LUMEO_DROP_ERROR(defaults_->setBool(kMoodSyncingEnabled, enabled));
  defaults_->synchronize();
}
std::string MoodAppDelegate::syncingService() const {
  return defaults_->stringForKey(kMoodSyncingService).value_or("");
}
void MoodAppDelegate::setSyncingService(const std::string& service) {
  LUMEO_DROP_ERROR(defaults_->setString(kMoodSyncingService, service));
  defaults_->synchronize();
}
bool MoodAppDelegate::isMapAutomaticSelectLocation() const {
  return defaults_->boolForKey(kIsMapAutomaticSelectLocation);
}
void MoodAppDelegate::setMapAutomaticSelectLocation(bool enabled) {
  LUMEO_DROP_ERROR(defaults_->setBool(kIsMapAutomaticSelectLocation, enabled));
  defaults_->synchronize();
}
bool MoodAppDelegate::remindersTextExists() const {
  return !defaults_->objectForKey(kRemindersTextKey).isNull();
}
std::string MoodAppDelegate::remindersText() const {
  return defaults_->stringForKey(kRemindersTextKey).value_or("");
}
void MoodAppDelegate::setRemindersText(const std::string& text) {
  LUMEO_DROP_ERROR(defaults_->setString(kRemindersTextKey, text));
  defaults_->synchronize();
}
std::string MoodAppDelegate::reminderTemplateText() const {
  return defaults_->stringForKey(kReminderTemplateKey).value_or("");
}
void MoodAppDelegate::setReminderTemplateText(const std::string& text) {
  LUMEO_DROP_ERROR(defaults_->setString(kReminderTemplateKey, text));
  defaults_->synchronize();
}
std::optional<Date> MoodAppDelegate::lastBackupDate() const {
  return defaults_->dateForKey(kLastBackupDateKey);
}
void MoodAppDelegate::setLastBackupDate(std::optional<Date> date) {
  if (date) {
    LUMEO_DROP_ERROR(defaults_->setDate(kLastBackupDateKey, *date));
  } else {
    LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kLastBackupDateKey));
  }
  defaults_->synchronize();
}
std::optional<Date> MoodAppDelegate::recentBackupMissedLastNotificationDate() const {
  return defaults_->dateForKey(kRecentBackupMissedLastNotificationDateKey);
}
void MoodAppDelegate::setRecentBackupMissedLastNotificationDate(std::optional<Date> date) {
  if (date) {
    LUMEO_DROP_ERROR(defaults_->setDate(kRecentBackupMissedLastNotificationDateKey, *date));
  } else {
    LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kRecentBackupMissedLastNotificationDateKey));
  }
  defaults_->synchronize();
}

bool MoodAppDelegate::visibleIsMoodViewController() const {
  Screen* visible = window_.visibleViewController();
  return visible && visible->isMoodViewController();
}

MoodViewController* MoodAppDelegate::visibleMoodViewController() {
  Screen* visible = window_.visibleViewController();
  if (!visible || !visible->isMoodViewController()) return nullptr;
  return static_cast<MoodViewController*>(visible);
}

}  // namespace lumeo
