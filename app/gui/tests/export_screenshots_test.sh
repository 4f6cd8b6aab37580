#!/usr/bin/env bash
# The export screen, narrow and wide, light and dark, rendered by
# `lumeo-gui --screenshot --screen export` on its fixed sample journal and
# compared with the checked-in pictures. A pixel counts as different when a
# channel is off by more than 8 %; up to 0.5 % of the pixels may differ
# (antialiasing). The pictures made are kept in OUT, with a difference
# picture for each one that failed.
#
#   export_screenshots_test.sh LUMEO_GUI REFERENCE_DIR OUT_DIR
#
# LUMEO_UPDATE_SCREENSHOTS=1 writes the references instead (look at them
# before committing).
set -uo pipefail
gui=$1
refs=$2
out=$3
mkdir -p "$out"
export QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software TZ=UTC LC_ALL=C.UTF-8 LANGUAGE=en
failed=0
for size in 420x760 1100x760; do
  layout=$([ "$size" = 420x760 ] && echo narrow || echo wide)
  for theme in light dark; do
    name="export-$layout-$theme"
    shot="$out/$name.png"
    rm -f "$shot"
    if ! timeout 120 "$gui" --home "$out/home-$name" --screenshot "$shot" --screen export --size "$size" \
        --theme "$theme" >"$out/$name.log" 2>&1 || [ ! -s "$shot" ]; then
      echo "FAIL $name: lumeo-gui made no picture (see $out/$name.log)"
      failed=1
      continue
    fi
    if [ "${LUMEO_UPDATE_SCREENSHOTS:-}" = 1 ]; then
      cp "$shot" "$refs/$name.png"
      echo "updated $name"
      continue
    fi
    if [ ! -f "$refs/$name.png" ]; then
      echo "FAIL $name: no reference $refs/$name.png (LUMEO_UPDATE_SCREENSHOTS=1 makes one)"
      failed=1
      continue
    fi
    # compare prints the number of differing pixels on standard error; it
    # exits 1 when they differ and 2 when it cannot compare (a size change).
    differing=$(compare -metric AE -fuzz 8% "$refs/$name.png" "$shot" "$out/$name-diff.png" 2>&1 >/dev/null)
    status=$?
    if [ $status -gt 1 ]; then
      echo "FAIL $name: cannot compare with the reference: $differing"
      failed=1
      continue
    fi
    total=$(identify -format '%[fx:w*h]' "$shot")
    allowed=$((total / 200))
    differing=${differing%% *}
    differing=${differing%.*}
    if [ "$differing" -gt "$allowed" ]; then
      echo "FAIL $name: $differing pixels differ from the reference (at most $allowed may); see $out/$name-diff.png"
      failed=1
    else
      echo "ok   $name: $differing pixels differ"
      rm -f "$out/$name-diff.png"
    fi
  done
done
exit $failed
