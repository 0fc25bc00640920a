#!/usr/bin/env bash
# Runs the built tests as an ordinary user: without the right to real-time scheduling, then with priorities to 50.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || usage
[ "$(id -u)" -eq 0 ] || fail "only root can change the user; as an ordinary user, run scripts/test.sh instead"
[ -x build/release/tests/osal_tests ] || fail "run scripts/test.sh first"
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
cp -r build/release/. examples/data tests/pipeline.sh "$copy/"
chmod -R a+rX "$copy"
for limit in 0 50; do
    if ! prlimit --rtprio=$limit true 2>/dev/null; then
        echo "skipped RLIMIT_RTPRIO $limit: this machine does not allow setting the limit"
        continue
    fi
    for command in "$copy/pipeline.sh $copy/examples/media_pipeline" "$copy"/tests/*_tests; do
        # shellcheck disable=SC2086
        (cd / && TMPDIR=/tmp GTEST_BRIEF=1 prlimit --rtprio=$limit \
            setpriv --reuid=65534 --regid=65534 --clear-groups --inh-caps=-all --bounding-set=-all \
            $command) || fail "${command##*/} failed with RLIMIT_RTPRIO $limit"
    done
done
echo "rights passed"
