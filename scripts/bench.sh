#!/usr/bin/env bash
# Measures osal and the libraries it is compared with, in five runs, and writes medians, tables and pictures:
# docs/benchmarks.json, docs/figures.md, docs/benchmarks.svg and docs/growth.svg, for a commit of their own. This needs
# an idle machine. With --quick each row runs once, for one iteration, and the results go to
# build/bench/quick: these figures mean nothing, but a row that fails ends the script. With --draw nothing is measured:
# tables and pictures are made again from docs/benchmarks.json.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

case $* in "" | --quick | --draw) ;; *) usage "[--quick | --draw]" ;; esac

need python3=python3
if [ "$*" = --draw ]; then
    exec python3 scripts/bench_report.py docs
fi
need c++=g++ cmake=cmake ninja=ninja-build libbenchmark-dev
# The peers are optional, and --quick takes those that are there. The package of GStreamer accepts the libunwind of LLVM,
# which libc++ installs, in place of the usual one: no other package is removed.
[ "$*" = --quick ] || (need pkg-config=pkg-config libglib2.0-dev libgstreamer1.0-dev libasio-dev libevent-dev \
    qtbase5-dev libabsl-dev) || echo "going on with the peers that are there"
build bench

runs=5 out=docs
[ $# -eq 0 ] || runs=1 out=build/bench/quick
program=build/bench/bench/osal_bench
results=build/bench/results
rm -rf "$results"
mkdir -p "$results" "$out"
subjects=$("$program" --benchmark_list_tests | cut -d / -f 1-3 | awk '!seen[$0]++')
rows=$(cut -d / -f 1-2 <<<"$subjects" | awk '!seen[$0]++')
# Row by row, so that figures that are compared are measured close together. Each subject in a process of its own: what
# one leaves on the heap would make the next one slower. Several passes, of which the report takes the best: a shared
# machine is slow for a while, at times by half. In rows with a running worker, times differ from pass to pass without
# that: these rows have one long pass.
for run in $(seq "$runs"); do
    for row in $rows; do
        passes=4 seconds=0.02
        case $row in
            queue/burst) passes=1 seconds=0.1 ;;
            queue/removal) passes=3 ;;
            queue/*) passes=1 seconds=0.3 ;;
        esac
        [ $# -eq 0 ] || passes=1 seconds=0.000001
        for pass in $(seq "$passes"); do
            while IFS= read -r subject; do
                log=$results/$run-$pass-${subject//[^a-z_A-Z]/-}
                "$program" --benchmark_filter="^$subject/" --benchmark_min_time="$seconds" \
                    --benchmark_out="$log.json" --benchmark_out_format=json >"$log.log" 2>&1 ||
                    { cat "$log.log" >&2; fail "the benchmark $subject failed"; }
            done < <(grep "^$row/" <<<"$subjects")
        done
    done
done
python3 scripts/bench_report.py "$out" "$results"/*.json || fail "there is no report"
echo "benchmarks passed: $out/figures.md"
