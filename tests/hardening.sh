#!/bin/sh
# Checks that the release build of a program is hardened. Usage: hardening.sh PROGRAM
set -u
status=0
# What readelf shows of it, by which option.
while read -r option pattern what; do
    LC_ALL=C readelf -W "$option" "$1" | grep -Eq -e "$pattern" && continue
    echo "$1: $what is missing" >&2
    status=1
done <<'TABLE'
-h Type:\s+DYN            position independence
-l GNU_RELRO              RELRO
-d BIND_NOW|FLAGS.*\sNOW  binding at the start, for full RELRO
-l GNU_STACK.*\sRW\s+0x   a stack that is not executable
-s __stack_chk_fail       the stack protector
-s __syslog_chk           the checked form of syslog
-s __printf_chk           the checked form of printf
TABLE
exit $status
