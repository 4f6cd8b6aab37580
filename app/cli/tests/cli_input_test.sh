#!/usr/bin/env bash
# What the command line accepts and how it answers: one exit status per kind
# of mistake in every command (usage errors 2, failures 1); no record in the
# future; comments from a file or standard input, refused when they are not
# UTF-8, and a bad record already stored never breaks --json; tag names
# taken literally; one JSON shape of a record; new records start from the
# template.
set -u
lumeo=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8
store=$home/Library/Model.sqlite
L() { "$lumeo" --home "$home" "$@"; }
fingerprint() { sqlite3 "$store" "SELECT * FROM MoodRecord; SELECT * FROM MoodDescription; SELECT * FROM MoodTag; SELECT * FROM MoodRecord_moodTags;" | md5sum; }
keys() { grep -oE '^  "[a-zA-Z]+":' | tr -d ' :"' | sort | tr '\n' ' '; }

L add 6 --comment "Morning #walk" --at 2026-01-10T08:00 >/dev/null
L add 4 --comment "Office #work" --at 2026-01-11T08:00 >/dev/null

# --- A record never lies in the future, in add as in edit; the same
# mistakes give the same status in both commands.
print=$(fingerprint)
tomorrow=$(date -u -d tomorrow +%Y-%m-%dT%H:%M)
expect "add refuses a future date" 2 "cannot lie in the future" L add 5 --at "$tomorrow"
expect "edit refuses a future date" 2 "cannot lie in the future" L edit 1 --at "$tomorrow"
expect "add: level out of range" 2 "from 1 \(worst\) to 10" L add 11
expect "edit: level out of range" 2 "from 1 \(worst\) to 10" L edit 1 --level 11
expect "add: unreadable date" 2 "cannot read the date" L add 5 --at "soon"
expect "edit: unreadable date" 2 "cannot read the date" L edit 1 --at "soon"
expect "add: bad place" 2 "LAT,LON" L add 5 --place 0,181
expect "edit: bad place" 2 "LAT,LON" L edit 1 --place 0,181
expect "edit: ID not a number" 2 "record ID is the number" L edit one --level 3
expect "show: ID not a number" 2 "record ID is the number" L show one
expect "edit: unknown record is a failure" 1 "no record with ID 99" L edit 99 --level 3
expect "add: a missing photo is a failure" 1 "no photo file" L add 5 --photo "$home/none.jpg"
expect "edit: a missing photo is a failure" 1 "no photo file" L edit 1 --photo "$home/none.jpg"
expect "levels: bad colour" 2 "#RRGGBB" L levels set 3 --color red
check "no bad input changed the journal" [ "$(fingerprint)" = "$print" ]

# --- Comments from a file or standard input; text that is not UTF-8 is
# refused at the door.
printf 'Long day\nat the lake #lake\n' >"$home/comment.txt"
expect "comment from a file" 0 '"comment": "Long day\\nat the lake #lake"' L --json add 7 --comment-file "$home/comment.txt"
expect "the file's hashtags become tags" 0 '"lake"' L --json show 3
expect "comment from standard input" 0 '"comment": "piped #stdin"' bash -c 'printf "piped #stdin\n" | "$0" --home "$1" --json add 5 --comment-file -' "$lumeo" "$home"
expect "edit from standard input" 0 '"comment": "rewritten"' bash -c 'printf "rewritten" | "$0" --home "$1" --json edit 4 --comment-file -' "$lumeo" "$home"
print=$(fingerprint)
expect "a missing comment file" 1 "cannot read the comment file .*nothing.txt" L add 5 --comment-file "$home/nothing.txt"
expect "comment and comment file together" 2 "excludes" L add 5 --comment x --comment-file "$home/comment.txt"
expect "add: a comment that is not UTF-8" 2 "not UTF-8 text \(bad byte at offset 3\)" L add 5 --comment $'Bad\xff #x'
expect "edit: a comment that is not UTF-8" 2 "not UTF-8" L edit 1 --comment $'\xc3\x28'
printf 'over\xc0\xaflong' >"$home/bad.txt"
expect "a comment file that is not UTF-8" 2 "comment in .*bad.txt is not UTF-8" L add 5 --comment-file "$home/bad.txt"
expect "a template that is not UTF-8" 2 "template is not UTF-8" L template set $'\xed\xa0\x80 surrogate'
check "refused comments changed nothing" [ "$(fingerprint)" = "$print" ]

# A record that holds bad bytes anyway (an older build, an edit by hand):
# --json still prints the whole journal, the bad bytes as U+FFFD.
sqlite3 "$store" "UPDATE MoodDescription SET comment = CAST(X'4869FF21' AS TEXT) WHERE _pk = (SELECT moodDescription FROM MoodRecord WHERE _pk = 2);"
expect "list --json survives a bad record" 0 '"comment": "Hi\\ufffd!"|"comment": "Hi�!"' L --json list
expect "show --json of the bad record" 0 '"level": 4' L --json show 2
expect "plain list of the bad record" 0 "Hi" L list

# --- Tag names are literal: * and ? reach no other tag.
print=$(fingerprint)
expect "delete w* is no wildcard" 1 'no tag named "w\*"' L tag delete 'w*'
expect "rename w?lk is no wildcard" 1 'no tag named "w\?lk"' L tag rename 'w?lk' stroll
expect "rename * is no wildcard" 1 'no tag named' L tag rename '*' all
check "walk and work are still there" [ "$(sqlite3 "$store" "SELECT group_concat(tagName, ',') FROM (SELECT tagName FROM MoodTag WHERE tagName IN ('walk','work') ORDER BY tagName);")" = "walk,work" ]
check "wildcards changed nothing" [ "$(fingerprint)" = "$print" ]
expect "a literal name still folds case" 0 "Renamed #walk to #stroll" L tag rename WALK stroll

# --- One JSON shape for a record, whichever command prints it.
shape=$(L --json show 1 | keys)
check "the shape has every field" [ "$shape" = "comment date edited id latitude level longitude photo photoFile photoMissing tags thumbFile uniqueIdentifier uri " ]
check "add prints the same shape" [ "$(L --json add 3 --comment same | keys)" = "$shape" ]
check "edit prints the same shape" [ "$(L --json edit 1 --level 5 | keys)" = "$shape" ]
check "list prints the same shape" [ "$(L --json list --limit 1 | sed -n '/^  {/,/^  }/p' | sed 's/^  //' | keys)" = "$shape" ]
# Every other command that prints records prints them in that shape, with
# the same values as show.
L add 8 --comment "Photo #walk" --at 2026-01-12T08:00 --photo "$here/../../../testdata/fuzz/image_decode/plain.jpg" >/dev/null
check "history, photos and calendar print the same records as show" python3 - "$lumeo" "$home" <<'PY'
import json, subprocess, sys
lumeo, home = sys.argv[1:]
def run(*args):
    return json.loads(subprocess.run([lumeo, "--home", home, "--json", *args], check=True, capture_output=True).stdout)
found = {
    "history": [r for s in run("history") for r in s["records"]],
    "photos": run("photos"),
    "calendar": [r for d in run("calendar", "2026-01")["days"] for r in d["records"]],
}
assert len(found["photos"]) == 1 and found["photos"][0]["photoFile"].endswith(found["photos"][0]["photo"]), found["photos"]
for name, records in found.items():
    assert records, name
    for record in records:
        shown = run("show", str(record["id"]))
        assert record == shown, (name, record, shown)
PY

# --- A new record without --comment starts from the template.
L template set "Today #mood_check " >/dev/null
expect "add takes the template" 0 '"comment": "Today #mood_check "' L --json add 6
expect "the template's tags are linked" 0 '"mood_check"' L --json list --limit 1
expect "an empty comment stays empty" 0 '"comment": null' L --json add 6 --comment ""
expect "a comment replaces the template" 0 '"comment": "Own words"' L --json add 6 --comment "Own words"

# --- The launch copies the feeling words from the resources folder, which
# LUMEO_RESOURCES_DIR may point elsewhere.
mkdir -p "$home/res" "$home/other"
printf '<plist><array><string>zany</string></array></plist>' >"$home/res/emotions.plist"
expect "feeling words from the resources folder" 0 "#zany +\(suggestion\)" env LUMEO_RESOURCES_DIR="$home/res" "$lumeo" --home "$home/other" complete z

[ $fail -eq 0 ] && echo "cli input: all checks passed"
exit $fail
