#!/usr/bin/env bash
# Runs the tests and reports the executed lines and branches: build/coverage/html/index.html.
# Fails if the tests do not execute every line of src/ and include/. A line that no caller can reach is marked with
# "GCOVR_EXCL_LINE: reason", several lines with "GCOVR_EXCL_START: reason" and "GCOVR_EXCL_STOP".
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || usage
need_tests
need gcovr=gcovr
build coverage
find build/coverage -name '*.gcda' -delete
find build/coverage -path '*CompilerId*' -name '*.gcno' -delete  # CMake's compiler check
ctest --preset coverage --no-tests=error >build/coverage/tests.log 2>&1 || { cat build/coverage/tests.log; fail "tests failed"; }
mkdir -p build/coverage/html
gcovr --root . --object-directory build/coverage --filter src/ --filter include/ \
    --exclude-throw-branches --exclude-unreachable-branches --html-details build/coverage/html/index.html --txt build/coverage/coverage.txt \
    --fail-under-line 100 build/coverage || { cat build/coverage/coverage.txt; fail "the tests do not execute some lines"; }
tail -n 5 build/coverage/coverage.txt
gcovr --root . --object-directory build/coverage --filter src/ --filter include/ \
    --exclude-throw-branches --exclude-unreachable-branches --branches build/coverage >build/coverage/branches.txt
tail -n 3 build/coverage/branches.txt
echo "coverage passed: build/coverage/html/index.html"
