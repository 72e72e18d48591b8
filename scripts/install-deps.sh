#!/usr/bin/env bash
# Installs every Debian 12 package that building, testing and benchmarking vetext needs.
# Idempotent: packages already present are left alone. Runs as root or through sudo.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang clang-format libclang-rt-14-dev
  # host libraries and the module
  libboost-dev libboost-thread-dev rapidjson-dev libxxhash-dev
  libpango1.0-dev libharfbuzz-dev libcairo2-dev libfreetype-dev libfontconfig-dev
  # the command-line tool
  libavformat-dev libavcodec-dev libavfilter-dev libavutil-dev libswscale-dev libswresample-dev
  libpng-dev libcli11-dev ffmpeg
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev libass-dev
  # the frei0r filter, and the real programs that load it in the tests
  frei0r-plugins-dev melt gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-bad
  # fonts: Latin (metric-compatible stand-in for the default font), fallback, CJK, Devanagari
  fonts-liberation2 fonts-dejavu-core fonts-wqy-microhei fonts-lohit-deva fontconfig
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
echo "install-deps: all ${#packages[@]} packages present"

# The default font request resolves through vetext's fontconfig alias.
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
alias_conf=/etc/fonts/conf.d/60-vetext-aliases.conf
if ! cmp -s "$here/fonts/60-vetext-aliases.conf" "$alias_conf" 2>/dev/null; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO install -m 644 "$here/fonts/60-vetext-aliases.conf" "$alias_conf"
  $SUDO fc-cache -f >/dev/null
fi
