#!/usr/bin/env bash
# Sets up, builds the library and the rok tool, runs `rok demo` on its
# built-in image (outputs and a contact sheet in rok-demo/), and puts the
# rokip Python package within reach of python3.
set -euo pipefail
cd "$(dirname "$0")/.."
# ccache (when installed) shares its cache between clones at any path.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)" --target rok
./build/rok demo "${1:-rok-demo}"
# `import rokip` from anywhere: a rokip.pth in the user's site-packages names
# this tree's python/ folder, and the package loads build/librokip.so.7 beside
# it. (Delete that file to undo; `cmake --install build` is the alternative.)
site="$(python3 -m site --user-site)"
mkdir -p "$site"
echo "$PWD/python" > "$site/rokip.pth"
if python3 -c "import rokip" 2>/dev/null; then
  echo "python3: import rokip works ($site/rokip.pth -> $PWD/python)"
else
  echo "python3 cannot import rokip: $(python3 -c 'import rokip' 2>&1 | tail -1)"
fi
