#!/bin/sh
# Is the release build of a program hardened? Usage: hardening.sh PROGRAM
set -u
program=$1
status=0

# has WHAT PATTERN READELF-OPTION - whether readelf shows the pattern.
has() {
    LC_ALL=C readelf -W "$3" "$program" | grep -Eq -e "$2" && return
    echo "$program: $1 is missing" >&2
    status=1
}

has 'position independence' 'Type: +DYN' -h
has 'RELRO' 'GNU_RELRO' -l
has 'binding at the start, for full RELRO' 'BIND_NOW|FLAGS.* NOW' -d
has 'a stack that is not executable' 'GNU_STACK.* RW +0x' -l
has 'the stack protector' '__stack_chk_fail' -s
has 'the checked form of syslog' '__syslog_chk' -s
has 'the checked form of printf' '__printf_chk' -s
exit $status
