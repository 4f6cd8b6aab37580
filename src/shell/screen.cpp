// The navigation model: presenting, dismissing, pushing and popping screens.
#include "shell/screen.h"

#include <algorithm>

namespace lumeo {

Screen::Screen(std::string className) : className_(std::move(className)) {}

Screen::~Screen() {
  if (presented_) presented_->presenting_ = nullptr;
}

Window* Screen::window() const {
  const Screen* s = this;
  for (;;) {
    if (s->window_) return s->window_;
    if (s->container_) {
      s = s->container_;
    } else if (s->presenting_) {
      s = s->presenting_;
    } else {
      return nullptr;
    }
  }
}

void Screen::notify(const std::string& what, bool animated) {
  if (Window* w = window()) w->notify(what, this, animated);
}

void Screen::presentViewController(std::shared_ptr<Screen> screen, bool animated) {
  if (!screen) return;
  Screen* host = this;
  while (host->presented_) host = host->presented_.get();
  host->presented_ = std::move(screen);
  host->presented_->presenting_ = host;
  host->presented_->notify("present", animated);
}

void Screen::dismissViewControllerAnimated(bool animated) {
  if (presented_) {
    std::shared_ptr<Screen> gone = std::move(presented_);
    presented_.reset();
    gone->presenting_ = nullptr;
    // Everything above the dismissed screen leaves with it.
    for (Screen* s = gone.get(); s && s->presented_;) {
      Screen* next = s->presented_.get();
      next->presenting_ = nullptr;
      s = next;
    }
    notify("dismiss", animated);
    return;
  }
  // Nothing presented here: the platform dismisses the screen itself, or the
  // navigation stack that holds it, from whatever presented it.
  Screen* target = this;
  while (!target->presenting_ && target->container_) target = target->container_;
  if (target->presenting_) target->presenting_->dismissViewControllerAnimated(animated);
}

Screen* Screen::visibleViewController() {
  Screen* s = this;
  for (;;) {
    if (s->presented_) {
      s = s->presented_.get();
    } else if (s->isNavigationController()) {
      Screen* top = static_cast<NavigationController*>(s)->topViewController();
      if (!top) return s;
      s = top;
    } else {
      return s;
    }
  }
}

NavigationController::NavigationController(std::string className) : Screen(std::move(className)) {}

NavigationController::NavigationController(std::shared_ptr<Screen> root, std::string className)
    : Screen(std::move(className)) {
  if (root) setViewControllers({std::move(root)});
}

NavigationController::~NavigationController() {
  for (auto& s : stack_) s->container_ = nullptr;
}

void NavigationController::pushViewController(std::shared_ptr<Screen> screen, bool animated) {
  if (!screen) return;
  screen->container_ = this;
  stack_.push_back(std::move(screen));
  stack_.back()->notify("push", animated);
}

void NavigationController::popToRootViewControllerAnimated(bool animated) {
  if (stack_.size() <= 1) return;
  for (std::size_t i = 1; i < stack_.size(); ++i) stack_[i]->container_ = nullptr;
  stack_.resize(1);
  notify("pop", animated);
}

void NavigationController::setViewControllers(std::vector<std::shared_ptr<Screen>> screens) {
  for (auto& s : stack_) s->container_ = nullptr;
  stack_ = std::move(screens);
  for (auto& s : stack_) s->container_ = this;
}

void Window::setRootViewController(std::shared_ptr<Screen> root) {
  if (root_) root_->window_ = nullptr;
  root_ = std::move(root);
  if (root_) root_->window_ = this;
  notify("root", root_.get(), false);
}

}  // namespace lumeo
