# Shared helpers of the end-to-end scripts: each records a failure in $fail
# and prints one "ok" or "FAIL" line per check.

expect() {  # expect NAME STATUS PATTERN COMMAND...: status and a pattern of the output
  local name=$1 status=$2 pattern=$3
  shift 3
  local out
  out=$("$@" 2>&1)
  local got=$?
  if [ "$got" -ne "$status" ] || ! grep -qE -- "$pattern" <<<"$out"; then
    echo "FAIL $name: exit $got (expected $status)"; sed 's/^/  | /' <<<"$out"; fail=1
  else
    echo "ok   $name"
  fi
}

check() {  # check NAME CONDITION...
  local name=$1
  shift
  if "$@"; then echo "ok   $name"; else echo "FAIL $name"; fail=1; fi
}
