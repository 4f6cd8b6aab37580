#include "testing/private_bus.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace lumeo::testing {

PrivateBus::PrivateBus() {
  const std::string command = std::string("dbus-daemon --config-file=") + LUMEO_PRIVATE_BUS_CONFIG +
                              " --print-address=1 --print-pid=1 --fork";
  FILE* out = popen(command.c_str(), "r");
  if (!out) return;
  char line[512] = {};
  if (fgets(line, sizeof line, out)) address_ = std::string(line, std::strcspn(line, "\n"));
  if (fgets(line, sizeof line, out)) daemon_ = std::atoi(line);
  pclose(out);
  if (address_.empty()) return;
  connection_ = g_dbus_connection_new_for_address_sync(
      address_.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
}

PrivateBus::~PrivateBus() {
  if (connection_) g_object_unref(connection_);
  for (const auto& [name, mock] : mocks_) {
    kill(mock, SIGTERM);
    waitpid(mock, nullptr, 0);
  }
  if (daemon_ > 0) kill(daemon_, SIGTERM);
}

bool PrivateBus::startMock(const std::string& name, const std::vector<std::string>& arguments) {
  if (!ready()) return false;
  std::vector<std::string> words = {"python3", "-m", "dbusmock", "--system"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    // The mock logs every call on standard output; tests read calls
    // through GetCalls instead.
    if (!freopen("/dev/null", "w", stdout)) _exit(127);
    execv("/usr/bin/python3", argv.data());
    _exit(127);
  }
  if (pid < 0) return false;
  mocks_.emplace_back(name, pid);
  for (int i = 0; i < 400; ++i) {
    if (nameOwned(name)) return true;
    if (waitpid(pid, nullptr, WNOHANG) == pid) {  // it gave up (no dbusmock, a bad template)
      mocks_.pop_back();
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return false;
}

bool PrivateBus::stopMock(const std::string& name) {
  for (auto it = mocks_.begin(); it != mocks_.end();) {
    if (it->first == name) {
      kill(it->second, SIGTERM);
      waitpid(it->second, nullptr, 0);
      it = mocks_.erase(it);
    } else {
      ++it;
    }
  }
  for (int i = 0; i < 200; ++i) {
    if (!nameOwned(name)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return false;
}

bool PrivateBus::nameOwned(const std::string& name) const {
  GVariant* reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "NameHasOwner", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(b)"), true);
  if (!reply) return false;
  gboolean owned = FALSE;
  g_variant_get(reply, "(b)", &owned);
  g_variant_unref(reply);
  return owned;
}

GVariant* PrivateBus::call(const std::string& name, const std::string& path, const std::string& interface,
                           const std::string& method, GVariant* parameters, const GVariantType* replyType,
                           bool failQuietly) const {
  if (!connection_) {
    if (parameters) g_variant_unref(g_variant_ref_sink(parameters));
    if (!failQuietly) ADD_FAILURE() << method << ": no private bus";
    return nullptr;
  }
  GError* error = nullptr;
  GVariant* reply =
      g_dbus_connection_call_sync(connection_, name.c_str(), path.c_str(), interface.c_str(), method.c_str(),
                                  parameters, replyType, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
  if (!reply && !failQuietly) ADD_FAILURE() << method << ": " << (error ? error->message : "no answer");
  if (error) g_error_free(error);
  return reply;
}

bool PrivateBus::mock(const std::string& name, const std::string& path, const std::string& method,
                      GVariant* parameters, GVariant** reply) const {
  GVariant* r = call(name, path, "org.freedesktop.DBus.Mock", method, parameters);
  if (!r) return false;
  if (reply) {
    *reply = r;
  } else {
    g_variant_unref(r);
  }
  return true;
}

}  // namespace lumeo::testing
