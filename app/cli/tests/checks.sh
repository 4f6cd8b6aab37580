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

fresh_home() {  # a journal home of the script's own, removed at exit; L runs $lumeo in it
  fail=0
  home=$(mktemp -d)
  trap 'rm -rf "$home"' EXIT
  export TZ=UTC LANG=en_US.UTF-8
  store="$home/Library/Model.sqlite"
  L() { "$lumeo" --home "$home" "$@"; }
}
