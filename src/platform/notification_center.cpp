// Synchronous notification delivery.
#include "platform/notification_center.h"

#include <algorithm>

namespace lumeo {

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter center;
  return center;
}

ObserverToken NotificationCenter::addObserver(const std::string& name, const void* sender, Handler handler) {
  std::lock_guard lock(mutex_);
  ObserverToken token = next_++;
  entries_.push_back({token, name, sender, std::make_shared<Handler>(std::move(handler))});
  return token;
}

void NotificationCenter::removeObserver(ObserverToken token) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [token](const Entry& e) { return e.token == token; });
}

void NotificationCenter::post(const Notification& notification) {
  // Deliver to a snapshot, so that handlers may add or remove observers; an
  // observer removed during this delivery is not called afterwards.
  std::vector<Entry> snapshot;
  {
    std::lock_guard lock(mutex_);
    for (const Entry& e : entries_) {
      if ((e.name.empty() || e.name == notification.name) && (!e.sender || e.sender == notification.sender)) {
        snapshot.push_back(e);
      }
    }
  }
  for (const Entry& e : snapshot) {
    bool stillObserving;
    {
      std::lock_guard lock(mutex_);
      stillObserving =
          std::any_of(entries_.begin(), entries_.end(), [&](const Entry& x) { return x.token == e.token; });
    }
    if (stillObserving) (*e.handler)(notification);
  }
}

void NotificationCenter::post(const std::string& name, const void* sender, std::any object,
                              Value::Dictionary userInfo) {
  post(Notification{name, sender, std::move(object), std::move(userInfo)});
}

}  // namespace lumeo
