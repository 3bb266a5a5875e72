#!/usr/bin/env bash
# Recording the screen: the countdown, the movie's size, length and frame rate, the
# dated name in the folder given, stored options as the starting point, and flags
# that are never saved. Registered for the X11 and the Wayland test desktop.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

keep_screen_changing 960 540
started=$(date +%s.%N)
record --screen --seconds 2 --folder "$movies"
ended=$(date +%s.%N)
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
[[ "$err" == *"3… 2… 1…"* ]] || fail "no countdown on standard error: $err"
# Nothing but our own lines: the encoders' statistics and demuxer chatter stay out.
[[ "$err" != *"["*"@ 0x"* && "$err" != *"x264 ["* ]] || fail "library output on standard error: $err"
approx "$(echo "$ended - $started" | bc)" 5.5 2.5 || fail "a countdown and 2 s took $(echo "$ended - $started" | bc) s"
movie=$out
[[ -f "$movie" ]] || fail "the printed path is no file: '$out'"
[[ "$(dirname "$movie")" == "$movies" ]] || fail "saved outside the folder given: $movie"
[[ "$(basename "$movie")" =~ ^Lumenvale\ Recording\ [0-9]{4}-[0-9]{2}-[0-9]{2}\ at\ [0-9]{2}\.[0-9]{2}\.[0-9]{2}\.mp4$ ]] ||
  fail "unexpected name: $(basename "$movie")"
[[ "$(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height)" == 1920x1080 ]] ||
  fail "size $(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height), not 1920x1080"
approx "$(format_duration "$movie")" 2 0.25 || fail "duration $(format_duration "$movie"), not about 2 s"
[[ "$(stream_value "$movie" v:0 r_frame_rate)" == 30/1 ]] || fail "frame rate $(stream_value "$movie" v:0 r_frame_rate)"
[[ "$(audio_titles "$movie")" == "System audio" ]] || fail "audio tracks: $(audio_titles "$movie")"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "screen: countdown, 1920x1080, about 2 s at 30 fps, system audio, dated name"

# The flags of that run were not saved.
settings=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.conf
if [[ -f $settings ]] && grep -q folderPath "$settings"; then fail "flags were saved: $(cat "$settings")"; fi

# A run starts from the stored options: 15 fps, no countdown, no sound.
cat >"$settings" <<'INI'
[General]
options="{\"fps\": 15, \"countdown\": false, \"systemAudio\": false}"
INI
record --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "record with stored options exited with $status: $err"
[[ "$err" != *"3…"* ]] || fail "the stored options turn the countdown off: $err"
[[ "$(stream_value "$out" v:0 r_frame_rate)" == 15/1 ]] || fail "stored fps not used: $(stream_value "$out" v:0 r_frame_rate)"
[[ $(audio_stream_count "$out") -eq 0 ]] || fail "stored options turn system audio off"
grep -q '15' "$settings" && ! grep -q folderPath "$settings" || fail "stored options changed: $(cat "$settings")"
pass "stored options are the starting point; flags are not saved"
