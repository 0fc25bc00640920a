#!/usr/bin/env bash
# Installs what is missing, builds the library with its tests and runs them. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

need c++=g++ cmake=cmake ninja=ninja-build libgtest-dev libgmock-dev
build release -DOSAL_BUILD_TESTS=ON
if ctest --preset release --no-tests=error "$@"; then
    echo "tests passed"
else
    fail "tests failed"
fi
