#!/usr/bin/env bash
# The API reference is made without a warning, and a gap in a public header would be one:
#   reference.sh <folder for the reference>
set -u
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=${1:?folder}
. "$here/tests/need.sh"
need doxygen doxygen

"$here/tools/reference" "$folder" || exit 1
for page in index.html gentl_8h.html u3v__lib_8h.html classZrLogger.html; do
    [ -s "$folder/$page" ] || { echo "no $page"; exit 1; }
done
for name in EventGetData DSGetBufferInfo; do
    grep -q "$name" "$folder/gentl_8h.html" || { echo "the reference does not know $name"; exit 1; }
done

# doxygen takes a constant without a meaning for documented when its list is.
constants_without_meaning() { grep -nE '^ +[A-Z][A-Z0-9_]+ =[^/]*$' "$1/include/zr_u3v_tl/"*.h; }
constants_without_meaning "$here" && { echo "constants without a meaning"; exit 1; }

# A copy of the tree whose header lacks what one of its kinds says.
gaps=$(mktemp -d) || exit 2
trap 'rm -rf "$gaps"' EXIT
refuses()
{
    local what=$1 edit=$2
    rm -rf "$gaps/tree"
    mkdir -p "$gaps/tree"
    cp -r "$here/include" "$here/docs" "$here/tools" "$here/CMakeLists.txt" "$gaps/tree/"
    sed -i -E "$edit" "$gaps/tree/include/zr_u3v_tl/"*.h
    cmp -s "$here/include/zr_u3v_tl/gentl.h" "$gaps/tree/include/zr_u3v_tl/gentl.h" && { echo "nothing taken away: $what"; exit 1; }
    "$gaps/tree/tools/reference" "$gaps/reference" >"$gaps/log" 2>&1 && { echo "not refused: $what"; exit 1; }
    grep -q 'not documented' "$gaps/log" || { cat "$gaps/log"; echo "refused for another reason: $what"; exit 1; }
}
refuses "a function without a contract" 's#^/\*\* Closes a camera with#/* Closes a camera with#'
refuses "a type without a meaning" 's#^/\*\* (A registered event)#/* \1#'
refuses "a field without a meaning" 's#/\*\*< (as announced)#/* \1#'
sed -i -E 's#/\*\*< it is done \*/##' "$gaps/tree/include/zr_u3v_tl/"*.h
constants_without_meaning "$gaps/tree" >/dev/null || { echo "not refused: a constant without a meaning"; exit 1; }
echo "the reference is complete"
