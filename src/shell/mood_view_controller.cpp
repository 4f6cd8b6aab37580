// Alert helpers of the screen base and the tall-layout rule.
#include "shell/mood_view_controller.h"

#include <algorithm>

#include "shell/callback_guard.h"

namespace lumeo {

namespace {
std::shared_ptr<Presenter>& sharedPresenterSlot() {
  static std::shared_ptr<Presenter> presenter = std::make_shared<SilentPresenter>();
  return presenter;
}
}  // namespace

MoodViewController::MoodViewController(std::string className) : Screen(std::move(className)) {}

void MoodViewController::setSharedPresenter(std::shared_ptr<Presenter> presenter) {
  sharedPresenterSlot() = presenter ? std::move(presenter) : std::make_shared<SilentPresenter>();
}

Presenter& MoodViewController::presenter() {
  return *sharedPresenterSlot();
}

std::function<void(int)> MoodViewController::guardedHandler(std::function<void(int)> handler) {
  return whileAlive(weak_from_this(), [handler = std::move(handler)](int result) {
    if (handler) handler(result);
  });
}

void MoodViewController::showAlert(const std::string& title, const std::string& message,
                                   const std::string& done) {
  showAlert(title, message, done, std::nullopt, nullptr);
}

void MoodViewController::showAlert(const std::string& title, const std::string& message,
                                   const std::optional<std::string>& done,
                                   const std::optional<std::string>& cancel,
                                   std::function<void(int)> completionHandler) {
  showAlert(title, message, done, std::nullopt, AlertActionStyle::kDefault, cancel, std::nullopt,
            std::move(completionHandler));
}

void MoodViewController::showAlert(const std::string& title, const std::string& message,
                                   const std::optional<std::string>& done, std::optional<RGBAColor> doneColor,
                                   AlertActionStyle doneStyle, const std::optional<std::string>& cancel,
                                   std::optional<RGBAColor> cancelColor,
                                   std::function<void(int)> completionHandler) {
  AlertRequest request{title, message, {}, false, nullptr};
  if (done) request.actions.push_back({*done, doneStyle, doneColor, 1});
  if (cancel) request.actions.push_back({*cancel, AlertActionStyle::kCancel, cancelColor, 0});
  presenter().presentAlert(*this, request, guardedHandler(std::move(completionHandler)));
}

void MoodViewController::showActionSheet(const std::string& title, const std::string& message,
                                         const std::vector<MoodActionItem>& items,
                                         std::function<void(int)> completionHandler) {
  showActionSheet(title, message, items, nullptr, std::move(completionHandler));
}

void MoodViewController::showActionSheet(const std::string& title, const std::string& message,
                                         const std::vector<MoodActionItem>& items, const Screen* view,
                                         std::function<void(int)> completionHandler) {
  AlertRequest request{title, message, {}, true, view};
  for (const MoodActionItem& item : items) {
    AlertActionStyle style = item.result == kMoodActionDestructive ? AlertActionStyle::kDestructive
                             : item.result == kMoodActionCancel    ? AlertActionStyle::kCancel
                                                                   : AlertActionStyle::kDefault;
    request.actions.push_back({item.title, style, std::nullopt, item.result});
  }
  presenter().presentAlert(*this, request, guardedHandler(std::move(completionHandler)));
}

const std::vector<std::string>& MoodViewController::tallLayoutScreens() {
  static const std::vector<std::string> screens = {
      "MoodSettingsViewController",      "MoodCaptureEditViewController",
      "MoodAboutViewController",         "MoodTutorialViewController",
      "MoodTemplateViewController",      "MoodSyncingViewController",
      "MoodGraphSettingsViewController", "MoodMapSettingsViewController",
      "MoodRemindersViewController",     "MoodReminderViewController",
      "MoodReminderSoundViewController", "MoodNotificationTextEditViewController",
      "MoodBackupViewController",        "MoodPassSettingsViewController",
      "MoodExportViewController",        "MoodHelpViewController",
      "MoodFAQViewController",           "MoodGalleryViewController",
      "MoodSummaryViewController",       "MoodTagHistoryViewController",
      "MoodLocationViewController",      "MoodDateHistoryViewController",
  };
  return screens;
}

std::string MoodViewController::nibNameForDevice(const std::string& nibName, bool isTallPhone) {
  if (!isTallPhone || nibName.empty() || nibName.back() == 'X') return nibName;
  const auto& list = tallLayoutScreens();
  if (std::find(list.begin(), list.end(), nibName) == list.end()) return nibName;
  return nibName + "X";
}

}  // namespace lumeo
