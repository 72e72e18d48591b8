#!/usr/bin/env bash
# Sets vetext up on a fresh Debian 12 machine, builds it, and runs the main job: the default
# document rendered over a test pattern into vetext.png.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
bash scripts/install-deps.sh
# scripts/test.sh configures build/ the same way, so the two share one build.
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVETEXT_BENCH=ON
ninja -C build -j2
./build/tools/vetext/vetext "$@"
