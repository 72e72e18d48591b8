#!/usr/bin/env bash
# Builds vetext and runs every test: the unit and end-to-end tests (ctest), the same tests under
# the address and undefined-behaviour sanitizers, the threaded tests under the thread sanitizer,
# then each fuzz target for a bounded time over its seed corpus.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
bash scripts/install-deps.sh
jobs="${VETEXT_JOBS:-2}"

# The same build as scripts/setup.sh (Release, benchmarks included), so that after setup this
# step rebuilds nothing.
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVETEXT_BENCH=ON
ninja -C build -j"$jobs"
ctest --test-dir build -j"$jobs" --output-on-failure --timeout 600

# The same tests under AddressSanitizer and UndefinedBehaviorSanitizer. The settings go through
# the environment so that they reach the tool's child processes too; the suppressions name only
# memory and races inside system libraries (each one says why).
# intercept_tls_get_addr=0: the leak checker of GCC 12 mis-reads the dynamic TLS that glibc 2.36
# hands a dlopen'ed module and, now and then under load, crashes in its own tracer ("Tracer caught
# signal 11" at a DTLS range that starts near 0x1890). Without the interception the checker no
# longer walks dynamic TLS; that can only add reports (memory held by nothing but a thread_local
# of a loaded module), never hide a leak.
export ASAN_OPTIONS="intercept_tls_get_addr=0"
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
export TSAN_OPTIONS="suppressions=$root/tests/tsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVETEXT_SANITIZE=ON \
  -DVETEXT_BENCH=OFF
ninja -C build-asan -j"$jobs"
ctest --test-dir build-asan -j"$jobs" --output-on-failure --timeout 600

# The tests that run threads, under ThreadSanitizer; only their executables are built.
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVETEXT_TSAN=ON \
  -DVETEXT_BENCH=OFF
ninja -C build-tsan -j"$jobs" test_hostlibs test_engine test_render test_host test_adapters
ctest --test-dir build-tsan -j"$jobs" --output-on-failure --timeout 600 \
  -R "Thread|Concurrent|Mutex"

if [ -d fuzz ] && ls fuzz/*/CMakeLists.txt >/dev/null 2>&1 && command -v clang++ >/dev/null; then
  CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVETEXT_FUZZ=ON -DVETEXT_BENCH=OFF
  ninja -C build-fuzz -j"$jobs" fuzzers
  bash scripts/run-fuzzers.sh build-fuzz "${VETEXT_FUZZ_SECONDS:-30}"
fi
