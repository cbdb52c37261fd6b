#!/usr/bin/env bash
# Counts what the steady state's operations execute and compares with what they executed before:
#   instruction_guard.sh PROGRAM PRODUCER BASELINE [--update]
#
# Instructions, not time: the same on a busy machine. A count may grow to one and a half times its baseline before it
# counts as a mistake, and a baseline that is twice too high counts as one as well: then it guards nothing. 77: this
# machine has no instruction counter.
set -u
export LC_ALL=C

program=${1:?program}
producer=${2:?producer}
baseline=${3:?file with the baseline}
mode=${4:-}
more=150 # per cent
less=50

. "$(dirname "${BASH_SOURCE[0]}")/../need.sh"
need valgrind valgrind
need callgrind_annotate valgrind

work=$(mktemp -d "${TMPDIR:-/tmp}/zr-guard.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT

# The functions whose inclusive counts are looked at: the program's own, and what the acquisition thread does.
functions=(guarded_camera_register guarded_virtual_register guarded_buffer_query guarded_failing_call guarded_image
    'ZrU3VDataStream::AcquireImage()')
toggles=()
for function in "${functions[@]}"; do toggles+=("--toggle-collect=$function"); done

# Fair: otherwise the discovery worker, which polls, keeps the others from running.
valgrind --tool=callgrind --fair-sched=try --collect-atstart=no "${toggles[@]}" --callgrind-out-file="$work/out" \
    "$program" "$producer" >"$work/log" 2>&1 || { tail -n 20 "$work/log"; exit 1; }
callgrind_annotate --auto=no --inclusive=yes --threshold=100 --show=Ir "$work/out" >"$work/annotated" || exit 1

# Sets `count` to the inclusive instructions of a function.
count_of()
{
    count=$(grep -F -- ":$1 [" "$work/annotated" | head -n 1 | sed -E 's/^ *([0-9,]+).*/\1/; s/,//g')
    [ -n "$count" ] || count=$(grep -F -- ":$1" "$work/annotated" | head -n 1 | sed -E 's/^ *([0-9,]+).*/\1/; s/,//g')
}

failed=0
[ "$mode" = --update ] && sed -i '/^[^#]/d' "$baseline"
for function in "${functions[@]}"; do
    count_of "$function"
    if [ -z "$count" ]; then
        echo "not counted: $function"
        failed=1
        continue
    fi
    if [ "$mode" = --update ]; then
        printf '%s\t%s\n' "$count" "$function" >>"$baseline"
        continue
    fi
    before=$(awk -F '\t' -v name="$function" '$2 == name { print $1 }' "$baseline")
    [ -n "$before" ] || { echo "no baseline: $function"; failed=1; continue; }
    percent=$((count * 100 / before))
    printf '%4d %% of the baseline: %s (%d instructions)\n' "$percent" "$function" "$count"
    if [ "$percent" -gt "$more" ] || [ "$percent" -lt "$less" ]; then
        echo "too far from the baseline; if it is meant: $0 $program $producer $baseline --update"
        failed=1
    fi
done
exit "$failed"
