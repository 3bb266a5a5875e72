#!/usr/bin/env bash
# The command line itself: malformed commands, starts that cannot happen, a folder
# whose name is not UTF-8 (named over APP_STORE), the self-test's refusal, and a stop during the countdown.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

expect_usage() {
  local expected=$1
  shift
  set +e
  "$LUMENVALE" "$@" >"$work/out" 2>"$work/err"
  local code=$?
  set -e
  [[ $code -eq 2 ]] || fail "'$*' exited $code, not 2"
  grep -qF -- "$expected" "$work/err" || fail "'$*' did not say '$expected': $(cat "$work/err")"
  grep -q "Usage:" "$work/err" || fail "'$*' printed no usage"
  [[ ! -s "$work/out" ]] || fail "'$*' printed on standard output"
}
expect_usage "--fps takes a whole number from 1 to 120" record --fps 0
expect_usage "--area takes X,Y,W,H" record --area 1,2,3
expect_usage "--area takes X,Y,W,H" record --area 0,0,-5,10
expect_usage "--codec takes h264 or hevc" record --codec vp9
expect_usage "--window takes an X11 window id" record --window nope
expect_usage "--seconds takes a positive number" record --seconds 0
expect_usage "choose one of --screen, --area and --window" record --screen --window 5
expect_usage "--folder needs a value." record --folder
expect_usage "unknown option “--bogus”" record --bogus
expect_usage "unknown command “frobnicate”" frobnicate
pass "malformed command lines are refused with the usage"

# expect_start_failure MESSAGE ARGS...: the start fails with exactly MESSAGE and no movie.
expect_start_failure() {
  local expected=$1
  shift
  record --no-countdown --no-system-audio --seconds 1 --folder "$movies" "$@"
  [[ $status -eq 1 && -z "$out" ]] || fail "'$*' exited $status and printed '$out'"
  [[ "$err" == "Couldn’t start recording. $expected" ]] || fail "'$*' said: $err"
}
DISPLAY= expect_start_failure "There is no X display to record: DISPLAY is not set."
DISPLAY=:999 expect_start_failure "Lumenvale can’t connect to the X display “:999”."
expect_start_failure "The area lies outside every screen." --area 5000,5000,100,100
pass "a start without a display or off every screen says what is wrong"

# A folder named in bytes that are not UTF-8 is used as it is named, also when a test
# folder (APP_STORE) is set: the command line outranks the environment.
folder=$work/$'films \xe9t\xe9'
APP_STORE=$work/store record --no-countdown --no-system-audio --seconds 1 --folder "$folder"
[[ $status -eq 0 ]] || fail "record into a non-UTF-8 folder exited $status: $err"
[[ -f "$out" && "$(dirname "$out")" == "$folder" ]] || fail "the printed path '$out' is not in the folder"
[[ -z "$(find "$work/store" -name '*.mp4' 2>/dev/null)" ]] || fail "the movie went to APP_STORE"
pass "a folder whose name is not UTF-8 holds the movie, whatever APP_STORE says, and its path is printed as it is"

set +e
env -u APP_STORE "$LUMENVALE" --selftest >"$work/out" 2>&1
code=$?
set -e
[[ $code -eq 1 && "$(cat "$work/out")" == "SELFTEST refused: set APP_STORE to a folder in /tmp" ]] ||
  fail "selftest without APP_STORE: exit $code, '$(cat "$work/out")'"
pass "the self-test refuses to run without a test folder"

# SIGINT during the countdown: no movie, no parts.
"$LUMENVALE" record --seconds 5 --folder "$movies" >"$work/out" 2>"$work/err" &
recorder=$!
for _ in $(seq 100); do grep -q "3…" "$work/err" 2>/dev/null && break; sleep 0.05; done
sleep 0.5
kill -INT $recorder
finish_background
[[ $status -eq 1 ]] || fail "a cancelled countdown exited $status"
[[ "$err" == *"Recording cancelled."* ]] || fail "no cancel message: $err"
[[ "$err" != *"Couldn’t"* ]] || fail "a cancel is no failure: $err"
[[ -z "$out" ]] || fail "printed a path: $out"
[[ ! -d "$movies" ]] || [[ -z "$(ls -A "$movies")" ]] || fail "a movie was saved"
[[ $(part_count) -eq 0 ]] || fail "parts were written"
pass "SIGINT during the countdown cancels without a movie"
