# Shared functions. The other scripts source this file in the root folder of the project.

# usage [ARGUMENTS]: ends the script because its arguments are wrong.
usage()
{
    echo "usage: ${0##*/}${1:+ $1}" >&2
    exit 2
}

# fail MESSAGE
fail()
{
    echo "${0##*/}: $*" >&2
    exit 1
}

mkdir -p build 2>/dev/null && [ -w build ] || fail "cannot write to $PWD/build"

# need_plain_path: fails where a path with a space would be taken for two.
need_plain_path()
{
    [[ $PWD != *[[:space:]]* ]] || fail "works only in a folder without a space in its path: $PWD"
}

# need [COMMAND=]PACKAGE...: installs each Debian package if its COMMAND is missing, or, without COMMAND, if the
# package is missing. On a system without dpkg, packages without COMMAND are not checked: CMake reports missing
# libraries.
need()
{
    local missing=() wanted log
    for wanted in "$@"; do
        case $wanted in
            *=*) command -v "${wanted%%=*}" >/dev/null || missing+=("${wanted#*=}") ;;
            *) ! command -v dpkg-query >/dev/null ||
                [ "$(dpkg-query -W -f='${db:Status-Abbrev}' "$wanted" 2>/dev/null)" = "ii " ] || missing+=("$wanted") ;;
        esac
    done
    [ ${#missing[@]} -eq 0 ] && return
    command -v apt-get >/dev/null || fail "install the equivalents of these Debian packages: ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || fail "packages are missing; run as root: apt-get install ${missing[*]}"
    echo "installing ${missing[*]}"
    log=$({ apt-get update -q && DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends \
        "${missing[@]}"; } 2>&1) ||
        { echo "$log" >&2; fail "apt-get could not install ${missing[*]}"; }
}

# need_tests: installs what the build of the tests needs.
need_tests()
{
    need c++=g++ cmake=cmake ninja=ninja-build pkg-config=pkg-config gdb=gdb libgtest-dev libgmock-dev libsndfile1-dev
}

# configure PRESET [CMAKE OPTION...]: prints nothing unless it fails. An option that a preset sets keeps the value of the
# preset in the preset's folder: other scripts use the folder, too.
configure()
{
    local log
    grep -qF "\"$1\"" <<<"$(cmake --list-presets)" || fail "there is no preset $1; see cmake --list-presets"
    log=$(cmake --preset "$@" 2>&1) || { echo "$log" >&2; fail "cannot configure the preset $1"; }
}

# build PRESET [TARGET...]: configures and builds all targets or these; prints one line unless something fails.
build()
{
    local log
    configure "$1"
    echo "building the preset $1"
    log=$(cmake --build --preset "$1" ${2:+--target "${@:2}"} 2>&1) || { echo "$log" >&2; fail "cannot build the preset $1"; }
}

# gdb_obstacle: prints why GDB cannot show the objects of a program on this machine; prints nothing if it can.
gdb_obstacle()
{
    local probe
    command -v gdb >/dev/null || { echo "there is no GDB"; return; }
    probe=$(gdb -nx -batch -ex 'python print("Python works")' -ex starti /bin/true 2>&1) || true
    case $probe in
        *"Python works"*"Program stopped"*) ;;
        *"Python works"*) echo "GDB may not trace programs on this machine" ;;
        *) echo "this GDB has no Python" ;;
    esac
}
