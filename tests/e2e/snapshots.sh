#!/usr/bin/env bash
# The documentation's screenshots: APP_SNAPSHOT renders the asked pages at 1x and 2x
# (twice the pixels each way), with the layout probes of named elements, and refuses to
# run outside a test store or for a page that does not exist.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

shots=$work/shots
png_size() { python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print(*struct.unpack(">II", d[16:24]))' "$1"; }
# The picture's darkest and lightest luma: far apart when the window drew its content.
luma_range() {
  ffmpeg -v error -i "$1" -vf "format=gray,signalstats,metadata=print:file=-" -f null - |
    awk -F= '/YMIN/ { min = $2 } /YMAX/ { max = $2 } END { print max - min }'
}

set +e
APP_SNAPSHOT=$shots "$LUMENVALE" >"$work/out" 2>"$work/err"
status=$?
set -e
[[ $status -eq 1 ]] && grep -qx "SNAPSHOT refused: set APP_STORE to a folder in /tmp" "$work/err" ||
  fail "a run without a test store was not refused (status $status): $(cat "$work/err")"
[[ ! -e $shots ]] || fail "a refused run wrote pictures"
pass "refused without APP_STORE"

export APP_STORE=$work/store
set +e
APP_SNAPSHOT=$shots APP_SNAPSHOT_PAGES=menu,nonsense "$LUMENVALE" >"$work/out" 2>"$work/err"
status=$?
set -e
[[ $status -eq 1 ]] && grep -q "there is no page “nonsense”" "$work/err" ||
  fail "an unknown page was not refused (status $status): $(cat "$work/err")"
pass "an unknown page is refused"

APP_SNAPSHOT=$shots APP_SNAPSHOT_PAGES=menu-recording,settings-shortcuts,welcome "$LUMENVALE" \
  >"$work/out" 2>"$work/err" || fail "the snapshot run failed: $(cat "$work/err")"
for page in menu-recording settings-shortcuts welcome; do
  read -r w1 h1 < <(png_size "$shots/$page@1x.png")
  read -r w2 h2 < <(png_size "$shots/$page@2x.png")
  [[ $w2 -eq $((2 * w1)) && $h2 -eq $((2 * h1)) ]] || fail "$page: 2x is ${w2}x$h2 for 1x ${w1}x$h1"
  [[ $(luma_range "$shots/$page@1x.png") -gt 100 ]] || fail "$page: the picture is blank"
done
[[ ! -e $shots/about@1x.png ]] || fail "a page that was not asked for was rendered"
python3 - "$shots" <<'PY' || fail "the layout probes are wrong"
import json, sys
menu = json.load(open(sys.argv[1] + "/menu-recording.json"))
assert menu["width"] == 280, menu["width"]
header = [p for p in menu["probes"] if p["name"] == "menuHeaderText"]
assert header and 0 <= header[0]["x"] < 280 and header[0]["height"] > 0, menu["probes"]
tabs = json.load(open(sys.argv[1] + "/settings-shortcuts.json"))
assert any(p["name"] == "settingsTabs" for p in tabs["probes"]), tabs["probes"]
PY
pass "pages at 1x and 2x with their layout probes"
