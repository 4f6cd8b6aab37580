#!/usr/bin/env bash
# The History and Summary tabs, narrow and wide, light and dark, rendered by
# `lumeo-gui --screenshot` on its fixed sample journal and compared with the
# checked-in pictures. A pixel counts as different when a channel is off by
# more than 8 %; up to 0.5 % of the pixels may differ (antialiasing). The
# pictures made are kept in OUT as test artefacts, with a difference picture
# for each one that failed.
#
#   tabs_screenshots_test.sh LUMEO_GUI REFERENCE_DIR OUT_DIR
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
# shellcheck source=screenshot_compare.sh
. "$(dirname "$0")/screenshot_compare.sh"
for tab in 1 2; do
  name_of_tab=$([ "$tab" = 1 ] && echo history || echo summary)
  for size in 420x760 1100x760; do
    layout=$([ "$size" = 420x760 ] && echo narrow || echo wide)
    for theme in light dark; do
      name="$name_of_tab-$layout-$theme"
      shot="$out/$name.png"
      rm -f "$shot"
      if ! timeout 120 "$gui" --home "$out/home-$name" --screenshot "$shot" --tab "$tab" --size "$size" \
          --theme "$theme" >"$out/$name.log" 2>&1 || [ ! -s "$shot" ]; then
        echo "FAIL $name: lumeo-gui made no picture (see $out/$name.log)"
        failed=1
        continue
      fi
      compare_with_reference "$name"
    done
  done
done
exit $failed
