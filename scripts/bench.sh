#!/usr/bin/env bash
# Runs the benchmarks beside what there is to compare with, five times over, and writes the medians, a table and a
# picture: docs/benchmarks.json, .md and .svg. With --quick each runs once, briefly, and all of this goes to
# build/bench/quick: the figures mean nothing, but it shows that everything still works.
set -euo pipefail
[ $# -eq 0 ] || [ "$*" = --quick ] || { echo "usage: bench.sh [--quick]" >&2; exit 2; }
cd "$(dirname "$0")/.."
. scripts/lib.sh

need c++=g++ cmake=cmake ninja=ninja-build libbenchmark-dev python3=python3 python3-matplotlib
# None of them has to be there. GStreamer's takes the libunwind of LLVM, which libc++ brings along, as well as the
# usual one: it drives nothing out.
(need pkg-config=pkg-config libglib2.0-dev libgstreamer1.0-dev libasio-dev libuv1-dev libevent-dev qtbase5-dev \
    nlohmann-json3-dev libavutil-dev libabsl-dev) || echo "going on with the peers that are there"
build bench

if [ $# -eq 0 ]; then
    # In random order, so that what else the machine does meanwhile hits all alike.
    options=(--benchmark_repetitions=5 --benchmark_enable_random_interleaving=true --benchmark_min_time=0.1)
    out=docs
else
    options=(--benchmark_min_time=0.001)
    out=build/bench/quick
fi
results=build/bench/results
mkdir -p "$results" "$out"
for family in queue container parcel system; do
    log=$results/$family.log
    "build/bench/bench/${family}_bench" "${options[@]}" --benchmark_out="$results/$family.json" \
        --benchmark_out_format=json >"$log" 2>&1 || { cat "$log" >&2; fail "the $family benchmarks failed"; }
    grep '^skipped' "$log" || true
done
python=python3
"$python" -c 'import matplotlib' 2>/dev/null || python=/usr/bin/python3  # whose the package is
"$python" scripts/bench_report.py "$out" "$results"/{queue,container,parcel,system}.json || fail "there is no report"
echo "benchmarks passed: $out/benchmarks.md"
