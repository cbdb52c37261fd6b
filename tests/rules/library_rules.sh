#!/usr/bin/env bash
# Properties of a built library:  library_rules.sh <rule> <library> <source tree> <exact|standard>
set -u
export LC_ALL=C

rule=${1:?rule}
library=${2:?library}
tree=${3:?source tree}
producer=${4:?producer}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

[ -f "$library" ] || { echo "$library is missing"; exit 1; }

fail()
{
    printf '%s\n' "$*"
    exit 1
}
dynamic() { readelf -dW "$library"; }

# Exactly the public list, nothing more: anything else would be an interface by accident.
exports()
{
    diff -u --label "tests/rules/exports.txt, $producer" --label "$library" <("$here/exports_of.sh" "$producer" "$tree") \
        <(nm -D --defined-only --format=posix "$library" | awk '{print $1}' | sort) || fail "symbols differ"
}

# file's stem, name for GenTL consumers
names_of()
{
    case "$1" in
        exact) echo "libzr_u3v_tl_x64 zr_u3v_tl.cti" ;;
        standard) echo "libzr_u3v_standard zr_u3v_standard.cti" ;;
    esac
}

# Bumping the soname breaks every consumer that was linked.
names()
{
    local folder stem version name cti soname
    read -r stem name < <(names_of "$producer") || fail "there is no producer $producer"
    version=$("$here/version_of.sh" "$producer" "$tree") || fail "no version of $producer"
    soname=$stem.so.${version%%.*}
    dynamic | grep -q "SONAME.*\[${soname//./\\.}\]" || fail "soname is not $soname"
    folder=$(dirname "$library")
    [ "$(basename "$(readlink -f "$library")")" = "$stem.so.$version" ] || fail "real file is not $stem.so.$version"
    [ -L "$folder/$stem.so" ] || fail "no development link"
    [ -L "$folder/$soname" ] || fail "no soname link"
    cti=$(readlink "$folder/$name") || fail "$name is no link"
    [[ $cti != */* ]] || fail "$name is not relative: $cti"
    [ "$(readlink -f "$folder/$name")" = "$(readlink -f "$library")" ] || fail "$name leads elsewhere"
}

# Under its ordinary soname, so that another one can be put in front; and no way to miss it.
needed()
{
    dynamic | grep -q 'NEEDED.*\[libusb-1\.0\.so\.0\]' || fail "libusb-1.0.so.0 is not needed by name"
    dynamic | grep -E 'NEEDED' | grep -E '\[[^]]*/' && fail "a needed library is named by path"
    dynamic | grep -E '\((RPATH|RUNPATH)\)' && fail "the library carries a run path"
    # Weak, or the library would not load where libusb has no device memory.
    local symbol
    for symbol in libusb_dev_mem_alloc libusb_dev_mem_free; do
        nm -D "$library" | grep -q " w $symbol" || fail "$symbol is no weak reference"
    done
    return 0
}

hardening()
{
    readelf -lW "$library" | grep -q 'GNU_RELRO' || fail "no RELRO segment"
    dynamic | grep -qE 'BIND_NOW|FLAGS.*NOW' || fail "symbols are bound lazily: RELRO is partial"
    readelf -lW "$library" | grep 'GNU_STACK' | grep -q 'RW ' || fail "no GNU_STACK header without execution"
    readelf -lW "$library" | grep 'GNU_STACK' | grep -q 'RWE' && fail "executable stack"
    dynamic | grep -qE 'TEXTREL' && fail "text relocations"
    readelf -lW "$library" | grep -E '^ +LOAD' | grep -q 'RWE' && fail "a segment is writable and executable"
    return 0
}

# Release builds only.
fortified()
{
    local symbols
    symbols=$(nm -D --undefined-only "$library")
    grep -q '__stack_chk_fail' <<<"$symbols" || fail "no stack protector"
    grep -qE '__(memcpy|snprintf|vsnprintf|fprintf|sprintf|strcpy)_chk' <<<"$symbols" || fail "no fortified calls"
}

case "$rule" in
    exports | names | needed | hardening | fortified) "$rule" ;;
    *) echo "unknown rule $rule" >&2; exit 2 ;;
esac
