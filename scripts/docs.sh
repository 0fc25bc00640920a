#!/usr/bin/env bash
# Builds the documentation as a site: build/docs/index.html. Fails on a warning (a class, function or enumeration
# without a comment is one), on a broken link, and when a C++ block of the README or the guide is not the example's.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: docs.sh" >&2; exit 2; }
cd "$(dirname "$0")/.."
. scripts/lib.sh

need python3=python3 doxygen=doxygen doxygen-awesome-css
scripts/snippets.py || fail "the documents and the examples differ"
rm -rf build/docs
mkdir -p build
doxygen docs/Doxyfile || fail "doxygen found something"
# Doxygen leaves alone what it cannot resolve in the Markdown files.
broken=$(cd build/docs && grep -oE '(href|src|data)="[^"#?]+' -- *.html | sort -u | while IFS= read -r link; do
    target=${link#*\"}
    case $target in *://* | mailto:* | javascript:*) continue ;; esac
    [ -e "$target" ] || echo "${link%%:*}: $target"
done)
[ -z "$broken" ] || { echo "$broken" >&2; fail "these links lead nowhere"; }
echo "documentation passed: $PWD/build/docs/index.html"
