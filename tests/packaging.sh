#!/usr/bin/env bash
# The Debian package, made by cpack from the build tree: what it installs, that the
# desktop's own validators accept its desktop entry, AppStream metainfo and manual
# page, that its dependencies come from the shared libraries, and that the installed
# binary runs. LUMENVALE_BUILD names the build folder (it holds CPackConfig.cmake).
set -euo pipefail
: "${LUMENVALE_BUILD:?set LUMENVALE_BUILD to the build folder}"

work=$(mktemp -d /tmp/lumenvale-packaging.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
pass() { echo "ok: $*"; }

id=app.lumenvale.Lumenvale
if ! cpack -G DEB -B "$work" --config "$LUMENVALE_BUILD/CPackConfig.cmake" >"$work/cpack.log" 2>&1; then
  cat "$work/cpack.log" >&2
  fail "cpack could not make the package"
fi
debs=("$work"/*.deb)
[[ ${#debs[@]} -eq 1 && -f ${debs[0]} ]] || fail "cpack made no single .deb: ${debs[*]}"
deb=${debs[0]}
version=$(dpkg-deb -f "$deb" Version)

dpkg-deb -c "$deb" | awk '{ print $NF }' >"$work/contents"
for path in usr/bin/lumenvale \
  "usr/share/applications/$id.desktop" \
  "usr/share/metainfo/$id.metainfo.xml" \
  "usr/share/icons/hicolor/scalable/apps/$id.svg" \
  "usr/share/icons/hicolor/symbolic/apps/$id-symbolic.svg" \
  "usr/share/icons/hicolor/scalable/status/$id-tray-idle.svg" \
  "usr/share/icons/hicolor/scalable/status/$id-tray-recording.svg" \
  "usr/share/icons/hicolor/symbolic/status/$id-tray-idle-symbolic.svg" \
  "usr/share/icons/hicolor/symbolic/status/$id-tray-recording-symbolic.svg" \
  usr/share/man/man1/lumenvale.1.gz; do
  grep -qxF "./$path" "$work/contents" || fail "the package lacks /$path"
done
pass "the package holds the binary, desktop entry, metainfo, icons and manual page"

depends=$(dpkg-deb -f "$deb" Depends)
for library in 'libqt6core6 ' 'libavformat[0-9]+ ' 'libpulse0 ' 'libxcb1(,|$)' \
  'qml6-module-qtquick-controls(,|$)' 'qt6-qpa-plugins(,|$)' 'qt6-wayland(,|$)'; do
  grep -qE "(^|, )$library" <<<"$depends" || fail "Depends names no ${library%% *}: $depends"
done
pass "its dependencies name the shared libraries and the QML modules: $depends"

root=$work/root
dpkg-deb -x "$deb" "$root"
desktop-file-validate "$root/usr/share/applications/$id.desktop" >"$work/desktop.log" 2>&1 ||
  fail "desktop-file-validate: $(cat "$work/desktop.log")"
[[ ! -s $work/desktop.log ]] || fail "desktop-file-validate: $(cat "$work/desktop.log")"
icon=$(sed -n 's/^Icon=//p' "$root/usr/share/applications/$id.desktop")
[[ -f $root/usr/share/icons/hicolor/scalable/apps/$icon.svg ]] || fail "no icon named $icon"
pass "desktop-file-validate accepts the desktop entry, whose icon is in the package"

metainfo=$root/usr/share/metainfo/$id.metainfo.xml
appstreamcli validate --no-net "$metainfo" >"$work/appstream.log" 2>&1 ||
  fail "appstreamcli validate: $(cat "$work/appstream.log")"
newest=$(grep -o '<release version="[^"]*"' "$metainfo" | head -n1 | cut -d'"' -f2)
[[ $newest == "$version" ]] || fail "the metainfo's newest release is $newest, the package $version"
pass "appstreamcli accepts the metainfo, whose newest release is the package's"

for svg in "$root"/usr/share/icons/hicolor/*/*/*.svg; do
  python3 -c 'import sys, xml.etree.ElementTree as t; sys.exit(t.parse(sys.argv[1]).getroot().tag != "{http://www.w3.org/2000/svg}svg")' "$svg" ||
    fail "$(basename "$svg") is not an SVG picture"
done
pass "every icon is an SVG picture"

page=$root/usr/share/man/man1/lumenvale.1.gz
LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings=w -E UTF-8 -l "$page" >"$work/man.txt" 2>"$work/man.log" ||
  fail "man could not show the page: $(cat "$work/man.log")"
[[ ! -s $work/man.log ]] || fail "the manual page renders with warnings: $(cat "$work/man.log")"
grep -q "lumenvale export MOVIE" "$work/man.txt" || fail "the manual page shows no synopsis"
zgrep -q "^\.TH LUMENVALE 1 .* \"Lumenvale $version\"" "$page" ||
  fail "the manual page is not of version $version"
pass "the manual page renders without warnings"

"$root/usr/bin/lumenvale" --help >"$work/help.txt" || fail "the installed binary does not run"
grep -q "lumenvale record" "$work/help.txt" || fail "the installed binary printed no usage"
pass "the installed binary runs"
