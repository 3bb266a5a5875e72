#!/usr/bin/env bash
# Sound in step with the picture: a tone and a change on the screen that start
# together are together in the movie, in a recording without pauses, after two
# pauses (the third part of a joined movie), and after ten parts of about one frame.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

# A white window waits out of sight; showing it is the picture's event. On X11 it is
# moved into view; on Wayland (sway) a terminal waits in the scratchpad and is shown
# full screen.
if [[ -n ${WAYLAND_DISPLAY:-} ]]; then
  foot --app-id=curtain --override=colors.background=ffffff sleep infinity >/dev/null 2>&1 &
  background_pids+=($!)
  until_true 10 eval 'swaymsg -t get_tree | grep -q "\"app_id\": \"curtain\""' || fail "no curtain"
  show_curtain() { swaymsg -q '[app_id=curtain] scratchpad show, fullscreen enable'; }
  hide_curtain() { swaymsg -q '[app_id=curtain] fullscreen disable, move scratchpad'; }
  hide_curtain
else
  xmessage -geometry 1920x1080+3000+0 -bg white "Lumenvale" >/dev/null 2>&1 &
  background_pids+=($!)
  curtain=$(xdotool search --sync --class xmessage | head -n1)
  show_curtain() { xdotool windowmove "$curtain" 0 0; }
  hide_curtain() { xdotool windowmove "$curtain" 3000 0; }
fi
ffmpeg -v error -y -f lavfi -i "sine=frequency=880:sample_rate=48000:duration=1" -ac 2 -f s16le "$work/tone.raw"

# Starts the tone (asking for low latency, as a player of a video call does) and
# shows the white window at the same moment.
tone_and_curtain() {
  pacat --playback --device=lumenvale_speakers --latency-msec=20 --format=s16le --rate=48000 \
    --channels=2 "$work/tone.raw" &
  show_curtain
}

# The movie time of the first frame much brighter than the first one.
picture_onset() {
  ffprobe -v error -f lavfi -i "movie='$1',signalstats" \
    -show_entries frame=pts_time:frame_tags=lavfi.signalstats.YAVG -of csv=p=0 |
    awk -F, 'NR == 1 { base = $2 } $2 > base + 50 { print $1; exit }'
}

# The movie time where the first audio track stops being silent.
sound_onset() {
  ffmpeg -hide_banner -nostats -i "$1" -map 0:a:0 -af silencedetect=n=-40dB:d=0.3 -f null - 2>&1 |
    sed -n 's/.*silence_end: \([0-9.]*\).*/\1/p' | head -n1
}

# check_sync LABEL: the onsets in $out are within 0.15 s of each other (a frame is
# 0.033 s; starting two programs at once is not much more exact than that).
check_sync() {
  local picture sound
  picture=$(picture_onset "$out")
  sound=$(sound_onset "$out")
  [[ -n $picture && -n $sound ]] || fail "$1: picture onset '$picture', sound onset '$sound'"
  approx "$sound" "$picture" 0.15 || fail "$1: the sound starts at $sound s, the picture at $picture s"
  pass "$1: sound at $sound s, picture at $picture s"
}

record_in_background --no-countdown --no-pointer --folder "$movies"
sleep 1.5
tone_and_curtain
sleep 2
kill -INT "$recorder"
finish_background
[[ $status -eq 0 ]] || fail "exit $status: $err"
check_sync "one part"

hide_curtain
sleep 0.3
record_in_background --no-countdown --no-pointer --folder "$movies"
for _ in 1 2; do
  sleep 1
  kill -USR1 "$recorder"; sleep 0.7 # paused
  kill -USR1 "$recorder"
done
sleep 1
tone_and_curtain
sleep 2
kill -INT "$recorder"
finish_background
[[ $status -eq 0 ]] || fail "exit $status: $err"
check_sync "three parts joined"

# Pause pressed twice quickly, ten times: parts of no, one or two frames.
hide_curtain
sleep 0.3
record_in_background --no-countdown --no-pointer --folder "$movies"
sleep 1
kill -USR1 "$recorder"; sleep 0.3 # paused
for _ in $(seq 10); do
  kill -USR1 "$recorder"; sleep 0.04; kill -USR1 "$recorder"
  sleep 0.2
done
kill -USR1 "$recorder"
sleep 1
tone_and_curtain
sleep 2
kill -INT "$recorder"
finish_background
[[ $status -eq 0 ]] || fail "exit $status: $err"
check_sync "after ten short parts"
tracks_end_together "$out" "after ten short parts"
pass "after ten short parts: audio $audio s, video $video s"
