#!/bin/sh
# Makes the Debian packages of a release build and checks them: lintian finds no error,
# and in a clean root they install, run a whole upgrade on a virtual board, and are
# removed without leaving anything.
# Needs root, and the packages cmake, lintian and mmdebstrap.
set -eu
unset CDPATH
# shellcheck source=scripts/packages.sh
. "$(dirname "$0")/../scripts/packages.sh"

[ $# -eq 1 ] || { echo "Usage: $0 BUILD_FOLDER" >&2; exit 2; }
build=$(cd "$1" && pwd)
[ "$(id -u)" -eq 0 ] || { echo "$0: making a clean root takes root" >&2; exit 1; }

work=$(mktemp -d)
root=$work/root
trap 'umount "$root/proc" 2>/dev/null || true; rm -rf --one-file-system "$work"' EXIT
trap 'exit 1' HUP INT TERM

# in_root COMMAND - runs a shell command in the clean root. Its semaphores end with it.
in_root() {
    unshare --ipc chroot "$root" \
        env -i HOME=/root LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin sh -euc "$1"
}

# list_files - every file of the clean root, except the records of package management.
list_files() {
    (cd "$root" && find . \( -path ./proc -o -path ./sys -o -path ./dev -o -path ./var/log \
        -o -path ./var/lib/dpkg -o -path ./var/lib/apt -o -path ./var/cache/apt \) -prune \
        -o -type f -printf '%p %m %u:%g %s\n' -o -printf '%p %m %u:%g %l\n' | sort)
}

echo "== packages"
rm -rf "$build/packages"
cmake --build "$build" --target package >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
(cd "$build/packages" && stat -c '%n: %s bytes' ./*.deb)
for word in libtrace libboardutils; do
    if dpkg-deb -I "$build"/packages/pmadmin_*.deb control | grep '^Depends:' | grep -q $word ||
        dpkg-deb -c "$build"/packages/pmadmin_*.deb | grep -q $word; then
        echo "$0: pmadmin holds or needs a board's $word" >&2
        exit 1
    fi
done

echo "== lintian"
lintian --allow-root --fail-on error "$build"/packages/*.deb

echo "== a clean root"
mmdebstrap --variant=minbase "$(debian_codename)" "$root" "$(debian_mirror)" >"$work/log" 2>&1 ||
    { tail -n 5 "$work/log"; exit 1; }
mount -t proc proc "$root/proc"
mkdir "$root/packages"
cp "$build"/packages/*.deb "$root/packages"
list_files >"$work/before"

echo "== installed together"
in_root 'dpkg -i /packages/*.deb' >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
list_files | diff "$work/before" - | sed -n 's/^> \.//p' | grep -v '/ '
# shellcheck disable=SC2016 # the shell in the root expands these
in_root '
    expect() {
        wanted=$1
        shift
        echo "$ $*"
        status=0
        "$@" 2>&1 || status=$?
        [ $status -eq $wanted ] || { echo "ended with $status instead of $wanted"; exit 1; }
    }
    file=/usr/share/doc/pmfile/examples/board-a.hex
    folder=$(mktemp -d)
    cd "$folder"

    expect 127 pmadmin -a # no libraries of a board are here
    expect 0 virtual-board pmadmin -a
    expect 0 virtual-board pmadmin -m $file
    expect 1 virtual-board pmadmin -E $file
    expect 0 virtual-board --log log --summary pmadmin -u $file
    expect 0 grep "Power monitor successfully upgraded" log
    expect 1 virtual-board pmadmin -u $file
    expect 0 virtual-board --power-cycle pmadmin -E $file
    expect 0 pmfile check $file
    expect 0 virtual-board pmfile read --no-identity -o read.hex
    expect 0 pmfile diff read.hex $file
    expect 0 virtual-board --supply all=nominal pmstatus --brief

    version=$(virtual-board --version | cut -d " " -f 2)
    for page in man8/pmadmin.8 man1/pmfile.1 man1/pmfile-plot.1 man1/pmstatus.1 man8/pmupgrade.8 man1/virtual-board.1; do
        expect 0 zgrep "pmadmin $version" /usr/share/man/$page.gz
    done
    for program in pmadmin pmfile pmfile-plot pmstatus pmupgrade virtual-board; do
        expect 0 bash -c ". /usr/share/bash-completion/completions/$program; complete -p $program"
    done
    rm -r "$folder"
'

echo "== removed"
in_root 'dpkg --purge pmadmin pmfile pmadmin-virtual-board' >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
list_files | diff "$work/before" - || { echo "$0: that is left" >&2; exit 1; }
echo "Nothing is left."
