// Handlers that may fire after what they act on is gone. An alert's or a
// sheet's handler runs when the user answers, and by then the screen that
// asked may have been closed and destroyed (the application went to the
// background, a reminder replaced the screen). Run against a destroyed
// screen, the handler would touch freed memory; run against a screen that is
// no longer shown, it would act where the user no longer is. whileAlive()
// drops such a call, so a handler may capture its screen's `this`.
#pragma once

#include <memory>
#include <utility>

namespace lumeo {

// Wraps `handler` so that a call runs it only while `owner` lives, and keeps
// the owner alive until the handler returns. A call after the owner is gone
// does nothing.
template <class Handler>
auto whileAlive(std::weak_ptr<const void> owner, Handler handler) {
  return [owner = std::move(owner), handler = std::move(handler)](auto&&... args) {
    auto alive = owner.lock();
    if (!alive) return;
    handler(std::forward<decltype(args)>(args)...);
  };
}

// The owner for objects that are not held by a shared_ptr: a member token
// that dies with the object. `whileAlive(token_.owner(), ...)`.
class LifetimeToken {
 public:
  std::weak_ptr<const void> owner() const { return token_; }

 private:
  std::shared_ptr<const char> token_ = std::make_shared<const char>('\0');
};

}  // namespace lumeo
