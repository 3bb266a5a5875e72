#!/usr/bin/env bash
# Recording an area: the movie is the area's size made even, at the rate asked for,
# and shows what lies in the area.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

# A window filled with a known colour, larger than the area.
xmessage -geometry 800x600+300+200 -bg '#20c040' -fg '#20c040' '' &
background_pids+=($!)
window=$(xdotool search --sync --class Xmessage | head -n1)
sleep 0.5
eval "$(xdotool getwindowgeometry --shell "$window")" # X, Y, WIDTH, HEIGHT of the client
[[ $WIDTH -ge 700 && $HEIGHT -ge 500 ]] || fail "the test window is only ${WIDTH}x$HEIGHT"

# 641x361 points inside the window: the movie is 640x360, all of it the window's colour.
ax=$((X + 30)) ay=$((Y + 60))
keep_screen_changing $((ax + 100)) $((ay + 100))
record --area "$ax,$ay,641,361" --fps 24 --no-countdown --no-system-audio --seconds 1.5 --folder "$movies"
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
size="$(stream_value "$out" v:0 width)x$(stream_value "$out" v:0 height)"
[[ $size == 640x360 ]] || fail "an area of 641x361 gave $size, not 640x360"
[[ "$(stream_value "$out" v:0 r_frame_rate)" == 24/1 ]] || fail "frame rate $(stream_value "$out" v:0 r_frame_rate)"
approx "$(format_duration "$out")" 1.5 0.25 || fail "duration $(format_duration "$out")"
kill "$screen_changer"
pass "area: 641x361 points recorded as 640x360 at 24 fps"

pixel() {
  ffmpeg -v error -ss 0.5 -i "$1" -frames:v 1 -vf "format=rgb24,crop=1:1:$2:$3" -f rawvideo -pix_fmt rgb24 - |
    od -An -tu1 | tr -s ' ' | sed 's/^ //'
}
green() { [[ $1 -lt 90 && $2 -gt 150 && $3 -lt 120 ]]; }
for corner in "4 4" "635 4" "4 355" "635 355" "320 180"; do
  read -r r g b <<<"$(pixel "$out" $corner)"
  green "$r" "$g" "$b" || fail "pixel ($corner) of the area is $r $g $b, not the window's colour"
done

# The same size of area across the window's top-left corner: only its bottom-right shows it.
record --area "$((X - 320)),$((Y - 180)),641,361" --no-countdown --no-system-audio --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
read -r r g b <<<"$(pixel "$out" 500 300)"
green "$r" "$g" "$b" || fail "the window is missing from the area's bottom-right: $r $g $b"
read -r r g b <<<"$(pixel "$out" 100 60)"
! green "$r" "$g" "$b" || fail "the window shows where it is not"
pass "area: shows the desktop inside the area, in place"

# The pointer is drawn into the movie unless --no-pointer says otherwise.
xdotool mousemove $((ax + 320)) $((ay + 180))
sleep 0.3
# non_green MOVIE: how many pixels of the 48x48 square at the area's centre are not
# the window's colour.
non_green() {
  ffmpeg -v error -ss 0.5 -i "$1" -frames:v 1 -vf "format=rgb24,crop=48:48:296:156" -f rawvideo -pix_fmt rgb24 - |
    od -An -v -tu1 | tr -s ' ' '\n' | grep . |
    awk '{ c[NR % 3] = $1; if (NR % 3 == 0) { if (!(c[1] < 90 && c[2] > 150 && $1 < 120)) n++ } } END { print n + 0 }'
}
record --area "$ax,$ay,641,361" --no-countdown --no-system-audio --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
with_pointer=$(non_green "$out")
record --area "$ax,$ay,641,361" --no-pointer --no-countdown --no-system-audio --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
without_pointer=$(non_green "$out")
[[ $with_pointer -ge 20 && $without_pointer -eq 0 ]] ||
  fail "pixels not the window's colour around the pointer: $with_pointer with it, $without_pointer without"
pass "pointer: drawn by default ($with_pointer pixels), absent with --no-pointer"
