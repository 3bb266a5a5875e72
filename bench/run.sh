#!/usr/bin/env bash
# Runs the benchmarks: Lumenvale side by side with cp and the ffmpeg command line in
# one run, printing times and ratios. Never part of the tests; nothing here asserts.
#
#   bench/run.sh                        build the release preset, run every benchmark
#   BENCH_WORK=DIR bench/run.sh         keep the generated recordings in DIR for reuse
#
# Each benchmark has its own section below: build its target, then run it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=build/release
work=${BENCH_WORK:-${TMPDIR:-/tmp}/lumenvale-bench}
mkdir -p "$work"
cmake --preset release >/dev/null

# --- join: saving the three parts of a 10-minute 1080p recording as one movie -------
# Compared with `cp` of the same bytes and `ffmpeg -f concat -c copy`; also the save
# of a single part (remux, sync, poster) as a recording without pauses is saved.
cmake --build --preset release --target join -j 2 >/dev/null
"$build/bench/join" "$work/join"

# --- cut: cut-only export of a 10-minute 1080p recording ----------------------------
# Compared with `cp` of the recording and `ffmpeg -c copy` of the whole movie: the
# whole movie, two cuts on keyframes (pure copy) and two cuts between keyframes (the
# frames from each cut to the next keyframe encoded again). Then 10 s 720p movies made
# by ffmpeg/libx264 with B-frames, cut twice between keyframes, against ffmpeg
# encoding the same edit, with the share of video packets copied byte for byte.
cmake --build --preset release --target cut -j 2 >/dev/null
"$build/bench/cut" "$work/cut"

# --- gif: the GIF export against ffmpeg's two-pass palettegen / paletteuse ----------
# 300 frames of a moving 1080p test picture and of a 720p fractal zoom: time, bytes and
# SSIM against the same source frames.
cmake --build --preset release --target gif -j 2 >/dev/null
"$build/bench/gif" "$work/gif"

# --- reencode: an edit encoded again (crop, speed, gains) against the ffmpeg command line
# with the same settings, H.264 and HEVC.
cmake --build --preset release --target reencode -j 2 >/dev/null
"$build/bench/reencode" "$work/reencode"

# --- thumbnails: 48 filmstrip pictures of the cut benchmark's 10-minute recording and
# of a one-hour one, against ffmpeg's keyframe-only pass.
cmake --build --preset release --target thumbnails -j 2 >/dev/null
"$build/bench/thumbnails" "$work/cut"

# --- record_cpu: capture and encoding CPU of the recording pipeline with CaptureX11
# against `ffmpeg -f x11grab` with the same x264 settings: desk work at 1080p30 (text
# typed into an xterm, the rest still; also the bytes written a minute), and moving
# pictures at 1080p30, 1080p60 and 4K30, each on an Xvfb of that size. Needs Xvfb,
# xdpyinfo, xterm and xdotool.
cmake --build --preset release --target record_cpu -j 2 >/dev/null
"$build/bench/record_cpu" 10 2>/dev/null

# --- wayland_record: recording CPU of `lumenvale record` through the desktop portal and
# PipeWire against wf-recorder with the same x264 settings, 1080p30 on sway headless
# with a moving picture, and each one's time from exec to its first frame. Runs inside
# tests/wayland_session.sh; needs wf-recorder for the comparison.
cmake --build --preset release --target lumenvale -j 2 >/dev/null
LUMENVALE="$build/Lumenvale/lumenvale" bash "$root/bench/wayland_record.sh" 10 2>/dev/null

# --- tray_startup_idle: the tray application's start-up (exec to its item registered
# with a StatusNotifierWatcher) and its memory, CPU and wake-ups over a minute idle,
# against a minimal Qt tray application and `sleep`.
cmake --build --preset release --target lumenvale -j 2 >/dev/null
LUMENVALE="$build/Lumenvale/lumenvale" bash "$root/bench/tray_startup_idle.sh" 60

# --- preview: the editor's mpv preview after a change (new cut, speed, crop) until the
# new 1080p frame shows, against `ffmpeg -ss T -frames:v 1` decoding the same frame.
# Needs a display with OpenGL: runs inside the test session.
cmake --build --preset release --target preview -j 2 >/dev/null
bash "$root/tests/session.sh" "$build/bench/preview" "$work/preview" 2>/dev/null

# --- recording_panels: the shortcut-to-picker time on two 4K displays, and the CPU of
# a recording with the control, outline and camera bubble shown against one without.
LUMENVALE="$build/Lumenvale/lumenvale" bash "$root/bench/recording_panels.sh" 10

# --- editor_window: the editor with the one-hour recording open: time to the window,
# resident memory (against the tray alone and ffplay with the same movie) and frame
# times while scrubbing. Runs inside the test session.
cmake --build --preset release --target lumenvale -j 2 >/dev/null
LUMENVALE="$build/Lumenvale/lumenvale" bash "$root/bench/editor_window.sh" "$work/cut/hour.mp4"
