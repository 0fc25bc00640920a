#!/usr/bin/env bash
# Installs missing packages, builds the library and sends a sound file through it. The default file is the sample.
set -euo pipefail
[ $# -le 1 ] && [[ "${1-.}" != "" && "${1-.}" != -* ]] || { echo "usage: demo.sh [FILE]" >&2; exit 2; }
input=${1-}
[[ "$input" == "" || "$input" == /* ]] || input=$PWD/$input
cd "$(dirname "$0")/.."
input=${input:-$PWD/examples/data/sample.wav}
. scripts/lib.sh

[ -r "$input" ] || fail "cannot read $input"
[ ! -d "$input" ] || fail "cannot read $input: it is a directory"
need c++=g++ cmake=cmake ninja=ninja-build pkg-config=pkg-config libsndfile1-dev
# In a folder of its own, which needs no GoogleTest.
configure release -B build/demo -DOSAL_BUILD_TESTS=OFF
echo "building the demo"
log=$(cmake --build build/demo --target media_pipeline 2>&1) || { echo "$log" >&2; fail "cannot build the demo"; }
echo "playing $input; the output is $PWD/build/demo.wav"
# exec, so that a signal to the script reaches the program.
exec build/demo/examples/media_pipeline "$input" --out build/demo.wav
