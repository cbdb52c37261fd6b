# Shared by the scripts of this folder; sourced, never run.

set -u
export LC_ALL=C

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${ZR_JOBS:-$(nproc 2>/dev/null || echo 2)}
logs=$root/build/logs

say() { printf '%s\n' "$*"; }
die()
{
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Configures a preset if its tree is new, and builds it. Extra arguments are targets.
build_preset()
{
    local preset=$1
    shift
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    (cd "$root" && cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" -j "$jobs" "${targets[@]}")
}
