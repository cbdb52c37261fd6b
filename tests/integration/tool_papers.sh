#!/usr/bin/env bash
# What is written about zr-u3v against what it says of itself:  tool_papers.sh <program> <source tree>
# Every command and long option of --help stands in the manual page and in the completion, and
# neither names one that there is not. The completion is tried as a shell would.
set -u
program=${1:?program}
tree=${2:?source tree}
manual=$tree/docs/man/zr-u3v.1
completion=$tree/packaging/completion/zr-u3v
failures=0
fail()
{
    echo "$*"
    failures=$((failures + 1))
}

# A command's own options; the program's options are told by its own help only.
commands=$("$program" --help | sed -n '/^Subcommands:/,/^$/p' | sed -n 's/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -eq 13 ] || fail "expected 13 commands, found: $commands"
options=$( { "$program" --help; for command in $commands; do "$program" "$command" --help; done; } |
    sed -n '/^Options:/,/^$/p' | grep -E '^  -' | grep -oE -- '--[a-z0-9][a-z0-9-]*' | sort -u)
[ "$(wc -l <<<"$options")" -ge 25 ] || fail "too few options found: $options"

for command in $commands; do
    grep -qE "^\\.Ss .*\\b$command\\b" "$manual" || fail "$manual has no section on $command"
    grep -qwE "$command" "$completion" || fail "$completion does not know $command"
done
# The manual writes "Fl -json" for --json.
in_manual=$(grep -oE 'Fl -[a-z0-9][a-z0-9-]*' "$manual" | sed 's/^Fl -/--/' | sort -u)
in_completion=$(grep -oE -- '--[a-z0-9][a-z0-9-]*' "$completion" | sort -u)
compare()
{
    local paper=$1 names=$2 option
    while IFS= read -r option; do fail "$paper: $option is missing"; done < <(comm -23 <(echo "$options") <(echo "$names"))
    while IFS= read -r option; do fail "$paper: there is no $option"; done < <(comm -13 <(echo "$options") <(echo "$names"))
}
compare "$manual" "$in_manual"
compare "$completion" "$in_completion"
while IFS= read -r register; do
    grep -q "\"$register\"" "$tree/zr_u3v_tool/tool_register_value.cpp" || fail "completion: no register $register"
    grep -qw "$register" "$manual" || fail "manual: no register $register"
done < <(sed -n '/local registers=/,/"$/p' "$completion" | grep -oE '\b[A-Z][A-Za-z]+\b')
for code in 0 1 2 3 4 5 6 130; do
    grep -qxE "\\.It $code" "$manual" || fail "$manual does not tell exit code $code"
done

# What a shell would offer for the words given; the last one is being typed.
offers()
{
    bash -c '
        _init_completion() { words=("${COMP_WORDS[@]}"); cword=$COMP_CWORD; cur=${words[cword]}; prev=${words[cword - 1]}; }
        _filedir() { COMPREPLY=(FILES); }
        compopt() { :; }
        zr-u3v() # of which the names of features are asked
        {
            printf "AcquisitionControl\n  ExposureTime  rw  10 us\n  ExposureAuto  ro  Off\n  AcquisitionStart  wo\n"
        }
        . "$1"
        shift
        COMP_WORDS=(zr-u3v "$@")
        COMP_CWORD=$#
        _zr_u3v
        echo "${COMPREPLY[*]}"' offers "$completion" "$@"
}
expect()
{
    local wanted=$1 offered
    shift
    offered=$(offers "$@")
    [ "$offered" = "$wanted" ] || fail "completion of \"$*\": \"$offered\" instead of \"$wanted\""
}
expect "get grab" g
expect "doctor" --json d
expect "guru" features --visibility g
expect "system stream" get --module s
expect "software" grab --trigger s
expect "--exact" --ex
expect "get grab" --camera list g
expect "--virtual --virtual-camera" --virt
expect "system stream" xml s
expect "ModelName" read Mo
expect "--8bit" grab --8
expect "ExposureTime ExposureAuto" get Exp
expect "ExposureTime=" set Exp
expect "AcquisitionStart" exec A
expect "FILES" grab -o ""
expect "png pgm ppm pnm" grab -f p
expect "" list l
[ "$failures" -eq 0 ] || exit 1

. "$tree/tests/need.sh"
need mandoc mandoc
mandoc -T lint -W warning "$manual"
