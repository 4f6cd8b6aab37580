#!/usr/bin/env bash
# Replaying 100,000 events into an empty journal: the sync engine's
# integrator against Yjs (a CRDT library) integrating the same stream of
# updates, in the same run. Yjs comes from npm into the build folder at bench
# time only; the build never downloads anything. SYNC_REPLAY_BASELINE=PATH
# names another build's sync_replay_bench (an older commit, say) to replay
# the same stream in the same run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
events=${SYNC_REPLAY_EVENTS:-100000}
cmake --build "$build" --target sync_replay_bench >/dev/null
peer="$build/bench/yjs-peer"
if [ ! -d "$peer/node_modules/yjs" ]; then
  mkdir -p "$peer"
  (cd "$peer" && npm install --silent --no-audit --no-fund yjs@13 >/dev/null)
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
lumeo=$("$build/bench/sync_replay_bench" --events "$events" --emit "$work/stream.jsonl" --dir "$work/lumeo")
yjs=$(NODE_PATH="$peer/node_modules" node "$root/bench/sync_replay_yjs.mjs" "$work/stream.jsonl")
if [ -n "${SYNC_REPLAY_BASELINE:-}" ]; then
  echo "baseline $("$SYNC_REPLAY_BASELINE" --events "$events" --dir "$work/baseline")"
fi
echo "$lumeo"
echo "$yjs"
python3 - "$lumeo" "$yjs" <<'PY'
import re, sys
rate = lambda s: float(re.search(r"([0-9.]+) events/s", s).group(1))
a, b = rate(sys.argv[1]), rate(sys.argv[2])
print(f"lumeo/yjs: {a / b:.2f}x (target: at least 1.5x and 50,000 events/s)")
PY
