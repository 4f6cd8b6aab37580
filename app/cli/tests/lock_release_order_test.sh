#!/usr/bin/env bash
# A writing command lets go of the journal's writer lock last: the journal,
# the settings and the sync event log of its saves are all on disk, and
# closed, before Model.sqlite.lock is. A writer that takes the lock the
# moment it is free then finds them whole, and nothing of the first command
# lands after it. inotify reports every file event in the journal's folders
# in the order it happened, the close of the lock file among them, so no
# check here depends on timing. A command that only reads writes no
# metadata of the event log at all.
set -u
lumeo=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
work=$(mktemp -d)
watcher=
cleanup() {
  [ -n "$watcher" ] && kill "$watcher" 2>/dev/null
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
home=$work/home
L() { timeout 120 "$lumeo" --home "$home" "$@"; }

# A journal that syncs through a folder: from here on every save of a
# command is also written to the device's event log.
L add 5 --comment "first #walk" >/dev/null
L sync folder "$work/folder" >/dev/null
L sync now >/dev/null
eventlog=$(dirname "$(find "$home" -name store.plist -path '*MainStore*')")
check "the device has an event log" test -f "$eventlog/store.plist"

inotifywait -m -r --format '%e|%w%f' -e modify,create,delete,moved_to,moved_from,close_write,attrib \
  "$home/Library" "$eventlog" >"$work/events" 2>"$work/watcher.err" &
watcher=$!
for _ in $(seq 600); do grep -q "Watches established" "$work/watcher.err" && break; sleep 0.1; done
check "the file watcher runs" grep -q "Watches established" "$work/watcher.err"

# watched NAME COMMAND...: runs the command, then marks the end of its file
# events; they land in $work/NAME.events once the mark shows up (inotify
# keeps them in order, so every event before the mark is there by then).
marks=0
watched() {
  local name=$1
  shift
  "$@" >/dev/null 2>"$work/$name.err"
  local status=$?
  marks=$((marks + 1))
  touch "$home/Library/.mark-$marks"
  for _ in $(seq 600); do grep -q "/.mark-$marks\$" "$work/events" && break; sleep 0.1; done
  python3 - "$work/events" "$marks" >"$work/$name.events" <<'EOF'
import sys
lines = open(sys.argv[1]).read().splitlines()
start = 0
end = len(lines)
for i, line in enumerate(lines):
    if line.endswith("/.mark-%d" % (int(sys.argv[2]) - 1)):
        start = i + 1
    if line.endswith("/.mark-" + sys.argv[2]):
        end = i
        break
print("\n".join(l for l in lines[start:end] if "/.mark-" not in l))
EOF
  return $status
}

# after_release NAME: the file events of NAME after its last close of the
# lock file, which are writes that another writer could interleave with.
after_release() {
  awk '/\|.*\/Model\.sqlite\.lock$/ && /CLOSE/ { n = NR } { line[NR] = $0 }
       END { for (i = n + 1; i <= NR; i++) if (line[i] !~ /\/Model\.sqlite\.lock$/) print line[i] }' \
    "$work/$1.events"
}
released() { grep -q 'CLOSE.*|.*/Model\.sqlite\.lock$' "$work/$1.events"; }
nothing_after_release() {
  local late
  late=$(after_release "$1")
  [ -z "$late" ] && return 0
  echo "  $(wc -l <<<"$late") file events after the lock was released, the first of them:"
  head -n 8 <<<"$late" | sed "s#$home/##; s/^/  | /"
  return 1
}
# wrote_events NAME: the event log's database or its write-ahead log was
# written while NAME held the lock.
wrote_events() {
  awk '/\|.*\/Model\.sqlite\.lock$/ && /CLOSE/ { held = NR } { line[NR] = $0 }
       END { for (i = 1; i < held; i++) if (line[i] ~ /^(MODIFY|CLOSE_WRITE).*\/events\.sqlite(-wal)?$/) found = 1
             exit !found }' "$work/$1.events"
}

check "add runs" watched add L add 7 --comment "second #walk #new"
check "add held the lock and let it go" released add
check "add wrote its event to the log" wrote_events add
check "add wrote nothing after letting go of the lock" nothing_after_release add

id=$(L --json list | python3 -c 'import json,sys; print([r["id"] for r in json.load(sys.stdin) if r["comment"].startswith("second")][0])')
check "edit runs" watched edit L edit "$id" --level 8
check "edit wrote its event to the log" wrote_events edit
check "edit wrote nothing after letting go of the lock" nothing_after_release edit

check "delete runs" watched delete L delete "$id" --yes
check "delete wrote its event to the log" wrote_events delete
check "delete wrote nothing after letting go of the lock" nothing_after_release delete

# An exchange changes the event log throughout and closes it under the lock.
check "sync now runs" watched sync L sync now
check "sync now held the lock and let it go" released sync
check "sync now wrote nothing after letting go of the lock" nothing_after_release sync

# A reading command holds no lock and has no event to write: the log's
# metadata, which a writer may be changing meanwhile, is not written back.
check "list runs" watched list L list
check "list leaves the event log's metadata alone" bash -c "! grep -q 'store\.plist' '$work/list.events'"
check "show runs" watched show L show 1
check "show leaves the event log's metadata alone" bash -c "! grep -q 'store\.plist' '$work/show.events'"

# What the commands wrote is whole: the next exchange reads every event.
expect "the log's events go out" 0 "Synced" L sync now
exit $fail
