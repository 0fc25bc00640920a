#!/usr/bin/env bash
# Runs the tests with counters and writes which lines and branches they take: build/coverage/html/index.html.
# Fails when a line of src/ or include/ is never run. A line that no caller can bring about is marked with
# "GCOVR_EXCL_LINE: reason", or several with "GCOVR_EXCL_START: reason" and "GCOVR_EXCL_STOP".
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

need g++ cmake=cmake ninja=ninja-build libgtest-dev libgmock-dev gcovr=gcovr
build coverage -DOSAL_BUILD_TESTS=ON
find build/coverage -name '*.gcda' -delete
find build/coverage -path '*CompilerId*' -name '*.gcno' -delete  # of CMake's own trial
ctest --preset coverage --no-tests=error >build/coverage/tests.log 2>&1 || { cat build/coverage/tests.log; fail "tests failed"; }
mkdir -p build/coverage/html
gcovr --root . --object-directory build/coverage --filter src/ --filter include/ \
    --exclude-throw-branches --exclude-unreachable-branches --html-details build/coverage/html/index.html --txt build/coverage/coverage.txt \
    --fail-under-line 100 build/coverage || { cat build/coverage/coverage.txt; fail "some lines are never run"; }
tail -n 5 build/coverage/coverage.txt
gcovr --root . --object-directory build/coverage --filter src/ --filter include/ \
    --exclude-throw-branches --exclude-unreachable-branches --branches build/coverage >build/coverage/branches.txt
tail -n 3 build/coverage/branches.txt
echo "coverage passed: build/coverage/html/index.html"
