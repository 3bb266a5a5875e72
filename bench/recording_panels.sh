#!/usr/bin/env bash
# What the panels around a recording cost, side by side in one run. Prints figures
# and ratios; never part of the tests, nothing here judges them.
#
#   overlay   time from the Record Area shortcut (pressed with xdotool) to the
#             pickers mapped on every display, on a desktop of two 4K displays
#             (7680x2160 with two RandR monitors), median of 5
#   cpu       CPU time (utime + stime, /proc/PID/stat) of a RECORD_SECONDS (10)
#             recording of a still 1920x1080 area by the tray application with the
#             floating control and the outline shown, then also with the camera bubble
#             (the drawn test camera), against the same recording by `lumenvale record`,
#             which shows nothing
#
#   LUMENVALE=build/release/Lumenvale/lumenvale bench/recording_panels.sh [RECORD_SECONDS]
#
# It runs itself inside tests/session.sh with a 7680x2160 display.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [[ -z "${LUMENVALE_SESSION_INNER:-}" ]]; then
  LUMENVALE_SCREEN_SIZE=7680x2160 exec "$root/tests/session.sh" bash "$root/bench/recording_panels.sh" "$@"
fi
: "${LUMENVALE:=$root/build/release/Lumenvale/lumenvale}"
[[ -x $LUMENVALE ]] || { echo "no lumenvale at $LUMENVALE: build it or set LUMENVALE" >&2; exit 1; }
seconds=${1:-10}
top=${AREA_TOP:-0}
runs=5
export LC_ALL=C LUMENVALE_SYNTHETIC_CAMERA=1

work=$(mktemp -d /tmp/lumenvale-bench-panels.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
export APP_STORE=$work/movies XDG_CONFIG_HOME=$work/config TMPDIR=$work/tmp
mkdir -p "$APP_STORE" "$XDG_CONFIG_HOME" "$TMPDIR"
settings=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf

# Two 4K displays side by side on the one X screen.
xrandr --setmonitor left 3840/600x2160/340+0+0 screen >/dev/null
xrandr --setmonitor right 3840/600x2160/340+3840+0 none >/dev/null

cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
median() { tr ' ' '\n' | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
movies() { find "$APP_STORE" -name '*.mp4' | wc -l; }
wait_for_movies() {
  for _ in $(seq 600); do [[ $(movies) -ge $1 ]] && return 0; sleep 0.05; done
  echo "no movie was saved" >&2
  exit 1
}

# launch CAMERA: the tray application, past its first launch, with Ctrl+Alt+Shift+A
# for Record Area, no countdown, the camera on or off; sets $app.
launch() {
  cat >"$settings" <<INI
[General]
welcome.shown=true
hotkey.area="{\\"keyCode\\": 0, \\"mods\\": 7}"
options="{\\"camera\\": $1, \\"countdown\\": false}"
INI
  "$LUMENVALE" >>"$work/app.log" 2>&1 &
  app=$!
  pids+=("$app")
  sleep 3
}

launch false
echo "overlay: shortcut to pickers mapped on two 4K displays, median of $runs (ms)"
times=()
for _ in $(seq "$runs"); do
  started=$EPOCHREALTIME
  xdotool key ctrl+alt+shift+a
  # Asked again and again: xdotool's own --sync looks only every half second.
  until xdotool search --onlyvisible --name "^Choose an area to record\$" >/dev/null 2>&1; do :; done
  mapped=$EPOCHREALTIME
  times+=("$(awk -v a="$started" -v b="$mapped" 'BEGIN { printf "%.0f", (b - a) * 1000 }')")
  xdotool key Escape
  sleep 1
done
echo "  lumenvale  $(echo "${times[*]}" | median)   (each: ${times[*]})"

# tray_cpu MOVIES: the CPU ticks of the running tray application over one recording of
# the top-left 1920x1080 area, picked with the pointer, from the moment it runs until
# it is saved; MOVIES is the count after it.
tray_cpu() {
  local before
  "$LUMENVALE" area
  until xdotool search --onlyvisible --name "^Choose an area to record\$" >/dev/null 2>&1; do :; done
  xdotool mousemove 0 "$top" mousedown 1 mousemove 960 540 mousemove 1920 $((top + 1080)) mouseup 1
  # Counted from the control's showing: the picker is the overlay figure's.
  until xdotool search --onlyvisible --name "^Recording control\$" >/dev/null 2>&1; do :; done
  before=$(cpu_ticks "$app")
  sleep "$seconds"
  "$LUMENVALE" stop
  wait_for_movies "$1"
  echo $(($(cpu_ticks "$app") - before))
}

echo "cpu: a ${seconds} s recording of a 1920x1080 area, CPU seconds"
with_panels=$(tray_cpu 1)
kill "$app"
wait "$app" 2>/dev/null || true
launch true
with_bubble=$(tray_cpu 2)
# The recorder's CPU time, as its parent shell counts it once the recorder has ended.
without_panels=$(bash -c '"$@" >/dev/null 2>&1; awk "{ print \$16 + \$17 }" /proc/$$/stat' _ \
  "$LUMENVALE" record --area "0,$top,1920,1080" --no-countdown --seconds "$seconds" --folder "$APP_STORE")
ticks=$(getconf CLK_TCK)
awk -v a="$with_panels" -v c="$with_bubble" -v b="$without_panels" -v t="$ticks" 'BEGIN {
  printf "  without panels (lumenvale record)          %.2f\n", b / t
  printf "  control and outline (tray)                 %.2f   %.2fx\n", a / t, (b > 0 ? a / b : 0)
  printf "  control, outline and camera bubble (tray)  %.2f   %.2fx\n", c / t, (b > 0 ? c / b : 0)
  print "  (the bubble is in the movie: its moving picture is encoded, the still area is not)" }'
