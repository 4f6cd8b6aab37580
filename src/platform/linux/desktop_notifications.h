// The desktop's notification server (org.freedesktop.Notifications on the
// session bus), through GDBus: posting a reminder with its sound, its badge
// and the action that opens the capture screen, and hearing which action the
// user chose. Calls block for at most a few seconds and are made from the
// thread that runs the default GLib main context; signals arrive there.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <variant>

#include "platform/error.h"
#include "platform/notification_center_service.h"

typedef struct _GDBusConnection GDBusConnection;

namespace lumeo {

inline constexpr char kDesktopNotificationsErrorDomain[] = "LumeoDesktopNotificationsErrorDomain";
enum DesktopNotificationsErrorCode : long {
  kNoSessionBus = 1,          // no session bus to connect to
  kNoNotificationServer = 2,  // nobody owns org.freedesktop.Notifications
  kNotificationRefused = 3,   // the server answered the call with an error
};

// The action key of the button; the user sees the localised
// "CAPTURE_ACTION_BUTTON_TITLE". "default" (a click on the notification)
// does the same.
inline constexpr char kCaptureActionKey[] = "CAPTURE_ACTION";

class DesktopNotifications {
 public:
  // Called with the request's userInfo when the user chooses the action on a
  // notification posted by this object.
  using ActionHandler = std::function<void(const Value::Dictionary& userInfo)>;

  // `soundsDirectory` holds the reminder sounds; a sound name is looked up
  // there, and the desktop's own sound is asked for by its theme name.
  explicit DesktopNotifications(std::filesystem::path soundsDirectory);
  ~DesktopNotifications();
  DesktopNotifications(const DesktopNotifications&) = delete;
  DesktopNotifications& operator=(const DesktopNotifications&) = delete;

  // Connects to the session bus if not connected yet.
  OptionalError connect();
  bool serverAvailable();

  // Posts one notification; its id, or an error of this domain.
  std::variant<std::uint32_t, Error> post(const NotificationRequest& request, bool catchUp);

  void setActionHandler(ActionHandler handler) { onAction_ = std::move(handler); }

  // The hints a request is posted with (tests and docs).
  std::map<std::string, std::string> soundHint(const std::string& sound) const;

 private:
  static void onSignal(GDBusConnection*, const char*, const char*, const char*, const char* signal,
                       void* parameters, void* self);
  void actionInvoked(std::uint32_t id, const std::string& key);

  std::filesystem::path soundsDirectory_;
  GDBusConnection* connection_ = nullptr;
  unsigned subscription_ = 0;
  std::map<std::uint32_t, Value::Dictionary> posted_;  // id -> userInfo, until closed or acted on
  ActionHandler onAction_;
};

}  // namespace lumeo
