#!/usr/bin/env bash
# A long, hostile run of the real binary: recordings with random pauses (some only a
# frame long), random stops (some while paused), random kill -9s with the next start
# recovering the parts, and second instances started at random moments, also while a
# save is still running. Throughout, a metronome flashes the screen white and plays a
# tone at the same moment every two seconds, so every movie, saved or recovered, can be
# checked for sound in step with the picture.
#
# It ends with one summary line: seconds recorded, seconds lost (in all and in the
# worst crash), the worst sync error, and any movie that was stolen, saved twice or
# does not decode. Exits non-zero when a crash lost more than about a second, sound
# and picture drifted apart, or any movie was stolen, doubled or broken.
#
#   tests/soak/soak.sh [MINUTES]      (default 30; SOAK_SEED=N repeats a run)
#
# The ledger, the log and each movie's measurements are copied to
# $SOAK_REPORT (default /tmp/lumenvale-soak-report) for a look afterwards.
#
# Not part of the test suite: `scripts/test.sh --soak MINUTES` runs it after the tests.
set -euo pipefail
source "$(dirname "$0")/../e2e/lib/common.bash"

minutes=${1:-30}
seed=${SOAK_SEED:-$$}
RANDOM=$seed
deadline=$(($(date +%s) + minutes * 60))
log=$work/soak.log
: >"$log"
echo "soak: $minutes minutes, seed $seed"

# Sleeps a random time: 20 ms (about a frame) a fifth of the time, else 0.2 to 4 s.
random_sleep() {
  if ((RANDOM % 5 == 0)); then sleep 0.02; else sleep "$(awk -v r=$RANDOM 'BEGIN { printf "%.2f", 0.2 + r % 380 / 100 }')"; fi
}
chance() { ((RANDOM % 100 < $1)); }
now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }
add() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a + b }'; }

# The metronome (tests/soak/metronome.cpp): every 2 s the screen flashes white for half
# a second while a tone plays, each flash drawn when the sound server plays its tone,
# so the movies' sync errors are Lumenvale's own. A flash it could not draw on time is
# left out or counted as late; its closing line says how many.
metronome_binary=${SOAK_METRONOME:-$e2e_root/../build/ci/tests/soak_metronome}
[[ -x $metronome_binary ]] || fail "no metronome at $metronome_binary (build the tests, or set SOAK_METRONOME)"
nice -n -10 "$metronome_binary" >"$work/metronome.out" &
metronome=$!
background_pids+=($metronome)
sleep 2
# Every saved recording plays its chime into the default sink, where the recordings
# still running would take it for a tone: the chimes go to the other sink instead
# (the metronome, started above, keeps the default).
export PULSE_SINK=lumenvale_mic_input

# Every recording that was started: "id expected-seconds how-it-ended movie".
ledger=$work/ledger
: >"$ledger"
pending_kill="" # the id and expected seconds of a killed recording not yet recovered
stolen=0
next_id=0

# start_recorder ID: starts a recording and waits until it captures. Claims the
# recovery notice, if any, for the last killed recording.
start_recorder() {
  local id=$1
  "$LUMENVALE" record --no-countdown --no-pointer --folder "$movies" >"$work/out.$id" 2>"$work/err.$id" &
  recorder=$!
  for _ in $(seq 400); do
    grep -q "Ctrl+C stops" "$work/err.$id" 2>/dev/null && break
    kill -0 "$recorder" 2>/dev/null || fail "recording $id did not start: $(cat "$work/err.$id")"
    sleep 0.01
  done
  recorder_started=$(now)
  claim_recoveries "$work/err.$id"
}

# claim_recoveries ERR: a recovery notice belongs to the last killed recording; any
# other is a running recording's parts taken by another instance.
claim_recoveries() {
  local line name
  while IFS= read -r line; do
    name=${line#Recovered a recording that was interrupted: }
    if [[ -n $pending_kill ]]; then
      echo "$pending_kill killed $movies/$name" >>"$ledger"
      pending_kill=""
    else
      stolen=$((stolen + 1))
      echo "stolen: $name" >>"$log"
    fi
  done < <(grep "^Recovered a recording that was interrupted: " "$1" || true)
}

# A second instance recording one second, in the background.
second_instances=()
start_second_instance() {
  local id=second$next_id
  next_id=$((next_id + 1))
  "$LUMENVALE" record --no-countdown --no-pointer --seconds 1 --folder "$movies" \
    >"$work/out.$id" 2>"$work/err.$id" &
  second_instances+=("$id:$!")
}
collect_second_instances() {
  local entry id pid
  for entry in "${second_instances[@]}"; do
    id=${entry%%:*} pid=${entry#*:}
    wait "$pid" 2>/dev/null || echo "second instance $id: exit $?: $(cat "$work/err.$id")" >>"$log"
    claim_recoveries "$work/err.$id"
    [[ -s "$work/out.$id" ]] && echo "$id 1.000 second $(cat "$work/out.$id")" >>"$ledger"
  done
  second_instances=()
}

overlapping_start="" # a recorder started while the previous one was still saving
while (($(date +%s) < deadline)); do
  id=$next_id
  next_id=$((next_id + 1))
  if [[ -n $overlapping_start ]]; then
    recorder=$overlapping_start
    overlapping_start=""
  else
    start_recorder "$id"
  fi
  started=$recorder_started
  recorded=0
  paused=0
  for ((toggle = RANDOM % 8; toggle > 0; toggle--)); do
    random_sleep
    chance 15 && start_second_instance
    kill -USR1 "$recorder"
    if ((paused)); then
      started=$(now)
      paused=0
      echo -n "$recorded " >>"$work/joins.$id" # where the next part starts in the movie
    else
      recorded=$(add "$recorded" "$(elapsed "$started" "$(now)")")
      paused=1
    fi
  done
  random_sleep
  ((paused)) || recorded=$(add "$recorded" "$(elapsed "$started" "$(now)")")

  if chance 30; then
    kill -KILL "$recorder"
    wait "$recorder" 2>/dev/null || true
    # A second instance still starting may be the one that recovers it.
    pending_kill="$id $recorded"
    collect_second_instances
    echo "recording $id: killed after $recorded s recorded (paused: $paused)" >>"$log"
    continue
  fi
  kill -INT "$recorder"
  previous=$recorder
  if chance 30; then # the next instance starts while this one saves
    start_recorder "$next_id"
    overlapping_start=$recorder
  fi
  set +e
  wait "$previous"
  code=$?
  set -e
  collect_second_instances
  if [[ $code -ne 0 || ! -s "$work/out.$id" ]]; then
    echo "recording $id: exit $code: $(cat "$work/err.$id")" >>"$log"
    echo "$id $recorded failed -" >>"$ledger"
  else
    echo "$id $recorded stopped $(cat "$work/out.$id")" >>"$ledger"
  fi
done
if [[ -n $overlapping_start ]]; then
  kill -INT "$overlapping_start"
  wait "$overlapping_start" || true
  [[ -s "$work/out.$next_id" ]] && echo "$next_id 0 stopped-at-end $(cat "$work/out.$next_id")" >>"$ledger"
fi
# One last start recovers the last killed recording.
record --no-countdown --seconds 1 --folder "$movies"
claim_recoveries "$work/err"
[[ -n $out ]] && echo "last 1.000 second $out" >>"$ledger"

# Each movie decoded whole: the brightness of every frame (for the flashes), where
# the first audio track stops being silent (for the tones), and any decoding error.
# A movie without sound is measured for its picture alone (and reported).
measure() {
  local sound="[0:a:0]silencedetect=n=-40dB:d=0.3,ametadata=print:key=lavfi.silence_end:file=$2.sound[a]"
  local maps=(-map '[v]' -map '[a]')
  if [[ $(audio_stream_count "$1") -eq 0 ]]; then
    echo "$(format_duration "$1")" >"$2.nosound"
    sound="anullsrc=d=0.01[a]"
  fi
  ffmpeg -hide_banner -nostats -v error -i "$1" -filter_complex \
    "[0:v]scale=32:18,signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=$2.frames[v];$sound" \
    "${maps[@]}" -f null - 2>"$2.errors"
  # The tracks' own lengths: a join or a recovery that shifted one shows here, free
  # of the metronome's noise.
  echo "$(stream_value "$1" v:0 duration) $(stream_value "$1" a:0 duration)" >"$2.tracks"
}
n=0
while read -r rid expected ended movie <&3; do
  n=$((n + 1))
  [[ -z $movie || $movie == - ]] && continue
  [[ -f "$work/joins.$rid" ]] && cp "$work/joins.$rid" "$work/m$n.joins"
  measure "$movie" "$work/m$n" || echo "$movie: ffmpeg failed" >>"$work/m$n.errors"
  [[ -s "$work/m$n.errors" ]] && cp "$movie" "$work/m$n.broken.mp4"
  duration=$(format_duration "$movie")
  echo "$rid $expected $ended $duration $work/m$n" >>"$work/measured"
done 3<"$ledger"
# The metronome's own account: flashes it left out or drew late.
kill -TERM "$metronome"
wait "$metronome" || true
cat "$work/metronome.out"
movie_count=$(find "$movies" -name '*.mp4' | wc -l)
ledger_movies=$(awk '$4 != "-"' "$ledger" | wc -l)

report=${SOAK_REPORT:-/tmp/lumenvale-soak-report}
rm -rf "$report"
mkdir -p "$report"
cp "$ledger" "$log" "$work"/m[0-9]* "$report/"
sed "s|$work/|$report/|" "$work/measured" >"$report/measured"

python3 - "$report/measured" "$stolen" "$movie_count" "$ledger_movies" "$log" <<'EOF'
import re, sys
measured, stolen, movie_count, ledger_movies, log = sys.argv[1:6]
stolen, movie_count, ledger_movies = int(stolen), int(movie_count), int(ledger_movies)

def read(path):
    try:
        return open(path).read()
    except FileNotFoundError:
        return ""

def onsets(path, pattern):
    try:
        return [float(m.group(1)) for m in re.finditer(pattern, open(path).read())]
    except FileNotFoundError:
        return []

recorded = lost = worst_crash = worst_tracks = 0.0
silent = []
details = open(measured + ".details", "w")
sync_errors, unmatched, broken, failures = [], 0, [], []
for line in open(measured):
    rid, expected, ended, duration, base = line.split()
    expected, duration = float(expected), float(duration)
    if ended in ("stopped", "killed", "second"):
        recorded += expected
        lost += max(0.0, expected - duration)
        if ended == "killed":
            worst_crash = max(worst_crash, expected - duration)
    errors = open(base + ".errors").read().strip()
    if errors:
        broken.append(f"{rid}: {errors.splitlines()[0]}")
    # Rising edges of brightness, never the first frame (a movie may start mid-flash).
    frames = re.findall(r"pts_time:([0-9.]+)\s+lavfi.signalstats.YAVG=([0-9.]+)", open(base + ".frames").read())
    pictures, bright = [], None
    for time, level in frames:
        now_bright = float(level) > 128
        if bright is False and now_bright:
            pictures.append(float(time))
        bright = now_bright
    # silencedetect also ends a silence where the stream ends: that is no tone.
    sounds = [s for s in onsets(base + ".sound", r"lavfi.silence_end=([0-9.]+)") if s < duration - 0.05]
    # A flash near a join or an end of the movie may be cut by the pause, the start or
    # the stop in picture or sound alone, and a tone whose silence before it was cut
    # short is not detected: only the flashes well inside a part are compared (the
    # tracks' lengths check the joins).
    edges = [float(j) for j in read(base + ".joins").split()] + [0.0, duration]
    pictures = [p for p in pictures if not any(-0.8 <= p - j <= 0.8 for j in edges)]
    tracks = read(base + ".tracks").split()
    if len(tracks) == 2:
        worst_tracks = max(worst_tracks, abs(float(tracks[0]) - float(tracks[1])))
    if read(base + ".nosound") and duration > 1.0:
        silent.append(rid)
    print(f"{rid} {ended}: expected {expected:.2f} s, got {duration:.2f} s; flashes {pictures}; "
          f"tones {sounds}", file=details)
    for picture in pictures:
        nearest = min(sounds, key=lambda s: abs(s - picture), default=None)
        if nearest is None or abs(nearest - picture) > 0.5:
            unmatched += 1
            continue
        sync_errors.append(nearest - picture)

worst_sync = max((abs(e) for e in sync_errors), default=0.0)
ranked = sorted(abs(e) for e in sync_errors)
median_sync = ranked[len(ranked) // 2] if ranked else 0.0
p95_sync = ranked[min(len(ranked) - 1, int(len(ranked) * 0.95))] if ranked else 0.0
doubled = movie_count - ledger_movies - stolen
if worst_crash > 1.2:
    failures.append(f"a crash lost {worst_crash:.2f} s")
if worst_sync > 0.1:
    failures.append(f"sound and picture {worst_sync:.3f} s apart")
if stolen:
    failures.append(f"{stolen} running recording(s) recovered by another instance")
if doubled:
    failures.append(f"{doubled} movie(s) not accounted for (saved twice?)")
if worst_tracks > 0.0214:
    failures.append(f"a movie's sound and picture differ by {worst_tracks:.3f} s in length")
if silent:
    failures.append(f"{len(silent)} movie(s) over a second long without sound: {silent[0]}")
if broken:
    failures.append(f"{len(broken)} movie(s) with decoding errors: {broken[0]}")
print(f"soak: {recorded:.1f} s recorded, {lost:.2f} s lost (worst crash {worst_crash:.2f} s), "
      f"sync error median {median_sync:.3f} s, 95% within {p95_sync:.3f} s, worst {worst_sync:.3f} s "
      f"over {len(sync_errors)} flashes inside parts "
      f"({unmatched} unmatched), track lengths apart by at most {worst_tracks:.4f} s, "
      f"{stolen} stolen, {max(doubled, 0)} doubled, {len(broken)} broken, {len(silent)} without sound")
for failure in failures:
    print(f"FAIL: {failure}", file=sys.stderr)
if failures:
    print(open(log).read(), file=sys.stderr)
sys.exit(1 if failures else 0)
EOF
