#!/usr/bin/env bash
# The Map tab, narrow and wide, light and dark, rendered by
# `lumeo-gui --screenshot` on its fixed sample journal with tiles from the
# test's own tile server on 127.0.0.1 (map_tile_server.py), and compared
# with the checked-in pictures. A pixel counts as different when a channel
# is off by more than 8 %; up to 0.5 % of the pixels may differ. The
# pictures made are kept in OUT, with a difference picture for each one
# that failed.
#
#   map_screenshots_test.sh LUMEO_GUI TILE_SERVER REFERENCE_DIR OUT_DIR
#
# LUMEO_UPDATE_SCREENSHOTS=1 writes the references instead (look at them
# before committing).
set -uo pipefail
gui=$1
server=$2
refs=$3
out=$4
rm -rf "$out"
mkdir -p "$out"
export QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software TZ=UTC LC_ALL=C.UTF-8 LANGUAGE=en

python3 "$server" --port-file "$out/port" --log "$out/requests.log" &
server_pid=$!
trap 'kill $server_pid 2>/dev/null; wait $server_pid 2>/dev/null' EXIT
for _ in $(seq 200); do [ -s "$out/port" ] && break; sleep 0.05; done
if [ ! -s "$out/port" ]; then
  echo "FAIL the tile server did not start"
  exit 1
fi
export LUMEO_TILE_URL="http://127.0.0.1:$(cat "$out/port")/{z}/{x}/{y}.png"

failed=0
# shellcheck source=screenshot_compare.sh
. "$(dirname "$0")/screenshot_compare.sh"
for size in 420x760 1100x760; do
  layout=$([ "$size" = 420x760 ] && echo narrow || echo wide)
  for theme in light dark; do
    name="map-$layout-$theme"
    shot="$out/$name.png"
    if ! timeout 120 "$gui" --home "$out/home-$name" --screenshot "$shot" --tab 3 --size "$size" \
        --theme "$theme" >"$out/$name.log" 2>&1 || [ ! -s "$shot" ]; then
      echo "FAIL $name: lumeo-gui made no picture (see $out/$name.log)"
      failed=1
      continue
    fi
    compare_with_reference "$name"
  done
done
# Every picture's tiles came from the server, named as Lumeo.
if ! grep -q " Lumeo/" "$out/requests.log"; then
  echo "FAIL the tile server saw no request from Lumeo"
  failed=1
fi
exit $failed
