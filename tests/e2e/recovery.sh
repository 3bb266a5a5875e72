#!/usr/bin/env bash
# A recording killed with SIGKILL leaves its parts; the next start saves them as a
# movie, says so, and removes the parts only once the movie is saved. The movie's
# sound and picture end together, and a recording killed while paused keeps all of
# its picture. Another lumenvale never takes the parts of a recording that is running
# or saving, and parts with nothing in them are removed without a word.
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
tracks_end_together "$recovered" "recovered"
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
tracks_end_together "$recovered" "killed while paused"
approx "$video" 1.5 0.35 || fail "killed while paused: $video s of picture recovered of about 1.5 s"
pass "killed while paused: audio $audio s, video $video s"

# A second lumenvale started right after a resume, while the new part has no fragment
# yet and the part before it is finished, takes nothing of the running recording; nor
# do the ones started while its stop saves it.
record_in_background --no-countdown --folder "$movies"
sleep 1.2
kill -USR1 "$recorder"; sleep 0.4   # paused
kill -USR1 "$recorder"              # resumed
resumed=$(date +%s.%N)
sleep 0.2
"$LUMENVALE" record --no-countdown --seconds 1 --folder "$work/second" >"$work/out2" 2>"$work/err2" ||
  fail "the second recording failed: $(cat "$work/err2")"
sleep 0.5
stopped=$(date +%s.%N)
kill -INT "$recorder"
while kill -0 "$recorder" 2>/dev/null; do
  "$LUMENVALE" record --window 1 --no-countdown --folder "$work/second" 2>>"$work/err2" || true
done
finish_background
[[ $status -eq 0 ]] || fail "exit $status: $err"
! grep "Recovered" "$work/err2" || fail "another lumenvale recovered parts of a live recording"
[[ $(ls "$work/second" | wc -l) -eq 1 ]] || fail "the second lumenvale saved: $(ls "$work/second")"
expected=$(awk -v r="$resumed" -v s="$stopped" 'BEGIN { print 1.2 + s - r }')
duration=$(format_duration "$out")
approx "$duration" "$expected" 0.4 || fail "the recording lasted $duration s, not about $expected s"
tracks_end_together "$out" "a second lumenvale after a resume"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "a second lumenvale after a resume and during the save took nothing: $duration s"

# A part killed before its first fragment holds nothing: the next start removes it
# without a word.
record_in_background --no-countdown --folder "$movies"
kill -KILL "$recorder"
wait "$recorder" 2>/dev/null || true
[[ $(part_count) -eq 1 ]] || fail "the killed recording left $(part_count) parts"
record --window 1 --no-countdown --folder "$movies" # a start that only runs recovery
! grep -E "Nothing was recorded|not a movie|Recovered" <<<"$err" || fail "the start said: $err"
[[ $(part_count) -eq 0 ]] || fail "the part with nothing in it was kept"
pass "a part with nothing recorded was removed without a word"
