#!/usr/bin/env bash
# Lumenvale as the desktop meets it. A panel (lib/tray.py: a StatusNotifierWatcher and
# host) reads and clicks the tray icon's menu over dbusmenu; the windows are used as a
# screen reader's user does (lib/atspi.py: names and states over AT-SPI, controls
# pressed through their accessible actions, keys from xdotool into the focused field).
#   - First launch: exactly one tray item, the idle menu's rows in order with their
#     enablement, and the welcome window; "Get Started" closes it and stores that it
#     was shown; Quit in the menu ends the application with 0; a relaunch shows no
#     welcome.
#   - A second launch while one runs ends with 0 and registers no second item.
#   - Shortcut field: Ctrl+Alt+Shift+R typed into "Record Screen shortcut" is stored,
#     shown in the tray menu and grabbed; with the countdown turned off in the Video
#     tab, pressing it records the screen (the menu shows the recording's rows) and
#     pressing it again saves a movie as long as the recording was.
#   - A combination another action holds is refused with a note naming the action; one
#     another X client holds is stored and marked "In use by another app".
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

export APP_STORE=$movies
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
settings_file=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf
welcome="Welcome to Lumenvale"
settings="Lumenvale Settings"

# launch: starts the tray application in the background; sets $app.
launch() {
  "$LUMENVALE" >>"$work/app.out" 2>>"$work/app.err" &
  app=$!
  background_pids+=("$app")
}

gone() { ! kill -0 "$1" 2>/dev/null; }

# ended_with SECONDS PID: waits for the background process to end; sets $status.
ended_with() {
  until_true "$1" gone "$2" ||
    fail "the application did not end within $1 s of Quit: $(tail -n 5 "$work/app.err")"
  set +e
  wait "$2"
  status=$?
  set -e
}

# stored KEY [FIELD]: the value under KEY in the settings file (a JSON value decoded
# and printed back with sorted keys; with FIELD, that member of it); empty when absent.
stored() {
  "$python" - "$settings_file" "$@" <<'PY'
import configparser, json, sys
ini = configparser.RawConfigParser()
ini.optionxform = str
ini.read(sys.argv[1])
raw = ini.get("General", sys.argv[2], fallback=None)
if raw is not None:
    value = json.loads(raw)  # QSettings quotes strings as JSON does
    if isinstance(value, str):
        value = json.loads(value)
    if len(sys.argv) > 3:
        value = value.get(sys.argv[3])
    print(json.dumps(value, sort_keys=True))
PY
}

# expect_stored KEY [FIELD] VALUE
expect_stored() {
  local want=${*: -1} got
  got=$(stored "${@:1:$#-1}")
  [[ $got == "$want" ]] ||
    fail "expected ${*:1:$#-1} stored as $want, saw '$got' in: $(cat "$settings_file")"
}

registrations() { grep -c '^registered ' "$work/watcher.log" || true; }

# The process that owns a bus name.
bus_owner_pid() {
  dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetConnectionUnixProcessID "string:${1%%/*}" | awk '{ print $2 }'
}

# hold_grab KEYCODE MODIFIERS: another X client grabs the key with exactly these X
# modifiers on the root window and holds it until the script ends.
hold_grab() {
  "$python" "$lib/xgrab.py" hold "$1" "$2" "$work/grab.ready" &
  background_pids+=($!)
  until_true 10 test -e "$work/grab.ready" || fail "the other X client could not grab $1/$2"
}

# menu_rows RECORD EDIT_LAST [SCREEN_SHORTCUT]: the tray menu's rows below the header,
# the record rows and Edit Last in the states given ("enabled" or "disabled"), Record
# Screen with its shortcut column.
menu_rows() {
  local record=$1 edit_last=$2 screen_shortcut=${3:+ | $3}
  cat <<ROWS
Record Screen | $record$screen_shortcut
Record Area | $record
Record Window | $record
---
Edit Last Recording… | $edit_last
Open Recording… | enabled
---
Check for Updates… | enabled
About Lumenvale | enabled
Settings… | enabled | Control+,
Quit Lumenvale | enabled | Control+Q
ROWS
}

# --- the desktop: accessibility bus and panel ----------------------------------------
start_desktop_watchers

# --- first launch ------------------------------------------------------------------
launch
item=$(tray items --count 1 --timeout 20) || fail "the first launch registered no tray item"
[[ $(bus_owner_pid "$item") == "$app" ]] ||
  fail "expected the tray item $item to be the application's (pid $app), saw pid $(bus_owner_pid "$item")"
ui exists --window "$welcome" --timeout 20 || fail "the first launch showed no welcome window"
[[ $(registrations) -eq 1 && $(tray items) == "$item" ]] ||
  fail "expected exactly one tray item, saw: $(cat "$work/watcher.log")"
menu_rows enabled disabled | tray menu --expect >/dev/null || fail "the idle tray menu"
pass "first launch: one tray item with the idle menu's rows, and the welcome window"

ui press --window "$welcome" --role "push button" "Get Started" || fail "pressing Get Started"
ui absent --window "$welcome" || fail "Get Started left the welcome window open"
expect_stored welcome.shown true
tray click "Quit Lumenvale" || fail "clicking Quit"
ended_with 10 "$app"
[[ $status -eq 0 ]] ||
  fail "Quit ended the application with $status, expected 0: $(cat "$work/app.err")"
tray items --count 0 >/dev/null || fail "the tray item outlived the application"
pass "Get Started closes the welcome window for good; Quit ends the application with 0"

launch
item=$(tray items --count 1 --timeout 20) || fail "the relaunch registered no tray item"
tray click "Settings…" || fail "clicking Settings…"
ui exists --window "$settings" || fail "Settings… showed no settings window"
# Welcome shows while launching, before the menu's click is handled: by now it would show.
ui absent --window "$welcome" --timeout 0 || fail "the relaunch showed the welcome window again"
pass "a relaunch shows no welcome window"

# --- a second launch ---------------------------------------------------------------
set +e
timeout 20 "$LUMENVALE" >"$work/second.out" 2>"$work/second.err"
status=$?
set -e
[[ $status -eq 0 ]] ||
  fail "a second launch exited $status, expected 0: $(cat "$work/second.err")"
kill -0 "$app" 2>/dev/null || fail "the running application ended on a second launch"
[[ $(tray items) == "$item" && $(registrations) -eq 2 ]] ||
  fail "expected the one item $item, registered once per tray launch, saw: $(cat "$work/watcher.log")"
pass "a second launch ends with 0 and registers no second tray item"

# --- the shortcut field and the global shortcut ---------------------------------------
countdown="Count down 3, 2, 1 before recording"
ui press --window "$settings" --role "page tab" Video || fail "selecting the Video tab"
ui state "$countdown" checked --expect yes || fail "the countdown is on by default"
ui press "$countdown" || fail "pressing the countdown box"
ui state "$countdown" checked --expect no || fail "the countdown box did not clear"
expect_stored options countdown false

field="Record Screen shortcut"
ui press --window "$settings" --role "page tab" Shortcuts || fail "selecting the Shortcuts tab"
ui read "$field" --field description --expect "Record Shortcut" || fail "the field before recording"
ui press "$field" || fail "pressing $field"
ui read "$field" --field description --expect "Type Shortcut…" ||
  fail "the field did not start recording"
ui keys --to "$field" ctrl+alt+shift+r || fail "typing the shortcut"
ui read "$field" --field description --expect "Ctrl+Alt+Shift+R" ||
  fail "the field did not take the shortcut"
# R is stored as key 15, with Ctrl (1) + Alt (2) + Shift (4).
expect_stored hotkey.screen '{"keyCode": 15, "mods": 7}'
menu_rows enabled disabled Control+Alt+Shift+R | tray menu --expect >/dev/null ||
  fail "the tray menu does not show the new shortcut"
ui keys --window "$settings" ctrl+w || fail "Ctrl+W to the settings window"
ui absent --window "$settings" || fail "Ctrl+W left the settings window open"
# X key code 27 (R) with Shift (1), Control (4) and Mod1 (8).
wait_for_grab 27 13 || fail "Ctrl+Alt+Shift+R was not grabbed: $(cat "$work/app.err")"
pass "the shortcut typed into its field is stored, shown in the tray menu and grabbed"

xdotool key ctrl+alt+shift+r
until_true 10 recording || fail "the shortcut started no recording: $(cat "$work/app.err")"
started=$(date +%s.%N)
{
  printf '%s\n' "Recording [0-9][0-9]:[0-9][0-9] | disabled" "Stop | enabled" "---"
  menu_rows disabled disabled Control+Alt+Shift+R
} | tray menu --expect >/dev/null || fail "the tray menu while recording"
sleep 2
xdotool key ctrl+alt+shift+r
stopped=$(date +%s.%N)
movie_saved() {
  movie=$(find "$movies" -maxdepth 1 -name 'Lumenvale Recording *.mp4' | head -n1)
  [[ -n $movie && $(part_count) -eq 0 ]]
}
until_true 20 movie_saved || fail "the second press saved no movie: $(cat "$work/app.err")"
expected=$(echo "$stopped - $started" | bc)
approx "$(format_duration "$movie")" "$expected" 0.6 ||
  fail "expected the movie to last about $expected s, saw $(format_duration "$movie") s"
errors=$(ffmpeg -v error -i "$movie" -f null - 2>&1) || fail "the movie does not decode: $errors"
[[ -z $errors ]] || fail "decoding the movie reported: $errors"
menu_rows enabled enabled Control+Alt+Shift+R | tray menu --expect >/dev/null ||
  fail "the tray menu after the recording"
pass "the shortcut records the screen and saves a movie of $(format_duration "$movie") s"

# --- combinations in use -----------------------------------------------------------
# The other client holds Ctrl+Alt+A with Num Lock on only, as an application that grabs
# just the lock state it found does: typed with Num Lock off the combination still
# reaches the field, and Lumenvale, which grabs every lock state, cannot have them all.
# X key code 38 (A) with Control (4), Mod1 (8) and Num Lock's Mod2 (16).
hold_grab 38 28
field="Record Area shortcut"
tray click "Settings…" || fail "clicking Settings…"
ui press --window "$settings" --role "page tab" Shortcuts || fail "selecting the Shortcuts tab"
ui press "$field" || fail "pressing $field"
ui keys --to "$field" ctrl+alt+a || fail "typing Ctrl+Alt+A"
ui read "$field" --field description --expect "Ctrl+Alt+A" ||
  fail "the field did not take Ctrl+Alt+A"
ui read "$field" --following label --expect "In use by another app" ||
  fail "Ctrl+Alt+A, which another X client holds (with Num Lock), is not marked in use"
expect_stored hotkey.area '{"keyCode": 0, "mods": 3}'
# Record Screen's grab succeeded: its field has no caption, the next row's label follows.
ui read "Record Screen shortcut" --following label --expect "Record Area:" ||
  fail "Record Screen's field has a caption"
pass "a combination another X client holds is stored and marked in use"

field="Record Window shortcut"
ui press "$field" || fail "pressing $field"
ui keys --to "$field" ctrl+alt+shift+r || fail "typing Record Screen's shortcut"
ui read "$field" --following label --expect 'Used by “Record Screen”' ||
  fail "no note that Record Screen holds the combination"
ui read "$field" --field description --expect "Type Shortcut…" ||
  fail "the refused combination ended recording"
ui keys --to "$field" Escape || fail "pressing Escape"
ui read "$field" --field description --expect "Record Shortcut" ||
  fail "Escape did not end recording"
[[ -z $(stored hotkey.window) ]] ||
  fail "expected no Record Window shortcut stored, saw $(stored hotkey.window)"
expect_stored hotkey.screen '{"keyCode": 15, "mods": 7}'
pass "a combination another action holds is refused with a note naming the action"
