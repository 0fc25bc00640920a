#!/usr/bin/env bash
# Builds for Android with the NDK in the folder $ANDROID_NDK. If ANDROID_NDK is not set, compiles the same sources
# with Debian's clang and checks that Android 9 has all functions of the C library that they call.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
export LC_ALL=C  # sort and comm must agree on the order

[ $# -eq 0 ] || usage
need_plain_path

if [ -n "${ANDROID_NDK-}" ]; then
    [ -f "$ANDROID_NDK/build/cmake/android.toolchain.cmake" ] || fail "there is no NDK in ANDROID_NDK: $ANDROID_NDK"
    need cmake=cmake ninja=ninja-build
    build android-arm64
    scripts/check_binary.sh android-arm64
    echo "android passed"
    exit
fi

echo "ANDROID_NDK is not set: compiling with other headers, without linking"
need clang++=clang cmake=cmake ninja=ninja-build aarch64-linux-gnu-g++=g++-aarch64-linux-gnu libc++-14-dev android-liblog-dev
folder=build/android-objects
log=$(ANDROID_NDK=$PWD/tests/ndk cmake --preset android-arm64 -B "$folder" 2>&1) || { echo "$log" >&2; fail "cannot configure"; }
mapfile -t objects < <(ninja -C "$folder" -t inputs libosal.so | grep '[.]o$')
[ ${#objects[@]} -gt 0 ] || fail "found no object to compile"
log=$(ANDROID_NDK=$PWD/tests/ndk ninja -C "$folder" "${objects[@]}" 2>&1) || { echo "$log" >&2; fail "cannot compile for Android"; }

# Inside the platform, Android.bp leaves out the call stack, and the C library is a newer one, which needs no replacement for
# the timed wait.
compare()
{
    diff "$scratch/cmake" "$scratch/bp" || fail "Android.bp (>) and CMake (<) name other $1"
}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
{
    sed 's,^CMakeFiles/osal.dir/,,; s,[.]o$,,' < <(printf '%s\n' "${objects[@]}")
    ninja -C "$folder" -t commands "${objects[@]}" | grep -o -- "-I$PWD/[^ ]*" | sed "s,^-I$PWD/,,"
} | sed '/call_stack/d; s,monotonic_wait/android,monotonic_wait/standard,' | sort -u >"$scratch/cmake"
sed -n '/name: "libosal"/,/^}/p' Android.bp | grep -oE '"(include|[a-z_]+/[a-z_/]+([.]cpp)?)"' | tr -d '"' | sort >"$scratch/bp"
compare "sources or include folders of the library"
sed -n '/add_executable(osal_tests/,/)/p' tests/CMakeLists.txt | grep -oE '[a-z_]+[.]cpp' | sort >"$scratch/cmake"
grep -oE 'tests/[a-z_]+[.]cpp' Android.bp | sed 's,tests/,,' | sort >"$scratch/bp"
compare "sources of the tests"

# libc and libdl of Android export each of these symbols at API level 28, except __errno_location(): there, errno
# calls __errno().
bionic="__android_log_print __cxa_atexit __errno_location __stack_chk_fail clock_gettime close dladdr fcntl free fstat
    ftruncate memcmp memcpy memset prctl pthread_cond_timedwait_monotonic_np pthread_create pthread_getschedparam
    pthread_self pthread_setschedparam pthread_setspecific strcmp strdup strerror strlen syscall"
# The NDK contains the functions of C++, of its run-time library and of the compiler.
unknown=$(cd "$folder" && nm -u "${objects[@]}" | awk '$1 == "U" { print $2 }' |
    grep -v -E '^(_Z|_Unwind_|__cxa_(allocate|begin|demangle|end|free|guard|pure|rethrow|throw)|__(dso_handle|emutls|gxx)|memcpy_s$)' |
    sort -u | comm -23 - <(tr -s ' ' '\n' <<<"$bionic" | sort))
[ -z "$unknown" ] || fail "Android 9 may lack these functions; look them up: ${unknown//$'\n'/ }"
echo "android passed: ${#objects[@]} objects"
