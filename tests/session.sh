#!/usr/bin/env bash
# Runs a command inside a private desktop session made of real parts:
#   - a D-Bus session bus (dbus-run-session) that starts the installed services on
#     demand, except the desktop portal,
#   - Xvfb (1920x1080, or LUMENVALE_SCREEN_SIZE, 24-bit, with MIT-SHM, Composite and DAMAGE)
#     and the openbox window manager,
#   - a PulseAudio server with a null sink "lumenvale_speakers" (the default sink:
#     its monitor is the system audio) and a virtual microphone "lumenvale_mic"
#     (a null sink's monitor remapped into an ordinary, non-monitor source; play a
#     sound into the sink "lumenvale_mic_input" to speak into it).
# Everything it starts is stopped when the command ends. Usage:
#   tests/session.sh COMMAND [ARGS...]
set -euo pipefail

if [[ -z "${LUMENVALE_SESSION_INNER:-}" ]]; then
  export LUMENVALE_SESSION_INNER=1
  # The bus starts the installed services on demand, but not the desktop portal: this
  # X11 desktop has none (it is installed for tests/wayland_session.sh).
  LUMENVALE_SESSION_BUS=$(mktemp -d /tmp/lumenvale-bus.XXXXXX)
  export LUMENVALE_SESSION_BUS
  mkdir "$LUMENVALE_SESSION_BUS/services"
  for service in /usr/share/dbus-1/services/*.service; do
    [[ $(basename "$service") == org.freedesktop.*portal* ]] ||
      ln -s "$service" "$LUMENVALE_SESSION_BUS/services/"
  done
  cat >"$LUMENVALE_SESSION_BUS/session.conf" <<CONF
<busconfig><type>session</type><keep_umask/><listen>unix:tmpdir=/tmp</listen>
<auth>EXTERNAL</auth><servicedir>$LUMENVALE_SESSION_BUS/services</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy></busconfig>
CONF
  exec dbus-run-session --config-file="$LUMENVALE_SESSION_BUS/session.conf" -- "$0" "$@"
fi

# An X11 session even when started from a Wayland desktop.
unset WAYLAND_DISPLAY XDG_SESSION_TYPE LUMENVALE_CAPTURE
runtime=$(mktemp -d /tmp/lumenvale-session.XXXXXX)
export XDG_RUNTIME_DIR=$runtime
export HOME=${LUMENVALE_TEST_HOME:-$runtime/home}
mkdir -p "$HOME"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$runtime" "${LUMENVALE_SESSION_BUS:-}"
}
trap cleanup EXIT

# A free display number.
display=99
while [[ -e /tmp/.X11-unix/X$display || -e /tmp/.X$display-lock ]]; do display=$((display + 1)); done
Xvfb ":$display" -screen 0 "${LUMENVALE_SCREEN_SIZE:-1920x1080}x24" -nolisten tcp +extension Composite +extension MIT-SHM \
  +extension XFIXES +extension XInputExtension +extension RANDR +extension DAMAGE >"$runtime/xvfb.log" 2>&1 &
pids+=($!)
export DISPLAY=":$display"
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.05; done
xdpyinfo >/dev/null 2>&1 || { echo "Xvfb did not start:" >&2; cat "$runtime/xvfb.log" >&2; exit 1; }
# The capture reads only what changed, as DAMAGE reports it; without it every frame is read.
[[ "$(xdpyinfo -queryExtensions)" == *DAMAGE* ]] || { echo "Xvfb lacks the DAMAGE extension" >&2; exit 1; }

openbox >"$runtime/openbox.log" 2>&1 &
pids+=($!)

pulseaudio --daemonize=no --exit-idle-time=-1 --disallow-exit -n \
  --load="module-native-protocol-unix auth-anonymous=1 socket=$runtime/pulse.sock" \
  --load="module-null-sink sink_name=lumenvale_speakers rate=48000 channels=2" \
  --load="module-null-sink sink_name=lumenvale_mic_input rate=48000 channels=1" \
  --load="module-remap-source source_name=lumenvale_mic master=lumenvale_mic_input.monitor channels=1" \
  --load="module-always-sink" >"$runtime/pulse.log" 2>&1 &
pids+=($!)
export PULSE_SERVER="unix:$runtime/pulse.sock"
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
pactl info >/dev/null 2>&1 || { echo "PulseAudio did not start:" >&2; cat "$runtime/pulse.log" >&2; exit 1; }
pactl set-default-sink lumenvale_speakers
pactl set-default-source lumenvale_mic

# Wait for openbox to manage the screen before handing over.
for _ in $(seq 100); do xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q window && break; sleep 0.05; done

set +e
"$@"
status=$?
set -e
exit $status
