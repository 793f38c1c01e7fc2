#!/bin/sh
# On a machine with I2C buses of its own virtual-board hides them from its command, and from no one
# else. This test makes such a machine in a mount namespace. Usage: isolation.sh BUILD_FOLDER
# shellcheck disable=SC2016,SC2086 # an inner shell expands it; options
set -u
unset CDPATH
umask 022
if [ "${2-}" != inside ]; then
    mounts='--mount --propagation unchanged'
    unshare $mounts true 2>/dev/null || mounts="--map-root-user $mounts"
    unshare $mounts true || { echo "skipped: this machine allows no mount namespace"; exit 77; }
    exec unshare $mounts sh "$0" "$1" inside
fi
# In a chroot the root may be no mount.
mount --make-rprivate / 2>/dev/null || mount --make-rprivate /dev || exit 1
work=$(mktemp -d)
trap 'cd / && umount -lR "$work" && rmdir "$work"' EXIT
mount -t tmpfs dev "$work" && chmod 755 "$work" && cd "$work" || exit 1
mkdir dev user && chmod 777 user
for device in null zero full urandom; do
    : >dev/$device && mount --bind /dev/$device dev/$device || exit 1
done
ln -s /proc/self/fd dev/fd
echo secret | tee dev/i2c-0 >dev/i2c-17
mkdir dev/i2c-1 && ln -s nowhere dev/i2c-2 # no buses
mount --rbind dev /dev && mount --make-rshared /dev || exit 1 # what is mounted there would spread
# The programs, where others may enter.
mkdir build && (cd "$1" && cp -r --parents virtualboard/virtual-board src/pmadmin lib/pmadmin "$work/build") &&
    chmod -R a+rX build && cd user || exit 1
set -- "$work/build/virtualboard/virtual-board" "$work/build/src/pmadmin"
failed=0

# expect WHAT STATUS OUTPUT COMMAND... - compares status and output, errors included.
expect() {
    what=$1 status=$2 output=$3
    shift 3
    actual=$("$@" 2>&1)
    [ "$?:$actual" = "$status:$output" ] && return
    printf '%s: %s gave\n%s\nin place of %s:\n%s\n' "$what" "$*" "$actual" "$status" "$output"
    failed=1
}
buses='cat /dev/i2c-0 /dev/i2c-17 && grep NoNewPrivs /proc/self/status'
mounts=$(cat /proc/self/mountinfo)
expect root 0 "NoNewPrivs:	0" "$1" env -i sh -c "$buses"
expect "the virtual one is there" 0 "" "$1" "$2" -a
"$1" sh -c 'touch running; exec sleep 1' &
while [ ! -e running ] && kill -0 $! 2>/dev/null; do :; done
expect "outside, meanwhile" 0 secret cat /dev/i2c-17
expect "mounts outside" 0 "$mounts" cat /proc/self/mountinfo
wait

# What a build for coverage counts, this user may leave in a folder of his own.
user="setpriv --reuid 65534 --regid 65534 --clear-groups env GCOV_PREFIX=$PWD/own"
"$1" --remove || exit 1
refused="virtual-board: cannot hide the machine's own /dev/i2c-*"
if ! $user true 2>/dev/null; then
    echo "skipped: an ordinary user, whom this user can't become"
elif $user unshare --user true 2>/dev/null; then
    expect "an ordinary user" 0 "NoNewPrivs:	1" $user "$1" env -i sh -c "$buses"
else
    expect "in a chroot" 2 "$refused: Operation not permitted; run it as root" $user "$1" true
fi
if unshare --map-root-user true 2>/dev/null; then
    expect "where it is not allowed" 2 "$refused: No space left on device" \
        unshare --map-root-user sh -c 'echo 0 >/proc/sys/user/max_user_namespaces
            exec setpriv --bounding-set=-all "$0" --board forbidden true' "$1"
fi
mkdir full && mount -t tmpfs -o size=4k full full || exit 1
expect "no room for the session" 2 "virtual-board: cannot share the session in $PWD/full: No space left on device" \
    env TMPDIR="$PWD/full" "$1" --board room true
expect "nothing is left" 0 "" ls full
umount /dev/null "$work/dev/null" && rm /dev/null || exit 1
# shellcheck disable=SC2016 # the inner shell expands it
expect "no place for what is printed" 1 "A standard stream is closed, and /dev/null can't be opened." \
    sh -c 'exec "$0" -v <&-' "$2"
exit $failed
