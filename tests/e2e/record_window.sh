#!/usr/bin/env bash
# Recording a window: the movie has the size of the window with its frame; a window
# that closes while recorded ends the recording, which is saved, with its own exit
# status; an id that names no window, or the root window, fails the start.
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

# Closing the recorded window ends the recording early: what was recorded is saved and
# its path printed, the reason goes to standard error, and the exit status says so.
record_in_background --window "$window" --no-countdown --no-system-audio --folder "$movies"
sleep 2
kill "$clock_pid"
finish_background
[[ $status -eq 3 ]] || fail "a recording ended by its window exited $status, not 3: $err"
[[ "$err" == *"Recording stopped. The window closed."* ]] || fail "no stop notice: $err"
[[ -f "$out" ]] || fail "no movie printed: '$out'"
approx "$(format_duration "$out")" 2 0.6 || fail "duration $(format_duration "$out"), not about 2 s"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "window: closing it ends the recording with status 3 and saves the movie"

# Ids that name no window to record: one that is gone, and the root window.
root=$(xwininfo -root | sed -n 's/.*Window id: \(0x[0-9a-f]*\).*/\1/p')
messages=()
for id in "$window" "$root"; do
  record --window "$id" --no-countdown --no-system-audio --folder "$movies"
  [[ $status -eq 1 && -z "$out" ]] || fail "--window $id exited $status and printed '$out'"
  messages+=("$err")
done
[[ "${messages[0]}" == "Couldn’t start recording. There is no window $(printf '0x%x' "$window")." ]] ||
  fail "a window that is gone: ${messages[0]}"
[[ "${messages[1]}" == "Couldn’t start recording. $root is the root window, the whole desktop: record it with --screen." ]] ||
  fail "the root window: ${messages[1]}"
record --window pick --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 1 && "$err" == "Couldn’t start recording. Name the window to record by its X11 id (xdotool and xwininfo show it)." ]] ||
  fail "--window pick on X11, where no desktop dialog picks windows: $status, $err"
pass "window: an id that is gone or the root, or none on X11, fails the start with what is wrong"
