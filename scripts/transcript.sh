#!/bin/sh
# Copies a text from standard input to standard output, and runs the commands that it shows after
# "$ ": what they print now, and a status other than 0, takes the place of the lines below them.
set -u
output=$(mktemp)
trap 'rm -f "$output"' EXIT
replaced=
while IFS= read -r line; do
    text=${line#"${line%%[! ]*}"}
    indent=${line%"$text"}
    case $text in
    '$ '*)
        printf '%s\n' "$line"
        status=0
        eval "${text#??}" >"$output" 2>&1 </dev/null || status=$?
        [ "$status" -eq 0 ] || echo "[exit status $status]" >>"$output"
        sed "s/^/$indent/" "$output"
        replaced=yes
        continue
        ;;
    '' | '# '*) replaced= ;;
    esac
    [ -n "$replaced" ] || printf '%s\n' "$line"
done
