#!/usr/bin/env bash
# Runs a command on a private session bus, with or without a Secret Service:
#   with_secret_service.sh keyring COMMAND...  gnome-keyring-daemon with an
#                                              unlocked "login" collection
#   with_secret_service.sh none COMMAND...     the bus alone
# The keyring lives in a throwaway HOME; the user's own keyring and bus are
# never touched. In keyring mode LUMEO_TEST_KEYRING_PASSWORD holds the
# collection's password and LUMEO_TEST_KEYRING_HOME its folder, so that a
# test can stop the daemon and start it again on the same files.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
if [ -z "${LUMEO_IN_PRIVATE_BUS:-}" ]; then
  export LUMEO_IN_PRIVATE_BUS=1
  exec dbus-run-session --config-file="$here/private_bus.conf" -- bash "$0" "$@"
fi
mode=$1
shift
keyring_home=$(mktemp -d)
# On the way out, stop the daemon that owns the name now: a test may have
# stopped the first one and started another.
stop_keyring() {
  local owner
  owner=$(timeout 5 dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets 2>/dev/null |
    awk '/uint32/ {print $2}') || owner=""
  for pid in ${keyring_pid:-} $owner; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$keyring_home"
}
trap stop_keyring EXIT
export HOME=$keyring_home XDG_DATA_HOME=$keyring_home/data XDG_CONFIG_HOME=$keyring_home/config
export XDG_RUNTIME_DIR=$keyring_home/run XDG_CACHE_HOME=$keyring_home/cache
mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR" "$XDG_CACHE_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
unset DISPLAY WAYLAND_DISPLAY
case $mode in
  keyring)
    export LUMEO_TEST_KEYRING_PASSWORD=lumeo-test-keyring LUMEO_TEST_KEYRING_HOME=$keyring_home
    printf '%s' "$LUMEO_TEST_KEYRING_PASSWORD" |
      gnome-keyring-daemon --unlock --components=secrets --daemonize >/dev/null 2>&1
    # Wait until the daemon answers and its login collection is unlocked:
    # a client that came earlier would meet a locked keyring.
    for _ in $(seq 200); do
      if timeout 5 dbus-send --session --print-reply --dest=org.freedesktop.secrets \
        /org/freedesktop/secrets/collection/login org.freedesktop.DBus.Properties.Get \
        string:org.freedesktop.Secret.Collection string:Locked 2>/dev/null | grep -q 'boolean false'; then
        break
      fi
      sleep 0.05
    done
    # The daemon is ours: the owner of the name on this private bus.
    keyring_pid=$(dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
      org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets | awk '/uint32/ {print $2}')
    ;;
  none) ;;
  *)
    echo "usage: with_secret_service.sh keyring|none COMMAND..." >&2
    exit 2
    ;;
esac
status=0
"$@" || status=$?
exit $status
