#!/bin/sh
# Manual pages and completions have the options of the usage texts, pmadmin(8) the registers of the catalogue, and
# pmfile(1) the complaints of pmfile. Usage: optionLists.sh PMADMIN VIRTUAL_BOARD PMFILE PMFILE_PLOT PMSTATUS
# PMUPGRADE,
# which run under $EMULATOR if that is set, except PMFILE_PLOT, a script.
# shellcheck disable=SC2086 # an emulator may have arguments
unset CDPATH
cd "$(dirname "$0")/../docs" || exit 1
failed=0

# equal WHAT EXPECTED ACTUAL - compares two lists.
equal() {
    [ -n "$2" ] && [ "$2" = "$3" ] && return
    printf '%s has\n%s\nin place of\n%s\n\n' "$1" "$3" "$2"
    failed=1
}
words() { grep -o -E -e "$1" | tr -d ' []' | sort -u; }
manual() { sed -n 's/^\.It Fl /-/p' "$1" | words '^--?[A-Za-z-]+'; }
# completion PROGRAM FUNCTION WORDS - what bash offers for the last of the words.
completion() {
    bash -c ". ./$1.bash; COMP_WORDS=($1 $3); COMP_CWORD=\$((\${#COMP_WORDS[@]} - 1)); $2
             printf '%s\n' \"\${COMPREPLY[@]}\"" | sort -u
}

# lists PROGRAM FUNCTION OPTIONS WORDS... - compares the options of a manual page and of a completion.
lists() {
    program=$1 function=$2 options=$3
    shift 3
    equal "$program's manual" "$options" "$(manual "$program".[18])"
    equal "$program.bash" "$options" "$(for words; do completion "$program" "$function" "$words"; done | sort -u)"
}

usage=$(${EMULATOR-} "$1" 2>&1)
options=$(echo "$usage" | words '\[-[A-Za-z]\]')
equal usage "$options" "$(echo "$usage" | words '^  -[A-Za-z]( or -R)?' | sed 's/or/\n/' | sort)"
lists pmadmin _pmadmin "$options" -
lists virtual-board _virtual_board "$(${EMULATOR-} "$2" --help | words '^  --[a-z-]+')" --
lists pmfile _pmfile "$(${EMULATOR-} "$3" --help | words '^  --?[a-z-]+')" - 'show -' 'check -' 'diff -' 'make -' 'read -'
lists pmfile-plot _pmfile_plot "$("$4" --help | words '^  --?[a-z]+')" -
lists pmstatus _pmstatus "$(${EMULATOR-} "$5" --help | words '^  --[a-z]+')" --
lists pmupgrade _pmupgrade "$(${EMULATOR-} "$6" --help | words '^  --[a-z-]+')" --

complaints=$(${EMULATOR-} "$3" check --allow '' x 2>&1 | sed 's/.*one of //; s/, or all//; s/, /\n/g')
equal "pmfile.1's complaints" "$complaints" "$(sed -n '/^The complaints are/,/^\.El/s/^\.It Cm //p' pmfile.1)"

rows=$(sed -n '/_ROW *(0x/s/[(),]/ /gp' ../src/commandCatalogue.def | awk '
    BEGIN { is["Null"] = 0; is["Byte"] = 1; is["Word"] = 2
            is["NO"] = "-"; is["RO"] = "r"; is["WO"] = "w"; is["RW"] = "rw" }
    { for (i = 4; i <= 7; ++i) $i = $i in is ? is[$i] : $i
      print substr($2, 3), tolower($3), $4, $5, $6, $7 }')
equal "pmadmin.8's table" "$rows" "$(sed -n -E 's/^\.It (\\&)?([0-9A-F]{2} Ta)/\2/p' pmadmin.8 |
    awk -F ' Ta ' '{ gsub("_", "", $2); $2 = tolower($2); print }')"
exit $failed
