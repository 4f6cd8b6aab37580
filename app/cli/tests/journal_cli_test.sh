#!/usr/bin/env bash
# End-to-end checks of lumeo add, list, show and delete: normal use, the
# JSON forms, and bad input (a level outside 1..10, an unreadable date, an
# unknown ID, a store file that is no database), each of which must give a
# clear message, a non-zero status and leave the journal as it was.
set -u
lumeo=$1
source "$(dirname "$0")/checks.sh"
fresh_home


# The journal's rows (opening the store may touch its bookkeeping, never them).
fingerprint() { sqlite3 "$store" "SELECT * FROM MoodRecord; SELECT * FROM MoodDescription; SELECT * FROM MoodTag; SELECT * FROM MoodRecord_moodTags;" | md5sum; }

expect "empty list" 0 "No records yet" L list
expect "add" 0 "^Added record 1: level 7 on 2026-11-20 09:15" L add 7 --comment "Long walk #walk #sleep:8h" --at 2026-11-20T09:15
expect "add in the user's locale" 0 "^Added record 2: level 3 on 2026-11-21 14:30" L add 3 --comment "#Sleep:5h tired" --at "11/21/26, 2:30 PM"
expect "add a day" 0 "on 2026-11-22 00:00" L add 5 --at 2026-11-22
expect "list newest first" 0 "^ +3 +2026-11-22 00:00 +5" L list
expect "list period, --to counts the whole day" 0 "^ +2 +2026-11-21 14:30" L list --from 2026-11-21 --to 2026-11-21
[ "$(L list --from 2026-11-21 --to 2026-11-21 | wc -l)" -eq 2 ] || { echo "FAIL period holds one record"; fail=1; }
expect "json list" 0 '"tags": \[' L --json list
expect "show" 0 "tags +#walk #Sleep|tags +#Sleep #walk" L show 1
expect "one tag for Sleep and sleep" 0 '"Sleep"' L --json show 1
expect "share text" 0 "^\[.*\] Feeling .*\.$" L show 1 --share
expect "delete" 0 "Deleted record 2" L delete 2 --yes

before=$(fingerprint)
expect "level too high" 2 "mood level must be a whole number from 1 \(worst\) to 10 \(best\)" L add 11
expect "level zero" 2 "from 1 \(worst\) to 10" L add 0
expect "level not a number" 2 "not \"good\"" L add good
expect "unreadable date" 2 "cannot read the date \"32/13/2026\"" L add 5 --at 32/13/2026
expect "unreadable list date" 2 "cannot read the start date" L list --from yesterdayish
expect "unknown ID" 1 "no record with ID 99" L show 99
expect "unknown ID on delete" 1 "no record with ID 99" L delete 99 --yes
expect "ID not a number" 2 "record ID is the number" L delete abc --yes
expect "delete without --yes off a terminal" 2 "needs --yes" L delete 1
[ "$before" = "$(fingerprint)" ] || { echo "FAIL bad input changed the store"; fail=1; }
[ "$(L list | wc -l)" -eq 3 ] || { echo "FAIL records lost"; fail=1; }

# A store file that is no database: refused, left byte for byte as it was.
other=$(mktemp -d)
mkdir -p "$other/Library"
printf 'my notes, not a journal\n' >"$other/Library/Model.sqlite"
expect "store is no database" 1 "is not an SQLite database" "$lumeo" --home "$other" list
expect "store is no database on add" 1 "is not an SQLite database" "$lumeo" --home "$other" add 5
[ "$(cat "$other/Library/Model.sqlite")" = "my notes, not a journal" ] || { echo "FAIL the foreign file changed"; fail=1; }
! grep -q MoodFirstStart "$other/defaults.plist" 2>/dev/null || { echo "FAIL a foreign store was taken for a first start"; fail=1; }
rm -rf "$other"

[ $fail -eq 0 ] && echo "journal commands: all checks passed"
exit $fail
