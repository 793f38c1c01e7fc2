#!/bin/sh
# Compares the power monitor with a list of settings, or writes the list, with one call of
# an i2c-tools program per entry:  per-entry.sh compare|write LIST
# LIST is what `smbus2-admin.py list` makes of a PM data file: an entry a line, the command
# code and its data bytes, each as 0x.., words low byte first.
set -u
action=$1
list=$2

# write_entry CODE BYTE... - up to three attempts.
write_entry() {
    case $# in
    2) set -- "$1" "$2" b ;;
    3) set -- "$1" "0x${3#0x}${2#0x}" w ;;
    *) set -- "$@" i ;;
    esac
    for _ in 1 2 3; do
        i2cset -y 0 0x74 "$@" && return
        sleep 0.01
    done
    return 1
}

# read_entry CODE SIZE - puts the bytes into $value; up to three attempts.
read_entry() {
    for _ in 1 2 3; do
        case $2 in
        1) value=$(i2cget -y 0 0x74 "$1" b) && return ;;
        2) value=$(i2cget -y 0 0x74 "$1" w) &&
            value="0x${value#0x??} ${value%??}" && return ;;
        *) value=$(i2ctransfer -y 0 w1@0x74 "$1" "r$2") && return ;;
        esac
        sleep 0.01
    done
    return 1
}

# compare_entry CODE BYTE... - reads up to twice.
compare_entry() {
    code=$1
    shift
    for _ in 1 2; do
        read_entry "$code" $# && [ "$value" = "$*" ] && return
    done
    return 1
}

identify() {
    write_entry 0x00 0xff && read_entry 0x99 1 && read_entry 0x9a 1 && read_entry 0x9b 2 &&
        read_entry 0x9d 8
}

if ! identify; then
    echo "The power monitor does not answer" >&2
    exit 1
fi
echo "Installed version, minor and major: $value"
while read -r code bytes; do
    # shellcheck disable=SC2086 # the bytes are arguments
    case $action:$code in
    write:* | *:0x00) write_entry "$code" $bytes && continue ;;
    *) compare_entry "$code" $bytes && continue ;;
    esac
    echo "$code $bytes: $action failed" >&2
    exit 1
done <"$list"
