#!/usr/bin/env bash
# Whole-application figures on a display of our own: keyword-to-text latency, copy-to-history
# latency and the application's resident memory. Builds the dev preset's DesktopBench.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
preset="${MARLUNE_PRESET:-dev}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target DesktopBench
build="build/$preset"
exec bash scripts/test-session.sh "$build/bench/DesktopBench" \
  "$build/Marlune/marlune-app" "$build/Marlune/marlune" "$build/tests/desktop/TestField"
