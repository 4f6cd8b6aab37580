#!/usr/bin/env bash
# End-to-end checks of `lumeo reminders`: the factory reminders, adding and
# changing reminders through the screens' rules, the pending-request file
# that each change rewrites, and bad input (times like 24:00 or 7:5, counts
# outside 1..100, unknown sounds and IDs, damaged reminder dictionaries),
# which gives a clear message and changes nothing.
set -u
lumeo=$1
home=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$home"' EXIT
export TZ=Europe/Berlin LANG=en_US.UTF-8
pending="$home/Library/pending-reminders.json"
defaults="$home/defaults.plist"
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
count_pending() { L --json reminders pending | grep -c '"identifier"'; }
alarms() { md5sum <"$defaults"; }

# --- Factory reminders: three, only the evening one on.
expect "factory reminders" 0 "20:00 +fixed" L reminders list
check "three factory reminders" [ "$(L --json reminders list | grep -c '"kind"')" = 3 ]
check "one pending: the evening reminder" [ "$(count_pending)" = 1 ]
check "pending file written" [ -s "$pending" ]

# --- Adding and changing.
expect "add a window" 0 "Added a reminder \(periodic, on\)" L reminders add --from 09:00 --to 17:30 --count 4
expect "add random" 0 "random, on" L reminders add --from 22:00 --to 06:00 --count 3 --random --template "#night "
expect "add fixed with sound" 0 "fixed, on" L reminders add --at 7:45 --sound "gong small" --text "Morning" --only-if-nothing-recorded
check "1 + 4 + 3 + 1 pending" [ "$(count_pending)" = 9 ]
expect "window moments" 0 '"next": "[0-9-]+T11:07' L --json reminders pending
expect "template handed over" 0 '"template": "#night "' L --json reminders pending
expect "sound in request" 0 '"sound": "Gong small.mp3"' L --json reminders pending
expect "the option is stored" 0 "only if nothing recorded" L reminders list
expect "count 0 is clamped" 0 "count is 1" L reminders add --from 08:00 --to 09:00 --count 0
# The list shows fixed reminders first, then windows by their start.
expect "count 10000 is clamped" 0 "count is 100" L reminders edit 5 --count 10000
expect "clamped count stored" 0 " 5  on   08:00-09:00 x100" L reminders list
check "a hundred more" [ "$(count_pending)" = 109 ]
expect "disable" 0 "is off" L reminders disable 5
check "disabled window leaves the set" [ "$(count_pending)" = 9 ]
expect "enable" 0 "is on" L reminders enable 5
expect "sound by name" 0 "Saved reminder 1" L reminders sound 1 "Boat horn"
check "saving turned the 10:00 reminder on" [ "$(count_pending)" = 110 ]
expect "sounds listed" 0 "Pendulum clock" L reminders sounds
expect "message" 0 "^Time to record$" L reminders text "Time to record"
expect "message in requests" 0 '"body": "Time to record"' L --json reminders pending
expect "delete" 0 "Deleted reminder 5" L reminders delete 5

# --- Bad input: exit 2 (usage) or 1, nothing changed.
before=$(alarms)
expect "24:00 refused" 2 "HH:MM from 00:00 to 23:59, not \"24:00\"" L reminders add --at 24:00
expect "7:5 refused" 2 "not \"7:5\"" L reminders add --at 7:5
expect "window needs both ends" 2 "needs both --from and --to" L reminders add --from 09:00 --count 2
expect "count without window" 2 "need a window" L reminders add --at 09:00 --count 3
expect "count not a number" 2 "whole number" L reminders add --from 09:00 --to 10:00 --count lots
expect "unknown sound" 2 "no reminder sound \"Whistle\"" L reminders add --at 09:00 --sound Whistle
expect "unknown ID" 1 "no reminder 42" L reminders enable 42
expect "bad ID" 2 "reminder ID is the number" L reminders delete first
expect "empty message" 2 "cannot be empty" L reminders text ""
expect "nothing to add" 2 "needs --at" L reminders add
check "bad input changed nothing" [ "$(alarms)" = "$before" ]

# --- Damaged dictionaries are skipped, never fatal.
/usr/bin/python3 - "$defaults" <<'PY'
import plistlib, sys
path = sys.argv[1]
with open(path, "rb") as f:
    data = plistlib.load(f)
data["alarm"].append("not a reminder")
data["alarm"].append({"on": "yes", "timeFrom": "07:00", "reminderCount": "many"})
with open(path, "wb") as f:
    plistlib.dump(data, f)
PY
expect "damaged entries listed as skipped" 0 "not a reminder; skipped" L reminders list
check "damaged entries make no request" [ "$(count_pending)" = 10 ]
damaged=$(L reminders list | awk '/not a reminder/ {print $1}')
expect "damaged entry cannot be edited" 1 "not readable" L reminders edit "$damaged" --at 10:00

# --- A pending file that is not ours is replaced by the next pass.
echo "garbage" >"$pending"
check "pending rebuilt" [ "$(count_pending)" = 10 ]

[ $fail -eq 0 ] && echo "reminders cli: all checks passed"
exit $fail
