#!/usr/bin/env bash
# Shows the rule about commit messages one of each kind that breaks it, and one that keeps it.
#   commit_selftest.sh <folder of the rules>
set -u
rule=${1:?folder}/commit_form.sh
. "$1/../need.sh"
need git git
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0
since=2000-01-01T00:00:00Z

# No settings of whoever runs this.
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
export GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a@example.org GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a@example.org
seventy_two=$(printf 'x%.0s' {1..72})

commit() { printf '%b' "$1" | git -C "$tree/clone" commit -q --allow-empty --cleanup=verbatim -F - || exit 1; }
new_clone()
{
    rm -rf "$tree/clone" "$tree/shallow"
    git init -q "$tree/clone"
    mkdir "$tree/clone/docs"
    printf '# Style\n\n## Commits\n\nScopes are the folders (`gentl`, `tests/vm`,\n`repo`).\n' >"$tree/clone/docs/style.md"
    git -C "$tree/clone" add docs
    commit 'repo: start\n'
}
expect()
{
    local wanted=$1 what=$2 found=fail
    shift 2
    "$rule" "$@" >"$tree/out" 2>&1 && found=pass
    [ "$found" = "$wanted" ] && return
    echo "$what: expected $wanted, got $found"
    cat "$tree/out"
    failures=$((failures + 1))
}
breaks()
{
    new_clone
    commit "$2"
    expect fail "$1" "$tree/clone" "$since"
}

new_clone
commit "gentl: keep a buffer\n\nWhy, in two\nlines.\n\n$seventy_two\nhttps://example.org/$seventy_two\n"
commit "tests/vm: ${seventy_two:10}\n"
expect pass "a history that keeps it" "$tree/clone" "$since"
git clone -q --depth 1 "file://$tree/clone" "$tree/shallow" || exit 1
expect pass "a shallow clone" "$tree/shallow" "$since"

breaks "no scope" 'Keep a buffer\n'
breaks "a scope that is not listed" 'buffers: keep one\n'
breaks "two scopes" 'gentl, repo: keep one\n'
breaks "no order" 'gentl: keeps a buffer\n'
breaks "a period" 'gentl: keep a buffer.\n'
breaks "a subject that is too long" "tests/vm: x${seventy_two:10}\n"
breaks "a line that is too long" "gentl: keep a buffer\n\nWhy x${seventy_two:4}\n"
breaks "no blank line" 'gentl: keep a buffer\nWhy.\n'
git clone -q --depth 1 "file://$tree/clone" "$tree/shallow" || exit 1
expect fail "a shallow clone" "$tree/shallow" "$since"
expect pass "older than the rule" "$tree/clone" 2090-01-01T00:00:00Z
printf '# Style\n' >"$tree/clone/docs/style.md"
expect fail "no list of scopes" "$tree/clone" "$since"
rm -rf "$tree/clone/.git"
GIT_CEILING_DIRECTORIES=$tree "$rule" "$tree/clone" >"$tree/out"
[ $? -eq 77 ] || { echo "without a clone it must say that it cannot look"; failures=$((failures + 1)); }

[ "$failures" -eq 0 ] || exit 1
echo "the rule bites"
