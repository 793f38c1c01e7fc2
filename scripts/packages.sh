# shellcheck shell=sh
# Installs Debian packages that a step needs. Sourced by demo, check, bench/run and the scripts
# that fetch packages themselves.

# debian_codename - prints the name of this machine's release of Debian.
debian_codename() {
    # shellcheck source=/dev/null
    (. /etc/os-release && echo "$VERSION_CODENAME")
}

# debian_mirror - prints where this machine has its packages from.
debian_mirror() {
    # shellcheck disable=SC2016 # apt-get expands it
    apt-get indextargets --format '$(REPO_URI)' "Release: $(debian_codename)" "Component: main" |
        head -n 1
}

# How often, and after how long, apt-get is tried again while another package manager is at work.
APT_WAITS=120
APT_WAIT_S=5

# command_of PACKAGE - prints the command that a package is needed for; nothing for a library, which
# CMake looks for.
command_of() {
    case $1 in
    dpkg-dev) echo dpkg-architecture ;;
    *-dev | python3-* | googletest) ;;
    binutils) echo readelf ;;
    g++-*) echo "${1#g++-}-g++" ;;
    gnuplot-nox) echo gnuplot ;;
    i2c-tools) echo i2cdetect ;;
    ninja-build) echo ninja ;;
    qemu-user-static) echo qemu-arm-static ;;
    srecord) echo srec_info ;;
    *) echo "$1" ;;
    esac
}

# need_commands PACKAGE... - where there is no dpkg: names the commands that are missing, and ends.
need_commands() {
    missing=
    for package in "$@"; do
        program=$(command_of "$package")
        [ -z "$program" ] || PATH=$PATH:/usr/sbin:/sbin command -v "$program" >/dev/null ||
            missing="$missing $program"
    done
    [ -n "$missing" ] || return 0
    echo "These commands are missing, and without dpkg they can't be installed here:$missing" >&2
    exit 1
}

# apt_get ARGUMENT... - runs apt-get with the rights of $as_root, its messages in $log. Repeats
# it while another package manager is at work: for some of the locks apt-get has no waiting option.
apt_get() {
    until $as_root env LC_ALL=C DEBIAN_FRONTEND=noninteractive apt-get -q "$@" >"$log" 2>&1; do
        grep -q 'Could not get lock' "$log" && [ "$waits" -gt 0 ] || return 1
        [ "$waits" -lt $APT_WAITS ] || echo "Waiting for another package manager, up to ten minutes:" \
            "$(grep -m 1 -o 'Could not get lock.*' "$log")"
        waits=$((waits - 1))
        sleep $APT_WAIT_S
    done
}

# need PACKAGE... - installs those that are missing; if it can't, names them and exits.
need() {
    if ! command -v dpkg >/dev/null; then
        need_commands "$@"
        return
    fi
    missing=
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0

    as_root=
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
            echo "These packages are missing, and installing them takes root:$missing" >&2
            exit 1
        fi
        as_root=sudo
    fi
    echo "Installing:$missing"
    log=$(mktemp)
    waits=$APT_WAITS
    # shellcheck disable=SC2086 # the list is meant to be split
    if ! { apt_get update && apt_get install -y --no-install-recommends $missing; }; then
        tail -n 5 "$log" >&2
        rm -f "$log"
        echo "These packages could not be installed:$missing" >&2
        exit 1
    fi
    rm -f "$log"
}
