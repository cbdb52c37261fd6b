#!/usr/bin/env bash
# The Debian packages: builds them twice in different folders, compares them byte for byte, asks lintian, installs them
# into a clean root folder and walks a newcomer's path there; then removes them and looks for leftovers.
#   packages.sh                    everything
#   packages.sh <folder>           keeps the packages there
# Ends with 77 where the tools are missing, and where there is no right to use a clean root folder.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

. "$source_tree/tests/need.sh"
need dpkg-buildpackage dpkg-dev
need dh debhelper
need lintian lintian
need python3 python3-minimal
keep=${1:-}
work_folder
jobs=${ZR_JOBS:-$(nproc)}

# What git would commit; of an unpacked archive everything but build folders. And the fetched sources of miniz.
copy_source()
{
    mkdir -p "$1"
    (
        cd "$source_tree" || exit 1
        if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
            git ls-files -z --cached --others --exclude-standard
        else
            find . -type f -not -path './build*' -not -path './.deps/*' -print0
        fi | while IFS= read -r -d '' file; do [ -e "$file" ] && printf '%s\0' "$file"; done |
            tar --null -cf - -T - | tar -xf - -C "$1"
        [ -d .deps/miniz ] && mkdir -p "$1/.deps" && cp -r .deps/miniz "$1/.deps/"
        true
    )
}

build_packages()
{
    (cd "$1" && DEB_BUILD_OPTIONS="parallel=$jobs" dpkg-buildpackage -b -us -uc)
}

# Without a cache of compiled files: a second build that is a copy of the first proves nothing.
export CCACHE_DISABLE=1
first=$work/first/zr-u3v-tl
second=$work/second/by-somebody-else/in/a-folder-with-a-longer-name/source
copy_source "$first"
copy_source "$second"
ok "build in one folder" build_packages "$first" || finish
ok "build in another one" build_packages "$second" || finish
one=$(dirname "$first")
other=$(dirname "$second")

count=0
for package in "$one"/*.deb; do
    count=$((count + 1))
    cmp "$package" "$other/$(basename "$package")" || fail "$(basename "$package") is another one when built elsewhere"
done
[ "$count" -ge 7 ] || fail "$count packages only"
say "compared: $count packages"
library=build/debian/lib/libzr_u3v_tl_x64.so.$version
cmp "$first/$library" "$second/$library" ||
    fail "the library is another one when built elsewhere"
if strings -a "$first/$library" | grep -F "$work"; then fail "the library names its folder"; fi
ok "lintian" lintian --fail-on error,warning --suppress-tags bad-distribution-in-changes-file "$one"/*.changes
if [ -n "$keep" ]; then mkdir -p "$keep" && rm -f "$keep"/*.deb && cp "$one"/*.deb "$keep/"; fi

"$source_tree/tests/install/newcomer.sh" "$one"/*.deb
status=$?
[ "$status" -eq "$cannot_run" ] && [ "$failures" -eq 0 ] && exit "$cannot_run"
[ "$status" -eq 0 ] || failures=$((failures + 1))
finish
