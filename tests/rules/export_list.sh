#!/usr/bin/env bash
# The list of dynamic symbols, the linkers' maps and the public headers say the same:
#   export_list.sh <source tree>
set -u
export LC_ALL=C
tree=${1:?source tree}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
headers=$tree/include/zr_u3v_tl

# Of one producer: what its linker's map lets out.
compare_map()
{
    diff -u --label "exports.txt, $1" --label "$2" <("$here/exports_of.sh" "$1" "$tree") \
        <(sed -n '/global:/,/local:/p' "$tree/$2" | grep -oE '^ +[A-Za-z_][A-Za-z0-9_]*;' | tr -d ' ;' | sort) || exit 1
}
compare_map exact u3v_tl/exports.map
# Compared as soon as it is there.
[ ! -f "$tree/standard_tl/exports.map" ] || compare_map standard standard_tl/exports.map

# Plain C names on one side, declarations on the other; a declaration may break its line anywhere.
diff -u --label exports.txt --label "public headers" <("$here/exports_of.sh" '' "$tree" | grep -vE '^(_Z|main$|g_logger$)') \
    <(cat "$headers/gentl.h" "$headers/u3v_lib.h" | tr '\n' ' ' |
        grep -oE '\b(GC_API|U3V_API) +[A-Za-z0-9_]+\(' | tr -d '(' | awk '{print $2}' | sort) || exit 1

# A standard producer offers GenTL, all of it and nothing else.
diff -u --label "exports.txt, standard" --label gentl.h <("$here/exports_of.sh" standard "$tree") \
    <(tr '\n' ' ' <"$headers/gentl.h" | grep -oE '\bGC_API +[A-Za-z0-9_]+\(' | tr -d '(' |
        awk '$2 !~ /^Zr/ {print $2}' | sort) || exit 1

grep -q 'g_logger' "$headers/zr_logging.h" || { echo "zr_logging.h does not declare g_logger"; exit 1; }
