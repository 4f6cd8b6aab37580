#!/usr/bin/env bash
# End-to-end checks of the lumeo command's global behaviour: help, version,
# exit statuses of usage errors, --home and the demo.
set -u
lumeo=$1
fail=0
check() {  # check NAME EXPECTED_STATUS COMMAND...
  local name=$1 expected=$2
  shift 2
  "$@" >/tmp/lumeo-cli-test.$$ 2>&1
  local status=$?
  if [ "$status" -ne "$expected" ]; then
    echo "FAIL $name: exit $status, expected $expected"; sed 's/^/  | /' /tmp/lumeo-cli-test.$$
    fail=1
  else
    echo "ok   $name"
  fi
}
home=$(mktemp -d)
trap 'rm -rf "$home" /tmp/lumeo-cli-test.$$' EXIT

check "help exits 0" 0 "$lumeo" --help
check "version exits 0" 0 "$lumeo" --version
"$lumeo" --version | grep -q '^lumeo [0-9]' || { echo "FAIL version text"; fail=1; }
check "no command is a usage error" 2 "$lumeo"
check "unknown command is a usage error" 2 "$lumeo" frobnicate
check "unknown option is a usage error" 2 "$lumeo" --frobnicate demo
check "demo runs" 0 env TMPDIR="$home" "$lumeo" demo
check "demo with --json" 0 env TMPDIR="$home" "$lumeo" --json demo
[ $fail -eq 0 ] && echo "cli usage: all checks passed"
exit $fail
