#!/usr/bin/env bash
# Builds the documentation as a website: build/docs/index.html. Fails on a warning (for example, a class, function
# or enumeration without a comment), on a broken link, and if a C++ block of README or guide differs from the
# example.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || usage
need python3=python3 doxygen=doxygen doxygen-awesome-css
scripts/snippets.py || fail "the documents and the examples differ"
rm -rf build/docs
mkdir -p build
doxygen docs/Doxyfile || fail "doxygen reported warnings or errors"
# Doxygen does not report links in Markdown files that lead nowhere.
broken=$(cd build/docs && grep -oE '(href|src|data)="[^"#?]+' -- *.html | sort -u | while IFS= read -r link; do
    target=${link#*\"}
    case $target in *://* | mailto:* | javascript:*) continue ;; esac
    [ -e "$target" ] || echo "${link%%:*}: $target"
done)
[ -z "$broken" ] || { echo "$broken" >&2; fail "these links lead nowhere"; }
echo "documentation passed: $PWD/build/docs/index.html"
