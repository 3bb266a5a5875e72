# Shared by the end-to-end scripts (sourced, never run on its own).
#
# A script that sources this runs itself inside tests/session.sh (or the session
# script named by $e2e_session, e.g. wayland_session.sh, or else by the environment's
# LUMENVALE_E2E_SESSION, so that one script checks both desktops) when it is not
# already inside a session, then gets a private work folder: its own temporary folder
# (where part files go), its own settings (XDG_CONFIG_HOME) and a movies folder.
# $LUMENVALE names the binary under test.

e2e_script=$(cd "$(dirname "${BASH_SOURCE[1]}")" && pwd)/$(basename "${BASH_SOURCE[1]}")
e2e_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
e2e_session=${e2e_session:-${LUMENVALE_E2E_SESSION:-session.sh}}
e2e_inner=LUMENVALE_SESSION_INNER
[[ $e2e_session == wayland_session.sh ]] && e2e_inner=LUMENVALE_WAYLAND_SESSION_INNER
if [[ -z "${!e2e_inner:-}" ]]; then
  exec "$e2e_root/$e2e_session" bash "$e2e_script" "$@"
fi
: "${LUMENVALE:?set LUMENVALE to the path of the lumenvale binary}"

work=$(mktemp -d /tmp/lumenvale-e2e.XXXXXX)
background_pids=()
e2e_cleanup() {
  for pid in "${background_pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  chmod -R u+w "$work" 2>/dev/null || true
  rm -rf "$work"
}
trap e2e_cleanup EXIT
export TMPDIR=$work/tmp
export XDG_CONFIG_HOME=$work/config
unset APP_STORE
mkdir -p "$TMPDIR" "$XDG_CONFIG_HOME"
movies=$work/movies

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

pass() { echo "ok: $*"; }

# approx ACTUAL EXPECTED TOLERANCE: true when |ACTUAL - EXPECTED| <= TOLERANCE.
approx() {
  awk -v a="$1" -v e="$2" -v t="$3" 'BEGIN { d = a - e; if (d < 0) d = -d; exit !(d <= t) }'
}

# The number of part files in the temporary folder, and of movies in $movies.
part_count() { find "$TMPDIR" -maxdepth 1 -name 'Lumenvale-*.mp4' | wc -l; }
movie_count() { find "$movies" -maxdepth 1 -name '*.mp4' | wc -l; }
recording() { [[ $(part_count) -ge 1 ]]; }
# near "R G B" "R G B" [TOLERANCE]: every channel within TOLERANCE (24 unless given;
# the movies are H.264).
near() {
  local -a got=($1) want=($2)
  local tolerance=${3:-24}
  approx "${got[0]}" "${want[0]}" "$tolerance" && approx "${got[1]}" "${want[1]}" "$tolerance" &&
    approx "${got[2]}" "${want[2]}" "$tolerance"
}

# ffprobe values: stream_value MOVIE SELECTOR ENTRY (e.g. v:0 width).
stream_value() {
  ffprobe -v error -select_streams "$2" -show_entries "stream=$3" -of default=nw=1:nk=1 "$1" | head -n1
}
# tracks_end_together MOVIE LABEL: the first audio and the video track last equally
# long, within one AAC frame; sets $audio and $video (seconds).
tracks_end_together() {
  video=$(stream_value "$1" v:0 duration)
  audio=$(stream_value "$1" a:0 duration)
  approx "$audio" "$video" 0.0214 ||
    fail "$2: audio $audio s and video $video s differ by more than one AAC frame"
}
# video_packets MOVIE: the MD5 sum of each video packet's bytes, one a line, in file
# order: a packet copied from one file into another keeps its sum.
video_packets() {
  ffmpeg -v quiet -i "$1" -map 0:v:0 -c copy -f framemd5 - | awk -F', *' '!/^#/ { print $NF }'
}
format_duration() { ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$1"; }
audio_stream_count() {
  ffprobe -v error -select_streams a -show_entries stream=index -of csv=p=0 "$1" | grep -c . || true
}
# The names of the audio streams (their handler names, which MPEG-4 keeps), one a
# line, in file order.
audio_titles() {
  ffprobe -v error -select_streams a -show_entries stream_tags=handler_name -of default=nw=1:nk=1 "$1"
}
# Mean volume in dB of one audio stream (index among the audio streams), over
# DURATION seconds from START on.
mean_volume() {
  ffmpeg -hide_banner -nostats -ss "$3" -t "$4" -i "$1" -map "0:a:$2" -af volumedetect -f null - 2>&1 |
    sed -n 's/.*mean_volume: \(-*[0-9.]*\) dB.*/\1/p' | tail -n1
}

# record ARGS...: runs `lumenvale record ARGS` in the foreground; sets $status,
# $out (standard output) and $err (standard error).
record() {
  set +e
  "$LUMENVALE" record "$@" >"$work/out" 2>"$work/err"
  status=$?
  set -e
  out=$(cat "$work/out")
  err=$(cat "$work/err")
}

# A sine tone of FREQ Hz for SECONDS played into the PulseAudio sink SINK.
play_tone() {
  local sink=$1 freq=$2 seconds=$3
  local file=$work/tone-$freq.wav
  ffmpeg -v error -y -f lavfi -i "sine=frequency=$freq:sample_rate=48000:duration=$seconds" \
    -ac 1 "$file"
  paplay --device="$sink" "$file" &
  background_pids+=($!)
}

# The desktop drivers, in the system Python (python3-dbus, python3-gi and
# python3-pyatspi are installed for it): the tray menu over dbusmenu, and controls by
# accessible name.
lib=$e2e_root/e2e/lib
python=/usr/bin/python3
tray() { "$python" "$lib/tray.py" "$@"; }
ui() { "$python" "$lib/atspi.py" "$@"; }
# start_desktop_watchers: the accessibility bus, and a StatusNotifierWatcher that tray
# items register with.
start_desktop_watchers() {
  start_accessibility_bus
  tray watch --ready "$work/watcher.ready" >"$work/watcher.log" 2>"$work/watcher.err" &
  background_pids+=($!)
  until_true 10 test -e "$work/watcher.ready" ||
    fail "the tray watcher did not start: $(cat "$work/watcher.err")"
}

# frame_pixel MOVIE SECONDS X Y: the colour at (X, Y) of the picture shown at SECONDS,
# as "R G B", read two by two (the chroma planes have half the resolution). A still
# screen's frames last long, and a seek to SECONDS would skip the one shown then.
frame_pixel() {
  ffmpeg -v error -i "$1" -vf "fps=60,trim=start=$2,crop=2:2:$3:$4" -frames:v 1 -f rawvideo \
    -pix_fmt rgb24 - | od -An -tu1 -N3 | xargs
}

# keep_screen_changing X Y: changes the screen until the test ends or `kill
# $screen_changer`, so that every frame of a recording shows a change (a still screen
# is recorded as fewer, longer frames): on X11 the pointer moves to and fro by a few
# points from (X, Y); on Wayland, which lets no client move the pointer, a terminal
# over the whole screen blinks in its first cell.
keep_screen_changing() {
  if [[ -n ${WAYLAND_DISPLAY:-} ]]; then
    foot --app-id=changing sh -c 'while :; do printf ".\b"; sleep 0.01; printf " \b"; sleep 0.01; done' \
      >"$work/changing.log" 2>&1 &
    screen_changer=$!
    until_true 10 eval 'swaymsg -t get_tree | grep -q "\"app_id\": \"changing\""' ||
      fail "the changing terminal did not open: $(cat "$work/changing.log")"
  else
    (while :; do for dx in 0 3 6 3; do xdotool mousemove $(($1 + dx)) "$2"; sleep 0.005; done; done) &
    screen_changer=$!
  fi
  background_pids+=("$screen_changer")
}

# record_in_background ARGS...: starts `lumenvale record ARGS` and waits until the
# capture runs; sets $recorder to its process id.
record_in_background() {
  # Emptied first: the child empties it only once it runs, and a previous run's
  # line would pass the wait below at once.
  : >"$work/err"
  "$LUMENVALE" record "$@" >"$work/out" 2>"$work/err" &
  recorder=$!
  for _ in $(seq 200); do
    grep -q "Ctrl+C stops" "$work/err" 2>/dev/null && return 0
    kill -0 "$recorder" 2>/dev/null || break
    sleep 0.05
  done
  fail "the recording did not start: $(cat "$work/err")"
}

# finish_background: waits for the background recorder; sets $status, $out, $err.
finish_background() {
  set +e
  wait "$recorder"
  status=$?
  set -e
  out=$(cat "$work/out")
  err=$(cat "$work/err")
}

# wait_for_grab KEYCODE MODIFIERS: waits (up to 30 s) until another X client holds a
# grab of the X key code with the modifier mask (Shift 1, Control 4, Mod1 8, Mod4 64),
# found by trying the same grab and being refused; fails when none does by then.
wait_for_grab() {
  python3 "$(dirname "${BASH_SOURCE[0]}")/xgrab.py" held "$1" "$2"
}

# until_true SECONDS COMMAND...: polls COMMAND every 50 ms; false when it never held.
until_true() {
  local rounds=$(($1 * 20))
  shift
  for _ in $(seq "$rounds"); do
    "$@" && return 0
    sleep 0.05
  done
  return 1
}

# start_accessibility_bus: the AT-SPI bus a screen reader would use, for this session.
start_accessibility_bus() {
  /usr/libexec/at-spi-bus-launcher --launch-immediately >"$work/a11y.log" 2>&1 &
  background_pids+=($!)
  until_true 10 a11y_bus_up || fail "the accessibility bus did not start: $(cat "$work/a11y.log")"
}
# Asked without starting it: the session would otherwise start a launcher of its own.
a11y_bus_up() {
  dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.NameHasOwner string:org.a11y.Bus 2>/dev/null | grep -q true
}

# coded_movie FILE [SECONDS] [SIZE]: a movie (6 s, 320x240 by default) of 30 frames a
# second whose frame N is coloured to tell N (red and green carry its two hexadecimal
# digits; N counts modulo 256), with a keyframe every 2 s and a 440 Hz tone.
coded_movie() {
  ffmpeg -v error -y -f lavfi \
    -i "color=black:size=${3:-320x240}:rate=30,format=rgb24,geq=r='mod(N,16)*16+8':g='mod(floor(N/16),16)*16+8':b=128" \
    -f lavfi -i sine=frequency=440:sample_rate=48000 -t "${2:-6}" -c:v libx264 -pix_fmt yuv420p \
    -g 60 -keyint_min 60 -sc_threshold 0 -c:a aac "$1"
}

# coded_frames MOVIE: the number coded in each decoded frame of MOVIE, in order, on one
# line (read at the picture's middle).
coded_frames() {
  local size
  size=$(ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=p=0:s=x "$1")
  ffmpeg -v error -i "$1" -map 0:v:0 -f rawvideo -pix_fmt rgb24 - | python3 -c "
import sys
w, h = map(int, '$size'.split('x'))
data = sys.stdin.buffer.read()
frame = w * h * 3
at = ((h // 2) * w + w // 2) * 3
print(' '.join(str(data[i + at + 1] // 16 * 16 + data[i + at] // 16)
               for i in range(0, len(data) - frame + 1, frame)))"
}

# mpv_coded_frames MOVIE: as coded_frames, for the frames libmpv (the editor's player)
# shows when it plays MOVIE to its end; "error ..." when it cannot.
mpv_coded_frames() {
  local folder
  folder=$(mktemp -d "$work/mpv.XXXXXX")
  if ! python3 "$(dirname "${BASH_SOURCE[0]}")/mpv_frames.py" "$1" "$folder" >/dev/null; then
    echo "error: libmpv could not play $1"
    return
  fi
  coded_frames "$folder/%08d.png"
}
