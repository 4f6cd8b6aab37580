#!/usr/bin/env bash
# The window lock end to end, in a real X window (Xvfb) on a private
# session bus with a real keyring (gnome-keyring-daemon): a passcode set by
# `lumeo lock enable` on a journal with one record; lumeo-gui opens on Capture (open to all, the level
# tiles on screen); History asks for the code; the window is taken off the
# screen and put back (the Xvfb has no window manager, so xdotool unmaps
# and maps it, which is what minimising and restoring do) and comes back
# behind the whole-window lock with nothing of the journal on screen; a
# wrong code keeps it, the right one brings the tabs back. The same with
# the desktop's screen lock (ActiveChanged on the session bus). lumeo-gui
# also starts the reminder agent for the journal, once. Screenshots of each
# step stay in OUT_DIR.
# Usage: lock_e2e_xvfb_test.sh LUMEO_GUI LUMEO OUT_DIR
set -euo pipefail
mode=outer
if [ "${1:-}" = --on-bus ] || [ "${1:-}" = --in-x ]; then
  mode=${1#--}
  shift
fi
gui=$1
cli=$2
out=$3
home=${4:-}
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
source "$here/xvfb_session.sh"

# The reminder agents started for this journal, found by its folder in
# their command line.
agent_pids() {
  for cmd in /proc/[0-9]*/cmdline; do
    if tr '\0' ' ' 2>/dev/null <"$cmd" | grep -q -- "--home $home agent"; then
      pid=${cmd#/proc/}
      echo "${pid%/cmdline}"
    fi
  done
}

case $mode in
  outer)
    mkdir -p "$out"
    home=$(mktemp -d)
    trap 'for p in $(agent_pids); do kill "$p" 2>/dev/null || true; done; rm -rf "$home"' EXIT
    "$root/src/testing/with_secret_service.sh" keyring bash "$0" --on-bus "$gui" "$cli" "$out" "$home"
    ;;

  on-bus)
    "$cli" --home "$home" add 7 --comment "A good walk" >/dev/null
    "$cli" --home "$home" lock enable --passcode-fd 3 3<<<"2468" >/dev/null
    echo "ok   a record and a passcode in the keyring"
    run_in_xvfb bash "$0" --in-x "$gui" "$cli" "$out" "$home"
    ;;

  in-x)
    export QT_QPA_PLATFORM=xcb QT_QUICK_BACKEND=software
    "$gui" --home "$home" 2>"$out/lock-e2e.log" &
    pid=$!
    fail() { echo "not ok: $*"; kill "$pid" 2>/dev/null || true; exit 1; }
    wid=$(find_lumeo_window)
    [ -n "$wid" ] || fail "no window within 60 s"
    # The pixels of level 7's colour (a capture tile, a history bar): none
    # while the lock covers the window. `level7` counts them once the window
    # has come to rest; `level7_shows` waits for them to show.
    level7() {
      still_shot "$wid" "$out/lock-e2e-$1.png" 0.8
      level7_pixels "$out/lock-e2e-$1.png"
    }
    level7_shows() { until_level7_shows "$wid" "$out/lock-e2e-$1.png"; }
    key() { xdotool key --window "$wid" "$@"; }
    code() { for d in $(echo "$1" | grep -o .); do key "$d"; sleep 0.05; done; }
    xdotool windowfocus --sync "$wid" 2>/dev/null || true
    still_shot "$wid" "$out/lock-e2e-welcome.png" 1.2
    key Return # the welcome of a first start
    n=$(level7_shows capture)
    [ "$n" -gt 200 ] || fail "Capture is not on screen ($n pixels)"
    echo "ok   Capture is open with a passcode set"
    key alt+2
    n=$(level7 gate)
    [ "$n" -eq 0 ] || fail "History shows without the code ($n pixels)"
    echo "ok   History asks for the code"

    # Minimise and restore with the entry screen up.
    xdotool windowunmap --sync "$wid"
    sleep 0.5
    xdotool windowmap --sync "$wid"
    xdotool windowfocus --sync "$wid" 2>/dev/null || true
    n=$(level7 locked)
    [ "$n" -eq 0 ] || fail "the journal shows after the window came back ($n pixels)"
    code 1111
    n=$(level7 wrong)
    [ "$n" -eq 0 ] || fail "a wrong code opened the window ($n pixels)"
    echo "ok   back from minimised: the whole window is locked, a wrong code keeps it"
    sleep 1
    code 2468
    n=$(level7_shows unlocked)
    [ "$n" -gt 200 ] || fail "the right code did not bring the tabs back ($n pixels)"
    echo "ok   the right code brings the tabs back"

    # Away and back with nothing open: no lock screen, Capture, and the
    # unlock is over.
    key alt+2
    sleep 0.5
    xdotool windowunmap --sync "$wid"
    sleep 0.5
    xdotool windowmap --sync "$wid"
    xdotool windowfocus --sync "$wid" 2>/dev/null || true
    n=$(level7_shows back-on-capture)
    [ "$n" -gt 200 ] || fail "the window did not come back on Capture ($n pixels)"
    echo "ok   away with nothing open: back on Capture without a lock screen"

    # The desktop's screen lock, told on the session bus, with the gate's
    # entry screen up.
    key alt+3
    n=$(level7 gate-again)
    [ "$n" -eq 0 ] || fail "Summary shows without the code ($n pixels)"
    dbus-send --session --type=signal /org/freedesktop/ScreenSaver org.freedesktop.ScreenSaver.ActiveChanged \
      boolean:true
    sleep 0.5
    dbus-send --session --type=signal /org/freedesktop/ScreenSaver org.freedesktop.ScreenSaver.ActiveChanged \
      boolean:false
    n=$(level7 screenlock)
    [ "$n" -eq 0 ] || fail "the journal shows after the screen lock ($n pixels)"
    code 2468
    n=$(level7_shows screenlock-unlocked)
    [ "$n" -gt 200 ] || fail "the right code did not open it after the screen lock ($n pixels)"
    echo "ok   the desktop's screen lock locks it as well"

    # lumeo-gui started the reminder agent for this journal, and only one.
    agents=0
    for _ in $(seq 1 300); do
      agents=$(agent_pids | wc -l)
      [ "$agents" -ge 1 ] && break
      sleep 0.1
    done
    [ "$agents" -eq 1 ] || fail "$agents reminder agents run for the journal, not 1"
    echo "ok   lumeo-gui started the reminder agent"

    key ctrl+q 2>/dev/null || true
    wait_until_gone "$pid" || fail "did not quit within 30 s"
    wait "$pid" || fail "exit status $?"
    echo "ok   quit"
    ;;
esac
