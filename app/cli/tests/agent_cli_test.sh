#!/usr/bin/env bash
# End-to-end checks of `lumeo agent` as a whole program, on the private
# session bus of dbus-run-session with python3-dbusmock's notification
# daemon and a clock read from a file (the agent's test hook): a reminder is
# shown with its action, the action hands the template over, the request
# file is rewritten and then damaged while the agent waits, the server goes
# away and comes back, a second agent is refused; and install-agent /
# uninstall-agent write and remove the login entries.
set -u
lumeo=$1
# Always a bus of our own, never the desktop's.
if [ -z "${LUMEO_AGENT_TEST_BUS:-}" ]; then
  LUMEO_AGENT_TEST_BUS=1 exec dbus-run-session -- bash "$0" "$@"
fi
home=$(mktemp -d)
export TZ=Europe/Berlin LANG=en_US.UTF-8 XDG_CONFIG_HOME="$home/config"
clock="$home/clock"
out="$home/agent.out"
err="$home/agent.err"
fail=0
mock=
agent=
cleanup() {
  [ -n "$agent" ] && kill "$agent" 2>/dev/null
  [ -n "$mock" ] && kill "$mock" 2>/dev/null
  wait 2>/dev/null
  rm -rf "$home"
}
trap cleanup EXIT
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home/journal" "$@"; }
py=/usr/bin/python3

start_mock() {
  $py -m dbusmock --template notification_daemon >/dev/null 2>&1 &
  mock=$!
  for _ in $(seq 600); do
    gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
      --method org.freedesktop.DBus.NameHasOwner org.freedesktop.Notifications 2>/dev/null | grep -q true && return 0
    sleep 0.05
  done
  echo "FAIL the mock notification daemon did not start"; fail=1
}
stop_mock() { kill "$mock" 2>/dev/null; wait "$mock" 2>/dev/null; mock=; }
# Notify calls so far, one line each: "<body>|<sound hint>".
shown() {
  $py - <<'PY'
import dbus
bus = dbus.SessionBus()
mock = dbus.Interface(bus.get_object("org.freedesktop.Notifications", "/org/freedesktop/Notifications"),
                      "org.freedesktop.DBus.Mock")
for stamp, method, args in mock.GetCalls():
    if method == "Notify":
        hints = args[6]
        sound = hints.get("sound-file", hints.get("sound-name", ""))
        print("%s|%s|%s" % (args[4], sound, ",".join(args[5])))
PY
}
emit_action() {
  gdbus call --session --dest org.freedesktop.Notifications --object-path /org/freedesktop/Notifications \
    --method org.freedesktop.DBus.Mock.EmitSignal org.freedesktop.Notifications ActionInvoked us \
    "[<uint32 $1>, <'$2'>]" >/dev/null
}
# Sets the agent's clock to a Berlin wall time and waits until it looked.
at() {
  local t
  t=$(date -d "TZ=\"Europe/Berlin\" $1" +%s)
  echo "$t" >"$clock"
  # Generous: under a loaded machine the agent may look only seconds later.
  for _ in $(seq 1500); do
    grep -q "^checked $t\$" "$out" && return 0
    sleep 0.02
  done
  echo "FAIL the agent did not look at $1"; sed 's/^/  | /' "$err"; fail=1
}
setting() { $py -c "import plistlib,sys; print(plistlib.load(open(sys.argv[1],'rb')).get(sys.argv[2],''))" "$home/journal/defaults.plist" "$1"; }

start_mock
expect "a reminder with a template" 0 "fixed, on" L reminders add --at 07:30 --template "#walk " --sound Doorbell
date -d 'TZ="Europe/Berlin" 2024-06-10 06:00' +%s >"$clock"
"$lumeo" --home "$home/journal" agent --test-clock "$clock" >"$out" 2>"$err" &
agent=$!
at "2024-06-10 06:00:10"
check "nothing shown at start" [ -z "$(shown)" ]
at "2024-06-10 07:29:50"
check "nothing before the minute" [ -z "$(shown)" ]
at "2024-06-10 07:30:02"
check "shown on the minute" [ "$(shown | wc -l)" = 1 ]
check "body is the notification message" grep -q "^How are you feeling right now?|" <<<"$(shown)"
check "sound is the shipped file" grep -q "|.*/Doorbell.mp3|" <<<"$(shown)"
check "action button" grep -q "CAPTURE_ACTION,Record my mood" <<<"$(shown)"
emit_action 1 CAPTURE_ACTION
for _ in $(seq 600); do [ "$(setting kReminderTemplateKey)" = "#walk " ] && break; sleep 0.05; done
check "the action hands the template over" [ "$(setting kReminderTemplateKey)" = "#walk " ]

# Rewritten while the agent waits.
expect "another reminder while the agent runs" 0 "fixed, on" L reminders add --at 08:00 --text Eight
at "2024-06-10 08:00:03"
check "the new reminder is shown" grep -q "^Eight|" <<<"$(shown)"

# Reminders changed in the settings without a pass (a restore, another
# front end): the agent makes the pass itself.
$py - "$home/journal/defaults.plist" <<'PY'
import plistlib, sys, datetime
path = sys.argv[1]
with open(path, "rb") as f:
    data = plistlib.load(f)
when = datetime.datetime(2024, 6, 10, 7, 15)  # 09:15 in Berlin
data["alarm"].append({"on": True, "isPeriodic": 0, "timeFrom": when, "reminderText": "Restored"})
with open(path + ".new", "wb") as f:
    plistlib.dump(data, f)
import os
os.rename(path + ".new", path)
PY
at "2024-06-10 09:15:03"
check "a reminder restored behind the agent's back is shown" grep -q "^Restored|" <<<"$(shown)"

# A reminder that stays silent after a record: the agent asks the journal.
expect "a quiet reminder" 0 "fixed, on" L reminders add --at 11:00 --text Quiet --only-if-nothing-recorded
expect "a record at 10:30" 0 "Added record" L add 6 --at 2024-06-10T10:30
at "2024-06-10 11:00:03"
check "silent after a record" bash -c '! grep -q "^Quiet|" <<<"$1"' _ "$(shown)"

# Damaged: the last good set stays; the evening reminder still comes.
echo '{"version": 1, "requests": [{"hour": 99' >"$home/journal/Library/pending-reminders.json"
at "2024-06-10 20:00:04"
check "damage is logged" grep -q "Keeping the last good reminders" "$err"
check "evening reminder from the last good set" [ "$(shown | wc -l)" = 4 ]

# No server: said, kept, delivered when it is back.
stop_mock
at "2024-06-11 07:30:03"
check "a missing server is said" grep -q "no notification server on the session bus" "$err"
check "the agent keeps running" kill -0 "$agent"
start_mock
at "2024-06-11 07:31:30"
check "delivered once the server is back" [ "$(shown | wc -l)" = 1 ]

at "2024-06-11 11:00:03"
check "shown when nothing was recorded since the day before" grep -q "^Quiet|" <<<"$(shown)"

expect "one agent per journal" 1 "already delivering" L agent --once
kill -TERM "$agent"
wait "$agent"
status=$?
check "the agent stops on TERM" [ "$status" -eq 0 ]
[ "$status" -eq 0 ] || { echo "  status $status"; tail -5 "$err"; }
agent=

# Login entries.
expect "install-agent" 0 "lumeo-agent.service" L reminders install-agent
check "autostart entry" grep -q "^Exec=.*--home .* agent$" "$XDG_CONFIG_HOME/autostart/lumeo-agent.desktop"
check "systemd unit" grep -q "^ExecStart=.* agent$" "$XDG_CONFIG_HOME/systemd/user/lumeo-agent.service"
expect "uninstall-agent" 0 "Removed .*lumeo-agent.desktop" L reminders uninstall-agent
check "both removed" [ ! -e "$XDG_CONFIG_HOME/autostart/lumeo-agent.desktop" ] && [ ! -e "$XDG_CONFIG_HOME/systemd/user/lumeo-agent.service" ]
expect "uninstall twice" 0 "nothing to remove" L reminders uninstall-agent

[ $fail -eq 0 ] && echo "agent cli: all checks passed"
exit $fail
