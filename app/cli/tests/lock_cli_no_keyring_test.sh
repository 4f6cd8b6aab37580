#!/usr/bin/env bash
# The lock without a Secret Service on the bus: setting a passcode fails
# with a clear error and leaves nothing behind (no plaintext fallback), and
# a journal that never had a lock opens as before.
# Run inside src/testing/with_secret_service.sh none (ctest does that).
set -u
lumeo=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }

expect "add" 0 "^Added record 1" L add 5 --comment "canary-otter"
expect "enable fails clearly" 1 "could not store the passcode: .*no Secret Service .*\(nothing was changed\)" \
  L lock enable --passcode-fd 3 3<<<"7305"
check "no passcode kept anywhere" bash -c "! grep -rqa 7305 '$home'"
check "no lock mark in the settings" bash -c "! grep -q MoodPassCodeSet '$home/defaults.plist'"
expect "the journal stays open" 0 "canary-otter" L list </dev/null
expect "status" 0 "Passcode +off" L lock status
exit $fail
