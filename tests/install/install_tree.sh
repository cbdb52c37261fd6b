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

tree_is_complete()
{
    local lib=$1/$2 file
    for file in "$lib/libzr_u3v_tl_x64.so.$version" "$lib/pkgconfig/zr_u3v_tl.pc" "$lib/cmake/ZrU3vTl/ZrU3vTlConfig.cmake" \
        "$lib/zr-u3v/virtual_usb/libusb-1.0.so.0" "$1/include/zr_u3v_tl/gentl.h" "$1/include/zr_u3v_tl/u3v_lib.h" \
        "$1/include/zr_u3v_tl/zr_logging.h" "$1/bin/zr_u3v_client" "$1/bin/zr_u3v_camera" \
        "$1/lib/udev/rules.d/70-zr-u3v.rules" "$1/lib/environment.d/70-zr-u3v.conf" "$1/share/man/man1/zr_u3v_client.1"; do
        [ -f "$file" ] || fail "$file is missing"
    done
    [ -L "$lib/libzr_u3v_tl_x64.so" ] || fail "no development link"
    [ "$(readlink "$lib/$soname")" = "libzr_u3v_tl_x64.so.$version" ] || fail "no soname link"
    [ "$(readlink "$lib/gentlproducer/zr_u3v_tl.cti")" = "../$soname" ] || fail "the .cti is no relative link"
    [ -e "$lib/gentlproducer/zr_u3v_tl.cti" ] || fail "the .cti leads nowhere"
    grep -rIl -e "$source_tree" -e "$build" "$1" | sed 's/^/names the source or build folder: /' | grep . && failures=$((failures + 1))
    return 0
}

consumer_by_pkg_config()
{
    local pc bus
    export PKG_CONFIG_PATH=$lib/pkgconfig
    [ "$(pkg-config --modversion zr_u3v_tl)" = "$version" ] || fail "pkg-config knows another version"
    pc=$(pkg-config --cflags --libs zr_u3v_tl)
    bus=$(pkg-config --variable=virtual_bus_folder zr_u3v_tl)
    [ -e "$(pkg-config --variable=cti zr_u3v_tl)" ] || fail "pkg-config names a .cti that is not there"
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

# What a login shell and a user session end up with.
snippets()
{
    local profile=$1/etc/profile.d/zr-u3v.sh folder=$1/$2/gentlproducer shell list
    for shell in "sh -eu" "bash -eu" "dash -eu" "busybox sh -eu"; do
        command -v "${shell%% *}" >/dev/null || continue
        list=$(env -i PATH="$PATH" $shell -c '. "$1"; . "$1"; printf %s "$GENICAM_GENTL64_PATH"' - "$profile")
        [ "$list" = "$folder" ] || fail "$shell: empty list becomes '$list'"
        list=$(env -i PATH="$PATH" GENICAM_GENTL64_PATH=/a:/b $shell -c '. "$1"; . "$1"; printf %s "$GENICAM_GENTL64_PATH"' - "$profile")
        [ "$list" = "/a:/b:$folder" ] || fail "$shell: '/a:/b' becomes '$list'"
        list=$(env -i PATH="$PATH" GENICAM_GENTL64_PATH="$folder:/a" $shell -c '. "$1"; sh -c "printf %s \"\$GENICAM_GENTL64_PATH\""' - "$profile")
        [ "$list" = "$folder:/a" ] || fail "$shell: a list that has it becomes '$list'"
    done
    generator=/usr/lib/systemd/user-environment-generators/30-systemd-environment-d-generator
    if [ -x "$generator" ]; then
        mkdir -p "$work/home/.config/environment.d"
        cp "$1/lib/environment.d/70-zr-u3v.conf" "$work/home/.config/environment.d/"
        list=$(env -i HOME="$work/home" "$generator" | sed -n 's/^GENICAM_GENTL64_PATH=//p' | tr -d '"')
        [ "$list" = "$folder" ] || fail "the session's list becomes '$list'"
        list=$(env -i HOME="$work/home" GENICAM_GENTL64_PATH=/a "$generator" | sed -n 's/^GENICAM_GENTL64_PATH=//p' | tr -d '"')
        [ "$list" = "/a:$folder" ] || fail "the session's list '/a' becomes '$list'"
    else
        say "not looked at here: environment.d (no systemd)"
    fi
    # The snippet stays behind when somebody deletes the library by hand.
    list=$(env -i PATH="$PATH" sh -eu -c '. "$1"; printf %s "${GENICAM_GENTL64_PATH-unset}"' - <(sed "s|$folder|/nowhere|g" "$profile") 2>&1)
    [ "$list" = unset ] || fail "without the library the list becomes '$list'"
}

programs()
{
    local bus=$1/$2/zr-u3v/virtual_usb
    ok "the client starts" sh -c "yes '' | head -50 | LD_LIBRARY_PATH='$bus' ZR_VIRTUAL_CAMERAS= '$1/bin/zr_u3v_client'"
    ok "the camera program starts" "$1/bin/zr_u3v_camera" --help
    if [ -x "$1/bin/zr-u3v" ]; then
        ok "zr-u3v finds the installed producer" "$1/bin/zr-u3v" --virtual list
        ok "zr-u3v grabs" "$1/bin/zr-u3v" --virtual grab -n 3 -o "$work/images/"
    fi
    ok "the Python example grabs" env LD_LIBRARY_PATH="$bus" GENICAM_GENTL64_PATH="$1/$2/gentlproducer" \
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
    grep -q "\"$system/$libdir/gentlproducer/zr_u3v_tl.cti\"" "$DESTDIR/etc/profile.d/zr-u3v.sh" || fail "it names another folder"
    ok "uninstall" uninstall
    [ -z "$(find "$DESTDIR" -mindepth 1)" ] || fail "left: $(find "$DESTDIR" -mindepth 1 | tr '\n' ' ')"
    unset DESTDIR
done
finish
