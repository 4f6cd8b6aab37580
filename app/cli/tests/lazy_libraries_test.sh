#!/usr/bin/env bash
# The drawing, image, checksum and desktop libraries are loaded on first use:
# `lumeo` does not depend on them at start, a listing never loads them, and
# the commands that draw, read a picture or reach D-Bus still work because
# the first call loads them.
#   lazy_libraries_test.sh LUMEO
set -u
lumeo=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }
lazy='libcairo|libpango|libglib|libgio|libgobject|libsecret|libcrypto|libturbojpeg|libminizip'

needed=$(readelf -d "$lumeo" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
check "libsqlite3 is a start-up dependency" grep -q libsqlite3 <<<"$needed"
check "no drawing or desktop library is a start-up dependency" \
  bash -c "! grep -qE '$lazy' <<<\"$needed\""

# Which shared objects a command has loaded by the time it exits.
loaded() { LD_DEBUG=files "$lumeo" --home "$home" "$@" 2>&1 >/dev/null | sed -n 's/.*file=\([^ ]*\).*\[0\].*/\1/p'; }

L add 6 --comment "Sunny #walk" --at 2026-11-20T10:00 >/dev/null
L add 3 --comment "Rain" --at 2026-11-21T18:30 >/dev/null
check "list loads none of them" bash -c "! grep -qE '$lazy' <<<\"$(loaded list)\""
check "show loads none of them" bash -c "! grep -qE '$lazy' <<<\"$(loaded show 1)\""

# Drawing loads cairo and pango on the first call, and the picture is whole.
expect "charts draw" 0 "trend.png" L summary --charts "$home/charts"
check "charts are PNG files" bash -c "head -c 8 '$home/charts/trend.png' | od -An -c | grep -q 'P   N   G'"
check "drawing loaded cairo" grep -q libcairo <<<"$(loaded summary --charts "$home/charts2")"
expect "tagged text picture" 0 "" L show 1 --png "$home/comment.png"
check "comment picture is a PNG" bash -c "head -c 8 '$home/comment.png' | od -An -c | grep -q 'P   N   G'"

exit $fail
