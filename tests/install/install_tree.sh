#!/usr/bin/env bash
# `cmake --install` into a folder, consumers built against it, uninstall:  install_tree.sh <build folder>
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

. "$source_tree/tests/need.sh"
need python3 python3
work_folder
keep_records "${1:?build folder}"
prefix=$work/prefix
soname=libzr_u3v_tl_x64.so.${version%%.*}

uninstall() { cmake -P "$build/packaging/uninstall.cmake"; }

# One producer to a folder, so that who loads all of a folder sees each camera once.
cti_leads_to()
{
    local folder=$1 name=$2 library=$3
    [ "$(ls "$folder")" = "$name" ] || fail "in $folder: $(ls "$folder" | tr '\n' ' ')"
    [ "$(readlink "$folder/$name")" = "$library" ] || fail "$name is no relative link to $library"
    [ -e "$folder/$name" ] || fail "$name leads nowhere"
}

tree_is_complete()
{
    local lib=$1/$2 file
    for file in "$lib/libzr_u3v_tl_x64.so.$version" "$lib/pkgconfig/zr_u3v_tl.pc" "$lib/cmake/ZrU3vTl/ZrU3vTlConfig.cmake" \
        "$lib/zr-u3v/virtual_usb/libusb-1.0.so.0" "$1/include/zr_u3v_tl/gentl.h" "$1/include/zr_u3v_tl/u3v_lib.h" \
        "$1/include/zr_u3v_tl/zr_logging.h" "$1/bin/zr_u3v_client" "$1/bin/zr_u3v_camera" \
        "$1/lib/udev/rules.d/70-zr-u3v.rules" "$1/lib/environment.d/70-zr-u3v.conf" "$1/etc/profile.d/zr-u3v.sh" \
        "$1/lib/environment.d/71-zr-u3v-exact.conf" "$1/etc/profile.d/zr-u3v-exact.sh" "$1/share/man/man1/zr_u3v_client.1"; do
        [ -f "$file" ] || fail "$file is missing"
    done
    [ -L "$lib/libzr_u3v_tl_x64.so" ] || fail "no development link"
    [ "$(readlink "$lib/$soname")" = "libzr_u3v_tl_x64.so.$version" ] || fail "no soname link"
    cti_leads_to "$lib/gentlproducer-exact" zr_u3v_tl.cti "../$soname"
    cti_leads_to "$lib/gentlproducer" zr_u3v_standard.cti ../libzr_u3v_standard.so.1
    [ -e "$lib/libzr_u3v_standard.so" ] && fail "a development link to what nobody links with"
    grep -rIl -e "$source_tree" -e "$build" "$1" | sed 's/^/names the source or build folder: /' | grep . && failures=$((failures + 1))
    return 0
}

consumer_by_pkg_config()
{
    local pc bus cti
    export PKG_CONFIG_PATH=$lib/pkgconfig
    [ "$(pkg-config --modversion zr_u3v_tl)" = "$version" ] || fail "pkg-config knows another version"
    pc=$(pkg-config --cflags --libs zr_u3v_tl)
    bus=$(pkg-config --variable=virtual_bus_folder zr_u3v_tl)
    for cti in cti standard_cti; do
        [ -e "$(pkg-config --variable=$cti zr_u3v_tl)" ] || fail "pkg-config names a $cti that is not there"
    done
    # shellcheck disable=SC2086
    ok "compile by pkg-config" cc -Wall -Wextra -Werror "$here/consumer/consumer.c" $pc -o "$work/consumer" || return
    ok "run it on the virtual bus" env LD_LIBRARY_PATH="$bus:$lib" "$work/consumer"
    # shellcheck disable=SC2086
    ok "compile the C example by pkg-config" cc -std=c11 "$source_tree/examples/c/list_and_grab.c" $pc -o "$work/example" &&
        ok "run it on the virtual bus" env LD_LIBRARY_PATH="$bus:$lib" "$work/example"
    # shellcheck disable=SC2086
    ok "compile the C++ example by pkg-config" c++ -std=c++20 "$source_tree/examples/cpp/grab_with_events.cpp" $pc -pthread \
        -o "$work/example_cpp" && ok "run it on the virtual bus" env LD_LIBRARY_PATH="$bus:$lib" "$work/example_cpp"
}

consumer_by_cmake()
{
    ok "configure by CMake" cmake -S "$here/consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$1" -DCMAKE_BUILD_TYPE=Release || return
    ok "compile by CMake" cmake --build "$work/cmake" || return
    ok "run it on the virtual bus" env LD_LIBRARY_PATH="$lib/zr-u3v/virtual_usb" "$work/cmake/consumer"
    ok "run the C++ one" env LD_LIBRARY_PATH="$lib/zr-u3v/virtual_usb" "$work/cmake/consumer_cpp"
}

# What a shell has in a variable after both snippets, each read twice, as login shells and their children do:
#   after_login <shell> <variable> [<list before>]
after_login()
{
    local before=()
    [ $# -gt 2 ] && before=("GENICAM_GENTL64_PATH=$3")
    # shellcheck disable=SC2016,SC2086
    env -i PATH="$PATH" "${before[@]}" $1 -c 'for i in 1 2; do for file in "$2"/zr-u3v-exact.sh "$2"/zr-u3v.sh; do . "$file"; done; done
        sh -c "printf %s \"\${$1-unset}\""' - "$2" "$profile"
}
# The same of a user session's service manager, which reads them from a folder of the user's.
in_session()
{
    local before=()
    [ $# -gt 1 ] && before=("GENICAM_GENTL64_PATH=$2")
    env -i HOME="$work/home" "${before[@]}" "$generator" | sed -n "s/^$1=//p" | tr -d '"'
}
expect_list()
{
    [ "$2" = "$3" ] || fail "$1: '$2' instead of '$3'"
}

# What a login shell and a user session end up with: with both producers, and with the exact one alone.
snippets()
{
    local profile=$1/etc/profile.d folder=$1/$2/gentlproducer exact=$1/$2/gentlproducer-exact shell
    generator=/usr/lib/systemd/user-environment-generators/30-systemd-environment-d-generator
    [ -x "$generator" ] || { say "not looked at here: environment.d (no systemd)"; generator=; }
    mkdir -p "$work/home/.config/environment.d"
    cp "$1"/lib/environment.d/*.conf "$work/home/.config/environment.d/"
    for shell in "sh -eu" "bash -eu" "dash -eu" "busybox sh -eu"; do
        command -v "${shell%% *}" >/dev/null || continue
        expect_list "$shell, empty" "$(after_login "$shell" GENICAM_GENTL64_PATH)" "$folder"
        expect_list "$shell, /a:/b" "$(after_login "$shell" GENICAM_GENTL64_PATH /a:/b)" "/a:/b:$folder"
        expect_list "$shell, has it" "$(after_login "$shell" GENICAM_GENTL64_PATH "$folder:/a")" "$folder:/a"
        expect_list "$shell, exact" "$(after_login "$shell" ZR_U3V_EXACT_PATH)" "$exact"
        # Somebody has deleted the standard producer, with or without its snippet.
        mv "$folder/zr_u3v_standard.cti" "$work/"
        expect_list "$shell, alone" "$(after_login "$shell" GENICAM_GENTL64_PATH /a)" "/a:$exact"
        expect_list "$shell, alone, has it" "$(after_login "$shell" GENICAM_GENTL64_PATH "$exact")" "$exact"
        mv "$exact/zr_u3v_tl.cti" "$work/"
        expect_list "$shell, none" "$(after_login "$shell" GENICAM_GENTL64_PATH)" unset
        expect_list "$shell, no exact" "$(after_login "$shell" ZR_U3V_EXACT_PATH)" unset
        mv "$work/zr_u3v_standard.cti" "$folder/"
        mv "$work/zr_u3v_tl.cti" "$exact/"
    done
    [ -n "$generator" ] || return
    expect_list "session, empty" "$(in_session GENICAM_GENTL64_PATH)" "$folder"
    expect_list "session, /a" "$(in_session GENICAM_GENTL64_PATH /a)" "/a:$folder"
    expect_list "session, exact" "$(in_session ZR_U3V_EXACT_PATH)" "$exact"
    rm "$work/home/.config/environment.d/70-zr-u3v.conf"
    expect_list "session, alone" "$(in_session GENICAM_GENTL64_PATH)" "$exact"
    expect_list "session, alone, /a" "$(in_session GENICAM_GENTL64_PATH /a)" "/a:$exact"
}

# Whether a tool works with that very file.
producer_is()
{
    "$1" --virtual --json "${@:3}" info | grep -F "\"file\": \"$2\""
}

programs()
{
    local bus=$1/$2/zr-u3v/virtual_usb
    ok "the client starts" sh -c "yes '' | head -50 | LD_LIBRARY_PATH='$bus' ZR_VIRTUAL_CAMERAS= '$1/bin/zr_u3v_client'"
    ok "the camera program starts" "$1/bin/zr_u3v_camera" --help
    if [ -x "$1/bin/zr-u3v" ]; then
        ok "zr-u3v finds the installed standard producer" producer_is "$1/bin/zr-u3v" "$1/$2/gentlproducer/zr_u3v_standard.cti"
        ok "zr-u3v finds the installed exact producer" producer_is "$1/bin/zr-u3v" "$1/$2/gentlproducer-exact/zr_u3v_tl.cti" --exact
        ok "zr-u3v grabs" "$1/bin/zr-u3v" --virtual grab -n 3 -o "$work/images/"
    fi
    ok "the Python example grabs" env LD_LIBRARY_PATH="$bus" GENICAM_GENTL64_PATH= ZR_U3V_EXACT_PATH="$1/$2/gentlproducer-exact" \
        python3 -B "$source_tree/examples/python/grab_array.py" "$work/image.pgm"
    [ "$(stat -c %s "$work/image.pgm" 2>/dev/null)" = $((640 * 480 + 15)) ] || fail "the Python example left no picture"
}

here=$source_tree/tests/install
libdir=$(library_folder "$build")

say "--- a private prefix, with something of somebody else's in it"
mkdir -p "$prefix/share/man/man1" && echo theirs >"$prefix/share/man/man1/theirs.1"
(cd "$work" && find prefix | sort) >"$work/before"
ok "install" cmake --install "$build" --prefix "$prefix" || finish
lib=$prefix/$libdir
tree_is_complete "$prefix" "$libdir"
consumer_by_pkg_config
consumer_by_cmake "$prefix"
snippets "$prefix" "$libdir"
programs "$prefix" "$libdir"

say "--- the same, moved elsewhere"
mv "$prefix" "$work/moved"
lib=$work/moved/$libdir
rm -rf "$work/cmake" "$work/consumer"
ok "run the moved client" sh -c "yes '' | head -50 | LD_LIBRARY_PATH='$lib/zr-u3v/virtual_usb' ZR_VIRTUAL_CAMERAS= '$work/moved/bin/zr_u3v_client'"
PKG_CONFIG_PATH=$lib/pkgconfig
consumer_by_pkg_config
consumer_by_cmake "$work/moved"
mv "$work/moved" "$prefix"

say "--- away again"
ok "install once more" cmake --install "$build" --prefix "$prefix"
ok "uninstall" uninstall
(cd "$work" && find prefix | sort) | diff "$work/before" - || fail "uninstall leaves something, or takes too much"

say "--- the system's prefixes, in a folder of their own"
for system in /usr /usr/local; do
    export DESTDIR=$work/root
    mkdir -p "$DESTDIR"
    ok "install to $system" cmake --install "$build" --prefix "$system"
    [ -f "$DESTDIR/etc/profile.d/zr-u3v.sh" ] || fail "no login snippet in /etc/profile.d"
    grep -q "\"$system/$libdir/gentlproducer/zr_u3v_standard.cti\"" "$DESTDIR/etc/profile.d/zr-u3v.sh" || fail "it names another folder"
    grep -q "\"$system/$libdir/gentlproducer-exact/zr_u3v_tl.cti\"" "$DESTDIR/etc/profile.d/zr-u3v-exact.sh" ||
        fail "the exact one's names another folder"
    ok "uninstall" uninstall
    [ -z "$(find "$DESTDIR" -mindepth 1)" ] || fail "left: $(find "$DESTDIR" -mindepth 1 | tr '\n' ' ')"
    unset DESTDIR
done
finish
