#!/usr/bin/env bash
# The udev rule says what it must, where udev offers it also to udev's own checker:  udev_rule.sh <file>
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

rule=${1:?file}
number=$(basename "$rule" | grep -oE '^[0-9]+')
# uaccess tags are turned into rights by 73-seat-late.rules; the interfaces are known from 50 on.
[ "$number" -gt 50 ] && [ "$number" -lt 73 ] || fail "number $number is not between 50 and 73"
lines=$(grep -vE '^(#|$)' "$rule")
has() { grep -qF -- "$1" <<<"$lines" || fail "no $1"; }
has 'ATTR{bDeviceClass}!="ef"'
has 'ATTR{bDeviceSubClass}!="02"'
has 'ATTR{bDeviceProtocol}!="01"'
has 'ENV{ID_USB_INTERFACES}!="*:ef0500:*"'
has 'MODE="0660", GROUP="plugdev", TAG+="uaccess"'
has 'SYMLINK+="zr-u3v/serial-$env{ID_SERIAL_SHORT}"'
for label in $(grep -oE 'GOTO="[a-z0-9_]+"' <<<"$lines" | sort -u | sed 's/GOTO=//; s/"//g'); do has "LABEL=\"$label\""; done
[ "$failures" -eq 0 ] || finish
. "$source_tree/tests/need.sh"
need udevadm udev
if udevadm verify --help >/dev/null 2>&1; then
    ok "udevadm verify" udevadm verify "$rule"
else
    say "not looked at here: udevadm verify (udev is too old)"
fi
finish
