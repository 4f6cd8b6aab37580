#!/usr/bin/env bash
# End-to-end checks of the editor's commands: tags become links through add
# and edit, photos land in the image store, tag rename and delete rewrite the
# comments, completion offers the feeling words, templates and levels are
# kept; and bad input (a file that is no picture, a missing file: exit 1; a
# level outside 1..10, a bad tag name: usage errors, exit 2) gives a clear
# message and leaves the journal as it was.
set -u
lumeo=$1
source_dir=$(cd "$(dirname "$0")/../../.." && pwd)
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8
store="$home/Library/Model.sqlite"
images="$home/Library/imageStore"
picture="$source_dir/testdata/fuzz/image_decode/plain.jpg"
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }

fingerprint() {
  { sqlite3 "$store" "SELECT * FROM MoodRecord; SELECT * FROM MoodDescription; SELECT * FROM MoodTag; SELECT * FROM MoodRecord_moodTags;"; ls "$images" 2>/dev/null; } | md5sum
}
links() { sqlite3 "$store" "SELECT COUNT(*) FROM MoodRecord_moodTags;"; }
comment() { L --json show "$1" | sed -n 's/.*"comment": "\(.*\)",*$/\1/p'; }

# --- Tags become links, one per tag, through add and edit.
expect "add with tags" 0 "^Added record 1" L add 7 --comment "Slept #sleep:8h, walked #walk:3km #Sleep:7h" --at 2026-11-20T09:15
expect "tags listed with unit" 0 "#Sleep +h +1 +7.00" L tags
check "two links for three mentions" [ "$(links)" = 2 ]
expect "add with a photo" 0 "^Added record 2" L add 4 --comment "#work late" --photo "$picture" --at 2026-11-21T20:00
check "photo and thumbnail in the image store" [ "$(ls "$images" | grep -cE '^[0-9a-f]{24}\.jpg$')" = 2 ]
expect "edit relinks from the new text" 0 "tags #walk #friends|tags #friends #walk" L edit 1 --comment "#walk:5km with #friends"
check "edit replaced the links" [ "$(links)" = 3 ]
expect "edit marks the record edited" 0 '"edited": true' L --json edit 1 --level 8
before_names=$(ls "$images")
expect "edit writes pictures under new names" 0 "with photo" L edit 2 --level 5
check "old picture files are gone" [ -z "$(comm -12 <(echo "$before_names") <(ls "$images"))" ]
expect "no-photo clears the pictures" 0 '"photo": null' L --json edit 2 --no-photo
check "image store empty" [ "$(ls "$images" | wc -l)" = 0 ]

# --- Places go to the record directly, as the editor's map does.
place() { sqlite3 "$store" "SELECT latitude || ',' || longitude FROM MoodDescription d JOIN MoodRecord r ON r.moodDescription = d._pk WHERE r._pk = $1;"; }
expect "edit --help lists the place options" 0 "--no-place" L edit --help
expect "place" 0 '"latitude": 48.2' L --json edit 2 --place 48.2,16.37
check "place stored" [ "$(place 2)" = "48.2,16.37" ]
expect "a level edit keeps the place" 0 "^Edited record 2: level 3" L edit 2 --level 3
check "place kept" [ "$(place 2)" = "48.2,16.37" ]
expect "no-place removes it" 0 '"level": 3' L --json edit 2 --no-place
check "both coordinates are -1" [ "$(place 2)" = "-1.0,-1.0" ]
check "place and no-place together are refused" bash -c '! "$0" --home "$1" edit 2 --place 1,2 --no-place 2>/dev/null' "$lumeo" "$home"
check "refused place left the record alone" [ "$(place 2)" = "-1.0,-1.0" ]

# --- Values and completion.
expect "values per tag and unit" 0 "#walk +km +5 +5 +1" L values
expect "values json" 0 '"key": "walk:km"' L --json values
expect "completion of a prefix" 0 "^#walk" L complete wa
expect "bare # offers real tags before suggestions" 0 "^#" L complete ""
expect "a complete word offers nothing" 0 "^$" L complete walk
expect "feeling words are offered as suggestions" 0 "\(suggestion\)" L complete ""

# --- Rename and delete rewrite the comments.
L add 6 --comment "#run:5km then #run" --at 2026-11-22T08:00 >/dev/null
expect "rename" 0 "Renamed #run to #jog in 1 records" L tag rename run jog
check "rename rewrote the comment" [ "$(comment 3)" = "#jog:5km then #jog" ]
expect "renamed tag keeps its unit" 0 "#jog +km" L tags
expect "delete" 0 "Deleted #jog from 1 records" L tag delete jog
check "delete removed the mentions" [ "$(comment 3)" = " then " ]
check "no row for the deleted tag" [ "$(sqlite3 "$store" "SELECT COUNT(*) FROM MoodTag WHERE tagName='jog';")" = 0 ]

# --- Template and levels.
expect "template set" 0 "Template set" L template set "Today #sleep:"
expect "template show" 0 "^Today #sleep:$" L template show
expect "level text" 0 "^ +10 +#10A040 +Wonderful day" L levels set 10 --text "Wonderful day" --color "#10a040"
expect "levels reset" 0 "^ +10 " L levels reset
expect "gradient from three colours" 0 "^ +10 +#F[EF]0[01]00 " L levels gradient --from "#ff0000" --middle "#00ff00" --to "#0000ff"
expect "the middle levels take the middle colour" 0 "^ +5 +#[0-3][0-9A-F][C-F][0-9A-F][0-3][0-9A-F] " L levels show
expect "gradient mode kept" 0 "^Gradient on: #FF0000 #00FF00 #0000FF$" L levels gradient
expect "gradient off keeps the colours" 0 "^Gradient off$" L levels gradient --off
expect "colours stay after off" 0 "^ +10 +#F[EF]0[01]00 " L levels show
expect "gradient colour must be a colour" 2 "#RRGGBB" L levels gradient --from red
expect "off excludes colours" 2 "excludes" L levels gradient --off --to "#000000"
expect "gradient on again" 0 "^Gradient on" L levels gradient
expect "levels show tells the gradient (from the default colours after off)" 0 "^Gradient on: #E93700" L levels show
expect "levels reset after the gradient" 0 "^ +10 " L levels reset
levels_after_reset=$(L levels show)
check "reset ends the gradient" test -z "$(grep Gradient <<<"$levels_after_reset")"

# --- Bad input changes nothing.
printf 'not a picture' > "$home/fake.jpg"
print=$(fingerprint)
expect "a file that is no picture" 1 "cannot use .*fake.jpg as a photo" L edit 1 --photo "$home/fake.jpg"
expect "a missing photo file" 1 "no photo file" L edit 1 --photo "$home/missing.jpg"
expect "add with a missing photo" 1 "no photo file" L add 5 --photo "$home/missing.jpg"
expect "level out of range" 2 "from 1 \(worst\) to 10 \(best\)" L edit 1 --level 11
expect "unknown record" 1 "no record with ID 99" L edit 99 --level 3
expect "bad tag name" 2 "cannot be a tag name" L tag rename walk "two words"
expect "unknown tag" 1 "no tag named" L tag delete nosuchtag
expect "future date" 2 "future" L edit 1 --at 2099-01-01T00:00
expect "bad place" 2 "LAT,LON" L edit 1 --place 91,0
check "photo and no-photo together are refused" bash -c '! "$0" --home "$1" edit 1 --photo "$2" --no-photo 2>/dev/null' "$lumeo" "$home" "$picture"
check "journal unchanged by bad input" [ "$(fingerprint)" = "$print" ]

exit $fail
