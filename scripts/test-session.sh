#!/usr/bin/env bash
# Runs a command inside a private D-Bus session with an unlocked gnome-keyring and an
# Xvfb display, all started here and ended here by their process ids.
set -euo pipefail

if [ -z "${MARLUNE_IN_TEST_SESSION:-}" ]; then
  export MARLUNE_IN_TEST_SESSION=1
  exec dbus-run-session -- bash "$0" "$@"
fi

session_dir="$(mktemp -d /tmp/marlune-test-session.XXXXXX)"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$session_dir"
}
trap cleanup EXIT

# Keyring files live in a throwaway data directory so no real keyring is touched.
if command -v gnome-keyring-daemon >/dev/null 2>&1; then
  mkdir -p "$session_dir/keyring-data"
  printf 'marlune-test-password' | XDG_DATA_HOME="$session_dir/keyring-data" \
    gnome-keyring-daemon --foreground --unlock --components=secrets >"$session_dir/keyring.log" 2>&1 &
  pids+=("$!")
  export MARLUNE_TEST_KEYRING=1
fi

# A display of our own: -displayfd lets Xvfb choose a free number and tell us.
if command -v Xvfb >/dev/null 2>&1; then
  exec 3<> "$session_dir/displayfd"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset >"$session_dir/xvfb.log" 2>&1 &
  pids+=("$!")
  for _ in $(seq 1 100); do
    display_number="$(head -n1 "$session_dir/displayfd" 2>/dev/null || true)"
    [ -n "$display_number" ] && break
    sleep 0.1
  done
  if [ -n "${display_number:-}" ]; then
    export DISPLAY=":$display_number"
  else
    echo "[Marlune] Xvfb did not start; desktop tests will be skipped." >&2
  fi
fi

# Wait briefly for the Secret Service to take its bus name.
if [ -n "${MARLUNE_TEST_KEYRING:-}" ]; then
  for _ in $(seq 1 50); do
    if dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null | grep -q 'true'; then
      break
    fi
    sleep 0.1
  done
fi

"$@"
