#!/usr/bin/env bash
# Opening a journal of 100,000 records and listing the newest 100:
# `lumeo list` (the whole command: launch sequence, store open, fetch, print)
# against the sqlite3 shell reading the same rows (id, date, level, comment)
# from the same file. Prints both times and their ratio. Uses hyperfine when
# it is installed, else a timed loop. JOURNAL_LIST_BASELINE=/path/to/lumeo
# adds another build of lumeo (an older commit, say) to the same run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
count=${JOURNAL_LIST_RECORDS:-100000}
runs=${JOURNAL_LIST_RUNS:-20}
cmake --build "$build" --target lumeo journal_list_seed >/dev/null
lumeo="$build/app/cli/lumeo"
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
"$build/bench/journal_list_seed" "$home" "$count" >/dev/null
store="$home/Library/Model.sqlite"
# One run to let the launch sequence write its settings.
"$lumeo" --home "$home" list --limit 100 >/dev/null

query='SELECT r._pk, r.date, r.moodLevel, d.comment FROM MoodRecord r
       LEFT JOIN MoodDescription d ON d._pk = r.moodDescription
       ORDER BY r.date DESC LIMIT 100;'
[ "$(sqlite3 "$store" "$query" | wc -l)" -eq 100 ] || { echo "peer query returned the wrong rows" >&2; exit 1; }
[ "$("$lumeo" --home "$home" list --limit 100 | wc -l)" -eq 101 ] || { echo "lumeo list is short" >&2; exit 1; }

echo "journal of $count records, size $(du -h "$store" | cut -f1), newest 100 listed"
if command -v hyperfine >/dev/null; then
  json=$(mktemp)
  baseline=()
  if [ -n "${JOURNAL_LIST_BASELINE:-}" ]; then
    "$JOURNAL_LIST_BASELINE" --home "$home" list --limit 100 >/dev/null
    baseline=(-n "baseline list" "$JOURNAL_LIST_BASELINE --home $home list --limit 100")
  fi
  hyperfine --warmup 3 --runs "$runs" --export-json "$json" -N \
    -n "lumeo list" "$lumeo --home $home list --limit 100" \
    -n "sqlite3" "sqlite3 $store \"$(tr '\n' ' ' <<<"$query")\"" "${baseline[@]}" >/dev/null
  python3 - "$json" <<'PY'
import json, sys
r = {x["command"]: x for x in json.load(open(sys.argv[1]))["results"]}
peer = r["sqlite3"]
# CPU time (user + system) is steadier than wall time on a busy machine.
cpu = lambda x: x["user"] + x["system"]
for name in ("lumeo list", "baseline list", "sqlite3"):
    if name in r:
        x = r[name]
        print(f"{name:14}: {x['mean']*1000:7.2f} ms wall (sd {x['stddev']*1000:.2f}), {cpu(x)*1000:6.2f} ms cpu")
for name in ("lumeo list", "baseline list"):
    if name in r:
        x = r[name]
        print(f"ratio {name}/sqlite3: {x['mean']/peer['mean']:.2f} wall, {cpu(x)/cpu(peer):.2f} cpu")
PY
  rm -f "$json"
else
  time_loop() {
    local start end
    start=$(date +%s%N)
    for _ in $(seq "$runs"); do "$@" >/dev/null; done
    end=$(date +%s%N)
    echo $(( (end - start) / runs / 1000 ))
  }
  a=$(time_loop "$lumeo" --home "$home" list --limit 100)
  b=$(time_loop sqlite3 "$store" "$query")
  awk -v a="$a" -v b="$b" 'BEGIN { printf "lumeo list : %8.2f ms\nsqlite3    : %8.2f ms\nratio lumeo/sqlite3: %.2f\n", a/1000, b/1000, a/b }'
fi
