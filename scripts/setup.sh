#!/usr/bin/env bash
# Installs what the build and the tests need from Debian's packages; with
# --bench also Google Benchmark and OpenCV for the side-by-side benchmarks,
# with --fuzz clang and its libFuzzer runtime.
set -euo pipefail
packages=(cmake g++ make libgtest-dev pkg-config binutils ccache libpng-dev libjpeg62-turbo-dev
          python3-numpy python3-pytest)
command -v python3 >/dev/null || packages+=(python3)
if [ "${1:-}" = "--bench" ]; then
  packages+=(libbenchmark-dev libopencv-core-dev libopencv-imgproc-dev)
fi
if [ "${1:-}" = "--fuzz" ]; then
  packages+=(clang libclang-rt-dev)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" = 0 ] || sudo=sudo
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
fi
