#!/bin/sh
# Runs the commands of README's safe upgrade and rehearsal in a folder, with the programs on the
# path, and shows them. Ends with 1 if they don't print what README says, and leaves the folder as
# the story finds it: a virtual board with settings 2.5 and supplies that are well, and the list of
# settings 2.6.
# Usage: story.sh FOLDER
set -eu
unset CDPATH
project=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$1"
cd "$1"

prepare() {
    for board in virtual-board.state rehearsal; do
        [ -e $board ] || continue
        virtual-board --board $board --time-scale 0 pmadmin -a >/dev/null # frees a killed run's lock
        virtual-board --board $board --remove
    done
    rm -rf ./*
    cp "$project/examples/board-a.hex" .
    virtual-board --time-scale 0 pmadmin -u board-a.hex >/dev/null
    virtual-board --supply all=nominal true
    sed -e '/^\[channel 3 /a VOUT_OV_WARN_LIMIT      +6 %' \
        -e 's/^\(MFR_DATE \).*/\1 2.6 hw 3/' "$project/examples/board-a.settings" >new.settings
}
trap 'exit 1' HUP INT TERM

prepare
sed -n '/^## A safe upgrade$/,/^## Where things are$/{ /^## Where/!p; }' "$project/README.md" >expected.md
"$project/scripts/transcript.sh" <expected.md | tee shown.md
diff expected.md shown.md >&2
rm expected.md shown.md
prepare
