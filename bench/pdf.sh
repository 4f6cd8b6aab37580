#!/usr/bin/env bash
# The PDF report of 500 records with 50 photos against pdfkit (npm) making
# the same content in the same run: median times of 7 runs each, Lumeo's
# time a page (its thumbnails go in as their JPEG files, never decoded), and
# both file sizes.
# Targets: Lumeo at most 0.5 × the peer's time, and at most 3 ms a page.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${LUMEO_BUILD_DIR:-$root/build}
bench="$build/bench/pdf_bench"
if [ ! -x "$bench" ]; then
  cmake --build "$build" --target pdf_bench >/dev/null
fi
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "pdf: node and npm are needed for the pdfkit peer" >&2
  exit 1
fi
(cd "$root/bench/pdf" && npm ci --no-audit --no-fund --silent >/dev/null 2>&1)

font() { fc-match -f '%{file}' "$1"; }
fonts=$(printf '{"regular":"%s","bold":"%s","thin":"%s","light":"%s"}' \
  "$(font 'TeX Gyre Heros:regular')" "$(font 'TeX Gyre Heros:bold')" \
  "$(font 'Roboto:thin:italic')" "$(font 'Roboto:light:italic')")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMEO_RESOURCES_DIR=$root/resources
"$bench" --write-journal "$work"
"$bench" --run "$work" 7 >"$work/lumeo.txt"
node "$root/bench/pdf/driver.js" "$work" "$fonts" 7 >"$work/peer.txt"
awk '
  FNR == NR { lumeo[$1] = $2; next }
  { peer[$1] = $2 }
  END {
    pages = lumeo["pages"]
    printf "Lumeo  %8.1f ms  %4d pages  %8d bytes\n", lumeo["lumeo_ms"], pages, lumeo["bytes"]
    printf "pdfkit %8.1f ms              %8d bytes\n", peer["peer_ms"], peer["peer_bytes"]
    printf "ratio Lumeo / pdfkit: %.2f (target <= 0.5)\n", lumeo["lumeo_ms"] / peer["peer_ms"]
    printf "per page %.2f ms (target <= 3)\n", lumeo["lumeo_ms"] / pages
  }' "$work/lumeo.txt" "$work/peer.txt"
if [ -n "${LUMEO_BENCH_KEEP:-}" ]; then cp "$work/lumeo.pdf" "$work/peer.pdf" "$LUMEO_BENCH_KEEP"/; fi
