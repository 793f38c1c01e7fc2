#!/bin/sh
# Runs on the emulated board: what pmadmin and pmfile do through a real kernel, with QEMU's chip model; the same on
# the virtual board, which must print, log and put on its bus what the kernel does; and the lock.
# Works in /results, and prints the beginning of each difference.
# shellcheck disable=SC2086,SC2317 # names stand for words and functions
set -u
tools=/usr/sbin                         # of i2c-tools; the shell has its own
export LD_LIBRARY_PATH=/usr/lib/pmadmin # stand-ins for the libraries that a board has

# The entries of the PM data file, each a code and its data: everything that the chip model keeps.
# Registers common to the device have one value; the words differ from page to page.
list_entries() {
    for page in 00 01 02 03 04 05 06 07 08 09 0A 0B 10 11 FF; do
        echo "00 $page"
        case $page in
        FF) words= ;;
        1?) words='4F 51' ;;
        *) words='25 26 2A 40 42 43 44 5E 5F 60 62 64 DF' && echo '01 80' ;;
        esac
        for code in $words; do echo "$code $page $code"; done
        printf '%s\n' '02 1A' '10 01' '9C 52 41 43 4B 20 41 30 31' '9E 53 4E 30 30 31 32 33 34' \
            'D1 34 12' 'D8 78 56' 'DD 0D 0C 0B 0A' '9D 05 02 03 AA BB CC DD EE'
    done
}

# make_file FILE - makes a PM data file of entries.
make_file() { sed 's/^/raw /' | pmfile make --allow all - -o "$1"; }

# is WHAT EXPECTED ACTUAL - complains if they differ.
is() { [ "$2" = "$3" ] || echo "$world, $1: '$3' in place of '$2'" >&2; }

# step STATUS COMMAND... - runs a command on the board.
step() {
    wanted=$1
    shift
    echo "$ $*"
    status=0
    on_board "$@" </dev/null 2>&1 || status=$?
    echo "[$status]"
    is "$*" "$wanted" $status
}

steps() {
    step 0 $tools/i2ctransfer -y 0 w9@0x74 0x9d 9 8 0 0 0 0 0 0
    step 0 $tools/i2cset -y 0 0x74 0x00 0x00
    step 0 $tools/i2cset -y 0 0x74 0x01 0x5a
    step 0 pmadmin -a
    step 0 pmadmin -v
    step 0 pmadmin -m ../all.hex
    step 1 pmadmin -E ../all.hex
    step 0 pmadmin -u ../all.hex
    step 0 pmadmin -E ../all.hex
    step 1 pmadmin -u ../all.hex
    step 0 pmadmin -e ../all.hex
    step 0 pmadmin -r ../all.hex
    step 0 pmfile read --like ../settings.hex -o before.hex
    step 1 pmfile check before.hex
    step 0 pmfile diff ../settings.hex before.hex

    # Other programs see what the tool wrote, a byte, a word and a block, and the tool sees what they wrote.
    step 0 $tools/i2cset -y 0 0x74 0x00 0x03
    step 0 $tools/i2cget -y 0 0x74 0x01
    step 0 $tools/i2cget -y 0 0x74 0x42 w
    step 0 $tools/i2ctransfer -y 0 w1@0x74 0x9c r8
    step 0 $tools/i2cset -y 0 0x74 0x01 0x5a
    step 0 $tools/i2cset -y 0 0x74 0x42 0x1234 w
    step 0 $tools/i2ctransfer -y 0 w9@0x74 0x9e 1 2 3 4 5 6 7 8
    step 0 pmadmin -E ../theirs.hex
    step 0 pmadmin -u before.hex

    # A standard stream that is closed must not become the bus.
    for closed in '<&-' '>&-' '2>&-' '<&- >&- 2>&-'; do
        step 0 sh -c "pmadmin -v $closed"
        step 1 sh -c "pmadmin -E none.hex $closed"
    done

    for trouble in without_bus with_driver without_chip; do
        $trouble step 1 pmadmin -a
        $trouble step 0 pmadmin -v
        # A descriptor that was refused the address is for address 0, the general call: in QEMU all
        # chips obey that, on the virtual board none.
        [ $trouble = with_driver ] && continue
        $trouble step 1 pmadmin -E ../all.hex
        $trouble step 2 pmfile read
    done
}

# use_bus NUMBER - which of the board's buses /dev/i2c-0 is. Only bus 0 has a chip.
use_bus() { rm -f /dev/i2c-0 && mknod /dev/i2c-0 c 89 "$1"; }

kernel() {
    bus=/sys/bus/i2c/devices/i2c-0
    on_board() { "$@"; }
    without_bus() { rm /dev/i2c-0 && "$@"; use_bus 0; }
    with_driver() { echo dummy 0x74 >"$bus/new_device" && "$@"; echo 0x74 >"$bus/delete_device"; }
    without_chip() { use_bus 5 && "$@"; use_bus 0; }
    use_bus 0
    steps
    is 'who has the address' "pmfile: the address 0x74 of /dev/i2c-0 is taken by the kernel driver dummy (as root, \
\`echo 0-0074 >/sys/bus/i2c/devices/0-0074/driver/unbind\` releases it); nothing was written" \
        "$(with_driver pmfile read 2>&1)"

    # What the chip model measures, in mV and 0.01 degrees: as pmstatus shows it, and as i2c-tools do.
    pmstatus --all --json >status.json
    is 'voltages' "$(read_pages 0x8b 0 1 2 3 4 5 6 7 8 9 10 11)" "$(values volts 1000)"
    is 'temperatures' "$(read_pages 0x8d 16 17)" "$(values celsius 100 | tail -n 2)"
}

# read_pages CODE PAGE... - the numbers in a register of some pages.
read_pages() {
    code=$1
    shift
    for page; do
        $tools/i2cset -y 0 0x74 0x00 "$page"
        echo $(($($tools/i2cget -y 0 0x74 "$code" w)))
    done
}

# values KEY STEPS - the numbers of a key in what pmstatus printed, so many steps to the unit.
values() {
    grep -o "\"$1\":[^,]*" status.json | awk -F : -v steps="$2" '{ printf "%d\n", $2 * steps + .5 }'
}

virtual() {
    fault=
    on_board() { virtual-board --model 0x59 --log log --bus-log bus $fault "$@"; }
    with_fault() { fault="--fault $1" && shift && "$@"; fault=; }
    without_bus() { with_fault open=ENOENT "$@"; }
    with_driver() { with_fault busy "$@"; }
    without_chip() { with_fault absent "$@"; }
    steps
}

# upgrade - an upgrade and the way back, on a virtual chip: QEMU's gives what it gave last where pmupgrade reads the
# registers that are common to the device, so that no backup of it can be proved.
upgrade() {
    printf '%s\n' '[channel 3]' 'TON_DELAY 5 ms' '[device]' 'MFR_DATE 2.6 hw 3' >up.settings
    virtual-board true
    virtual-board pmupgrade --keep runs --allow partial up.settings >upgrade.log
    is 'an upgrade' 0 $?
    virtual-board --power-cycle pmadmin -E runs/*/file.hex
    is 'what was stored' 0 $?
    virtual-board pmupgrade --keep runs --return 1 >return.log
    is 'a return' 0 $?
    virtual-board --power-cycle pmadmin -E runs/0001-*/return.hex # a chip of the factory asks for hardware 49
    is 'what was stored then' 0 $?
}

# lock - the semaphore's key, permissions and value. A run holds the lock while it prints into a pipe that is full.
# Without a chip it gets there at once.
lock() {
    use_bus 5
    pmadmin -a
    is 'key, permissions, number' '652187 666 1' "$(awk 'NR == 2 { print $1, $3, $4 }' /proc/sysvipc/sem)"
    is 'a lock that is free' 1 "$(value)"
    mkfifo pipe
    exec 3<>pipe
    rm pipe
    head -c 65536 /dev/zero >&3
    pmadmin -E ../all.hex >&3 &
    sleep 2
    is 'a lock that is taken' 0 "$(value)"
    kill $!
}

value() { ipcs -s -i 0 | awk '$1 == "0" { print $2 }'; }

if [ $# -eq 1 ]; then
    world=$1
    cd "/results/$world" || exit
    mount -t tmpfs dev /dev
    mknod -m 666 /dev/null c 1 3
    mknod /dev/zero c 1 5
    syslogd -O "$PWD/syslog"
    $world
    sed -En '/ (corvane|pmfile)/{ s/.* user\.([a-z]*) (corvane|pmfile)[^:]*/\1/; s/^warn:/warning:/; p; }' syslog >>log
    exit
fi

cd /results || exit
echo 3 >/etc/board-hw-version
list_entries >entries
make_file all.hex <entries
# Settings that a chip keeps in flash; those common to the device appear once.
awk '!/^(01|10|DD)/ && (!/^(02|9|D[18])/ || !listed[$1]++)' entries | make_file settings.hex
printf '%s\n' '00 03' '01 5A' '42 34 12' '9E 01 02 03 04 05 06 07 08' | make_file theirs.hex
for world in kernel virtual upgrade lock; do
    mkdir $world
    unshare --mount --ipc sh "$0" $world >$world/output 2>$world/failures &
done
wait
# The kernel's transfers are those of the virtual board whose chip was there. That has another MFR_REVISION.
sed '/ N /d; s/9B Sr 74r 30 30/9B Sr 74r FF FF/' virtual/bus >kernel/bus.expected
{
    cat ./*/failures
    diff kernel/output virtual/output
    diff kernel/log virtual/log
    # Each entry was written and read like this.
    sed 's/.*/S 74w & P/' entries | grep -vxFf virtual/bus
    sed -E '/^00/!s/ / Sr 74r /; s/.*/S 74w & P/' entries | grep -vxFf virtual/bus
} >failures
head -n 50 failures
[ ! -s failures ]
