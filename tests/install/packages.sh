#!/usr/bin/env bash
# The Debian packages: builds them twice in different folders, compares them byte for byte, asks lintian, installs them
# into a clean root folder and walks a newcomer's path there; then removes them and looks for leftovers.
#   packages.sh                    everything
#   packages.sh <folder>           keeps the packages there
# Ends with 77 where the tools are missing. Needs root for the clean root folder (chroot).
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

for tool in dpkg-buildpackage dh lintian python3; do
    command -v "$tool" >/dev/null || { say "$tool is not installed (tools/setup --packages)"; exit "$cannot_run"; }
done
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
[ "$count" -ge 3 ] || fail "$count packages only"
say "compared: $count packages"
cmp "$first"/build/debian/lib/libzr_u3v_tl_x64.so.2.5.2 "$second"/build/debian/lib/libzr_u3v_tl_x64.so.2.5.2 ||
    fail "the library is another one when built elsewhere"
if strings -a "$first"/build/debian/lib/libzr_u3v_tl_x64.so.2.5.2 | grep -F "$work"; then fail "the library names its folder"; fi
ok "lintian" lintian --fail-on error,warning --suppress-tags bad-distribution-in-changes-file "$one"/*.changes
if [ -n "$keep" ]; then mkdir -p "$keep" && cp "$one"/*.deb "$keep/"; fi

[ "$(id -u)" -eq 0 ] && command -v unshare >/dev/null || { say "the clean root folder needs root and unshare"; [ "$failures" -eq 0 ] && exit "$cannot_run"; finish; }

say "--- a clean root folder"
root=$work/root
ok "make it" "$source_tree/tests/install/clean_root.sh" "$root" "$one"/*.deb || finish
mkdir -p "$root/packages" "$root/tmp" "$root/proc"
cp "$one"/libzr-u3v-tl2_*.deb "$one"/libzr-u3v-tl-dev_*.deb "$one"/zr-u3v-tools_*.deb "$root/packages/"

# In a namespace of its own with /proc, as in a machine; nothing is handed in but the words themselves.
inside() { unshare --mount --pid --fork sh -c 'mount -t proc proc "$1/proc" && root=$1 && shift && exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$root" "$@"' - "$root" "$@"; }
# A login shell of an ordinary user, who has set nothing.
newcomer() { unshare --mount --pid --fork sh -c 'mount -t proc proc "$1/proc" && exec env -i HOME=/tmp chroot --userspec=4711:4711 "$1" /bin/bash -lc "$2"' - "$root" "cd && $1"; }
# Caches that the system's own triggers refresh, and dpkg's books, are nobody's leftover.
files_of_root() { (cd "$root" && find . -path ./var/lib/dpkg -prune -o -path ./proc -prune -o -path ./tmp -prune -o -path ./var/log -prune -o -print | grep -vE '^\./(etc/ld\.so\.cache|var/cache/ldconfig.*)$' | sort); }

files_of_root >"$work/before"
ok "install" inside sh -c 'dpkg -i /packages/*.deb'
ok "dpkg finds nothing wrong" inside sh -c 'dpkg --audit && [ -z "$(dpkg --audit)" ] && dpkg --verify libzr-u3v-tl2 zr-u3v-tools libzr-u3v-tl-dev'
ok "the variable is set" newcomer 'case ":$GENICAM_GENTL64_PATH:" in *:/usr/lib/*/gentlproducer:*) ;; *) echo "$GENICAM_GENTL64_PATH"; exit 1 ;; esac'
ok "list" newcomer 'zr-u3v --virtual list | tee /dev/stderr | grep -q 120900000001'
ok "xml" newcomer 'zr-u3v --virtual xml -o camera.xml && grep -q "<RegisterDescription" camera.xml'
ok "read" newcomer '[ "$(zr-u3v --virtual -q read ModelName | grep -c "Virtual U3V")" = 1 ]'
ok "grab 10" newcomer 'zr-u3v --virtual grab -n 10 -o images/ && [ "$(ls images | wc -l)" = 10 ]'
ok "the console client finds the library" newcomer 'yes "" | head -50 | LD_LIBRARY_PATH=$(echo /usr/lib/*/zr-u3v/virtual_usb) ZR_VIRTUAL_CAMERAS= zr_u3v_client'
ok "without a camera the tool says so" newcomer 'zr-u3v list; [ $? = 3 ] || [ $? = 0 ]'
ok "purge" inside sh -c 'dpkg --purge zr-u3v-tools libzr-u3v-tl-dev libzr-u3v-tl2'
files_of_root | diff "$work/before" - || fail "removal leaves something, or takes too much"
finish
