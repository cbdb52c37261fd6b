#!/usr/bin/env bash
# The dynamic symbols that one producer exports, or all:  exports_of.sh <exact|standard|''> <source tree>
awk -v who="$1" '!/^#/ { for (i = 2; i <= NF; ++i) if (who == "" || $i == who) { print $1; next } }' \
    "${2:?source tree}/tests/rules/exports.txt" | LC_ALL=C sort
