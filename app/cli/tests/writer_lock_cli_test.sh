#!/usr/bin/env bash
# Who waits for whom on one journal. A command that only reads, however long
# it runs, and a long report do not hold up a `lumeo add`; two writers still
# run one after the other and lose nothing. The long commands are held still
# by what they wait for (a full pipe, a PDF viewer that has not returned), so
# no check depends on timing.
set -u
lumeo=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
home=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$home"
}
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
store=$home/Library/Model.sqlite
L() { "$lumeo" --home "$home" "$@"; }
records() { sqlite3 "$store" 'SELECT COUNT(*) FROM MoodRecord;'; }
# A writer that must get through while the other command runs: it gives up
# after 20 s, well before the lock's own 30 s wait would end.
add_now() { timeout 20 "$lumeo" --home "$home" add "$@" >/dev/null; }
edit_now() { timeout 20 "$lumeo" --home "$home" edit "$@" >/dev/null; }

# Three records with long comments: `list --json` prints far more than a
# pipe holds.
python3 -c 'print("x" * 40000, end="")' >"$home/long.txt"
for level in 3 5 7; do L add $level --comment-file "$home/long.txt" --at 2026-01-0${level}T08:00 >/dev/null; done

# --- A reading command that stalls on its output holds no lock.
mkfifo "$home/pipe"
exec 3<>"$home/pipe"
"$lumeo" --home "$home" --json list >"$home/pipe" 2>/dev/null &
pids+=($!)
reader=$!
head -c 1000 <&3 >/dev/null  # it printed, so it has opened the journal; the pipe stays full
check "the reader is still running" kill -0 $reader
check "an add gets through while list prints" add_now 8 --comment "during list #during"
check "the reader is still running after it" kill -0 $reader
kill $reader
wait $reader 2>/dev/null
exec 3<&-
check "the record is in the journal" [ "$(records)" = 4 ]

# --- A long report: `export pdf --open` waits for the viewer, which waits
# for the test.
mkdir "$home/bin"
cat >"$home/bin/xdg-open" <<EOF
#!/bin/sh
touch "$home/viewer-started"
for i in \$(seq 1 600); do [ -e "$home/viewer-may-close" ] && exit 0; sleep 0.1; done
exit 1
EOF
chmod +x "$home/bin/xdg-open"
PATH="$home/bin:$PATH" "$lumeo" --home "$home" export pdf -o "$home/report.pdf" --open >"$home/export.out" 2>&1 &
pids+=($!)
exporter=$!
for i in $(seq 1 600); do [ -e "$home/viewer-started" ] && break; sleep 0.1; done
check "the report is open in the viewer" [ -e "$home/viewer-started" ]
check "an add gets through while the report is open" add_now 9 --comment "during the report"
check "an edit gets through too" edit_now 1 --level 4
touch "$home/viewer-may-close"
wait $exporter
check "the report ended well" [ $? -eq 0 ]
check "the report is a PDF" bash -c "pdfinfo '$home/report.pdf' >/dev/null"
check "both records are in the journal" [ "$(records)" = 5 ]

# --- Writers still take turns: a writer holds the lock while it runs, so a
# second writer waits for it and then sees its tag.
sqlite3 "$store" 'PRAGMA integrity_check;' >/dev/null
for i in $(seq 1 10); do L add 5 --comment "a$i #turns" >/dev/null & L add 6 --comment "b$i #Turns" >/dev/null & done
wait
check "twenty more records" [ "$(records)" = 25 ]
check "one row for the tag both made" [ "$(sqlite3 "$store" "SELECT COUNT(*) FROM MoodTag WHERE lower(tagName) = 'turns';")" = 1 ]
check "the tag holds all twenty" [ "$(sqlite3 "$store" "SELECT frequency FROM MoodTag WHERE lower(tagName) = 'turns';")" = 20 ]

[ $fail -eq 0 ] && echo "writer lock: all checks passed"
exit $fail
