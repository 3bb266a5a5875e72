#!/usr/bin/env bash
# What surrounds a recording in the tray application, used with the pointer, the
# keyboard and a screen reader (lib/atspi.py), and checked in the movies:
#   - Record Area: a drag under 8 points is discarded; a rectangle dragged with the
#     pointer gives a movie of exactly that area, after the countdown; the control's Pause, Resume and Stop give one movie
#     of the recorded time; the card then shows it.
#   - The card: Copy leaves the movie on the clipboard as a file list, as a copied file
#     and as its path; Show in Folder asks the file manager (FileManager1) to show it;
#     Share's Open With… lists the applications the desktop has for MP4 and opens it,
#     Email… hands it to the mail program;
#     the card is gone 8 seconds after it showed, but stays while the pointer rests on
#     it.
#   - Record Screen with the camera on: the control is never in the movie (what lies
#     under it is), the camera bubble is, with its picture, at its place; the camera
#     pulled out closes the bubble with a notice, and the recording goes on.
#   - Escape during the countdown, while another application has the focus: no movie
#     and no part file.
#   - Record Window: a click on a window gives a movie of that window with its frame;
#     the window closing ends the recording, which is saved, with a notice.
#   - Two displays (RandR monitors): a picker on each; an area dragged on the second
#     gives a movie of exactly that area, with the control on that display; a
#     recorded display going away ends the recording, which is saved, with a notice.
# With --composited, all of it again with a compositing manager (xcompmgr) running,
# where the panels are translucent windows instead of shaped ones.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

export APP_STORE=$movies
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
export LUMENVALE_SYNTHETIC_CAMERA=1
settings_file=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf
control="Recording control"
card="Recording saved"

newest_movie() { ls -t "$movies"/*.mp4 | head -n1; }
has_movies() { [[ $(movie_count) -eq $1 ]]; }
# wait_for_movies N: until N movies are saved.
wait_for_movies() {
  until_true 20 has_movies "$1" ||
    fail "expected $1 movie(s), saw $(movie_count): $(tail -n 5 "$work/app.err")"
}
# frame MOVIE SECONDS: the frame at SECONDS as a PPM file in the work folder; its path.
frame() {
  ffmpeg -v error -y -ss "$2" -i "$1" -frames:v 1 "$work/frame.ppm"
  echo "$work/frame.ppm"
}
# colours PPM X,Y...: the colour at each point, as "R G B" lines.
colours() {
  "$python" - "$@" <<'PY'
import sys
data = open(sys.argv[1], "rb").read()
header = data.split(b"\n", 3)
width = int(header[1].split()[0])
pixels = header[3]
for point in sys.argv[2:]:
    x, y = map(int, point.split(","))
    offset = (y * width + x) * 3
    print(*pixels[offset:offset + 3])
PY
}

# --- the desktop -----------------------------------------------------------------
if [[ ${1:-} == --composited ]]; then
  xcompmgr >/dev/null 2>&1 &
  background_pids+=($!)
  sleep 1 # until it manages the screen
fi
start_accessibility_bus
"$python" "$lib/file_manager.py" "$work/shown-items" "$work/file-manager.ready" &
background_pids+=($!)
until_true 10 test -e "$work/file-manager.ready" || fail "the file manager stand-in did not start"
# A white window behind the control's place at the top of the screen, and one to pick.
xclock -bg white -geometry 800x140+560+0 >/dev/null 2>&1 &
background_pids+=($!)
xclock -update 1 -geometry 321x241+1200+500 >/dev/null 2>&1 &
clock_pid=$!
background_pids+=($clock_pid)
clock=$(xdotool search --sync --pid "$clock_pid" | head -n1)

# A mail program (no Email portal runs here), which notes what it was asked to attach.
mkdir -p "$work/bin"
printf '#!/bin/sh\necho "$*" >>"%s"\n' "$work/mailed" >"$work/bin/xdg-email"
chmod +x "$work/bin/xdg-email"
export PATH=$work/bin:$PATH
# A movie player the desktop lists for MP4 files, which notes what it was asked to open.
export XDG_DATA_HOME=$work/data
mkdir -p "$XDG_DATA_HOME/applications"
printf '#!/bin/sh\nprintf "%%s\\n" "$1" >>"%s"\n' "$work/opened" >"$work/player"
chmod +x "$work/player"
printf '[Desktop Entry]\nType=Application\nName=Test Player\nExec=%s %%f\nMimeType=video/mp4;\n' \
  "$work/player" >"$XDG_DATA_HOME/applications/lumenvale-test-player.desktop"

printf '[General]\nwelcome.shown=true\n' >"$settings_file"
"$LUMENVALE" >>"$work/app.out" 2>>"$work/app.err" &
app=$!
background_pids+=("$app")
sleep 2 # the application starts

# --- an area dragged out, paused, resumed and stopped on the control ---------------------
"$LUMENVALE" area
ui exists --window "Choose an area to record" || fail "Record Area showed no picker"
# The display dimmed, not covered: the white window under the picker shows through.
ffmpeg -v error -y -f x11grab -video_size 1920x1080 -i "$DISPLAY" -frames:v 1 "$work/picker.ppm"
read -r r g b < <(colours "$work/picker.ppm" 700,70)
((r > 140 && r < 215 && g > 140 && g < 215 && b > 140 && b < 215)) ||
  fail "under the picker a white window reads $r $g $b, not dimmed white"
# Narrower than 8 points: discarded, the picker stays.
xdotool mousemove 100 500 mousedown 1 mousemove 104 600 sleep 0.2 mouseup 1
sleep 0.5
ui exists --window "Choose an area to record" --timeout 0 || fail "a 4-point-wide drag closed the picker"
xdotool mousemove 200 150 mousedown 1 mousemove 300 250 mousemove 600 450 sleep 0.2 mouseup 1
ui exists --window "Countdown" || fail "no countdown after the drag"
ui exists --window "$control" Stop --timeout 10 || fail "no control once recording"
sleep 1
ui press --window "$control" Pause || fail "pressing Pause"
ui exists --window "$control" Resume || fail "Pause did not turn into Resume"
sleep 1
ui press --window "$control" Resume || fail "pressing Resume"
sleep 1
ui press --window "$control" Stop || fail "pressing Stop"
wait_for_movies 1
ui exists --window "$card" Copy || fail "no card after the stop"
card_shown=$(date +%s)
area_movie=$(newest_movie)
size=$(stream_value "$area_movie" v:0 width)x$(stream_value "$area_movie" v:0 height)
[[ $size == 400x300 ]] || fail "a 400×300 drag gave a $size movie"
duration=$(format_duration "$area_movie")
approx "$duration" 2 0.6 || fail "about 2 s recorded around a pause gave $duration s"
tracks_end_together "$area_movie" "the paused area recording"
pass "area: a dragged 400×300 rectangle, paused and resumed on the control, gives one $size movie of $duration s"

# --- the card --------------------------------------------------------------------------
ui press --window "$card" Copy || fail "pressing Copy"
ui exists Copied || fail "Copy showed no notice"
uri=$("$python" -c 'import pathlib, sys; print(pathlib.Path(sys.argv[1]).as_uri())' "$area_movie")
targets=$(xclip -o -selection clipboard -t TARGETS)
for target in text/uri-list x-special/gnome-copied-files; do
  grep -qx "$target" <<<"$targets" || fail "the clipboard lacks $target: $targets"
done
[[ $(xclip -o -selection clipboard -t text/uri-list | tr -d '\r') == "$uri" ]] ||
  fail "text/uri-list: $(xclip -o -selection clipboard -t text/uri-list)"
[[ $(xclip -o -selection clipboard -t x-special/gnome-copied-files) == "copy"$'\n'"$uri" ]] ||
  fail "x-special/gnome-copied-files: $(xclip -o -selection clipboard -t x-special/gnome-copied-files)"
[[ $(xclip -o -selection clipboard -t UTF8_STRING) == "$area_movie" ]] ||
  fail "the clipboard's text: $(xclip -o -selection clipboard -t UTF8_STRING)"
ui press --window "$card" "Show in Folder" || fail "pressing Show in Folder"
until_true 10 grep -qxF "$uri" "$work/shown-items" ||
  fail "the file manager was not asked to show $uri: $(cat "$work/shown-items" 2>/dev/null)"
pass "card: Copy puts the movie on the clipboard in three forms; Show in Folder asks the file manager"

ui absent --window "$card" --timeout 12 || fail "the card was still up 12 s after it showed"
shown_for=$(($(date +%s) - card_shown))
((shown_for >= 7)) || fail "the card went after $shown_for s, not 8"
pass "card: gone after 8 s ($shown_for s seen)"

# --- the screen with the camera: panels left out, the bubble kept -------------------------
"$LUMENVALE" stop # nothing runs: a no-op
kill "$app"
wait "$app" || true
printf '[General]\nwelcome.shown=true\noptions="{\\"camera\\": true}"\n' >"$settings_file"
# The drawn camera is pulled out 7 s after the bubble shows: 4 s into the recording.
LUMENVALE_SYNTHETIC_CAMERA_UNPLUG=7 "$LUMENVALE" >>"$work/app.out" 2>>"$work/app.err" &
app=$!
background_pids+=("$app")
sleep 2
"$LUMENVALE" screen
ui exists --window "$control" Stop --timeout 15 || fail "no control while recording the screen"
ui exists --window "Camera" --timeout 5 || fail "no camera bubble with the camera on"
eval "$(xdotool search --name "^$control\$" getwindowgeometry --shell | tail -n 5)"
((Y == 8 && X + WIDTH / 2 >= 959 && X + WIDTH / 2 <= 961)) ||
  fail "the control is at $X,$Y (${WIDTH}x$HEIGHT), not centred 8 points under the top"
ui exists "The camera was disconnected. The recording goes on without the camera bubble." \
  --timeout 10 || fail "no notice when the camera was pulled out"
ui absent --window "Camera" --timeout 2 || fail "the bubble stayed after its camera went"
sleep 1.5
"$LUMENVALE" stop
wait_for_movies 2
screen_movie=$(newest_movie)
approx "$(format_duration "$screen_movie")" 5.5 1.5 ||
  fail "the recording did not go on after the camera went: $(format_duration "$screen_movie") s"
# The bubble's place once the camera was gone: the desktop, as it is beside it.
mapfile -t seen < <(colours "$(frame "$screen_movie" 5)" 132,948 600,948)
[[ ${seen[0]} == "${seen[1]}" ]] ||
  fail "the bubble stayed in the movie after its camera went: ${seen[0]}, the desktop ${seen[1]}"
picture=$(frame "$screen_movie" 1)
# The control sits at the top centre, over the white window; the default bubble (200
# points) 32 points in from the bottom-left corner, centred at (132, 948).
mapfile -t under_control < <(colours "$picture" 960,26 900,26 1020,26)
for colour in "${under_control[@]}"; do
  read -r r g b <<<"$colour"
  ((r > 200 && g > 200 && b > 200)) || fail "the control shows in the movie: $colour at its place"
done
mapfile -t bubble < <(colours "$picture" 92,908 172,908 92,988 172,988)
distinct=$(printf '%s\n' "${bubble[@]}" | sort -u | wc -l)
saturated=0
for colour in "${bubble[@]}"; do
  read -r r g b <<<"$colour"
  high=$((r > g ? (r > b ? r : b) : (g > b ? g : b)))
  low=$((r < g ? (r < b ? r : b) : (g < b ? g : b)))
  ((high - low > 100)) && saturated=$((saturated + 1))
done
((distinct >= 3 && saturated >= 3)) ||
  fail "the bubble's picture is not in the movie at its place: ${bubble[*]}"
pass "screen: the control is left out of the movie, the camera bubble is in it until its camera is pulled out, and the recording goes on"

# --- Share, and the card stays while the pointer rests on it ----------------------------
ui exists --window "$card" Copy || fail "no card after the screen recording"
ui press --window "$card" Share || fail "pressing Share"
sleep 0.5
# The menu has the keyboard: Open With…, its list of players, the first of them.
xdotool key Down sleep 0.2 key Right sleep 0.3 key Return
until_true 10 grep -sqxF "$screen_movie" "$work/opened" ||
  fail "the player was not started on the movie: $(cat "$work/opened" 2>/dev/null)"
ui press --window "$card" Share || fail "pressing Share again"
sleep 0.5
xdotool key Down sleep 0.2 key Down sleep 0.2 key Return # Email…
until_true 10 grep -sqxF -- "--attach $screen_movie" "$work/mailed" ||
  fail "Email… did not start a mail with the movie attached: $(cat "$work/mailed" 2>/dev/null)"
pass "card: Share's Open With… lists the player the desktop has for MP4 and starts it on the movie; Email… attaches it"
eval "$(xdotool search --name "^$card\$" getwindowgeometry --shell | tail -n 5)"
((X + WIDTH == 1920 - 16 && Y + HEIGHT == 1080 - 16)) ||
  fail "the card is at $X,$Y (${WIDTH}x$HEIGHT), not 16 points in from the bottom-right"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
sleep 10
ui exists --window "$card" --timeout 0 || fail "the card went while the pointer rested on it"
xdotool mousemove 900 600
ui absent --window "$card" --timeout 12 || fail "the card stayed after the pointer left"
pass "card: stays under the pointer, goes 8 s after it leaves"

# --- Escape during the countdown -------------------------------------------------------
xdotool windowactivate --sync "$clock" 2>/dev/null
"$LUMENVALE" screen
ui exists --window "Countdown" || fail "no countdown"
xdotool key Escape
ui absent --window "Countdown" --timeout 3 || fail "Escape did not end the countdown"
sleep 3.5
[[ $(movie_count) -eq 2 && $(part_count) -eq 0 ]] ||
  fail "Escape in the countdown left $(movie_count) movies and $(part_count) part files"
ui absent --window "$control" --timeout 0 || fail "the control showed after Escape"
pass "countdown: Escape with another window in front ends it without a movie"

# --- a window picked with a click -------------------------------------------------------
"$LUMENVALE" window
ui exists --window "Choose a window to record" || fail "Record Window showed no picker"
xdotool mousemove 1360 620 sleep 0.3 click 1
ui exists --window "$control" Stop --timeout 10 || fail "no control after picking a window"
eval "$(xdotool getwindowgeometry --shell "$clock")"
extents=$(xprop -id "$clock" _NET_FRAME_EXTENTS | sed 's/.*= //; s/,//g')
read -r left right top bottom <<<"$extents"
sleep 1
# The window closes while it is recorded: the recording so far is saved, and said so.
kill "$clock_pid"
wait_for_movies 3
ui exists "Recording stopped. The window closed." || fail "no notice that the window closed"
window_movie=$(newest_movie)
width=$((WIDTH + left + right)) height=$((HEIGHT + top + bottom))
expected=$((width - width % 2))x$((height - height % 2)) # the encoder's even sizes
size=$(stream_value "$window_movie" v:0 width)x$(stream_value "$window_movie" v:0 height)
[[ $size == "$expected" ]] || fail "the clicked window with its frame is ${width}x$height, its movie $size"
pass "window: a click picks the window under the pointer, $size with its frame; its closing saves the movie"

# --- two displays: a picker on each, the area exact on the right one ------------------------
kill "$app"
wait "$app" || true
# The display is the session's, shared with the tests after this one: the one display
# comes back however this script ends.
trap 'xrandr --delmonitor left >/dev/null 2>&1; xrandr --delmonitor right >/dev/null 2>&1; e2e_cleanup' EXIT
xrandr --setmonitor left 960/254x1080/286+0+0 screen >/dev/null
xrandr --setmonitor right 960/254x1080/286+960+0 none >/dev/null
xclock -bg red -geometry 200x150+1100+250 >/dev/null 2>&1 &
background_pids+=($!)
printf '[General]\nwelcome.shown=true\noptions="{\\"countdown\\": false}"\n' >"$settings_file"
"$LUMENVALE" >>"$work/app.out" 2>>"$work/app.err" &
app=$!
background_pids+=("$app")
sleep 2
"$LUMENVALE" area
ui exists --window "Choose an area to record" || fail "Record Area showed no picker on two displays"
pickers=$(xdotool search --onlyvisible --name "^Choose an area to record\$" | wc -l)
((pickers == 2)) || fail "two displays showed $pickers pickers"
xdotool mousemove 1000 200 mousedown 1 mousemove 1200 350 mousemove 1400 500 sleep 0.2 mouseup 1
ui exists --window "$control" Stop --timeout 10 || fail "no control on the second display"
eval "$(xdotool search --name "^$control\$" getwindowgeometry --shell | tail -n 5)"
((X + WIDTH / 2 >= 1439 && X + WIDTH / 2 <= 1441)) ||
  fail "the control is at $X (width $WIDTH), not centred on the right display"
sleep 1
"$LUMENVALE" stop
wait_for_movies 4
two_screens=$(newest_movie)
size=$(stream_value "$two_screens" v:0 width)x$(stream_value "$two_screens" v:0 height)
[[ $size == 400x300 ]] || fail "a 400×300 drag on the right display gave a $size movie"
# The red window's top-left corner (its frame at 100,50 in the movie; the clock face
# leaves the corners of its inside red).
mapfile -t seen < <(colours "$(frame "$two_screens" 0.5)" 110,90 20,20)
read -r r g b <<<"${seen[0]}"
((r > 200 && g < 60 && b < 60)) || fail "the red window is not where it was: ${seen[0]}"
read -r r g b <<<"${seen[1]}"
((r < 60)) || fail "the area's corner shows ${seen[1]}, not the desktop"
pass "two displays: a picker on each; the area dragged on the right one, exactly, with the control there"

# The recorded display goes away: what was recorded is saved, and said so.
xdotool mousemove 1400 600
"$LUMENVALE" screen
ui exists --window "$control" Stop --timeout 10 || fail "no control recording the right display"
sleep 1.5
xrandr --delmonitor right >/dev/null
wait_for_movies 5
ui exists "Recording stopped. The display is gone." || fail "no notice that the display went away"
size=$(stream_value "$(newest_movie)" v:0 width)x$(stream_value "$(newest_movie)" v:0 height)
[[ $size == 960x1080 ]] || fail "the right display's recording is $size, not 960x1080"
pass "two displays: the recorded display going away saves its movie with a notice"

kill "$app"
