#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing Lumenvale
# need, and only those that are missing. Safe to run again; needs root or sudo.
set -euo pipefail

build_packages=(
  cmake ninja-build g++ clang pkg-config clang-format libclang-rt-14-dev
  libgtest-dev libgmock-dev nlohmann-json3-dev
  qt6-base-dev qt6-declarative-dev qml6-module-qtquick qml6-module-qtquick-controls
  qml6-module-qtquick-window qml6-module-qtquick-layouts qml6-module-qtquick-templates
  qml6-module-qtquick-dialogs qml6-module-qtqml-workerscript qml6-module-qtquick-controls
  libqt6svg6 qt6-qpa-plugins qt6-multimedia-dev
  libavformat-dev libavcodec-dev libavfilter-dev libavutil-dev libswscale-dev libswresample-dev
  libxcb1-dev libxcb-shm0-dev libxcb-composite0-dev libxcb-render0-dev libxcb-xfixes0-dev
  libxcb-randr0-dev libxcb-xinput-dev libxcb-shape0-dev libxcb-xkb-dev libxcb-xtest0-dev
  libxcb-damage0-dev
  libxkbcommon-dev libxkbcommon-x11-dev
  libpulse-dev libmpv-dev libyuv-dev
  libpipewire-0.3-dev libwayland-dev
  dpkg-dev file
)
runtime_packages=(
  xvfb openbox pulseaudio pulseaudio-utils dbus dbus-x11 xdotool xterm x11-utils x11-apps x11-xserver-utils ffmpeg
  chromium python3 bc
  desktop-file-utils appstream man-db
  at-spi2-core python3-pyatspi python3-dbus python3-gi xclip xcompmgr
  qml6-module-qtmultimedia gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  # The Wayland test session: sway headless (with XWayland for the tray
  # application's tests), PipeWire and the desktop portal; a GStreamer video source
  # for PipeWire. Qt's Wayland platform, for a Wayland desktop without XWayland.
  sway xwayland foot pipewire wireplumber xdg-desktop-portal xdg-desktop-portal-wlr
  qt6-wayland
  gstreamer1.0-tools gstreamer1.0-pipewire
  # PipeWire's PulseAudio server: the Wayland test session's sound.
  pipewire-pulse
)

wanted=("${build_packages[@]}")
[[ "${1:-}" == "--build-only" ]] || wanted+=("${runtime_packages[@]}")

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing missing packages: ${missing[*]}" >&2
sudo_cmd=()
[[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
