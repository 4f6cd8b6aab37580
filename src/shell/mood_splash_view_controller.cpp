// The splash's completion hand-over and migration label.
#include "shell/mood_splash_view_controller.h"

#include "platform/user_defaults.h"
#include "store/notification_names.h"

namespace lumeo {

MoodSplashViewController::MoodSplashViewController(UserDefaults& defaults)
    : MoodViewController("MoodSplashViewController") {
  // A store of the old layout that was not yet converted shows the label
  // until the store reports it is open.
  migrating_ = !defaults.boolForKey("migration2in3");
  labelHidden_ = !migrating_;
  auto& center = NotificationCenter::defaultCenter();
  stopObserver_ = ScopedObserver(center, MoodStopMigrationNotification, nullptr,
                                 [this](const Notification&) { stopMigrationProgress(); });
  failObserver_ = ScopedObserver(center, MoodFailMigrationNotification, nullptr,
                                 [this](const Notification&) { failMigrationProgress(); });
}

void MoodSplashViewController::viewDidAppear(bool animated) {
  if (!animated) iconFadeDidFinish();
}

void MoodSplashViewController::iconFadeDidFinish() {
  if (completed_) return;
  completed_ = true;
  if (completion_) {
    // The completion replaces the window's root, which may release this
    // splash; keep it alive until the call returns.
    auto keep = shared_from_this();
    auto completion = std::move(completion_);
    completion();
  }
}

void MoodSplashViewController::stopMigrationProgress() {
  migrating_ = false;
  labelHidden_ = true;
}

void MoodSplashViewController::failMigrationProgress() {
  labelHidden_ = true;
}

}  // namespace lumeo
