#!/bin/sh
# pmadmin built and installed as for an image, on a board's own libraries, those of vendor/, and on a bus that replaces
# the device alone. Usage: boardLibraries.sh LIBRARIES VIRTUAL_BOARD BUS CMAKE-ARGUMENT..., the second and pmadmin under
# $EMULATOR if that is set.
# shellcheck disable=SC2086 # an emulator may have arguments
set -eu
unset CDPATH
source=$(cd "$(dirname "$0")/.." && pwd)
libraries=$1 virtual_board=$2 bus=$3
shift 3

# is WHAT EXPECTED ACTUAL - complains if they differ.
is() { [ "$2" = "$3" ] || { printf '%s:\n%s\nin place of\n%s\n' "$1" "$3" "$2" && failed=1; }; }

run() {
    status=0
    LD_PRELOAD=./bus.so LD_LIBRARY_PATH=$libraries ${EMULATOR-} image/usr/sbin/pmadmin "$@" 2>&1 || status=$?
    echo $status
}

# version VERSION FILE EXPECTED - checks the hardware version; "none": the board has none.
version() {
    export BOARD_VERSION="$1"
    [ "$1" != none ] || unset BOARD_VERSION
    is "version $1 for $2" "$3" "$(run -m "$2" | grep -v '^vendor: ')"
}

if [ "${1-}" = inside ]; then
    unset LD_PRELOAD failed # the virtual board's, which answers for the version
    refused='Minimum required HW version for updates is'
    version none any "$refused 0(hwver=0))
1"
    version -1 any "$refused 0(hwver=-1))
1"
    version 0 "$source/examples/small.hex" "$refused 1(hwver=0))
1"
    version 0 any 'Minimum HW version is OK to upgrade powermonitor.
0'
    # From the pause of an upgrade on, nothing is logged.
    export BOARD_VERSION=1 TRACE_EARLY=1
    is upgrade 'Writing power monitor file: success
Get installed Power monitor version
EEPROM version is v48.49
New version is v1.0
RAM registers are up-to-date.
EEPROM registers are up-to-date.
0' "$(run -u "$source/examples/small.hex" | while read -r line; do
        case $line in *'Writing power'*) printf '\377\377\377\377' 1<>level ;; esac
        echo "${line##* - }"
    done | tail -n 7)"
    exit ${failed-0}
fi

mkdir -p "$libraries/../image" && cd "$libraries/../image"
cp "$bus" bus.so # the loader divides its list at blanks
head -c 4 /dev/zero >level
echo :03000000010000FC >any
isolated='unshare --ipc'
$isolated true 2>/dev/null || isolated='unshare --ipc --map-root-user'
$isolated true 2>/dev/null || isolated=
for include in '' "$source/tests/vendor"; do
    cmake -S "$source" -B build "$@" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_RPATH=ON -DPMADMIN_PMFILE=OFF \
        -DBUILD_TESTING=OFF -DPMADMIN_WERROR=ON -DPMADMIN_BOARD_LIBRARIES="$libraries" -DPMADMIN_BOARD_INCLUDE="$include"
    cmake --build build
    rm -rf image
    DESTDIR=image cmake --install build
    is 'the image' 'image/usr/sbin/pmadmin
image/usr/share/bash-completion/completions/pmadmin
image/usr/share/man/man8/pmadmin.8.gz' "$(find image -type f | sort)"
    is 'needed libraries' 'libtrace.so.2
libboardutils.so.2' "$(readelf -d image/usr/sbin/pmadmin | sed -n 's/.*NEEDED.*\[\(lib[bt].*\)]/\1/p')"
    $isolated ${EMULATOR-} "$virtual_board" --board board sh "$0" "$libraries" "$virtual_board" "$bus" inside || failed=1
    rm -f board
done
cmake build -DPMADMIN_BOARD_LIBRARIES=/no 2>&1 | grep 'there is no /no/libtrace.so' || failed=1
exit ${failed-0}
