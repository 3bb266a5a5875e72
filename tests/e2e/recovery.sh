#!/usr/bin/env bash
# A recording killed with SIGKILL leaves its parts; the next start saves them as a
# movie, says so, and removes the parts only once the movie is saved. The movie's
# sound and picture end together, and a recording killed while paused keeps all of
# its picture.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

record_in_background --no-countdown --folder "$movies"
sleep 2.5
kill -KILL "$recorder"
wait "$recorder" 2>/dev/null || true
[[ $(part_count) -ge 1 ]] || fail "the killed recording left no part"
[[ ! -d "$movies" ]] || [[ -z "$(ls -A "$movies")" ]] || fail "a movie appeared without a save"

record --no-countdown --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "exit $status: $err"
notice=$(grep "^Recovered a recording that was interrupted: " <<<"$err") || fail "no recovery notice: $err"
recovered=$movies/${notice#Recovered a recording that was interrupted: }
[[ -f "$recovered" ]] || fail "the notice names no movie in the folder: $notice"
[[ "$recovered" != "$out" ]] || fail "the new recording and the recovered one are the same file"
duration=$(format_duration "$recovered")
approx "$duration" 2.5 1.2 || fail "recovered $duration s of about 2.5 s"
[[ "$(stream_value "$recovered" v:0 width)" == 1920 ]] || fail "the recovered movie has no full-screen video"
[[ $(ls "$movies" | wc -l) -eq 2 ]] || fail "expected the recovered and the new movie: $(ls "$movies")"
[[ $(part_count) -eq 0 ]] || fail "parts left after recovery"
video=$(stream_value "$recovered" v:0 duration)
audio=$(stream_value "$recovered" a:0 duration)
approx "$audio" "$video" 0.0214 || fail "recovered audio $audio s and video $video s end more than one AAC frame apart"
pass "recovery: $(basename "$recovered"), $duration s, audio $audio s, video $video s"

# Killed while paused: the part that the pause ended is on disk whole.
rm -rf "$movies"
record_in_background --no-countdown --folder "$movies"
sleep 1.5
kill -USR1 "$recorder"; sleep 1 # paused
kill -KILL "$recorder"
wait "$recorder" 2>/dev/null || true
record --no-countdown --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "after a kill while paused: exit $status: $err"
notice=$(grep "^Recovered a recording that was interrupted: " <<<"$err") || fail "killed while paused: nothing recovered: $err"
recovered=$movies/${notice#Recovered a recording that was interrupted: }
video=$(stream_value "$recovered" v:0 duration)
audio=$(stream_value "$recovered" a:0 duration)
approx "$video" 1.5 0.35 || fail "killed while paused: $video s of picture recovered of about 1.5 s"
approx "$audio" "$video" 0.0214 || fail "killed while paused: audio $audio s and video $video s end more than one AAC frame apart"
pass "killed while paused: audio $audio s, video $video s"
