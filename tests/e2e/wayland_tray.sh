#!/usr/bin/env bash
# The tray application on a Wayland desktop (sway with XWayland; the screen recorded
# through the desktop portal, which cannot leave Lumenvale's windows out):
#   - it starts on XWayland, and the panel reads its tray menu over dbusmenu;
#   - Record Screen from the menu, Stop from the menu's header: a movie in which no
#     panel shows (the countdown at the display's middle and the control at its top
#     have the desktop's colour in every frame looked at: with no other display, the
#     control hides while recording);
#   - an area reaching the display's top: the control shows just under it, out of the
#     movie, and its Stop works;
#   - `lumenvale screen` and `lumenvale stop` from a shell record in the running one,
#     and the card the area's movie left up is not in the movie; `lumenvale window`
#     says that this desktop shares whole screens only;
#     `lumenvale record --clicks` records, saying the click rings are left out;
#   - Settings (an XWayland window): "Show clicks" off, with why, and pressing it does
#     nothing, though "on" is stored; the portal offers no GlobalShortcuts, so the
#     Shortcuts tab gives the commands to bind in a read-only text field;
#   - without XWayland it runs on Qt's Wayland platform, with its tray menu;
#   - where a portal offers GlobalShortcuts (a stand-in on a bus of its own, since
#     Debian 12's has none), the stored shortcut is bound with its combination as the
#     preferred trigger, and its activation runs the action;
#   - where a portal shares windows (the stand-in again), `lumenvale window` records
#     the window it picks, with the control showing.
set -euo pipefail
export LUMENVALE_XWAYLAND=1
e2e_session=wayland_session.sh
source "$(dirname "$0")/lib/common.bash"

export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 APP_STORE=$movies
settings_file=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf
settings="Lumenvale Settings"
[[ -n ${DISPLAY:-} ]] || fail "the session started no XWayland"

# One terminal of one colour fills the display; it blinks a dot in its first cell, since
# sway copies the screen only when it draws it anew.
foot --app-id=desk --override=colors.background=2060c0 --override=cursor.color="2060c0 2060c0" \
  sh -c 'while :; do printf ".\b"; sleep 0.2; printf " \b"; sleep 0.2; done' \
  >"$work/foot.log" 2>&1 &
background_pids+=($!)
until_true 10 eval 'swaymsg -t get_tree | grep -q "\"app_id\": \"desk\""' ||
  fail "the terminal did not open: $(cat "$work/foot.log")"

# start_app NAME [PREFIX...]: starts the application (through PREFIX, e.g. env) as $app,
# its output in $work/NAME.out and .err, and waits for its tray item and menu.
start_app() {
  "${@:2}" "$LUMENVALE" >"$work/$1.out" 2>"$work/$1.err" &
  app=$!
  background_pids+=("$app")
  tray items --count 1 --timeout 20 >/dev/null ||
    fail "$1: no tray item was registered: $(cat "$work/$1.err")"
  menu=$(tray menu) || fail "reading the tray menu"
  grep -qx "Record Screen | enabled" <<<"$menu" || fail "$1: the tray menu: $menu"
}
# quit_app: Quit from the tray menu ends $app.
quit_app() {
  tray click "Quit Lumenvale" || fail "clicking Quit"
  until_true 10 eval '! kill -0 "$app" 2>/dev/null' || fail "Quit did not end the application"
}
# no_panels MOVIE [PLACE...]: at the control's place (the top middle), the countdown's
# (the middle) and each "X Y" given, the first, middle and last frames show the desktop
# as it is elsewhere.
no_panels() {
  local duration desk at place seen
  duration=$(format_duration "$1")
  local -a places=("640 26" "600 26" "680 26" "640 360" "600 330" "${@:2}")
  for at in 0 $(awk -v d="$duration" 'BEGIN { printf "%.2f %.2f", d / 2, d - 0.1 }'); do
    desk=$(frame_pixel "$1" "$at" 200 600)
    near "$desk" "32 96 192" 40 || fail "the desktop is $desk at $at s, not the terminal's colour"
    for place in "${places[@]}"; do
      seen=$(frame_pixel "$1" "$at" $place)
      near "$seen" "$desk" || fail "a panel shows at ($place) at $at s: $seen, the desktop $desk"
    done
  done
}

# --- the tray application on XWayland ---------------------------------------------
start_desktop_watchers
# Click rings stored on: a Wayland desktop cannot show them, so they count as off. (No
# system audio: this session runs no PulseAudio server.)
printf '[General]\nwelcome.shown=true\noptions="{\\"showsClicks\\": true, \\"systemAudio\\": false}"\n' \
  >"$settings_file"
start_app app
pass "the tray application runs on the Wayland desktop with its menu over dbusmenu"

# --- a screen recording from the menu, stopped from the header --------------------
tray click "Record Screen" || fail "clicking Record Screen"
until_true 15 recording || fail "the menu started no recording: $(cat "$work/app.err")"
menu=$(tray menu) || fail "reading the tray menu"
grep -qx "Stop | enabled" <<<"$menu" || fail "the menu while recording: $menu"
sleep 2
tray click "Stop" || fail "clicking the header's Stop"
until_true 20 eval '[[ $(movie_count) -eq 1 && $(part_count) -eq 0 ]]' ||
  fail "Stop saved no movie: $(cat "$work/app.err")"
movie=$(find "$movies" -maxdepth 1 -name '*.mp4')
approx "$(format_duration "$movie")" 2.2 0.8 || fail "the movie lasts $(format_duration "$movie") s"
no_panels "$movie"
pass "a screen recording from the menu, stopped in its header: no panel in the movie"

# --- an area at the top: the control goes under it, clear of the movie ---------------
control="Recording control"
"$LUMENVALE" area
ui exists --window "Choose an area to record" --timeout 15 || fail "Record Area showed no picker"
xdotool mousemove 440 0 mousedown 1 mousemove 600 100 mousemove 840 300 sleep 0.2 mouseup 1
ui exists --window "$control" Stop --timeout 15 || fail "no control while recording the area"
eval "$(xdotool search --name "^$control\$" getwindowgeometry --shell | tail -n 5)"
((Y == 308 && X + WIDTH / 2 >= 639 && X + WIDTH / 2 <= 641)) ||
  fail "the control is at $X,$Y (${WIDTH}x$HEIGHT), not 8 points under the area at (440,0 400x300)"
sleep 1.5
ui press --window "$control" Stop || fail "pressing the control's Stop"
until_true 20 eval '[[ $(movie_count) -eq 2 && $(part_count) -eq 0 ]]' ||
  fail "the control's Stop saved no movie: $(cat "$work/app.err")"
movie=$(ls -t "$movies"/*.mp4 | head -n1)
size="$(stream_value "$movie" v:0 width)x$(stream_value "$movie" v:0 height)"
[[ $size == 400x300 ]] || fail "a 400×300 drag gave a $size movie"
for at in 0.2 1; do
  for place in "200 26" "200 150" "200 290"; do
    seen=$(frame_pixel "$movie" "$at" $place)
    near "$seen" "32 96 192" 40 || fail "the area movie shows $seen at ($place) at $at s"
  done
done
pass "an area reaching the top: the control shows just under it, and the movie is only the desktop"

# --- the commands from a shell -------------------------------------------------------
# The area movie's card is up (for 8 s) as this recording starts.
ui exists --window "Recording saved" --timeout 1 || fail "no card after the area recording"
"$LUMENVALE" screen || fail "lumenvale screen exited with $?"
until_true 15 recording || fail "lumenvale screen started no recording: $(cat "$work/app.err")"
sleep 1.5
"$LUMENVALE" stop || fail "lumenvale stop exited with $?"
until_true 20 eval '[[ $(movie_count) -eq 3 && $(part_count) -eq 0 ]]' ||
  fail "lumenvale stop saved no movie: $(cat "$work/app.err")"
kill -0 "$app" || fail "the application ended"
movie=$(ls -t "$movies"/*.mp4 | head -n1)
no_panels "$movie" "1240 680" "1000 677"
pass "lumenvale screen and lumenvale stop record in the running application, with no card in the movie"

# A window recording: the desktop's dialog would pick the window, and this portal
# shares whole screens only: said at once, with no picker of Lumenvale's own.
"$LUMENVALE" window || fail "lumenvale window exited with $?"
notice="Couldn’t start recording. This desktop shares only whole screens, not single windows: record the screen or an area."
ui exists --window Notice "$notice" --timeout 15 || fail "no notice for a window: $(cat "$work/app.err")"
ui absent --window "Choose a window to record" --timeout 1 || fail "Lumenvale's own window picker opened"
[[ $(part_count) -eq 0 ]] || fail "a window recording began"
pass "lumenvale window on a desktop that shares whole screens only: “$notice”"

# The command line's --clicks: said to be left out, and the recording made all the same.
record --screen --seconds 1 --clicks --no-countdown --no-system-audio --folder "$work/cli"
[[ $status -eq 0 && -f $out ]] || fail "record --clicks exited with $status: $err"
[[ $err == *"Recording without click rings: Wayland doesn’t let applications see clicks in other windows."* ]] ||
  fail "record --clicks did not say the rings are left out: $err"
pass "record --clicks on Wayland: recorded, saying the click rings are left out"

# --- Settings: no click rings, the commands to bind ---------------------------------
tray click "Settings…" || fail "clicking Settings…"
ui exists --window "$settings" --timeout 20 || fail "Settings… opened no window"
xdotool search --name "^$settings\$" >/dev/null || fail "the Settings window is not on XWayland"
ui press --window "$settings" --role "page tab" Video || fail "selecting the Video tab"
ui state "Show clicks" checked --expect no || fail "click rings show as on"
ui exists "Wayland doesn’t let applications see clicks in other windows." ||
  fail "no word on why there are no click rings"
ui read "Show clicks" --field description \
  --expect "Wayland doesn’t let applications see clicks in other windows." ||
  fail "the box does not say why it is off"
ui press "Show clicks" || fail "pressing Show clicks"
sleep 0.5
ui state "Show clicks" checked --expect no || fail "click rings could be turned on"
ui press --window "$settings" --role "page tab" Shortcuts || fail "selecting the Shortcuts tab"
ui exists "This desktop doesn’t let applications set global shortcuts. Bind these in your desktop’s keyboard settings:" ||
  fail "the commands are not introduced"
# One command a paragraph (Qt's text gives U+2029 between paragraphs).
ui read "Commands to bind" --field text \
  --expect $'lumenvale screen\u2029lumenvale area\u2029lumenvale window\u2029lumenvale stop' ||
  fail "the commands to bind"
ui absent "Record Screen shortcut" --timeout 1 || fail "a shortcut field that would never work"
quit_app
pass "Settings on XWayland: click rings off with why; the commands to bind in the desktop"

# --- without XWayland: Qt's Wayland platform --------------------------------------
start_app native env -u DISPLAY
quit_app
pass "without XWayland: the application runs on Qt's Wayland platform, with its tray menu"

# --- a portal with GlobalShortcuts -------------------------------------------------
# The stand-in and a Lumenvale on a bus of their own; the stored Ctrl+Alt+Shift+R (R is
# key 15, with Ctrl 1 + Alt 2 + Shift 4) is to be bound as the preferred trigger.
printf '[General]\nwelcome.shown=true\nhotkey.screen="{\\"keyCode\\": 15, \\"mods\\": 7}"\n' \
  >"$settings_file"
cat >"$work/bus.conf" <<CONF
<busconfig><type>session</type><listen>unix:dir=$work</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>
CONF
cat >"$work/portal-bus.sh" <<'RUN'
"$python" "$lib/portal_standin.py" --shortcuts --ready "$work/portal.ready" >"$work/portal.log" 2>&1 &
portal=$!
until_true 10 test -e "$work/portal.ready" || fail "the stand-in portal did not start"
"$LUMENVALE" >"$work/shortcuts-app.out" 2>"$work/shortcuts-app.err" &
app=$!
trap 'kill "$app" "$portal" 2>/dev/null || true' EXIT
until_true 20 grep -q '^bound ' "$work/portal.log" ||
  fail "nothing was bound: $(cat "$work/portal.log" "$work/shortcuts-app.err")"
bound=$(grep '^bound ' "$work/portal.log" | tail -n1)
[[ $bound == "bound screen=CTRL+ALT+SHIFT+r" ]] || fail "bound: $bound"
dbus-send --session --type=method_call --print-reply --dest=org.freedesktop.portal.Desktop \
  /org/freedesktop/portal/desktop \
  app.lumenvale.Test.Press string:screen >/dev/null
# The screen action runs: this bus has no ScreenCast, which the recording then says.
until_true 20 grep -q "Couldn’t start recording" "$work/shortcuts-app.err" ||
  fail "the activated shortcut ran no recording: $(cat "$work/portal.log" "$work/shortcuts-app.err")"
RUN
export python lib work LUMENVALE
export -f fail until_true
dbus-run-session --config-file="$work/bus.conf" -- bash -euo pipefail "$work/portal-bus.sh" ||
  fail "with the GlobalShortcuts portal"
pass "GlobalShortcuts: bound with the stored combination as preferred trigger; activation records"

# --- a portal that shares windows -----------------------------------------------------
# The stand-in's ScreenCast (its "window" a green 642x481 picture on PipeWire) and a
# Lumenvale on a bus of their own: `lumenvale window` has the desktop's dialog pick the
# window, and records it with the control showing, since a window's own picture never
# holds the panels; `lumenvale stop` saves a movie of the window's size.
cat >"$work/window-bus.sh" <<'RUN'
"$python" "$lib/portal_standin.py" --window 642x481:20c040 --ready "$work/window.ready" \
  >"$work/window-portal.log" 2>&1 &
portal=$!
until_true 10 test -e "$work/window.ready" || fail "the stand-in portal did not start"
"$LUMENVALE" >"$work/window-app.out" 2>"$work/window-app.err" &
app=$!
trap 'kill "$app" "$portal" 2>/dev/null || true' EXIT
sleep 2 # the application starts
before=$(find "$movies" -maxdepth 1 -name '*.mp4' | wc -l)
"$LUMENVALE" window
until_true 15 eval '[[ -n $(find "$TMPDIR" -maxdepth 1 -name "Lumenvale-*.mp4") ]]' ||
  fail "lumenvale window started no recording: $(cat "$work/window-portal.log" "$work/window-app.err")"
grep -q '^select types=2 ' "$work/window-portal.log" || fail "no window was asked for: $(cat "$work/window-portal.log")"
until_true 5 eval '[[ -n $(xdotool search --onlyvisible --name "^Recording control\$") ]]' ||
  fail "no control while recording the window"
sleep 1.5
"$LUMENVALE" stop
until_true 20 eval '[[ $(find "$movies" -maxdepth 1 -name "*.mp4" | wc -l) -gt $before ]]' ||
  fail "lumenvale stop saved no movie: $(cat "$work/window-app.err")"
movie=$(ls -t "$movies"/*.mp4 | head -n1)
size=$(ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=s=x:p=0 "$movie")
[[ $size == 642x480 ]] || fail "the window's movie is $size, not 642x480"
RUN
export TMPDIR movies
dbus-run-session --config-file="$work/bus.conf" -- bash -euo pipefail "$work/window-bus.sh" ||
  fail "with a portal that shares windows"
pass "a window picked in the desktop's dialog from the running application: recorded with the control showing"
