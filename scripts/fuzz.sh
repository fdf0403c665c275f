#!/usr/bin/env bash
# Builds the libFuzzer target over every export (clang, with AddressSanitizer
# and UndefinedBehaviorSanitizer) and runs it.
#   bash scripts/fuzz.sh            # 120 seconds, the CI smoke run
#   bash scripts/fuzz.sh 3600       # an hour
#   ROKC_FILTER=Filter bash scripts/fuzz.sh 600   # only exports whose name holds "Filter"
# The corpus grows in build-fuzz/corpus; a crash leaves its input in
# build-fuzz/crash-*, which `build-fuzz/tests/fuzz_exports <file>` replays
# (ROKC_VERBOSE=1 prints the call).
set -euo pipefail
cd "$(dirname "$0")/.."
# ccache (when installed) shares its cache between clones at any path.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
seconds=${1:-120}
bash scripts/setup.sh --fuzz
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DROKIP_FUZZ=ON -DROKIP_BUILD_TOOLS=OFF
cmake --build build-fuzz -j"$(nproc)" --target fuzz_exports
mkdir -p build-fuzz/corpus
cd build-fuzz
status=0
ROKIP_DYNAMIC=0 ./tests/fuzz_exports -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix=./ corpus >fuzz.log 2>&1 ||
  status=$?
grep -v -E '^#[0-9]+|NEW_FUNC|Uses:|^INFO' fuzz.log | tail -n 60
exit $status
