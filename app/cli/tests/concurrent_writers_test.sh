#!/usr/bin/env bash
# Two `lumeo add` processes at once on one journal, 20 records each, naming a
# tag that exists, tags that both make new, and one tag each of their own:
# every record arrives, every tag name has one row, and the backup counter
# counts all 40 records.
set -u
lumeo=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
store=$home/Library/Model.sqlite
L() { "$lumeo" --home "$home" "$@"; }

L add 5 --comment "the first #shared" >/dev/null || { echo "FAIL seed"; exit 1; }
writer() {  # writer NAME: 20 adds, each reporting a failure on standard error
  for i in $(seq 1 20); do
    L add $((i % 10 + 1)) --comment "$1 $i #shared #fresh #Fresh_$((i % 3)) #only_$1" >/dev/null ||
      echo "add $i of $1 failed" >&2
  done
}
writer a 2>"$home/a.err" &
pa=$!
writer b 2>"$home/b.err" &
pb=$!
wait $pa $pb
errors=$(cat "$home/a.err" "$home/b.err")
check "no add failed" [ -z "$errors" ]
[ -z "$errors" ] || sed 's/^/  | /' <<<"$errors"
check "all 41 records arrived" [ "$(sqlite3 "$store" 'SELECT COUNT(*) FROM MoodRecord;')" = 41 ]
dupes=$(sqlite3 "$store" "SELECT lower(tagName), COUNT(*) FROM MoodTag GROUP BY lower(tagName) HAVING COUNT(*) > 1;")
check "one tag row per name" [ -z "$dupes" ]
[ -z "$dupes" ] || sed 's/^/  | /' <<<"$dupes"
check "seven tags" [ "$(sqlite3 "$store" 'SELECT COUNT(*) FROM MoodTag;')" = 7 ]
check "#shared is on every record" [ "$(sqlite3 "$store" "SELECT COUNT(*) FROM MoodRecord_moodTags JOIN MoodTag ON MoodTag._pk = MoodRecord_moodTags._dst WHERE tagName = 'shared';" 2>/dev/null)" = 41 ]
counter=$(sed -n '/<key>MoodDropboxCounter<\/key>/{n;s/.*<integer>\([0-9-]*\)<\/integer>.*/\1/p}' "$home/defaults.plist")
check "the backup counter counts every record (41, got ${counter:-none})" [ "${counter:-0}" = 41 ]
check "the store is sound" [ "$(sqlite3 "$store" 'PRAGMA integrity_check;')" = ok ]

[ $fail -eq 0 ] && echo "concurrent writers: all checks passed"
exit $fail
