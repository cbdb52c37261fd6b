#!/usr/bin/env bash
# The form of commit messages, as docs/style.md has it under "Commits":  commit_form.sh <source tree> [since]
# Looks at the last hundred commits that are younger than the rule; a shallow clone has fewer. Prints each offence.
# 77: no clone, or no git.
set -u
export LC_ALL=C.UTF-8

. "$(dirname "${BASH_SOURCE[0]}")/../need.sh"
need git git
cd "${1:?source tree}" || exit 2
since=${2:-2026-11-22T08:15:00Z}
longest=72
git rev-parse --verify -q HEAD >/dev/null 2>&1 || { echo "no clone: git knows no commits"; exit 77; }

offences=0
report()
{
    printf '%s\n' "$*"
    offences=$((offences + 1))
}

scopes=$(sed -n '/^## Commits/,$p' docs/style.md | tr '\n' ' ' | sed -nE 's/.*Scopes are the folders \(([^)]*)\).*/\1/p' | grep -oE '`[^`]+`' | tr -d '`')
[ -n "$scopes" ] || { echo "docs/style.md lists no scopes"; exit 1; }

# Not in the form of an order: what a first word must not be.
no_order='^(add|fix|remove|change|update|use|make|move|rename|split|let|keep|show|say|test|check|look|take)(s|es|ed|ing) '

check_subject()
{
    local commit=$1 subject=$2 scope what
    if [ "${#subject}" -gt "$longest" ]; then report "$commit: subject of ${#subject} characters: $subject"; fi
    if ! [[ $subject =~ ^([^\ :]+):\ (.*[^.\ ])$ ]]; then
        report "$commit: the subject is no 'scope: what changes' without a period: $subject"
        return
    fi
    scope=${BASH_REMATCH[1]}
    what=${BASH_REMATCH[2]}
    grep -qxF -- "$scope" <<<"$scopes" || report "$commit: docs/style.md knows no scope '$scope'"
    if [[ $what =~ $no_order ]]; then report "$commit: imperative, please: $subject"; fi
}

# A word that is longer than a line, as an address, may be.
check_body()
{
    local commit=$1 line
    while IFS= read -r line; do
        [ "${#line}" -le "$longest" ] || [[ $line != *" "* ]] || report "$commit: line of ${#line} characters: $line"
    done
}

count=0
while read -r commit; do
    count=$((count + 1))
    check_subject "$commit" "$(git log -1 --format=%s "$commit")"
    [ -z "$(git log -1 --format=%B "$commit" | sed -n 2p)" ] || report "$commit: no blank line behind the subject"
    check_body "$commit" < <(git log -1 --format=%B "$commit" | tail -n +3)
done < <(git log -n 100 --no-merges --since="$since" --format=%h)
[ "$offences" -eq 0 ] || { echo "$offences offence(s) in $count commits"; exit 1; }
echo "$count commits looked at"
