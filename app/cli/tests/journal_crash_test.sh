#!/usr/bin/env bash
# Kills `lumeo add` and `lumeo delete` with SIGKILL at random moments, many
# times over, and checks after each kill that the journal store still opens,
# passes SQLite's integrity check, and holds every record whose `lumeo add`
# returned (and was not deleted since). A record whose add or delete was
# killed may or may not be there; both are fine.
#
# Usage: journal_crash_test.sh path/to/lumeo [runs]
set -u
lumeo=$1
runs=${2:-50}
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
store="$home/Library/Model.sqlite"
export TZ=UTC LANG=C.UTF-8
RANDOM=4242

kept=()      # IDs whose add returned and that were not touched by a delete
fail=0
killed=0
completed=0

die() { echo "FAIL run $1: $2"; fail=1; }

# A few records to delete from the start.
for i in 1 2 3; do
  id=$("$lumeo" --home "$home" --json add $((i + 3)) --comment "seed $i #seed" | sed -n 's/^  "id": \([0-9]*\),$/\1/p')
  kept+=("$id")
done

# How long one add takes on this machine now: kills are spread from the
# start of a command to a little past its usual end, so that some land
# before the store opens, some inside the save and some after it returned.
start=$(date +%s%N)
for i in 1 2 3; do
  kept+=("$("$lumeo" --home "$home" --json add 5 --comment "timing $i" | sed -n 's/^  "id": \([0-9]*\),$/\1/p')")
done
span_ms=$(( ($(date +%s%N) - start) / 3000000 * 13 / 10 + 1 ))

for run in $(seq 1 "$runs"); do
  out="$home/out.$run"
  if [ $((RANDOM % 5)) -eq 0 ] && [ ${#kept[@]} -gt 1 ]; then
    # Delete the oldest kept record; whatever happens, it leaves the kept set.
    victim=${kept[0]}
    kept=("${kept[@]:1}")
    "$lumeo" --home "$home" delete "$victim" --yes >"$out" 2>&1 &
    action=delete
  else
    "$lumeo" --home "$home" --json add $((RANDOM % 10 + 1)) --comment "run $run #crash #r$((run % 4))" \
      --at "2026-01-$(printf %02d $((run % 28 + 1)))T12:$(printf %02d $((run % 60)))" >"$out" 2>&1 &
    action=add
  fi
  pid=$!
  delay=$(( (RANDOM * 32768 + RANDOM) % span_ms ))
  sleep "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))"
  kill -9 "$pid" 2>/dev/null
  { wait "$pid"; } 2>/dev/null
  status=$?
  if [ $status -eq 0 ]; then
    completed=$((completed + 1))
    if [ $action = add ]; then
      id=$(sed -n 's/^  "id": \([0-9]*\),$/\1/p' "$out")
      [ -n "$id" ] || die "$run" "add returned without an ID: $(cat "$out")"
      kept+=("$id")
    fi
  elif [ $status -eq 137 ]; then
    killed=$((killed + 1))
  else
    die "$run" "lumeo $action exited $status: $(cat "$out")"
  fi

  # The store must open and be whole, and hold every kept record.
  if [ -f "$store" ]; then
    check=$(sqlite3 "$store" "PRAGMA integrity_check" 2>&1)
    [ "$check" = "ok" ] || die "$run" "integrity_check after $action: $check"
  fi
  listing=$("$lumeo" --home "$home" --json list --limit 0 2>&1) || die "$run" "list failed: $listing"
  for id in "${kept[@]}"; do
    grep -q "\"id\": $id," <<<"$listing" || die "$run" "record $id, whose add returned, is missing"
  done
  [ $fail -eq 0 ] || break
done

echo "crash test: kills spread over ${span_ms} ms; $runs runs, $killed killed, $completed completed, ${#kept[@]} records checked in the end"
[ $fail -eq 0 ] && echo "crash test: the journal survived every kill"
exit $fail
