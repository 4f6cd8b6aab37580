// What the application object routes: reminders, redirect URLs, pushes from
// the sync nudge, the share sheet on a record, and the backup reminders.
#include <unicode/unistr.h>

#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell/shell_text.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {

std::string replaceFirst(std::string format, const std::string& value) {
  auto at = format.find("%@");
  if (at != std::string::npos) format.replace(at, 2, value);
  return format;
}

std::function<std::string(long)>& levelTextProviderSlot() {
  static std::function<std::string(long)> provider;
  return provider;
}

}  // namespace

void MoodAppDelegate::setLevelTextProvider(std::function<std::string(long)> provider) {
  levelTextProviderSlot() = std::move(provider);
}

std::string MoodAppDelegate::levelTextLowercase(long level) {
  auto& provider = levelTextProviderSlot();
  std::string text = provider ? provider(level) : std::to_string(level);
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
  u.toLower();
  std::string out;
  u.toUTF8String(out);
  return out;
}

// --- Reminders ------------------------------------------------------------

void MoodAppDelegate::applicationDidReceiveLocalNotification(const LocalNotification& notification) {
  handleReminder(notification.userInfo, notification.hasAction);
}

void MoodAppDelegate::userNotificationCenterDidReceiveNotificationResponse(
    const Value::Dictionary& userInfo, std::function<void()> completionHandler) {
  handleReminder(userInfo, std::nullopt);
  if (completionHandler) completionHandler();
}

int MoodAppDelegate::userNotificationCenterWillPresentNotificationOptions(int systemMajorVersion) {
  // Banner and list on newer systems, the plain alert on older ones.
  return systemMajorVersion >= 14 ? 10 : 4;
}

void MoodAppDelegate::handleReminder(const Value::Dictionary& userInfo, std::optional<bool> hasAction) {
  auto it = userInfo.find("template");
  setReminderTemplateText(it != userInfo.end() ? it->second.toString() : std::string());
  if (hasAction && !*hasAction) return;
  if (services_.application->applicationState() == ApplicationHost::State::kInactive) {
    // The user tapped the reminder.
    showMoodCaptureControllerAfterInactiveState(true);
    return;
  }
  MoodViewController* visible = visibleMoodViewController();
  if (!visible) return;
  visible->showAlert(shellText("Reminders"), remindersText(), shellText("CAPTURE_ACTION_BUTTON_TITLE"),
                     shellText("Cancel"), [](int result) {
                       if (result != 1) return;
                       if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
                         app->showMoodCaptureControllerAfterInactiveState(false);
                       }
                     });
}

void MoodAppDelegate::showMoodCaptureControllerAfterInactiveState(bool afterInactiveState) {
  // Dropping the resume key is how a reminder abandons an unfinished
  // capture: the record stays saved as far as it went.
  LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kMoodRecordInCreation));
  if (tabBarController_) tabBarController_->selectTab(MoodTabBarController::kCaptureTab, false);
  if (!navigationController_) return;
  auto presented = navigationController_->presentedViewController();
  if (afterInactiveState && presented && presented->className() == "MoodRecordEditViewController") {
    navigationController_->popToRootViewControllerAnimated(false);
    // The editor leaves in slow motion and sets the speed back to 1 once it
    // has gone.
    window_.setLayerSpeed(0.2);
    navigationController_->dismissViewControllerAnimated(true);
    return;
  }
  navigationController_->dismissViewControllerAnimated(!afterInactiveState);
  navigationController_->popToRootViewControllerAnimated(!afterInactiveState);
}

// --- URLs and pushes ------------------------------------------------------

bool MoodAppDelegate::applicationOpenURL(const std::string& url) {
  std::string appKey = services_.cloudLink->appKey();
  std::string linkPrefix = "db-" + appKey;
  if (!appKey.empty() && url.rfind(linkPrefix, 0) == 0) {
    applicationDropBoxLinked(url);
    return true;
  }
  // The social sign-in's "fb..." redirects: no social SDK on Linux.
  return false;
}

void MoodAppDelegate::applicationDropBoxLinked(const std::string& url) {
  services_.cloudLink->handleRedirectURL(url, [](CloudLinkService::RedirectResult result) {
    MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
    if (result == CloudLinkService::RedirectResult::kSuccess) {
      if (app) app->isDropboxOpenWithHandler = true;
      NotificationCenter::defaultCenter().post(DropboxLinkedNotification);
    } else {
      NotificationCenter::defaultCenter().post(DropboxLinkCanceledNotification);
    }
  });
}

void MoodAppDelegate::applicationDidReceiveRemoteNotification(const Value::Dictionary& userInfo,
                                                              std::function<void(int)> completionHandler) {
  // A CloudKit query notification carries its record under "ck" / "qry" /
  // "rid".
  std::optional<std::string> recordID;
  auto ck = userInfo.find("ck");
  if (ck != userInfo.end()) {
    const Value& rid = ck->second["qry"]["rid"];
    if (rid.asString() && !rid.asString()->empty()) recordID = *rid.asString();
  }
  auto handler = std::make_shared<std::function<void(int)>>(std::move(completionHandler));
  auto call = [handler](int result) {
    if (*handler) (*handler)(result);
  };
  bool fetch = recordID && syncingService() == "iCloud" && isSyncingEnabled();
  if (fetch) {
    auto application = services_.application;
    if (backgroundTask != ApplicationHost::kInvalidBackgroundTask)
      application->endBackgroundTask(backgroundTask);
    backgroundTask = application->beginBackgroundTask([application] {
      if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
        application->endBackgroundTask(app->backgroundTask);
        app->backgroundTask = ApplicationHost::kInvalidBackgroundTask;
      }
    });
  }
  // "No data" goes out at once, before the fetch can answer, even when the
  // fetch answers inside the call; the real outcome follows.
  call(1);
  if (!fetch) return;
  auto sync = services_.sync;
  std::string rid = *recordID;
  sync->fetchRecord(rid, [sync, rid, call](OptionalError error) {
    if (error) {
      call(2);
      return;
    }
    sync->synchronize(rid, [call](OptionalError syncError) { call(syncError ? 2 : 0); });
  });
}

// --- Share sheet ----------------------------------------------------------

std::string MoodAppDelegate::shareTextForRecord(const MoodRecord& record) {
  std::string when = record.date()
                         ? DateFormatter::localizedStringFromDate(
                               *record.date(), DateFormatter::Style::kShort, DateFormatter::Style::kShort)
                         : std::string();
  std::string comment;
  if (auto description = record.moodDescription()) comment = description->comment().value_or("");
  std::string format = shellText("[%@] Feeling %@.\n\n%@");
  std::string text = replaceFirst(format, when);
  text = replaceFirst(text, levelTextLowercase(record.moodLevel()));
  return replaceFirst(text, comment);
}

void MoodAppDelegate::chooseActionForRecord(const std::shared_ptr<MoodRecord>& record, int chooseAction,
                                            int moodAction) {
  (void)moodAction;  // accepted and ignored
  if (!record) return;
  ShareSheetRequest request;
  request.text = shareTextForRecord(*record);
  if (auto description = record->moodDescription()) {
    if (auto images = ImageStore::shared()) {
      if (auto file = images->imageURLForName(description->photoName())) request.photoPath = file->string();
    }
  }
  // The placeholder item adds "(via @LumeoJournal)" only for posting to a
  // social network; none of the desktop's share actions is one, so it adds
  // nothing to any of them.
  request.itemForActivityType = [](const std::string&) { return std::string(); };
  ShareActivity edit{"MoodEditActivity", shellText("Edit"), "activity-edit"};
  ShareActivity remove{"MoodDeleteActivity", shellText("Delete"), "activity-delete"};
  if (chooseAction == 1) request.applicationActivities = {edit, remove};
  if (chooseAction == 2) request.applicationActivities = {edit};
  // The text is not offered for copying, and without a photo there is
  // nothing to save.
  request.excludedActivityTypes = {kShareActivityCopy};
  if (!request.photoPath) request.excludedActivityTypes.push_back(kShareActivitySave);

  Screen* from = window_.visibleViewController();
  if (!from) return;
  std::weak_ptr<MoodRecord> weakRecord = record;
  MoodViewController::presenter().presentShareSheet(
      *from, request, [weakRecord, chooseAction](const std::string& activity) {
        if (activity == "MoodEditActivity") {
          after(1.0, [weakRecord] {
            MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
            if (auto r = weakRecord.lock(); r && app) app->moodEditActivityFinished(r);
          });
        } else if (activity == "MoodDeleteActivity") {
          if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate())
            app->moodDeleteActivityChosen(chooseAction);
        }
      });
}

void MoodAppDelegate::moodEditActivityFinished(const std::shared_ptr<MoodRecord>& record) {
  if (!record) return;
  // The editor comes with the capture screens; done and cancel just close
  // it again. Without them the front end gets a plain screen of that name.
  std::shared_ptr<Screen> editor = services_.capture->editorForExistingRecord(
      record, [](Screen& finished) { finished.dismissViewControllerAnimated(true); });
  if (!editor) editor = std::make_shared<MoodViewController>("MoodRecordEditViewController");
  Screen* top = window_.visibleViewController();
  if (top) top->presentViewController(editor, true);
}

void MoodAppDelegate::moodDeleteActivityChosen(int chooseAction) {
  MoodViewController* visible = visibleMoodViewController();
  if (!visible) return;
  visible->showAlert(
      shellText("Wait a moment!"),
      shellText(
          "Deleting your genuine mood records may compromise statistics and cannot be undone. You will only "
          "benifit from being honest to yourself about both pleasant & unpleasant memories. Do you really "
          "want "
          "to delete selected record?"),
      shellText("Yes"), shellText("No"), [chooseAction](int result) {
        if (result != 1) return;
        auto& center = NotificationCenter::defaultCenter();
        if (chooseAction == 1) {
          // After the sheet's own animation, so the history list is back.
          after(0.4, [] { NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification); });
        } else if (chooseAction == 0) {
          center.post(MoodPreDeleteRecordNotification);
          after(0.4, [] { NotificationCenter::defaultCenter().post(MoodDeleteRecordNotification); });
        } else if (chooseAction == 2) {
          center.post(MoodPreDeleteRecordNotification);
          center.post(MoodTagDeleteRecordNotification);
        }
      });
}

// --- Backup reminders -----------------------------------------------------

void MoodAppDelegate::displayRecentBackupMissedAlertIfNeeded() {
  if (!isDropboxReminderEnabled()) return;
  auto last = lastBackupDate();
  if (!last) return;
  // The difference broken down from era to second: `day` is only what is
  // left after whole months, so 1 month and 2 days count as 2 days.
  const CalendarUnit units = CalendarUnit::kEra | CalendarUnit::kYear | CalendarUnit::kMonth |
                             CalendarUnit::kDay | CalendarUnit::kHour | CalendarUnit::kMinute |
                             CalendarUnit::kSecond;
  Calendar calendar = Calendar::current();
  Date now = Date::now();
  if (calendar.componentsFromDate(units, *last, now).day.value_or(0) < 5) return;
  if (auto notified = recentBackupMissedLastNotificationDate()) {
    if (calendar.componentsFromDate(units, *notified, now).day.value_or(0) < 2) return;
  }
  setRecentBackupMissedLastNotificationDate(now);
  alertForBackup(20);
}

void MoodAppDelegate::setDropboxCounter(long delta) {
  if (!isDropboxReminderEnabled()) return;
  long value = dropboxCounter() + delta;
  LUMEO_DROP_ERROR(defaults_->setInteger(kMoodDropboxCounter, value));
  defaults_->synchronize();
  if (value > 0 && value % 10 == 0) {
    after(1.0, [] {
      if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) app->alertUnlinkedDropbox();
    });
  }
}

void MoodAppDelegate::alertForBackup(int kind) {
  MoodViewController* visible = visibleMoodViewController();
  if (!visible) return;
  std::string message = kind == 10 ? shellText("Alert backup") : shellText("RECENT_BACKUP_MISSED_ALERT");
  visible->showAlert(
      shellText("Attention!"), message, shellText("Go"), shellText("Cancel"), [kind](int result) {
        MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
        if (result != 1 || !app) return;
        Screen* top = app->window().visibleViewController();
        NavigationController* nav = top ? top->navigationController() : nullptr;
        if (!nav) nav = app->navigationController().get();
        if (kind == 20) {
          MoodViewController::presenter().endEditing();
          if (nav) nav->popToRootViewControllerAnimated(false);
        }
        if (!top) return;
        app->services().passcode->requestPassCodeFromViewController(
            *top, true,
            [](bool granted) {
              MoodAppDelegate* a = MoodAppDelegate::sharedDelegate();
              if (!granted || !a) return;
              Screen* visibleNow = a->window().visibleViewController();
              NavigationController* target = visibleNow ? visibleNow->navigationController() : nullptr;
              if (!target) target = a->navigationController().get();
              if (target)
                target->pushViewController(std::make_shared<MoodViewController>("MoodBackupViewController"),
                                           true);
            },
            nullptr);
      });
}

}  // namespace lumeo
