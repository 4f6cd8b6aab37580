// The tabs: availability of History and Summary, paging and the tab gate.
#include "shell/mood_tab_bar_controller.h"

#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "shell/mood_settings_view_controller.h"
#include "shell/shell_services.h"
#include "shell/shell_text.h"
#include "store/notification_names.h"

namespace lumeo {

MoodTabBarController::MoodTabBarController(Environment environment)
    : MoodViewController("MoodTabBarController"), env_(std::move(environment)) {
  if (!env_.passcode) env_.passcode = std::make_shared<AlwaysGrantedPasscodeGate>();
  if (!env_.watch) env_.watch = std::make_shared<WatchService>();
  if (!env_.defaults) env_.defaults = UserDefaults::standard();
  static const char* kScreens[] = {"MoodCaptureViewController", "MoodHistoryViewController",
                                   "MoodSummaryViewController", "MoodMapViewController"};
  static const char* kTitles[] = {"Capture", "History", "Summary", "Map"};
  for (int i = 0; i < 4; ++i) {
    controllers_.push_back(std::make_shared<MoodViewController>(kScreens[i]));
    titles_.push_back(shellText(kTitles[i]));
  }
  setCurrentController(controllers_[kCaptureTab].get());
  auto& center = NotificationCenter::defaultCenter();
  auto forSync = [this](const Notification&) { checkSummaryAvailabilityForSync(); };
  observers_.emplace_back(center, IDMSyncActivityDidDataMergingEndNotification, nullptr, forSync);
  observers_.emplace_back(center, IDMSyncActivityDidEnd, nullptr, forSync);
  observers_.emplace_back(center, MoodModelHasChangedNotification, nullptr,
                          [this](const Notification&) { checkSummaryAvailability(); });
  checkSummaryAvailability();
}

MoodTabBarController::~MoodTabBarController() = default;

int MoodTabBarController::currentIndex() const {
  for (std::size_t i = 0; i < controllers_.size(); ++i) {
    if (controllers_[i].get() == current_) return static_cast<int>(i);
  }
  return -1;
}

void MoodTabBarController::viewDidLoad() {
  env_.watch->saveData();
  if (!env_.defaults->boolForKey("tutorialCompleted")) {
    presentViewController(std::make_shared<MoodViewController>("MoodTutorialViewController"), false);
  } else if (!env_.defaults->boolForKey("tutorialSyncCompleted")) {
    // The tutorial opened on its sync page; the front end reads the name.
    presentViewController(std::make_shared<MoodViewController>("MoodTutorialViewController.sync"), false);
  }
  // Analytics would be configured here; Lumeo collects none.
}

void MoodTabBarController::setCurrentController(Screen* screen, bool animated) {
  int oldIndex = currentIndex();
  current_ = screen;
  int newIndex = currentIndex();
  Window* w = window();
  // Touches during the page change would land on a half-moved page.
  if (w) w->setUserInteractionEnabled(false);
  lastDirection_ = newIndex > oldIndex ? PageDirection::kForward : PageDirection::kReverse;
  if (newIndex >= 0) selectedButton_ = newIndex;
  if (w) {
    w->notify("page", screen, animated);
    w->setUserInteractionEnabled(true);
  }
}

void MoodTabBarController::selectTab(int index, bool animated) {
  if (index < 0 || index >= static_cast<int>(controllers_.size())) return;
  setCurrentController(controllers_[index].get(), animated);
}

void MoodTabBarController::checkSummaryAvailabilityForSync() {
  bool has = env_.hasRecords ? env_.hasRecords() : false;
  isSummaryAvailableBefore_ = isSummaryAvailable_;
  isSummaryAvailable_ = has;
  // Map shows located records only and stays reachable either way.
  enabled_[kSummaryTab] = has;
  enabled_[kHistoryTab] = has;
}

void MoodTabBarController::checkSummaryAvailability() {
  if (!MainLoop::shared().isMainThread()) return;
  checkSummaryAvailabilityForSync();
  if (isSummaryAvailableBefore_ && !isSummaryAvailable_) selectTab(kCaptureTab, true);
}

bool MoodTabBarController::buttonGroupShouldSelectButtonAtIndex(int index) {
  if (index == kCaptureTab) return true;
  if (index < 0 || index >= static_cast<int>(controllers_.size())) return false;
  // The gate answers either inside the call (no passcode, or unlocked) or
  // later, after the user typed the code; only the first kind allows the
  // selection now.
  struct Answer {
    bool inside = true;
    bool answered = false;
    bool granted = false;
  };
  auto answer = std::make_shared<Answer>();
  std::weak_ptr<Screen> weakSelf = weak_from_this();
  env_.passcode->requestPassCodeFromViewController(
      *this, true,
      [answer, weakSelf, index](bool ok) {
        if (answer->inside) {
          answer->answered = true;
          answer->granted = ok;
          return;
        }
        auto self = std::static_pointer_cast<MoodTabBarController>(weakSelf.lock());
        if (ok && self) self->selectTab(index, false);
      },
      nullptr);
  answer->inside = false;
  return answer->answered && answer->granted;
}

void MoodTabBarController::showSettings() {
  // Granted at once, the menu opens at once. Granted by the code, it opens
  // once the entry screen has gone: presented while that screen is still
  // up, it would sit on top of it and leave with it.
  struct Gate {
    bool inside = true;
    bool granted = false;
    bool presented = false;
  };
  auto gate = std::make_shared<Gate>();
  std::weak_ptr<Screen> weakSelf = weak_from_this();
  auto present = [weakSelf, gate] {
    auto self = weakSelf.lock();
    if (!self || !gate->granted || gate->presented) return;
    gate->presented = true;
    auto settings = std::make_shared<MoodSettingsViewController>();
    self->presentViewController(std::make_shared<NavigationController>(settings), true);
  };
  env_.passcode->requestPassCodeFromViewController(
      *this, true,
      [gate, present](bool granted) {
        gate->granted = granted;
        if (gate->inside) present();
      },
      present);
  gate->inside = false;
}

void MoodTabBarController::showTutorial() {
  presentViewController(std::make_shared<MoodViewController>("MoodHelpViewController"), true);
}

}  // namespace lumeo
