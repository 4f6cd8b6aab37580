#!/usr/bin/env bash
# The Map tab on a journal of 10,000 located records against a bare Qt
# Quick map of the same tiles (the peer), both offscreen with the software
# renderer at 1100 × 760, tiles from a local tile server: the tab's first
# frame and the time until every pin is read and clustered, and the frame
# times of a four-second drag (median of 3 runs each).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
probe=$build/bench/map_gui_probe
[ -x "$probe" ] || { echo "map_gui.sh: build map_gui_probe first"; exit 0; }
work=$build/bench/map-gui
home=$work/journal-10k
mkdir -p "$work"
if [ ! -f "$home/.seeded" ]; then
  rm -rf "$home"
  "$probe" seed "$home" 10000
  touch "$home/.seeded"
fi
rm -f "$work/port"
python3 "$root/app/gui/tests/map_tile_server.py" --port-file "$work/port" --log "$work/requests.log" &
server=$!
trap 'kill $server 2>/dev/null' EXIT
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
export LUMEO_TILE_URL="http://127.0.0.1:$(cat "$work/port")/{z}/{x}/{y}.png"
python3 - "$probe" "$home" <<'PY'
import statistics, subprocess, sys
probe, home = sys.argv[1], sys.argv[2]

def run(args):
    out = subprocess.run([probe] + args, capture_output=True, text=True, timeout=120).stdout
    return {line.split()[0]: line.split()[1:] for line in out.splitlines() if line.strip()}

def median(runs, key, i=0):
    values = [float(r[key][i]) for r in runs if key in r]
    return statistics.median(values) if values else float("nan")

run(["app", home])  # fills the tile cache, as a second opening finds it
apps = [run(["app", home]) for _ in range(3)]
peers = [run(["peer"]) for _ in range(3)]
print("Map tab on 10,000 located records (median of 3, ms):")
print("  first frame after choosing the tab: lumeo-gui %.0f" % median(apps, "open-frame"))
print("  every pin read and clustered:       lumeo-gui %.0f" % median(apps, "open-settled"))
print("Drag for 4 s, frame time p50 / p99 (ms), software renderer:")
print("  lumeo-gui (tiles + pins + clustering) %.1f / %.1f over %.0f frames" %
      (median(apps, "pan", 0), median(apps, "pan", 1), median(apps, "pan", 2)))
print("  bare Qt Quick map of the same tiles   %.1f / %.1f over %.0f frames" %
      (median(peers, "pan", 0), median(peers, "pan", 1), median(peers, "pan", 2)))
PY
