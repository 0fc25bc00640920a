#!/usr/bin/env bash
# Builds for Android with the NDK that the environment variable ANDROID_NDK points to. Without one it compiles what
# such a build compiles, and holds the functions of the C library that it calls against those of Android 9.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
export LC_ALL=C  # for sort and comm

if [ -n "${ANDROID_NDK-}" ]; then
    need cmake=cmake ninja=ninja-build
    build android-arm64
    scripts/check_binary.sh android-arm64
    echo "android passed"
    exit
fi

echo "no NDK in ANDROID_NDK: compiling with other headers, and linking nothing"
need clang++=clang cmake=cmake ninja=ninja-build aarch64-linux-gnu-g++=g++-aarch64-linux-gnu libc++-14-dev android-liblog-dev
folder=build/android-objects
log=$(ANDROID_NDK=$PWD/tests/ndk cmake --preset android-arm64 -B "$folder" 2>&1) || { echo "$log" >&2; fail "cannot configure"; }
mapfile -t objects < <(ninja -C "$folder" -t inputs libosal.so | grep '[.]o$')
[ ${#objects[@]} -gt 0 ] || fail "nothing to compile"
log=$(ANDROID_NDK=$PWD/tests/ndk ninja -C "$folder" "${objects[@]}" 2>&1) || { echo "$log" >&2; fail "cannot compile for Android"; }

# Each looked up in the list of symbols that bionic's libc and libdl of API level 28 export. __errno_location() is not:
# errno is __errno() there.
bionic="__android_log_print __cxa_atexit __errno_location __stack_chk_fail clock_gettime close dladdr fcntl free fstat
    ftruncate memcmp memcpy memset prctl pthread_cond_timedwait_monotonic_np pthread_create pthread_getschedparam
    pthread_self pthread_setschedparam pthread_setspecific strcmp strdup strerror strlen syscall"
# Those of C++, of its run-time library and of the compiler come with the NDK.
unknown=$(cd "$folder" && nm -u "${objects[@]}" | awk '$1 == "U" { print $2 }' |
    grep -v -E '^(_Z|_Unwind_|__cxa_(allocate|begin|demangle|end|free|guard|pure|rethrow|throw)|__(dso_handle|emutls|gxx)|memcpy_s$)' |
    sort -u | comm -23 - <(tr -s ' ' '\n' <<<"$bionic" | sort))
[ -z "$unknown" ] || fail "Android 9 may lack these functions; look them up: ${unknown//$'\n'/ }"
echo "android passed: ${#objects[@]} objects"
