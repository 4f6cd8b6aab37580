# A D-Bus of a test's own for the shell tests, as private_bus.h is for the
# C++ ones: a dbus-daemon on private_bus.conf standing for the system bus,
# with one python3-dbusmock service on it at a time. Source it, then:
#
#   private_bus_start            start the daemon; exports DBUS_SYSTEM_BUS_ADDRESS
#   private_bus_mock NAME ARG... (re)start `python3 -m dbusmock --system ARG...`
#                                and wait up to ten seconds for it to own NAME
#   private_bus_stop             stop the service and the daemon (also on EXIT
#                                when the test calls it from its trap)
private_bus_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
private_bus_pid=
private_bus_mock_pid=

private_bus_start() {
  local out
  out=$(dbus-daemon --config-file="$private_bus_dir/private_bus.conf" --print-address=1 --print-pid=1 --fork) || return 1
  DBUS_SYSTEM_BUS_ADDRESS=$(sed -n 1p <<<"$out")
  private_bus_pid=$(sed -n 2p <<<"$out")
  export DBUS_SYSTEM_BUS_ADDRESS
  [ -n "$DBUS_SYSTEM_BUS_ADDRESS" ]
}

private_bus_stop_mock() {
  [ -n "$private_bus_mock_pid" ] || return 0
  kill "$private_bus_mock_pid" 2>/dev/null
  wait "$private_bus_mock_pid" 2>/dev/null
  private_bus_mock_pid=
}

private_bus_mock() {
  local name=$1
  shift
  private_bus_stop_mock
  /usr/bin/python3 -m dbusmock --system "$@" >/dev/null 2>&1 &
  private_bus_mock_pid=$!
  for _ in $(seq 1 200); do
    gdbus call --address "$DBUS_SYSTEM_BUS_ADDRESS" --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
      --method org.freedesktop.DBus.NameHasOwner "$name" 2>/dev/null | grep -q true && return 0
    kill -0 "$private_bus_mock_pid" 2>/dev/null || break
    sleep 0.05
  done
  return 1
}

private_bus_stop() {
  private_bus_stop_mock
  [ -n "$private_bus_pid" ] && kill "$private_bus_pid" 2>/dev/null
  private_bus_pid=
}
