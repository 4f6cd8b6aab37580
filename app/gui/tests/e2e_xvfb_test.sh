#!/usr/bin/env bash
# End to end in a real X window (Xvfb), driven by xdotool like a user: a
# fresh home, the welcome, level 7 from the keyboard, a comment with
# #sleep:8h, save, History shows the record (in level 7's colour), Summary,
# quit; then `lumeo list --json` has the record with its tag. Screenshots of
# each step stay in OUT_DIR.
# Usage: e2e_xvfb_test.sh LUMEO_GUI LUMEO OUT_DIR
set -euo pipefail
gui=$1
cli=$2
out=$3
mkdir -p "$out"
home=$(mktemp -d)
# lumeo-gui starts the reminder agent for its journal; stop the ones of
# this test's journals on the way out.
stop_agents() {
  for cmd in /proc/[0-9]*/cmdline; do
    if tr '\0' ' ' 2>/dev/null <"$cmd" | grep -q -e "--home $home agent" -e "--home ${bad:-/nonexistent} agent"; then
      pid=${cmd#/proc/}
      kill "${pid%/cmdline}" 2>/dev/null || true
    fi
  done
}
trap 'stop_agents; rm -rf "$home"' EXIT
export LUMEO_GUI=$gui LUMEO_HOME_DIR=$home OUT=$out
XVFB_SESSION=$(cd "$(dirname "$0")" && pwd)/xvfb_session.sh
export XVFB_SESSION
source "$XVFB_SESSION"

run_in_xvfb bash -euo pipefail -c '
  source "$XVFB_SESSION"
  fail() { echo "not ok: $*"; kill "$pid" 2>/dev/null || true; exit 1; }
  unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
  export QT_QPA_PLATFORM=xcb QT_QUICK_BACKEND=software
  "$LUMEO_GUI" --home "$LUMEO_HOME_DIR" 2>"$OUT/e2e.log" &
  pid=$!
  wid=$(find_lumeo_window)
  [ -n "$wid" ] || fail "no window within 60 s"
  echo "ok   window up"
  shot() { still_shot "$wid" "$OUT/e2e-$1.png" "${2:-0.4}"; }
  xdotool windowactivate --sync "$wid" 2>/dev/null || xdotool windowfocus --sync "$wid"
  shot welcome 1.2   # the splash fades in and out
  xdotool key --window "$wid" Return
  shot capture
  xdotool key --window "$wid" 7
  shot editor
  xdotool type --window "$wid" --delay 20 "Slept well #sleep:8h"
  xdotool key --window "$wid" ctrl+Return
  shot saved
  xdotool key --window "$wid" alt+2
  # The History tab shows the record: its level colour is on screen.
  fine=$(until_level7_shows "$wid" "$OUT/e2e-history.png")
  [ "$fine" -gt 200 ] || fail "History does not show the level-7 record ($fine pixels of its colour)"
  echo "ok   history shows the record"
  xdotool key --window "$wid" alt+3
  shot summary
  # The window goes with the key press; xdotool may then miss it for the release.
  xdotool key --window "$wid" ctrl+q 2>/dev/null || true
  wait_until_gone "$pid" || fail "did not quit within 30 s"
  wait "$pid" || fail "exit status $?"
  echo "ok   quit"
'
json=$("$cli" --home "$home" list --json)
echo "$json" | python3 -c '
import json, sys
records = json.load(sys.stdin)
match = [r for r in records if r["level"] == 7 and "#sleep:8h" in (r["comment"] or "")]
assert len(match) == 1, records
assert "sleep" in [t if isinstance(t, str) else t.get("name") for t in match[0]["tags"]], match[0]
print("ok   lumeo list shows the record with its tag")
'

# A journal file that is not a journal: the window says so, offers nothing
# that writes, and the file is left exactly as it was.
bad=$(mktemp -d)
trap 'stop_agents; rm -rf "$home" "$bad"' EXIT
mkdir -p "$bad/Library"
head -c 4096 /dev/urandom >"$bad/Library/Model.sqlite"
before=$(md5sum <"$bad/Library/Model.sqlite")
export BAD_HOME=$bad
run_in_xvfb bash -euo pipefail -c '
  source "$XVFB_SESSION"
  unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
  export QT_QPA_PLATFORM=xcb QT_QUICK_BACKEND=software
  "$LUMEO_GUI" --home "$BAD_HOME" 2>>"$OUT/e2e.log" &
  pid=$!
  wid=$(find_lumeo_window)
  [ -n "$wid" ] || { echo "not ok: no window on a bad journal within 60 s"; kill $pid; exit 1; }
  xdotool windowactivate --sync "$wid" 2>/dev/null || xdotool windowfocus --sync "$wid"
  still_shot "$wid" "$OUT/e2e-bad-journal.png" 1.5
  xdotool key --window "$wid" 7 2>/dev/null || true
  xdotool key --window "$wid" ctrl+q 2>/dev/null || true
  wait_until_gone "$pid" || { echo "not ok: did not quit on a bad journal within 30 s"; kill $pid; exit 1; }
  wait "$pid" || { echo "not ok: exit status $? on a bad journal"; exit 1; }
'
[ "$(md5sum <"$bad/Library/Model.sqlite")" = "$before" ] || { echo "not ok: the bad journal file was changed"; exit 1; }
echo "ok   a file that is not a journal is left as it was"
