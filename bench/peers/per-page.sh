#!/bin/sh
# Compares the power monitor with a list of settings, or writes the list, with one long call
# of i2ctransfer per page:  per-page.sh compare|write LIST  (as for per-entry.sh)
# Repeated starts join the page's transfers: that suits a chip that carries out a command
# without waiting for a stop.
set -u
action=$1
list=$2
newline='
'
# The kernel takes 42 messages a call, and an entry that is compared makes two.
entries_per_call=20

fail() {
    echo "$*" >&2
    exit 1
}

# transfer MESSAGE... - puts what was read into $value; up to three attempts.
transfer() {
    for _ in 1 2 3; do
        value=$(i2ctransfer -y 0 "$@") && return
        sleep 0.01
    done
    return 1
}

# flush - carries out what was collected for the page; reads up to twice.
flush() {
    for _ in 1 2; do
        # shellcheck disable=SC2086 # the messages are arguments
        transfer $messages && [ "$value" = "$expected" ] && return
        [ "$action" = compare ] || break
    done
    echo "Page $page: $action failed${value:+; read:$newline$value$newline}$expected" >&2
    status=1
    [ "$action" = write ] || exit 1
}

transfer w2@0x74 0x00 0xff w1@0x74 0x99 r1 w1@0x74 0x9a r1 w1@0x74 0x9b r2 w1@0x74 0x9d r8 ||
    fail "The power monitor does not answer"
# shellcheck disable=SC2086 # the bytes are arguments
set -- $value
model=$2
echo "Installed version, minor and major: $5 $6"
if [ "$action" = write ]; then
    read -r hw_version <"${BOARD_HW_VERSION_FILE:-/etc/board-hw-version}"
    while read -r code _ _ minimum _; do
        [ "$code" != 0x9d ] || [ "$hw_version" -ge $((minimum)) ] ||
            fail "The settings need hardware version $((minimum))"
    done <"$list"
fi
status=0
page=0xff
entries=0
while read -r code bytes; do
    if [ "$code" = 0x00 ] || [ "$entries" -eq "$entries_per_call" ]; then
        [ "$entries" -eq 0 ] || flush
        [ "$code" != 0x00 ] || page=$bytes
        messages="w2@0x74 0x00 $page"
        expected=
        entries=0
    fi
    # shellcheck disable=SC2086 # the bytes are arguments
    set -- $bytes
    case $action:$model:$code in
    *:0x00 | compare:0x57:0xe0 | compare:0x57:0xea) continue ;;
    write:*) messages="$messages w$(($# + 1))@0x74 $code $bytes" ;;
    *)
        messages="$messages w1@0x74 $code r$#"
        expected="$expected${expected:+$newline}$bytes"
        ;;
    esac
    entries=$((entries + 1))
done <"$list"
[ "$entries" -eq 0 ] || flush
exit $status
