# Sourced by the end-to-end tests in a real X window: a private Xvfb, and
# waits for what the window shows rather than for fixed times, so that a
# busy machine makes the tests slower, not red.

# Runs "$@" with DISPLAY on an Xvfb of its own (1280x900, 24 bits). The
# server picks a free display number itself and says which (-displayfd),
# so runs at the same time never race for one, as `xvfb-run -a` can.
run_in_xvfb() {
  local dir display="" xpid status=0
  dir=$(mktemp -d)
  Xvfb -displayfd 3 -screen 0 1280x900x24 -nolisten tcp 3>"$dir/display" 2>"$dir/xvfb.log" &
  xpid=$!
  for _ in $(seq 1 600); do
    display=$(head -n 1 "$dir/display" 2>/dev/null || true)
    [ -n "$display" ] && break
    if ! kill -0 "$xpid" 2>/dev/null; then
      echo "not ok: Xvfb did not start: $(cat "$dir/xvfb.log")"
      rm -rf "$dir"
      return 1
    fi
    sleep 0.1
  done
  if [ -z "$display" ]; then
    echo "not ok: Xvfb gave no display within 60 s"
    kill "$xpid" 2>/dev/null || true
    rm -rf "$dir"
    return 1
  fi
  DISPLAY=":$display" "$@" || status=$?
  kill "$xpid" 2>/dev/null || true
  wait "$xpid" 2>/dev/null || true
  rm -rf "$dir"
  return "$status"
}

# The id of the visible window named Lumeo… (waits up to 60 s), or "".
find_lumeo_window() {
  local wid=""
  for _ in $(seq 1 600); do
    wid=$(xdotool search --onlyvisible --name "^Lumeo" 2>/dev/null | head -1 || true)
    [ -n "$wid" ] && break
    sleep 0.1
  done
  echo "$wid"
}

# Waits until window $1 has stopped changing (two pictures 0.4 s apart
# alike; at least MIN seconds ($3, default 0.4), at most 10 s, since a
# blinking cursor never rests) and keeps its picture as $2.
still_shot() {
  local wid=$1 file=$2 min=${3:-0.4} last="" now
  sleep "$min"
  for _ in $(seq 1 25); do
    now=$(import -window "$wid" rgb:- 2>/dev/null | md5sum)
    [ "$now" = "$last" ] && break
    last=$now
    sleep 0.4
  done
  import -window "$wid" "$file"
}

# How many pixels of picture $1 have level 7's colour.
level7_pixels() {
  convert "$1" -alpha off -fuzz 4% -fill black +opaque "rgb(0,112,140)" \
    -fill white -opaque "rgb(0,112,140)" -format "%[fx:round(mean*w*h)]" info:
}

# Waits (up to 30 s) until window $1 shows more than 200 pixels of level
# 7's colour, keeping its picture as $2; prints the last count.
until_level7_shows() {
  local wid=$1 file=$2 n=0
  for _ in $(seq 1 60); do
    import -window "$wid" "$file"
    n=$(level7_pixels "$file")
    [ "$n" -gt 200 ] && break
    sleep 0.5
  done
  echo "$n"
}

# Waits (up to 30 s) until process $1 has ended.
wait_until_gone() {
  for _ in $(seq 1 300); do
    kill -0 "$1" 2>/dev/null || return 0
    sleep 0.1
  done
  return 1
}
