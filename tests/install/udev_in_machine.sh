#!/usr/bin/env bash
# The udev rule at work: a Debian kernel in an emulated machine, the real udev, a camera that is plugged in.
#   udev_in_machine.sh <build folder>
# The emulated machine is tests/vm/run; 77 where that cannot run.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

if [ "${1:-}" = --inside ]; then
    build=${2:?build folder}
    mkdir -p /run/udev/rules.d
    cp "$source_tree/packaging/udev/70-zr-u3v.rules" /run/udev/rules.d/
    /lib/systemd/systemd-udevd --daemon 2>/dev/null || /usr/lib/systemd/systemd-udevd --daemon
    # A serial number as bad as they come: it must not lead the link elsewhere.
    "$build/bin/zr_u3v_camera" --attach --fps 30 --serial 'VC../7 x' >/dev/null &
    camera=$!
    for _ in $(seq 100); do
        udevadm settle --timeout 20
        [ -n "$(ls /dev/zr-u3v 2>/dev/null)" ] && break
        sleep 0.2 # until: the camera has its link
    done
    links=$(ls /dev/zr-u3v 2>/dev/null)
    ok "one link, by the serial number" [ "$links" = "serial-VC.._7_x" ]
    node=$(readlink -f "/dev/zr-u3v/$links")
    ok "it leads to the camera's device file" sh -c "[ -c '$node' ] && case '$node' in /dev/bus/usb/*) ;; *) exit 1 ;; esac"
    ok "group plugdev may read and write it, nobody else" [ "$(stat -c '%U %G %a' "$node")" = "root plugdev 660" ]
    ok "the seat's user gets the right" sh -c "udevadm info '$node' | grep -q 'CURRENT_TAGS=.*:uaccess:'"
    others=$(find /dev/bus/usb -type c -group plugdev ! -path "$node")
    ok "no other device is touched" [ -z "$others" ]
    kill "$camera"
    wait "$camera"
    for _ in $(seq 100); do
        [ -e /dev/zr-u3v ] || break
        sleep 0.2 # until: the link is gone
    done
    ok "the link goes with the camera" [ ! -e /dev/zr-u3v ]
    finish
fi

build=$(cd "${1:?build folder}" && pwd) || exit 2
exec "$source_tree/tests/vm/run" --build "$build" -- bash "$source_tree/tests/install/udev_in_machine.sh" --inside "$build"
