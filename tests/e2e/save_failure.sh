#!/usr/bin/env bash
# A save that cannot write its folder fails with the user's message and keeps every
# part, so nothing recorded is lost.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

# A folder that cannot be created: its parent is a file.
echo "not a folder" >"$work/blocker"
record_in_background --no-countdown --folder "$work/blocker/movies"
sleep 1
kill -USR1 "$recorder"; sleep 0.5
kill -USR1 "$recorder"; sleep 1
kill -TERM "$recorder"
finish_background
[[ $status -ne 0 ]] || fail "a failed save exited 0"
line=$(grep "^Couldn’t save the recording. " <<<"$err") || fail "no save notice: $err"
reason=${line#Couldn’t save the recording. }
[[ -n "$reason" ]] || fail "the notice gives no reason"
[[ -z "$out" ]] || fail "printed a path although nothing was saved: $out"
[[ $(part_count) -eq 2 ]] || fail "expected both parts kept, found $(part_count)"
pass "save failure: \"$line\", both parts kept"
