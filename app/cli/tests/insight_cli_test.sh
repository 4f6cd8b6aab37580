#!/usr/bin/env bash
# End-to-end checks of lumeo summary and lumeo graph: an empty journal, one
# record, records at one instant, dates before 1970 and far ahead, the
# period kept in the settings, the three chart files and the graph picture
# (real PNGs of the asked size), the JSON forms, and bad input, which must
# give a clear message and a non-zero status and write no picture.
set -u
lumeo=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8 LUMEO_FIRST_WEEKDAY=1
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }

# PNG width and height from the IHDR chunk.
png_size() { python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); assert d[:8]==b"\x89PNG\r\n\x1a\n"; print("%dx%d" % struct.unpack(">II", d[16:24]))' "$1"; }

# --- An empty journal: no data, no pictures -----------------------------------
expect "empty summary" 0 "Total +no data" L summary
expect "empty flags" 0 "Mood Trend +not enough data" L summary
expect "empty json" 0 '"total": null' L --json summary
expect "empty charts" 0 "No charts: there are no records" L summary --charts "$home/empty"
check "no chart files for an empty journal" test -z "$(ls -A "$home/empty")"

# --- One record, records at one instant ---------------------------------------
L add 6 --comment "Sunny #walk" --at 2026-11-20T10:00 >/dev/null
expect "one record" 0 "Records +1, from 2026-11-20 10:00 to 2026-11-20 10:00" L summary
expect "one record is not enough" 0 "Weekly Cycle +not enough data" L summary --charts "$home/one"
check "one record still draws" test -s "$home/one/trend.png"
L add 2 --comment "#rain" --at 2026-11-20T10:00 >/dev/null
L add 9 --comment "#walk" --at 2026-11-20T10:00 >/dev/null
expect "one instant" 0 "Total +5.7" L summary --charts "$home/instant"
check "one instant draws three charts" test -s "$home/instant/daily.png" -a -s "$home/instant/weekly.png"

# --- Dates before 1970 and far ahead -------------------------------------------
L add 4 --at 1960-05-01T08:00 >/dev/null
# The command line refuses future dates; a record synced from a device with
# a wrong clock can still carry one, so it is moved there in the file.
L add 7 --at 2026-11-21T08:00 >/dev/null
sqlite3 "$home/Library/Model.sqlite" "UPDATE MoodRecord SET date = date + 30000000000 WHERE _pk = (SELECT max(_pk) FROM MoodRecord)"
expect "wide range" 0 "from 1960-05-01 08:00 to 29[0-9]{2}-" L summary --charts "$home/wide" --size 300x200 --scale 2
check "chart size times scale" test "$(png_size "$home/wide/trend.png")" = "600x400"

# --- A few weeks of records: tags, period, JSON ------------------------------------
for d in $(seq 1 27); do
  day=$(date -u -d "2026-11-22 - $d days" +%F)
  L add $((3 + d % 6)) --comment "#sleep:$((5 + d % 4))h #work" --at "${day}T09:00" >/dev/null
  L add $((6 + d % 4)) --comment "#friends #sleep:8h" --at "${day}T20:30" >/dev/null
done
expect "summary with tags" 0 "#Friends [0-9.]+ +\(27 records\)" L summary --charts "$home/charts"
expect "negative tags listed" 0 "Negative tags" L summary
check "trend.png is a 600x400 PNG" test "$(png_size "$home/charts/trend.png")" = "600x400"
check "weekly.png written" test "$(png_size "$home/charts/weekly.png")" = "600x400"
check "daily.png written" test "$(png_size "$home/charts/daily.png")" = "600x400"
expect "outliers thin the trend" 0 "Mood Trend +not enough data" L summary
expect "weekly has enough" 0 "Weekly Cycle +enough data" L summary
expect "period kept" 0 '"type": 4' L --json summary --period 30d
expect "enough data in the last 30 days" 0 "Mood Trend +enough data" L summary
expect "stored period used next time" 0 "Period +Last 30 days" L summary
grep -q "<key>kMoodSummaryChartType</key>" "$home/defaults.plist" || { echo "FAIL period not in the settings"; fail=1; }
expect "json tags" 0 '"tag": "friends"' L --json summary --period all
expect "json charts" 0 '"weekly": ".*/j/weekly.png"' L --json summary --charts "$home/j"

# --- The graph -----------------------------------------------------------------
expect "graph lists series" 0 "Tags with values \(add with --tag\): sleep:h" L graph --png "$home/g0.png"
expect "graph with a tag line" 0 "#sleep:h +54 values" L graph --tag sleep:h --png "$home/g1.png" --size 640x320
check "graph.png is a 640x320 PNG" test "$(png_size "$home/g1.png")" = "640x320"
expect "graph of a range" 0 "Graph from 2026-11-10 00:00 to 2026-11-16 00:00 \(12 records\)" L graph --from 2026-11-10 --to 2026-11-15 --tag SLEEP:H --png "$home/g2.png"
expect "graph json" 0 '"key": "sleep:h"' L --json graph --tag sleep:h --png "$home/g3.png"
expect "graph unknown tag" 1 "no values of #walk:km in the journal; there are: sleep:h" L graph --tag walk:km --png "$home/g4.png"
expect "graph bad range" 2 "end date lies before" L graph --from 2026-11-15 --to 2026-11-10 --png "$home/g5.png"
expect "graph bad date" 2 "cannot read the start date" L graph --from someday --png "$home/g6.png"
expect "graph no folder" 1 "does not exist" L graph --png "$home/nowhere/g.png"
expect "graph needs --png" 2 "png" L graph
check "no picture for bad input" test ! -e "$home/g4.png" -a ! -e "$home/g5.png" -a ! -e "$home/g6.png"
empty=$(mktemp -d)
expect "graph of an empty journal" 0 "No records yet" "$lumeo" --home "$empty" graph --png "$empty/g.png"
check "no picture for an empty journal" test ! -e "$empty/g.png"
rm -rf "$empty"

# --- Bad input --------------------------------------------------------------------
expect "unknown period" 2 "unknown period \"week\"" L summary --period week
expect "bad size" 2 "cannot read the size \"big\"" L summary --charts "$home/bad" --size big
expect "size out of range" 2 "out of range" L summary --charts "$home/bad" --size 10x10
expect "bad scale" 2 "--scale must be a whole number from 1 to 4" L summary --charts "$home/bad" --scale 9
expect "size without charts" 2 "go with --charts" L summary --size 300x200
check "no folder for bad input" test ! -e "$home/bad"
touch "$home/afile"
expect "charts into a file" 1 "is a file, not a folder" L summary --charts "$home/afile"
expect "period after bad input unchanged" 0 "Period +From first record" L summary

[ $fail -eq 0 ] && echo "insight commands: all checks passed"
exit $fail
