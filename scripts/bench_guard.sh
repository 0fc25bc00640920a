#!/usr/bin/env bash
# Counts the instructions and allocations of operations of the library and compares them with bench/guard.txt. Fails if
# an operation needs over 3 % more instructions, or more allocations, than its line. With --renew, writes the lines.
# The counts do not depend on the load of the machine, but on compiler, C library and architecture: if these differ from
# those in bench/guard.txt, the script prints this and compares nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || [ "$*" = --renew ] || usage "[--renew]"

baseline=bench/guard.txt
need c++=g++ cmake=cmake ninja=ninja-build libbenchmark-dev valgrind=valgrind
toolchain="$(c++ --version | head -n 1), $(getconf GNU_LIBC_VERSION), $(uname -m)"
if [ $# -eq 0 ]; then
    recorded=$(sed -n 's/^# toolchain: //p' "$baseline")
    [ "$recorded" = "$toolchain" ] ||
        { echo "benchmark guard skipped: the lines are those of $recorded; this is $toolchain"; exit 0; }
fi
echo "building the benchmark guard"
log=$(cmake --preset bench 2>&1 && cmake --build --preset bench --target guard 2>&1) ||
    { echo "$log" >&2; fail "cannot build the benchmark guard"; }

counts=build/bench/guard
rm -rf "$counts"
mkdir -p "$counts"
# The choice among the C library's string functions follows the processor; without AVX2 it is the same everywhere.
# With room for all that the operations return, memory that is used again costs the same each time.
tunables=glibc.cpu.hwcaps=-AVX2:glibc.malloc.tcache_count=65535
env -i LD_BIND_NOW=1 GLIBC_TUNABLES="$tunables" "$(command -v valgrind)" --tool=callgrind \
    --separate-threads=yes --callgrind-out-file="$PWD/$counts/callgrind.%p" build/bench/bench/guard \
    >"$counts/counts" 2>"$counts/log" || { cat "$counts/log" >&2; fail "an operation cannot be counted"; }
# A line of counts: name, times, allocations. A file of callgrind: the name, then the instructions of all times; the
# sum of its lines is larger, since a forked process writes remains of its parent, too.
awk '/^desc: Trigger: Client Request: / { name = $NF }
    /^summary: / && name {
        if (!(name in instructions) || $2 < instructions[name]) instructions[name] = $2
        name = ""
    }
    FILENAME ~ /counts$/ && !is_seen[$1]++ {
        if (!($1 in instructions)) { print $1 ": not counted" >"/dev/stderr"; exit 1 }
        printf "%-32s %10.1f %8.2f\n", $1, instructions[$1] / $2, $3 / $2
    }' "$counts"/callgrind.*-* "$counts/counts" >"$counts/result" || fail "an operation was not counted"
operations=$(wc -l <"$counts/result")

if [ $# -eq 1 ]; then
    { echo "# Written by scripts/bench_guard.sh --renew: operation, instructions, allocations (bench/guard.cpp)"
        echo "# queue.free_worker, thread.start and thread.stop: the least of ten, since another thread may hold a lock"
        echo "# toolchain: $toolchain"
        cat "$counts/result"; } >"$baseline"
    echo "benchmark guard renewed: $operations operations in $baseline"
    exit
fi
awk 'FNR == NR { if (!/^#/) { instructions[$1] = $2; allocations[$1] = $3 }; next }
    !($1 in instructions) { print $1 ": has no line in the baseline; --renew adds it"; bad = 1; next }
    { change = ($2 / instructions[$1] - 1) * 100; is_seen[$1] = 1 }
    change > 3 || $3 > allocations[$1] {
        printf "%s: %s instructions instead of %s (%+.1f %%), %s allocations instead of %s\n",
            $1, $2, instructions[$1], change, $3, allocations[$1]
        bad = 1; next
    }
    change < -3 || $3 < allocations[$1] {
        printf "%s: better, %s instructions instead of %s (%+.1f %%), %s allocations instead of %s: " \
            "please record it with --renew\n", $1, $2, instructions[$1], change, $3, allocations[$1]
    }
    END {
        for (name in instructions) if (!(name in is_seen)) { print name ": is no longer counted"; bad = 1 }
        exit bad
    }' "$baseline" "$counts/result" || fail "operations cost more than in $baseline, or are missing"
echo "benchmark guard passed: $operations operations"
