#!/usr/bin/env bash
# Sets up, builds the library and the rok tool, and runs `rok demo` on its
# built-in image (outputs and a contact sheet in rok-demo/).
set -euo pipefail
cd "$(dirname "$0")/.."
# ccache (when installed) shares its cache between clones at any path.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)" --target rok
./build/rok demo "${1:-rok-demo}"
