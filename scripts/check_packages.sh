#!/usr/bin/env bash
# Uses the library in an outside project in several ways: installed, through CMake and through pkg-config; added to
# that project; and unpacked from the Debian packages. GDB shows an object of the program.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

[ $# -eq 0 ] || usage
need_plain_path
need c++=g++ cmake=cmake ninja=ninja-build pkg-config=pkgconf gdb=gdb
build package
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The program includes each header, so that a header that is not installed is missed.
program=$scratch/main.cpp
{
    printf '#include <osal/%s>\n' $(cd include/osal && ls)
    cat examples/minimal.cpp
} >"$program"

# quietly COMMAND...: shows the output of the command only if the command fails.
quietly()
{
    "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; return 1; }
}

# build_outside FOLDER CMAKE-OPTION...: builds the outside project; the program is then in FOLDER.
build_outside()
{
    local folder=$1
    shift
    quietly cmake -S tests/outside -B "$folder" -G Ninja -DOSAL_PROGRAM="$program" "$@" && quietly cmake --build "$folder"
}

# use_installed NAME PREFIX: uses the library in PREFIX, found by CMake and by pkg-config, and no other copy of it.
use_installed()
{
    local libraries
    build_outside "$scratch/$1-cmake" -DCMAKE_PREFIX_PATH="$2" || fail "$1: CMake could not use the library"
    grep -q "^osal_DIR:PATH=$2/" "$scratch/$1-cmake/CMakeCache.txt" || fail "$1: CMake found another copy of the library"
    quietly "$scratch/$1-cmake/outside" || fail "$1: the program built by CMake failed"

    libraries=$(dirname "$(dirname "$(find "$2" -name osal.pc)")")
    local -x PKG_CONFIG_PATH=$libraries/pkgconfig
    # shellcheck disable=SC2046  # they are several words
    quietly c++ -std=c++17 -g "$program" -o "$scratch/$1-pkg-config" $(pkg-config --cflags --libs osal) ||
        fail "$1: pkg-config gives the wrong flags"
    LD_LIBRARY_PATH=$libraries quietly "$scratch/$1-pkg-config" || fail "$1: the program built with pkg-config failed"
}

# show_in_gdb NAME PREFIX GDB-OPTION...: shows a container of the program that use_installed built, with the
# pretty-printers and the debug information that GDB itself finds.
show_in_gdb()
{
    local name=$1 libraries shown
    libraries=$(dirname "$(find "$2" -name libosal.so)")
    shift 2
    shown=$(gdb -nx -batch -iex "add-auto-load-safe-path $scratch" "$@" -iex "set breakpoint pending on" \
        -ex "set environment LD_LIBRARY_PATH $libraries" -ex "break osal::MsgQueue::QueueMsg" \
        -ex run -ex up -ex "print *meta" "$scratch/$name-pkg-config" 2>&1) || true
    [[ $shown == *'{"title" = META_TYPE_STRING "One buffer after another"}'* ]] || { echo "$shown" >&2; fail "$name: GDB does not show a container"; }
}

obstacle=$(gdb_obstacle)
[ -z "$obstacle" ] || echo "skipped GDB: $obstacle"

quietly cmake --install build/package --prefix "$scratch/prefix"
use_installed installed "$scratch/prefix"
[ -n "$obstacle" ] || show_in_gdb installed "$scratch/prefix"

build_outside "$scratch/part" -DOSAL_SOURCE="$PWD" || fail "the library could not be added to another project"
quietly "$scratch/part/outside" || fail "the program of the project with the added library failed"
flags=$(ninja -C "$scratch/part" -t commands outside | grep -o '[^ ]*c++.*main[.]cpp$') ||
    fail "cannot find the compile command of that project"
for flag in $flags; do
    case $flag in
        -std=gnu++17 | -M[DTF] | -[oc]) ;;
        -*) [ "$flag" = "-I$PWD/include" ] || fail "the library forces $flag on the project" ;;
    esac
done

if ! command -v dpkg-deb >/dev/null; then
    echo "skipped the Debian packages: this system has no dpkg-deb"
else
    need dpkg-shlibdeps=dpkg-dev file=file lintian=lintian
    (cd build/package && quietly cpack -G DEB -B "$scratch/deb") || fail "cpack failed"
    runtime=$(echo "$scratch"/deb/libosal1_*.deb)
    symbols=$(echo "$scratch"/deb/libosal1-dbgsym_*.ddeb)
    development=$(echo "$scratch"/deb/libosal-dev_*.deb)
    version=$(dpkg-deb -f "$runtime" Version)
    files=$(dpkg-deb -c "$runtime" | awk '$1 !~ /^d/ { print $6 }' | sed 's,.*/,,' | tr '\n' ' ')
    [ "$files" = "libosal.so.${version%-*} changelog.Debian.gz libosal.so.1 " ] || fail "libosal1 contains $files"
    # Until the owner chooses a licence, there is no file for it. The packages are not for Debian's archive.
    quietly lintian --allow-root --fail-on error,warning --suppress-tags no-copyright-file,initial-upload-closes-no-bugs \
        "$runtime" "$symbols" "$development" || fail "lintian found faults in the packages"
    ! dpkg-deb --fsys-tarfile "$symbols" | tar xO | grep -qF "$PWD" || fail "debug information contains $PWD"
    [[ "$(dpkg-deb -f "$runtime" Depends)" == *libc6* ]] || fail "libosal1 does not depend on libc6"
    [ "$(dpkg-deb -f "$development" Depends)" = "libosal1 (= $version)" ] || fail "libosal-dev accepts other versions of libosal1"
    quietly apt-get install --simulate "$runtime" "$symbols" "$development" || fail "the packages cannot be installed"
    dpkg-deb -x "$runtime" "$scratch/root"
    dpkg-deb -x "$development" "$scratch/root"
    use_installed packed "$scratch/root/usr"
    if [ -z "$obstacle" ]; then
        # In its own folder, GDB looks under the path of the library, which begins with $scratch/root here.
        dpkg-deb -x "$symbols" "$scratch/root"
        mkdir -p "$scratch/auto-load$scratch/root"
        ln -s "$scratch/root/usr/share/gdb/auto-load/usr" "$scratch/auto-load$scratch/root/usr"
        show_in_gdb packed "$scratch/root/usr" \
            -iex "set auto-load scripts-directory $scratch/auto-load:\$datadir/auto-load" \
            -iex "set debug-file-directory $scratch/root/usr/lib/debug"
    fi
fi
echo "packages passed"
