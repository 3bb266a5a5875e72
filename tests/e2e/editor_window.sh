#!/usr/bin/env bash
# The editor window, used with the keyboard, the pointer and a screen reader
# (lib/atspi.py), on a movie whose every frame shows its own number in its colours:
#   - `lumenvale FILE` opens it; a second open of the same file brings the one window
#     forward instead of opening another.
#   - Split at 2 s and 3 s with the keyboard, delete the middle clip, drag the end of
#     the last clip left with the pointer, set 2×, export (Ctrl+E): the movie holds
#     exactly the kept frames at twice the speed (decoded), and the card shows it.
#   - Crop with the box's corner handle: the export is the cropped size.
#   - The preview shows the frame the edit puts at a time; it plays the sound, and
#     muting the track silences it.
#   - Undo back to the start and export again: the original frames, copied.
#   - A file that is not a movie gives its notice and opens nothing.
#   - Ctrl+W closes the window; the application stays in the tray.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

export APP_STORE=$work/store
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
mkdir -p "$APP_STORE" "$movies"
printf '[General]\nwelcome.shown=true\n' >"$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf"
start_accessibility_bus

source_movie=$movies/Coded.mp4
coded_movie "$source_movie" 6
window=Coded
exports() { find "$movies" -name 'Coded edited*.mp4' | wc -l; }
has_exports() { [[ $(exports) -eq $1 ]]; }
# export_now N: Ctrl+E, then the Nth export's path once it is complete.
export_now() {
  ui keys --window "$window" ctrl+e || fail "typing Ctrl+E"
  until_true 60 has_exports "$1" || fail "no export $1: $(tail -n 3 "$work/app.err")"
  local name="Coded edited.mp4"
  [[ $1 -gt 1 ]] && name="Coded edited $1.mp4"
  echo "$movies/$name"
}
# seq_text FIRST LAST [STEP]: the numbers as one line.
seq_text() { seq -s ' ' "$@"; }

"$LUMENVALE" "$source_movie" >>"$work/app.out" 2>>"$work/app.err" &
app=$!
background_pids+=("$app")
ui exists --window "$window" Preview --timeout 20 || fail "the editor window did not open: $(cat "$work/app.err")"
"$LUMENVALE" "$source_movie" # the running application brings its window forward
sleep 1
windows=$(xdotool search --onlyvisible --name "^$window\$" | wc -l)
[[ $windows -eq 1 ]] || fail "opening the movie twice shows $windows windows"
ui exists --window "$window" "Time 00:00 / 00:06" || fail "the time does not read 00:00 / 00:06"
pass "the movie opens in one editor window"

# --- cut, trim and speed, then export ---------------------------------------------------
# The frame the preview shows, read from the screen at its middle.
read -r px py _ < <(ui where --window "$window" Preview)
shown_frame() {
  ffmpeg -v error -y -f x11grab -video_size 1x1 -i "$DISPLAY+$px,$py" -frames:v 1 -f rawvideo \
    -pix_fmt rgb24 "$work/pixel.rgb" &&
    od -An -tu1 "$work/pixel.rgb" | awk '{ print int($2 / 16) * 16 + int($1 / 16) }'
}
preview_shows() { [[ $(shown_frame) == "$1" ]]; }
# step_and_split FRAME: Right moves one frame (1/30 s); on a loaded machine a key press
# can be lost on its way, so the preview's picture says where the playhead is.
step_and_split() {
  local shown
  until_true 5 preview_shows "$2" || fail "the preview does not show frame $2 before stepping"
  ui keys --window "$window" -- --repeat $(($1 - $2)) --delay 20 Right || fail "stepping to frame $1"
  for _ in 1 2 3; do
    until_true 2 preview_shows "$1" && break
    shown=$(shown_frame)
    ((shown < $1)) && ui keys --window "$window" Right
  done
  preview_shows "$1" || fail "stepping to frame $1 shows frame $(shown_frame)"
  ui keys --window "$window" s || fail "typing S"
}
step_and_split 60 0
step_and_split 90 60
ui exists --window "$window" "Clip 3, 00:03 to 00:06" || fail "two splits did not give three clips"
ui press --window "$window" "Clip 2, 00:02 to 00:03" || fail "selecting the middle clip"
ui keys --window "$window" Delete || fail "typing Delete"
ui absent --window "$window" "Clip 3, 00:03 to 00:06" || fail "Delete left three clips"
# The last clip's end dragged left by about a third of it.
read -r x y width _ < <(ui where --window "$window" "Clip 2, 00:03 to 00:06")
read -r hx hy _ < <(ui where --window "$window" "End of clip 2")
xdotool mousemove "$hx" "$hy" mousedown 1 sleep 0.1 mousemove $((hx - 10)) "$hy" sleep 0.1 \
  mousemove $((hx - width / 3)) "$hy" sleep 0.2 mouseup 1
ui exists --window "$window" "Clip 2, 00:03 to 00:05" || fail "dragging the end did not trim the clip to about 5 s"
ui press --window "$window" "Speed 2×" || fail "pressing Speed 2×"
# The preview shows the edit: the second clip starts at 1 s of output with source frame
# 90; three frames of output later (0.1 s at 2×) it shows frame 96.
ui press --window "$window" "Clip 2, 00:03 to 00:05" || fail "pressing the second clip"
ui keys --window "$window" -- --repeat 3 --delay 30 Right || fail "stepping three frames"
until_true 5 preview_shows 96 ||
  fail "at 1.1 s of output the preview shows frame $(od -An -tu1 "$work/pixel.rgb" | awk '{ print int($2 / 16) * 16 + int($1 / 16) }'), not 96"
pass "the preview shows the edit: frame 96 at 1.1 s of output"
fast=$(export_now 1)
ui exists --window "Recording saved" Copy --timeout 20 || fail "no card after the export"
frames=$(coded_frames "$fast")
read -r -a got <<<"$frames"
# At 2× every other source frame: 0 2 … 58 from the first clip, then 90 92 … from the
# trimmed last one.
expected_head="$(seq_text 0 2 58) $(seq_text 90 2 118)"
[[ "${got[*]:0:45}" == "$expected_head" ]] || fail "the 2× export starts with frames ${got[*]:0:45}, not $expected_head"
last=${got[-1]}
((last >= 140 && last <= 160)) || fail "the trimmed 2× export ends at frame $last, not about 150"
[[ "$frames" == "$(seq_text 0 2 58) $(seq_text 90 2 "$last")" ]] || fail "the 2× export's frames are not the kept ones: $frames"
length=$(format_duration "$fast")
approx "$length" "$(awk -v n="${#got[@]}" 'BEGIN { print n / 30 }')" 0.05 || fail "the 2× export lasts $length s for ${#got[@]} frames"
pass "split, delete, trim by drag and 2×: ${#got[@]} frames, exactly the kept ones ($length s)"

# --- crop with the box ----------------------------------------------------------------------
ui keys --window "$window" c || fail "typing C"
read -r cx cy _ < <(ui where --window "$window" "Crop Top-Left Corner")
read -r bx by bw bh < <(ui where --window "$window" "Crop Box")
xdotool mousemove "$cx" "$cy" mousedown 1 sleep 0.1 mousemove $((cx + 5)) $((cy + 5)) sleep 0.1 \
  mousemove $((cx + bw / 4)) $((cy + bh / 4)) sleep 0.2 mouseup 1
ui keys --window "$window" c || fail "typing C to leave crop mode"
cropped=$(export_now 2)
width=$(stream_value "$cropped" v:0 width)
height=$(stream_value "$cropped" v:0 height)
((width >= 232 && width <= 248 && height >= 174 && height <= 186)) ||
  fail "a crop of three quarters of 320×240 exported ${width}×${height}"
pass "the crop box's corner dragged a quarter in: a ${width}×${height} export"

# --- undo to the start ----------------------------------------------------------------------
# Seven steps: two splits, the delete, the trim, the speed, crop mode's full-frame crop
# and the corner's drag (leaving crop mode keeps a crop that does not cover the frame).
ui keys --window "$window" -- --repeat 7 --delay 50 ctrl+z || fail "typing Ctrl+Z"
ui exists --window "$window" "Clip 1, 00:00 to 00:06" || fail "undoing everything did not bring back one clip"
ui state --window "$window" "Speed 1×" checked --expect yes || fail "undoing everything did not bring back 1×"
whole=$(export_now 3)
frames=$(coded_frames "$whole")
[[ "$frames" == "$(seq_text 0 179)" ]] || fail "the export after undoing everything has frames $frames"
[[ $(stream_value "$whole" v:0 width) == 320 ]] || fail "the export after undoing everything is not 320 wide"
pass "undo back to the start exports the original 180 frames"

# --- the preview's sound ----------------------------------------------------------------------
# mean_level: the mean level (dB) of what the speakers play over one second of playback.
mean_level() {
  ui press --window "$window" "Clip 1, 00:00 to 00:06" || fail "pressing the clip"
  ui keys --window "$window" space || fail "typing Space"
  sleep 0.5
  timeout 1 parec -d lumenvale_speakers.monitor --rate=48000 --channels=1 --format=s16le --raw \
    >"$work/heard.raw" || true
  ui keys --window "$window" space || fail "typing Space"
  ffmpeg -hide_banner -nostats -f s16le -ar 48000 -ac 1 -i "$work/heard.raw" -af volumedetect \
    -f null - 2>&1 | sed -n 's/.*mean_volume: \(-*[0-9.]*\) dB.*/\1/p'
}
loud=$(mean_level)
ui press --window "$window" "Mute Audio Track 1" || fail "pressing Mute"
quiet=$(mean_level)
awk -v l="$loud" -v q="$quiet" 'BEGIN { exit !(l > -40 && (q == "" || q < -70)) }' ||
  fail "the preview's sound: ${loud:-nothing} dB playing, ${quiet:-nothing} dB muted"
pass "the preview plays the tone (${loud} dB) and muting the track silences it (${quiet:+$quiet dB}${quiet:-nothing heard})"

# --- a file that is not a movie -------------------------------------------------------------
echo "not a movie" >"$movies/Notes.mp4"
"$LUMENVALE" "$movies/Notes.mp4"
until_true 10 grep -q "Couldn’t open Notes.mp4. " "$work/app.err" || fail "no notice for a file that is not a movie"
notice=$(grep -o "Couldn’t open Notes.mp4. .*" "$work/app.err" | head -n1)
ui exists --window Notice "$notice" || fail "the notice “$notice” was not shown"
[[ $(xdotool search --onlyvisible --name '^Notes$' | wc -l) -eq 0 ]] || fail "a window opened for a file that is not a movie"
pass "a file that is not a movie: “$notice”"

# --- closing ----------------------------------------------------------------------------------
ui keys --window "$window" ctrl+w || fail "typing Ctrl+W"
ui absent --window "$window" || fail "Ctrl+W did not close the editor"
kill -0 "$app" 2>/dev/null || fail "the application quit with its last editor window"
pass "Ctrl+W closes the editor; the application stays"
