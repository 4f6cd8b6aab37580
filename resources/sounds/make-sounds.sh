#!/usr/bin/env bash
# Synthesises Lumeo's fifteen reminder sounds with sox (needs libsox-fmt-mp3
# for the MP3 writer). The results are committed; run this only to change a
# sound. Each sound is short, mono, 22.05 kHz, 48 kbit/s.
set -euo pipefail
cd "$(dirname "$0")"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
part() {  # part SYNTH-AND-EFFECTS...: one piece, printed as its file name
  # (runs in a command substitution, so each piece needs a name of its own)
  local file
  file=$(mktemp "$tmp/piece-XXXXXX.wav")
  sox -q -r 44100 -c 1 -n "$file" "$@"
  echo "$file"
}
mp3() {  # mp3 NAME PIECE... [-- EFFECTS...]
  local name=$1
  shift
  local pieces=()
  while [ $# -gt 0 ] && [ "$1" != "--" ]; do pieces+=("$1"); shift; done
  [ $# -gt 0 ] && shift
  sox -q "${pieces[@]}" -C 48 "$name.mp3" "$@" rate 22050
}
silence() { part trim 0 "$1"; }

mp3 "Default" "$(part synth 0.5 pluck E5 fade 0 0.5 0.4)" "$(part synth 0.9 pluck B5 fade 0 0.9 0.8)" -- gain -4
mp3 "Atmosphere" "$(part synth 2.0 sine C4 synth 2.0 sine mix E4 synth 2.0 sine mix G4 fade h 0.8 2.0 0.9)" -- gain -10 reverb 60
mp3 "Boat horn" "$(part synth 1.4 sawtooth 110 synth 1.4 sawtooth mix 111.5 lowpass 600 fade 0.1 1.4 0.3)" -- gain -6
ring=$(part synth 0.6 sine 1200 tremolo 10 100)
mp3 "Cordless phone" "$ring" "$(silence 0.2)" "$ring" -- gain -8
mp3 "Doorbell" "$(part synth 0.6 pluck A5 fade 0 0.6 0.5)" "$(part synth 1.0 pluck F5 fade 0 1.0 0.9)" -- gain -3
mp3 "Gong big" "$(part synth 2.5 sine 98 synth 2.5 sine mix 139 synth 2.5 sine mix 211 synth 2.5 sine mix 297 fade 0.01 2.5 2.4)" -- gain -8 reverb 50
mp3 "Gong small" "$(part synth 1.5 sine 392 synth 1.5 sine mix 555 synth 1.5 sine mix 843 fade 0.005 1.5 1.45)" -- gain -8 reverb 30
tick=$(part synth 0.04 pinknoise highpass 2000 fade 0 0.04 0.03)
tock=$(part synth 0.04 pinknoise highpass 1200 fade 0 0.04 0.03)
mp3 "Pendulum clock" "$tick" "$(silence 0.4)" "$tock" "$(silence 0.4)" "$(part synth 1.0 pluck C6 fade 0 1.0 0.9)" -- gain -3
mp3 "Rooster" "$(part synth 1.0 sawtooth 500-900 lowpass 2500 tremolo 18 60 fade 0.05 1.0 0.4)" -- gain -8
mp3 "Beep 1" "$(part synth 0.15 square 1000)" -- gain -14
mp3 "Beep 2" "$(part synth 0.1 square 880)" "$(silence 0.08)" "$(part synth 0.1 square 1320)" -- gain -14
click=$(part synth 0.02 whitenoise highpass 3000 fade 0 0.02 0.015)
mp3 "Click 1" "$click" -- gain -4
mp3 "Click 2" "$(part synth 0.03 whitenoise bandpass 1500 400 fade 0 0.03 0.025)" -- gain -2
mp3 "Click 3" "$click" "$(silence 0.08)" "$click" -- gain -4
mp3 "Click 4" "$(part synth 0.04 pluck C7 fade 0 0.04 0.03)" -- gain -2
