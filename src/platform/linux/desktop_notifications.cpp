// Posting reminders to the desktop's notification server over GDBus.
#include "platform/linux/desktop_notifications.h"

#include <gio/gio.h>

#include "platform/localization.h"
#include "platform/log.h"

namespace lumeo {

namespace {

constexpr const char* kBusName = "org.freedesktop.Notifications";
constexpr const char* kObjectPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr int kCallTimeoutMs = 5000;
// The sound a notification of the desktop's own plays (sound naming spec).
constexpr const char* kThemeSound = "message-new-instant";
constexpr const char* kSystemDefaultSound = "UILocalNotificationDefaultSoundName";

}  // namespace

DesktopNotifications::DesktopNotifications(std::filesystem::path soundsDirectory)
    : soundsDirectory_(std::move(soundsDirectory)) {}

DesktopNotifications::~DesktopNotifications() {
  if (connection_) {
    if (subscription_) g_dbus_connection_signal_unsubscribe(connection_, subscription_);
    g_object_unref(connection_);
  }
}

OptionalError DesktopNotifications::connect() {
  if (connection_ && !g_dbus_connection_is_closed(connection_)) return std::nullopt;
  if (connection_) {
    g_object_unref(connection_);
    connection_ = nullptr;
    subscription_ = 0;
  }
  GError* error = nullptr;
  connection_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!connection_) {
    std::string why = error ? error->message : "unknown";
    if (error) g_error_free(error);
    return Error(kDesktopNotificationsErrorDomain, kNoSessionBus, "no session bus: " + why);
  }
  g_dbus_connection_set_exit_on_close(connection_, FALSE);
  subscription_ = g_dbus_connection_signal_subscribe(
      connection_, nullptr, kInterface, nullptr, kObjectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      reinterpret_cast<GDBusSignalCallback>(&DesktopNotifications::onSignal), this, nullptr);
  return std::nullopt;
}

bool DesktopNotifications::serverAvailable() {
  if (connect()) return false;
  GVariant* reply = g_dbus_connection_call_sync(connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                "org.freedesktop.DBus", "NameHasOwner",
                                                g_variant_new("(s)", kBusName), G_VARIANT_TYPE("(b)"),
                                                G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, nullptr);
  if (!reply) return false;
  gboolean owned = FALSE;
  g_variant_get(reply, "(b)", &owned);
  g_variant_unref(reply);
  return owned;
}

std::map<std::string, std::string> DesktopNotifications::soundHint(const std::string& sound) const {
  if (sound.empty() || sound == kSystemDefaultSound) return {{"sound-name", kThemeSound}};
  std::error_code ec;
  std::filesystem::path file = soundsDirectory_ / sound;
  if (!soundsDirectory_.empty() && std::filesystem::exists(file, ec)) return {{"sound-file", file.string()}};
  // A sound we do not ship (a name from a newer version): the desktop's own.
  return {{"sound-name", kThemeSound}};
}

std::variant<std::uint32_t, Error> DesktopNotifications::post(const NotificationRequest& request,
                                                              bool catchUp) {
  if (auto error = connect()) return *error;
  std::string button = localized("CAPTURE_ACTION_BUTTON_TITLE");
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&actions, "s", "default");
  g_variant_builder_add(&actions, "s", button.c_str());
  g_variant_builder_add(&actions, "s", kCaptureActionKey);
  g_variant_builder_add(&actions, "s", button.c_str());

  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  for (const auto& [key, value] : soundHint(request.content.sound)) {
    g_variant_builder_add(&hints, "{sv}", key.c_str(), g_variant_new_string(value.c_str()));
  }
  g_variant_builder_add(&hints, "{sv}", "desktop-entry", g_variant_new_string("lumeo"));
  g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(1));
  // The reminder's badge number travels as a hint of our own; servers
  // ignore hints they do not know.
  g_variant_builder_add(&hints, "{sv}", "x-lumeo-badge",
                        g_variant_new_int32(static_cast<int>(request.content.badge)));
  if (catchUp) g_variant_builder_add(&hints, "{sv}", "x-lumeo-missed", g_variant_new_boolean(TRUE));

  std::string summary = localized("Reminders");
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      connection_, kBusName, kObjectPath, kInterface, "Notify",
      g_variant_new("(susssasa{sv}i)", "Lumeo", 0u, "lumeo", summary.c_str(), request.content.body.c_str(),
                    &actions, &hints, -1),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &error);
  if (!reply) {
    bool noServer = error && (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                              g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER));
    std::string why = error ? error->message : "unknown";
    if (error) g_error_free(error);
    if (noServer) {
      return Error(kDesktopNotificationsErrorDomain, kNoNotificationServer,
                   "no notification server on the session bus (org.freedesktop.Notifications)");
    }
    return Error(kDesktopNotificationsErrorDomain, kNotificationRefused,
                 "the notification server refused: " + why);
  }
  guint32 id = 0;
  g_variant_get(reply, "(u)", &id);
  g_variant_unref(reply);
  posted_[id] = request.content.userInfo;
  return static_cast<std::uint32_t>(id);
}

void DesktopNotifications::onSignal(GDBusConnection*, const char*, const char*, const char*,
                                    const char* signal, void* parameters, void* self) {
  auto* me = static_cast<DesktopNotifications*>(self);
  auto* params = static_cast<GVariant*>(parameters);
  if (g_strcmp0(signal, "ActionInvoked") == 0 && g_variant_is_of_type(params, G_VARIANT_TYPE("(us)"))) {
    guint32 id = 0;
    const char* key = nullptr;
    g_variant_get(params, "(u&s)", &id, &key);
    me->actionInvoked(id, key ? key : "");
  } else if (g_strcmp0(signal, "NotificationClosed") == 0 &&
             g_variant_is_of_type(params, G_VARIANT_TYPE("(uu)"))) {
    guint32 id = 0, reason = 0;
    g_variant_get(params, "(uu)", &id, &reason);
    me->posted_.erase(id);
  }
}

void DesktopNotifications::actionInvoked(std::uint32_t id, const std::string& key) {
  auto it = posted_.find(id);
  if (it == posted_.end()) return;  // another program's notification
  if (key != kCaptureActionKey && key != "default") return;
  Value::Dictionary userInfo = it->second;
  posted_.erase(it);
  if (onAction_) onAction_(userInfo);
}

}  // namespace lumeo
