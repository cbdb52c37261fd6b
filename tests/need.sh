# Sourced by tests that take a program which not every machine has.

# need PROGRAM PACKAGE: without it the test is skipped (77) and says why. A gate has installed everything, so there it
# is a failure.
need()
{
    PATH=$PATH:/usr/sbin:/sbin command -v "$1" >/dev/null && return
    echo "the program $1 is missing (package $2)"
    [ -n "${ZR_NOTHING_MISSING:-}" ] && exit 1
    exit 77
}
