#!/usr/bin/env bash
# A rule about the built file that cannot fail is no rule: each one is shown a small library that keeps
# it, and one for each way of breaking it.
#   library_selftest.sh <folder of the rules> <compiler>
set -u
rules=${1:?folder}/library_rules.sh
compiler=${2:?compiler}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0

cat >"$folder/good.c" <<'SOURCE'
#include <string.h>
int libusb_init(void*);
__attribute__((weak)) void* libusb_dev_mem_alloc(void*, unsigned long);
__attribute__((weak)) int libusb_dev_mem_free(void*, void*, unsigned long);
void use(char*);
static int hidden(const char* text, unsigned long size)
{
    char copy[32];
    memcpy(copy, text, size);
    use(copy);
    return libusb_init(0) + (libusb_dev_mem_alloc != 0) + (libusb_dev_mem_free != 0);
}
int (*exported)(const char*, unsigned long) = hidden;
SOURCE
sed 's/libusb_dev_mem_alloc(void\*, unsigned long);/libusb_dev_mem_alloc(void*, unsigned long), *a;/; s/__attribute__((weak)) void\*/void*/' \
    "$folder/good.c" >"$folder/strong.c"
echo 'int libusb_init(void* c) { return c != 0; }' >"$folder/usb.c"
flags=(-shared -O2 -fPIC -fstack-protector-strong -D_FORTIFY_SOURCE=2 -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
    -Wl,--as-needed)

"$compiler" -shared -fPIC -Wl,-soname,libusb-1.0.so.0 -o "$folder/libusb-1.0.so.0" "$folder/usb.c" || exit 1
# make <source> <usb library> [flags]: the library under its names.
make()
{
    local source=$1 usb=$2
    shift 2
    mkdir -p "$folder/lib"
    rm -f "$folder"/lib/*
    "$compiler" "${flags[@]}" -Wl,-soname,"${soname:-libzr_u3v_tl_x64.so.2}" \
        -o "$folder/lib/libzr_u3v_tl_x64.so.2.9.1" "$folder/$source" "$usb" "$@" || exit 1
    ln -s libzr_u3v_tl_x64.so.2.9.1 "$folder/lib/libzr_u3v_tl_x64.so.2"
    ln -s libzr_u3v_tl_x64.so.2 "$folder/lib/libzr_u3v_tl_x64.so"
    ln -s "${cti:-libzr_u3v_tl_x64.so.2}" "$folder/lib/zr_u3v_tl.cti"
}

expect()
{
    local wanted=$1 rule=$2 what=$3 found=fail
    "$rules" "$rule" "$folder/lib/libzr_u3v_tl_x64.so" "$folder" "${producer:-exact}" >"$folder/out" 2>&1 && found=pass
    if [ "$found" != "$wanted" ]; then
        echo "rule $rule, $what: expected $wanted, got $found"
        cat "$folder/out"
        failures=$((failures + 1))
    fi
}

breaks()
{
    local rule=$1 what=$2
    shift 2
    make "$@"
    expect fail "$rule" "$what"
}

mkdir -p "$folder/tests/rules"
echo "project(zr_u3v_tl VERSION 2.9.1 LANGUAGES C)" >"$folder/CMakeLists.txt"
printf "# a list\nexported exact\nother standard\n" >"$folder/tests/rules/exports.txt"
usb=$folder/libusb-1.0.so.0
make good.c "$usb"
for rule in exports names needed hardening fortified; do expect pass "$rule" "a library that keeps it"; done

echo 'int unexpected; ' >>"$folder/good.c"
breaks exports "a symbol too many" good.c "$usb"
producer=standard breaks exports "the list of the other producer" good.c "$usb"
sed -i '$d' "$folder/good.c"
sed -i s/2.9.1/2.9.2/ "$folder/CMakeLists.txt"
breaks names "another version" good.c "$usb"
sed -i s/2.9.2/2.9.1/ "$folder/CMakeLists.txt"
soname=libother.so.2 breaks names "another soname" good.c "$usb"
cti="$folder/lib/libzr_u3v_tl_x64.so.2" breaks names "a link by absolute path" good.c "$usb"
breaks needed "a run path" good.c "$usb" -Wl,-rpath,/opt/lib
breaks needed "no libusb" good.c "$folder/usb.c"
breaks needed "a symbol that not every libusb has" strong.c "$usb"
breaks hardening "no RELRO" good.c "$usb" -Wl,-z,norelro
breaks hardening "lazy binding" good.c "$usb" -Wl,-z,lazy
breaks hardening "an executable stack" good.c "$usb" -Wl,-z,execstack
breaks hardening "text relocations" good.c "$usb" -fno-pic -mcmodel=large -Wl,-z,notext
breaks fortified "no stack protector" good.c "$usb" -fno-stack-protector
breaks fortified "no fortification" good.c "$usb" -U_FORTIFY_SOURCE

[ "$failures" -eq 0 ] || exit 1
echo "every rule bites"
