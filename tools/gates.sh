# The gates behind tools/test and tools/check; sourced, never run.
#
# A gate is a function gate_<name>. It returns 0 (passed), 77 (cannot run here) or anything else
# (failed), writes its log to stdout, and adds what it counted to `counted_passed` and
# `counted_failed`; a gate that counted nothing counts as one.

. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

total_passed=0
total_failed=0
total_skipped=0
table=()

cannot_run=77

need()
{
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || { say "the program $tool is missing; tools/setup --checks installs it"; return "$cannot_run"; }
    done
}
# tools/setup has installed what single tests take: what is missing all the same is a failure, not skipped.
export ZR_NOTHING_MISSING=yes

# Sets `value` to an attribute of the first <testsuite> element of a JUnit file.
junit_attribute() { value=$(grep -oE -m 1 "\\b$2=\"[0-9]+\"" "$1" | head -n 1 | tr -dc '0-9'); }

# A program of GoogleTest that ctest ran as one test counts as what is in its report instead.
count_programs()
{
    local file value tests failures disabled skipped
    for file in "$root/build/$1"/gtest/*.xml; do
        [ -f "$file" ] || continue
        junit_attribute "$file" tests; tests=${value:-0}
        junit_attribute "$file" failures; failures=${value:-0}
        junit_attribute "$file" disabled; disabled=${value:-0}
        skipped=$(grep -c 'result="skipped"' "$file")
        # ctest has counted the program, as passed or failed.
        if [ "$failures" -eq 0 ]; then
            counted_passed=$((counted_passed + tests - disabled - skipped - 1))
        else
            counted_passed=$((counted_passed + tests - failures - disabled - skipped))
            counted_failed=$((counted_failed + failures - 1))
        fi
        counted_skipped=$((counted_skipped + disabled + skipped))
    done
}

# Runs the tests of a preset's tree and counts them one by one; a skipped test is no passed test.
run_ctest()
{
    local preset=$1 report=$logs/$1.xml status=0 value tests failures skipped disabled
    shift
    rm -rf "$report" "$root/build/$preset/gtest"
    # More tests at a time than there are processors: many of them do nothing but wait.
    (cd "$root" && ctest --test-dir "build/$preset" -j $((jobs * 3)) --output-on-failure --no-tests=error \
        --output-junit "$report" "$@") || status=1
    if [ ! -f "$report" ]; then
        say "ctest left no report"
        counted_failed=$((counted_failed + 1))
        return 1
    fi
    junit_attribute "$report" tests; tests=${value:-0}
    junit_attribute "$report" failures; failures=${value:-0}
    junit_attribute "$report" skipped; skipped=${value:-0}
    junit_attribute "$report" disabled; disabled=${value:-0}
    counted_passed=$((counted_passed + tests - failures - skipped - disabled))
    counted_failed=$((counted_failed + failures))
    counted_skipped=$((counted_skipped + skipped + disabled))
    count_programs "$preset"
    return "$status"
}

build_and_test()
{
    local preset=$1
    shift
    if ! build_preset "$preset"; then
        counted_failed=$((counted_failed + 1))
        return 1
    fi
    counted_passed=$((counted_passed + 1))
    run_ctest "$preset" "$@"
}

sanitizer_options()
{
    export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1
    export UBSAN_OPTIONS=print_stacktrace=1
    export TSAN_OPTIONS=second_deadlock_stack=1
}

# The first command of the README, as a newcomer types it; the second is this whole run.
gate_demo()
{
    rm -f "$root"/out/*/demo.png
    "$root/tools/demo" && [ -s "$root/out/standard/demo.png" ] && [ -s "$root/out/exact/demo.png" ]
}

gate_release() { build_and_test release; }

# The source rules say the same in every tree; once is enough.
gate_asan-ubsan()
{
    sanitizer_options
    build_and_test asan-ubsan -E '^rules\.source\.'
}
# Built with clang, whose thread-safety analysis and other warnings are errors: the clang gate is within it.
gate_tsan()
{
    need clang++ || return
    sanitizer_options
    build_and_test tsan -E '^rules\.source\.'
}

# A build is the check: clang's thread-safety analysis and its other warnings are errors, over everything but the
# tests, which the asan-ubsan gate compiles with warnings as errors.
gate_clang()
{
    need clang++ || return
    (cd "$root" && cmake --preset clang -DZR_BUILD_TESTS=OFF >/dev/null) || return 1
    (cd "$root" && cmake --build --preset clang -j "$jobs")
}

# The library over the kernel's own USB stack, in an emulated machine. Counts its own checks. It runs beside other
# gates, and two builds of one tree at a time would spoil it: what it needs is built before.
prepare_vm() { build_preset release zr_vm; }
gate_vm()
{
    local output status=0
    [ "$prepared" -eq 0 ] || { say "the release preset does not build"; return 1; }
    output=$("$root/tests/vm/run" --build "$root/build/release") || status=$?
    printf '%s\n' "$output"
    [ "$status" -eq "$cannot_run" ] && return "$cannot_run"
    read -r counted_passed counted_failed < <(tail -n 1 <<<"$output" |
        sed -nE 's/^([0-9]+) passed, ([0-9]+) failed.*/\1 \2/p')
    return "$status"
}

# The README's commands on a machine that has nothing yet. With ZR_FRESH=short the second one runs the emulated
# machine only: continuous integration runs the rest outside.
gate_fresh()
{
    local output status=0 commands=()
    [ "${ZR_FRESH:-}" = short ] && commands=(tools/demo 'tools/test vm')
    output=$("$root/tests/fresh/run" "${commands[@]}") || status=$?
    printf '%s\n' "$output"
    [ "$status" -eq "$cannot_run" ] && return "$cannot_run"
    read -r counted_passed counted_failed < <(awk '
        /^ok: / { good++ } /^not ok: / { bad++ } /^[0-9]+ passed, [0-9]+ failed$/ { good += $1; bad += $3 }
        END { print good + 0, bad + 0 }' <<<"$output")
    return "$status"
}

# Every list of files comes from git, so that no new folder is forgotten. Outside of a clone there is none.
code_files() { (cd "$root" && git ls-files "$@" | grep .); }
gate_format()
{
    need clang-format git || return
    code_files '*.c' '*.cpp' '*.h' >/dev/null || { say "no clone: git knows no files"; return "$cannot_run"; }
    code_files '*.c' '*.cpp' '*.h' | (cd "$root" && xargs clang-format --dry-run -Werror)
}

# The API reference without a warning, and that a gap in a header would be one.
gate_reference()
{
    need doxygen || return
    "$root/tests/rules/reference.sh" "$root/build/reference"
}

# Every source file, tests as well, one by one: a tree of its own is configured for it, and not built. (What is generated
# is compiled, never included.)
gate_tidy()
{
    need clang-tidy clang++ git || return
    (cd "$root" && cmake --preset clang -B build/tidy -DZR_BUILD_BENCH=ON -DZR_UNITY_TESTS=OFF >/dev/null) || return 1
    code_files '*.c' '*.cpp' | (cd "$root" && xargs -P "$jobs" -n 4 clang-tidy -p build/tidy --quiet --warnings-as-errors='*')
}

# The configuration of a release build once more, by itself, with warnings as errors.
gate_werror()
{
    (cd "$root" && cmake -S . -B build/werror -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZR_WERROR=ON >/dev/null &&
        cmake --build build/werror -j "$jobs")
}

# Exclusions: the records are set to zero as a whole (uninitDerivedMemberVar); a result that is needed as an argument
# first (useInitializationList); a flag that is asked again under its lock (identicalInnerCondition); a captured pointer
# that is the caller's (uselessAssignmentPtrArg). It takes the temporary of a range-for for a use after a move
# (accessMoved; clang-tidy knows better), and small records for large ones (passedByValue; so does clang-tidy). Literals
# such as 1ms end it (cppcheckError). The exported functions' file is left to clang-tidy: this checker does not know
# __VA_OPT__, which their entry macro needs.
gate_cppcheck()
{
    need cppcheck git || return
    local includes
    includes=$(code_files '*.h' | grep -vE '^(tests|examples)/' | xargs -n 1 dirname | sort -u | sed 's/^/-I/')
    # shellcheck disable=SC2086
    code_files '*.c' '*.cpp' | grep -vE '^tests/|^u3v_tl/zr_u3v_gen_tl\.cpp$' |
        (cd "$root" && cppcheck --enable=warning,performance,portability --std=c++20 --language=c++ --quiet \
            --error-exitcode=1 --inline-suppr -j "$jobs" --suppress=missingIncludeSystem \
            --suppress={uninitDerivedMemberVar,useInitializationList,identicalInnerCondition} \
            --suppress={uselessAssignmentPtrArg,accessMoved,passedByValue,cppcheckError} $includes -I include --file-list=-)
}

# gcc's analyser understands C only; that is the contract tests, whose mistakes would hide the library's.
gate_analyzer()
{
    local file status=0
    need gcc || return
    for file in "$root"/tests/contract/*.c "$root"/tests/contract/consumers/*.c; do
        gcc -std=gnu11 -O1 -fanalyzer -Wall -Wextra -Werror -I"$root/include" -I"$root/tests/contract" \
            -I"$root/virtual_camera/bus" -DZR_EXACT_VERSION='"0"' -c "$file" -o /dev/null || status=1
    done
    return "$status"
}

# The fuzzers themselves, each for ZR_FUZZ_SECONDS (a minute); what they have found before is replayed by every test run.
gate_fuzz()
{
    need clang++ || return
    "$root/tools/fuzz" "${ZR_FUZZ_SECONDS:-60}"
}

# tools/coverage prints the table; a run by hand shows the same.
gate_coverage()
{
    need gcov python3 || return
    "$root/tools/coverage"
}

# The udev rule in an emulated machine. One line "ok:" or "not ok:" for each step.
gate_udev()
{
    local output status=0
    build_preset release || return 1
    output=$("$root/tests/install/udev_in_machine.sh" "$root/build/release") || status=$?
    printf '%s\n' "$output"
    counted_passed=$(grep -c '^ok: ' <<<"$output")
    counted_failed=$(grep -c '^not ok: ' <<<"$output")
    return "$status"
}

# Debian packages: built twice, compared, looked at by lintian, installed into a clean root folder. One
# line "ok:" or "not ok:" for each step.
gate_packages()
{
    local output status=0
    "$root/tools/setup" --packages || { say "the tools for packages cannot be installed"; return "$cannot_run"; }
    output=$("$root/tests/install/packages.sh" "$root/build/packages") || status=$?
    printf '%s\n' "$output"
    counted_passed=$(grep -c '^ok: ' <<<"$output")
    counted_failed=$(grep -c '^not ok: ' <<<"$output")
    return "$status"
}

# Runs one gate and leaves what came of it in a file, so that it may run in the background.
run_gate()
{
    local name=$1 log=$logs/$1.log started=$SECONDS status=0 result skipped_gate=0
    counted_passed=0
    counted_failed=0
    counted_skipped=0
    rm -f "$logs/$name.result"
    "gate_$name" >"$log" 2>&1 </dev/null || status=$?
    if [ "$status" -eq "$cannot_run" ]; then
        result="skipped: $(tail -n 1 "$log")"
        skipped_gate=1
    else
        [ "$status" -ne 0 ] && [ "$counted_failed" -eq 0 ] && counted_failed=1
        [ $((counted_passed + counted_failed)) -eq 0 ] && counted_passed=1
        result="$counted_passed passed, $counted_failed failed"
        [ "$counted_skipped" -gt 0 ] && result+=", $counted_skipped skipped"
        if [ "$counted_failed" -gt 0 ]; then
            say "--- gate $name failed; what failed in ${log#"$root"/}, and its end:"
            grep -E '^(FAIL|not ok|.*\*\*\*(Failed|Timeout))\b|^# \| ' "$log"
            grep -vE '^ +Start +[0-9]+:|[ .]Passed +[0-9.]+ sec' "$log" | tail -n "${ZR_LOG_LINES:-60}"
        fi
    fi
    printf '%s %s %s %s %s\n' "$counted_passed" "$counted_failed" "$((counted_skipped + skipped_gate))" \
        "$((SECONDS - started))" "$result" >"$logs/$name.result"
    say "$name: $result ($((SECONDS - started)) s)"
}

# Adds what a gate left to the table and the totals; a gate that left nothing has failed.
collect_gate()
{
    local passed=0 failed=1 skipped=0 seconds=0 result="ended without a result"
    [ -f "$logs/$1.result" ] && read -r passed failed skipped seconds result <"$logs/$1.result"
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
    total_skipped=$((total_skipped + skipped))
    table+=("$(printf '%-12s %-40s %6d s' "$1" "$result" "$seconds")")
}

# Gates that leave a core to others and share no build with them: they run beside those that follow.
beside=(vm fresh)

start_gate()
{
    local name=$1
    prepared=0
    if ! [[ " ${beside[*]} " == *" $name "* ]]; then
        run_gate "$name"
        return
    fi
    if declare -F "prepare_$name" >/dev/null; then "prepare_$name" >"$logs/$name.build.log" 2>&1 </dev/null || prepared=$?; fi
    run_gate "$name" &
}

# Every gate, also after a failed one; then the table, what was skipped, and the count alone on the last line.
run_gates()
{
    local name row prepared
    mkdir -p "$logs"
    for name in "$@"; do
        declare -F "gate_$name" >/dev/null || die "no gate '$name'"
    done
    for name in "$@"; do start_gate "$name"; done
    wait
    for name in "$@"; do collect_gate "$name"; done
    say ""
    printf '%-12s %-40s %8s\n' gate result time
    for row in "${table[@]}"; do say "$row"; done
    [ "$total_skipped" -gt 0 ] && say "$total_skipped skipped"
    say ""
    say "$total_passed passed, $total_failed failed"
    [ "$total_failed" -eq 0 ]
}
