// The splash: fills the window while the store opens or migrates, then
// hands over to the application object through its completion. It shows a
// migration label while an old store is being converted.
#pragma once

#include <functional>

#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class UserDefaults;

class MoodSplashViewController : public MoodViewController {
 public:
  // Background colour background7 and the label's font.
  static constexpr RGBAColor kBackgroundColor{213 / 255.0, 81 / 255.0, 23 / 255.0, 1};
  static constexpr const char* kLabelFontName = "HelveticaNeue-Light";
  static constexpr double kLabelFontSize = 16;
  static constexpr double kIconFadeSeconds = 0.25;

  explicit MoodSplashViewController(UserDefaults& defaults);

  void setCompletion(std::function<void()> completion) { completion_ = std::move(completion); }

  // With animation the front end fades the icon in over kIconFadeSeconds and
  // then calls iconFadeDidFinish(); without, the completion runs at once.
  void viewDidAppear(bool animated);
  void iconFadeDidFinish();
  bool completed() const { return completed_; }

  // The store was opened (converted or not) / the conversion failed.
  void stopMigrationProgress();
  void failMigrationProgress();
  bool isMigrationLabelHidden() const { return labelHidden_; }
  bool isMigrating() const { return migrating_; }

 private:
  std::function<void()> completion_;
  bool completed_ = false;
  bool labelHidden_ = true;
  bool migrating_ = false;
  ScopedObserver stopObserver_;
  ScopedObserver failObserver_;
};

}  // namespace lumeo
