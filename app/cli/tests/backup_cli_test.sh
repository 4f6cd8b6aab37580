#!/usr/bin/env bash
# End-to-end checks of lumeo backup create, verify and restore and of
# lumeo export csv: a round trip between two homes, the question on a
# terminal, bad input (no file, not a zip, a hostile archive) with the
# journal untouched, and a full disk (a small tmpfs, where the system lets
# this script mount one) for both making and restoring a backup.
set -u
lumeo=$1
work=$(mktemp -d)
mounted=""
cleanup() {
  [ -n "$mounted" ] && umount "$mounted" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
export TZ=Europe/Berlin LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
A() { "$lumeo" --home "$work/a" "$@"; }
B() { "$lumeo" --home "$work/b" "$@"; }
fingerprint() {  # the journal's rows and pictures
  { sqlite3 "$1/Library/Model.sqlite" "SELECT date, moodLevel FROM MoodRecord ORDER BY 1; SELECT comment, photoName, latitude FROM MoodDescription ORDER BY 1, 2;"
    ls "$1/Library/imageStore" 2>/dev/null; } | md5sum
}

# A picture to attach: a small PNG made by ImageMagick.
convert -size 64x48 gradient:blue-yellow "$work/pic.png" 2>/dev/null || printf '' >"$work/pic.png"
A add 7 --comment 'a "quoted", back\slash, tab	here #sleep:8h' --at 2026-11-20T09:15 >/dev/null
A add 3 --comment $'two\nlines #Work' --place 52.52,13.405 --at 2026-11-21T14:30 >/dev/null
[ -s "$work/pic.png" ] && A add 8 --comment 'with a photo' --photo "$work/pic.png" --at 2026-11-22T08:00 >/dev/null

mkdir -p "$work/out"
expect "create prints the archive's path" 0 "^$work/out/.+_[0-9]{8}_[0-9]{4}\.backup$" A backup create --to "$work/out"
archive=$(ls "$work/out"/*.backup)
expect "unzip tests the archive" 0 "No errors detected" unzip -t "$archive"
expect "verify counts" 0 "is a good backup: 3 records, 2 tags" A backup verify "$archive"
expect "verify --json" 0 '"records": 3' A --json backup verify "$archive"
expect "create into a missing folder is a usage error" 2 "no such folder" A backup create --to "$work/none"

# Restore into an empty home: the same journal, the same CSV.
expect "restore --yes" 0 "Restored 3 records" B backup restore "$archive" --yes
check "the journals are equal" [ "$(fingerprint "$work/a")" = "$(fingerprint "$work/b")" ]
check "the CSV exports are equal" cmp -s <(A export csv) <(B export csv)
check "the previous journal is kept" [ -f "$work/b/before-restore.backup" ]
expect "the kept archive is a good backup" 0 "in the old format" B backup verify "$work/b/before-restore.backup"

# On a terminal restore asks first; "n" changes nothing. (script(1) gives
# the command a terminal.)
if command -v script >/dev/null; then
  before=$(fingerprint "$work/b")
  out=$(echo n | script -qec "\"$lumeo\" --home \"$work/b\" backup restore \"$work/b/before-restore.backup\"" /dev/null 2>&1)
  check "restore asks on a terminal" grep -q "replaces your journal (3 records)" <<<"$out"
  check "answering no changes nothing" [ "$(fingerprint "$work/b")" = "$before" ]
fi

# Bad input: a clear message, status 1, the journal as it was.
before=$(fingerprint "$work/b")
printf 'not a zip at all, just some words in a file that pretends\n' >"$work/text.backup"
: >"$work/empty.backup"
head -c 300 "$archive" >"$work/truncated.backup"
expect "no such file" 1 "no backup file" B backup restore "$work/nothing.backup" --yes
expect "not a zip" 1 "is not a backup archive: it is not a zip archive; nothing was changed" B backup restore "$work/text.backup" --yes
expect "empty" 1 "the file is empty" B backup restore "$work/empty.backup" --yes
expect "truncated" 1 "cut short" B backup restore "$work/truncated.backup" --yes
python3 "$(dirname "$0")/../../../testdata/backup/make_hostile_corpus.py" --small "$work/hostile"
expect "a member with .. is refused" 1 "points outside the backup's folder" B backup restore "$work/hostile/dotdot.zip" --yes
expect "a symbolic link is refused" 1 "is a symbolic link" B backup verify "$work/hostile/symlink.zip"
# The large hostile cases within a small memory limit and a time limit: a
# bomb of 200 MiB and 100,001 real members are refused from their headers.
python3 "$(dirname "$0")/../../../testdata/backup/make_hostile_corpus.py" "$work/hostile-all"
bounded() { (ulimit -v 1000000; timeout 60 "$@"); }
expect "a zip bomb is refused in bounded memory" 1 "zip bomb" bounded "$lumeo" --home "$work/b" backup restore "$work/hostile-all/zip_bomb.zip" --yes
expect "100,001 members are refused in bounded memory" 1 "1000[0-9]+ members, more than the 100000" bounded "$lumeo" --home "$work/b" backup verify "$work/hostile-all/too_many_members.zip"
expect "a wrapped member count is refused" 1 "more members than it declares" bounded "$lumeo" --home "$work/b" backup verify "$work/hostile-all/too_many_members_wrapped.zip"
check "the journal is as it was" [ "$(fingerprint "$work/b")" = "$before" ]
check "nothing was unpacked outside" [ ! -e "$work/evil.txt" ] && [ ! -e "$work/b/evil.txt" ]

# CSV to a file, and bad dates.
expect "export csv -o" 0 "^Wrote" A export csv --from 2026-11-21 --to 2026-11-21 -o "$work/day.csv"
check "one record in the day" [ "$(tail -n +3 "$work/day.csv" | wc -l)" -eq 1 ]
expect "a bad date is a usage error" 2 "cannot read the start date" A export csv --from someday

# A full disk: a tmpfs of 3 MB, where one can be mounted.
disk="$work/disk"
mkdir -p "$disk"
if mount -t tmpfs -o size=3m tmpfs "$disk" 2>/dev/null; then
  mounted=$disk
  head -c 4000000 /dev/zero >"$disk/filler" 2>/dev/null
  expect "create on a full disk" 1 "the disk is full|No space left" A backup create --to "$disk"
  check "no partial archive is left" [ -z "$(ls -A "$disk" | grep -v '^filler$')" ]
  rm -f "$disk/filler"
  # A home on the small disk, and an archive bigger than it.
  "$lumeo" --home "$disk/home" add 5 --comment "on a small disk" >/dev/null
  for i in 1 2 3 4; do head -c 1000000 /dev/urandom >"$work/big$i.jpg"; done
  (cd "$work" && mkdir -p big/imageStore && cp big?.jpg big/imageStore/ && unzip -p "$archive" /backup.json >big/backup.json &&
    cd big && zip -qr "$work/big.backup" backup.json imageStore)
  before=$(fingerprint "$disk/home")
  expect "restore onto a full disk" 1 "not enough free space|the disk is full" "$lumeo" --home "$disk/home" backup restore "$work/big.backup" --yes
  check "the journal on the full disk is as it was" [ "$(fingerprint "$disk/home")" = "$before" ]
  check "no working folder is left" [ ! -e "$disk/home/Backup" ]
else
  echo "skip the full-disk checks: cannot mount a tmpfs here"
fi

exit $fail
