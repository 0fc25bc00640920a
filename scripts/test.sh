#!/usr/bin/env bash
# Installs missing packages, builds the library with its tests and runs the tests. Options are passed to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

need_tests

# ctest ignores arguments that it does not know, and would run all tests.
options=$(ctest --help)
[ $# -eq 0 ] || [[ $1 == -* ]] || usage "[CTEST OPTION...]"
for argument in "$@"; do
    [[ $argument != -* ]] || grep -qwFe "${argument%%[=0-9]*}" <<<"$options" || fail "ctest has no option $argument"
done

[ $# -eq 0 ] || [[ ${!#} != -* ]] || ! grep -qFe " ${!#} <" <<<"$options" || fail "${!#} needs a value"

build release
! ctest --preset release -N "$@" | grep -qx 'Total Tests: 0' || fail "no test matches $*"
if ctest --preset release --no-tests=error "$@"; then
    echo "tests passed"
else
    fail "tests failed"
fi
