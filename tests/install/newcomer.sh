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
names=$(for package in "$root"/packages/*.deb; do basename "$package" | sed 's/_.*//'; done | paste -sd ' ')

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
ok "dpkg finds nothing wrong" administrator 'wrong=$(dpkg --audit; dpkg --verify '"$names"'); echo "$wrong"; [ -z "$wrong" ]'
ok "applications find the standard producer, and no other" newcomer 'ls $GENICAM_GENTL64_PATH >found.txt && cat found.txt && [ "$(cat found.txt)" = zr_u3v_standard.cti ]'
ok "who wants the exact one finds it" newcomer 'test -e "$ZR_U3V_EXACT_PATH/zr_u3v_tl.cti"'
ok "list" newcomer 'zr-u3v --virtual list >list.txt && grep 120900000001 list.txt'
ok "list by the exact producer" newcomer 'zr-u3v --virtual --exact list | grep 120900000001'
ok "features" newcomer 'zr-u3v --virtual get Width >width.txt && grep "^Width=" width.txt'
ok "xml" newcomer 'zr-u3v --virtual xml -o camera.xml && grep "<RegisterDescription" camera.xml'
ok "read" newcomer 'zr-u3v --virtual read ModelName >model.txt && grep "Virtual U3V" model.txt'
ok "grab 10" newcomer 'zr-u3v --virtual grab -n 10 -o images/ && [ "$(ls images | wc -l)" = 10 ]'
ok "doctor finds nothing wrong" newcomer 'zr-u3v --virtual doctor >doctor.txt; grep "^0 problem(s), 0 warning(s)" doctor.txt || { cat doctor.txt; exit 1; }'
ok "the rule that doctor prints is the installed one" newcomer 'zr-u3v doctor --udev-rule | cmp - /lib/udev/rules.d/70-zr-u3v.rules'
ok "the console client finds the library" newcomer 'yes "" | head -50 | LD_LIBRARY_PATH=$(echo /usr/lib/*/zr-u3v/virtual_usb) ZR_VIRTUAL_CAMERAS= zr_u3v_client'
# Exit code 3, or 1 where the bus cannot be looked at; never 127 or a signal's.
ok "without --virtual it looks at the real bus" newcomer 'zr-u3v list; [ $? -le 3 ]'
ok "remove the standard producer" administrator 'dpkg --purge zr-u3v-tools zr-u3v-producer'
ok "applications find the exact one then" newcomer 'ls $GENICAM_GENTL64_PATH >found.txt && cat found.txt && [ "$(cat found.txt)" = zr_u3v_tl.cti ]'
ok "purge" administrator "dpkg --purge $names"
files_of_root | diff "$work/before" - || fail "removal leaves something, or takes too much"

# Packages under the names of before, of an old version: of each what the new ones take over.
old_package()
{
    local name=$1 depends=$2 file tree=$work/old/$1
    shift 2
    mkdir -p "$tree/DEBIAN"
    printf '%s\n' "Package: $name" 'Version: 1' 'Architecture: amd64' 'Maintainer: test <test@example>' \
        ${depends:+"Depends: $depends"} 'Description: as it was' >"$tree/DEBIAN/control"
    for file in "$@"; do
        mkdir -p "$(dirname "$tree/$file")"
        echo old >"$tree/$file"
        case "$file" in etc/*) echo "/$file" >>"$tree/DEBIAN/conffiles" ;; esac
    done
    dpkg-deb --root-owner-group -b "$tree" "$root/old/$name.deb" >/dev/null || fail "no package $name"
}
mkdir -p "$root/old"
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
old_package libzr-u3v-tl2 "" etc/profile.d/zr-u3v.sh lib/udev/rules.d/70-zr-u3v.rules usr/lib/environment.d/70-zr-u3v.conf \
    "usr/lib/$triplet/gentlproducer/zr_u3v_tl.cti" "usr/lib/$triplet/libzr_u3v_tl_x64.so.2"
old_package libzr-u3v-tl-dev "libzr-u3v-tl2 (= 1)" usr/include/zr_u3v_tl/gentl.h
old_package zr-u3v-tools "libzr-u3v-tl2 (= 1)" usr/bin/zr-u3v usr/bin/zr_u3v_camera usr/bin/zr_u3v_client \
    usr/share/doc/zr-u3v-tools/getting-started.md
files_of_root >"$work/before"
ok "install the old packages" administrator 'dpkg -i /old/*.deb'
# In two steps, as apt does it.
ok "upgrade" administrator 'dpkg --auto-deconfigure --unpack /packages/*.deb && dpkg --configure -a'
ok "nothing of the old ones is left, nothing is broken" administrator 'left=$(dpkg --audit; dpkg --verify '"$names"'
    dpkg-query -W -f "\${Package} \${Status}\n" libzr-u3v-tl2 libzr-u3v-tl-dev 2>/dev/null | grep " installed"); echo "$left"; [ -z "$left" ]'
ok "list after the upgrade" newcomer 'zr-u3v --virtual list'
ok "applications find the standard producer after it" newcomer '[ "$(ls $GENICAM_GENTL64_PATH)" = zr_u3v_standard.cti ]'
ok "purge all" administrator "dpkg --purge $names libzr-u3v-tl2 libzr-u3v-tl-dev"
files_of_root | diff "$work/before" - || fail "an upgraded machine keeps something"
finish
