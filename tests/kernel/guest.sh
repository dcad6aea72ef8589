#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=dash
# The first process of the guest: prepares the devices, runs the updater on them, says what holds,
# and switches the machine off. Each line that begins with "not ok" is a failure.

/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev

old="HD 2.10.4"
new="HD 2.11.0"

# check WHAT COMMAND...: the command's status says whether WHAT holds.
check() {
    what=$1
    shift
    if "$@"; then
        echo "ok: $what"
    else
        echo "not ok: $what"
        cat /output
    fi
}

# wait_until COMMAND...: for ten seconds at most.
wait_until() {
    tries=0
    until "$@"; do
        tries=$((tries + 1))
        [ "$tries" -le 1000 ] || return 1
        usleep 10000
    done
}

# updater ARGUMENT...: a run of the program; its output is /output, its status $status.
updater() {
    bbpflash "$@" >/output 2>/errors
    status=$?
}

shows() { grep -qF "$1" /output; }
succeeded() { [ "$status" -eq 0 ]; }
failed() { [ "$status" -eq 1 ] && [ "$(tail -n 1 /output)" = ERROR ]; }
bus_is_free() { flock -n /dev/i2c1 true; }
bus_is_locked() { ! bus_is_free; }

# start_chip BRIDGE_PARAMETER...: the adapter, and the chip as its slave.
start_chip() {
    insmod /modules/bbp_bridge.ko "$@"
    wait_until [ -c /dev/bbp_slave ]
    kernel_slave "$old" /flash.bin >/report &
    chip=$!
    wait_until [ -c /dev/gpio/HD_DAB2Reset ]
    wait_until [ -c /dev/i2c-1 ]
}

# Leaves what the chip saw in /report and what its flash holds in /flash.bin.
stop_chip() {
    kill "$chip"
    wait "$chip"
    cp /report /output
}

echo  # ends the line that the firmware's last escapes are in
for module in fuse cuse i2c-dev; do
    insmod "/modules/$module.ko"
done
ln -s i2c-1 /dev/i2c1

start_chip
updater -i
check "the installed version is read" succeeded
check "it is the chip's" shows "Installed firmware version is \"$old\""

updater -s /image.bin
check "an update succeeds" succeeded
{
    seq 1 80
    printf '%s\n' 85 90 95 99 100 DONE
} >/expected
check "its progress is complete and in order" cmp -s /expected /output
check "it leaves the bus unlocked" bus_is_free

updater -i
check "the chip reports the new version" shows "Installed firmware version is \"$new\""
updater /image.bin
check "a second update finds nothing to do" shows "Installed version matches BIN file label"

flock /dev/i2c1 sh -c 'sleep 6; touch /released' &
wait_until bus_is_locked
updater -i
check "a locked bus is waited for" [ -e /released ]
check "and then used" succeeded

stop_chip
check "the chip's flash holds the image" cmp -s /flash.bin /image.bin
check "it took one download" shows "burns      1"
check "of 516 segments" shows "segments   516"

updater -i
check "a missing reset line fails" failed
check "by its name" shows "Opening /dev/gpio/HD_DAB2Reset"
mkdir -p /dev/gpio
touch /dev/gpio/HD_DAB2Reset
updater -i
check "a bus without an answer fails" failed
check "by the kernel's error" shows '"Connection timed out" (110)'
check "the lock that it kept ends with it" bus_is_free
rm /dev/gpio/HD_DAB2Reset
rmmod bbp_bridge

start_chip max_write=1024
updater -s /image.bin
check "an adapter that takes no full segment fails an update" failed
check "by the kernel's error" shows '"Operation not supported" (95)'
stop_chip
check "before the flash is touched" shows "flash      never written"

echo "the guest has come to its end"
poweroff -f
