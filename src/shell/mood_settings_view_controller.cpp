// Rows, heights and actions of the settings menu.
#include "shell/mood_settings_view_controller.h"

#include <map>

#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell/shell_services.h"
#include "shell/shell_text.h"
#include "store/notification_names.h"

namespace lumeo {

namespace {

const std::vector<MoodSettingsRow>& fixedRows() {
  static const std::vector<MoodSettingsRow> rows = {
      {"kMoodsRow", "Moods", "moods", "MoodCaptureEditViewController"},
      {"kTemplateRow", "Template", "template", "MoodTemplateViewController"},
      {"kChartsRow", "Charts", "graphic", "MoodGraphSettingsViewController"},
      {"kMapRow", "Location", "map", "MoodMapSettingsViewController"},
      {"kRemindersRow", "Reminders", "reminders", "MoodRemindersViewController"},
      {"kBackupRow", "Backup", "backup", "MoodBackupViewController"},
      {"kSyncRow", "Sync", "syncing", "MoodSyncingViewController"},
      {"kLockRow", "Pass Code", "lock", "MoodPassSettingsViewController"},
      {"kExportRow", "Export", "export", "MoodExportViewController"},
      {"kWatchRow", "Watch", "watch", "MoodWatchViewController"},
  };
  return rows;
}

constexpr double kRowHeight = 44;
constexpr double kLastRowHeight = 48;

}  // namespace

MoodSettingsViewController::MoodSettingsViewController(std::shared_ptr<CloudLinkService> cloudLink,
                                                       std::shared_ptr<WatchService> watch,
                                                       std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodSettingsViewController"),
      cloudLink_(std::move(cloudLink)),
      watch_(std::move(watch)),
      defaults_(std::move(defaults)) {
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  if (!cloudLink_) cloudLink_ = app ? app->services().cloudLink : std::make_shared<CloudLinkService>();
  if (!watch_) watch_ = app ? app->services().watch : std::make_shared<WatchService>();
  if (!defaults_) defaults_ = UserDefaults::standard();
  linkedObserver_ = ScopedObserver(NotificationCenter::defaultCenter(), DropboxLinkedNotification, nullptr,
                                   [this](const Notification&) { dropboxLinked(); });
  loadSections();
}

void MoodSettingsViewController::loadSections() {
  rows_.clear();
  for (MoodSettingsRow row : fixedRows()) {
    row.title = shellText(row.title);
    rows_.push_back(row);
  }
  if (cloudLink_->isAuthorized()) {
    rows_.push_back({"kSpaceAndDropboxRow", shellText("Dropbox"), "dropbox", ""});
    rows_.push_back({"kDropboxDisconnectRow", shellText("Unlink this app"), "", ""});
    rows_.push_back({"kDropboxAccountRow", dropboxLoginString_, "", ""});
  } else {
    rows_.push_back({"", "", "", ""});
    rows_.push_back({"", "", "", ""});
  }
  sections_.clear();
  for (const auto& row : rows_) sections_.push_back(row.key);
}

const MoodSettingsRow* MoodSettingsViewController::rowForKey(const std::string& key) const {
  for (const auto& row : rows_) {
    if (row.key == key) return &row;
  }
  return nullptr;
}

double MoodSettingsViewController::heightForRow(std::size_t index) const {
  if (index >= rows_.size()) return 0;
  const std::string& key = rows_[index].key;
  bool paired = watch_->isPaired();
  if (key == "kDropboxDisconnectRow") return kLastRowHeight;
  if (key == "kWatchRow") return paired ? kLastRowHeight : 0;
  // Without a watch the export row closes the list.
  if (key == "kExportRow" && !paired) return kLastRowHeight;
  return kRowHeight;
}

void MoodSettingsViewController::didSelectRow(std::size_t index) {
  if (index >= rows_.size()) return;
  const MoodSettingsRow& row = rows_[index];
  if (row.key == "kDropboxDisconnectRow") {
    std::vector<MoodActionItem> items = {{shellText("Unlink"), kMoodActionDestructive},
                                         {shellText("Cancel"), kMoodActionCancel}};
    showActionSheet("", "", items, [this](int result) {
      if (result != kMoodActionDestructive) return;
      cloudLink_->unlinkAndResetClients();
      LUMEO_DROP_ERROR(defaults_->removeObjectForKey("DropboxLogin"));
      defaults_->synchronize();
      loadSections();
    });
    return;
  }
  if (row.screen.empty()) return;
  if (NavigationController* nav = navigationController())
    nav->pushViewController(makeScreen(row.screen), true);
}

namespace {
std::map<std::string, MoodSettingsViewController::ScreenMaker>& screenMakers() {
  static std::map<std::string, MoodSettingsViewController::ScreenMaker> makers;
  return makers;
}
}  // namespace

void MoodSettingsViewController::registerScreenMaker(const std::string& className, ScreenMaker maker) {
  if (maker) {
    screenMakers()[className] = std::move(maker);
  } else {
    screenMakers().erase(className);
  }
}

std::shared_ptr<Screen> MoodSettingsViewController::makeScreen(const std::string& className) {
  auto it = screenMakers().find(className);
  std::shared_ptr<Screen> screen = it != screenMakers().end() ? it->second() : nullptr;
  return screen ? screen : std::make_shared<MoodViewController>(className);
}

void MoodSettingsViewController::dropboxLinked() {
  std::weak_ptr<Screen> weakSelf = weak_from_this();
  cloudLink_->getCurrentAccount([weakSelf](const std::string& displayName) {
    auto self = std::static_pointer_cast<MoodSettingsViewController>(weakSelf.lock());
    if (!self) return;
    if (!displayName.empty()) {
      std::string format = shellText("Linked by %@");
      auto at = format.find("%@");
      self->dropboxLoginString_ =
          at == std::string::npos ? format : format.substr(0, at) + displayName + format.substr(at + 2);
    }
    DispatchQueue::main().async([weakSelf] {
      auto s = std::static_pointer_cast<MoodSettingsViewController>(weakSelf.lock());
      if (!s) return;
      for (auto& row : s->rows_) {
        if (row.key == "kDropboxAccountRow") row.title = s->dropboxLoginString_;
      }
      ++s->accountRowReloads_;
    });
  });
}

}  // namespace lumeo
