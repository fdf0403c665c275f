#!/usr/bin/env bash
# Builds the benchmarks and prints the table of ratios to OpenCV and memcpy.
# Extra arguments go to the benchmark program, e.g. --benchmark_filter=Add
#   bash scripts/bench.sh --load [calls] [case] [thread counts]   threaded calls under load (bench/load)
set -euo pipefail
cd "$(dirname "$0")/.."
# ccache (when installed) shares its cache between clones at any path.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
bash scripts/setup.sh --bench
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DROKIP_BUILD_BENCH=ON -DROKIP_BUILD_TESTS=OFF -DROKIP_BUILD_TOOLS=OFF
if [ "${1:-}" = "--load" ]; then
  shift
  cmake --build build-bench -j"$(nproc)" --target rokload
  exec ./build-bench/bench/rokload "$@"
fi
cmake --build build-bench -j"$(nproc)" --target rokbench
python3 bench/report.py build-bench "$@"
