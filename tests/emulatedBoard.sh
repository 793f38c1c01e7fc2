#!/bin/sh
# Runs on the emulated board: what pmadmin and pmfile do through a real kernel, with a chip model that
# nobody here wrote; the same on the virtual board, which has to print, log and put on its bus
# what the kernel does; and the lock. Works in /results, and prints the beginning of what is wrong.
# shellcheck disable=SC2016,SC2034,SC2317 # step evaluates bus lines; names stand for functions
set -u
tools=/usr/sbin                         # of i2c-tools; the shell has its own
export LD_LIBRARY_PATH=/usr/lib/pmadmin # stand-ins for the libraries that a board has

# The entries of the PM data file, each a code and its data: all that the chip model keeps. What
# the device has only once has one value; the words differ from page to page.
list_entries() {
    for page in 00 01 02 03 04 05 06 07 08 09 0A 0B 10 11 FF; do
        echo "00 $page"
        case $page in
        FF) words= ;;
        1?) words='4F 51 D6' ;;
        *) words='25 26 2A 40 42 43 44 5E 5F 60 62 64 D4 D7 DF' && echo '01 80' ;;
        esac
        for code in $words; do echo "$code $page $code"; done
        printf '%s\n' '02 1A' '10 01' '9C 52 41 43 4B 20 41 30 31' '9E 53 4E 30 30 31 32 33 34' \
            'D1 34 12' 'D8 78 56' 'DD 0D 0C 0B 0A' '9D 05 02 03 AA BB CC DD EE'
    done
}

# records - makes Intel HEX records of entries, one of each.
records() {
    address=0
    while read -r entry; do
        # shellcheck disable=SC2086 # its bytes
        set -- $entry
        sum=$(($# + 1 + address / 256 + address + $# - 1))
        printf ':%02X%04X00%02X' $(($# + 1)) $address $(($# - 1))
        for byte; do
            printf %s "$byte"
            sum=$((sum + 0x$byte))
        done
        printf '%02X\n' $((-sum & 255))
        address=$((address + $# + 1))
    done
    echo :00000001FF
}

# is WHAT EXPECTED ACTUAL - complains if they differ.
is() { [ "$2" = "$3" ] || echo "$world, $1: '$3' in place of '$2'" >&2; }

# Transfers on the bus.
to() { printf 'S 74w %s P\n' "$@"; }
start_up() { to '00 FF' '99 Sr 74r 4D' '9A Sr 74r 59' "9B Sr 74r $revision" '00 FF' "9D Sr 74r $date"; }
write_all() { sed 's/.*/S 74w & P/' "../$1"; }
compare_all() { sed -E '/^00/!s/ / Sr 74r /; s/.*/S 74w & P/' "../$1"; }
# Each register twice, and the page when it is selected and when it is left.
read_all() {
    awk '
        function check() { if (page != "") print "00 Sr 74r " page }
        /^00/ { check(); print; page = $2; check(); next }
        { sub(/ /, " Sr 74r "); print; print }
        END { check() }
    ' "../$1" | sed 's/.*/S 74w & P/'
}

# step STATUS BUS COMMAND... - runs a command on the board; BUS prints its transfers.
step() {
    wanted=$1
    eval "$2" >>bus.expected
    shift 2
    echo "$ $*"
    status=0
    on_board "$@" </dev/null 2>&1 || status=$?
    echo "[$status]"
    is "$*" "$wanted" $status
}

steps() {
    date='09 08 00 00 00 00 00 00'
    step 0 'to "9D $date"' $tools/i2ctransfer -y 0 w9@0x74 0x9d 9 8 0 0 0 0 0 0
    step 0 'to "00 00"' $tools/i2cset -y 0 0x74 0x00 0x00
    step 0 'to "01 5A"' $tools/i2cset -y 0 0x74 0x01 0x5a
    step 0 start_up pmadmin -a
    step 0 start_up pmadmin -v
    step 0 start_up pmadmin -m ../all.hex
    differs='to "00 00" "01 Sr 74r 5A" "01 Sr 74r 5A"'
    step 1 "start_up; $differs" pmadmin -E ../all.hex
    step 0 "start_up; $differs; write_all entries; to 11; compare_all entries" pmadmin -u ../all.hex
    date='05 02 03 AA BB CC DD EE'
    step 0 'start_up; compare_all entries' pmadmin -E ../all.hex
    step 1 'start_up; compare_all entries' pmadmin -u ../all.hex
    step 0 'start_up; to 11' pmadmin -e ../all.hex
    step 0 'start_up; write_all entries' pmadmin -r ../all.hex
    step 0 'start_up; read_all settings' pmfile read --like ../settings.hex -o before.hex
    step 1 : pmfile check before.hex
    step 0 : pmfile diff ../settings.hex before.hex

    # Others see what the tool wrote, a byte, a word and a block, and the tool what they wrote.
    step 0 'to "00 03"' $tools/i2cset -y 0 0x74 0x00 0x03
    step 0 'to "01 Sr 74r 80"' $tools/i2cget -y 0 0x74 0x01
    step 0 'to "42 Sr 74r 03 42"' $tools/i2cget -y 0 0x74 0x42 w
    step 0 'to "9C Sr 74r 52 41 43 4B 20 41 30 31"' $tools/i2ctransfer -y 0 w1@0x74 0x9c r8
    while read -r theirs ours command; do
        theirs=$(echo "$theirs" | tr _ ' ')
        # shellcheck disable=SC2086 # its words
        step 0 'to "$theirs"' $tools/$command
        printf '00 03\n%s\n' "$ours" | tr _ ' ' | records >one.hex
        seen=$(echo "$theirs" | sed 's/ / Sr 74r /')
        step 1 'start_up; to "00 03" "$seen" "$seen"' pmadmin -E one.hex
    done <<'CHANGES'
01_5A 01_80 i2cset -y 0 0x74 0x01 0x5a
42_34_12 42_03_42 i2cset -y 0 0x74 0x42 0x1234 w
9E_01_02_03_04_05_06_07_08 9E_53_4E_30_30_31_32_33_34 i2ctransfer -y 0 w9@0x74 0x9e 1 2 3 4 5 6 7 8
CHANGES
    differs='compare_all settings | sed "/w 9E/{ s/74r .*/74r 01 02 03 04 05 06 07 08 P/; p; q; }"'
    step 0 "start_up; $differs; write_all settings; to 11; compare_all settings" pmadmin -u before.hex

    # A standard stream that is closed must not become the bus.
    for closed in '<&-' '>&-' '2>&-' '<&- >&- 2>&-'; do
        step 0 start_up sh -c "pmadmin -v $closed"
        step 1 start_up sh -c "pmadmin -E none.hex $closed"
    done

    for trouble in without_bus with_driver without_chip; do
        $trouble step 1 : pmadmin -a
        $trouble step 0 : pmadmin -v
        # Refused the address, a descriptor is for address 0, a general call: QEMU has all chips
        # listen to that, the virtual board none.
        [ $trouble = with_driver ] || $trouble step 1 : pmadmin -E ../all.hex
    done
}

# use_bus NUMBER - which of the board's buses /dev/i2c-0 is. Only bus 0 has a chip.
use_bus() { rm -f /dev/i2c-0 && mknod /dev/i2c-0 c 89 "$1"; }

kernel() {
    revision='FF FF'
    bus=/sys/bus/i2c/devices/i2c-0
    on_board() { "$@"; }
    without_bus() { rm /dev/i2c-0 && "$@"; use_bus 0; }
    with_driver() { echo dummy 0x74 >"$bus/new_device" && "$@"; echo 0x74 >"$bus/delete_device"; }
    without_chip() { use_bus 5 && "$@"; use_bus 0; }
    use_bus 0
    steps
}

virtual() {
    revision='30 30'
    fault=
    # shellcheck disable=SC2086 # an option and its value, or nothing
    on_board() { virtual-board --model 0x59 --log log --bus-log bus $fault "$@"; }
    with_fault() { fault="--fault $1" && shift && "$@"; fault=; }
    without_bus() { with_fault open=ENOENT "$@"; }
    with_driver() { with_fault busy "$@"; }
    without_chip() { with_fault absent "$@"; }
    steps
}

# take_lock - makes a run hold the lock: it prints into a pipe that is full. There is no chip,
# which it notices at once.
take_lock() {
    use_bus 5
    timed 0 5 pmadmin -a
    is 'key, permissions, number' '652187 666 1' "$(awk 'NR == 2 { print $1, $3, $4 }' /proc/sysvipc/sem)"
    is 'a lock that is free' 1 "$(value)"
    mkfifo pipe
    exec 3<>pipe
    rm pipe
    head -c 65536 /dev/zero >&3
    pmadmin -E ../all.hex >&3 &
    holder=$!
    sleep 2
    is 'a lock that is taken' 0 "$(value)"
}

value() { ipcs -s -i 0 | awk '$1 == "0" { print $2 }'; }

hundredths() { cut -d ' ' -f 1 /proc/uptime | tr -d .; }

# timed FROM TO COMMAND... - runs a command that takes so many seconds.
timed() {
    from=$1 to=$2
    shift 2
    began=$(hundredths)
    timeout 30 "$@"
    took=$(($(hundredths) - began))
    is "$*, after $took hundredths of a second" 1 $((from * 100 <= took && took < to * 100))
}

turns() {
    take_lock
    timed 5 10 pmadmin -v >second &
    second=$!
    sleep 2
    is 'printed beside the holder' '' "$(cat second)"
    cat <&3 >/dev/null &
    wait $holder
    is 'status of the holder' 1 $?
    wait $second
    is 'lines printed after the holder' 2 "$(wc -l <second)"
    is 'the lock that both gave back' 1 "$(value)"
    kill $!
}

killed() {
    take_lock
    kill -KILL $holder
    timed 20 24 pmadmin -v >/dev/null
    is 'the lock that was taken over' 1 "$(value)"
    timed 0 5 pmadmin -v >/dev/null
    is 'takeovers' 1 "$(grep -c '(PmMutexLock) - Semaphore locked a long time - continue without the lock' syslog)"
}

if [ $# -eq 1 ]; then
    world=$1
    cd "/results/$world" || exit
    mount -t tmpfs dev /dev
    mknod -m 666 /dev/null c 1 3
    mknod /dev/zero c 1 5
    syslogd -O "$PWD/syslog"
    $world
    sed -n '/ corvane/{ s/.* user\.\([a-z]*\) corvane[^:]*/\1/; s/^warn:/warning:/; p; }' syslog >>log
    exit
fi

cd /results || exit
echo 3 >/etc/board-hw-version
list_entries >entries
records <entries >all.hex
# Of what a chip keeps in flash, what the device has only once stands once.
awk '!/^(01|10|D[467]|DD)/ && (!/^(02|9|D[18])/ || !listed[$1]++)' entries >settings
records <settings >settings.hex
for world in kernel virtual turns killed; do
    mkdir $world
    unshare --mount --ipc sh "$0" $world >$world/output 2>$world/failures &
done
wait
{
    cat ./*/failures
    diff kernel/output virtual/output
    diff kernel/log virtual/log
    grep -v ' N ' virtual/bus | diff virtual/bus.expected -
} >failures
head -n 50 failures
[ ! -s failures ]
