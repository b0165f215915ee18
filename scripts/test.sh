#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs every test inside a
# private session: its own D-Bus session bus, an unlocked test keyring and an Xvfb display.
set -euo pipefail
cd "$(dirname "$0")/.."

preset="${MARLUNE_PRESET:-ci}"
bash scripts/install-deps.sh
bash scripts/check-engine-includes.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
# Tests that open windows leave screenshots here, for a person to look at.
export MARLUNE_SCREENSHOT_DIR="${MARLUNE_SCREENSHOT_DIR:-$PWD/build/$preset/screenshots}"
echo "[Marlune] Screenshots of the desktop tests go to $MARLUNE_SCREENSHOT_DIR"
exec bash scripts/test-session.sh ctest --preset "$preset" -j "$(nproc)" "$@"
