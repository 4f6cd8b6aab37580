#!/usr/bin/env bash
# Event files against the replay of the same events: 10^5 events written as
# files and read back, 10^4 events fetched one file each from a folder and
# integrated, and in the same run the replay benchmark (events already in the
# event store) for 10^4 and 10^5 events, the figure that files add to. The
# load average before and after tells how busy the machine was.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
events=${SYNC_FILES_EVENTS:-100000}
fetch=${SYNC_FILES_FETCH:-10000}
flush=${SYNC_FILES_FLUSH:-1000}
cmake --build "$build" --target sync_files_bench sync_replay_bench >/dev/null
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
"$build/bench/sync_files_bench" --events "$events" --fetch "$fetch" --flush "$flush"
echo "replay (part 1, events already in the store):"
"$build/bench/sync_replay_bench" --events "$fetch"
"$build/bench/sync_replay_bench" --events "$events"
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
