#!/usr/bin/env bash
# End-to-end checks of `lumeo sync now`: two homes on this machine share one
# folder; what each records reaches the other, a record deleted on one goes
# on both, a damaged file in the folder is skipped and left, and a sync
# without a destination or with a folder gone says why and changes nothing.
set -u
lumeo=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
A() { timeout 120 "$lumeo" --home "$work/a" "$@"; }
B() { timeout 120 "$lumeo" --home "$work/b" "$@"; }
folder=$work/Syncthing/Lumeo

expect "sync now before a destination is chosen" 1 "sync is not set up" A sync now
expect "a records before joining" 0 "Added" A add 7 --comment "before joining #walk"
expect "a chooses the folder" 0 "syncs through the folder" A sync folder "$folder"
expect "b chooses the same folder" 0 "syncs through the folder" B sync folder "$folder"
expect "a joins" 0 "Joined the sync destination" A sync now
expect "b joins and receives" 0 '"joined": true' B --json sync now
expect "b has a's record" 0 "before joining" B list
expect "b records" 0 "Added" B add 3 --comment "from b"
expect "b sends" 0 "Synced" B sync now
expect "a receives" 0 '"eventsImported": [1-9]' A --json sync now
expect "a has b's record" 0 "from b" A list
check "the folder holds event files" test -n "$(ls "$folder/MainStore/events")"

# A record deleted on a goes on b too.
id=$(A --json list | python3 -c 'import json,sys; print([r["id"] for r in json.load(sys.stdin) if r["comment"]=="from b"][0])')
expect "a deletes b's record" 0 "Deleted" A delete "$id" --yes
expect "a sends the delete" 0 "Synced" A sync now
expect "b receives the delete" 0 "Synced" B sync now
out=$(B list)
check "the record is gone on b" bash -c "! grep -q 'from b' <<<\"$out\""
check "a and b list the same" test "$(A --json list | python3 -c 'import json,sys; print(sorted(r["comment"] for r in json.load(sys.stdin)))')" = \
  "$(B --json list | python3 -c 'import json,sys; print(sorted(r["comment"] for r in json.load(sys.stdin)))')"

# A damaged event file under a good name: skipped, reported, left in place.
printf 'LUMEOSEV garbage' > "$folder/MainStore/events/999_ABCDEFGH-0000_0.syncevent"
expect "a damaged file is skipped" 0 "skipped 999_ABCDEFGH-0000_0.syncevent" A sync now
check "and left in the folder" test -f "$folder/MainStore/events/999_ABCDEFGH-0000_0.syncevent"
rm "$folder/MainStore/events/999_ABCDEFGH-0000_0.syncevent"

# The folder goes away (an unmounted drive): a clear error, the journal stays.
before=$(A --json list)
mv "$folder" "$work/unmounted"
expect "sync without the folder fails" 1 "sync failed, nothing in the journal changed" A sync now
check "the journal is as it was" test "$before" = "$(A --json list)"
mv "$work/unmounted" "$folder"
expect "sync works again" 0 "Synced" A sync now
exit $fail
