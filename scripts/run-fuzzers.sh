#!/usr/bin/env bash
# Runs every fuzz target in a fuzz build for a bounded time, starting from its seed corpus in
# fuzz/<name>/corpus (kept in the repository; crashers found earlier live there too, so they are
# re-run every time). Usage: run-fuzzers.sh BUILD_DIR SECONDS_PER_TARGET
#
# VETEXT_FUZZ_SEED (default 1) fixes libFuzzer's random seed, so that a CI run explores the same
# mutations each time and fails only for a change in the code or the corpus; 0 picks a fresh
# seed, for longer exploratory runs (whose finds go into the corpus).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-build-fuzz}"
seconds="${2:-30}"
seed="${VETEXT_FUZZ_SEED:-1}"
# The leak check at exit ignores what fontconfig keeps for the life of the process (it re-reads
# its configuration every 30 s, so a long run always ends with some); nothing of ours is named.
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp:print_suppressions=0}"
passed=0
failed=0
for bin in "$build"/fuzz/*/fuzz_*; do
  [ -x "$bin" ] || continue
  name="$(basename "$(dirname "$bin")")"
  corpus="$root/fuzz/$name/corpus"
  work="$(mktemp -d)"
  seeds=()
  [ -d "$corpus" ] && seeds+=("$corpus")
  echo "fuzz: $(basename "$bin") for ${seconds}s"
  if FONTCONFIG_FILE="$root/fonts/fonts.conf" "$bin" -seed="$seed" -max_total_time="$seconds" -timeout=10 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/" "$work" "${seeds[@]}" \
       >"$work/log" 2>&1; then
    passed=$((passed + 1))
    grep -E "stat::number_of_executed_units" "$work/log" || true
  else
    failed=$((failed + 1))
    tail -n 40 "$work/log"
    echo "fuzz: $(basename "$bin") FAILED; artifacts in $work"
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
