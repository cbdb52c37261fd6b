#!/usr/bin/env bash
# Runs the commands that the user documentation tells people to type:  documented_commands.sh <build folder>
#
# Every sh block, block after block in one shell, and the commands in the last column of the tables; on the installed
# tree and the virtual bus. What would change the machine (sudo, apt, udevadm, ...) is replaced by stubs that take
# exactly the calls that are documented, so that a misspelt one fails; paths of the system are those of the tree.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

work_folder
keep_records "${1:?build folder}"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || { cat "$work/install.log"; exit 1; }
lib=$prefix/$(library_folder "$build")

stub()
{
    local name=$1
    { echo '#!/bin/bash'; cat; } >"$work/stubs/$name"
    chmod +x "$work/stubs/$name"
}
# Takes the calls that fit one of the patterns.
stub_for()
{
    local name=$1 pattern
    shift
    {
        echo 'case "$*" in'
        for pattern in "$@"; do echo "    $pattern) exit 0 ;;"; done
        echo 'esac'
        echo "echo \"$name: not a documented call: \$*\" >&2; exit 1"
    } | stub "$name"
}

mkdir -p "$work/stubs" "$work/here/tools" "$work/home" "$work/dev/bus/usb/001" "$work/dev/zr-u3v" "$work/sys/module/usbcore/parameters"
echo 16 >"$work/sys/module/usbcore/parameters/usbfs_memory_mb"
touch "$work/dev/bus/usb/001/002"
echo 'exec "$@"' | stub sudo
stub_for apt "'install ./libzr-u3v-tl2_'*'.deb ./zr-u3v-tools_'*'.deb'" "'purge zr-u3v-tools libzr-u3v-tl2'"
stub_for cmake "'--preset release'" "'--build --preset release'" "'--install build/release'" "'--build build/release --target uninstall'"
stub_for ldconfig "''"
stub_for udevadm "'control --reload'" "'trigger --subsystem-match=usb'"
stub_for usermod "'-aG plugdev '?*"
stub_for systemctl "'--user show-environment'"
stub_for lsusb "''" "-t"
stub_for fuser "'-v '*/dev/bus/usb/*"
stub_for docker "'run --device=/dev/bus/usb --volume=/run/udev:/run/udev:ro my-image zr-u3v list'"
stub_for dpkg-buildpackage "'-b -us -uc'"
# Looks at the machine, which has no camera; the virtual one it finds in order.
echo "case \"\$*\" in *doctor*) set -- --virtual \"\$@\" ;; esac; exec '$prefix/bin/zr-u3v' \"\$@\"" | stub zr-u3v
printf '#!/bin/sh\ncase "$*" in "" | --packages) ;; *) exit 1 ;; esac\n' >"$work/here/tools/setup"
chmod +x "$work/here/tools/setup"
ln -s "$source_tree/examples" "$work/here/examples"
# The presets that the stub takes have to be there.
grep -q '"name": "release"' "$source_tree/CMakePresets.json" || fail "there is no preset release"

# The blocks of a document, then the last column of its tables.
commands_of()
{
    awk '/^```sh$/ { inside = 1; next } /^```/ { inside = 0 } inside' "$1"
    grep -E '^\|' "$1" | sed -E 's/\|[[:space:]]*$//; s/.*\|//' | grep -oE '`(zr-u3v|sudo|echo|cat|ls|lsusb|systemctl)[^`]*`' | tr -d '`'
}
on_this_tree()
{
    sed -E "s#/etc/profile\.d#$prefix/etc/profile.d#g; s#/usr/local/lib/gentlproducer#$lib/gentlproducer#g
            s#(ls -l |fuser -v )/dev/#\1$work/dev/#g; s#/sys/module#$work/sys/module#g"
}
run_document()
{
    local script
    script=$work/$(basename "$1").sh
    { printf '%s\n' "$2"; commands_of "$1"; } | on_this_tree >"$script"
    [ "$(wc -l <"$script")" -ge 5 ] || { fail "$1: no commands found"; return; }
    ok "$(basename "$1"): $(grep -cvE '^$' "$script") commands" env -i -C "$work/here" HOME="$work/home" USER=somebody TERM=dumb \
        PATH="$work/stubs:$prefix/bin:$PATH" PKG_CONFIG_PATH="$lib/pkgconfig" LD_RUN_PATH="$lib" \
        LD_LIBRARY_PATH="$lib/zr-u3v/virtual_usb" ZR_VIRTUAL_CAMERAS=fps=30,pattern=scene timeout 120 bash -euo pipefail -x "$script"
}

run_document "$source_tree/docs/getting-started.md" "# a session from before the installation"
run_document "$source_tree/docs/troubleshooting.md" ". /etc/profile.d/zr-u3v.sh # a session of today"
for picture in images/image-00001.png first.png image.pgm camera.xml list_and_grab doctor.json info.json; do
    [ -s "$work/here/$picture" ] || fail "no $picture came of it"
done
finish
