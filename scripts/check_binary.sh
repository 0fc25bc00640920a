#!/usr/bin/env bash
# Checks the built library of each preset: pages of 16 KiB, no memory that is both writable and executable,
# relocations that are read-only before any code runs, stack protector, branch protection.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -gt 0 ] && [[ $1 != -* ]] || usage PRESET...
need readelf=binutils ninja=ninja-build
for preset in "$@"; do
    library=build/$preset/libosal.so
    [ -e "$library" ] || fail "there is no $library: build the preset $preset first"
    segments=$(readelf -lW "$library")
    dynamic=$(readelf -dW "$library")
    symbols=$(readelf --dyn-syms -W "$library")

    # wrong MESSAGE
    wrong() { fail "$library: $1"; }

    loads=$(awk '$1 == "LOAD" { print $NF }' <<<"$segments" | sort -u)
    [ "$loads" = 0x4000 ] || wrong "segments are not aligned to 16 KiB but to ${loads//$'\n'/ }"
    ! grep -q "LOAD.* RWE " <<<"$segments" || wrong "a segment is writable and executable"
    grep -q "GNU_STACK.* RW " <<<"$segments" || wrong "the stack is executable"
    grep -q "GNU_RELRO" <<<"$segments" || wrong "relocations stay writable"
    grep -q "FLAGS.*BIND_NOW\|FLAGS_1.*NOW" <<<"$dynamic" || wrong "functions are bound at their first call"
    ! grep -q "TEXTREL" <<<"$dynamic" || wrong "code contains relocations"
    grep -q "UND __stack_chk_fail" <<<"$symbols" || wrong "no function has a stack protector"

    # Checks the objects, not the library: the linker drops the note if one object lacks it, and the start-up
    # objects of Debian's cross compiler lack it. A library that is built with an NDK has the note.
    if readelf -h "$library" | grep -q AArch64; then
        objects=$(ninja -C "build/$preset" -t inputs libosal.so | grep '[.]o$') || wrong "found no object of the library"
        for object in $objects; do
            readelf -nW "build/$preset/$object" | grep -q "AArch64 feature: BTI, PAC" || wrong "no branch protection in $object"
        done
    fi
    echo "binary passed: $library"
done
