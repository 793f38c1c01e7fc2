#!/bin/sh
# README's commands print what README says; pauses are skipped. Usage: readme.sh VIRTUAL_BOARD FOLDER_OF_PMADMIN
set -eu
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
printf '#!/bin/sh\nexec "%s" --time-scale 0 "$@"\n' "$1" >"$work/virtual-board"
chmod +x "$work/virtual-board"
PATH=$work:$2:$PATH
"$(dirname "$0")/../scripts/story.sh" "$work/story"
virtual-board --board "$work/story/virtual-board.state" --remove
