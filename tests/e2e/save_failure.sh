#!/usr/bin/env bash
# A save that cannot write its folder fails with the user's message and keeps every
# part, so nothing recorded is lost; a temporary folder that fills up while recording
# ends the recording early, and the movie keeps the picture and the sound written
# until then.
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

# A temporary folder of 400 KiB (a tmpfs: needs root), filled within a second or two
# by moving pictures and a tone.
small=$work/small
mkdir -p "$small"
if ! mount -t tmpfs -o size=400k tmpfs "$small" 2>/dev/null; then
  echo "skipped: a full temporary folder needs root to mount a small tmpfs"
  exit 0
fi
trap 'umount "$small"; e2e_cleanup' EXIT
ffplay -loglevel error -f lavfi -i testsrc2=size=800x600:rate=30 >/dev/null 2>&1 &
player=$!
background_pids+=($player)
xdotool search --sync --class ffplay >/dev/null
play_tone lumenvale_speakers 440 30
TMPDIR=$small record --no-countdown --seconds 30 --folder "$movies"
kill "$player" && wait "$player" || true # its window gone before the next test looks
[[ $status -eq 3 ]] || fail "a recording ended by a full disk exited $status, not 3: $err"
grep -q "^Recording stopped. .*No space left on device" <<<"$err" || fail "no stop notice: $err"
[[ -f "$out" ]] || fail "no movie printed: '$out'"
[[ $(audio_stream_count "$out") -eq 1 ]] || fail "the movie has $(audio_stream_count "$out") audio tracks"
packets=$(ffprobe -v error -count_packets -select_streams a -show_entries stream=nb_read_packets -of csv=p=0 "$out")
[[ $packets -gt 0 ]] || fail "the audio track is empty"
pass "full temporary folder: status 3, the movie has $(format_duration "$out") s and $packets sound packets"
