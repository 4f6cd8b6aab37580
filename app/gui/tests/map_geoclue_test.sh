#!/usr/bin/env bash
# The Map tab's own position through GeoClue, on a private bus standing for
# the system bus with a fake GeoClue (python3-dbusmock and the template in
# testdata/map/): once with a fix, once with the user's agent denying.
#
#   map_geoclue_test.sh QUICK_TEST_BINARY SOURCE_DIR
set -uo pipefail
binary=$1
source=$2
source "$source/src/testing/private_bus.sh"
trap private_bus_stop EXIT
failed=0
for mode in fix deny; do
  private_bus_start || { echo "FAIL no dbus-daemon"; exit 1; }
  if [ "$mode" = deny ]; then params='{"deny": true}'; else params='{"latitude": 47.0707, "longitude": 15.4395, "accuracy": 20}'; fi
  private_bus_mock org.freedesktop.GeoClue2 --template "$source/testdata/map/geoclue2_mock.py" -p "$params" ||
    echo "the fake GeoClue did not start"
  if ! LUMEO_TEST_GEOCLUE=$mode "$binary" -input "$source/app/gui/tests/map_geoclue"; then
    echo "FAIL own position with GeoClue: $mode"
    failed=1
  fi
  private_bus_stop
done
exit $failed
