// One start is one worker thread: connect, GetClient, set the client up,
// subscribe to LocationUpdated, Start, then iterate the thread's own main
// context until stop() wakes it. Every outcome reaches the main queue
// through a generation check, so a stopped start never reports.
#include "platform/linux/geoclue_position_source.h"

#include <gio/gio.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/dispatch_queue.h"
#include "platform/log.h"

namespace lumeo {

namespace {

constexpr const char* kBusName = "org.freedesktop.GeoClue2";
constexpr const char* kManagerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* kManagerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char* kClientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* kLocationInterface = "org.freedesktop.GeoClue2.Location";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr int kCallTimeoutMs = 25000;  // an agent may be asking the user

Error locationError(long code, const std::string& description) {
  return Error{kLocationErrorDomain, code, description, {}};
}

// What a D-Bus error means for the user.
Error errorFromDBus(GError* error, const char* step) {
  std::string name;
  if (error && g_dbus_error_is_remote_error(error)) {
    gchar* remote = g_dbus_error_get_remote_error(error);
    name = remote ? remote : "";
    g_free(remote);
  }
  const std::string message = error ? error->message : "";
  if (name == "org.freedesktop.DBus.Error.AccessDenied" || name == "org.freedesktop.DBus.Error.AuthFailed") {
    return locationError(kLocationDenied,
                         "location is not allowed for Lumeo (GeoClue said: " + message + ")");
  }
  if (name == "org.freedesktop.DBus.Error.ServiceUnknown" ||
      name == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
      name == "org.freedesktop.DBus.Error.Spawn.ServiceNotFound") {
    return locationError(kLocationNoService, "no location service (GeoClue) runs on this machine");
  }
  return locationError(kLocationFailed, std::string("GeoClue failed to ") + step + ": " + message);
}

}  // namespace

struct GeoCluePositionSource::Impl : std::enable_shared_from_this<Impl> {
  std::string desktopId;
  std::string address;
  std::atomic<Availability> availability{Availability::kUnknown};

  std::mutex mutex;
  std::thread worker;
  GMainContext* context = nullptr;  // the running start's, while it runs
  std::atomic<bool> stopRequested{false};
  // A start is under way and has not failed; cleared before a failure is
  // reported, so that a start made in answer to it begins afresh.
  std::atomic<bool> active{false};
  std::atomic<std::uint64_t> generation{0};
  FixHandler onFix;
  FailureHandler onFailure;

  void deliverFix(std::uint64_t startGeneration, const PositionFix& fix) {
    std::weak_ptr<Impl> weak = weak_from_this();
    DispatchQueue::main().async([weak, startGeneration, fix] {
      auto self = weak.lock();
      if (!self || self->generation != startGeneration || !self->onFix) return;
      self->onFix(fix);
    });
  }
  void deliverFailure(std::uint64_t startGeneration, const Error& error) {
    active = false;
    if (error.code == kLocationDenied) availability = Availability::kDenied;
    if (error.code == kLocationNoService) availability = Availability::kNoService;
    std::weak_ptr<Impl> weak = weak_from_this();
    DispatchQueue::main().async([weak, startGeneration, error] {
      auto self = weak.lock();
      if (!self || self->generation != startGeneration || !self->onFailure) return;
      self->onFailure(error);
    });
  }

  GDBusConnection* connect(GError** error) {
    std::string where = address;
    if (where.empty()) {
      const char* env = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
      where = env && *env ? env : "unix:path=/run/dbus/system_bus_socket";
    }
    return g_dbus_connection_new_for_address_sync(
        where.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, error);
  }

  static GVariant* call(GDBusConnection* bus, const char* path, const char* interface, const char* method,
                        GVariant* parameters, const char* replyType, GError** error) {
    return g_dbus_connection_call_sync(bus, kBusName, path, interface, method, parameters,
                                       replyType ? G_VARIANT_TYPE(replyType) : nullptr,
                                       G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, error);
  }

  static bool setProperty(GDBusConnection* bus, const char* path, const char* name, GVariant* value,
                          GError** error) {
    GVariant* reply = call(bus, path, kPropertiesInterface, "Set",
                           g_variant_new("(ssv)", kClientInterface, name, value), nullptr, error);
    if (!reply) return false;
    g_variant_unref(reply);
    return true;
  }

  // Reads the Location object's properties into a fix; nothing when they
  // are missing or no position (NaN, beyond ±90° / ±180°).
  static std::optional<PositionFix> readFix(GDBusConnection* bus, const char* path) {
    GError* error = nullptr;
    GVariant* reply = call(bus, path, kPropertiesInterface, "GetAll",
                           g_variant_new("(s)", kLocationInterface), "(a{sv})", &error);
    if (!reply) {
      LUMEO_LOG_DEBUG("GeoClue: cannot read the location %s: %s", path, error ? error->message : "");
      if (error) g_error_free(error);
      return std::nullopt;
    }
    GVariant* properties = g_variant_get_child_value(reply, 0);
    PositionFix fix;
    bool haveLatitude = g_variant_lookup(properties, "Latitude", "d", &fix.latitude);
    bool haveLongitude = g_variant_lookup(properties, "Longitude", "d", &fix.longitude);
    if (!g_variant_lookup(properties, "Accuracy", "d", &fix.horizontalAccuracy)) fix.horizontalAccuracy = -1;
    guint64 seconds = 0, microseconds = 0;
    if (g_variant_lookup(properties, "Timestamp", "(tt)", &seconds, &microseconds)) {
      fix.timestamp = Date::fromTimeIntervalSince1970(static_cast<double>(seconds) +
                                                      static_cast<double>(microseconds) / 1e6);
    } else {
      fix.timestamp = Date::now();
    }
    g_variant_unref(properties);
    g_variant_unref(reply);
    if (!haveLatitude || !haveLongitude || !std::isfinite(fix.latitude) || !std::isfinite(fix.longitude) ||
        std::fabs(fix.latitude) > 90 || std::fabs(fix.longitude) > 180) {
      LUMEO_LOG_WARNING("GeoClue: the location %s holds no usable position", path);
      return std::nullopt;
    }
    if (!std::isfinite(fix.horizontalAccuracy)) fix.horizontalAccuracy = -1;
    return fix;
  }

  struct SignalContext {
    Impl* impl;
    GDBusConnection* bus;
    std::uint64_t generation;
  };

  static void onLocationUpdated(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                                GVariant* parameters, gpointer data) {
    auto* context = static_cast<SignalContext*>(data);
    const gchar* oldPath = nullptr;
    const gchar* newPath = nullptr;
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(oo)"))) return;
    g_variant_get(parameters, "(&o&o)", &oldPath, &newPath);
    if (auto fix = readFix(context->bus, newPath)) context->impl->deliverFix(context->generation, *fix);
  }

  // The whole conversation of one start, on the worker thread.
  void run(std::uint64_t startGeneration) {
    GMainContext* own = g_main_context_new();
    g_main_context_push_thread_default(own);
    {
      std::lock_guard<std::mutex> lock(mutex);
      context = own;
    }
    GError* error = nullptr;
    GDBusConnection* bus = connect(&error);
    std::string clientPath;
    guint subscription = 0;
    SignalContext signalContext{this, bus, startGeneration};
    auto fail = [&](const Error& why) { deliverFailure(startGeneration, why); };

    if (!bus) {
      fail(locationError(kLocationNoService,
                         std::string("no system bus to reach GeoClue: ") + (error ? error->message : "")));
    } else if (GVariant* reply =
                   call(bus, kManagerPath, kManagerInterface, "GetClient", nullptr, "(o)", &error)) {
      const gchar* path = nullptr;
      g_variant_get(reply, "(&o)", &path);
      clientPath = path;
      g_variant_unref(reply);
      // The agent shows the application by its desktop id; GeoClue refuses
      // Start without one.
      bool ready = setProperty(bus, clientPath.c_str(), "DesktopId", g_variant_new_string(desktopId.c_str()),
                               &error) &&
                   setProperty(bus, clientPath.c_str(), "RequestedAccuracyLevel",
                               g_variant_new_uint32(kAccuracyLevelExact), &error) &&
                   setProperty(bus, clientPath.c_str(), "DistanceThreshold", g_variant_new_uint32(0), &error);
      if (!ready) {
        fail(errorFromDBus(error, "set up its client"));
      } else {
        subscription = g_dbus_connection_signal_subscribe(
            bus, kBusName, kClientInterface, "LocationUpdated", clientPath.c_str(), nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE, onLocationUpdated, &signalContext, nullptr);
        if (GVariant* started =
                call(bus, clientPath.c_str(), kClientInterface, "Start", nullptr, nullptr, &error)) {
          g_variant_unref(started);
          availability = Availability::kAvailable;
          while (!stopRequested) g_main_context_iteration(own, TRUE);
          if (GVariant* stopped =
                  call(bus, clientPath.c_str(), kClientInterface, "Stop", nullptr, nullptr, nullptr)) {
            g_variant_unref(stopped);
          }
        } else {
          fail(errorFromDBus(error, "start"));
        }
      }
    } else {
      fail(errorFromDBus(error, "give Lumeo a client"));
    }
    if (error) g_error_free(error);
    if (subscription) g_dbus_connection_signal_unsubscribe(bus, subscription);
    if (bus) {
      g_dbus_connection_flush_sync(bus, nullptr, nullptr);
      g_object_unref(bus);
    }
    while (g_main_context_iteration(own, FALSE)) {
    }
    {
      std::lock_guard<std::mutex> lock(mutex);
      context = nullptr;
    }
    g_main_context_pop_thread_default(own);
    g_main_context_unref(own);
  }
};

GeoCluePositionSource::GeoCluePositionSource(std::string desktopId, std::string busAddress)
    : impl_(std::make_shared<Impl>()) {
  impl_->desktopId = std::move(desktopId);
  impl_->address = std::move(busAddress);
}

GeoCluePositionSource::~GeoCluePositionSource() {
  stop();
}

PositionSource::Availability GeoCluePositionSource::availability() const {
  return impl_->availability;
}

void GeoCluePositionSource::start(FixHandler onFix, FailureHandler onFailure) {
  if (impl_->active) {  // running: only the handlers change
    impl_->onFix = std::move(onFix);
    impl_->onFailure = std::move(onFailure);
    return;
  }
  stop();
  impl_->onFix = std::move(onFix);
  impl_->onFailure = std::move(onFailure);
  impl_->stopRequested = false;
  impl_->active = true;
  const std::uint64_t generation = ++impl_->generation;
  impl_->worker = std::thread([impl = impl_, generation] { impl->run(generation); });
}

void GeoCluePositionSource::stop() {
  ++impl_->generation;  // nothing reported from here on
  impl_->stopRequested = true;
  impl_->active = false;
  {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    if (impl_->context) g_main_context_wakeup(impl_->context);
  }
  if (impl_->worker.joinable()) impl_->worker.join();
}

}  // namespace lumeo
