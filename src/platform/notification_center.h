// Named notifications between loosely coupled parts. Delivery is synchronous
// on the posting thread, in the order observers were added. Observers may be
// added or removed from any thread, also from inside a delivery.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/value.h"

namespace lumeo {

struct Notification {
  std::string name;
  // Identity of the poster, used only to filter observers that ask for one
  // sender; may be null.
  const void* sender = nullptr;
  // The posted object (a string, a number, a context's save info, ...).
  std::any object;
  Value::Dictionary userInfo;
};

using ObserverToken = std::uint64_t;

class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  // The default centre of the process.
  static NotificationCenter& defaultCenter();

  // Observes `name` (empty: every name) from `sender` (null: any sender).
  ObserverToken addObserver(const std::string& name, const void* sender, Handler handler);
  void removeObserver(ObserverToken token);

  void post(const Notification& notification);
  void post(const std::string& name, const void* sender = nullptr, std::any object = {},
            Value::Dictionary userInfo = {});

 private:
  struct Entry {
    ObserverToken token;
    std::string name;
    const void* sender;
    std::shared_ptr<Handler> handler;
  };
  std::mutex mutex_;
  std::vector<Entry> entries_;
  ObserverToken next_ = 1;
};

// Removes its observation when it goes out of scope.
class ScopedObserver {
 public:
  ScopedObserver() = default;
  ScopedObserver(NotificationCenter& center, const std::string& name, const void* sender,
                 NotificationCenter::Handler handler)
      : center_(&center), token_(center.addObserver(name, sender, std::move(handler))) {}
  ScopedObserver(ScopedObserver&& o) noexcept : center_(o.center_), token_(o.token_) { o.center_ = nullptr; }
  ScopedObserver& operator=(ScopedObserver&& o) noexcept {
    if (this != &o) {
      reset();
      center_ = o.center_;
      token_ = o.token_;
      o.center_ = nullptr;
    }
    return *this;
  }
  ~ScopedObserver() { reset(); }
  void reset() {
    if (center_) center_->removeObserver(token_);
    center_ = nullptr;
  }

 private:
  NotificationCenter* center_ = nullptr;
  ObserverToken token_ = 0;
};

}  // namespace lumeo
