#!/usr/bin/env bash
# The desktop files: the launcher entry and the AppStream description pass
# their validators, and `cmake --install` puts them, the icon and the D-Bus
# service where a desktop looks for them, next to lumeo-gui.
# Usage: desktop_files_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
src=$1
build=$2
fail() { echo "not ok: $*"; exit 1; }

desktop-file-validate "$src/resources/org.lumeo.Lumeo.desktop" || fail "desktop-file-validate"
echo "ok   desktop file valid"
appstreamcli validate --no-net "$src/resources/org.lumeo.Lumeo.metainfo.xml" || fail "appstreamcli validate"
echo "ok   metainfo valid"
# Its screenshots are the repository's docs/screenshots/, at the size it says.
shots=0
while read -r width height url; do
  file="$src/docs/screenshots/${url##*/docs/screenshots/}"
  [ "$url" != "${url##*/docs/screenshots/}" ] || fail "screenshot $url is not under docs/screenshots/"
  [ -f "$file" ] || fail "screenshot $url: no $file"
  [ "$(identify -format '%w %h' "$file")" = "$width $height" ] || fail "screenshot $file is not $width x $height"
  shots=$((shots + 1))
done < <(sed -n 's|.*<image type="source" width="\([0-9]*\)" height="\([0-9]*\)">\([^<]*\)</image>.*|\1 \2 \3|p' \
           "$src/resources/org.lumeo.Lumeo.metainfo.xml")
[ "$shots" -gt 0 ] || fail "no screenshots in the metainfo"
echo "ok   $shots screenshots in docs/screenshots"

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null || fail "cmake --install"
for f in bin/lumeo-gui share/applications/org.lumeo.Lumeo.desktop share/metainfo/org.lumeo.Lumeo.metainfo.xml \
         share/icons/hicolor/scalable/apps/org.lumeo.Lumeo.svg share/dbus-1/services/org.lumeo.Lumeo.service; do
  [ -e "$prefix/$f" ] || fail "$f not installed"
done
echo "ok   installed"
# The D-Bus service starts the installed program; the entry is activatable
# under the service's name and keeps the "New record" action.
grep -qx "Exec=$prefix/bin/lumeo-gui" "$prefix/share/dbus-1/services/org.lumeo.Lumeo.service" ||
  grep -q "^Exec=.*/bin/lumeo-gui$" "$prefix/share/dbus-1/services/org.lumeo.Lumeo.service" || fail "service Exec"
grep -qx "DBusActivatable=true" "$prefix/share/applications/org.lumeo.Lumeo.desktop" || fail "DBusActivatable"
grep -qx "Exec=lumeo-gui --capture" "$prefix/share/applications/org.lumeo.Lumeo.desktop" || fail "New record action"
desktop-file-validate "$prefix/share/applications/org.lumeo.Lumeo.desktop" || fail "installed desktop file"
echo "ok   service and actions"
