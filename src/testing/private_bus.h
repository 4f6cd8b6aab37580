// A D-Bus of a test's own: a dbus-daemon on src/testing/private_bus.conf
// (anyone may own any name, nothing starts on demand), standing for the
// session or the system bus, with python3-dbusmock services on it. The
// daemon and every service stop when the object goes, so no test leaves a
// bus or a mock behind.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace lumeo::testing {

class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  // False when dbus-daemon could not be started or reached.
  bool ready() const { return connection_ != nullptr; }
  const std::string& address() const { return address_; }
  GDBusConnection* connection() const { return connection_; }

  // Starts `python3 -m dbusmock --system ARGUMENTS...` on this bus (the
  // mock sees it as the system bus) and waits up to ten seconds for it to
  // own `name`. A template is "--template FILE" among the arguments.
  bool startMock(const std::string& name, const std::vector<std::string>& arguments);
  // Stops the mock started for `name` and waits up to five seconds for the
  // name to leave the bus: a service that goes away in the middle of a
  // test. True when the name is gone.
  bool stopMock(const std::string& name);
  // True when the bus knows an owner of `name`.
  bool nameOwned(const std::string& name) const;

  // A method call with a five-second limit. The reply (to unref), or null
  // with the error as a test failure; with `failQuietly`, a null only.
  GVariant* call(const std::string& name, const std::string& path, const std::string& interface,
                 const std::string& method, GVariant* parameters, const GVariantType* replyType = nullptr,
                 bool failQuietly = false) const;
  // A call on dbusmock's control interface (org.freedesktop.DBus.Mock) of
  // the object at `path`; true when it answered.
  bool mock(const std::string& name, const std::string& path, const std::string& method, GVariant* parameters,
            GVariant** reply = nullptr) const;

 private:
  std::string address_;
  pid_t daemon_ = -1;
  std::vector<std::pair<std::string, pid_t>> mocks_;  // the name each was started for
  GDBusConnection* connection_ = nullptr;
};

}  // namespace lumeo::testing
