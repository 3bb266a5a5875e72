#!/usr/bin/env bash
# Recording a window: the movie has the size of the window with its frame; a window
# that closes while recorded stops the recording, which is saved; a window that is
# already gone fails the start.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

open_clock() {
  xclock -update 1 -geometry 321x241+200+150 >/dev/null 2>&1 &
  clock_pid=$!
  background_pids+=($clock_pid)
  window=$(xdotool search --sync --pid "$clock_pid" | head -n1)
  sleep 0.5
}

open_clock
eval "$(xdotool getwindowgeometry --shell "$window")" # WIDTH, HEIGHT of the client
extents=$(xprop -id "$window" _NET_FRAME_EXTENTS | sed 's/.*= //; s/,//g')
read -r left right top bottom <<<"$extents"
frame_width=$((WIDTH + left + right)) frame_height=$((HEIGHT + top + bottom))
expected="$((frame_width - frame_width % 2))x$((frame_height - frame_height % 2))"

record --window "$window" --no-countdown --no-system-audio --seconds 1.5 --folder "$movies"
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
size="$(stream_value "$out" v:0 width)x$(stream_value "$out" v:0 height)"
[[ $size == "$expected" ]] || fail "window ${frame_width}x$frame_height with its frame gave $size, not $expected"
approx "$(format_duration "$out")" 1.5 0.25 || fail "duration $(format_duration "$out")"
pass "window: the movie is the framed window, $size"

# Closing the recorded window stops the recording; what was recorded is saved.
record_in_background --window "$window" --no-countdown --no-system-audio --folder "$movies"
sleep 2
kill "$clock_pid"
finish_background
[[ $status -eq 0 ]] || fail "a closed window should still save; exit $status: $err"
[[ "$err" == *"Recording stopped. The window closed."* ]] || fail "no stop notice: $err"
[[ -f "$out" ]] || fail "no movie printed: '$out'"
approx "$(format_duration "$out")" 2 0.6 || fail "duration $(format_duration "$out"), not about 2 s"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "window: closing it stops the recording and saves the movie"

# A window that no longer exists.
record --window "$window" --no-countdown --no-system-audio --folder "$movies"
[[ $status -ne 0 ]] || fail "recording a closed window succeeded"
[[ "$err" == "Couldn’t start recording. The window closed." ]] || fail "unexpected message: $err"
[[ -z "$out" ]] || fail "printed a path for nothing: $out"
pass "window: a window that is gone fails the start with its message"
