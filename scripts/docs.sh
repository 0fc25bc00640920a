#!/usr/bin/env bash
# Builds the documentation as a website: build/docs/index.html. Fails on a warning (for example, a class, function
# or enumeration without a comment), on a broken link, and if a C++ block of README or guide differs from the
# example.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || usage
need_plain_path
need python3=python3 doxygen=doxygen doxygen-awesome-css
scripts/snippets.py || fail "the documents and the examples differ"
rm -rf build/docs
mkdir -p build
doxygen docs/Doxyfile || fail "doxygen reported warnings or errors"
scripts/doc_links.py || fail "cannot link the documentation"
echo "documentation passed: $PWD/build/docs/index.html"
