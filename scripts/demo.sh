#!/usr/bin/env bash
# Installs missing packages, builds the library and plays a WAV file with it. The default file is the sample.
set -euo pipefail
[ $# -le 1 ] && [[ "${1-}" != -* ]] || { echo "usage: demo.sh [FILE.wav]" >&2; exit 2; }
input=$(realpath -m -- "${1:-$(dirname "$0")/../examples/data/sample.wav}")
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ -r "$input" ] || fail "cannot read $input"
need c++=g++ cmake=cmake ninja=ninja-build
build release -DOSAL_BUILD_TESTS=OFF
build/release/examples/media_pipeline "$input" --out build/demo.wav || fail "the demo failed"
echo "demo passed: the output is $PWD/build/demo.wav"
