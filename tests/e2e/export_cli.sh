#!/usr/bin/env bash
# `lumenvale export` end to end: real movies made with ffmpeg, exported by the real
# binary, checked with ffprobe. Needs $LUMENVALE (the binary). The command needs no
# display or sound server; its settings are isolated in a private config folder.
set -euo pipefail
: "${LUMENVALE:?set LUMENVALE to the lumenvale binary}"

work=$(mktemp -d /tmp/lumenvale-export-cli.XXXXXX)
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME=$work/config
unset APP_STORE
mkdir -p "$XDG_CONFIG_HOME"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
check() { # check DESCRIPTION COMMAND...: records a failure when the command fails
  local description=$1; shift
  "$@" || fail "$description"
}
near() { # near ACTUAL EXPECTED TOLERANCE
  awk -v a="$1" -v e="$2" -v t="$3" 'BEGIN { exit !((a - e) <= t && (e - a) <= t) }'
}
duration() { ffprobe -v error -show_entries format=duration -of csv=p=0 "$1"; }
stream() { # stream FILE ENTRY: the first video stream's entry
  ffprobe -v error -select_streams v:0 -show_entries "stream=$2" -of csv=p=0 "$1"
}
frames() { ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$1"; }
# Runs the export; sets status, out (standard output) and err (standard error).
export_movie() {
  status=0
  "$LUMENVALE" export "$@" >"$work/out" 2>"$work/err" || status=$?
  out=$(cat "$work/out"); err=$(cat "$work/err")
}
edit_json() { # edit_json SOURCE_DURATION SPEED "start end" ...
  local source=$1 speed=$2 clips="" clip; shift 2
  for clip in "$@"; do
    set -- $clip
    clips+="${clips:+,}{\"id\":\"$(cat /proc/sys/kernel/random/uuid)\",\"start\":$1,\"end\":$2}"
  done
  echo "{\"sourceDuration\":$source,\"clips\":[$clips],\"speed\":$speed,\"volumes\":{}}"
}

movies=$work/movies
mkdir -p "$movies"
ffmpeg -v error -f lavfi -i testsrc2=size=320x240:rate=30 -f lavfi -i sine=frequency=440:sample_rate=48000 \
  -t 4 -c:v libx264 -pix_fmt yuv420p -g 30 -c:a aac "$movies/Rec.mp4"

# A cut-only edit is the source minus the cut, copied as H.264, next to the movie.
edit_json 4 1 "0 1.5" "2.5 4" >"$work/cut.json"
export_movie "$movies/Rec.mp4" --edit "$work/cut.json"
check "cut export succeeds ($err)" test "$status" -eq 0
check "cut export prints its path (got '$out')" test "$out" = "$movies/Rec edited.mp4"
check "cut export is 3 s long (got $(duration "$out" 2>/dev/null))" near "$(duration "$out")" 3 0.1
check "cut export keeps H.264" test "$(stream "$out" codec_name)" = h264
check "progress goes to standard error" grep -q "100%" "$work/err"

# The next export takes the next free name.
export_movie "$movies/Rec.mp4" --edit "$work/cut.json"
check "second export is numbered (got '$out')" test "$out" = "$movies/Rec edited 2.mp4"

# Without an edit the whole movie is written.
export_movie "$movies/Rec.mp4" --output "$work/whole.mp4"
check "whole export succeeds ($err)" test "$status" -eq 0
check "whole export is 4 s long" near "$(duration "$work/whole.mp4")" 4 0.1

# A 2x HEVC edit is half as long.
edit_json 4 2 "0 4" >"$work/fast.json"
export_movie "$movies/Rec.mp4" --edit "$work/fast.json" --codec hevc --output "$work/fast.mp4"
check "fast export succeeds ($err)" test "$status" -eq 0
check "fast export goes where --output says" test "$out" = "$work/fast.mp4"
check "fast export is HEVC" test "$(stream "$work/fast.mp4" codec_name)" = hevc
check "fast export is 2 s long" near "$(duration "$work/fast.mp4")" 2 0.1
# Without --codec, the stored recording options choose it.
printf '[General]\noptions="{\\"codec\\":\\"hevc\\"}"\n' >"$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.conf"
export_movie "$movies/Rec.mp4" --edit "$work/fast.json" --output "$work/stored.mp4"
check "stored codec export succeeds ($err)" test "$status" -eq 0
check "stored codec is used" test "$(stream "$work/stored.mp4" codec_name)" = hevc
rm "$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.conf"
export_movie "$movies/Rec.mp4" --output "$work/fast.mp4"
check "an existing --output is refused" test "$status" -ne 0
check "the refused --output is untouched" near "$(duration "$work/fast.mp4")" 2 0.1

# A dangling --output link is refused; nothing is written where it points.
ln -s "$work/elsewhere.mp4" "$work/dangling.mp4"
export_movie "$movies/Rec.mp4" --output "$work/dangling.mp4"
check "a dangling --output link is refused" test "$status" -ne 0
check "nothing is written through the link" test ! -e "$work/elsewhere.mp4"

# Exports appear under their name only when complete. A slow export (encoded again)
# killed while it writes leaves nothing under its name...
ffmpeg -v error -f lavfi -i testsrc2=size=640x360:rate=30 -f lavfi -i sine=frequency=440:sample_rate=48000 \
  -t 20 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 -c:a aac "$movies/Long.mp4"
edit_json 20 1.25 "0 20" >"$work/slow.json"
mkdir "$work/killed"
"$LUMENVALE" export "$movies/Long.mp4" --edit "$work/slow.json" --output "$work/killed/out.mp4" \
  >/dev/null 2>&1 &
pid=$!
for _ in $(seq 400); do [[ -z "$(ls -A "$work/killed")" ]] || break; sleep 0.05; done
kill -9 "$pid"
wait "$pid" || true
check "the killed export had begun writing" test -n "$(ls -A "$work/killed")"
check "a killed export leaves nothing under its name" test ! -e "$work/killed/out.mp4"
# ... and what it left hidden is removed by a later export into the folder, once stale.
find "$work/killed" -name '.*' -type f -exec touch -d '-2 minutes' {} +
export_movie "$movies/Rec.mp4" --output "$work/killed/out.mp4"
check "the next export succeeds ($err)" test "$status" -eq 0
check "the stale hidden file is gone (got $(ls -A "$work/killed" | tr '\n' ' '))" \
  test "$(ls -A "$work/killed")" = out.mp4

# Two exports to one --output at once: one writes it, the other says why. Each reads
# its edit from a pipe, so both look at the name only once both are under way.
for run in 1 2; do
  mkfifo "$work/edit$run.json"
  "$LUMENVALE" export "$movies/Long.mp4" --edit "$work/edit$run.json" --output "$work/same.mp4" \
    >"$work/out$run" 2>"$work/err$run" &
  pids[run]=$!
done
sleep 0.5
cat "$work/slow.json" >"$work/edit1.json" & cat "$work/slow.json" >"$work/edit2.json"
succeeded=0
for run in 1 2; do
  if wait "${pids[run]}"; then succeeded=$((succeeded + 1)); else loser=$run; fi
done
check "exactly one of two exports to one --output succeeds ($succeeded did)" test "$succeeded" -eq 1
check "the other says the file exists" grep -q "already exists" "$work/err${loser:-1}"
check "the movie written decodes cleanly" \
  test -z "$(ffmpeg -v error -i "$work/same.mp4" -f null - 2>&1)"

# A GIF: 10 frames a second, at most 640 pixels on the longer side.
ffmpeg -v error -f lavfi -i testsrc2=size=1280x720:rate=30 -t 2 -c:v libx264 -pix_fmt yuv420p "$movies/Wide.mp4"
export_movie "$movies/Wide.mp4" --gif
check "GIF export succeeds ($err)" test "$status" -eq 0
check "GIF is named after the movie (got '$out')" test "$out" = "$movies/Wide edited.gif"
check "GIF holds 20 frames (got $(frames "$out" 2>/dev/null))" test "$(frames "$out")" = 20
check "GIF is 640x360 (got $(stream "$out" width,height 2>/dev/null))" test "$(stream "$out" width,height)" = "640,360"

# An edit without "volumes" is refused with a message that names it; nothing is written.
echo '{"sourceDuration":4,"clips":[],"speed":1}' >"$work/bad.json"
before=$(ls "$movies" | wc -l)
export_movie "$movies/Rec.mp4" --edit "$work/bad.json"
check "bad edit exits non-zero" test "$status" -ne 0
check "bad edit message names \"volumes\" (got '$err')" grep -q '"volumes"' "$work/err"
check "bad edit prints no path" test -z "$out"
check "bad edit writes nothing" test "$(ls "$movies" | wc -l)" -eq "$before"

# An edit no movie can be made of is refused with a message (it once stopped the
# process on a failed conversion).
edit_json 4 1 "1e300 1e308" >"$work/huge.json"
export_movie "$movies/Rec.mp4" --edit "$work/huge.json"
check "an edit of 1e300 s exits with 1 (got $status)" test "$status" -eq 1
check "an edit of 1e300 s is refused with the reason (got '$err')" grep -q "lies beyond" "$work/err"

# A file that is not a movie.
echo "not a movie" >"$movies/Notes.mp4"
before=$(ls "$movies" | wc -l)
export_movie "$movies/Notes.mp4"
check "not-a-movie exits non-zero" test "$status" -ne 0
check "not-a-movie message names the file (got '$err')" grep -q "Notes.mp4" "$work/err"
check "not-a-movie writes nothing" test "$(ls "$movies" | wc -l)" -eq "$before"

# A picture and a sound file are refused for what they are not.
ffmpeg -v error -f lavfi -i testsrc2=size=64x48 -frames:v 1 "$movies/Still.png"
ffmpeg -v error -f lavfi -i sine=duration=1 -c:a aac "$movies/Voice.m4a"
export_movie "$movies/Still.png"
check "a picture is not a movie (status $status, '$err')" test "$status-$err" = "1-Couldn’t export Still.png. “Still.png” is not a movie."
export_movie "$movies/Voice.m4a"
check "a sound file has no picture (status $status, '$err')" test "$status-$err" = "1-Couldn’t export Voice.m4a. “Voice.m4a” has no picture."

# Paths whose bytes are not UTF-8 are used as they are, as the movie and as --output.
cp "$movies/Rec.mp4" "$movies/"$'Caf\xe9.mp4'
export_movie "$movies/"$'Caf\xe9.mp4' --output "$work/"$'d\xe9j\xe0.mp4'
check "a non-UTF-8 movie exports ($err)" test "$status" -eq 0
check "to the --output named in the same bytes (got '$out')" test "$out" = "$work/"$'d\xe9j\xe0.mp4'
check "which holds the movie" near "$(duration "$work/"$'d\xe9j\xe0.mp4')" 4 0.1

# A malformed command line.
export_movie "$movies/Rec.mp4" --codec vp9
check "unknown codec is a usage error (status $status)" test "$status" -eq 2

if [[ $failures -gt 0 ]]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "export_cli: all checks passed"
