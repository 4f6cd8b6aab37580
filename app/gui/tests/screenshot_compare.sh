# Sourced by the screenshot tests that share one rule: a pixel counts as
# different when a channel is off by more than 8 %, and up to 0.5 % of the
# pixels may differ. compare_with_reference NAME checks $out/NAME.png against
# $refs/NAME.png (or, with LUMEO_UPDATE_SCREENSHOTS=1, makes it the
# reference) and sets failed=1 when it does not match.
compare_with_reference() {
  local name=$1
  local shot="$out/$name.png"
  if [ "${LUMEO_UPDATE_SCREENSHOTS:-}" = 1 ]; then
    cp "$shot" "$refs/$name.png"
    echo "updated $name"
    return
  fi
  if [ ! -f "$refs/$name.png" ]; then
    echo "FAIL $name: no reference $refs/$name.png (LUMEO_UPDATE_SCREENSHOTS=1 makes one)"
    failed=1
    return
  fi
  # compare prints the number of differing pixels on standard error; it
  # exits 1 when they differ and 2 when it cannot compare (a size change).
  local differing status total allowed
  differing=$(compare -metric AE -fuzz 8% "$refs/$name.png" "$shot" "$out/$name-diff.png" 2>&1 >/dev/null)
  status=$?
  if [ $status -gt 1 ]; then
    echo "FAIL $name: cannot compare with the reference: $differing"
    failed=1
    return
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
}
