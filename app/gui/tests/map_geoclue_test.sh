#!/usr/bin/env bash
# The Map tab's own position through GeoClue, on a private bus standing for
# the system bus with a fake GeoClue (python3-dbusmock and the template in
# testdata/map/): once with a fix, once with the user's agent denying.
#
#   map_geoclue_test.sh QUICK_TEST_BINARY SOURCE_DIR
set -uo pipefail
binary=$1
source=$2
failed=0
for mode in fix deny; do
  out=$(dbus-daemon --config-file="$source/src/testing/private_bus.conf" --print-address=1 --print-pid=1 --fork)
  address=$(echo "$out" | sed -n 1p)
  bus_pid=$(echo "$out" | sed -n 2p)
  if [ -z "$address" ]; then
    echo "FAIL no dbus-daemon"
    exit 1
  fi
  if [ "$mode" = deny ]; then params='{"deny": true}'; else params='{"latitude": 47.0707, "longitude": 15.4395, "accuracy": 20}'; fi
  DBUS_SYSTEM_BUS_ADDRESS=$address /usr/bin/python3 -m dbusmock --system --template "$source/testdata/map/geoclue2_mock.py" \
    -p "$params" >/dev/null 2>&1 &
  mock_pid=$!
  # Wait until the fake owns its name.
  for _ in $(seq 200); do
    if DBUS_SYSTEM_BUS_ADDRESS=$address gdbus call --system --dest org.freedesktop.DBus \
        --object-path /org/freedesktop/DBus --method org.freedesktop.DBus.NameHasOwner \
        org.freedesktop.GeoClue2 2>/dev/null | grep -q true; then break; fi
    sleep 0.05
  done
  if ! DBUS_SYSTEM_BUS_ADDRESS=$address LUMEO_TEST_GEOCLUE=$mode "$binary" -input "$source/app/gui/tests/map_geoclue"; then
    echo "FAIL own position with GeoClue: $mode"
    failed=1
  fi
  kill $mock_pid 2>/dev/null
  wait $mock_pid 2>/dev/null
  kill "$bus_pid" 2>/dev/null
done
exit $failed
