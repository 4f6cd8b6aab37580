#!/usr/bin/env bash
# The desktop application on a journal of 100,000 records against a bare Qt
# Quick window (the peer), both offscreen with the software renderer:
# time from the process's start to its first frame (the tabs on the open
# journal, the splash left out), memory after each tab, and frame times
# while the History list scrolls through all records in four seconds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
probe=$build/bench/gui_probe
seed=$build/bench/journal_list_seed
[ -x "$probe" ] && [ -x "$seed" ] || { echo "gui.sh: build gui_probe and journal_list_seed first"; exit 0; }
home=$build/bench/gui-journal-100k
if [ ! -f "$home/.seeded" ]; then
  rm -rf "$home"
  "$seed" "$home" 100000 >/dev/null
  touch "$home/.seeded"
fi
python3 - "$probe" "$home" <<'PY'
import statistics, subprocess, sys, time
probe, home = sys.argv[1], sys.argv[2]

def run(args):
    start = time.perf_counter()
    p = subprocess.Popen([probe] + args, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    first, lines = None, {}
    for line in p.stdout:
        parts = line.split()
        if parts[0] == "first-frame":
            first = (time.perf_counter() - start) * 1000
        else:
            lines[parts[0]] = parts[1:]
    p.wait()
    return first, lines

def median_first(args, n=5):
    runs = [run(args) for _ in range(n)]
    return statistics.median(r[0] for r in runs), runs[-1][1]

peer_ms, peer = median_first(["peer"])
app_ms, app = median_first(["app", home])
print("start to first frame (median of 5), ms: lumeo-gui on 100,000 records %.0f, bare Qt Quick window %.0f" % (app_ms, peer_ms))
print("memory (RSS, MB): bare window %.0f" % (int(peer["rss-start"][0]) / 1024))
for tab in ["start", "capture", "history", "summary", "map"]:
    key = "rss-" + tab
    if key in app:
        print("  lumeo-gui after %-8s %.0f" % (tab, int(app[key][0]) / 1024))
if "flick" in app and app["flick"][0] != "none":
    p50, p99, frames = app["flick"]
    print("History flick through 100,000 records (software renderer): p50 %s ms, p99 %s ms over %s frames" % (p50, p99, frames))
PY
