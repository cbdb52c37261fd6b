#!/usr/bin/env bash
# One architecture rule over the source tree:  source_rules.sh <rule> <tree>
# Prints each offending line and fails if there is one. rules_selftest.sh shows that each rule bites.
set -u
export LC_ALL=C

rule=${1:?rule}
tree=${2:?tree}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$tree" || exit 2

offences=0
report()
{
    printf '%s\n' "$*"
    offences=$((offences + 1))
}
report_lines()
{
    local line
    while IFS= read -r line; do report "$line"; done
}

# What git would commit; without git (an unpacked archive) everything but build trees. Text only.
tree_files()
{
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git ls-files --cached --others --exclude-standard
    else
        find . -type f -not -path './build*' -not -path './.deps/*' | sed 's|^\./||'
    fi | while IFS= read -r file; do [ -f "$file" ] && printf '%s\n' "$file"; done
}
text_files() { tree_files | grep -vE '\.(png|zip|bin)$' | grep -vE '^tests/fuzz/.*corpus' ; }
code_files() { tree_files | grep -E "^($1)/" | grep -E '\.(c|cpp|h)$'; }

# folder: what it may include from.
may_include()
{
    case "$1" in
        base | u3v_wire | usb | archive | info) echo "$1" ;;
        logging) echo "logging base" ;;
        gentl) echo "gentl info logging base" ;;
        u3v) echo "u3v u3v_wire usb archive logging base" ;;
        u3v_tl) echo "u3v_tl gentl u3v_wire info logging base" ;;
        u3v_host) echo "u3v_host u3v_wire usb archive base" ;;
        standard_tl) echo "standard_tl info base" ;;
        client) echo "client base" ;;
        virtual_camera) echo "virtual_camera" ;;
        demo) echo "demo consumer virtual_camera" ;;
        bench) echo "bench consumer virtual_camera" ;;
        zr_u3v_tool) echo "zr_u3v_tool consumer" ;;
        consumer | examples) echo "$1" ;;
    esac
}
# Single headers that a folder may include of another. The exact producer's modules know u3v/ by its
# flat interface alone: the public header, and beside it the same calls with the size of the caller's
# memory. The standard producer's know cameras by the classes that u3v_host/ offers, not by what it
# is made of, and of the wire what lies in a filled buffer.
u3v_host_offers="camera.h camera_info.h camera_list.h description_file.h error.h event_packet.h host_limits.h"
u3v_host_offers+=" stream_receiver.h wakeup.h"
may_include_header()
{
    case "$1" in
        u3v_tl) [ "$2" = u3v_bounded.h ] ;;
        standard_tl) is_word_of "$2" "packets.h $u3v_host_offers" ;;
        *) return 1 ;;
    esac
}
may_include_public()
{
    case "$1" in
        base | u3v_wire | usb | archive | u3v_host | virtual_camera) echo "" ;;
        logging) echo "zr_logging.h" ;;
        gentl) echo "gentl.h zr_logging.h" ;;
        u3v) echo "u3v_lib.h zr_logging.h" ;;
        u3v_tl) echo "gentl.h u3v_lib.h zr_logging.h" ;;
        info | standard_tl | client | consumer | demo | bench | zr_u3v_tool | examples) echo "gentl.h" ;;
    esac
}
# Foreign headers that belong to one layer.
may_include_foreign()
{
    case "$2" in
        libusb*) [[ $1 == usb || $1 == u3v || $1 == u3v_host || $1 == virtual_camera || $1 == bench ]] ;;
        miniz*) [[ $1 == archive || $1 == virtual_camera ]] ;;
        png*) [[ $1 == demo || $1 == zr_u3v_tool ]] ;;
        nlohmann/*) [[ $1 == zr_u3v_tool || $1 == bench ]] ;;
        zip.h | tiff* | SDL* | CLI/* | arv.h) [[ $1 == zr_u3v_tool ]] ;;
        *) return 0 ;;
    esac
}

is_word_of() { [[ " $2 " == *" $1 "* ]]; }

# Sets `owner`: the folder that a header of this name comes from when `folder` includes it. Its own if
# it has one, else one that it may include from.
find_owner()
{
    local folder=$1 owners=${header_owners[$2]:-}
    for owner in "$folder" ${seen[$folder]}; do
        is_word_of "$owner" "$owners" && return
    done
    owner=${owners%% *}
}

# Whether some folder may include from both, so that a header's name would not tell which is meant.
both_seen()
{
    local folder
    for folder in $folders; do
        is_word_of "$1" "${seen[$folder]}" && is_word_of "$2" "${seen[$folder]}" && return 0
    done
    return 1
}

check_include()
{
    local file=$1 folder=$2 name=$3 delimiter=$4
    local owner
    find_owner "$folder" "${name##*/}"
    # What is offered must not bring along what is not.
    if [ "$folder" = u3v_host ] && is_word_of "${file##*/}" "$u3v_host_offers" &&
        [[ $name == libusb* || (-n $owner && $owner != base) ]] && ! is_word_of "$name" "$u3v_host_offers"; then
        report "$file: offered to others, must not include $name"
        return
    fi
    if [ "$delimiter" = "<" ]; then
        case "$name" in
            zr_u3v_tl/*)
                is_word_of "${name#zr_u3v_tl/}" "$(may_include_public "$folder")" ||
                    report "$file: $folder must not include <$name>"
                ;;
            *)
                may_include_foreign "$folder" "$name" || report "$file: $folder must not include <$name>"
                ;;
        esac
        # One of the tree's own is held to the table, however it is written.
        [ -n "$owner" ] && [[ $name != zr_u3v_tl/* ]] || return
    fi
    if [[ $name == *..* ]]; then
        report "$file: relative include \"$name\""
        return
    fi
    if [ -z "$owner" ]; then
        may_include_foreign "$folder" "$name" || report "$file: $folder must not include \"$name\""
    elif ! is_word_of "$owner" "${seen[$folder]}" && ! may_include_header "$folder" "$name"; then
        report "$file: $folder must not include \"$name\" of $owner"
    fi
}

includes()
{
    local folders="base u3v_wire usb archive info logging gentl u3v u3v_tl u3v_host standard_tl"
    folders+=" client virtual_camera consumer demo bench zr_u3v_tool examples"
    local all=${folders// /|} file folder line name other
    declare -gA header_owners=() seen=()
    for folder in $folders; do seen[$folder]=$(may_include "$folder"); done
    while IFS= read -r file; do
        [[ $file == *.h ]] || continue
        name=${file##*/}
        folder=${file%%/*}
        for other in ${header_owners[$name]:-}; do
            [ "$other" != "$folder" ] && both_seen "$folder" "$other" &&
                report "$file: a header of this name stands in $other as well"
        done
        header_owners[$name]+="${header_owners[$name]:+ }$folder"
    done < <(code_files "$all")
    local pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*([<"])([^>"]+)[>"]'
    while IFS= read -r file; do
        folder=${file%%/*}
        while IFS= read -r line; do
            [[ $line =~ $pattern ]] && check_include "$file" "$folder" "${BASH_REMATCH[2]}" "${BASH_REMATCH[1]}"
        done < <(grep -E '^[[:space:]]*#[[:space:]]*include' "$file")
    done < <(code_files "$all")
}

# The pattern is put together from pieces, so that this file does not hit itself.
words()
{
    local pattern="\\b[Ss]""pec(s|ification|ifications)?\\b|\\bPar""ts? [0-9]+(\\.[0-9]+)?\\b"
    pattern+="|\\b[Aa]s s""pecified\\b|shared/(s""pec|house)|s""pec\\.md"
    text_files | grep -v '\.xsd$' | tr '\n' '\0' | xargs -0 -r grep -nIE "$pattern" /dev/null | report_from
    tree_files | grep -iE "(^|/)[^/]*(s""pec|par""t[0-9])[^/]*\$" | grep -viE 'insp''ect|sp''ecial|susp''ect' | report_from
}

paths()
{
    text_files | tr '\n' '\0' |
        xargs -0 -r grep -nIE '(^|[^A-Za-z0-9_./-])/(wor''k|far''m|roo''t|hom''e)/' /dev/null | report_from
}

whitespace()
{
    text_files | tr '\n' '\0' | xargs -0 -r grep -nIE '[[:blank:]]+$' /dev/null | report_from
    text_files | tr '\n' '\0' | xargs -0 -r grep -lI $'\r' /dev/null | sed 's/$/: carriage return/' | report_from
    text_files | while IFS= read -r file; do
        [ -s "$file" ] && [ -n "$(tail -c 1 "$file")" ] && echo "$file: no newline at the end"
    done | report_from
}

# The ledger names a quirk at the start of a heading or of a table row; the code names it in a
# comment "Quirk Qnn: ...". Tests may name them as well, that proves nothing either way.
quirks()
{
    local ledger=docs/quirks.md
    [ -f "$ledger" ] || { report "$ledger is missing"; return; }
    local in_code in_ledger
    in_code=$(code_files 'logging|gentl|u3v|u3v_tl|client|virtual_camera|include' | tr '\n' '\0' |
        xargs -0 -r grep -hoE 'Quirk Q[0-9]+[a-z]?:' /dev/null | grep -oE 'Q[0-9]+[a-z]?' | sort -u)
    in_ledger=$(grep -oE '^(#+ |\| *)`?Q[0-9]+[a-z]?\b' "$ledger" | grep -oE 'Q[0-9]+[a-z]?' | sort)
    [ -n "$in_code" ] || report "no quirk is marked in the code"
    awk -F'|' '/^\| *Q[0-9]/ { empty = NF != 8; for (i = 2; i <= 7; ++i) empty = empty || $i ~ /^ *$/ }
        empty { print FILENAME ": what, why, who would break, where, pinned by:" $2; empty = 0 }' "$ledger" | report_from
    uniq -d <<<"$in_ledger" | sed "s|^\$||; /./s|\$|: twice in $ledger|" | grep . | report_from
    comm -23 <(echo "$in_code") <(sort -u <<<"$in_ledger") | grep . | sed "s|\$|: in the code, not in $ledger|" | report_from
    comm -13 <(echo "$in_code") <(sort -u <<<"$in_ledger") | grep . | sed "s|\$|: in $ledger, not in the code|" | report_from
}

# A malformed mark would escape the comparison above. Rooms that both producers use, and those of the
# standard one, carry no quirk.
quirk_marks()
{
    code_files 'logging|gentl|u3v|u3v_tl|client|virtual_camera|include' | tr '\n' '\0' |
        xargs -0 -r grep -nE '\bQuirk\b' /dev/null | sed -E 's/Quirk Q[0-9]+[a-z]?: [^ ]//g' | grep -E '\bQuirk\b' | report_from
    code_files 'base|u3v_wire|usb|archive|info|u3v_host|standard_tl' | tr '\n' '\0' |
        xargs -0 -r grep -nE '\bQuirk\b' /dev/null | report_from
}

# "// kept" behind a declaration: of the interface that the library offers to those who link its
# parts, without a caller of its own. Once it has one the mark goes.
kept()
{
    local code name
    code=$(code_files 'logging|gentl|u3v|u3v_tl' | tr '\n' '\0' | xargs -0 -r sed -E 's|//.*||' | grep -oE '[A-Za-z_0-9]+')
    while IFS= read -r name; do
        [ "$(grep -cx "$name" <<<"$code")" -le 2 ] || report "$name is marked as kept and is called"
    done < <(code_files 'logging|gentl|u3v|u3v_tl' | tr '\n' '\0' | xargs -0 -r cat /dev/null |
        sed -E 's|^([^/]*)// kept$|\1@kept;|; s|//.*||' | tr '\n' ' ' | tr ';{}' '\n\n\n' |
        grep -B1 '^ *@kept' | sed -nE 's/^[^(]*[^A-Za-z0-9_]([A-Za-z0-9_]+)\(.*/\1/p' | sort -u)
}

# Names of members that stay although they carry a type letter: texts of the exact producer's log
# show them, and the last are fields of the archive library.
other_members="m_BufferContainer m_nNumImagesAcquired m_pDevice m_pDeviceHandle m_pRemoteDevice"
other_members+=" m_pAlloc m_pFree m_pIO_opaque m_pRead m_pRealloc"

# A member begins with m_ and a lower-case letter, and carries no type letters.
member_names()
{
    local file name
    while IFS=: read -r file _ name; do
        is_word_of "$name" "$other_members" || report "$file: $name is no name of a member"
    done < <(tree_files | grep -E '\.(c|cpp|h)$' | tr '\n' '\0' |
        xargs -0 -r grep -noE '\bm_(([bcefhinpsux]|dw|pp|str|sz|ui|ul)?[A-Z]|_)[A-Za-z0-9_]*' /dev/null | sort -t: -k1,1 -k3,3 -u)
    for name in $other_members; do
        code_files '[a-z0-9_]+' | tr '\n' '\0' | xargs -0 -r grep -qw "$name" /dev/null || report "$name is excepted, and stands nowhere"
    done
}

# The page about threading has a table of locks for each producer, in the order in which they are
# taken:  | number | `Class::member` | file | ...
folders_of_locks()
{
    case "$1" in
        exact) echo "include|logging|gentl|u3v|u3v_tl|client" ;;
        standard) echo "u3v_host|standard_tl" ;;
        shared) echo "base|usb|archive|info|u3v_wire" ;;
    esac
}

# "Class::member file" of each lock that the sources declare. A line that looks like a declaration and
# is not understood comes out as it stands, and so is in no table.
declared_locks()
{
    code_files "$(folders_of_locks "$1")" | grep -vE '^base/zr_(sync|rw_lock)\.h$' | tr '\n' '\0' | xargs -0 -r awk '
        BEGIN {
            type = "((Recursive)?Mutex|RwLock|pthread_(mutex|rwlock|spinlock)_t|std::([a-z]+_)*mutex)"
        }
        FNR == 1 { depth = 0 }
        { line = $0; sub(/\/\/.*/, "", line); gsub(/Locker<[A-Za-z]+>/, "Locker", line); match(line, /^ */); indent = RLENGTH }
        line ~ /^ *(class|struct) / && line !~ /;/ {
            name = line
            sub(/^ *(class|struct) +/, "", name)
            while (sub(/^(alignas\([^)]*\)|ZR_[A-Z_]+(\("[^"]*"\))?) +/, "", name)) { }
            sub(/[^A-Za-z0-9_:].*/, "", name)
            while (depth > 0 && at[depth] >= indent) depth--
            at[++depth] = indent
            of[depth] = name
        }
        line ~ "(^|[^A-Za-z0-9_])" type "( *[*>]| +[A-Za-z_])" {
            while (depth > 0 && at[depth] >= indent) depth--
            lock = line
            if (sub("^ *((mutable|static|inline|const) +)*" type " +", "", lock) &&
                lock ~ /^[A-Za-z0-9_]+( *= *[A-Z_]+|\{\})?;/) {
                sub(/[^A-Za-z0-9_].*/, "", lock)
                print (depth > 0 ? of[depth] : "") "::" lock " " FILENAME
            } else {
                print FILENAME ":" FNR ":" line
            }
        }'
}

# The rows of one producer, as they come: "number Class::member file".
listed_locks()
{
    awk -v producer="$1" -F'|' '
        /^#/ { inside = tolower($0) ~ ("^#+ locks of the " producer " producer") }
        inside && $2 ~ /^ *[0-9]+ *$/ { gsub(/[` ]/, "", $2); gsub(/[` ]/, "", $3); gsub(/[` ]/, "", $4); print $2, $3, $4 }' "$2"
}

locks()
{
    local page=docs/threading.md producer shared declared rows listed all
    [ -f "$page" ] || { report "$page is missing"; return; }
    shared=$(declared_locks shared)
    for producer in exact standard; do
        declared=$(declared_locks "$producer")
        rows=$(listed_locks "$producer" "$page")
        listed=$(cut -d' ' -f2- <<<"$rows")
        all+=$'\n'$listed
        [ -n "$declared" ] || report "no lock is declared for the $producer producer"
        grep . <<<"$declared" | grep -vxF -e "$listed" |
            sed "s|\$|: declared, not in the table of the $producer producer|" | report_from
        grep . <<<"$listed" | grep -vxF -e "$declared"$'\n'"$shared" |
            sed "s|\$|: in the table of the $producer producer, not declared|" | report_from
        awk -v producer="$producer" '$1 != NR { print $0 ": should have number " NR " in the table of the " producer " producer" }' \
            <<<"$rows" | report_from
    done
    grep . <<<"$shared" | grep -vxF -e "$all" | sed 's|$|: declared, in no table|' | report_from
}

# What a document links to, or shows, is there.
links()
{
    local document target
    while IFS= read -r document; do
        while IFS= read -r target; do
            [ -e "$(dirname "$document")/${target%%#*}" ] || report "$document: there is no $target"
        done < <(grep -oE '\]\([^)#: ]+(#[^)]*)?\)|src="[^":]+"' "$document" | sed -E 's/^\]\(//; s/\)$//; s/^src="//; s/"$//')
    done < <(tree_files | grep -E '\.md$')
}

# The words of docs/style.md that are not to be used: those in backticks in the table's last column. Of each word its
# forms as well (mends, mended, mending; buries, thrown).
glossary()
{
    local words
    words=$(sed -n '/^## Words/,/^## Commits/p' docs/style.md 2>/dev/null | grep -E '^\|.*\|.*`' | sed -E 's/^\|[^|]*\|//' |
        grep -oE '`[^`]+`' | tr -d '`' | sed -E 's/^throw\b/thr[eo]wn?/; s/y$/(y|ie)/; s/^give\b/g[ia]ve?/; s/^([^ ]+)/\1(s|d|ed|ing)?/' | paste -sd '|')
    [ -n "$words" ] || { report "docs/style.md marks no words"; return; }
    text_files | grep -vE '^(docs/style\.md|tests/rules/(source_rules|rules_selftest)\.sh)$' | tr '\n' '\0' |
        xargs -0 -r grep -niIE "(^|[^a-zA-Z])($words)([^a-zA-Z]|\$)" /dev/null | report_from
}

# Tests wait for conditions, and let time go by on purpose only. tests/support/wait.h does both; a sleep elsewhere says
# behind it what it is for: "until: <condition>" in a loop that ends with it, "time: <why>" where time itself is meant.
waits()
{
    local sleep='\b(sleep_for|sleep_until|usleep|nanosleep|sleep) ?\(|(^|[;&|({ ])sleep +[0-9.$"]|time\.sleep\('
    tree_files | grep -E '^tests/' | grep -vE '^tests/(support/wait\.h|rules/(source_rules|rules_selftest)\.sh|fuzz/corpus/.*)$' |
        tr '\n' '\0' | xargs -0 -r grep -nIE "$sleep" /dev/null | grep -vE '(//|/\*|#) (until|time): [^ *]' | report_from
    code_files tests | tr '\n' '\0' | xargs -0 -r grep -nE 'LetPass\([^"]*""' /dev/null | report_from
}

# The version stands in CMakeLists.txt alone; the changelogs must have come to it. (That of the packages may have "+N"
# behind it; debian/control names versions of the past.)
version()
{
    local version
    version=$("$here/version_of.sh" exact .) || { report "CMakeLists.txt has no version"; return; }
    text_files | grep -vE '^(CMakeLists\.txt|CHANGELOG\.md|debian/(changelog|control|.*\.symbols))$' | tr '\n' '\0' |
        xargs -0 -r grep -nIF "$version" /dev/null | grep -E "(^|[^0-9.])${version//./\\.}([^0-9]|\$)" | report_from
    head -n 1 debian/changelog 2>/dev/null | grep -qE "\\(${version//./\\.}(\\+[0-9]+)?\\)" || report "debian/changelog begins with another version"
    grep -qxF "## $version" CHANGELOG.md 2>/dev/null || report "CHANGELOG.md does not know version $version"
}

# "Suite.Name" in the ledger is a promise: such a test exists.
quirk_tests()
{
    local ledger=docs/quirks.md
    [ -f "$ledger" ] || { report "$ledger is missing"; return; }
    comm -23 <(grep -oE '\b[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]*_[A-Za-z0-9_]+' "$ledger" | sort -u) \
        <(tree_files | grep -E '^tests/.*\.cpp$' | tr '\n' '\0' | xargs -0 -r cat /dev/null | tr '\n' ' ' |
            grep -oE '\bTEST(_F|_P)?\( *[A-Za-z0-9_]+, *[A-Za-z0-9_]+ *\)' | sed -E 's/.*\( *//; s/, */./; s/ *\)//' | sort -u) |
        sed "s|^|$ledger: there is no test |" | report_from
}

# Pipes run in subshells; offences are counted through a file.
counter=$(mktemp)
trap 'rm -f "$counter"' EXIT
report_from()
{
    local line
    while IFS= read -r line; do
        printf '%s\n' "$line"
        echo >>"$counter"
    done
}

case "$rule" in
    includes | words | paths | whitespace | quirks | quirk_marks | quirk_tests | kept | member_names | locks | links | version | waits | glossary) "$rule" ;;
    *) echo "unknown rule $rule" >&2; exit 2 ;;
esac
offences=$((offences + $(wc -l <"$counter")))
[ "$(tree_files | wc -l)" -gt 0 ] || { echo "no files in $tree" >&2; exit 2; }
[ "$offences" -eq 0 ] || { echo "$offences offence(s) against rule '$rule'"; exit 1; }
