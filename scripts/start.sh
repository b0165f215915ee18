#!/usr/bin/env bash
# Installs what is missing, builds Marlune and starts marlune-app on the default library
# (${XDG_DATA_HOME:-~/.local/share}/Marlune). Without a display it runs headless.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target marlune-app marlune
args=()
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  args+=(--headless)
fi
exec ./build/release/Marlune/marlune-app "${args[@]}" "$@"
