#!/usr/bin/env bash
# Movies as a browser plays them (headless Chromium, which ignores edit lists): a
# recording joined from three parts has its full length and seeks; a recording of a
# still screen (a few long frames) shows its one change at its time and ends on the
# still picture; a cut-only export
# shows, at each time, the frame the edit put there, and so do ffmpeg and libmpv for
# every frame, also when the frames encoded at the cuts carry their own parameter sets.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

# browse MOVIE TIME...: what Chromium reports of MOVIE: "DURATION W×H" followed, for
# each TIME, by the frame number coded in the picture (see coded_movie) after seeking
# there; "error ..." when it cannot play it. With $settle_ms set, the picture is read
# that long after the seek ends.
browse() {
  local movie=$1
  shift
  cp "$movie" "$work/page-movie.mp4"
  cat >"$work/page.html" <<HTML
<!doctype html><video id="v" src="page-movie.mp4" muted preload="auto"></video>
<script>
const video = document.getElementById('v');
const times = [$(IFS=,; echo "$*")], seen = [];
window.result = new Promise((resolve, reject) => {
  video.onerror = () => reject('the video could not be played: error ' + video.error.code);
  const next = () => {
    if (seen.length === times.length) {
      resolve(video.duration.toFixed(3) + ' ' + video.videoWidth + 'x' + video.videoHeight + ' ' + seen.join(' '));
    } else {
      video.currentTime = times[seen.length];
    }
  };
  video.onseeked = () => setTimeout(() => {
    const canvas = document.createElement('canvas');
    canvas.width = video.videoWidth;
    canvas.height = video.videoHeight;
    const context = canvas.getContext('2d');
    context.drawImage(video, 0, 0);
    const [red, green] = context.getImageData(10, 10, 1, 1).data;
    seen.push(Math.floor(green / 16) * 16 + Math.floor(red / 16));
    next();
  }, ${settle_ms:-0});
  video.onloadedmetadata = next;
});
</script>
HTML
  python3 "$(dirname "$e2e_script")/lib/browser_eval.py" "$work/page.html" 60 2>&1 || true
}

# A recording paused twice: three parts joined into one movie.
record_in_background --no-countdown --folder "$movies"
for _ in 1 2; do
  sleep 1
  kill -USR1 "$recorder"; sleep 0.5
  kill -USR1 "$recorder"
done
sleep 1
kill -INT "$recorder"
finish_background
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
expected=$(format_duration "$out")
read -r duration size _ <<<"$(browse "$out" 2.5)"
[[ -n ${duration:-} && $duration != error* ]] || fail "Chromium could not play the joined recording: '$duration'"
approx "$duration" "$expected" 0.05 || fail "Chromium's duration $duration s, the file's $expected s"
[[ $size == 1920x1080 ]] || fail "Chromium shows $size"
pass "joined recording in Chromium: $duration s, $size, seeks"

# A still screen, blue, turning red about 2 s into the recording and still again
# for 8 s: a movie of a few long frames, as Chromium plays and seeks it.
xsetroot -solid '#0000ff'
sleep 0.3
record_in_background --no-countdown --no-system-audio --no-pointer --folder "$movies"
sleep 2
xsetroot -solid '#ff0000'
sleep 8
kill -INT "$recorder"
finish_background
xsetroot -solid black
[[ $status -eq 0 ]] || fail "record exited with $status: $err"
expected=$(format_duration "$out")
packets=$(ffprobe -v error -select_streams v:0 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$out")
[[ $packets -lt $(echo "$expected * 15" | bc | cut -d. -f1) ]] ||
  fail "the still screen took $packets frames in $expected s"
read -r duration _ before after last <<<"$(browse "$out" 1.6 2.5 "$(echo "$expected - 0.05" | bc -l)")"
approx "$duration" "$expected" 0.05 || fail "Chromium's duration of the still screen: $duration s, the file's $expected s"
[[ "$before $after $last" == "0 15 15" ]] ||
  fail "Chromium shows $before, $after and $last (0 blue, 15 red) at 1.6 s, 2.5 s and the end"
# Exported whole, it keeps its length: the last frame's own duration stands.
"$LUMENVALE" export "$out" --output "$work/still-export.mp4" >/dev/null 2>"$work/err" ||
  fail "export failed: $(cat "$work/err")"
approx "$(stream_value "$work/still-export.mp4" v:0 duration)" "$(stream_value "$out" v:0 duration)" 0.034 ||
  fail "the still screen's picture lasts $(stream_value "$out" v:0 duration) s, exported $(stream_value "$work/still-export.mp4" v:0 duration) s"
# Cut between keyframes, the frames encoded again share the recording's parameter
# sets; cropped (so encoded again whole), it keeps the recording's 30 frames a second.
still_edit() {
  echo "{\"sourceDuration\":$expected,\"clips\":[{\"id\":\"2C0D6A4E-1B3F-4E58-9A7C-6D5E4F3A2B10\",\"start\":0,\"end\":1.3},
    {\"id\":\"5F4E3D2C-1B0A-4987-8654-3210FEDCBA98\",\"start\":2.5,\"end\":$expected}],\"speed\":1,$1\"volumes\":{}}" >"$work/still.json"
  "$LUMENVALE" export "$out" --edit "$work/still.json" --output "$2" >/dev/null 2>"$work/err" ||
    fail "export failed: $(cat "$work/err")"
}
still_edit "" "$work/still-cut.mp4"
tag=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_tag_string -of csv=p=0 "$work/still-cut.mp4")
[[ $tag == avc1 ]] || fail "the still screen cut between keyframes has sample entry $tag, not avc1"
still_edit '"crop":[[0,0],[0.5,0.5]],' "$work/still-crop.mp4"
[[ "$(stream_value "$work/still-crop.mp4" v:0 r_frame_rate)" == 30/1 ]] ||
  fail "the cropped still screen has $(stream_value "$work/still-crop.mp4" v:0 r_frame_rate) frames a second"
# libmpv (the editor's player) shows each of those frames once: blue ones, then red.
shown=$(mpv_coded_frames "$out")
runs=$(tr ' ' '\n' <<<"$shown" | uniq | wc -l)
[[ $(wc -w <<<"$shown") -eq $packets && $runs -eq 2 ]] ||
  fail "libmpv shows the still screen's $packets frames as $shown"
pass "still screen in Chromium and libmpv: $packets frames for $duration s, blue then red from about 2 s to the end"

# Cut-only export that cuts between keyframes: keep 0–1.5 s and 2.5–6 s (frames 0–44
# and 75–179). Seeking half a frame into a frame's time shows that frame: the last
# before the cut, the first after it, and one in the copied run after the keyframe.
coded_movie "$movies/Coded.mp4"
echo '{"sourceDuration":6,"clips":[{"id":"7B1C1E0A-3C47-4F0E-9B8E-5B1D6A0F2C11","start":0,"end":1.5},
  {"id":"1E2D3C4B-5A69-4788-96A5-B4C3D2E1F007","start":2.5,"end":6}],"speed":1,"volumes":{}}' >"$work/cut.json"
"$LUMENVALE" export "$movies/Coded.mp4" --edit "$work/cut.json" --output "$work/cut.mp4" >/dev/null 2>"$work/err" ||
  fail "export failed: $(cat "$work/err")"
half=0.0167
read -r duration _ a b c d <<<"$(browse "$work/cut.mp4" $(echo "0.5+$half; 1.5-$half; 1.5+$half; 4.9+$half" | bc -l))"
approx "$duration" 5 0.05 || fail "Chromium's duration of the cut export: $duration s, not 5"
[[ "$a $b $c $d" == "15 44 75 177" ]] ||
  fail "Chromium shows frames $a $b $c $d around 0.5, 1.5 (before, after) and 4.9 s; the edit put 15 44 75 177 there"
pass "cut export in Chromium: $duration s, frames $a $b $c $d where the edit put them"

# The same export frame by frame, as ffmpeg decodes it and as libmpv shows it: frames
# 0–44, then 75–179.
expected_frames=$(seq -s ' ' 0 44; echo -n ' '; seq -s ' ' 75 179)
expected_frames=$(echo $expected_frames)
check_frames() {
  local movie=$1 what=$2 decoded shown
  decoded=$(coded_frames "$movie")
  [[ $decoded == "$expected_frames" ]] || fail "ffmpeg decodes $what as frames $decoded"
  shown=$(mpv_coded_frames "$movie")
  [[ $shown == "$expected_frames" ]] || fail "libmpv shows $what as frames $shown"
}
check_frames "$work/cut.mp4" "the cut export"
tag=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_tag_string -of csv=p=0 "$work/cut.mp4")
[[ $tag == avc1 ]] || fail "the cut export's sample entry is $tag, not the source's avc1"
pass "cut export of an x264 movie with B-frames (one sample description): ffmpeg and libmpv show the edit's frames"

# A movie whose encoder left no settings in it (the x264 message removed): the frames
# from a cut to the next keyframe bring their own parameter sets (avc3 sample entry).
ffmpeg -v error -y -i "$movies/Coded.mp4" -map 0 -c copy -bsf:v filter_units=remove_types=6 \
  "$movies/Plain.mp4"
"$LUMENVALE" export "$movies/Plain.mp4" --edit "$work/cut.json" --output "$work/plain-cut.mp4" \
  >/dev/null 2>"$work/err" || fail "export failed: $(cat "$work/err")"
tag=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_tag_string -of csv=p=0 "$work/plain-cut.mp4")
[[ $tag == avc3 ]] || fail "the export of a movie without encoder settings has sample entry $tag, not avc3"
# Seeking back from the frames with their own parameter sets to copied ones too. Across
# a change of parameter sets Chromium now and then ends a seek before it paints the
# new frame (about one seek in fifty here; the frame follows within a moment), so the
# picture is read a little after.
read -r duration _ a b c d e f <<<"$(settle_ms=200 browse "$work/plain-cut.mp4" \
  $(echo "0.5+$half; 1.5-$half; 1.5+$half; 4.9+$half; 1.5+$half; 0.2+$half" | bc -l))"
approx "$duration" 5 0.05 || fail "Chromium's duration of the avc3 export: $duration s, not 5"
[[ "$a $b $c $d $e $f" == "15 44 75 177 75 6" ]] ||
  fail "Chromium shows frames $a $b $c $d $e $f of the avc3 export; the edit put 15 44 75 177 75 6 there"
check_frames "$work/plain-cut.mp4" "the avc3 export"
pass "cut export with parameter sets in the samples: Chromium, ffmpeg and libmpv show the edit's frames"

# HEVC (which this Chromium does not play): an x265 movie cut with its own settings
# (hvc1, one sample description) and one whose encoder wrote none (hev1), frame by
# frame in ffmpeg and libmpv.
for info in 1 0; do
  ffmpeg -v error -y -f lavfi \
    -i "color=black:size=320x240:rate=30,format=rgb24,geq=r='mod(N,16)*16+8':g='mod(floor(N/16),16)*16+8':b=128" \
    -t 6 -c:v libx265 -x265-params "log-level=error:info=$info" -tag:v hvc1 -pix_fmt yuv420p -g 60 \
    "$movies/Hevc$info.mp4"
  "$LUMENVALE" export "$movies/Hevc$info.mp4" --edit "$work/cut.json" --output "$work/hevc$info-cut.mp4" \
    >/dev/null 2>"$work/err" || fail "export failed: $(cat "$work/err")"
  tag=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_tag_string -of csv=p=0 "$work/hevc$info-cut.mp4")
  wanted=$([[ $info == 1 ]] && echo hvc1 || echo hev1)
  [[ $tag == "$wanted" ]] || fail "the HEVC export (settings written: $info) has sample entry $tag, not $wanted"
  check_frames "$work/hevc$info-cut.mp4" "the $tag export"
done
pass "HEVC cut exports (hvc1 with the source's settings, hev1 without): ffmpeg and libmpv show the edit's frames"
