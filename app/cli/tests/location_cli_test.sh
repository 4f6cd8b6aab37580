#!/usr/bin/env bash
# lumeo add --here against a fake GeoClue (python3-dbusmock with the
# template in testdata/map/) on a private bus standing for the system bus:
# a good fix places the record; a denial, no service or only a coarse fix
# give a clear message and make no record.
set -u
lumeo=$1
source_dir=$(cd "$(dirname "$0")/../../.." && pwd)
home=$(mktemp -d)
source "$source_dir/src/testing/private_bus.sh"
cleanup() {
  private_bus_stop
  rm -rf "$home"
}
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
store="$home/Library/Model.sqlite"

private_bus_start || { echo "FAIL no dbus-daemon"; exit 1; }

geoclue() {  # geoclue PARAMETERS: (re)starts the fake with the template's parameters
  private_bus_mock org.freedesktop.GeoClue2 --template "$source_dir/testdata/map/geoclue2_mock.py" -p "$1" ||
    { echo "FAIL the fake GeoClue did not start"; fail=1; }
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
