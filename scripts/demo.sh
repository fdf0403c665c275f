#!/usr/bin/env bash
# Sets up, builds and runs the demo on its built-in image.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)" --target rokdemo
./build/rokdemo
