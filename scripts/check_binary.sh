#!/usr/bin/env bash
# Looks into the built library, of the presets that are named: pages of 16 KiB, memory that is never writable and
# executable at once, relocations that are read-only before anything runs, stack protector, branch protection.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -gt 0 ] || fail "usage: check_binary.sh PRESET..."
need readelf=binutils ninja=ninja-build
for preset in "$@"; do
    library=build/$preset/libosal.so
    [ -e "$library" ] || fail "build the preset $preset first"
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
    grep -q "FLAGS.*BIND_NOW\|FLAGS_1.*NOW" <<<"$dynamic" || wrong "functions are bound when they are called first"
    ! grep -q "TEXTREL" <<<"$dynamic" || wrong "code is relocated"
    grep -q "UND __stack_chk_fail" <<<"$symbols" || wrong "no function has a stack protector"

    # Of the objects, not of the library: the linker drops the note as soon as one object lacks it, which those that
    # Debian's cross compiler brings along do. With an NDK the library has it.
    if readelf -h "$library" | grep -q AArch64; then
        objects=$(ninja -C "build/$preset" -t inputs libosal.so | grep '[.]o$') || wrong "made of no object"
        for object in $objects; do
            readelf -nW "build/$preset/$object" | grep -q "AArch64 feature: BTI, PAC" || wrong "no branch protection in $object"
        done
    fi
    echo "binary passed: $library"
done
