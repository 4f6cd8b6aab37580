#!/usr/bin/env bash
# End-to-end checks of lumeo watch serve and lumeo watch-client as two
# processes on one socket: the data a companion is given, a mood saved from
# the "watch" reaching the journal with its known tags, companions that
# send garbage or ten megabytes in a line, a second server refused, and a
# clean stop.
set -u
lumeo=$1
home=$(mktemp -d)
server=
cleanup() { [ -n "$server" ] && kill "$server" 2>/dev/null; rm -rf "$home"; }
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
socket="$home/run/watch.sock"
C() { "$lumeo" watch-client --socket "$socket" "$@"; }

expect "no server yet" 1 "nothing listens on" C request
L add 5 --comment "#work #gym" >/dev/null
L add 6 --comment "#work" >/dev/null
expect "steps" 0 "Skip hashtags step: on" L watch steps --skip-hashtags on
expect "steps refuse other words" 2 "on or off" L watch steps --skip-dictation maybe

"$lumeo" --home "$home" watch serve --socket "$socket" >"$home/serve.log" 2>&1 &
server=$!
for _ in $(seq 1 200); do [ -S "$socket" ] && break; sleep 0.05; done
check "the socket is there" test -S "$socket"
check "the socket is private" test "$(stat -c %a "$socket")" = 600

expect "request" 0 "Tags: #work #gym" C request
expect "request as json" 0 '"command": "response"' C request --json
expect "the switches travel" 0 "Skip hashtags:  on" C request
expect "save" 0 "^OK$" C save 8 --tag work --tag nosuchtag --text "Sunny walk"
expect "save as json" 0 '"result": "OK"' C save 3 --json
expect "level out of range" 2 "LEVEL goes from 1 to 10" C save 11
expect "unknown verb" 2 "does request or save" C dance
expect "request takes no level" 2 "takes no LEVEL" C request 5

# Garbage and a ten-megabyte line from a misbehaving companion.
python3 - "$socket" <<'PY'
import socket, sys
s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
s.connect(sys.argv[1])
s.sendall(b'not json at all\n{"id": "x", "message": {}}\n{"id": 4, "message": {"command": "saveMood", "level": "9", "tags": []}}\n')
s.sendall(b'{"id": 5, "message": {"text": "' + b'x' * (10 * 1024 * 1024) + b'"}}\n')
s.close()
PY
expect "the server survives bad companions" 0 "Levels:" C request
sleep 0.2
out=$(L list --limit 10)
check "the watch's mood is in the journal" grep -q "Sunny walk #work" <<<"$out"
check "unknown tags are left out" bash -c '! grep -q nosuchtag <<<"$1"' _ "$out"
check "no record from a bad message" test "$(grep -c . <<<"$out")" -eq 5  # a header and four records

expect "one server per socket" 1 "another lumeo watch serve is listening" L watch serve --socket "$socket"
kill -TERM "$server"
wait "$server"
status=$?; [ "$status" -eq 0 ] || { echo "serve exited $status"; cat "$home/serve.log"; }
server=
check "serve stops cleanly on SIGTERM" test "$status" -eq 0
check "and removes its socket" test ! -e "$socket"

exit $fail
