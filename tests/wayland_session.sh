#!/usr/bin/env bash
# Runs a command inside a private Wayland desktop session made of real parts:
#   - a D-Bus session bus (dbus-run-session),
#   - PipeWire with WirePlumber, and pipewire-pulse as the PulseAudio server, set up as
#     tests/session.sh sets up PulseAudio: a null sink "lumenvale_speakers" (the
#     default sink: its monitor is the system audio) and a virtual microphone
#     "lumenvale_mic" (play into the sink "lumenvale_mic_input" to speak into it),
#   - sway on its headless backend, drawing with pixman: one output HEADLESS-1 of
#     1280x720 (or LUMENVALE_SCREEN_SIZE), no borders; no XWayland unless
#     LUMENVALE_XWAYLAND=1 asks for it (then DISPLAY names it),
#   - the desktop portal (xdg-desktop-portal) with its wlroots backend
#     (xdg-desktop-portal-wlr), which shares HEADLESS-1 without asking; on a machine
#     without a GPU render node it gets tests/support/screencopy_dmabuf_notice.c
#     preloaded, without which it refuses to share anything there.
# sway refuses to run as root: started as root, the session runs as the user nobody.
# The command finds WAYLAND_DISPLAY, SWAYSOCK, XDG_RUNTIME_DIR, PULSE_SERVER and
# LUMENVALE_SESSION_PIPEWIRE_PID (PipeWire's process) set; HOME is a
# fresh folder; each part logs to $XDG_RUNTIME_DIR/NAME.log (portal-wlr.log: the
# portal's backend, at LUMENVALE_PORTAL_WLR_LOG, INFO unless set). Everything started here is stopped when the command ends. Usage:
#   tests/wayland_session.sh COMMAND [ARGS...]
# Exits with 77 (after saying why) when the compositor cannot start here.
set -euo pipefail

if [[ $(id -u) -eq 0 ]]; then
  as_nobody=(setpriv --reuid=nobody --regid=nogroup --clear-groups --)
  for needed in "$0" ${LUMENVALE:+"$LUMENVALE"}; do
    "${as_nobody[@]}" test -r "$needed" || {
      echo "The Wayland session runs as nobody, who cannot read $needed: make the checkout" \
        "and the build readable by all users." >&2
      exit 1
    }
  done
  exec "${as_nobody[@]}" "$0" "$@"
fi
if [[ -z "${LUMENVALE_WAYLAND_SESSION_INNER:-}" ]]; then
  export LUMENVALE_WAYLAND_SESSION_INNER=1
  unset XDG_RUNTIME_DIR # another session's, maybe another user's
  exec dbus-run-session -- "$0" "$@"
fi

runtime=$(mktemp -d /tmp/lumenvale-wayland.XXXXXX)
chmod 700 "$runtime"
export XDG_RUNTIME_DIR=$runtime
export HOME=$runtime/home
export XDG_CONFIG_HOME=$HOME/.config
mkdir -p "$HOME" "$XDG_CONFIG_HOME"
unset DISPLAY WAYLAND_DISPLAY PULSE_SERVER LUMENVALE_CAPTURE
export XDG_CURRENT_DESKTOP=sway XDG_SESSION_TYPE=wayland LC_ALL=C.UTF-8
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$runtime"
}
trap cleanup EXIT

# wait_for TEST LOG WHAT: waits up to 10 s for TEST to succeed; fails with LOG otherwise.
wait_for() {
  for _ in $(seq 200); do eval "$1" && return 0; sleep 0.05; done
  echo "$3 did not start:" >&2
  cat "$2" >&2
  exit 1
}

pipewire >"$runtime/pipewire.log" 2>&1 &
pids+=($!)
export LUMENVALE_SESSION_PIPEWIRE_PID=$! # for tests that take it away
wait_for '[[ -S $XDG_RUNTIME_DIR/pipewire-0 ]]' "$runtime/pipewire.log" PipeWire
wireplumber >"$runtime/wireplumber.log" 2>&1 &
pids+=($!)
pipewire-pulse >"$runtime/pipewire-pulse.log" 2>&1 &
pids+=($!)
export PULSE_SERVER=unix:$runtime/pulse/native
wait_for 'pactl info >/dev/null 2>&1' "$runtime/pipewire-pulse.log" pipewire-pulse
pactl load-module module-null-sink sink_name=lumenvale_speakers rate=48000 channels=2 >/dev/null
pactl load-module module-null-sink sink_name=lumenvale_mic_input rate=48000 channels=1 >/dev/null
pactl load-module module-remap-source source_name=lumenvale_mic master=lumenvale_mic_input.monitor \
  channels=1 >/dev/null
# WirePlumber takes the defaults a moment after the nodes appear.
wait_for 'pactl set-default-sink lumenvale_speakers && pactl set-default-source lumenvale_mic &&
  [[ $(pactl get-default-sink) == lumenvale_speakers && $(pactl get-default-source) == lumenvale_mic ]]' \
  "$runtime/wireplumber.log" "The default sink and source"

cat >"$runtime/sway.conf" <<CONF
output HEADLESS-1 resolution ${LUMENVALE_SCREEN_SIZE:-1280x720} position 0 0
default_border none
default_floating_border none
xwayland $([[ ${LUMENVALE_XWAYLAND:-} == 1 ]] && echo enable || echo disable)
CONF
WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 \
  sway --config "$runtime/sway.conf" >"$runtime/sway.log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do
  socket=$(find "$XDG_RUNTIME_DIR" -maxdepth 1 -name 'sway-ipc.*.sock' -print -quit)
  [[ -n "$socket" ]] && break
  kill -0 "${pids[-1]}" 2>/dev/null || break
  sleep 0.05
done
if [[ -z "${socket:-}" ]]; then
  echo "SKIP: sway could not start a headless Wayland session here:" >&2
  tail -n 20 "$runtime/sway.log" >&2
  exit 77
fi
export SWAYSOCK=$socket
export WAYLAND_DISPLAY
WAYLAND_DISPLAY=$(basename "$(find "$XDG_RUNTIME_DIR" -maxdepth 1 -name 'wayland-*' ! -name '*.lock' -print -quit)")
wait_for 'swaymsg -t get_outputs 2>/dev/null | grep -q HEADLESS-1' "$runtime/sway.log" "sway's output"
if [[ ${LUMENVALE_XWAYLAND:-} == 1 ]]; then
  # sway runs its commands with DISPLAY naming XWayland once that is up.
  xwayland_display() {
    swaymsg exec "echo \$DISPLAY >$runtime/display.new && mv $runtime/display.new $runtime/display" \
      >/dev/null || return 1
    sleep 0.1
    grep -q '^:' "$runtime/display" 2>/dev/null
  }
  wait_for xwayland_display "$runtime/sway.log" XWayland
  export DISPLAY
  DISPLAY=$(cat "$runtime/display")
fi

# The portal and its backend see this session's environment (also when the bus
# starts them itself).
dbus-update-activation-environment ${DISPLAY:+DISPLAY} WAYLAND_DISPLAY SWAYSOCK XDG_RUNTIME_DIR XDG_CURRENT_DESKTOP \
  XDG_SESSION_TYPE HOME XDG_CONFIG_HOME
cat >"$runtime/portal-wlr.conf" <<CONF
[screencast]
chooser_type=none
output_name=HEADLESS-1
max_fps=30
CONF
# Without a GPU render node the backend needs a word of help (see the file).
preload=
if ! compgen -G '/dev/dri/renderD*' >/dev/null; then
  preload=$runtime/screencopy_dmabuf_notice.so
  cc -shared -fPIC -o "$preload" "$(dirname "$0")/support/screencopy_dmabuf_notice.c" \
    $(pkg-config --cflags --libs wayland-client) -ldl
fi
LD_PRELOAD=$preload /usr/libexec/xdg-desktop-portal-wlr --loglevel="${LUMENVALE_PORTAL_WLR_LOG:-INFO}" --config "$runtime/portal-wlr.conf" >"$runtime/portal-wlr.log" 2>&1 &
pids+=($!)
wait_for 'busctl --user status org.freedesktop.impl.portal.desktop.wlr >/dev/null 2>&1' \
  "$runtime/portal-wlr.log" xdg-desktop-portal-wlr
/usr/libexec/xdg-desktop-portal >"$runtime/portal.log" 2>&1 &
pids+=($!)
wait_for 'busctl --user status org.freedesktop.portal.Desktop >/dev/null 2>&1' \
  "$runtime/portal.log" xdg-desktop-portal

set +e
"$@"
status=$?
set -e
if [[ $status -ne 0 && -n "${LUMENVALE_SESSION_LOGS:-}" ]]; then
  for log in "$runtime"/*.log; do echo "--- $log" >&2; tail -n 30 "$log" >&2; done
fi
exit $status
