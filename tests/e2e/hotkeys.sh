#!/usr/bin/env bash
# The tray application's global shortcuts: a stored "Record Screen" shortcut, pressed
# while another application is in front, starts a recording of the screen; pressed
# again it stops and saves the movie.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

export APP_STORE=$movies # the test settings file, and movies saved there
mkdir -p "$movies"
# Ctrl+Alt+R: the R key (stored code 15) with control (1) and option (2).
cat >"$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf" <<'INI'
[General]
options="{\"countdown\": false, \"systemAudio\": false}"
hotkey.screen="{\"keyCode\": 15, \"mods\": 3}"
INI

"$LUMENVALE" >"$work/out" 2>"$work/err" &
app=$!
background_pids+=($app)
# X key code 27 (R) with Control and Mod1.
wait_for_grab 27 12 || fail "the shortcut was not grabbed: $(cat "$work/err")"

xdotool key ctrl+alt+r
for _ in $(seq 200); do [[ $(part_count) -ge 1 ]] && break; sleep 0.05; done
[[ $(part_count) -ge 1 ]] || fail "the shortcut started no recording: $(cat "$work/err")"
started=$(date +%s.%N)
sleep 2
xdotool key Num_Lock ctrl+alt+r Num_Lock # with Num Lock on
stopped=$(date +%s.%N)
for _ in $(seq 400); do
  movie=$(find "$movies" -maxdepth 1 -name 'Lumenvale Recording *.mp4' | head -n1)
  [[ -n "$movie" && $(part_count) -eq 0 ]] && break
  sleep 0.05
done
[[ -n "$movie" ]] || fail "the second press saved no movie: $(cat "$work/err")"
kill -0 "$app" 2>/dev/null || fail "the tray application ended: $(cat "$work/err")"

expected=$(echo "$stopped - $started" | bc)
approx "$(format_duration "$movie")" "$expected" 0.6 ||
  fail "the movie lasts $(format_duration "$movie") s, not about $expected s"
[[ "$(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height)" == 1920x1080 ]] ||
  fail "not the whole screen: $(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height)"
errors=$(ffmpeg -v error -i "$movie" -f null - 2>&1) || fail "the movie does not decode: $errors"
[[ -z "$errors" ]] || fail "decoding the movie reported: $errors"
pass "Ctrl+Alt+R started a screen recording and stopped it: $(format_duration "$movie") s"
