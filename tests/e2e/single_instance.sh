#!/usr/bin/env bash
# One Lumenvale per session. The tray application owns the bus name of its id; a
# later launch hands its request to it over D-Bus and ends: `lumenvale screen` and
# `lumenvale stop` record in the running one, `lumenvale FILE...` opens the movies
# there (relative paths from the launch's own folder; files that are no movie get a
# notice). A running one that does not answer is reported, and of two launches at
# once one stays.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

export APP_STORE=$work/store
id=app.lumenvale.Lumenvale
tray_err=$work/tray.err

# The process id of the name's owner, or nothing when no one owns it.
owner() {
  dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetConnectionUnixProcessID "string:$id" 2>/dev/null | awk '{ print $2 }'
}

# launch ARGS...: runs a launch of lumenvale to its end; sets $status and $err.
launch() {
  set +e
  "$LUMENVALE" "$@" >"$work/out" 2>"$work/err"
  status=$?
  set -e
  err=$(cat "$work/err")
}

# wait_for DESCRIPTION COMMAND...: polls COMMAND for up to 20 s.
wait_for() {
  local what=$1
  shift
  for _ in $(seq 400); do
    "$@" && return 0
    sleep 0.05
  done
  fail "$what; the application said: $(cat "$tray_err")"
}

owned_by() { [[ "$(owner)" == "$1" ]]; }
owned() { [[ -n "$(owner)" ]]; }
parts_are() { [[ $(part_count) -eq $1 ]]; }
tray_says() { grep -qF -- "$1" "$tray_err"; }
movie_saved() { [[ -n "$(find "$APP_STORE" -maxdepth 1 -name '[!.]*.mp4')" ]] && [[ $(part_count) -eq 0 ]]; }

# An action with no Lumenvale running starts the application, which runs it.
"$LUMENVALE" screen >/dev/null 2>"$tray_err" &
tray=$!
background_pids+=($tray)
wait_for "the application never owned $id" owned_by "$tray"
wait_for "lumenvale screen started no recording" parts_are 1
pass "lumenvale screen without a running Lumenvale starts it recording"

launch
[[ $status -eq 0 ]] || fail "a second launch exited $status: $err"
[[ "$(owner)" == "$tray" ]] && kill -0 "$tray" || fail "the first application lost its name"
[[ $(part_count) -eq 1 ]] || fail "a second launch changed the recording: $(part_count) parts"
pass "a second launch ends at once with 0 and leaves the running one"

sleep 1
launch stop
[[ $status -eq 0 ]] || fail "lumenvale stop exited $status: $err"
wait_for "lumenvale stop saved no movie" movie_saved
movie=$(find "$APP_STORE" -maxdepth 1 -name '[!.]*.mp4')
decode_errors=$(ffmpeg -v error -i "$movie" -f null - 2>&1) || fail "the movie does not decode"
[[ -z $decode_errors ]] || fail "decoding the movie: $decode_errors"
approx "$(format_duration "$movie")" 1 0.6 || fail "the movie lasts $(format_duration "$movie") s"
pass "lumenvale stop saves the running application's recording"

pushd "$APP_STORE" >/dev/null
launch "$(basename "$movie")"
popd >/dev/null
[[ $status -eq 0 ]] || fail "opening a movie exited $status: $err"
editor_shows() { [[ -n "$(xdotool search --onlyvisible --name "^$(basename "$movie" .mp4)\$")" ]]; }
wait_for "the movie did not reach the editor" editor_shows
echo "not a movie" >"$work/notes.txt"
launch "$work/missing.mp4" "$work/notes.txt"
[[ $status -eq 0 ]] || fail "opening two files exited $status: $err"
wait_for "no notice for the missing file" tray_says "Couldn’t open missing.mp4. "
wait_for "no notice for the text file" tray_says "Couldn’t open notes.txt. "
pass "lumenvale FILE... opens each file in the running application, with notices for the unopenable"

kill -STOP "$tray"
launch stop
kill -CONT "$tray"
[[ $status -ne 0 ]] || fail "a launch that got no answer exited 0"
[[ "$err" == *"did not answer"* ]] || fail "no word about the missing answer: $err"
pass "a running Lumenvale that does not answer is reported: $err"

kill "$tray"
wait "$tray" || true
"$LUMENVALE" 2>"$work/first.err" &
first=$!
"$LUMENVALE" 2>"$work/second.err" &
second=$!
background_pids+=($first $second)
wait_for "neither launch owns $id" owned
winner=$(owner)
[[ $winner == "$first" || $winner == "$second" ]] || fail "$id is owned by $winner"
loser=$((first + second - winner))
set +e
wait "$loser"
status=$?
set -e
[[ $status -eq 0 ]] || fail "the launch that lost the race exited $status: $(cat "$work/first.err" "$work/second.err")"
kill -0 "$winner" || fail "the launch that owns $id ended"
pass "of two launches at once, one stays and the other ends with 0"
