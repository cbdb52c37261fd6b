#!/usr/bin/env bash
# Runs the commands of docs/performance.md on a build:  documented_commands.sh SOURCE BUILD
# The measurements themselves are long: of those only the arguments are checked.
set -u
export LC_ALL=C

source_tree=${1:?source folder}
build=${2:?build folder}
. "$source_tree/tests/need.sh"
need valgrind valgrind

work=$(mktemp -d "${TMPDIR:-/tmp}/zr-documented.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
awk '/^```sh$/ { inside = 1; next } /^```/ { inside = 0 } inside' "$source_tree/docs/performance.md" |
    sed -E "s#^(tools/bench)#$source_tree/\\1 --check#; s#build/release#$build#g; s#build/work#$work/work#g" >"$work/commands"
[ "$(wc -l <"$work/commands")" -ge 5 ] || { echo "no commands found"; exit 1; }
bash -euxo pipefail "$work/commands" >"$work/log" 2>&1 || { tail -n 20 "$work/log"; exit 1; }
grep -q guarded_image "$work/log" || { echo "the annotated counts do not show the operations"; exit 1; }
