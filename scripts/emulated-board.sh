#!/bin/sh
# Runs a command on an emulated board: a real Linux kernel, the real driver of an I2C controller,
# and at address 0x74 of /dev/i2c-0 QEMU's model of a chip related to the MAX34460. Downloads are
# kept in build/emulated-board; remove that folder to fetch them again.
set -eu
unset CDPATH

usage() {
    cat <<'TEXT'
Usage: scripts/emulated-board.sh FOLDER [COMMAND]

Lays FOLDER over the board's root folder, runs the shell command line COMMAND there, shows its
output and ends with its status; 125 if the board did not come that far, within five minutes.
Without COMMAND you get a shell, which ends with `exit`.

Afterwards FOLDER/results, which must not be there before, holds what a command left in /results,
and the file `bus`: the transfers that the chip saw, as in the bus log of virtual-board(1).

The board is 32-bit Arm (Debian's armhf). It has busybox, ipcs, i2c-tools in /usr/sbin (by its
name alone the shell runs a program of busybox), and the C++ runtime of the cross compiler.
TEXT
}

# The kernel of this release has everything that the machine needs except two modules.
SUITE=bookworm
KEYRING=/usr/share/keyrings/debian-archive-keyring.gpg
TOOLS="busybox-static i2c-tools libi2c0 util-linux"
RUNTIME="ld-linux-armhf.so.3 libc.so.6 libm.so.6 libgcc_s.so.1 libstdc++.so.6"
TIME_LIMIT_S=300
NOT_FINISHED=125

case ${1:-} in
-h | --help)
    usage
    exit
    ;;
esac
if [ $# -lt 1 ] || [ $# -gt 2 ] || [ ! -d "$1" ]; then
    usage >&2
    exit 2
fi
folder=$(cd "$1" && pwd)
command=${2-}
if [ -n "$command" ] && [ -e "$folder/results" ]; then
    echo "$0: $folder/results is there already; remove it, or move it away" >&2
    exit $NOT_FINISHED
fi
cd "$(dirname "$0")/.."
. scripts/packages.sh
need qemu-system-arm cpio libc6-armhf-cross libgcc-s1-armhf-cross libstdc++6-armhf-cross
store=$PWD/build/emulated-board
mkdir -p build
work=$(mktemp -d build/emulated-board.XXXXXX)
work=$PWD/$work
mark=${work##*.} # tells what the board says of its end from the command's own output
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# foreign PROGRAM ARGUMENT... - runs one of apt's programs for the board's release and
# architecture. The host's settings hold, such as proxies; what it has installed does not count.
foreign() {
    program=$1
    shift
    "$program" -q -o APT::Architecture=armhf -o APT::Architectures=armhf \
        -o APT::Sandbox::User=root -o Acquire::Languages=none \
        -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State="$work" -o Dir::State::Status="$work/status" -o Dir::Cache="$work" "$@"
}

# unpack PACKAGE FOLDER TAR-ARGUMENT... - takes files out of a downloaded package.
unpack() {
    package=$1
    shift
    dpkg-deb --fsys-tarfile "$work/$package"_*.deb | tar -x -C "$@"
}

# fetch - fills the store. It is there whole or not at all.
fetch() {
    echo "Fetching the emulated board's kernel and tools"
    mirror=$(debian_mirror)
    if [ -z "$mirror" ]; then
        echo "apt has no mirror of Debian to fetch from" >&2
        exit 1
    fi
    echo "deb [signed-by=$KEYRING] $mirror $SUITE main" >"$work/sources.list"
    mkdir -p "$work/lists/partial" "$work/archives/partial" "$work/store/root"
    : >"$work/status"
    foreign apt-get update
    kernel=$(foreign apt-cache depends linux-image-armmp | sed -n 's/.*Depends: //p' |
        grep '^linux-image-')
    # shellcheck disable=SC2086 # the list is meant to be split
    (cd "$work" && foreign apt-get download "$kernel" $TOOLS)

    unpack "$kernel" "$work/store" --wildcards --transform='s,.*/,,' './boot/vmlinuz-*' \
        '*/aspeed-ast2600-evb.dtb' '*/i2c-aspeed.ko' '*/i2c-dev.ko'
    mv "$work"/store/vmlinuz-* "$work/store/kernel"
    mv "$work"/store/*.ko "$work/store/root"
    unpack busybox-static "$work/store/root" ./bin/busybox
    unpack i2c-tools "$work/store/root" ./usr/sbin
    unpack libi2c0 "$work/store/root" ./usr/lib
    unpack util-linux "$work/store/root" ./usr/bin/ipcs
    mv "$work/store" "$store"
}

# The first program of the board. The console is its only way out: after the command's output
# come the results, packed, and the status.
write_init() {
    cat <<'INIT'
#!/bin/busybox sh
/bin/busybox mkdir -p /dev /etc /proc /results /root /sys /tmp /var/log
/bin/busybox --install -s /bin
export PATH=/usr/sbin:/usr/bin:/bin HOME=/root TERM=linux
mount -t devtmpfs dev /dev
mount -t proc proc /proc
mount -t sysfs sys /sys
exec <>/dev/console >&0 2>&0
insmod /i2c-dev.ko
insmod /i2c-aspeed.ko
if [ -e /command ]; then
    stty -opost
    sh /command
    status=$?
    printf '\n-- MARK results\n'
    tar -cz -C /results . | base64
    printf '\n-- MARK status %s\n' $status
else
    setsid cttyhack sh
fi
reboot -f
INIT
}

# pack FOLDER CPIO-OPTION... - archives the files of FOLDER that standard input names, as the kernel
# takes them for its first file system: several such archives one after the other.
pack() {
    (cd "$1" && shift && cpio -o -H newc -R 0:0 --quiet "$@")
}

pack_all() {
    (cd "$1" && find . -mindepth 1 -path ./results -prune -o -print) | pack "$1"
}

write_file_system() {
    mkdir "$work/start"
    write_init | sed "s/MARK/$mark/" >"$work/start/init"
    chmod +x "$work/start/init"
    [ -z "$command" ] || printf '%s\n' "$command" >"$work/start/command"
    pack_all "$store/root"
    pack_all "$work/start"
    # shellcheck disable=SC2086 # the list is meant to be split
    printf 'lib/%s\n' '' $RUNTIME | pack /usr/arm-linux-gnueabihf -L
    pack_all "$folder"
}

# emulate TIME-LIMIT OPTION... - in seconds; 0 is none.
emulate() {
    limit=$1
    shift
    timeout --foreground "$limit" qemu-system-arm -M ast2600-evb -nographic -no-reboot \
        -device max34451,bus=aspeed.i2c.bus.0,address=0x74 \
        -kernel "$store/kernel" -dtb "$store/aspeed-ast2600-evb.dtb" -initrd "$work/files" \
        -append 'console=ttyS4 quiet loglevel=1 panic=-1' "$@"
}

# write_bus_log - turns the emulator's trace into transfers. The direction of a start shows only
# in the byte after it.
write_bus_log() {
    awk '
        / start/ { starts = 1 }
        /^i2c_(send|recv) / {
            if (starts)
                line = line (line == "" ? "S " : " Sr ") substr($2, index($2, "0x") + 2, 2) \
                    ($1 == "i2c_send" ? "w" : "r")
            starts = 0
            line = line " " toupper(substr($3, index($3, "0x") + 2))
        }
        / finish/ { print line " P"; line = "" }
    ' "$work/trace"
}

[ -e "$store" ] || fetch >&2
write_file_system >"$work/files"
if [ -z "$command" ]; then
    emulate 0
    exit
fi

emulate $TIME_LIMIT_S -trace 'i2c_*' -D "$work/trace" </dev/null |
    tee "$work/console" | sed -u "/^-- $mark results$/,\$d"
status=$(sed -n "s/^-- $mark status //p" "$work/console")
if [ -z "$status" ]; then
    echo "$0: the emulated board did not come to the end of the command" >&2
    exit $NOT_FINISHED
fi
mkdir "$folder/results"
sed -n "/^-- $mark results$/,/^-- $mark status /p" "$work/console" | grep -v '^--' | base64 -d |
    tar -xz -C "$folder/results"
write_bus_log >"$folder/results/bus"
exit "$status"
