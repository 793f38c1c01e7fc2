#!/bin/sh
# docs/board-a.svg has the marks and texts that pmfile-plot draws today, at the same places; the rest differs
# between versions of matplotlib. Usage: boardPicture.sh PMFILE_PLOT
set -eu
unset CDPATH
if ! /usr/bin/python3 -c 'import matplotlib' 2>/dev/null; then
    echo "skipped: python3-matplotlib is missing"
    exit 77
fi
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
places() { sed -n -E 's/.*<use [^>]*( x="[^"]*" y="[^"]*").*/\1/p; s/.*<text style="[^"]*"//p' "$1"; }
"$1" examples/board-a.hex -o "$work/board-a.svg"
places docs/board-a.svg >"$work/places"
grep -q '>channel 11<' "$work/places"
places "$work/board-a.svg" | diff "$work/places" -
# Most of what could be drawn is not in it. What is replaced keeps its rights.
: >"$work/small.png" && chmod 640 "$work/small.png"
"$1" examples/small.hex -o "$work/small.png"
[ "$(stat -c %a "$work"/small.png*)" = 640 ]
ln -s /dev/full "$work/full.svg"
for arguments in --help "examples/small.hex -o $work/full.svg"; do
    status=0
    # shellcheck disable=SC2086 # the list is meant to be split
    "$1" $arguments >/dev/full 2>"$work/errors" || status=$?
    [ "$status: $(sed 's/.*: //' "$work/errors")" = "2: No space left on device" ]
done
