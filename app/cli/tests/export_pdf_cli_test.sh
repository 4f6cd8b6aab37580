#!/usr/bin/env bash
# lumeo export pdf and lumeo export photos end to end: the report read back
# with poppler, the reuse of an unchanged range, the clamped range, bad
# paths and dates, Ctrl-C in the middle of a long report, and photos copied
# into a folder only when new or changed.
set -u
lumeo=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMEO_HOME=$work/home TZ=UTC LANG=en_US.UTF-8
unset LC_ALL

convert -size 400x300 gradient:navy-gold "$work/lake.jpg" 2>/dev/null ||
  printf '\xff\xd8\xff' >"$work/lake.jpg"
"$lumeo" add 7 --comment "A day at the lake #swim" --photo "$work/lake.jpg" --at 2026-11-20T10:00 >/dev/null
"$lumeo" add 3 --comment "Rainy and tired #work" --at 2026-11-21T18:30 >/dev/null
"$lumeo" add 8 --comment "Dinner with friends #friends" --photo "$work/lake.jpg" --at 2026-11-22T20:15:30 >/dev/null

# --- The report ---------------------------------------------------------------
expect "pdf writes the report" 0 "Wrote $work/report.pdf" "$lumeo" export pdf -o "$work/report.pdf"
check "pdf is a PDF that poppler reads" bash -c "pdfinfo '$work/report.pdf' | grep -q 'Pages: *3'"
text=$(pdftotext "$work/report.pdf" - 2>/dev/null)
check "pdf holds the comments in order" bash -c \
  "grep -n 'lake' <<<\"\$1\" | head -1 | cut -d: -f1 | { read a; b=\$(grep -n 'Rainy' <<<\"\$1\" | head -1 | cut -d: -f1); [ \"\$a\" -lt \"\$b\" ]; }" _ "$text"
check "pdf holds the level texts" grep -q "Fine" <<<"$text"
check "pdf holds the summary" grep -q "Top positive" <<<"$text"
check "the report is kept in the documents folder" test -s "$LUMEO_HOME/Documents/mood.pdf"
expect "json names the file and the range" 0 '"from": "2026-11-20T00:00:00' "$lumeo" --json export pdf
expect "a start after the end is clamped" 0 "exporting Nov 22, 2026 only" \
  "$lumeo" export pdf --from 2026-11-22 --to 2026-11-01 -o "$work/one-day.pdf"
check "the clamped report has that day's record" bash -c "pdftotext '$work/one-day.pdf' - | grep -q Dinner"
check "the clamped report has no other record" bash -c "! pdftotext '$work/one-day.pdf' - | grep -q Rainy"
expect "a bad date is a usage error" 2 "cannot read the start date" "$lumeo" export pdf --from 2026-13-45
expect "a folder as output is refused" 1 "it is a folder" "$lumeo" export pdf -o "$work"
expect "a missing folder is refused" 1 "there is no folder" "$lumeo" export pdf -o "$work/nowhere/r.pdf"
mkdir "$work/locked" && chmod 500 "$work/locked"
if [ "$(id -u)" -ne 0 ]; then
  expect "an unwritable folder is reported" 1 "nothing was written" "$lumeo" export pdf -o "$work/locked/r.pdf"
fi
check "nothing was left in the unwritable folder" test -z "$(ls -A "$work/locked")"

# Ctrl-C while a long report is being made: no file under the final name,
# no temporary file beside it. The signal goes as soon as the report's file
# is begun (or after half a second); a report that was finished by then says
# nothing, so the journal's long record grows fourfold and the export runs
# again, until one is caught in the middle.
status=none
for sentences in 60000 240000 960000; do
  python3 -c "import sys; sys.stdout.write(' '.join('Sentence %d of a long day.' % i for i in range($sentences)))" \
    >"$work/long.txt"
  "$lumeo" add 5 --comment-file "$work/long.txt" --at 2026-11-19T08:00 >/dev/null
  rm -rf "$work/out"
  mkdir "$work/out"
  # Job control keeps SIGINT from being ignored by the background job, so a
  # signal that comes even before the export starts still stops it.
  set -m
  "$lumeo" export pdf -o "$work/out/long.pdf" >"$work/cancel.log" 2>&1 &
  pid=$!
  for _ in $(seq 50); do
    [ -n "$(ls -A "$work/out")" ] && break
    sleep 0.01
  done
  kill -INT "$pid" 2>/dev/null
  wait "$pid"
  status=$?
  set +m
  [ -e "$work/out/long.pdf" ] || break
  status=finished
done
check "Ctrl-C ends the export with status 130" test "$status" = 130
check "Ctrl-C leaves no file" test -z "$(ls -A "$work/out")"

# --- Photos -------------------------------------------------------------------
expect "photos are copied under their dates" 0 "Sent +November 20, 2026 at 10:00:00.*AM.jpg" \
  "$lumeo" export photos "$work/photos"
check "two photos are in the folder" test "$(ls "$work/photos" | wc -l)" -eq 2
expect "photos already there are skipped" 0 "No photos to export" "$lumeo" export photos "$work/photos"
first=$(ls "$work/photos" | grep 'November 20')
echo extra >>"$work/photos/$first"
second=$(ls "$work/photos" | grep 'November 22')
mv "$work/photos/$second" "$work/photos/${second^^}"
expect "a changed size is replaced" 0 "Replaced +November 20" "$lumeo" export photos "$work/photos"
expect "a name differing in case counts as there" 0 "Skipped +November 22" "$lumeo" export photos "$work/photos"
expect "a range without photos says so" 0 "No photos to export" \
  "$lumeo" export photos "$work/photos2" --from 2026-11-21 --to 2026-11-21
expect "a file in the folder's place is refused" 1 "not a folder" "$lumeo" export photos "$work/report.pdf"

exit $fail
