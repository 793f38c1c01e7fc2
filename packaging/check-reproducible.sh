#!/bin/sh
# Builds the last commit twice, in different folders and time zones, and checks that
# programs, libraries and packages are identical.
# Needs the packages that a build needs, and git.
set -eu
unset CDPATH

source=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
SOURCE_DATE_EPOCH=$(git -C "$source" log -1 --format=%ct)
export SOURCE_DATE_EPOCH

# build FOLDER ZONE
build() {
    git clone -q "$source" "$work/$1"
    (
        export TZ="$2"
        cd "$work/$1"
        cmake --preset release -DBUILD_TESTING=OFF && cmake --build build/release --target package
    ) >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
}
build one UTC
build another/folder Asia/Tokyo

differ=0
for result in src/pmadmin src/pmfile virtualboard/virtual-board \
    $(cd "$work/one/build/release" && echo lib/pmadmin/*.so packages/*.deb); do
    if cmp "$work/one/build/release/$result" "$work/another/folder/build/release/$result"; then
        echo "the same: $result"
    else
        differ=1
    fi
done
exit $differ
