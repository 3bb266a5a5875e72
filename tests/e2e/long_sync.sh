#!/usr/bin/env bash
# Sound in step with the picture over a long, mostly still recording: five minutes
# of a dark screen that flashes white with a tone every 2 s (the soak's metronome,
# which draws each flash when the sound server plays its tone), paused 20 times. The
# flash-to-tone offsets at the end are those at the start within one AAC frame (and
# the frame a flash may wait to be seen: no drift across 21 parts of long, unchanged
# frames), every whole flash is within 0.1 s of its tone, and the tracks end together.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

[[ -x ${SOAK_METRONOME:-} ]] || fail "no metronome at '${SOAK_METRONOME:-}' (build the tests)"
nice -n -10 "$SOAK_METRONOME" >"$work/metronome.out" &
metronome=$!
background_pids+=($metronome)
sleep 2
export PULSE_SINK=lumenvale_mic_input # the saved movie's chime away from the tones

part_seconds=${LONG_SYNC_PART_SECONDS:-14}
record_in_background --no-countdown --no-pointer --folder "$movies"
for _ in $(seq 20); do
  sleep "$part_seconds"
  kill -USR1 "$recorder"; sleep 0.7 # paused
  kill -USR1 "$recorder"
done
sleep "$part_seconds"
kill -INT "$recorder"
finish_background
kill -TERM "$metronome"; wait "$metronome" || true
[[ $status -eq 0 ]] || fail "exit $status: $err"
tracks_end_together "$out" "five minutes with 20 pauses"

# Flashes: the times the picture turns bright and dark again; tones: where the
# silence ends and starts again.
ffprobe -v error -f lavfi -i "movie='$out',scale=32:18,signalstats" \
  -show_entries frame=pts_time:frame_tags=lavfi.signalstats.YAVG -of csv=p=0 >"$work/frames"
ffmpeg -hide_banner -nostats -i "$out" -map 0:a:0 -af silencedetect=n=-40dB:d=0.3 -f null - 2>&1 |
  grep -o 'silence_\(start\|end\): [0-9.]*' >"$work/silences"
verdict=$(python3 - "$work/frames" "$work/silences" "$(format_duration "$out")" <<'PY'
import statistics, sys
frames = [tuple(map(float, line.split(',')[:2])) for line in open(sys.argv[1]) if line.strip()]
flashes, start = [], None
for time, brightness in frames:
    if brightness > 128 and start is None:
        start = time
    elif brightness <= 128 and start is not None:
        flashes.append((start, time))
        start = None
tones, tone_start = [], None
for line in open(sys.argv[2]):
    kind, value = line.split(': ')
    if kind == 'silence_end':
        tone_start = float(value)
    elif tone_start is not None:
        tones.append((tone_start, float(value)))
        tone_start = None
# Whole pairs only: a pause can cut a flash or its tone, not both alike.
whole = lambda span: 0.45 <= span[1] - span[0] <= 0.55
offsets = []
for flash in filter(whole, flashes):
    near = [tone for tone in tones if whole(tone) and abs(tone[0] - flash[0]) < 0.3]
    if near:
        offsets.append((flash[0], near[0][0] - flash[0]))
if len(offsets) < float(sys.argv[3]) / 2 * 2 / 3:
    print(f'FAIL only {len(offsets)} whole flashes with their tones of {len(flashes)} flashes')
    sys.exit()
first = statistics.median(o for _, o in offsets[:10])
last = statistics.median(o for _, o in offsets[-10:])
worst = max(offsets, key=lambda o: abs(o[1]))
# One AAC frame, and one frame of picture: a flash shows from the next frame on.
if abs(last - first) > 1024 / 48000 + 1 / 30 or abs(worst[1]) > 0.1:
    print(f'FAIL tone after flash: {first:.3f} s at the start, {last:.3f} s at the end, '
          f'worst {worst[1]:.3f} s at {worst[0]:.1f} s')
else:
    print(f'ok {len(offsets)} flashes over {float(sys.argv[3]):.0f} s: tone after flash '
          f'{first:.3f} s at the start, {last:.3f} s at the end, worst {worst[1]:.3f} s')
PY
)
[[ $verdict == ok* ]] || fail "${verdict#FAIL }"
pass "${verdict#ok }; $(cat "$work/metronome.out")"
