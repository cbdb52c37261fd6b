#!/usr/bin/env bash
# Runs the commands that the documentation tells people to type:
#   documented_commands.sh <build folder>                in ctest: every document, on the virtual bus
#   documented_commands.sh --in-machine <build folder>   in the emulated machine: docs/virtual-camera.md, for real
#
# Of every Markdown file the sh blocks, block after block in one shell, the commands in running text and in the last
# column of tables; of the manual pages the examples. They run on the installed tree. What would change the machine or
# take long (sudo, apt, ctest, tools/fuzz, ...) is replaced by stand-ins that take exactly what is documented, so that a
# misspelt command fails; these are counted as "looked at". A block below the line
#   <!-- not run: why -->
# is left out, and counted and named too.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
. "$source_tree/tests/need.sh"

in_machine=no
[ "${1:-}" = --in-machine ] && { in_machine=yes; shift; }
work_folder
keep_records "$(realpath "${1:?build folder}")"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || { cat "$work/install.log"; exit 1; }
lib=$prefix/$(library_folder "$build")
here=$work/here # where the reader is: his copy of the source tree

# ---- stand-ins

stub()
{
    local name=$1
    { echo '#!/bin/bash'; cat; } >"$work/stubs/$name"
    chmod +x "$work/stubs/$name"
}
looked_at='echo x >>"$ZR_LOOKED_AT"'
# Takes the calls that fit one of the patterns.
stub_for()
{
    local name=$1 pattern
    shift
    {
        echo 'case "$*" in'
        for pattern in "$@"; do echo "    $pattern) $looked_at; exit 0 ;;"; done
        echo 'esac'
        echo "echo \"$name: not a documented call: \$*\" >&2; exit 1"
    } | stub "$name"
}

mkdir -p "$work/stubs" "$work/home" "$work/dev/bus/usb/001" "$work/dev/zr-u3v" "$work/sys/module/usbcore/parameters"
echo 16 >"$work/sys/module/usbcore/parameters/usbfs_memory_mb"
touch "$work/dev/bus/usb/001/002"
echo 'exec "$@"' | stub sudo
# Looks at the machine, which has no camera; the virtual one it finds in order.
echo "case \"\$*\" in *doctor*) set -- --virtual \"\$@\" ;; esac; exec '$prefix/bin/zr-u3v' \"\$@\"" | stub zr-u3v
printf '\n%.0s' {1..50} >"$work/menus" # Enter, Enter, Enter
echo "exec '$prefix/bin/zr_u3v_client' <'$work/menus'" | stub zr_u3v_client
stub_for apt "'install ./zr-u3v-producer_'*'.deb '*' ./zr-u3v-tools_'*'.deb'" "'purge zr-u3v-tools zr-u3v-producer '*"
stub_for cmake "'--preset release'" "'--build --preset release'" "'--install build/release'" \
    "'--build build/release --target uninstall'"
stub_for ldconfig "''"
stub_for usermod "'-aG plugdev '?*"
stub_for systemctl "'--user show-environment'"
stub_for fuser "'-v '*/dev/bus/usb/*"
stub_for docker "'run --device=/dev/bus/usb --volume=/run/udev:/run/udev:ro my-image zr-u3v list'"
stub_for dpkg-buildpackage "'-b -us -uc'"
stub_for udevadm "'control --reload'" "'trigger --subsystem-match=usb'"
echo "for page in \"\$@\"; do [ -s \"$source_tree/docs/man/\$page.1\" ] || exit 1; done" | stub man
# The tests are not run by a test: there have to be some that are meant.
{
    cat <<'STUB'
case "$1 $2" in "--preset release" | "--preset debug") shift 2 ;; esac
STUB
    echo "$looked_at; '$(command -v ctest)' --test-dir '$build' -N \"\$@\" | grep -E '^Total Tests: [1-9]'"
} | stub ctest
if [ "$in_machine" = yes ]; then
    # The kernel lists a port a moment after the attachment; whoever types is slower.
    need usbip usbip
    usbip=$(command -v usbip)
    stub usbip <<STUB
'$usbip' "\$@" || exit
[ "\$1" = attach ] || exit 0
for i in {1..300}; do
    '$usbip' port 2>/dev/null | grep -q '^Port' && exit
    sleep 0.1 # until: the port is listed
done
exit 1
STUB
    # The machine has loaded its modules before its files were there.
    echo "[ \"\$*\" = vhci-hcd ] && $looked_at && [ -d /sys/module/vhci_hcd ]" | stub modprobe
else
    stub_for modprobe "vhci-hcd"
    stub_for lsusb "''" "-t" "'-d 1209:0001'" "'-v -d 1209:0001'"
    stub_for usbip "'list -r 127.0.0.1'" "'attach -r 127.0.0.1 -b 1-1'" "port" "'detach -p 8'"
    # The rule is not for this machine; what is written has to be the rule.
    echo "case \"\$*\" in /etc/udev/rules.d/70-zr-u3v.rules) $looked_at; exec cmp - '$source_tree/packaging/udev/70-zr-u3v.rules' ;; esac; exit 1" | stub tee
fi

# The reader's copy: the real files, but for the tools, which would build and test this very tree.
mkdir -p "$here/tools" "$here/build"
for entry in "$source_tree"/*; do
    case "$(basename "$entry")" in build | tools | out) ;; *) ln -s "$entry" "$here/" ;; esac
done
ln -s "$build" "$here/build/release"
ln -s "$build" "$here/build/debug"
tool()
{
    { echo '#!/bin/bash'; echo "$looked_at"; cat; } >"$here/tools/$1"
    chmod +x "$here/tools/$1"
    [ -x "$source_tree/tools/$1" ] || fail "there is no tools/$1"
}
options="for option in \"\$@\"; do grep -q -e \"^ *\$option) \" '$source_tree/tools/setup' || exit 1; done"
echo "$options" | tool setup
gates="for gate in \"\$@\"; do grep -q \"^gate_\$gate()\" '$source_tree/tools/gates.sh' || exit 1; done"
{ echo '[ "${1:-}" = --and ] && shift'; echo "$gates"; } | tool test
echo "$gates" | tool check
echo '[ $# -eq 0 ]' | tool coverage
echo '[ $# -eq 0 ]' | tool bench
echo '[ $# -eq 0 ]' | tool demo
echo '[ $# -eq 0 ] || { [ $# -eq 2 ] && [ "$1" -gt 0 ] && [ "$2" -gt 0 ]; }' | tool soak
echo "exec '$source_tree/tools/reference' '$work/reference' || exit 1" | tool reference
command -v doxygen >/dev/null || echo '[ $# -eq 0 ]' | tool reference
tool fuzz <<STUB
[ \$# -gt 0 ] && { [ "\$1" = --minimise ] || [ "\$1" -gt 0 ]; } && shift
for target in "\$@"; do [ -f "$source_tree/tests/fuzz/fuzz_\$target.cpp" ] || exit 1; done
STUB

# ---- commands that stay until Ctrl-C: one after the other, in the background, until they say that they are ready

cat >"$work/stay.sh" <<'STAY'
stayed=
leave()
{
    [ -n "$stayed" ] || return 0
    kill -INT "$stayed"
    wait "$stayed"
    stayed=
}
# The kernel takes a moment to look at what has been plugged in.
seen()
{
    local i
    [[ $ZR_IN_MACHINE = yes && $1 == *--attach* ]] || return 0
    for ((i = 0; i < 200; i++)); do
        lsusb -d 1209: >/dev/null && return 0
        sleep 0.1 # until: it is listed
    done
    return 1
}
trap leave EXIT # a command that fails ends the document
stay()
{
    local port=$((20000 + RANDOM % 20000)) words=("$@") program i
    leave
    [ "${words[0]}" = sudo ] && words=("${words[@]:1}")
    program=${words[0]}
    [ -x "$program" ] || program=$(command -v "$program")
    words=("${words[@]:1}")
    # Without the kernel's part the same camera is offered over the network instead.
    if [ "$ZR_IN_MACHINE" = no ]; then
        for i in "${!words[@]}"; do
            case "${words[i]}" in --attach | --listen) words[i]="--listen=127.0.0.1:$port" ;; esac
        done
    fi
    : >stay.log # what the one before has said tells nothing of this one
    "$program" "${words[@]}" >>stay.log 2>&1 &
    stayed=$!
    for ((i = 0; i < 300; i++)); do
        grep -qE 'plugged in|camera\(s\) at' stay.log && { seen "${words[*]}"; return; }
        kill -0 "$stayed" 2>/dev/null || break
        sleep 0.1 # until: it says that it is ready
    done
    cat stay.log >&2
    return 1
}
STAY

# ---- what a document has

# Blocks: "run" or "leave" in front of each line.
blocks_of()
{
    awk '
        /^<!-- not run: .+ -->$/ { left = 1; next }
        /^```sh$/ { inside = 1; next }
        /^```/ { inside = 0; left = 0; next }
        inside && NF { print (left ? "leave " : "run ") $0; next }
        NF && !inside { left = 0 }' "$1"
}
words='zr-u3v|zr_u3v_camera|zr_u3v_client|sudo|tools/[a-z]+|tests/[a-z_/]+(\.sh)?|build/(release|debug)/[a-z0-9_/]+|ctest|usbip|lsusb|man'
# Running text: a command with its arguments, or a tool; placeholders (<file>, PORT) are no commands.
inline_of()
{
    awk '/^```/ { inside = !inside; next } !inside && !/^\|/' "$1" | tr '\n' ' ' | grep -oE '`[^`]+`' | tr -d '`' |
        grep -E "^(($words) .+|tools/[a-z]+)$" | grep -vE '<|\bPORT\b|\.\.\.'
}
table_commands_of()
{
    grep -E '^\|' "$1" | sed -E 's/\|[[:space:]]*$//; s/.*\|//' | grep -oE '`((zr-u3v|sudo|echo|cat|ls|systemctl|usbip) [^`]+|lsusb( [^`]+)?)`' |
        tr -d '`' | grep -vE '<|\bPORT\b'
}
manual_examples_of() { sed -n '/^\.Sh EXAMPLES/,/^\.Sh [^E]/p' "$1" | sed -n '/^\.Bd/,/^\.Ed/p' | grep -v '^\.'; }

commands_of()
{
    case "$1" in
        *.1) manual_examples_of "$1" ;;
        *) blocks_of "$1" | sed -n 's/^run //p'; inline_of "$1"; table_commands_of "$1" ;;
    esac
}

# ---- running them

# Paths of the system are those of the tree; options alone belong to the camera program, which stays.
on_this_tree()
{
    local devices=$work/dev
    [ "$in_machine" = yes ] && devices=/dev
    sed -E "s#/etc/profile\.d#$prefix/etc/profile.d#g; s#/usr/local/lib/gentlproducer#$lib/gentlproducer#g
            s#(ls -l |fuser -v )/dev/#\1$devices/#g; s#/sys/module#$work/sys/module#g
            s#^--#build/release/bin/zr_u3v_camera --attach --#
            s#^((sudo )?([a-z/]*/)?zr_u3v_camera .*--(attach|listen))#stay \1#
            s#^((LD_LIBRARY_PATH|ZR_VIRTUAL_CAMERAS)=.*zr_u3v_client)#\1 <$work/menus#
            s#(^|sudo )build/release/bin/zr_u3v_client#zr_u3v_client#"
}
total_run=0
total_looked_at=0
total_left=0
run_document()
{
    local document=$1 name=${1#"$source_tree"/} script lines before=$failures
    script=$work/$(tr / _ <<<"$name").sh
    left=$(blocks_of "$document" 2>/dev/null | sed -n 's/^leave //p')
    lines=$(commands_of "$document" | on_this_tree | grep -cE '^[^#]')
    if [ -n "$left" ]; then
        total_left=$((total_left + $(wc -l <<<"$left")))
        say "not run: $name: $(grep -oE '^<!-- not run: .* -->$' "$document" | sed 's/<!-- not run: //; s/ -->//' | paste -sd ';'):"
        sed 's/^/    /' <<<"$left"
    fi
    [ "$lines" -gt 0 ] || return 0
    : >"$work/looked_at"
    { cat "$work/stay.sh"; printf '%s\n' "$2"; commands_of "$document" | on_this_tree; } >"$script"
    ok "$name: $lines commands" env -i -C "$here" HOME="$work/home" USER=somebody TERM=dumb LC_ALL=C \
        ZR_LOOKED_AT="$work/looked_at" ZR_IN_MACHINE="$in_machine" \
        PATH="$work/stubs:$prefix/bin:$PATH" PKG_CONFIG_PATH="$lib/pkgconfig" LD_RUN_PATH="$lib" \
        LD_LIBRARY_PATH="$bus" ZR_VIRTUAL_CAMERAS=fps=30,pattern=scene timeout 240 bash -euo pipefail -x "$script"
    [ "$failures" -eq "$before" ] || return 0
    total_run=$((total_run + lines))
    total_looked_at=$((total_looked_at + $(wc -l <"$work/looked_at")))
}

if [ "$in_machine" = yes ]; then
    ip link set lo up 2>/dev/null || busybox ifconfig lo 127.0.0.1 up
    bus=
    run_document "$source_tree/docs/virtual-camera.md" ""
    finish
fi

bus=$lib/zr-u3v/virtual_usb
while IFS= read -r document; do
    case "$document" in
        */CHANGELOG.md) continue ;; # names commands, and does not tell to run them
        */performance.md) # needs the optimised build and valgrind, and has a test of its own
            grep -q performance.documented_commands "$source_tree/tests/performance/CMakeLists.txt" || fail "nothing runs $document"
            continue
            ;;
        */getting-started.md) start="# a session from before the installation" ;;
        *) start=". $prefix/etc/profile.d/zr-u3v.sh; . $prefix/etc/profile.d/zr-u3v-exact.sh" ;;
    esac
    # Where this test would not see them.
    grep -nE '^(    |\t)(LD_LIBRARY_PATH=|ZR_|sudo |tools/|zr-u3v |build/)' "$document" && fail "$document: commands outside of sh blocks"
    run_document "$document" "$start"
done < <(find "$source_tree" \( -name build -o -name 'build-*' -o -name .deps -o -name .git -o -name out \) -prune -o -name '*.md' -print | sort
    find "$source_tree/docs/man" -name '*.1' | sort)

for picture in images/image-00001.png first.png image.pgm camera.xml list_and_grab doctor.json info.json; do
    [ -s "$here/$picture" ] || fail "no $picture came of it"
done
say "$((total_run - total_looked_at)) commands run, $total_looked_at looked at, $total_left not run"
# What the documents have today; a search that finds nothing any more must not pass.
[ "$total_run" -ge 60 ] || fail "only $total_run commands found"
finish
