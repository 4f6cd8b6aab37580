#!/usr/bin/env bash
# Lumeo's map clustering against supercluster (npm) on the same points in the
# same run: index build for 10^5 and 10^6 points and one viewport at world,
# country and city zoom. Prints both times and the ratio Lumeo / peer, where
# a ratio of at most 1.0 means Lumeo is no slower.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
bench="$build/bench/cluster_bench"
if [ ! -x "$bench" ]; then
  cmake --build "$build" --target cluster_bench >/dev/null
fi
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "cluster: node and npm are needed for the supercluster peer" >&2
  exit 1
fi
(cd "$root/bench/cluster" && npm ci --no-audit --no-fund --silent >/dev/null)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bench" --write-points "$work"
node --max-old-space-size=4096 "$root/bench/cluster/driver.js" "$work" > "$work/peer.txt"
echo "viewports (name west south east north peer-zoom lumeo-zoom):"
sed 's/^/  /' "$work/viewports.txt"
"$bench" --points "$work" --peer "$work/peer.txt"
