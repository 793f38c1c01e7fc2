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

# need PACKAGE... - installs those that are missing; says which and ends when it can't.
need() {
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
    # shellcheck disable=SC2086 # the list is meant to be split
    if ! { $as_root apt-get update -q &&
        $as_root env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -q --no-install-recommends $missing; } >"$log" 2>&1; then
        tail -n 5 "$log" >&2
        rm -f "$log"
        echo "These packages could not be installed:$missing" >&2
        exit 1
    fi
    rm -f "$log"
}
