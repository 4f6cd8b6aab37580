#!/usr/bin/env bash
# End-to-end checks of lumeo history, calendar, photos and show --png: the
# day sections and filters, a month grid in the user's week, pictures that
# are real PNG files; and bad input (unknown tags, unreadable dates, a
# comment of a megabyte or with ten thousand tags, invalid UTF-8 in a
# stored comment, a photo file gone from the image store), each giving a
# clear message or an empty result and leaving the journal as it was.
set -u
lumeo=$1
source_dir=$(cd "$(dirname "$0")/../../.." && pwd)
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8 LUMEO_FIRST_WEEKDAY=2
unset NO_COLOR
store="$home/Library/Model.sqlite"
images="$home/Library/imageStore"
picture="$source_dir/testdata/fuzz/image_decode/plain.jpg"
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
is_png() { [ "$(head -c 8 "$1" | od -An -tx1 | tr -d ' \n')" = "89504e470d0a1a0a" ]; }
fingerprint() {
  { sqlite3 "$store" "SELECT * FROM MoodRecord; SELECT * FROM MoodDescription; SELECT * FROM MoodTag; SELECT * FROM MoodRecord_moodTags;"; ls "$images" 2>/dev/null; } | md5sum
}

L add 7 --comment "Long walk #walk #sleep:8h" --at 2025-11-20T09:15 >/dev/null
L add 3 --comment "#work tired" --at 2025-11-20T19:00 >/dev/null
L add 5 --comment "#work again" --at 2025-11-22T10:00 --photo "$picture" >/dev/null
L add 9 --comment "Sunday #friends" --at 2026-03-01T12:00 >/dev/null

# --- History: day sections, oldest first, with the period and tag filters.
expect "history sections" 0 "^Thu, November 20, 2025$" L history
expect "history rows" 0 "^ +2  19:00   3  #work tired$" L history
expect "period in either order" 0 "^Sat, November 22, 2025$" L history --from 2025-11-22 --to 2025-11-20
[ "$(L history --from 2025-11-22 --to 2025-11-20 | grep -c '^ ')" -eq 3 ] || { echo "FAIL period holds three records"; fail=1; }
expect "one bound is that day" 0 "^ +1  09:15" L history --from 2025-11-20
[ "$(L history --to 2025-11-20 | grep -c '^ ')" -eq 2 ] || { echo "FAIL one bound holds its day only"; fail=1; }
expect "a tag's history" 0 "#work again" L history --tag WORK
[ "$(L history --tag work --tag walk | grep -c '^ ')" -eq 3 ] || { echo "FAIL any of two tags"; fail=1; }
expect "one day" 0 "^ +1  09:15   7  Long walk" L history --day 2025-11-20
expect "history json" 0 '"title": "Thu, November 20, 2025"' L --json history
expect "nothing that day" 0 "^No records match\.$" L history --day 1901-01-01

before=$(fingerprint)
expect "unknown tag" 1 "no tag named \"nope\"" L history --tag nope
expect "wildcard is no tag" 2 "is not a tag name" L history --tag "w*"
expect "unreadable day" 2 "cannot read the day \"32/13/2026\"" L history --day 32/13/2026
expect "day with a period" 2 "cannot be combined" L history --day 2025-11-20 --from 2025-11-01
check "bad input changed nothing" [ "$before" = "$(fingerprint)" ]

# --- Calendar: the user's week, plain level numbers off a terminal.
expect "calendar title" 0 "^November 2025$" L calendar 2025-11
expect "Monday first" 0 "^M +T +W +T +F +S +S$" L calendar 2025-11
expect "levels of a day in date order" 0 "^17 +18 +19 +20 7,3 +21 +22 5 +23$" L calendar 2025-11
expect "a Sunday 1st sits left of a Monday-first grid" 0 "^ 1 9$" L calendar 2026-03
expect "then the 2nd opens the next row" 0 "^ +2 +3 +4 +5 +6 +7 +8$" L calendar 2026-03
expect "calendar json" 0 '"column": -1,' L --json calendar 2026-03
expect "tag filter empties other days" 0 "^17 +18 +19 +20 3 +21 +22 5 +23$" L calendar 2025-11 --tag work
expect "calendar picture" 0 "^Wrote $home/m.png$" L calendar 2025-11 --png "$home/m.png"
check "the month is a PNG" is_png "$home/m.png"
expect "colour on a terminal" 0 $'20 \e\[38;2;' script -qec "$lumeo --home $home calendar 2025-11" /dev/null
expect "no colour with NO_COLOR" 0 "20 7,3" env NO_COLOR=1 script -qec "$lumeo --home $home calendar 2025-11" /dev/null
expect "month out of range" 2 "runs from 1970-01 to this month" L calendar 1969-12
expect "not a month" 2 "write the month as YYYY-MM" L calendar 2025-13
expect "calendar unknown tag" 1 "no tag named \"nope\"" L calendar --tag nope

# --- Photos: records with a photo and their files.
expect "photos" 0 "^ +3  2025-11-22 10:00   5  $images/[0-9a-f]{24}\.jpg$" L photos
expect "negative photos" 0 "^ +3 " L photos --negative
expect "no positive photos" 0 "^No photos match\.$" L photos --positive
expect "photos of a tag" 0 "^ +3 " L photos --tag work
expect "photos json" 0 '"photoMissing": false' L --json photos
expect "both halves" 2 "exclude each other" L photos --negative --positive
expect "photos of an unknown tag" 1 "no tag named" L photos --tag nope

# --- show --png: the comment as tagged text.
expect "comment picture" 0 "^Wrote $home/c.png \(" L show 1 --png "$home/c.png" --width 240
check "it is a PNG" is_png "$home/c.png"
expect "comment picture json" 0 '"lines": 1' L --json show 2 --png "$home/c2.png"
expect "width out of range" 2 "--width must be from 60 to 4000" L show 1 --png "$home/c3.png" --width 10
expect "unwritable picture" 1 "No such file or directory" L show 1 --png "$home/no/such/dir/c.png"
check "nothing half-written" [ ! -e "$home/c3.png" ]

# --- Bad stored data: a megabyte of comment, ten thousand tags, invalid
# UTF-8, a photo file gone.
sqlite3 "$store" "UPDATE MoodDescription SET comment = replace(hex(zeroblob(349526)), '00', 'ab ') || '#end' WHERE _pk = 2;"
many=$(for i in $(seq 1 10000); do printf '#t%d ' "$i"; done)
sqlite3 "$store" "UPDATE MoodDescription SET comment = '$many' WHERE _pk = 4;"
sqlite3 "$store" "UPDATE MoodDescription SET comment = CAST(X'62616420FFFE2023776f726b' AS TEXT) WHERE _pk = 1;"
photo=$(sqlite3 "$store" "SELECT photoName FROM MoodDescription WHERE _pk = 3;")
rm -f "$images/$photo"
before=$(fingerprint)
expect "history with a megabyte comment" 0 "(ab )+\.\.\.$" L history --day 2025-11-20
expect "json with invalid UTF-8" 0 '"comment": "bad \\ufffd\\ufffd #work"|"comment": "bad �� #work"' L --json history --day 2025-11-20
expect "picture of a megabyte comment" 0 "100 lines" L show 2 --png "$home/big.png"
expect "picture of ten thousand tags" 0 "100 lines" L show 4 --png "$home/many.png"
expect "picture of invalid UTF-8" 0 "^Wrote" L show 1 --png "$home/bad.png"
expect "a photo gone from the image store" 0 "\(missing\)$" L photos
expect "and said so" 0 "1 photo is missing from the image store" L photos
expect "calendar without the file" 0 "^Wrote" L calendar 2025-11 --png "$home/m2.png"
check "reading changed nothing" [ "$before" = "$(fingerprint)" ]

[ $fail -eq 0 ] && echo "browse commands: all checks passed"
exit $fail
