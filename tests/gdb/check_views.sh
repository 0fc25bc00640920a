#!/usr/bin/env bash
# Runs the commands in expected.txt, the lines with "+", in GDB, first in the running program and then in its core file,
# and compares both outputs with expected.txt: check_views.sh PROGRAM LIBRARY-FOLDER [REASON-TO-SKIP]. Exits with 77 if it is skipped.
set -euo pipefail
program=$1
library=$2
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../scripts/lib.sh"

# skip REASON: ends the test, without a failure, if there is a reason.
skip()
{
    [ -z "$1" ] || { echo "skipped: $1"; exit 77; }
}

# refuse FILE MESSAGE: shows the file and fails, unless GDB cannot work here. Only failures need that slow probe.
refuse()
{
    skip "$(gdb_obstacle)"
    cat "$1"
    fail "$2"
}

skip "${3-}"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

{
    printf 'set logging %s\n' 'overwrite on' 'redirect on' 'enabled on'
    echo 'set trace-commands on'
    sed -n 's/^+//p' "$here/expected.txt"
} >"$scratch/commands"

# show NAME GDB-ARGUMENT...: runs the commands, with the output in the file NAME. Numbers that differ from run to run are
# replaced, and so are reasons that differ between versions of GDB and Python.
show()
{
    local name=$1
    shift
    gdb -nx -batch -iex "add-auto-load-safe-path $library" -iex "set logging file $scratch/$name" \
        -iex "set width 0" -iex "set print pretty on" "$@" -ex up-silently -x "$scratch/commands" >"$scratch/log" 2>&1 || refuse "$scratch/log" "$name: GDB failed"
    sed -E -i 's/0x[0-9a-f]{6,}/ADDRESS/g; s/\<id [0-9]+/id NUMBER/; s/ s, (of unknown age|-[0-9]+ ms ago)/ s, AGE/;
        s/<cannot be read: [^G].*>/<cannot be read: REASON>/
        /^[0-9].* printers (dis|en)abled$/d' "$scratch/$name"
    diff -u "$here/expected.txt" "$scratch/$name" >"$scratch/log" || refuse "$scratch/log" "$name: not as expected"
}

# The standard library is loaded first, as in a program that does not link this library directly: its pretty-printers
# must not take precedence. A single heap for all threads keeps the core file small.
show running -ex 'set environment LD_PRELOAD libstdc++.so.6' -ex 'set environment MALLOC_ARENA_MAX 1' -ex 'break AllSet' \
    -ex run -ex "generate-core-file $scratch/program.core" "$program"
show core "$program" "$scratch/program.core"
