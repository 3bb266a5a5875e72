#!/usr/bin/env bash
# Builds Lumenvale (installing missing Debian packages first) and runs it.
#
# With a display, it starts the tray application, passing any arguments on
# (for example: scripts/run.sh record --seconds 5). Without a display (a server,
# a container), it starts a private virtual display and sound server and records
# a short demo of it, printing the movie's path.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target lumenvale
binary=$root/build/release/Lumenvale/lumenvale

if [[ -n "${DISPLAY:-}" ]] && xdpyinfo >/dev/null 2>&1; then
  exec "$binary" "$@"
fi

echo "No display found: recording a 3-second demo on a virtual display." >&2
folder=${LUMENVALE_DEMO_FOLDER:-$HOME/Videos}
mkdir -p "$folder"
exec tests/session.sh bash -c '
  # Something to look at: a clock window that changes while we record.
  xclock -update 1 -geometry 400x400+200+150 >/dev/null 2>&1 &
  sleep 0.5
  "$0" record --screen --seconds 3 --no-countdown --folder "$1"
' "$binary" "$folder"
