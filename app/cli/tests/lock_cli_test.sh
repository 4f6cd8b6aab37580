#!/usr/bin/env bash
# End-to-end checks of the lock: `lumeo lock enable` closes the reading
# commands to anyone without the code while `lumeo add` stays open, scripts
# pass the code with --passcode-fd, wrong codes cost a growing wait that
# outlives the process, a terminal offers the recovery key at the fifth wrong
# code, bad codes are refused clearly, a keyring that goes away in the
# middle of a change keeps the old code, and no code or key ever reaches a
# file of the journal, the settings or the output.
#
# Run inside src/testing/with_secret_service.sh keyring (ctest does that).
set -u
lumeo=$1
home=$(mktemp -d)
logs=$(mktemp)
trap 'rm -rf "$home" "$logs"' EXIT
export TZ=UTC LANG=en_US.UTF-8 LUMEO_LOG_LEVEL=4
fail=0
source "$(dirname "$0")/checks.sh"
# Every run's output also goes to the log that the canary check reads.
# A run that hangs fails its check (status 124) instead of the whole test.
L() {
  timeout 30 "$lumeo" --home "$home" "$@" 2> >(tee -a "$logs" >&2) | tee -a "$logs"
  return "${PIPESTATUS[0]}"
}
code=7305
key=canary-otter-7305
new=8416

expect "add before the lock" 0 "^Added record 1" L add 6 --comment "Walk #walk"
expect "enable" 0 "Passcode set" L lock enable --passcode-fd 3 3<<<"$code"
expect "list without the code fails" 1 "locked: type the passcode on a terminal, or give it to a script with --passcode-fd" L list </dev/null
expect "show without the code fails" 1 "locked" L show 1 </dev/null
expect "tags without the code fails" 1 "locked" L tags </dev/null
# Every reading command that this build has asks, whichever file adds it.
for cmd in "show 1" "values" "history" "calendar" "photos" "summary" "graph --png graph.png" "export" "backup create" \
  "delete 1 --yes" "edit 1 --level 3" "tag rename walk stroll" "reminders list"; do
  read -ra words <<<"$cmd"
  "$lumeo" --help | grep -qE "^  ${words[0]} " || continue
  # A command whose usage changed refuses before the gate (status 2): that
  # says nothing about the gate, so it is only noted.
  "$lumeo" --home "$home" "${words[@]}" </dev/null >/dev/null 2>&1
  if [ $? -eq 2 ]; then echo "skip $cmd: needs other arguments in this build"; continue; fi
  expect "$cmd without the code fails" 1 "locked" L "${words[@]}" </dev/null
done
expect "add works without the code" 0 "^Added record 2" L add 4 --comment "Tired #sleep:5h" </dev/null
expect "list with --passcode-fd" 0 "Tired" L list --passcode-fd 3 3<<<"$code"
expect "status needs no code" 0 "Passcode +on" L lock status </dev/null

# Bad codes: a clear error, exit 2, and no wrong code counted.
expect "three digits" 2 "a passcode is four digits from 0 to 9" L list --passcode-fd 3 3<<<"730"
expect "five digits" 2 "four digits" L list --passcode-fd 3 3<<<"73051"
expect "letters" 2 "four digits" L list --passcode-fd 3 3<<<"73o5"
expect "enable again" 1 "set already" L lock enable --passcode-fd 3 3<<<"1111"
expect "empty recovery key" 2 "must not be empty" L lock recovery-key set --passcode-fd 3 3<<<"$code" <<<""
expect "recovery key" 0 "Recovery key set" L lock recovery-key set --passcode-fd 3 3<<<"$code" <<<"$key"

# Wrong codes: the message, exit 1, and a wait that grows across runs and
# is reset by the right code.
expect "wrong code" 1 "^lumeo: Pass code didn't match. Try again.$" L list --passcode-fd 3 3<<<"0000"
grep -q "^wrong 1$" "$home/Library/passcode-attempts" || { echo "FAIL the wrong code was not counted"; fail=1; }
expect "second wrong code waits first" 1 "waiting 1 s before this attempt" L list --passcode-fd 3 3<<<"0001"
start=$(date +%s.%N)
expect "right code after two wrong ones" 0 "waiting 2 s" L list --passcode-fd 3 3<<<"$code"
check "the right code waited" awk -v s="$start" -v e="$(date +%s.%N)" 'BEGIN { exit !(e - s >= 1.5) }'
grep -q "^wrong 0$" "$home/Library/passcode-attempts" || { echo "FAIL the right code did not reset the count"; fail=1; }

# On a terminal the fifth wrong code offers the recovery key, which shows the code.
printf 'wrong 4\nlast 0\n' >"$home/Library/passcode-attempts"
out=$(/usr/bin/python3 - "$lumeo" "$home" "$key" <<'PY' 2>&1
import os, pty, select, sys, time
lumeo, home, key = sys.argv[1:4]
pid, fd = pty.fork()
if pid == 0:
    os.execv(lumeo, [lumeo, "--home", home, "list"])
seen = b""
def read_until(marker, limit=10):
    global seen
    end = time.time() + limit
    while marker not in seen and time.time() < end:
        ready, _, _ = select.select([fd], [], [], max(0.0, end - time.time()))
        if not ready:
            break
        try:
            chunk = os.read(fd, 1024)
        except OSError:
            break
        if not chunk:
            break
        seen += chunk
read_until(b"Passcode: ")
os.write(fd, b"9999\n")
read_until(b"(Enter to skip): ")
os.write(fd, key.encode() + b"\n")
read_until(b"Try again.")
end = time.time() + 10
while os.waitpid(pid, os.WNOHANG) == (0, 0):
    if time.time() > end:
        os.kill(pid, 9)
        os.waitpid(pid, 0)
        break
    time.sleep(0.05)
sys.stdout.write(seen.decode(errors="replace"))
PY
)
if grep -q "Password recovery key: Please enter your password recovery key" <<<"$out" && grep -q "Pass Code: $code" <<<"$out" &&
  ! grep -q "9999" <<<"$out"; then
  echo "ok   terminal: the fifth wrong code offers the key, the right key shows the code, nothing is echoed"
else
  echo "FAIL terminal recovery"; sed 's/^/  | /' <<<"$out"; fail=1
fi
printf 'wrong 0\nlast 0\n' >"$home/Library/passcode-attempts"

# Change: the same code is refused; the keyring gone in the middle keeps the old code.
expect "change to the same code" 1 "same as the current one" L lock change --passcode-fd 3 3<<<"$code
$code"
keyring_pid=$(dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
  org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets | awk '/uint32/ {print $2}')
kill "$keyring_pid"
for _ in $(seq 100); do
  timeout 5 dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
    string:org.freedesktop.secrets | grep -q 'boolean false' && break
  sleep 0.05
done
expect "reading with the keyring gone" 1 "cannot be read: .*no Secret Service" L list --passcode-fd 3 3<<<"$code"
expect "change with the keyring gone" 1 "no Secret Service" L lock change --passcode-fd 3 3<<<"$code
$new"
expect "add with the keyring gone" 0 "^Added record 3" L add 7
printf '%s' "$LUMEO_TEST_KEYRING_PASSWORD" |
  timeout 20 gnome-keyring-daemon --unlock --components=secrets --daemonize >/dev/null 2>&1
# Started again, as at a login: wait until the login collection is unlocked.
for _ in $(seq 200); do
  timeout 5 dbus-send --session --print-reply --dest=org.freedesktop.secrets \
    /org/freedesktop/secrets/collection/login org.freedesktop.DBus.Properties.Get \
    string:org.freedesktop.Secret.Collection string:Locked 2>/dev/null | grep -q 'boolean false' && break
  sleep 0.05
done
expect "the old code still opens" 0 "Walk" L list --passcode-fd 3 3<<<"$code"
expect "change" 0 "Passcode changed" L lock change --passcode-fd 3 3<<<"$code
$new"
expect "the new code opens" 0 "Walk" L list --passcode-fd 3 3<<<"$new"

# No secret in the journal's files, the settings file or the output. A code
# counts only standing alone: the throttle's timestamps and the identifiers
# in the stores hold every run of four digits sooner or later.
secret="(^|[^0-9A-Za-z])($code|$new)([^0-9A-Za-z]|\$)|$key"
check "no code or key in the data directory or the settings" bash -c "! grep -rqaE '$secret' '$home'"
check "the settings file holds the lock's mark only" grep -q "MoodPassCodeSet" "$home/defaults.plist"
check "no code or key in the output and logs" bash -c "! grep -qaE '$secret' '$logs'"
check "the keyring's file is encrypted" bash -c "! grep -rqaE '$secret' '$LUMEO_TEST_KEYRING_HOME/data/keyrings'"

expect "fingerprint without a reader" 1 "Authentication by Biometrics isn't available" L lock fingerprint on --passcode-fd 3 3<<<"$new"
expect "disable" 0 "Passcode removed" L lock disable --passcode-fd 3 3<<<"$new"
expect "open again" 0 "Walk" L list </dev/null
expect "status off" 0 "Passcode +off" L lock status

exit $fail
