#!/usr/bin/env bash
# What the panels around a recording cost, side by side in one run. Prints figures
# and ratios; never part of the tests, nothing here judges them.
#
#   overlay   time from the Record Area shortcut (pressed with xdotool) to the
#             pickers mapped on every display, on a desktop of two 4K displays
#             (7680x2160 with two RandR monitors), median of 5
#   cpu       CPU time (utime + stime, /proc/PID/stat) of a RECORD_SECONDS (10)
#             recording of the whole desktop with the floating control and the camera
#             bubble (the drawn test camera) shown by the tray application, against
#             the same recording by `lumenvale record`, which shows nothing
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

# The tray application with Ctrl+Alt+Shift+A for Record Area, no countdown, camera on.
cat >"$settings" <<'INI'
[General]
welcome.shown=true
hotkey.area="{\"keyCode\": 0, \"mods\": 7}"
options="{\"camera\": true, \"countdown\": false}"
INI
"$LUMENVALE" >"$work/app.log" 2>&1 &
app=$!
pids+=("$app")
sleep 3

echo "overlay: shortcut to pickers mapped on two 4K displays, median of $runs (ms)"
times=()
for _ in $(seq "$runs"); do
  started=$EPOCHREALTIME
  xdotool key ctrl+alt+shift+a
  xdotool search --sync --onlyvisible --name "^Choose an area to record\$" >/dev/null
  mapped=$EPOCHREALTIME
  times+=("$(awk -v a="$started" -v b="$mapped" 'BEGIN { printf "%.0f", (b - a) * 1000 }')")
  xdotool key Escape
  sleep 1
done
echo "  lumenvale  $(echo "${times[*]}" | median)   (each: ${times[*]})"

echo "cpu: a ${seconds} s recording of the desktop, CPU seconds"
before=$(cpu_ticks "$app")
"$LUMENVALE" screen
sleep "$seconds"
"$LUMENVALE" stop
wait_for_movies 1
with_panels=$(($(cpu_ticks "$app") - before))

"$LUMENVALE" record --screen --no-countdown --seconds "$seconds" --folder "$APP_STORE" \
  >"$work/record.out" 2>"$work/record.err" &
recorder=$!
pids+=("$recorder")
# A process's own CPU time stays readable until it is waited for.
while [[ $(awk '{ print $3 }' "/proc/$recorder/stat") != Z ]]; do sleep 0.1; done
without_panels=$(cpu_ticks "$recorder")
wait "$recorder" || true
ticks=$(getconf CLK_TCK)
awk -v a="$with_panels" -v b="$without_panels" -v t="$ticks" 'BEGIN {
  printf "  with control and bubble (tray)  %.2f\n  without panels (record)         %.2f\n  ratio                           %.2fx\n",
    a / t, b / t, (b > 0 ? a / b : 0) }'
