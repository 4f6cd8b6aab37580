#!/usr/bin/env bash
# lumeo add --here against a fake GeoClue (python3-dbusmock with the
# template in testdata/map/) on a private bus standing for the system bus:
# a good fix places the record; a denial, no service or only a coarse fix
# give a clear message and make no record.
set -u
lumeo=$1
source_dir=$(cd "$(dirname "$0")/../../.." && pwd)
home=$(mktemp -d)
bus_pid=
mock_pid=
cleanup() {
  [ -n "$mock_pid" ] && kill "$mock_pid" 2>/dev/null && wait "$mock_pid" 2>/dev/null
  [ -n "$bus_pid" ] && kill "$bus_pid" 2>/dev/null
  rm -rf "$home"
}
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
store="$home/Library/Model.sqlite"

read -r address bus_pid < <(dbus-daemon --config-file="$source_dir/src/testing/private_bus.conf" \
  --print-address=1 --print-pid=1 --fork | tr '\n' ' ')
export DBUS_SYSTEM_BUS_ADDRESS=$address

geoclue() {  # geoclue PARAMETERS: (re)starts the fake with the template's parameters
  if [ -n "$mock_pid" ]; then kill "$mock_pid"; wait "$mock_pid" 2>/dev/null; mock_pid=; fi
  /usr/bin/python3 -m dbusmock --system --template "$source_dir/testdata/map/geoclue2_mock.py" -p "$1" >/dev/null 2>&1 &
  mock_pid=$!
  for _ in $(seq 1 200); do
    gdbus call --address "$address" --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
      --method org.freedesktop.DBus.NameHasOwner org.freedesktop.GeoClue2 2>/dev/null | grep -q true && return
    sleep 0.05
  done
  echo "FAIL the fake GeoClue did not start"; fail=1
}
records() { sqlite3 "$store" "SELECT count(*) FROM MoodRecord" 2>/dev/null || echo 0; }

expect "no GeoClue on the bus" 1 "no location service \(GeoClue\).*--place" L add 5 --here
check "no record without a place" test "$(records)" = 0

geoclue '{"latitude": 47.0707, "longitude": 15.4395, "accuracy": 20}'
expect "a good fix places the record" 0 '"latitude": 47.0707' L add 7 --here --json
check "one record" test "$(records)" = 1

geoclue '{"deny": true}'
expect "denied" 1 "not allowed for Lumeo" L add 5 --here
check "still one record" test "$(records)" = 1

expect "--here and --place exclude each other" 2 "excludes" L add 5 --here --place 1,2

exit $fail
