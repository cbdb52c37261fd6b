#!/usr/bin/env bash
# A newcomer's path: a clean root folder, the packages installed, nothing set by hand, the tool run, all removed.
#   newcomer.sh <package file>...
# Ends with 77 where there is no right to do this (root: chroot, and a namespace for /proc).
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

if [ "$(id -u)" -ne 0 ] || ! unshare --mount --pid --fork true 2>/dev/null; then
    say "the clean root folder needs root and unshare"
    exit "$cannot_run"
fi
work_folder
root=$work/root
system_path=/usr/sbin:/usr/bin:/sbin:/bin

ok "make a clean root folder" "$source_tree/tests/install/clean_root.sh" "$root" "$@" || finish
mkdir -p "$root/packages"
for package in "$@"; do case "$package" in *-dbgsym_*) ;; *) cp "$package" "$root/packages/" ;; esac; done

# In a namespace with /proc, as in a machine; nothing is handed in but the words themselves.
in_root()
{
    # shellcheck disable=SC2016
    unshare --mount --pid --fork sh -c 'mount -t proc proc "$1/proc" && root=$1 && shift && exec chroot "$@"' - "$root" "$@"
}
administrator() { in_root "$root" /usr/bin/env -i PATH="$system_path" /bin/sh -c "$1"; }
# A login shell of an ordinary user, who has set nothing.
newcomer() { in_root --userspec=4711:4711 "$root" /usr/bin/env -i HOME=/tmp /bin/bash -lc "cd && $1"; }
# Caches that the system's own triggers refresh, and dpkg's books, are nobody's leftover.
files_of_root()
{
    (cd "$root" && find . \( -path ./var/lib/dpkg -o -path ./proc -o -path ./tmp -o -path ./var/log \) -prune -o -print |
        grep -vE '^\./(etc/ld\.so\.cache|var/cache/ldconfig.*)$' | sort)
}

files_of_root >"$work/before"
ok "install" administrator 'dpkg -i /packages/*.deb'
ok "dpkg finds nothing wrong" administrator 'wrong=$(dpkg --audit; dpkg --verify libzr-u3v-tl2 zr-u3v-tools libzr-u3v-tl-dev); echo "$wrong"; [ -z "$wrong" ]'
ok "the variable is set" newcomer 'case ":$GENICAM_GENTL64_PATH:" in *:/usr/lib/*/gentlproducer:*) ;; *) echo "$GENICAM_GENTL64_PATH"; exit 1 ;; esac'
ok "list" newcomer 'zr-u3v --virtual list >list.txt && grep 120900000001 list.txt'
ok "xml" newcomer 'zr-u3v --virtual xml -o camera.xml && grep "<RegisterDescription" camera.xml'
ok "read" newcomer 'zr-u3v --virtual read ModelName >model.txt && grep "Virtual U3V" model.txt'
ok "grab 10" newcomer 'zr-u3v --virtual grab -n 10 -o images/ && [ "$(ls images | wc -l)" = 10 ]'
ok "doctor finds nothing wrong" newcomer 'zr-u3v --virtual doctor >doctor.txt; grep "^0 problem(s), 0 warning(s)" doctor.txt || { cat doctor.txt; exit 1; }'
ok "the rule that doctor prints is the installed one" newcomer 'zr-u3v doctor --udev-rule | cmp - /lib/udev/rules.d/70-zr-u3v.rules'
ok "the console client finds the library" newcomer 'yes "" | head -50 | LD_LIBRARY_PATH=$(echo /usr/lib/*/zr-u3v/virtual_usb) ZR_VIRTUAL_CAMERAS= zr_u3v_client'
# Exit code 3, or 1 where the bus cannot be looked at; never 127 or a signal's.
ok "without --virtual it looks at the real bus" newcomer 'zr-u3v list; [ $? -le 3 ]'
ok "purge" administrator 'dpkg --purge zr-u3v-tools libzr-u3v-tl-dev libzr-u3v-tl2'
files_of_root | diff "$work/before" - || fail "removal leaves something, or takes too much"
finish
