#!/usr/bin/env bash
# The list of dynamic symbols, the linker's map and the public headers say the same:
#   export_list.sh <source tree>
set -u
export LC_ALL=C
tree=${1:?source tree}
list=$tree/tests/rules/exports.txt
headers=$tree/include/zr_u3v_tl

diff -u --label exports.txt --label u3v_tl/exports.map "$list" \
    <(sed -n '/global:/,/local:/p' "$tree/u3v_tl/exports.map" | grep -oE '^ +[A-Za-z_][A-Za-z0-9_]*;' | tr -d ' ;' | sort) ||
    exit 1

# Plain C names on one side, declarations on the other; a declaration may break its line anywhere.
diff -u --label exports.txt --label "public headers" <(grep -vE '^(_Z|main$|g_logger$)' "$list") \
    <(cat "$headers/gentl.h" "$headers/u3v_lib.h" | tr '\n' ' ' |
        grep -oE '\b(GC_API|U3V_API) +[A-Za-z0-9_]+\(' | tr -d '(' | awk '{print $2}' | sort) || exit 1

grep -q 'g_logger' "$headers/zr_logging.h" || { echo "zr_logging.h does not declare g_logger"; exit 1; }
