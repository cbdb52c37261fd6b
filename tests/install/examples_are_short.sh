#!/usr/bin/env bash
# A tutorial is read in one go:  examples_are_short.sh <folder of the examples>
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

count=0
while IFS= read -r file; do
    count=$((count + 1))
    lines=$(wc -l <"$file")
    [ "$lines" -lt 150 ] || fail "$file has $lines lines"
done < <(find "${1:?folder}" -name '*.c' -o -name '*.cpp' -o -name '*.py')
[ "$count" -ge 3 ] || fail "$count examples, where are the others?"
finish
