#!/usr/bin/env bash
# Recording on Wayland, side by side in one run: `lumenvale record` (the desktop portal
# and PipeWire, BGRA to I420, x264) against wf-recorder (the compositor's screen copies
# taken in its own process) with the same x264 settings: preset veryfast, CRF 20, a
# keyframe at least every 60 frames (2 s at 30 frames a second), no B-frames, yuv420p,
# and the tune Lumenvale's movie shows (the options that still differ are printed).
# Both record sway's headless output at 1920x1080 and 30 Hz while ffplay shows a moving
# test picture over all of it at 30 frames a second. Prints, for each:
#
#   CPU s    CPU seconds (user + system) of the recorder's process from exec to exit,
#            for a RECORD_SECONDS (10) recording; for Lumenvale also with what the
#            portal's backend and PipeWire, which bring it the screen, spent meanwhile
#            (wf-recorder takes the screen from the compositor itself)
#   core     that CPU time per second of movie (100 % is one core), and "ms/fr" per
#            frame of the movie: wf-recorder takes a frame whenever the screen changed
#            and it is ready for one, Lumenvale one every 1/30 s
#   first s  the time from exec to the first frame: the screen turns white at a known
#            wall-clock moment, and where that shows in the movie dates its first frame
#            (early by the time the white takes to reach the movie, a frame or so);
#            for Lumenvale also when it said "Recording." (its capture runs then)
#   sway s   the compositor's CPU seconds meanwhile (it copies the screen for both)
#
# and the ratios of CPU time, Lumenvale / wf-recorder.
# Never part of the tests; nothing here judges the figures.
#
#   LUMENVALE=build/release/Lumenvale/lumenvale bench/wayland_record.sh [RECORD_SECONDS]
#
# Runs itself inside tests/wayland_session.sh. Without wf-recorder (`apt-get install
# wf-recorder`) only Lumenvale is measured, and it says so.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [[ -z "${LUMENVALE_WAYLAND_SESSION_INNER:-}" ]]; then
  # sway's output mode, which takes a refresh rate too.
  LUMENVALE_SCREEN_SIZE=1920x1080@30Hz exec "$root/tests/wayland_session.sh" \
    bash "$root/bench/wayland_record.sh" "$@"
fi
: "${LUMENVALE:=$root/build/release/Lumenvale/lumenvale}"
[[ -x $LUMENVALE ]] || { echo "no lumenvale at $LUMENVALE: build it or set LUMENVALE" >&2; exit 1; }
seconds=${1:-10}
mark=4 # seconds after exec when the screen turns white for a moment
export LC_ALL=C

work=$(mktemp -d /tmp/lumenvale-bench-wayland.XXXXXX)
export work # for the recorders' wrappers below
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
export XDG_CONFIG_HOME=$work/config TMPDIR=$work/tmp
mkdir -p "$XDG_CONFIG_HOME" "$TMPDIR" "$work/movies"

window_open() { swaymsg -t get_tree | grep -q "\"app_id\": \"$1\""; }
wait_for_window() {
  for _ in $(seq 200); do window_open "$1" && return 0; sleep 0.05; done
  echo "the window $1 did not open" >&2
  exit 1
}
# The moving picture, tiled over the whole output, and the white mark, hidden.
SDL_VIDEODRIVER=wayland ffplay -loglevel error -an -f lavfi \
  -i "testsrc2=size=1920x1080:rate=30" >"$work/ffplay.log" 2>&1 &
pids+=($!)
wait_for_window ffplay
foot --app-id=mark --override=colors.background=ffffff sleep infinity >/dev/null 2>&1 &
pids+=($!)
wait_for_window mark
# Already of the output's size, so that showing it needs no new picture of it.
swaymsg -q '[app_id=mark] floating enable, resize set 1920 1080, move position 0 0, move scratchpad'
sleep 2

ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
helpers() { # the portal's backend and PipeWire, which serve Lumenvale's capture
  echo "$(busctl --user status org.freedesktop.impl.portal.desktop.wlr | sed -n 's/^PID=//p')" \
    "$LUMENVALE_SESSION_PIPEWIRE_PID"
}
helper_ticks() { local sum=0 pid; for pid in $(helpers); do sum=$((sum + $(ticks "$pid"))); done; echo $sum; }
sway_pid=$(basename "$SWAYSOCK" .sock) # sway-ipc.UID.PID.sock
sway_pid=${sway_pid##*.}
# show_mark EXEC_TIME: the screen white for 0.3 s, $mark s after EXEC_TIME.
show_mark() {
  sleep "$(awk -v e="$1" -v m="$mark" -v n="$EPOCHREALTIME" 'BEGIN { print e + m - n }')"
  swaymsg -q '[app_id=mark] scratchpad show, move position 0 0'
  sleep 0.3
  swaymsg -q '[app_id=mark] move scratchpad'
}
# first_frame MOVIE: seconds from exec to the first frame, from where the mark shows.
first_frame() {
  ffprobe -v error -f lavfi -i "movie='$1',signalstats" \
    -show_entries frame=pts_time:frame_tags=lavfi.signalstats.YAVG -of csv=p=0 |
    awk -F, -v m="$mark" 'NR == 1 { first = $1 } $2 > 230 { printf "%.3f", m - ($1 - first); exit }'
}
frames() {
  ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames \
    -of default=nw=1:nk=1 "$1"
}
duration() { ffprobe -v error -select_streams v:0 -show_entries stream=duration -of default=nw=1:nk=1 "$1"; }

# run NAME COMMAND...: runs a recorder, marks the screen, and keeps its figures in
# $work/NAME.*; the command writes its movie's path to $work/NAME.movie.
run() {
  local name=$1 started helpers_before sway_before
  shift
  helpers_before=$(helper_ticks)
  sway_before=$(ticks "$sway_pid")
  started=$EPOCHREALTIME
  /usr/bin/time -f "%U %S" -o "$work/$name.time" "$@" &
  show_mark "$started"
  wait $! || true # wf-recorder stopped by timeout says 124
  echo $(($(helper_ticks) - helpers_before)) >"$work/$name.helpers"
  echo $(($(ticks "$sway_pid") - sway_before)) >"$work/$name.sway"
  echo "$started" >"$work/$name.started"
}

# Each line of its standard error is stamped with the wall-clock time it came.
run lumenvale bash -c '"$@" >"$work/lumenvale.movie" \
  2> >(while IFS= read -r line; do echo "$EPOCHREALTIME $line"; done >"$work/lumenvale.log")' _ \
  "$LUMENVALE" record --screen --seconds "$seconds" --no-countdown --no-system-audio \
  --folder "$work/movies"
# x264_options MOVIE: the options x264 wrote into the movie, one a line, sorted.
x264_options() {
  grep -ao 'x264 - core[ -~]*' "$1" | head -n1 | sed 's/.*options: //' | tr ' ' '\n' | sort
}
have_wf=0
if command -v wf-recorder >/dev/null; then
  have_wf=1
  # Lumenvale's settings are LumenvaleMedia/src/record/VideoEncoder.cpp's. wf-recorder
  # has x264 tuned zerolatency itself (no lookahead, sliced threads, no mb-tree): when
  # Lumenvale's movie shows its encoder is not, that is undone to Lumenvale's values.
  lumenvale_options=$(x264_options "$(cat "$work/lumenvale.movie")" 2>/dev/null || true)
  untune=()
  if grep -qx 'sliced_threads=0' <<<"$lumenvale_options"; then
    lookahead=$(sed -n 's/^rc_lookahead=//p' <<<"$lumenvale_options")
    untune=(-p "x264-params=sliced-threads=0:rc-lookahead=${lookahead:-10}:sync-lookahead=-1:mbtree=1")
  fi
  # Stopped once it has recorded about as long as Lumenvale did, start-up included.
  # wf-recorder 0.3 encodes 4:4:4 with -x yuv420p alone: the filter makes it 4:2:0.
  run wf bash -c 'echo "$work/wf.mp4" >"$work/wf.movie"
    exec timeout -k 5 -s INT "$0" wf-recorder "$@" >"$work/wf.log" 2>&1' \
    "$(awk -v s="$seconds" 'BEGIN { print s + 1 }')" -f "$work/wf.mp4" -c libx264 -x yuv420p \
    -F format=yuv420p -b 0 -p preset=veryfast -p crf=20 -p g=60 -p bf=0 "${untune[@]}"
fi

# report NAME LABEL [with-helpers]: one row; keeps "CPU s, movie s" in $work/NAME.cpu.
report() {
  local movie cpu
  movie=$(cat "$work/$1.movie")
  [[ -f $movie ]] || { echo "  $2: no movie ($(tail -n 3 "$work/$1.log" 2>/dev/null))"; return; }
  cpu=$(tail -n1 "$work/$1.time" | awk '{ print $1 + $2 }') # after a word on its exit status
  if [[ ${3:-} == with-helpers ]]; then
    cpu=$(awk -v c="$cpu" -v h="$(cat "$work/$1.helpers")" -v t="$(getconf CLK_TCK)" \
      'BEGIN { print c + h / t }')
  fi
  echo "$cpu $(duration "$movie") $(frames "$movie")" >"$work/$1${3:+.$3}.cpu"
  awk -v l="$2" -v f="$(first_frame "$movie")" -v s="$(cat "$work/$1.sway")" \
    -v t="$(getconf CLK_TCK)" '{
    printf "  %-32s %6.2f %7.2f %6.1f%% %6.1f %7s %6d %5.1f %6.2f\n", l, $1, $2, 100 * $1 / $2,
      1000 * $1 / $3, (f == "" ? "-" : f), $3, $3 / $2, s / t }' "$work/$1${3:+.$3}.cpu"
}
# ratio A B: A's CPU per movie second and per frame over B's.
ratio() {
  cat "$work/$1.cpu" "$work/$2.cpu" | awk 'NR == 1 { s = $1 / $2; f = $1 / $3 }
    NR == 2 { printf "%.2f a movie second, %.2f a frame", s / ($1 / $2), f / ($1 / $3) }'
}

echo "recording 1920x1080 at 30 Hz on sway headless, a moving test picture, ${seconds} s:"
printf "  %-32s %6s %7s %7s %6s %7s %6s %5s %6s\n" "" "CPU s" "movie s" "core" \
  "ms/fr" "first s" "frames" "fps" "sway s"
report lumenvale "lumenvale record"
report lumenvale "  + portal backend and PipeWire" with-helpers
awk -v e="$(cat "$work/lumenvale.started")" '/ Recording\./ {
  printf "  lumenvale said \"Recording.\" %.3f s after exec\n", $1 - e; exit }' "$work/lumenvale.log"
if [[ $have_wf -eq 1 ]]; then
  report wf "wf-recorder"
  pixels() { ffprobe -v error -select_streams v:0 -show_entries stream=pix_fmt,profile -of csv=p=0 "$1"; }
  echo "  pixels and profile: lumenvale $(pixels "$(cat "$work/lumenvale.movie")")," \
    "wf-recorder $(pixels "$(cat "$work/wf.movie")")"
  echo "  x264 options that differ, lumenvale | wf-recorder:" \
    "$(comm -23 <(x264_options "$(cat "$work/lumenvale.movie")") \
      <(x264_options "$(cat "$work/wf.movie")") | xargs) |" \
    "$(comm -13 <(x264_options "$(cat "$work/lumenvale.movie")") \
      <(x264_options "$(cat "$work/wf.movie")") | xargs)"
  echo "  CPU ratio lumenvale / wf-recorder: $(ratio lumenvale wf);" \
    "with the portal backend and PipeWire: $(ratio lumenvale.with-helpers wf)"
else
  echo "  wf-recorder is not installed (apt-get install wf-recorder): no comparison"
fi
