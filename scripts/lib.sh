# Shared by the scripts here; to be sourced, from the root of the project.

fail()
{
    echo "${0##*/}: $*" >&2
    exit 1
}

# need [COMMAND=]PACKAGE...: installs the Debian packages whose command, or which themselves, are missing. Where
# there is no dpkg, missing libraries are for CMake to find out.
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
    command -v apt-get >/dev/null || fail "this needs the equivalents of the Debian packages: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        sudo -n true 2>/dev/null ||
            fail "no rights to install what is missing; run as root: apt-get install ${missing[*]}"
        as_root=(sudo)
    fi
    echo "installing ${missing[*]}"
    log=$({ "${as_root[@]}" apt-get update -q && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${missing[@]}"; } 2>&1) ||
        { echo "$log" >&2; fail "apt-get could not install ${missing[*]}"; }
}

# build PRESET [CMAKE OPTION...]: configures and builds, with one line unless something goes wrong.
build()
{
    local preset=$1 log
    shift
    echo "building the preset $preset"
    log=$(cmake --preset "$preset" "$@" 2>&1) || { echo "$log" >&2; fail "cannot configure the preset $preset"; }
    log=$(cmake --build --preset "$preset" 2>&1) || { echo "$log" >&2; fail "cannot build the preset $preset"; }
}
