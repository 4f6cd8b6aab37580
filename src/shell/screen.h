// The navigation model of the application: screens, navigation stacks, the
// chain of presented screens and the window. Controllers decide what is
// shown; the front ends mirror this model in their own views, listening to
// the window's change callback.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lumeo {

class NavigationController;
class Window;

// One screen. Its class name ("MoodSettingsViewController", ...) is what the
// shell's rules look at, so the front ends create screens under the names the
// controllers use.
class Screen : public std::enable_shared_from_this<Screen> {
 public:
  explicit Screen(std::string className);
  virtual ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  const std::string& className() const { return className_; }
  virtual bool isNavigationController() const { return false; }
  // True for the screens that carry the alert helpers (MoodViewController).
  virtual bool isMoodViewController() const { return false; }

  // The screen presented modally over this one, and the one this screen was
  // presented on; null when there is none.
  std::shared_ptr<Screen> presentedViewController() const { return presented_; }
  Screen* presentingViewController() const { return presenting_; }
  // The navigation stack that holds this screen, if any.
  NavigationController* navigationController() const { return container_; }

  // Presents `screen` over this one. A screen that already presents another
  // one presents on the top of its chain instead, as the platform would
  // refuse a second presentation.
  void presentViewController(std::shared_ptr<Screen> screen, bool animated);
  // Dismisses the screen presented over this one with everything above it;
  // with nothing presented, dismisses this screen (or the navigation stack
  // holding it) from its presenter.
  void dismissViewControllerAnimated(bool animated);

  // The topmost screen seen by the user starting here: follows the
  // presented chain and the tops of navigation stacks.
  Screen* visibleViewController();

  Window* window() const;

 private:
  friend class NavigationController;
  friend class Window;
  void notify(const std::string& what, bool animated);

  std::string className_;
  std::shared_ptr<Screen> presented_;
  Screen* presenting_ = nullptr;
  NavigationController* container_ = nullptr;
  Window* window_ = nullptr;  // set on the window's root only
};

// A stack of screens with its root at index 0.
class NavigationController : public Screen {
 public:
  explicit NavigationController(std::string className = "UINavigationController");
  NavigationController(std::shared_ptr<Screen> root, std::string className = "UINavigationController");
  ~NavigationController() override;

  bool isNavigationController() const override { return true; }
  const std::vector<std::shared_ptr<Screen>>& viewControllers() const { return stack_; }
  Screen* topViewController() const { return stack_.empty() ? nullptr : stack_.back().get(); }
  void pushViewController(std::shared_ptr<Screen> screen, bool animated);
  void popToRootViewControllerAnimated(bool animated);
  void setViewControllers(std::vector<std::shared_ptr<Screen>> screens);

  bool navigationBarHidden() const { return barHidden_; }
  void setNavigationBarHidden(bool hidden) { barHidden_ = hidden; }

 private:
  std::vector<std::shared_ptr<Screen>> stack_;
  bool barHidden_ = false;
};

// The application's window: one root screen and a change callback that the
// front ends use to redraw. `layerSpeed` is the animation speed factor that
// the reminder path slows down while the editor leaves.
class Window {
 public:
  using ChangeHandler = std::function<void(const std::string& what, Screen* screen, bool animated)>;

  std::shared_ptr<Screen> rootViewController() const { return root_; }
  void setRootViewController(std::shared_ptr<Screen> root);
  Screen* visibleViewController() const { return root_ ? root_->visibleViewController() : nullptr; }

  double layerSpeed() const { return layerSpeed_; }
  void setLayerSpeed(double speed) { layerSpeed_ = speed; }
  bool userInteractionEnabled() const { return interaction_; }
  void setUserInteractionEnabled(bool enabled) { interaction_ = enabled; }
  bool isVisible() const { return visible_; }
  void makeKeyAndVisible() { visible_ = true; }

  // Called for "present", "dismiss", "push", "pop" and "root".
  void setChangeHandler(ChangeHandler handler) { changed_ = std::move(handler); }
  void notify(const std::string& what, Screen* screen, bool animated) {
    if (changed_) changed_(what, screen, animated);
  }

 private:
  std::shared_ptr<Screen> root_;
  double layerSpeed_ = 1.0;
  bool interaction_ = true;
  bool visible_ = false;
  ChangeHandler changed_;
};

}  // namespace lumeo
