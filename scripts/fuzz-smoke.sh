#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one briefly over its seed corpus, so a
# decoder that crashes on a known input fails CI. Longer runs: raise MARLUNE_FUZZ_SECONDS.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${MARLUNE_FUZZ_SECONDS:-15}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzzers
status=0
for fuzzer in build/fuzz/fuzz/*; do
  [ -x "$fuzzer" ] && [ -f "$fuzzer" ] || continue
  name="$(basename "$fuzzer")"
  corpus="$(mktemp -d)"
  seeds=()
  for dir in fuzz/corpus/*; do
    case "$name" in "$(basename "$dir")"*) seeds+=("$dir") ;; esac
  done
  echo "[Marlune] fuzzing $name for ${seconds}s"
  if ! "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      "$corpus" "${seeds[@]}" >"$corpus.log" 2>&1; then
    echo "[Marlune] $name failed:" >&2
    tail -n 40 "$corpus.log" >&2
    status=1
  else
    grep -E 'stat::number_of_executed_units' "$corpus.log" || true
  fi
  rm -rf "$corpus" "$corpus.log"
done
exit $status
