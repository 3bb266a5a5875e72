#!/usr/bin/env bash
# SIGUSR1 pauses and resumes, SIGINT stops and saves: pausing twice makes one movie
# as long as the recorded stretches, with sound and picture of equal length, whose
# picture is the parts' packets copied, not encoded again; also when the recording is
# stopped while paused. Registered for the X11 and the Wayland test desktop.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

record_in_background --no-countdown --folder "$movies"
stretch=1.2
sleep $stretch
kill -USR1 $recorder; sleep 0.8   # paused
kill -USR1 $recorder; sleep $stretch
kill -USR1 $recorder; sleep 0.8   # paused: the first two parts hold all their picture
for part in "$TMPDIR"/Lumenvale-*.mp4; do video_packets "$part"; done | sort >"$work/parts"
kill -USR1 $recorder; sleep $stretch
kill -INT $recorder
finish_background
[[ $status -eq 0 ]] || fail "exit $status: $err"
[[ -f "$out" ]] || fail "no movie: '$out'"
[[ $(wc -l <"$work/parts") -ge 2 ]] || fail "the parts held $(wc -l <"$work/parts") video packets"
missing=$(video_packets "$out" | sort | comm -23 "$work/parts" - | wc -l)
[[ $missing -eq 0 ]] || fail "$missing video packets of the parts are not in the movie: encoded again"

duration=$(format_duration "$out")
approx "$duration" 3.6 0.4 || fail "three stretches of $stretch s gave $duration s"
tracks_end_together "$out" "pause and resume twice"
[[ $(part_count) -eq 0 ]] || fail "parts left behind"
pass "pause and resume twice: one movie of $duration s, audio $audio s, video $video s, picture copied"

# Stopped while paused: the sound of the last stretch is there to its end.
record_in_background --no-countdown --folder "$movies"
sleep $stretch
kill -USR1 $recorder; sleep 0.6   # paused
kill -USR1 $recorder; sleep $stretch
kill -USR1 $recorder; sleep 0.6   # paused, then stopped
kill -INT $recorder
finish_background
[[ $status -eq 0 ]] || fail "stop while paused: exit $status: $err"
tracks_end_together "$out" "stopped while paused"
[[ $(part_count) -eq 0 ]] || fail "parts left behind after a stop while paused"
pass "stopped while paused: audio $audio s, video $video s"
