#!/usr/bin/env bash
# Fails when the core library includes anything from Qt, FFmpeg, X11 or PulseAudio.
set -euo pipefail
core=${1:?usage: check_core_includes.sh LUMENVALEKIT_DIR}
pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"](Q[A-Za-z]*|Qt[A-Za-z]*/|lib(av|sw)[a-z]*/|X11/|xcb/|pulse/|mpv/|libyuv)'
if hits=$(grep -rnE "$pattern" "$core" --include='*.h' --include='*.hpp' --include='*.cpp'); then
  echo "LumenvaleKit must not include platform libraries:" >&2
  echo "$hits" >&2
  exit 1
fi
echo "LumenvaleKit includes only the standard library and nlohmann/json."
