#!/usr/bin/env bash
# A record whose place is missing in the store file (SQLite keeps a NaN as
# NULL) has no place in every output: show and list --json, the CSV, the map,
# and a backup archive and its restore. Half a place never comes back as -1
# beside a real number.
set -u
lumeo=$1
source "$(dirname "$0")/checks.sh"
fresh_home
places() { sqlite3 "$store" "SELECT d.latitude || '|' || d.longitude FROM MoodRecord r JOIN MoodDescription d ON d._pk = r.moodDescription ORDER BY r.date;"; }

L add 5 --comment "half" --place 10,30 --at 2025-11-20T09:00 >/dev/null
L add 6 --comment "none" --place 20,40 --at 2025-11-21T09:00 >/dev/null
L add 7 --comment "real" --place 48.2,16.37 --at 2025-11-22T09:00 >/dev/null
L add 8 --comment "never" --at 2025-11-23T09:00 >/dev/null
sqlite3 "$store" "UPDATE MoodDescription SET latitude = NULL WHERE comment = 'half';
                  UPDATE MoodDescription SET latitude = NULL, longitude = NULL WHERE comment = 'none';"

json=$(L --json list)
check "list --json: no place is null, the real one stays" python3 -c '
import json, sys
by = {r["comment"]: (r["latitude"], r["longitude"]) for r in json.loads(sys.argv[1])}
assert by == {"half": (None, None), "none": (None, None), "real": (48.2, 16.37), "never": (None, None)}, by
' "$json"
expect "show --json of half a place" 0 '"longitude": null' L --json show 1
expect "show without a place line" 0 '^  level' L show 1
check "show prints no place" bash -c "! \"$lumeo\" --home \"$home\" show 1 | grep -q place"

L export csv -o "$home/out.csv" >/dev/null
check "the CSV leaves no place empty" python3 -c '
import csv, sys
rows = list(csv.reader(open(sys.argv[1], encoding="utf-8-sig")))[2:]
by = {r[7]: r[6] for r in rows}
assert by == {"half": "", "none": "", "real": "48.200001;16.370001", "never": ""}, by
' "$home/out.csv"
expect "the map counts only the real place" 0 '"located": 1,' L --json map

# Through a backup archive: no key for a missing place, and the restore
# brings back no place, not (-1, 30).
mkdir "$home/backups"
archive=$(L backup create --to "$home/backups" | head -1)
check "the archive was made" [ -f "$archive" ]
check "the archive has no half place" python3 -c '
import json, subprocess, sys
doc = json.loads(subprocess.run(["unzip", "-p", sys.argv[1], "*backup.json"], capture_output=True, check=True).stdout)
by = {r["moodDescription"]["comment"]: r["moodDescription"] for r in doc}
for name in ("half", "none", "never"):
    assert "latitude" not in by[name] and "longitude" not in by[name], by[name]
assert (by["real"]["latitude"], by["real"]["longitude"]) == ("48.2", "16.37"), by["real"]
' "$archive"
expect "restore" 0 "Restored 4 records" L backup restore "$archive" --yes
check "restored places: no place is -1 for both" [ "$(places | tr '\n' ' ')" = "-1.0|-1.0 -1.0|-1.0 48.2|16.37 -1.0|-1.0 " ]
expect "and reads as no place" 0 '"latitude": null' L --json show "$(L --json list | python3 -c 'import json,sys; print([r["id"] for r in json.load(sys.stdin) if r["comment"] == "half"][0])')"

[ $fail -eq 0 ] && echo "no place: all checks passed"
exit $fail
