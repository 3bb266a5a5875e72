#!/usr/bin/env bash
# The editor window with a long recording open, side by side with ffplay showing the
# same movie. Prints figures and ratios; never part of the tests, nothing here judges them.
#
#   open     time from `lumenvale MOVIE` to its editor window mapped
#   memory   resident memory of the application with that window open (after the
#            filmstrip has loaded), of the tray application alone, and of ffplay
#            playing the same movie
#   scrub    the window's frame times while the playhead is dragged across the ruler
#            for 3 s (Qt's render loop timings): frames, median and 95th percentile
#            interval
#
#   LUMENVALE=build/release/Lumenvale/lumenvale bench/editor_window.sh MOVIE
#
# It runs itself inside tests/session.sh.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [[ -z "${LUMENVALE_SESSION_INNER:-}" ]]; then
  exec "$root/tests/session.sh" bash "$root/bench/editor_window.sh" "$@"
fi
: "${LUMENVALE:=$root/build/release/Lumenvale/lumenvale}"
movie=${1:?usage: bench/editor_window.sh MOVIE}
title=$(basename "$movie" .mp4)
export LC_ALL=C QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
work=$(mktemp -d /tmp/lumenvale-bench-editor.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
export APP_STORE=$work/movies XDG_CONFIG_HOME=$work/config TMPDIR=$work/tmp
mkdir -p "$APP_STORE" "$XDG_CONFIG_HOME" "$TMPDIR"
printf '[General]\nwelcome.shown=true\n' >"$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf"
/usr/libexec/at-spi-bus-launcher --launch-immediately >/dev/null 2>&1 &
pids+=($!)
sleep 1
rss_mib() { awk '/^VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$1/status"; }
now_ms() { date +%s%3N; }
movie_minutes=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$movie" |
  awk '{ printf "%.0f", $1 / 60 }')

# --- the tray application alone ------------------------------------------------------
"$LUMENVALE" >/dev/null 2>&1 &
tray=$!
pids+=($tray)
sleep 4
tray_rss=$(rss_mib "$tray")
kill "$tray"
wait "$tray" 2>/dev/null || true

# --- open, memory and scrubbing -----------------------------------------------------------
start=$(now_ms)
QSG_RENDER_TIMING=1 "$LUMENVALE" "$movie" >/dev/null 2>"$work/timing.log" &
app=$!
pids+=($app)
timeout 60 xdotool search --sync --onlyvisible --name "^$title\$" >/dev/null || { echo "the editor window did not open" >&2; exit 1; }
opened=$(($(now_ms) - start))
sleep 5 # the filmstrip and the first picture
editor_rss=$(rss_mib "$app")
read -r rx ry rw _ < <(/usr/bin/python3 "$root/tests/e2e/lib/atspi.py" where --window "$title" Ruler)
before=$(stat -c %s "$work/timing.log")
left=$((rx - rw / 2 + 2))
xdotool mousemove "$left" "$ry" mousedown 1
for step in $(seq 60); do
  xdotool mousemove $((left + step * (rw - 4) / 60)) "$ry" sleep 0.05
done
xdotool mouseup 1
sleep 0.3
tail -c +$((before + 1)) "$work/timing.log" |
  sed -n 's/.*syncAndRender: start, elapsed since last call: \([0-9]*\) ms.*/\1/p' >"$work/intervals"
kill "$app"
wait "$app" 2>/dev/null || true

# --- ffplay with the same movie ----------------------------------------------------------
ffplay -v quiet -an -x 800 -y 450 "$movie" &
player=$!
pids+=($player)
sleep 5
ffplay_rss=$(rss_mib "$player")
kill "$player"

echo "editor_window: a ${movie_minutes}-minute recording ($(basename "$movie"))"
printf '  open: lumenvale MOVIE to its window mapped   %6d ms\n' "$opened"
printf '  memory: editor open                          %6.1f MiB\n' "$editor_rss"
printf '          tray application alone               %6.1f MiB\n' "$tray_rss"
printf '          ffplay playing the movie             %6.1f MiB\n' "$ffplay_rss"
awk -v e="$editor_rss" -v f="$ffplay_rss" -v t="$tray_rss" \
  'BEGIN { printf "          ratio editor/ffplay %.2f, editor minus tray %.1f MiB\n", e / f, e - t }'
sort -n "$work/intervals" | awk '{ v[NR] = $1 } END {
  if (NR == 0) { print "  scrub: no frames rendered"; exit }
  printf "  scrub: %d frames in 3 s, interval median %d ms, 95th percentile %d ms\n",
    NR, v[int((NR + 1) / 2)], v[(int(NR * 0.95 + 0.5) > 0) ? int(NR * 0.95 + 0.5) : 1] }'
