// The four tabs: Capture, History, Summary and Map. It keeps the current
// page, decides which buttons are enabled (a journal without records has no
// history or summary to show) and puts every tab but Capture behind the
// passcode gate.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class PasscodeGate;
class WatchService;
class UserDefaults;

class MoodTabBarController : public MoodViewController {
 public:
  enum Tab { kCaptureTab = 0, kHistoryTab = 1, kSummaryTab = 2, kMapTab = 3 };
  enum class PageDirection { kForward, kReverse };

  struct Environment {
    std::shared_ptr<PasscodeGate> passcode;
    std::shared_ptr<WatchService> watch;
    // Fetches one record: true when the journal holds any.
    std::function<bool()> hasRecords;
    std::shared_ptr<UserDefaults> defaults;
  };

  // doInit: makes the four screens, observes the store's change and the
  // sync's end, and checks availability once.
  explicit MoodTabBarController(Environment environment);
  ~MoodTabBarController() override;

  const std::vector<std::shared_ptr<Screen>>& controllers() const { return controllers_; }
  const std::vector<std::string>& titles() const { return titles_; }
  Screen* currentController() const { return current_; }
  int currentIndex() const;
  bool isSummaryAvailable() const { return isSummaryAvailable_; }
  bool isSummaryAvailableBefore() const { return isSummaryAvailableBefore_; }
  bool isButtonEnabled(int index) const { return enabled_.at(index); }
  int selectedButtonIndex() const { return selectedButton_; }
  PageDirection lastPageDirection() const { return lastDirection_; }

  // Shows the tutorial or the sync page of it when not yet completed, and
  // tells the watch the current data.
  void viewDidLoad();

  void setCurrentController(Screen* screen, bool animated);
  void setCurrentController(Screen* screen) { setCurrentController(screen, false); }
  void selectTab(int index, bool animated);

  void checkSummaryAvailabilityForSync();
  // Only on the main thread; when records just ran out, goes to Capture.
  void checkSummaryAvailability();

  // The tab gate: Capture is always allowed, the others ask for the passcode.
  bool buttonGroupShouldSelectButtonAtIndex(int index);

  // Opens the settings menu behind the passcode gate.
  void showSettings();
  void showTutorial();

 private:
  Environment env_;
  std::vector<std::shared_ptr<Screen>> controllers_;
  std::vector<std::string> titles_;
  Screen* current_ = nullptr;
  bool isSummaryAvailable_ = false;
  bool isSummaryAvailableBefore_ = false;
  std::array<bool, 4> enabled_{true, true, true, true};
  int selectedButton_ = 0;
  PageDirection lastDirection_ = PageDirection::kForward;
  std::vector<ScopedObserver> observers_;
};

}  // namespace lumeo
