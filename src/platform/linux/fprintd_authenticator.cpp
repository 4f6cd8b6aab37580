// fprintd behind the biometric seam, on GDBus. Each check runs on its own
// worker thread with its own GLib main context, in which the VerifyStatus
// signal of the claimed reader is delivered; cancel() and the timeout wake
// that context.
#include "platform/linux/fprintd_authenticator.h"

#include <gio/gio.h>

#include <chrono>
#include <cstdlib>

namespace lumeo {

namespace {

constexpr const char* kFprintName = "net.reactivated.Fprint";
constexpr const char* kManagerPath = "/net/reactivated/Fprint/Manager";
constexpr const char* kManagerInterface = "net.reactivated.Fprint.Manager";
constexpr const char* kDeviceInterface = "net.reactivated.Fprint.Device";
constexpr int kCallTimeoutMs = 5000;

Error biometricError(long code, std::string description) {
  return Error(kBiometricErrorDomain, code, std::move(description));
}

// A failed call as the check's error: the service's own "no reader" and
// "nothing enrolled" errors, and any bus failure as "not available".
Error errorFromCall(GError* error) {
  std::string name;
  if (gchar* remote = g_dbus_error_get_remote_error(error)) {
    name = remote;
    g_free(remote);
  }
  std::string message = error->message ? error->message : "";
  g_error_free(error);
  if (name == "net.reactivated.Fprint.Error.NoSuchDevice") {
    return biometricError(kBiometricNotAvailable, "No fingerprint reader");
  }
  if (name == "net.reactivated.Fprint.Error.NoEnrolledPrints") {
    return biometricError(kBiometricNotEnrolled, "No finger is enrolled on the fingerprint reader");
  }
  if (name == "net.reactivated.Fprint.Error.PermissionDenied") {
    return biometricError(kBiometricNotAvailable, "fprintd refused the fingerprint reader: " + message);
  }
  if (name.empty() || name.rfind("org.freedesktop.DBus.Error.", 0) == 0) {
    return biometricError(kBiometricNotAvailable, "fprintd does not answer on the system bus: " + message);
  }
  return biometricError(kBiometricSystemCancel, "fprintd: " + message);
}

}  // namespace

struct FprintdAuthenticator::Impl {
  std::string address;
  std::string username;
  double verifyTimeout = 60;

  std::mutex mutex;
  GDBusConnection* connection = nullptr;
  std::thread worker;
  bool running = false;
  bool cancelled = false;
  GMainContext* waitContext = nullptr;  // the running check's context

  ~Impl() {
    if (connection) g_object_unref(connection);
  }

  // The bus connection, opened on first use.
  GDBusConnection* bus(Error& failure) {
    std::lock_guard lock(mutex);
    if (connection && !g_dbus_connection_is_closed(connection)) return connection;
    if (connection) {
      g_object_unref(connection);
      connection = nullptr;
    }
    std::string where = address;
    if (where.empty()) {
      const char* env = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
      where = env && *env ? env : "unix:path=/run/dbus/system_bus_socket";
    }
    GError* error = nullptr;
    connection = g_dbus_connection_new_for_address_sync(
        where.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (!connection) {
      failure = biometricError(kBiometricNotAvailable,
                               std::string("no fingerprint service (fprintd) on the system bus: ") +
                                   (error ? error->message : ""));
      if (error) g_error_free(error);
      return nullptr;
    }
    return connection;
  }

  // One method call; the reply, or nullptr with `failure` set.
  GVariant* call(GDBusConnection* bus, const char* path, const char* interface, const char* method,
                 GVariant* parameters, const char* replyType, Error& failure) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(bus, kFprintName, path, interface, method, parameters,
                                                  replyType ? G_VARIANT_TYPE(replyType) : nullptr,
                                                  G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &error);
    if (!reply) failure = errorFromCall(error);
    return reply;
  }

  // The default reader's object path with a finger enrolled, or "" with
  // `failure` set.
  std::string usableDevice(GDBusConnection* bus, Error& failure) {
    GVariant* reply = call(bus, kManagerPath, kManagerInterface, "GetDefaultDevice", nullptr, "(o)", failure);
    if (!reply) return {};
    const gchar* raw = nullptr;
    g_variant_get(reply, "(&o)", &raw);
    std::string device = raw ? raw : "";
    g_variant_unref(reply);
    GVariant* fingers = call(bus, device.c_str(), kDeviceInterface, "ListEnrolledFingers",
                             g_variant_new("(s)", username.c_str()), "(as)", failure);
    if (!fingers) return {};
    GVariant* list = g_variant_get_child_value(fingers, 0);
    gsize count = g_variant_n_children(list);
    g_variant_unref(list);
    g_variant_unref(fingers);
    if (count == 0) {
      failure = biometricError(kBiometricNotEnrolled, "No finger is enrolled on the fingerprint reader");
      return {};
    }
    return device;
  }

  struct Wait {
    Impl* impl = nullptr;
    bool done = false;
    OptionalError result;
  };

  static void onVerifyStatus(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                             GVariant* parameters, gpointer data) {
    auto* wait = static_cast<Wait*>(data);
    const gchar* status = nullptr;
    gboolean done = FALSE;
    g_variant_get(parameters, "(&sb)", &status, &done);
    std::string result = status ? status : "";
    if (result == "verify-match") {
      wait->result.reset();
      wait->done = true;
    } else if (result == "verify-no-match") {
      wait->result = biometricError(kBiometricAuthenticationFailed, "The finger did not match");
      wait->done = true;
    } else if (result == "verify-disconnected" || result == "verify-unknown-error") {
      wait->result = biometricError(kBiometricSystemCancel, "The fingerprint reader failed (" + result + ")");
      wait->done = true;
    } else if (done) {
      // A retry status that the service marks final: the scan never got good.
      wait->result =
          biometricError(kBiometricAuthenticationFailed, "The finger could not be read (" + result + ")");
      wait->done = true;
    }
  }

  // Runs one whole check on the calling (worker) thread.
  OptionalError verify() {
    Error failure;
    GDBusConnection* connection = bus(failure);
    if (!connection) return failure;
    std::string device = usableDevice(connection, failure);
    if (device.empty()) return failure;

    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    Wait wait;
    wait.impl = this;
    guint subscription = g_dbus_connection_signal_subscribe(
        connection, nullptr, kDeviceInterface, "VerifyStatus", device.c_str(), nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, onVerifyStatus, &wait, nullptr);
    {
      std::lock_guard lock(mutex);
      waitContext = context;
    }
    OptionalError result;
    bool claimed = false;
    if (GVariant* r = call(connection, device.c_str(), kDeviceInterface, "Claim",
                           g_variant_new("(s)", username.c_str()), nullptr, failure)) {
      g_variant_unref(r);
      claimed = true;
    } else {
      result = failure;
    }
    bool started = false;
    if (claimed) {
      if (GVariant* r = call(connection, device.c_str(), kDeviceInterface, "VerifyStart",
                             g_variant_new("(s)", "any"), nullptr, failure)) {
        g_variant_unref(r);
        started = true;
      } else {
        result = failure;
      }
    }
    if (started) {
      auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(verifyTimeout);
      GSource* tick = g_timeout_source_new(100);
      g_source_set_callback(
          tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
      g_source_attach(tick, context);
      for (;;) {
        {
          std::lock_guard lock(mutex);
          if (cancelled) {
            result = biometricError(kBiometricUserCancel, "The fingerprint check was cancelled");
            break;
          }
        }
        if (wait.done) {
          result = wait.result;
          break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
          result = biometricError(kBiometricSystemCancel, "No finger was put on the reader in time");
          break;
        }
        g_main_context_iteration(context, TRUE);
      }
      g_source_destroy(tick);
      g_source_unref(tick);
      Error ignored;
      if (GVariant* r =
              call(connection, device.c_str(), kDeviceInterface, "VerifyStop", nullptr, nullptr, ignored))
        g_variant_unref(r);
    }
    if (claimed) {
      Error ignored;
      if (GVariant* r =
              call(connection, device.c_str(), kDeviceInterface, "Release", nullptr, nullptr, ignored))
        g_variant_unref(r);
    }
    {
      std::lock_guard lock(mutex);
      waitContext = nullptr;
    }
    g_dbus_connection_signal_unsubscribe(connection, subscription);
    // Let the unsubscription's clean-up run before the context goes.
    while (g_main_context_iteration(context, FALSE)) {
    }
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
    return result;
  }
};

FprintdAuthenticator::FprintdAuthenticator(std::string busAddress, std::string username,
                                           double verifyTimeoutSeconds)
    : impl_(std::make_shared<Impl>()) {
  impl_->address = std::move(busAddress);
  impl_->username = std::move(username);
  impl_->verifyTimeout = verifyTimeoutSeconds;
}

FprintdAuthenticator::~FprintdAuthenticator() {
  cancel();
  std::thread worker;
  {
    std::lock_guard lock(impl_->mutex);
    worker = std::move(impl_->worker);
  }
  if (worker.joinable()) worker.join();
}

bool FprintdAuthenticator::canEvaluatePolicy(OptionalError* error) {
  Error failure;
  GDBusConnection* connection = impl_->bus(failure);
  bool usable = connection && !impl_->usableDevice(connection, failure).empty();
  if (!usable && error) *error = failure;
  return usable;
}

void FprintdAuthenticator::evaluatePolicy(const std::string& localizedReason, Reply reply) {
  (void)localizedReason;  // fprintd shows no text of ours
  std::thread previous;
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->running) {
      std::thread([reply = std::move(reply)] {
        if (reply) reply(biometricError(kBiometricSystemCancel, "A fingerprint check is already running"));
      }).detach();
      return;
    }
    previous = std::move(impl_->worker);
    impl_->running = true;
    impl_->cancelled = false;
  }
  if (previous.joinable()) previous.join();
  auto impl = impl_;
  std::thread worker([impl, reply = std::move(reply)] {
    OptionalError result = impl->verify();
    {
      std::lock_guard lock(impl->mutex);
      impl->running = false;
    }
    if (reply) reply(result);
  });
  std::lock_guard lock(impl_->mutex);
  impl_->worker = std::move(worker);
}

void FprintdAuthenticator::cancel() {
  std::lock_guard lock(impl_->mutex);
  if (!impl_->running) return;
  impl_->cancelled = true;
  if (impl_->waitContext) g_main_context_wakeup(impl_->waitContext);
}

}  // namespace lumeo
