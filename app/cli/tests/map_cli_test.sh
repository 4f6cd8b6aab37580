#!/usr/bin/env bash
# End-to-end checks of lumeo map and lumeo locations clear: pins of a view,
# the tag and date filters, a picture that is a real PNG; bad input on the
# command line and impossible positions written into the store by hand,
# each giving a clear message or being left out, never a crash.
set -u
lumeo=$1
source "$(dirname "$0")/checks.sh"
fresh_home
is_png() { [ "$(head -c 8 "$1" | od -An -tx1 | tr -d ' \n')" = "89504e470d0a1a0a" ]; }

L add 7 --place 48.2,16.37 --at 2025-11-20T09:00 >/dev/null
L add 3 --place 48.2,16.37 --comment "#work" --at 2025-11-21T09:00 >/dev/null
L add 9 --place 48.21,16.38 --at 2025-11-22T09:00 >/dev/null
L add 5 --place 47.07,15.44 --comment "#work" --at 2025-11-23T09:00 >/dev/null
L add 2 --place 41.4,2.17 --at 2025-11-24T09:00 >/dev/null
L add 6 --at 2025-11-24T10:00 >/dev/null

expect "map shows every located record" 0 "5 of 5 located records" L map
expect "a city view splits by place" 0 "2 annotations +one place +levels 3 7" L map --bbox 16,48,17,49
expect "the tag filter" 0 '"located": 2' L map --tag work --json
expect "the date filter" 0 "3 of 3 located" L map --from 2025-11-20 --to 2025-11-22
expect "an open end of the date filter" 0 "2 of 2 located" L map --from 2025-11-23
expect "zoom levels" 0 "zoom 3.0" L map --zoom 3
out=$(L map --zoom 3 --json)
check "json pins carry levels, titles and subtitles" \
  grep -q '"subtitle": "7, 3"\|"subtitle": "3, 7"' <<<"$out"
expect "the picture" 0 "Written to" L map --png "$home/map.png" --average
check "the picture is a PNG" is_png "$home/map.png"

expect "bbox needs four numbers" 2 "WEST,SOUTH,EAST,NORTH" L map --bbox 1,2,3
expect "bbox out of range" 2 "latitudes from -85 to 85" L map --bbox 0,-91,10,10
expect "bbox west before east" 2 "west before east" L map --bbox 20,0,10,10
expect "bbox NaN" 2 "four numbers" L map --bbox nan,0,10,10
expect "zoom is a number" 2 "--zoom must be a number" L map --zoom abc
expect "zoom range" 2 "--zoom goes from 0" L map --zoom 40
expect "unknown tag" 1 "no tag named \"nothing\"" L map --tag nothing
expect "unreadable date" 2 "cannot read the --from date" L map --from yesterdayish
expect "reversed dates" 2 "--to lies before --from" L map --from 2025-11-23 --to 2025-11-20
expect "add refuses an impossible place" 2 "latitude -90..90" L add 5 --place 95,10
expect "add refuses NaN" 2 "latitude -90..90" L add 5 --place nan,10

# Positions that only a damaged or hand-edited store can hold.
sqlite3 "$store" "UPDATE MoodDescription SET latitude = 95 WHERE _pk = (SELECT moodDescription FROM MoodRecord WHERE moodLevel = 9);"
sqlite3 "$store" "UPDATE MoodDescription SET longitude = -400 WHERE _pk = (SELECT moodDescription FROM MoodRecord WHERE moodLevel = 2);"
expect "impossible stored positions are left out" 0 "2 records have an impossible position" L map
expect "and counted in json" 0 '"skipped": 2' L map --json
# Values that are no number at all read as "no place".
sqlite3 "$store" "UPDATE MoodDescription SET latitude = 'NaN' WHERE _pk = (SELECT moodDescription FROM MoodRecord WHERE moodLevel = 7);"
sqlite3 "$store" "UPDATE MoodDescription SET longitude = NULL WHERE _pk = (SELECT moodDescription FROM MoodRecord WHERE moodLevel = 3);"
expect "unreadable stored positions show no pin" 0 '"located": 1,' L map --json

expect "clearing needs --yes off a terminal" 2 "needs --yes" L locations clear </dev/null
check "nothing was cleared" test "$(sqlite3 "$store" "SELECT count(*) FROM MoodDescription WHERE latitude != -1 AND longitude != -1")" = 4
expect "clearing" 0 '"cleared": [0-9]' L locations clear --yes --json
expect "no pins after clearing" 0 "No records with a place" L map
expect "clearing again" 0 "nothing to delete" L locations clear --yes
check "records stay" test "$(sqlite3 "$store" "SELECT count(*) FROM MoodRecord")" = 6

exit $fail
