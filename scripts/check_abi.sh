#!/usr/bin/env bash
# Checks that the library exports every operation that the public headers declare, and compares the binary interface
# with the baseline in abi/: the exported symbols, and the public types with the order of their fields and virtual
# operations. The default preset is release; other presets must export the same symbols. --renew replaces the
# baseline: such a change concerns every user of the library. --operations leaves out the baseline: the private symbols of
# other compilers and of builds for debugging differ.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

mode=
case ${1-} in --renew | --operations) mode=$1; shift ;; esac
presets=("${@:-release}")
[[ " ${presets[*]}" != *" -"* ]] || usage "[--renew | --operations] [PRESET...]"
need_tests
need g++=g++ clang++=clang abidiff=abigail-tools python3=python3
mkdir -p build/abi
different=()  # all differences are shown: one explains another
scripts/public_operations.py | LC_ALL=C sort >build/abi/operations || fail "cannot read the public headers"

for preset in "${presets[@]}"; do
    build "$preset" osal
    symbols=build/abi/$preset.symbols
    nm -D --defined-only "build/$preset/libosal.so" | awk '{ print $3 }' | LC_ALL=C sort >"$symbols"
    missing=$(LC_ALL=C comm -23 build/abi/operations "$symbols" | c++filt)
    [ -z "$missing" ] || fail "the preset $preset does not export these operations of the public headers: $missing"
    ! grep -v -E '^(_ZN4osal|_ZNK4osal|_ZT[ISV]N4osal|__android_log_print$)' "$symbols" ||
        fail "the preset $preset exports symbols that are not part of the interface"
    [ "$mode" != --operations ] || continue
    if [ "$mode" = --renew ]; then
        cp "$symbols" abi/osal.symbols
    fi
    diff -u abi/osal.symbols "$symbols" || different+=("the symbols of the preset $preset")
done
[ "$mode" != --operations ] || { echo "operations passed"; exit; }

# The baseline has the layouts of one platform. The sources below use each public type once and have the names of
# the headers: the compiler then describes only the types of the headers, and types of the standard library by name
# only.
if [ "$(g++ -dumpmachine)" != x86_64-linux-gnu ]; then
    echo "skipped the types: the baseline is for x86_64-linux-gnu"
else
    sources=()
    for header in include/osal/*.h; do
        name=${header##*/}
        source=build/abi/${name%.h}.cpp
        {
            echo "#include <osal/$name>"
            sed -n -E 's/^(class OSAL_API|struct|enum( class)?) ([A-Za-z]+).*[^;]$/osal::\3* type\3;/p' "$header"
        } >"$source"
        sources+=("$source")
    done
    g++ -std=c++17 -g -O0 -fPIC -shared -femit-class-debug-always -femit-struct-debug-baseonly -ffile-prefix-map=build/abi/= \
        -I include "${sources[@]}" -o build/abi/types.so
    abidw --no-architecture --no-comp-dir-path --no-corpus-path --no-elf-needed --no-parameter-names --no-show-locs \
        --type-id-style hash --out-file build/abi/types.xml build/abi/types.so
    if [ "$mode" = --renew ]; then
        cp build/abi/types.xml abi/types.xml
    fi
    abidiff --harmless --redundant abi/types.xml build/abi/types.xml || different+=("the public types")
fi
[ ${#different[@]} -eq 0 ] || fail "these differ from abi/: $(printf '%s; ' "${different[@]}")"
echo "abi passed"
