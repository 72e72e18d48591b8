#!/usr/bin/env bash
# Builds vetext and runs every test: the unit and end-to-end tests (ctest), then each fuzz
# target for a bounded time over its seed corpus.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
bash scripts/install-deps.sh
jobs="${VETEXT_JOBS:-2}"

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
ninja -C build -j"$jobs"
ctest --test-dir build -j"$jobs" --output-on-failure --timeout 600

if [ -d fuzz ] && ls fuzz/*/CMakeLists.txt >/dev/null 2>&1 && command -v clang++ >/dev/null; then
  CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVETEXT_FUZZ=ON -DVETEXT_BENCH=OFF
  ninja -C build-fuzz -j"$jobs" fuzzers
  bash scripts/run-fuzzers.sh build-fuzz "${VETEXT_FUZZ_SECONDS:-30}"
fi
