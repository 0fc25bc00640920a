#!/usr/bin/env bash
# Runs the benchmarks beside what there is to compare with, five times over, and writes the medians, a table and a
# picture: docs/benchmarks.json, .md and .svg. That takes a quarter of an hour on an idle machine. With --quick each
# runs once, briefly, and all of this goes to build/bench/quick: the figures mean nothing, but it shows that everything
# still works.
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
    runs=5 passes=6 out=docs
else
    runs=1 passes=1 out=build/bench/quick
fi
results=build/bench/results
rm -rf "$results"
mkdir -p "$results" "$out"
# Row by row, so that what is compared is measured close together. Each subject by a process of its own: what one leaves
# behind on the heap would make the next one slower. In several passes, of which the report takes the best: a machine
# that others use as well is at times half as fast for a while. But where a queue's worker is at work, times differ from
# pass to pass by themselves: those rows have one long pass.
for run in $(seq "$runs"); do
    for family in queue container parcel system; do
        program=build/bench/bench/${family}_bench
        subjects=$("$program" --benchmark_list_tests | cut -d / -f 1-3 | sort -u)
        for row in $(cut -d / -f 1-2 <<<"$subjects" | sort -u); do
            last=$passes seconds=0.03
            case $row in
                queue/removal*) ;;
                queue/*) last=1 seconds=0.3 ;;
            esac
            [ $# -eq 0 ] || seconds=0.001
            for pass in $(seq "$last"); do
                for subject in $(grep "^$row/" <<<"$subjects"); do
                    log=$results/$run-$pass-${subject//\//-}
                    "$program" --benchmark_filter="^$subject/" --benchmark_min_time="$seconds" \
                        --benchmark_out="$log.json" --benchmark_out_format=json >"$log.log" 2>&1 ||
                        { cat "$log.log" >&2; fail "the benchmark $subject failed"; }
                done
            done
        done
    done
done
python=python3
"$python" -c 'import matplotlib' 2>/dev/null || python=/usr/bin/python3  # whose the package is
"$python" scripts/bench_report.py "$out" "$results"/*.json || fail "there is no report"
echo "benchmarks passed: $out/benchmarks.md"
