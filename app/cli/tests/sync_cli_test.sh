#!/usr/bin/env bash
# End-to-end checks of `lumeo sync`: choosing a shared folder, a WebDAV
# server (rclone on 127.0.0.1, with a password that must reach the Secret
# Service and no file), status with and without a check, bad input that
# changes nothing, and reset.
#
# Run inside src/testing/with_secret_service.sh keyring (ctest does that).
set -u
lumeo=$1
work=$(mktemp -d)
home=$work/home
server_pid=
trap '[ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null; rm -rf "$work"' EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { timeout 60 "$lumeo" --home "$home" "$@"; }

expect "status before any choice" 0 "not set up" L sync status
expect "status --json before any choice" 0 '"service": null' L --json sync status

# The shared folder.
expect "choose a new folder" 0 "syncs through the folder .*/Nextcloud/Lumeo \(made now\)" L sync folder "$work/Nextcloud/Lumeo"
check "the folder got its identity file" test -s "$work/Nextcloud/Lumeo/.lumeo-cloud-id"
expect "status shows the folder" 0 "shared folder .*/Nextcloud/Lumeo" L sync status
expect "status --check reaches it" 0 "Reachable" L sync status --check
id_before=$(cat "$work/Nextcloud/Lumeo/.lumeo-cloud-id")
expect "choosing it again keeps its identity" 0 "syncs through the folder" L sync folder "$work/Nextcloud/Lumeo"
check "same identity" test "$id_before" = "$(cat "$work/Nextcloud/Lumeo/.lumeo-cloud-id")"
expect "json of the choice" 0 '"service": "SharedFolder"' L --json sync folder "$work/Nextcloud/Lumeo"

# The drive goes away: the status check says so, and nothing is made there.
mv "$work/Nextcloud/Lumeo" "$work/unmounted"
mkdir "$work/Nextcloud/Lumeo"
expect "an empty folder in its place is refused" 1 "no Lumeo identity file" L sync status --check
check "nothing written into it" test -z "$(ls -A "$work/Nextcloud/Lumeo")"
rmdir "$work/Nextcloud/Lumeo"
mv "$work/unmounted" "$work/Nextcloud/Lumeo"

# Bad folders change nothing.
touch "$work/a-file"
expect "a file is no folder" 1 "is a file" L sync folder "$work/a-file"
expect "Lumeo's own folders are refused" 2 "inside Lumeo's own data folders" L sync folder "$home/Documents/sync"
expect "still the first folder" 0 "shared folder .*/Nextcloud/Lumeo" L sync status

# WebDAV, against rclone with a user and password.
if command -v rclone >/dev/null; then
  mkdir -p "$work/dav/Lumeo"
  port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
  : >"$work/rclone.conf"
  rclone serve webdav "$work/dav" --addr "127.0.0.1:$port" --user ana --pass 'horse battery' \
    --config "$work/rclone.conf" --cache-dir "$work/cache" --log-level ERROR &
  server_pid=$!
  for _ in $(seq 1 300); do (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break; sleep 0.1; done
  url="http://127.0.0.1:$port/Lumeo"

  expect "plain http to another host is refused" 2 "unencrypted" L sync webdav http://cloud.example/dav --user ana --password-fd 3 3<<<"x"
  expect "a URL with a password in it is refused" 2 "must not hold" L sync webdav "https://ana:pw@cloud.example/dav" --user ana --password-fd 3 3<<<"x"
  expect "no user is a usage error" 2 "user" L sync webdav "$url" --password-fd 3 3<<<"x"
  expect "no password without a terminal" 2 "password-fd" L sync webdav "$url" --user ana </dev/null
  expect "a wrong password is refused" 1 "refused the user name or password" L sync webdav "$url" --user ana --password-fd 3 3<<<"wrong"
  expect "a folder that is not there" 1 "does not exist" L sync webdav "http://127.0.0.1:$port/Nope" --user ana --password-fd 3 3<<<"horse battery"
  expect "after failures the folder is still chosen" 0 "shared folder" L sync status
  expect "the right password" 0 "WebDAV folder $url as ana" L sync webdav "$url/" --user ana --password-fd 3 3<<<"horse battery"
  expect "status shows the server" 0 "Password in the Secret Service: yes" L sync status
  expect "status --check signs in" 0 "Reachable" L sync status --check
  expect "status --json" 0 "\"url\": \"$url\"" L --json sync status
  check "the password is in no file of Lumeo's" bash -c "! grep -rq 'horse battery' '$home'"
  expect "reset forgets it" 0 "password is gone from the Secret Service" L sync reset
  expect "status after reset" 0 "not set up" L sync status
  kill "$server_pid"
  server_pid=
else
  echo "skip WebDAV: rclone is not installed (scripts/setup installs it)"
fi

exit $fail
