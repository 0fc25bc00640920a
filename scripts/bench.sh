#!/usr/bin/env bash
# Runs the benchmarks, beside what there is to compare with, and writes the figures as build/bench/*.json.
# With --quick each runs once, briefly: its figures mean nothing, but it shows that all of them still work.
set -euo pipefail
[ $# -eq 0 ] || [ "$*" = --quick ] || { echo "usage: bench.sh [--quick]" >&2; exit 2; }
quick=${1-}
cd "$(dirname "$0")/.."
. scripts/lib.sh

peers=(libglib2.0-dev libasio-dev libuv1-dev libevent-dev qtbase5-dev nlohmann-json3-dev libavutil-dev libabsl-dev)
# Where other packages of the standard library are in its way, apt-get would remove them for this one.
if command -v apt-get >/dev/null && ! apt-get -s -qq --no-install-recommends install libgstreamer1.0-dev 2>&1 |
    grep -Eq '^(Remv|E:)'; then
    peers+=(libgstreamer1.0-dev)
fi
need c++=g++ cmake=cmake ninja=ninja-build pkg-config=pkg-config libbenchmark-dev "${peers[@]}"
build release -DOSAL_BUILD_BENCH=ON -DOSAL_BUILD_TESTS=OFF
# Programs of an earlier run may be there when the option is not known.
grep -q '^OSAL_BUILD_BENCH:BOOL=ON$' build/release/CMakeCache.txt || fail "there are no benchmarks in the build"

options=(--benchmark_repetitions=5)
[ -z "$quick" ] || options=(--benchmark_min_time=0.001)
mkdir -p build/bench
for family in queue container parcel system; do
    log=build/bench/$family.log
    out=build/bench/$family.json
    "build/release/bench/${family}_bench" "${options[@]}" --benchmark_out="$out" --benchmark_out_format=json \
        >"$log" 2>&1 || { cat "$log" >&2; fail "the $family benchmarks failed"; }
    # A benchmark that found a wrong result ends with this, and its program with success.
    ! grep -q '"error_occurred": true' "$out" || { cat "$log" >&2; fail "a $family benchmark failed"; }
done
echo "benchmarks passed: $PWD/build/bench"
