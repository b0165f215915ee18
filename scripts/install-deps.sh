#!/usr/bin/env bash
# Installs the Debian 12 packages Marlune builds, runs and tests with.
# Does nothing when every package is already present. Uses sudo when not root.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang lld libclang-rt-14-dev
  # libraries
  libsqlite3-dev zlib1g-dev libssl-dev libicu-dev nlohmann-json3-dev libyaml-cpp-dev
  libplist-dev libcli11-dev qt6-base-dev libqt6dbus6 libxcb1-dev libxcb-xinput-dev
  libxcb-xkb-dev libxcb-xtest0-dev libxkbcommon-x11-dev libx11-dev libxtst-dev
  libsecret-1-dev libcurl4-openssl-dev libtesseract-dev tesseract-ocr-eng
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  xvfb xdotool xclip dbus dbus-x11 gnome-keyring libsecret-tools
  # real applications the desktop tests type into: GTK, Tk and terminals
  zenity python3-tk xterm rxvt-unicode lxterminal x11-xserver-utils
  # tools the scripts use
  python3 procps
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then
    sudo_cmd=(sudo)
  else
    echo "[Marlune] These packages are missing and sudo is not available: ${missing[*]}" >&2
    exit 1
  fi
fi

echo "[Marlune] Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
