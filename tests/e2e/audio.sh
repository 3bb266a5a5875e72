#!/usr/bin/env bash
# Sound: system audio is what plays into the default sink, the microphone is its own
# track, both together add a mix, and a missing microphone is a notice, not a failure.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

loud() { awk -v v="$1" 'BEGIN { exit !(v > -30) }'; }
silent() { awk -v v="$1" 'BEGIN { exit !(v < -60) }'; }

# record_with_tone SINK ARGS...: records 3 s while a 2.5 s tone plays into SINK,
# starting once the capture runs. Levels are measured from 1.5 s to 2.5 s: inside the
# tone even when the sound server delivers it a second late (a null sink's monitor
# does on this test desktop).
record_with_tone() {
  local sink=$1
  shift
  record_in_background --no-countdown --folder "$movies" "$@"
  play_tone "$sink" 440 2.5
  sleep 3
  kill -INT "$recorder"
  finish_background
  [[ $status -eq 0 ]] || fail "exit $status: $err"
}

record_with_tone lumenvale_speakers
[[ "$(audio_titles "$out")" == "System audio" ]] || fail "tracks: $(audio_titles "$out")"
level=$(mean_volume "$out" 0 1.5 1)
loud "$level" || fail "the tone is missing from the system track ($level dB)"
pass "system audio: the tone played into the sink is recorded ($level dB)"

record_with_tone lumenvale_speakers --no-system-audio
[[ $(audio_stream_count "$out") -eq 0 ]] || fail "--no-system-audio still wrote $(audio_stream_count "$out") audio tracks"
pass "--no-system-audio: no audio track"

record_with_tone lumenvale_mic_input --no-system-audio --mic
[[ "$(audio_titles "$out")" == "Microphone" ]] || fail "tracks: $(audio_titles "$out")"
level=$(mean_volume "$out" 0 1.5 1)
loud "$level" || fail "the microphone track is quiet ($level dB)"
pass "--mic: a microphone track with the tone ($level dB)"

# Both, the tone only in the speakers: the mix and the system track have it, the
# microphone track does not. The microphone named on the command line is used.
record_with_tone lumenvale_speakers --mic lumenvale_mic
titles=$(audio_titles "$out" | paste -sd '|')
[[ $titles == "System audio and microphone|System audio|Microphone" ]] || fail "tracks: $titles"
mix=$(mean_volume "$out" 0 1.5 1) system=$(mean_volume "$out" 1 1.5 1) mic=$(mean_volume "$out" 2 1.5 1)
loud "$mix" && loud "$system" && silent "$mic" || fail "levels mix $mix, system $system, microphone $mic dB"
pass "both sources: mix $mix dB, system $system dB, microphone $mic dB"

# A microphone source that does not exist fails the start with the sound server's reason.
record --no-countdown --no-system-audio --mic no_such_source --seconds 1 --folder "$movies"
[[ $status -ne 0 ]] || fail "a missing microphone source recorded"
grep -q "^Couldn’t start recording. ." <<<"$err" || fail "unexpected message: $err"
pass "a microphone source that does not exist: $(grep "^Couldn’t" <<<"$err")"

# No sound server at all: the recording goes on without the microphone, and says why
# (nothing in Settings would bring it back).
PULSE_SERVER=unix:$work/no-such-server record --no-countdown --no-system-audio --mic --seconds 1 --folder "$movies"
[[ $status -eq 0 ]] || fail "exit $status: $err"
grep -qx "Recording without the microphone. Lumenvale can’t reach the sound server." <<<"$err" ||
  fail "no notice: $err"
[[ $(audio_stream_count "$out") -eq 0 ]] || fail "an audio track without a microphone"
pass "no sound server: recorded without the microphone, with the notice"
