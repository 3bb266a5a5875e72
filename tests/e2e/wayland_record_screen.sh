#!/usr/bin/env bash
# Recording the screen of a Wayland desktop (sway) through the desktop portal and
# PipeWire: the movie has the output's size, the recorded length and the windows'
# colours where they are; an area shows just its part; the portal's restore token is
# kept and sent again by the next recording, and a stale one leads to a new choice; a
# window is picked in the desktop's dialog where the portal offers windows (a stand-in
# here) and refused with a sentence where it does not; a
# refused choice and a bus without the ScreenCast portal each get one sentence (the
# latter: what to install) and leave no part behind, and PipeWire killed during a
# recording ends it with one, keeping the movie so far.
set -euo pipefail
e2e_session=wayland_session.sh
source "$(dirname "$0")/lib/common.bash"

# Two terminals of one solid colour each, tiled side by side: red left, blue right
# (the second one opened takes the right half). Each types a dot now and then in its
# top row: sway copies the screen only when it draws it anew.
terminals() { swaymsg -t get_tree | grep -c '"app_id": "\(left\|right\)"' || true; }
opened=0
for side in left:ff0000 right:0000ff; do
  foot --app-id="${side%%:*}" --override=colors.background="${side#*:}" \
    --override=cursor.color="${side#*:} ${side#*:}" \
    sh -c 'while :; do printf .; sleep 0.2; done' >"$work/foot-${side%%:*}.log" 2>&1 &
  background_pids+=($!)
  opened=$((opened + 1))
  for _ in $(seq 200); do [[ $(terminals) -eq $opened ]] && break; sleep 0.05; done
  [[ $(terminals) -eq $opened ]] || fail "the terminals did not open: $(cat "$work"/foot-*.log)"
done
sleep 0.5 # their first pictures

# A bus without the portal: one sentence on what to install, and no part file.
cat >"$work/bare-bus.conf" <<CONF
<busconfig><type>session</type><listen>unix:dir=$work</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>
CONF
set +e
dbus-run-session --config-file="$work/bare-bus.conf" -- \
  "$LUMENVALE" record --screen --seconds 1 --no-countdown --no-system-audio --folder "$movies" \
  >"$work/out" 2>"$work/err"
status=$?
set -e
[[ $status -ne 0 ]] || fail "recording without the portal succeeded"
grep -q "install xdg-desktop-portal and the desktop’s backend" "$work/err" ||
  fail "no word on what to install: $(cat "$work/err")"
[[ $(part_count) -eq 0 ]] || fail "a part file was left behind"
pass "without the ScreenCast portal: what to install, and no part file"

# The choice is asked for a monitor, the pointer drawn by the compositor, remembered.
dbus-monitor --session "interface='org.freedesktop.portal.ScreenCast',member='SelectSources'" \
  >"$work/first.log" 2>&1 &
background_pids+=($!)
sleep 0.3
record --screen --seconds 3 --no-countdown --no-system-audio --folder "$movies"
for option in '"types"' '"cursor_mode"' '"persist_mode"'; do
  grep -A1 "$option" "$work/first.log" | grep -q 'uint32 [12]' ||
    fail "SelectSources lacks $option: $(cat "$work/first.log")"
done
if [[ $status -ne 0 ]] && grep -q "unable to receive a valid format" "$XDG_RUNTIME_DIR/portal-wlr.log"; then
  # xdg-desktop-portal-wlr 0.7 shares a monitor only when the compositor also offers
  # it as DMA-BUF, which needs a GPU render node; headless sway without one cannot.
  [[ "$err" == *"The desktop did not allow recording the screen."* ]] ||
    fail "the backend's refusal was not said: $err"
  [[ $(part_count) -eq 0 ]] || fail "a refused recording left a part file"
  pass "a refused portal request: one sentence, no part file"
  echo "SKIP: the rest needs a screen the portal can share: xdg-desktop-portal-wlr refused" \
    "(it needs DMA-BUF screen copies, so a GPU render node: $(ls /dev/dri 2>&1 | xargs))" >&2
  exit 77
fi
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
movie=$out
[[ -f "$movie" ]] || fail "the printed path is no file: '$out'"
size="$(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height)"
[[ $size == 1280x720 ]] || fail "size $size, not the output's 1280x720"
approx "$(format_duration "$movie")" 3 0.3 || fail "duration $(format_duration "$movie"), not about 3 s"
# Paced as on X11, on a clock of 1/30 s; only the pictures the compositor sent anew
# (the terminals write a dot every 0.2 s) are encoded, the frame before lasting longer.
times=$(ffprobe -v error -select_streams v:0 -show_entries packet=pts_time -of csv=p=0 "$movie")
frames=$(wc -l <<<"$times")
off_clock=$(awk '{ f = $1 * 30; if (f - int(f + 0.5) > 0.01 || int(f + 0.5) - f > 0.01) n++ } END { print n + 0 }' <<<"$times")
[[ $off_clock -eq 0 ]] || fail "$off_clock of $frames frames are off the 1/30 s clock"
[[ $frames -ge 10 && $frames -lt 60 ]] || fail "$frames frames encoded in 3 s of a screen changing 5 times a second"
left=$(frame_pixel "$movie" 1.5 320 360)
right=$(frame_pixel "$movie" 1.5 960 360)
near "$left" "255 0 0" 40 || fail "the left of the screen is $left, not the red terminal"
near "$right" "0 0 255" 40 || fail "the right of the screen is $right, not the blue terminal"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "Wayland screen: 1280x720, 3 s on a 30 fps clock in $frames frames, red left and blue right where the terminals are"

# The portal's choice is remembered, and the next recording hands it back.
token_file=$HOME/.local/state/lumenvale/screencast-restore-token
[[ -s $token_file ]] || fail "no restore token was kept in $token_file"
token=$(cat "$token_file")
dbus-monitor --session "interface='org.freedesktop.portal.ScreenCast',member='SelectSources'" \
  >"$work/monitor.log" 2>&1 &
background_pids+=($!)
sleep 0.3
record --screen --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 0 ]] || fail "the second recording exited with $status: $err"
grep -q "\"$token\"" "$work/monitor.log" || fail "the kept token was not sent: $(cat "$work/monitor.log")"
pass "the restore token is kept and sent with the next choice of monitor"

# An area is cut from the monitor: 200x100 from (540, 310), across the terminals' edge
# at x = 640, so red on its left half and blue on its right.
record --area 540,310,200,100 --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 0 ]] || fail "the area recording exited with $status: $err"
size="$(stream_value "$out" v:0 width)x$(stream_value "$out" v:0 height)"
[[ $size == 200x100 ]] || fail "area size $size, not 200x100"
for x in 4 90; do near "$(frame_pixel "$out" 0.5 $x 50)" "255 0 0" 40 || fail "the area at x $x is not red"; done
for x in 110 194; do near "$(frame_pixel "$out" 0.5 $x 50)" "0 0 255" 40 || fail "the area at x $x is not blue"; done
pass "an area: its size, and the part of the screen it covers"

# A token the desktop no longer knows: asked afresh, and the new choice kept.
echo stale-token >"$token_file"
record --screen --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 0 ]] || fail "with a stale token the recording exited with $status: $err"
[[ -s $token_file && $(cat "$token_file") != stale-token ]] || fail "the stale token was kept"
pass "a stale restore token: a new choice, remembered"

# Only the rows the compositor says changed are taken anew: a terminal over the whole
# screen that writes 25 lines, one every 0.1 s, shows them all in the movie's last
# frame (a row left out of the changes would keep its old, blank picture).
foot --app-id=lines sh -c 'sleep 0.5; for i in $(seq 25); do echo "line $i of 25"; sleep 0.1; done; sleep 60' \
  >"$work/foot-lines.log" 2>&1 &
background_pids+=($!)
until_true 10 eval 'swaymsg -t get_tree | grep -q "\"app_id\": \"lines\""' || fail "the lines terminal did not open"
swaymsg '[app_id=lines] fullscreen enable' >/dev/null
record --screen --seconds 4 --no-countdown --no-system-audio --no-pointer --folder "$movies"
[[ $status -eq 0 ]] || fail "the lines recording exited with $status: $err"
end=$(echo "$(format_duration "$out") - 0.1" | bc -l)
lines=$(ffmpeg -v error -i "$out" -vf "fps=60,trim=start=$end,crop=300:720:0:0,format=gray" -frames:v 1 \
  -f rawvideo - | python3 -c "
import sys
data = sys.stdin.buffer.read()
bright = [max(data[row * 300:(row + 1) * 300]) > 128 for row in range(720)]
print(sum(1 for row in range(1, 720) if bright[row] and not bright[row - 1]) + bright[0])")
[[ $lines -ge 25 ]] || fail "the last frame shows $lines lines of text, not the 25 written"
pass "the rows that changed: all $lines lines of text in the last frame"
swaymsg '[app_id=lines] kill' >/dev/null

# A single window. The test desktop's backend shares monitors only: said before anything
# is asked, as is an X11 id, which names no Wayland window.
record --window pick --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 1 && "$err" == *"This desktop shares only whole screens, not single windows: record the screen or an area."* ]] ||
  fail "a window with a portal that shares monitors only: $status, $err"
record --window 0x400001 --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 1 && "$err" == *"On Wayland the desktop’s dialog picks the window: use --window pick."* ]] ||
  fail "an X11 id on Wayland: $status, $err"
[[ $(part_count) -eq 0 ]] || fail "a window that could not be recorded left a part file"
pass "a window where the portal shares monitors only, or named by an X11 id: one sentence each"

# A desktop that shares windows: the stand-in on a bus of its own, whose "window" is a
# green 642x481 picture on PipeWire. The movie has the window's size made even and
# shows it, the choice is kept apart from the monitor's and sent again, and the window
# closing ends the recording (exit 3) with the movie so far.
dbus-daemon --config-file="$work/bare-bus.conf" --nofork --print-address=3 3>"$work/window-bus" &
background_pids+=($!)
until_true 10 test -s "$work/window-bus" || fail "the window portal's bus did not start"
window_bus=$(head -n1 "$work/window-bus")
DBUS_SESSION_BUS_ADDRESS=$window_bus "$python" "$lib/portal_standin.py" --ready "$work/window.ready" \
  --window 642x481:20c040 >"$work/window-portal.log" 2>&1 &
background_pids+=($!)
until_true 10 test -e "$work/window.ready" || fail "the stand-in portal did not start: $(cat "$work/window-portal.log")"
DBUS_SESSION_BUS_ADDRESS=$window_bus record --window pick --seconds 1.5 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 0 ]] || fail "the window recording exited with $status: $err"
grep -qx "select types=2 cursor_mode=2 persist_mode=2 restore_token=" "$work/window-portal.log" ||
  fail "not asked for a window to remember: $(cat "$work/window-portal.log")"
size="$(stream_value "$out" v:0 width)x$(stream_value "$out" v:0 height)"
[[ $size == 642x480 ]] || fail "a window of 642x481 gave $size, not 642x480"
approx "$(format_duration "$out")" 1.5 0.3 || fail "duration $(format_duration "$out")"
for spot in "4 4" "637 475" "321 240"; do
  near "$(frame_pixel "$out" 0.7 $spot)" "32 192 64" 40 || fail "the window's movie at ($spot) is $(frame_pixel "$out" 0.7 $spot)"
done
[[ $(cat "$HOME/.local/state/lumenvale/screencast-window-restore-token") == window-token-1 ]] ||
  fail "the window's choice was not kept apart"
pass "a window picked in the desktop's dialog: $size, all of it the window, its choice kept"

# standin METHOD [ARGS...]: calls the stand-in's test method.
standin() {
  DBUS_SESSION_BUS_ADDRESS=$window_bus dbus-send --session --type=method_call --print-reply \
    --dest=org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop "app.lumenvale.Test.$@" >/dev/null
}

# A portal that cannot draw the pointer in is asked to describe it (Lumenvale draws
# it), unless the pointer is not wanted.
standin SetCursorModes uint32:5
for flag in "" --no-pointer; do
  DBUS_SESSION_BUS_ADDRESS=$window_bus record --window pick --seconds 1 --no-countdown --no-system-audio $flag --folder "$movies"
  [[ $status -eq 0 ]] || fail "with cursor modes hidden and metadata: $status, $err"
done
[[ $(grep '^select ' "$work/window-portal.log" | tail -n2 | grep -o 'cursor_mode=[0-9]' | xargs) == "cursor_mode=4 cursor_mode=1" ]] ||
  fail "the cursor modes asked for: $(cat "$work/window-portal.log")"
standin SetCursorModes uint32:3
pass "a portal that only describes the pointer is asked to, when the pointer is wanted"

# The choice cancelled: one sentence, no part file.
standin CancelNextChoice
DBUS_SESSION_BUS_ADDRESS=$window_bus record --window pick --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -eq 1 && "$err" == *"Couldn’t start recording. No window was picked, or the desktop did not allow recording it."* ]] ||
  fail "a cancelled window choice: $status, $err"
[[ $(part_count) -eq 0 && -z "$out" ]] || fail "a cancelled window choice left a part file or a movie"
pass "a cancelled window choice: one sentence, no part file"

# The window is picked before the countdown: a recording cancelled during it has asked.
DBUS_SESSION_BUS_ADDRESS=$window_bus "$LUMENVALE" record --window pick --no-system-audio \
  --folder "$movies" >"$work/out" 2>"$work/err" &
recorder=$!
until_true 10 grep -q "3…" "$work/err" || fail "no countdown: $(cat "$work/err")"
[[ $(grep -c '^select ' "$work/window-portal.log") -eq 5 ]] || fail "the window was not picked before the countdown"
kill -INT "$recorder"
finish_background
[[ $status -eq 1 && "$err" == *"Recording cancelled."* && -z "$out" && $(part_count) -eq 0 ]] ||
  fail "cancelled in the countdown: $status, '$out', $err"
pass "the window is picked before the countdown"

DBUS_SESSION_BUS_ADDRESS=$window_bus record_in_background --window pick --no-countdown --no-system-audio --folder "$movies"
sleep 2
standin CloseWindow
finish_background
[[ $(grep '^select ' "$work/window-portal.log" | tail -n1) == *" restore_token=window-token-4" ]] ||
  fail "the kept choice was not sent again: $(cat "$work/window-portal.log")"
[[ $status -eq 3 && "$err" == *"Recording stopped. The window closed."* ]] ||
  fail "a recording whose window closed exited $status: $err"
approx "$(format_duration "$out")" 2 0.6 || fail "$(format_duration "$out") s kept of about 2 s"
[[ $(part_count) -eq 0 ]] || fail "parts left behind after the window closed"
pass "the kept window choice sent again; the window closing ends the recording with its movie"

# PipeWire killed mid-recording: the recording ends by itself (exit 3) with a sentence,
# and what was recorded until then is saved, decodable, with no part left. PipeWire is
# started again for what follows.
record_in_background --screen --no-countdown --no-system-audio --folder "$movies"
sleep 2
kill -KILL "$LUMENVALE_SESSION_PIPEWIRE_PID"
finish_background
[[ $status -eq 3 ]] || fail "a recording whose PipeWire was killed exited $status, not 3: $err"
grep -qx "Recording stopped. PipeWire, which carries the screen’s picture, stopped." <<<"$err" ||
  fail "PipeWire's end was not said: $err"
[[ -f "$out" ]] && ffmpeg -v error -xerror -i "$out" -f null - || fail "no decodable movie: '$out'"
approx "$(format_duration "$out")" 2 0.5 || fail "$(format_duration "$out") s kept of about 2 s"
[[ $(part_count) -eq 0 ]] || fail "parts left behind after PipeWire went away"
pass "PipeWire killed: $(format_duration "$out") s saved, and: ${err##*Recording stopped. }"
pipewire >"$work/pipewire.log" 2>&1 &
background_pids+=($!)
until_true 10 timeout 2 pw-cli info 0 >/dev/null 2>&1 || fail "PipeWire did not start again"

# The choice refused (a chooser that picks nothing, as when the user cancels): one
# sentence, and no part file. The backend is replaced for this, so it comes last.
rm -f "$token_file"
printf '[screencast]\nchooser_type=simple\nchooser_cmd=false\n' >"$work/refusing.conf"
/usr/libexec/xdg-desktop-portal-wlr --replace --config "$work/refusing.conf" >"$work/refusing.log" 2>&1 &
background_pids+=($!)
for _ in $(seq 200); do
  busctl --user status org.freedesktop.impl.portal.desktop.wlr 2>/dev/null | grep -q "^PID=$!$" && break
  sleep 0.05
done
busctl --user status org.freedesktop.impl.portal.desktop.wlr | grep -q "^PID=$!$" ||
  fail "the refusing backend did not take over: $(cat "$work/refusing.log")"
record --screen --seconds 1 --no-countdown --no-system-audio --folder "$movies"
[[ $status -ne 0 ]] || fail "a refused choice still recorded"
[[ "$err" == *"The desktop did not allow recording the screen."* ]] || fail "the refusal was not said: $err"
[[ $(part_count) -eq 0 ]] || fail "a refused recording left a part file"
pass "a refused choice: one sentence, no part file"
