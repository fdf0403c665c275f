#!/usr/bin/env bash
# Sets up, builds and passes every test: the release build, the same tests
# under AddressSanitizer (with leak checking) and UndefinedBehaviorSanitizer,
# the threaded paths under ThreadSanitizer, a fuzzing run over every export,
# and an installed package used from CMake and from pkg-config by the
# example consumer.
set -euo pipefail
cd "$(dirname "$0")/.."
# ccache (when installed) shares its cache between clones at any path.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
jobs=$(nproc)
bash scripts/setup.sh

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

# AddressSanitizer with its leak checker (records made and freed by the
# contract suite and the family tests) and UndefinedBehaviorSanitizer.
cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DROKIP_SANITIZE=ON
cmake --build build-sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 ctest --test-dir build-sanitize --output-on-failure -j"$jobs"

# ThreadSanitizer over the worker pool and every export at 1, 2 and 7 threads.
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DROKIP_TSAN=ON
cmake --build build-tsan -j"$jobs" --target test_contract test_frame
ROKIP_DYNAMIC=0 TSAN_OPTIONS=halt_on_error=1 ./build-tsan/tests/test_frame --gtest_filter='Threading.*'
ROKIP_DYNAMIC=0 TSAN_OPTIONS=halt_on_error=1 ./build-tsan/tests/test_contract --gtest_filter='*ThreadCount*'

# A few minutes of fuzzing every export (clang, libFuzzer).
bash scripts/fuzz.sh "${ROKIP_FUZZ_SECONDS:-120}"

prefix=$(mktemp -d)
cmake --install build --prefix "$prefix"
cmake -S examples/consumer -B build-consumer -DCMAKE_PREFIX_PATH="$prefix"
cmake --build build-consumer
LD_LIBRARY_PATH="$prefix/lib" ./build-consumer/consumer
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" \
  cc -std=c99 -pedantic -Wall -Werror examples/consumer/consumer.c \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs rokip) -o build-consumer/consumer_pc
LD_LIBRARY_PATH="$prefix/lib" ./build-consumer/consumer_pc
"$prefix/bin/rok" --help >/dev/null
py=python3
$py -c "import numpy" 2>/dev/null || py=/usr/bin/python3
PYTHONPATH="$prefix/lib/python3/dist-packages" $py -c "import numpy, rokip; assert rokip.Sum(numpy.ones((2, 3), numpy.uint8)) == 6"
echo "installed package used from CMake, pkg-config, rok and Python"
