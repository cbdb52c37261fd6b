# Shared by the scripts of this folder; sourced, never run.

set -u
export LC_ALL=C
unset GENICAM_GENTL64_PATH ZR_VIRTUAL_CAMERAS ZR_VIRTUAL_USB LD_LIBRARY_PATH PKG_CONFIG_PATH DESTDIR

source_tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
version=$("$source_tree/tests/rules/version_of.sh" exact "$source_tree")
failures=0
cannot_run=77

say() { printf '%s\n' "$*"; }
fail()
{
    say "not ok: $*"
    failures=$((failures + 1))
}
# Runs a command; prints what it said only when it failed.
ok()
{
    local what=$1 output status=0
    shift
    output=$("$@" 2>&1 </dev/null) || status=$?
    if [ "$status" -eq 0 ]; then
        say "ok: $what"
    else
        fail "$what (exit $status): $*"
        printf '%s\n' "$output" | tail -n 30
    fi
    return "$status"
}
finish()
{
    [ "$failures" -eq 0 ] || { say "$failures failed"; exit 1; }
    say "all ok"
    exit 0
}
# The folder with everything in it goes in any case.
work_folder()
{
    work=$(mktemp -d "${TMPDIR:-/tmp}/zr_install_XXXXXX") || exit 2
    trap 'rm -rf "$work"' EXIT
}

# An installation writes its records into the build folder: those of the user's own are kept and put back.
records=(install_manifest.txt install_created_folders.txt)
keep_records()
{
    local record
    build=$1
    mkdir -p "$work/records"
    for record in "${records[@]}"; do [ -f "$build/$record" ] && mv "$build/$record" "$work/records/"; done
    trap put_records_back EXIT
}
put_records_back()
{
    local record
    for record in "${records[@]}"; do
        rm -f "$build/$record"
        [ -f "$work/records/$record" ] && mv "$work/records/$record" "$build/"
    done
    rm -rf "$work"
}
library_folder() { sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$1/CMakeCache.txt"; }
