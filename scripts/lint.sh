#!/usr/bin/env bash
# clang-format over all code, clang-tidy and cppcheck over the sources of the library, the stand-ins and the
# examples. The benchmarks, whose peers' headers may be missing, are left to cppcheck.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

need c++=g++ cmake=cmake ninja=ninja-build clang-format=clang-format clang-tidy=clang-tidy cppcheck=cppcheck
find bench examples fuzz include platform src tests '(' -name '*.cpp' -o -name '*.h' ')' -print0 |
    xargs -0 clang-format --dry-run --Werror || fail "clang-format would write that differently"
build debug -DOSAL_BUILD_TESTS=OFF
find src platform examples -name '*.cpp' -print0 |
    xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet --extra-arg=-std=c++17 -p build/debug 2>/dev/null || fail "clang-tidy found something"
# Suppressed: an assigned iterator keeps its map, and a name is passed by value, both by interface. What the benchmarks
# are compiled with is not known, because the headers of their peers may be missing.
analyse=(cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability
    --suppress=operatorEqVarError:include/osal/media_meta.h --suppress=passedByValue:src/memfd/memfd.cpp)
"${analyse[@]}" --project=build/debug/compile_commands.json || fail "cppcheck found something"
"${analyse[@]}" --std=c++17 --language=c++ -I include bench || fail "cppcheck found something"
echo "lint passed"
